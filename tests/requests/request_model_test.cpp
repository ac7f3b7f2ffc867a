// Random request trees of several processes, then lists by every accepted mask: each is
// what a plain model of the records says.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <tuple>

#include "requests/requests_fixture.h"

namespace request_test {
namespace {

using strings = std::vector<std::string>;

struct Stored {
  std::uint32_t db_id;
  Id id;
};

const char* const users[] = {"A", "AB", "ABC", "B", "ABCDEFGHIJKLMNOP"};
const char* const function_names[] = {"F", "FA", "FAB", "G"};
const char* const servers[] = {"SRC", "SRC2", "SRV", "SRV2"};
const char* const targets[] = {"T1", "T2", "T3"};
const char* const rgns[] = {"R", "RGN", "RGNRGN12"};
const char* const rens[] = {"E", "REN", "RENREN12"};

template <std::size_t count>
const char* any(std::mt19937& random, const char* const (&names)[count]) {
  return names[random() % count];
}

class RequestModel : public RequestsTest {
 protected:
  // What one process does, played on the files or on a set of names alone.
  struct Player {
    std::mt19937 random;
    std::uint16_t recursion;  // the process's own, so that none meets another's records
    std::vector<Stored> records;

    Id any_id() {
      Id id;
      id.user = any(random, users);
      id.source = any(random, servers);
      id.sequence = 1 + static_cast<std::uint32_t>(random() % 4) * 255;
      id.recursion = recursion;
      id.function = any(random, function_names);
      id.rgn = any(random, rgns);
      id.ren = any(random, rens);
      id.domain = any(random, servers);
      id.target = any(random, targets);
      return id;
    }
    // False when the library answered otherwise than the model.
    bool play(void* own, int steps) {
      for (int n = 0; n < steps; ++n) {
        const unsigned choice = static_cast<unsigned>(random() % 20);
        const Id id = any_id();
        if (choice == 0 ? !drop_tree(own, id) : choice == 1 ? !drop(own, id) : !put(own, id)) return false;
      }
      return true;
    }

   private:
    std::vector<Stored>::iterator find(std::uint32_t db_id, const Id& id) {
      return std::find_if(records.begin(), records.end(), [&](const Stored& one) {
        return one.db_id == db_id && one.id.text(db_id) == id.text(db_id);
      });
    }
    bool put(void* own, const Id& id) {
      const std::uint32_t db_id = request_types()[random() % request_types().size()].db_id;
      const bool known = find(db_id, id) != records.end();
      if (!known) records.push_back({db_id, id});
      if (!own) return true;
      return put_on(own, db_id, id, short_record(db_id, id, 1)) == (known ? DBE_RECORD_REPLACED : DBE_OK);
    }
    bool drop(void* own, const Id& id) {
      const std::uint32_t db_id = request_types()[random() % request_types().size()].db_id;
      const auto found = find(db_id, id);
      const bool known = found != records.end();
      if (known) records.erase(found);
      if (!own) return true;
      const bytes key = id.of(db_id);
      const void* keys[] = {key.data()};
      return db_del(own, db_id, 1, keys) == (known ? DBE_OK : DBE_NOT_FOUND);
    }
    bool drop_tree(void* own, const Id& id) {
      const bool known = find(DB_RQR, id) != records.end();
      const std::string root = id.text(DB_RQR);
      if (known) std::erase_if(records, [&](const Stored& one) { return one.id.text(DB_RQR) == root; });
      if (!own) return true;
      const bytes key = id.of(DB_RQR);
      return db_del_rq_tree(own, key.data()) == (known ? DBE_OK : DBE_NOT_FOUND);
    }
  };

