// A long random run against a plain model: every answer of the catalog is foretold.
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "catalog/catalog_fixture.h"

namespace catalog_test {
namespace {

struct ModelEntry {
  unsigned number;
  std::string text;
};

class CatalogModel : public CatalogTest {
 protected:
  void run(unsigned seed, int steps) {
    SCOPED_TRACE(numbered("seed ", seed));
    random.seed(seed);
    for (int i = 0; i < steps && !HasFailure(); ++i) {
      SCOPED_TRACE(numbered("step ", static_cast<unsigned>(i)));
      step();
      expect_catalog_sound();
      EXPECT_EQ(cntl()->num_cat_actual, model.size());
      EXPECT_EQ(cntl()->num_cat_inited, slots);
    }
    for (const auto& [name, entry] : model) compare(name);
    if (!HasFailure()) expect_agreement();
  }

 private:
  using Model = std::map<std::string, ModelEntry>;
  struct Undo {
    Model model;
    std::set<unsigned> free;
    unsigned slots;
  };

  unsigned pick(unsigned below) { return static_cast<unsigned>(random() % below); }

  // Up to four short tokens of few letters, so that neighbours share much.
  std::string any_name() {
    std::string name;
    const unsigned tokens = 1 + pick(4);
    for (unsigned i = 0; i < tokens; ++i) {
      if (i > 0) name += '.';
      const unsigned letters = 1 + pick(2);
      for (unsigned j = 0; j < letters; ++j) name += static_cast<char>('A' + pick(2));
    }
    return name;
  }

  void step() {
    const unsigned kind = pick(20);
    if (kind < 9) return put_any();
    if (kind < 14) return delete_any();
    if (kind < 17) return compare(any_name());
    if (kind == 17) return begin_or_end();
    if (kind == 18 && !before) {
      EXPECT_EQ(rebuild(), DBE_OK);
    }
  }

  void put_any() {
    const std::string name = any_name();
    const std::string text = std::to_string(random());
    const auto found = model.find(name);
    ASSERT_EQ(put_cf(CatRecord(name).text(text)), found == model.end() ? DBE_OK : DBE_RECORD_REPLACED)
        << name;
    if (found != model.end()) {
      found->second.text = text;
      return;
    }
    unsigned number = slots;
    if (free.empty())
      ++slots;
    else
      number = free.extract(free.begin()).value();
    model.emplace(name, ModelEntry{number, text});
  }

  void delete_any() {
    const std::string name = model.empty() || pick(4) == 0
                                 ? any_name()
                                 : std::next(model.begin(), pick(static_cast<unsigned>(model.size())))->first;
    const auto found = model.find(name);
    ASSERT_EQ(del_cf(name), found == model.end() ? DBE_NOT_FOUND : DBE_OK) << name;
    if (found == model.end()) return;
    free.insert(found->second.number);
    model.erase(found);
    before.reset();  // it ended the transaction with its own
  }

  void begin_or_end() {
    if (!before) {
      ASSERT_EQ(db_start_trans(task, DB_CAT), DBE_OK);
      before = Undo{model, free, slots};
      return;
    }
    if (pick(2) == 0) {
      ASSERT_EQ(db_commit(task, DB_CAT), DBE_OK);
    } else {
      ASSERT_EQ(db_rollback(task, DB_CAT), DBE_OK);
      model = before->model;
      free = before->free;
      slots = before->slots;
    }
    before.reset();
  }

  void compare(const std::string& name) {
    const auto found = model.find(name);
    for (const std::size_t length : {head_len, record_len}) {
      const CatReading read = get_cf(name, length);
      ASSERT_EQ(read.rc, found == model.end() ? DBE_NOT_FOUND : DBE_OK) << name << " " << length;
      if (found == model.end()) continue;
      EXPECT_EQ(read.record.text(), found->second.text) << name;
      EXPECT_EQ(number_of(name), static_cast<int>(found->second.number)) << name;
    }
  }

  std::mt19937 random;
  Model model;
  std::set<unsigned> free;
  unsigned slots = 0;
  std::optional<Undo> before;  // what a roll-back brings back, while a transaction is open
};

unsigned seed_of_this_run() {
  const char* given = std::getenv("ZVR_TEST_SEED");
  const unsigned seed =
      given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
  std::cout << "seed " << seed << " (ZVR_TEST_SEED repeats it)\n";
  return seed;
}

TEST_F(CatalogModel, EveryAnswerOfARandomRunIsForetold) {
  run(seed_of_this_run(), 600);
}

TEST_F(CatalogModel, EveryAnswerOfTheSameRunIsForetold) {
  run(20240229, 300);
}

}  // namespace
}  // namespace catalog_test
