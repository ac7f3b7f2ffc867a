// What the journal tells of each change, laid over the file as it was, is the file as it is; and a
// lock that stays out of the file leaves what one in it leaves.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/engine_handle.h"
#include "engine/faulty_os.h"
#include "engine/journal.h"
#include "engine/journal_file.h"
#include "engine/node_cache.h"
#include "engine/os_file.h"
#include "engine/psp.h"
#include "engine/record_locks.h"
#include "engine/cursor.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_file;

class dice {
 public:
  explicit dice(unsigned seed) : random_(seed) {}
  int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

 private:
  std::mt19937 random_;
};

// The file as the groups of its journal tell of it.
struct shadow {
  std::vector<unsigned char> bytes;
  journal_file log;
  bool lost = true;
  long groups = 0;
  long passed = 0;

  void need(std::size_t n) {
    if (bytes.size() < n) bytes.resize(n);
  }
  engine::journal_watcher watcher() {
    return {this,
            [](void* c, const journal_file&, bool passed_on) {
              auto* s = static_cast<shadow*>(c);
              s->lost = s->lost || !passed_on;
              s->passed += passed_on ? 1 : 0;
            },
            [](void* c, const engine::group_read& g) {
              auto* s = static_cast<shadow*>(c);
              if (g.header == nullptr) return;
              ++s->groups;
              s->need(1024);
              std::memcpy(s->bytes.data(), g.header, engine::header_size);
              engine::node_walk walk(g);
              for (engine::node_change n; engine::next_node(&walk, &n);) {
                const std::size_t at = 1024 + 1024 * static_cast<std::size_t>(n.number);
                s->need(at + 1024);
                std::memcpy(s->bytes.data() + at, n.head, engine::node_head_size);
                std::memcpy(s->bytes.data() + at + n.from, n.entries, n.length);
              }
            },
            [](void* c) { static_cast<shadow*>(c)->lost = true; }};
  }
  // With nothing deferred.
  void compare(const std::string& path, bool settled) {
    ASSERT_EQ(engine::catch_up(&log, true, watcher()), 0);
    if (!settled) return;
    std::vector<unsigned char> file = read_file(path);
    if (lost) {
      bytes = file;
      lost = false;
      return;
    }
    need(file.size());
    ASSERT_EQ(bytes.size(), file.size());
    for (std::size_t i = 4; i < file.size(); ++i) {
      if (i >= engine::header_size && i < 1024) continue;
      ASSERT_EQ(bytes[i], file[i]) << "byte " << i << " node " << (static_cast<long>(i) - 1024) / 1024 << " at " << i % 1024;
    }
  }
};

// What the cache of a handle that knows the last change has of its nodes stands in the file.
void expect_cache_as_file(handle& h, const std::vector<unsigned char>& file) {
  const engine::journal* j = h.get()->journal;
  const std::uint32_t generation = engine::load32(file.data(), h.get()->order);
  if (j->ahead || j->disk_generation != generation) return;
  for (std::int32_t n = 0; n < h.get()->nextnode; ++n) {
    engine::node_view v;
    if (engine::view_node(h, n, &v) != 0) continue;
    engine::node there = *v.image;
    engine::convert_head(there, h.get()->order);
    const std::size_t at = 1024 + 1024 * static_cast<std::size_t>(n);
    ASSERT_LE(at + 1024, file.size());
    ASSERT_EQ(std::memcmp(&there, file.data() + at, 1024), 0) << "node " << n;
  }
}

// What is tried.
struct setting {
  unsigned seed;
  unsigned cache;
  int order;
  unsigned options;
  bool faults;
  int level = 4;
};

class ToldChanges : public ::testing::TestWithParam<setting> {};

void act(dice& d, handle& h, bool inside_call) {
  const int big = d.below(30) == 0 ? 8000 : d.below(4) == 0 ? 1500 : 300;
  sample_record r = sample(1 + d.below(60), static_cast<std::size_t>(d.below(big)));
  r.small = static_cast<std::int16_t>(d.below(30000));
  r.number = d.below(1 << 30);
  switch (d.below(14)) {
    case 0:
    case 1:
      if (h.find_name(r.name) == 0) h.remove();
      break;
    case 2:
    case 3:
    case 4:
      h.insert(r);
      break;
    case 5:
      engine::transbeg(h, 3, nullptr);
      break;
    case 6:
    case 7:
      engine::transend(h, 1 + (d.below(12) == 0 ? d.below(3) : 0));
      break;
    case 8:
      engine::transroll(h, nullptr, 0, nullptr);
      break;
    case 9:
      if (inside_call || h.get()->transtype != 0) break;
      engine::begin_call(h);
      for (int i = d.below(8); i > 0; --i) act(d, h, true);
      if (h.get()->transtype != 0) engine::transend(h, 1);
      engine::end_call(h);
      break;
    case 10:
      if (h.find_name(r.name) == 0) {
        engine::dlock(h);
        sample_fields fields(r);
        engine::dupdate(h, fields.list);
        if (d.below(3) != 0) engine::dunlock(h);
      }
      break;
    default:
      if (h.find_name(r.name) == 0) h.update(r);
      break;
  }
}