  static bool fits(const std::string& filter, const std::string& text) {
    const std::size_t star = filter.find('*');
    return star == std::string::npos ? filter == text : text.compare(0, star, filter, 0, star) == 0;
  }
  static bool matches(const Id& filter, const Id& id, unsigned parts) {
    const auto has = [&](unsigned part) { return (parts & part) != 0; };
    return fits(filter.source, id.source) && fits(filter.user, id.user) &&
           (filter.sequence == 0xFFFFFFFFu || filter.sequence == id.sequence) &&
           (filter.recursion == 0xFFFF || filter.recursion == id.recursion) &&
           (!has(wild_function) || fits(filter.function, id.function)) &&
           (!has(wild_rgn) || fits(filter.rgn, id.rgn)) && (!has(wild_ren) || fits(filter.ren, id.ren)) &&
           (!has(wild_server) || fits(filter.domain, id.domain)) &&
           (!has(wild_target) || fits(filter.target, id.target));
  }
  // In the order of the record key.
  auto key_of(std::uint32_t db_id, const Id& id) {
    const unsigned parts = type_of(db_id).all();
    const auto only = [&](unsigned part, const std::string& text) {
      return (parts & part) ? text : std::string();
    };
    const auto numbered_name = [&](unsigned part, const std::string& name) {
      return (parts & part) ? numbers.at(name) : 0u;
    };
    return std::make_tuple(numbers.at(id.source), id.user, id.sequence, id.recursion,
                           only(wild_function, id.function), only(wild_rgn, id.rgn), only(wild_ren, id.ren),
                           numbered_name(wild_server, id.domain), numbered_name(wild_target, id.target));
  }
  strings expected(std::uint32_t db_id, const Id& filter) {
    std::vector<Id> found;
    for (const Stored& one : model)
      if (one.db_id == db_id && matches(filter, one.id, type_of(db_id).all())) found.push_back(one.id);
    std::sort(found.begin(), found.end(),
              [&](const Id& a, const Id& b) { return key_of(db_id, a) < key_of(db_id, b); });
    strings texts;
    for (const Id& id : found) texts.push_back(id.text(db_id));
    return texts;
  }
  // The wild part that stands first may keep a prefix.
  static Id with_prefix(Id filter, unsigned part, const Id& id, std::size_t length) {
    if (part == wild_user) filter.user = id.user.substr(0, std::min(length, std::size_t{15})) + "*";
    if (part == wild_function) filter.function = id.function.substr(0, length) + "*";
    if (part == wild_rgn) filter.rgn = id.rgn.substr(0, std::min(length, std::size_t{7})) + "*";
    if (part == wild_ren) filter.ren = id.ren.substr(0, std::min(length, std::size_t{7})) + "*";
    return filter;
  }

  std::vector<Stored> model;
  std::map<std::string, std::uint32_t> numbers;
};

TEST_F(RequestModel, ListsByEveryAcceptedMaskAreWhatTheModelSays) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(numbered("seed ", seed));
  constexpr unsigned processes = 3;
  constexpr int steps = 80;
  std::vector<pid_t> children;
  for (unsigned p = 0; p < processes; ++p) {
    const pid_t child = fork();
    if (child == 0) {
      void* own = co_init_task("player", nullptr, 1);
      Player player{std::mt19937(seed + p), static_cast<std::uint16_t>(p), {}};
      const bool as_told = own && player.play(own, steps);
      if (own) coi_term_task(own, 0);
      _exit(as_told ? 0 : 1);
    }
    children.push_back(child);
  }
  for (unsigned p = 0; p < processes; ++p) {
    int status = -1;
    ASSERT_EQ(waitpid(children[p], &status, 0), children[p]);
    EXPECT_EQ(status, 0) << "process " << p;
    Player player{std::mt19937(seed + p), static_cast<std::uint16_t>(p), {}};
    player.play(nullptr, steps);
    model.insert(model.end(), player.records.begin(), player.records.end());
  }
  for (const char* name : {"SRC", "SRC2", "SRV", "SRV2", "T1", "T2", "T3"}) numbers[name] = number(name);

  Player any_player{std::mt19937(seed + processes), 0, {}};
  for (const Type& type : request_types()) {
    EXPECT_EQ(list(type.db_id, everything()).ids, expected(type.db_id, everything())) << type.suffix;
    for (int round = 0; round < 12; ++round) {
      Id id = any_player.any_id();
      id.recursion = static_cast<std::uint16_t>(any_player.random() % processes);
      unsigned mask = 0;
      for (std::size_t wild = 0;; ++wild) {
        Id filter = id.wild(mask);
        const Listed listed = list(type.db_id, filter);
        ASSERT_EQ(listed.rc, DBE_OK) << type.suffix << " mask " << mask;
        EXPECT_EQ(listed.end, DBE_END_OF_LIST);
        EXPECT_EQ(listed.ids, expected(type.db_id, filter)) << type.suffix << " mask " << mask;
        if (wild > 0 && wild < type.parts.size()) {
          filter = with_prefix(filter, type.parts[type.parts.size() - wild], id, any_player.random() % 3);
          EXPECT_EQ(list(type.db_id, filter).ids, expected(type.db_id, filter))
              << type.suffix << " mask " << mask << " with a prefix";
        }
        if (wild == type.parts.size()) break;
        mask |= type.parts[type.parts.size() - 1 - wild];
      }
      if (type.db_id != DB_RQD && type.db_id != DB_RQT) continue;
      Id filter = everything();
      (type.db_id == DB_RQD ? filter.domain : filter.target) = type.db_id == DB_RQD ? id.domain : id.target;
      strings by_destination = list(type.db_id, filter).ids;
      strings wanted = expected(type.db_id, filter);
      std::sort(by_destination.begin(), by_destination.end());
      std::sort(wanted.begin(), wanted.end());
      EXPECT_EQ(by_destination, wanted) << type.suffix << " by destination";
    }
  }
}

}  // namespace
}  // namespace request_test