TEST_P(ToldChanges, GroupsTellAllThatChanged) {
  const setting s = GetParam();
  constexpr int steps = 1200;
  engine::set_cache_blocks(s.cache);
  install_faulty_os();
  scratch_folder folder;
  const std::string path = folder.file("f");
  const std::uint64_t kept = engine::checkpoint_at, kept_defer = engine::defer_to;
  engine::checkpoint_at = 24 * 1024;
  engine::defer_to = s.seed % 2 ? 40 * 1024 : 400 * 1024;
  {
    handle a, b;
    a.journal = b.journal = engine::journal_use::on;
    a.options = b.options = s.options;
    ASSERT_EQ(a.create(path, 'S', s.order), 0);
    ASSERT_EQ(engine::csetfile(a, s.level), 0);
    ASSERT_EQ(a.insert(sample(1)), 0);
    b.from_cache = true;
    ASSERT_EQ(b.open_for_work(path), 0);
    shadow seen;
    seen.log.identity = a.get()->journal->log.identity;
    ASSERT_EQ(engine::open_journal(&seen.log, (path + ".jnl").c_str()), 0);
    dice d(s.seed);
    int compared = 0;
    for (int step = 0; step < steps && !HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      handle& h = d.below(3) == 0 ? b : a;
      if (s.faults && d.below(15) == 0) {
        constexpr os_call kinds[] = {os_call::write, os_call::read, os_call::flush, os_call::lock, os_call::allocate};
        fail_call(kinds[d.below(5)], 1 + d.below(30), d.below(3) == 0);
      }
      act(d, h, false);
      disarm();
      bool settled = true;
      for (handle* one : {&a, &b}) {
        if (engine::checkpsp(*one) != 'O') {
          engine::abandon(*one);
          if (one->open_for_work(path) != 0) settled = false;
          continue;
        }
        const engine::journal* j = one->get()->journal;
        if (j == nullptr || j->deferred || j->must_repair || j->must_reload) settled = false;
      }
      if (settled && seen.log.file >= 0) {
        engine::first_page page;
        if (engine::read_first_page(a, &page) != 0 || page.flag) settled = false;
      }
      compared += settled ? 1 : 0;
      seen.compare(path, settled);
      // A small cache has forgotten all else then.
      if (settled && (s.cache > 100 || d.below(10) == 0)) {
        const std::vector<unsigned char> file = read_file(path);
        expect_cache_as_file(a, file);
        expect_cache_as_file(b, file);
      }
    }
    EXPECT_GT(seen.groups, 500);
    EXPECT_GT(seen.passed, 50) << "lives that go on from the one before";
    EXPECT_GT(compared, 250);
    engine::close_journal(&seen.log);
    for (handle* one : {&a, &b})
      if (one->close() != 0) engine::abandon(*one);
  }
  remove_faulty_os();
  engine::checkpoint_at = kept;
  engine::defer_to = kept_defer;
  engine::set_cache_blocks(10);
}

INSTANTIATE_TEST_SUITE_P(Settings, ToldChanges,
                         ::testing::Values(setting{1, 10, 1, 0, false}, setting{9, 2, 1, 0, false},
                                           setting{11, 2, 2, engine::option_merge, true}, setting{2, 4, 2, 0, false},
                                           setting{3, 3, 1, engine::option_merge, false},
                                           setting{4, 1000, 2, engine::option_merge, false},
                                           setting{5, 6, 1, 0, true}, setting{6, 1000, 1, engine::option_merge, true},
                                           setting{7, 1000, 2, 0, false, 1}));

// ---- Locks for a call

struct outcome {
  std::vector<int> codes;
  std::vector<std::vector<unsigned char>> files;
  int unwritten = 0;
};

outcome lock_work(unsigned seed, bool for_call, unsigned options, int order, int steps) {
  outcome o;
  scratch_folder folder;
  const std::string path = folder.file("f");
  handle a, b;
  a.journal = b.journal = engine::journal_use::on;
  a.options = b.options = options;
  EXPECT_EQ(a.create(path, 'S', order), 0);
  EXPECT_EQ(engine::csetfile(a, 4), 0);
  for (int i = 1; i <= 40; ++i) EXPECT_EQ(a.insert(sample(i, static_cast<std::size_t>(i * 13 % 400))), 0);
  EXPECT_EQ(b.open_for_work(path), 0);
  dice d(seed);
  const auto note = [&](int code) { o.codes.push_back(code); };
  const auto lock = [&] {
    const int code = for_call ? engine::dlock_for_call(a) : engine::dlock(a);
    o.unwritten += a.get()->lock_unwritten;
    note(code);
    return code;
  };
  for (int step = 0; step < steps; ++step) {
    // Another handle has a lock now and then, or dies with it.
    const int other = d.below(12);
    if (other == 0) {
      note(b.find_name(sample(1 + d.below(60)).name));
      note(engine::dlock(b));
    } else if (other == 1) {
      note(engine::dunlock(b));
    } else if (other == 2) {
      engine::abandon(b);
      const bool now = d.below(2) == 0;
      if (now) note(b.open_for_work(path));
    }
    engine::begin_call(a);
    const bool transaction = d.below(4) != 0;
    if (transaction) note(engine::transbeg(a, 3, nullptr));
    bool may_lock = false;
    for (int n = 1 + d.below(4); n > 0; --n) {
      const int i = 1 + d.below(60);
      sample_record r = sample(i, static_cast<std::size_t>(d.below(d.below(5) == 0 ? 3000 : 600)));
      r.number = d.below(100000);
      r.small = static_cast<std::int16_t>(d.below(30000));
      const int found = a.find_name(r.name);
      note(found);
      if (found != 0) {
        note(a.insert(r));
        continue;
      }
      sample_record got;
      if (d.below(2) == 0) note(a.read(&got));
      if (lock() != 0) continue;
      may_lock = true;
      switch (d.below(9)) {
        case 0: {
          sample_fields fields(r);
          note(engine::ddelete(a, fields.list));
          break;
        }
        case 1: {   // a name that another record has
          r.name = sample(1 + d.below(60)).name;
          sample_fields fields(r);
          note(engine::dupdate(a, fields.list));
          note(engine::dunlock(a));
          break;
        }
        case 2:   // the cursor of the bodies moves
          note(a.find_name(sample(1 + d.below(60)).name));
          note(a.read(&got));
          break;
        case 3:
          lock();
          break;
        case 4:
          note(engine::keylockstate(a, engine::key_bodies));
          break;
        case 5: {
          note(engine::bfirst(a, engine::key_bodies, nullptr, 0));
          note(engine::bnext(a, engine::key_bodies, nullptr, 0));
          break;
        }
        case 6: {
          r.payload = std::string(8000, 'x');
          sample_fields fields(r);
          note(engine::dupdate(a, fields.list));
          note(engine::dunlock(a));
          break;
        }
        default: {
          sample_fields fields(r);
          note(engine::dupdate(a, fields.list));
          note(engine::dunlock(a));
          break;
        }
      }
    }
    // The lock goes before the transaction ends, or behind its end, or its roll-back.
    const int end = d.below(6);
    if (end != 0 && may_lock) note(engine::dunlock(a));
    if (transaction) note(end == 1 ? engine::transroll(a, nullptr, 0, nullptr) : engine::transend(a, 1));
    if (end == 0 && may_lock) note(engine::dunlock(a));
    note(engine::end_call(a));
    note(static_cast<int>(a.get()->generation));
    if (engine::checkpsp(b) != 'O') note(b.open_for_work(path));
    // Both have seen all: the file bears it.
    note(engine::transstat(b));
    o.files.push_back(read_file(path));
  }
  a.close();
  b.close();
  o.files.push_back(read_file(path));
  return o;
}

TEST(LockOfOneCall, LeaveTheSameFile) {
  for (unsigned seed = 1; seed <= 6 && !HasFailure(); ++seed) {
    const unsigned options = seed % 2 ? 0u : unsigned{engine::option_merge};
    const int order = seed % 3 == 0 ? 2 : 1;
    const outcome literal = lock_work(seed, false, options, order, 120);
    const outcome short_lived = lock_work(seed, true, options, order, 120);
    SCOPED_TRACE("seed " + std::to_string(seed));
    EXPECT_GT(short_lived.unwritten, 20);
    ASSERT_EQ(literal.files.size(), short_lived.files.size());
    for (std::size_t i = 0; i < literal.codes.size() && i < short_lived.codes.size(); ++i)
      ASSERT_EQ(literal.codes[i], short_lived.codes[i]) << "code " << i << " of " << literal.codes.size();
    for (std::size_t i = 0; i < literal.files.size(); ++i) {
      const auto& x = literal.files[i];
      const auto& y = short_lived.files[i];
      ASSERT_EQ(x.size(), y.size());
      int told = 0;
      for (std::size_t k = i + 1 == literal.files.size() ? 0 : 4; k < x.size(); ++k)
        if (x[k] != y[k] && told++ < 30)
          ADD_FAILURE() << "call " << i << " node " << static_cast<long>(k / 1024) - 1 << " at " << k % 1024 << ": " << int{x[k]} << " and " << int{y[k]};
      if (told != 0) return;
    }
  }
}

}  // namespace
}  // namespace zvrdb::test
