// Four processes change the status of many targets and change files at once and are
// killed again and again: at the end both sides of every pair agree, and agree with a
// plain model of what was answered as done.
//
// Each pair has one writer, but its records have all four.  A tenth of the change files
// and a fiftieth of the targets are one writer's own, who deletes them as a whole.  The
// killer owns the writer arbiters while it kills, so that the victim may be anywhere but
// in the bytes of one write operation.
//
// ZVR_STRESS_SECONDS asks for the long form: that many seconds, 2,000 targets and 5,000
// change files.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <new>
#include <random>

#include "cmstatus/cms_fixture.h"
#include "engine/writers_held.h"
#include "engine/file_report.h"

namespace cms_test {
namespace {

constexpr unsigned writers = 4;
constexpr unsigned nobody = writers;

struct Size {
  unsigned targets, files, seconds;
};
Size chosen_size() {
  const char* seconds = std::getenv("ZVR_STRESS_SECONDS");
  if (!seconds) return {200, 300, 3};
  return {2000, 5000, static_cast<unsigned>(std::atoi(seconds))};
}

enum class Step : std::uint32_t { none, one_pair, whole_file, whole_target };
// What a writer is about to do, told before it calls.
struct UnderWay {
  std::atomic<Step> step;
  std::atomic<std::uint32_t> target, file;
  std::atomic<std::uint16_t> next;  // of one pair
};
// A pair's status and 1, or 0 without status.
using Cell = std::atomic<std::uint16_t>;
static_assert(Cell::is_always_lock_free);

struct Shared {
  std::atomic<std::uint32_t> stop;
  std::atomic<int> unexpected, wanted, place;  // the first answer that a writer did not expect
  std::atomic<std::uint64_t> steps;
  UnderWay under_way[writers];
};

std::string target_name(unsigned target) {
  return numbered("T", target);
}
CfName file_name(unsigned file) {
  constexpr const char* kinds[] = {".FIX", ".UPD", ".REF"};
  return cf(numbered("PACK.", file) + kinds[file % 3]);
}
unsigned owner_of_target(unsigned target) {
  return target % 50 == 49 ? target / 50 % writers : nobody;
}
unsigned owner_of_file(unsigned file) {
  return file % 10 == 9 ? file / 10 % writers : nobody;
}
unsigned owner_of_pair(unsigned target, unsigned file) {
  const unsigned by_target = owner_of_target(target), by_file = owner_of_file(file);
  if (by_target == nobody && by_file == nobody) return (target + file) % writers;
  if (by_target == nobody) return by_file;
  return by_file == nobody || by_file == by_target ? by_target : nobody;
}

// The model, in memory that all processes share.
class Model {
 public:
  explicit Model(Size size) : size_(size), bytes_(sizeof(Shared) + sizeof(Cell) * size.targets * size.files) {
    void* memory =
        mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    shared = new (memory) Shared;
    cells_ = reinterpret_cast<Cell*>(shared + 1);  // zero is a cell without status
  }
  ~Model() { munmap(shared, bytes_); }
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;
  Cell& cell(unsigned target, unsigned file) { return cells_[std::size_t{target} * size_.files + file]; }
  Shared* shared;

 private:
  Size size_;
  std::size_t bytes_;
  Cell* cells_;
};

// One of the four, in a process of its own.
class Writer {
 public:
  Writer(void* task, Model& model, Size size, unsigned self, unsigned seed)
      : task_(task), model_(model), size_(size), self_(self), random_(seed) {}

  // Each finished step is a byte in the pipe, as long as somebody reads them.
  void run(int progress) {
    while (!model_.shared->stop.load() && step()) {
      ++model_.shared->steps;
      const char byte = 0;
      if (write(progress, &byte, 1) != 1 && errno != EAGAIN) return;
    }
  }

 private:
  unsigned pick(unsigned below) { return static_cast<unsigned>(random_() % below); }
  bool expect(int rc, int wanted, int place) {
    if (rc == wanted) return true;
    std::uint32_t running = 0;
    if (model_.shared->stop.compare_exchange_strong(running, 1)) {
      model_.shared->unexpected = rc;
      model_.shared->wanted = wanted;
      model_.shared->place = place;
    }
    return false;
  }
  // Half of the pairs come from a corner, so that they are met again.
  bool pick_pair(unsigned* target, unsigned* file) {
    do {
      const bool corner = pick(2) == 0;
      *target = pick(corner ? 40 : size_.targets);
      *file = pick(corner ? 60 : size_.files);
    } while (owner_of_pair(*target, *file) != self_);
    return true;
  }
  void begin(Step step, unsigned target, unsigned file, std::uint16_t next) {
    UnderWay& under_way = model_.shared->under_way[self_];
    under_way.target = target;
    under_way.file = file;
    under_way.next = next;
    under_way.step = step;
  }
  void finish() { model_.shared->under_way[self_].step = Step::none; }

  bool step() {
    unsigned target = 0, file = 0;
    pick_pair(&target, &file);
    const unsigned choice = pick(100);
    if (choice < 55) return put_pair(target, file);
    if (choice < 80) return delete_pair(target, file);
    if (choice < 90) return read_pair(target, file);
    if (choice < 95) return list_target(target);
    if (choice < 99) return delete_file_status();
    return delete_target();
  }

  bool put_pair(unsigned target, unsigned file) {
    Cell& cell = model_.cell(target, file);
    const auto next = static_cast<std::uint16_t>(pick(256) + 1);
    begin(Step::one_pair, target, file, next);
    const int rc = put_status(task_, target_name(target), file_name(file), next - 1u, std::to_string(next));
    if (!expect(rc, cell ? DBE_RECORD_REPLACED : DBE_OK, 1)) return false;
    cell = next;
    finish();
    return true;
  }
  bool delete_pair(unsigned target, unsigned file) {
    Cell& cell = model_.cell(target, file);
    begin(Step::one_pair, target, file, 0);
    const int rc = del_status(task_, target_name(target), file_name(file));
    if (!expect(rc, cell ? DBE_OK : DBE_NOT_FOUND, 2)) return false;
    cell = 0;
    finish();
    return true;
  }
  bool read_pair(unsigned target, unsigned file) {
    const std::uint16_t known = model_.cell(target, file);
    const StatusRecord read = get_status(task_, target_name(target), file_name(file));
    if (!expect(read.rc, known ? DBE_OK : DBE_NOT_FOUND, 3)) return false;
    if (!known) return true;
    return expect(static_cast<int>(read.status()) + 1, known, 4) &&
           expect(std::atoi(read.details().c_str()), known, 5);
  }
  // The writer's own pairs in a list of all.
  bool list_target(unsigned target) {
    std::vector<std::uint32_t> list(size_.files);
    std::uint32_t count = 0;
    const int rc = db_cm_by_trg(task_, target_name(target).c_str(), list.data(), size_.files * 4, &count);
    if (rc != DBE_NOT_FOUND && !expect(rc, DBE_OK, 6)) return false;
    std::vector<std::uint16_t> listed(size_.files);
    for (std::uint32_t i = 0; i < count; ++i)
      listed.at(list[i] >> 8) = static_cast<std::uint16_t>((list[i] & 255) + 1);
    for (unsigned file = 0; file < size_.files; ++file)
      if (owner_of_pair(target, file) == self_ && !expect(listed[file], model_.cell(target, file), 7))
        return false;
    return true;
  }
  bool delete_file_status() {
    const unsigned file = (pick(size_.files / 40) * writers + self_) * 10 + 9;
    begin(Step::whole_file, 0, file, 0);
    if (!expect(db_del_cf_cms(task_, file_name(file).data()), DBE_OK, 8)) return false;
    for (unsigned target = 0; target < size_.targets; ++target) model_.cell(target, file) = 0;
    finish();
    return true;
  }
  bool delete_target() {
    const unsigned target = (pick(size_.targets / 200) * writers + self_) * 50 + 49;
    const std::string name = target_name(target);
    const void* keys[] = {name.c_str()};
    begin(Step::whole_target, target, 0, 0);
    if (!expect(db_del(task_, DB_TRG, 1, keys), DBE_OK, 9)) return false;
    for (unsigned file = 0; file < size_.files; ++file) model_.cell(target, file) = 0;
    Record record(name);
    record.type(local | client);
    if (!expect(db_put(task_, DB_TRG, 1, keys, record.bytes.data(), target_test::record_len), DBE_OK, 10))
      return false;
    finish();
    return true;
  }

  void* task_;
  Model& model_;
  Size size_;
  unsigned self_;
  std::mt19937 random_;
};

class StatusProcesses : public CmStatusTest {
 protected:
  void fill() {
    configure(size.targets + 10, size.targets + 10);
    ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
    for (unsigned target = 0; target < size.targets; ++target)
      ASSERT_EQ(put_target(target_name(target)), DBE_OK);
    ASSERT_EQ(db_commit(task, DB_TRG), DBE_OK);
    for (unsigned file = 0; file < size.files; ++file) ASSERT_EQ(put_file(file_name(file)), DBE_OK);
    ASSERT_EQ(file_number(file_name(size.files - 1)), size.files - 1);
  }

  // The parent keeps the reading end alone, so that the death of a writer ends its pipe.
  void start(unsigned writer) {
    const auto seed = static_cast<unsigned>(random());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    children[writer] = fork();
    if (children[writer] != 0) {
      close(ends[1]);
      progress[writer] = ends[0];
      return;
    }
    void* own = co_init_task("writer", nullptr, 1);
    if (!own) _exit(2);
    Writer(own, model, size, writer, seed).run(ends[1]);
    coi_term_task(own, 0);
    _exit(0);
  }

  // False when the writer ended before.
  bool wait_for_steps(unsigned writer, unsigned steps) {
    char byte;
    while (steps > 0 && read(progress[writer], &byte, 1) == 1) --steps;
    return steps == 0;
  }

  void kill_between_write_operations(unsigned victim) {
    const zvrdb::engine::writers_held status_arbiter(cms_file().c_str());
    const zvrdb::engine::writers_held target_arbiter(installation_->path("db/trgcfg").c_str());
    ASSERT_EQ(status_arbiter.result(), 0);
    ASSERT_EQ(target_arbiter.result(), 0);
    ASSERT_EQ(kill(children[victim], SIGKILL), 0);
    ASSERT_EQ(waitpid(children[victim], nullptr, 0), children[victim]);
    close(progress[victim]);
  }

  // What the victim was about to do is there whole or not at all; from here on the
  // model tells which.
  void settle(unsigned victim) {
    UnderWay& under_way = model.shared->under_way[victim];
    const unsigned target = under_way.target, file = under_way.file;
    switch (under_way.step.load()) {
      case Step::none:
        return;
      case Step::one_pair: {
        Cell& cell = model.cell(target, file);
        const StatusRecord read = status(target_name(target), file_name(file));
        const unsigned there = read.rc == DBE_OK ? read.status() + 1 : 0;
        EXPECT_TRUE(there == cell || there == under_way.next) << there;
        cell = static_cast<std::uint16_t>(there);
        break;
      }
      case Step::whole_file: {
        const FileList list = by_file(file_name(file), size.targets + 11);
        ASSERT_EQ(list.rc, DBE_OK);
        const bool gone =
            std::all_of(list.list.begin(), list.list.end(), [](unsigned char b) { return b == 15; });
        if (gone && !stored_of_file(file_name(file)))
          for (unsigned t = 0; t < size.targets; ++t) model.cell(t, file) = 0;
        break;
      }
      case Step::whole_target: {
        const TargetList list = by_target(target_name(target), size.files * 4);
        if (list.rc == DBE_NOT_FOUND)
          for (unsigned f = 0; f < size.files; ++f) model.cell(target, f) = 0;
        const int rc = put_target(target_name(target));
        EXPECT_TRUE(rc == DBE_OK || rc == DBE_RECORD_REPLACED) << rc;
        break;
      }
    }
    under_way.step = Step::none;
  }

  void stop_writers() {
    model.shared->stop = 1;
    for (unsigned w = 0; w < writers; ++w) {
      char bytes[4096];
      while (read(progress[w], bytes, sizeof bytes) > 0) {
      }
      close(progress[w]);
      int ended = -1;
      ASSERT_EQ(waitpid(children[w], &ended, 0), children[w]);
      EXPECT_EQ(ended, 0);
      settle(w);
    }
  }

  void compare_with_model() {
    const StoredPairs pairs = stored_pairs(task);
    EXPECT_TRUE(pairs.sound);
    EXPECT_EQ(pairs.by_target == pairs.by_file, true) << "the two sides";
    std::map<Pair, unsigned> expected;
    for (unsigned target = 0; target < size.targets; ++target) {
      const std::uint32_t of = number(target_name(target));
      for (unsigned file = 0; file < size.files; ++file)
        if (const unsigned known = model.cell(target, file))
          expected[{of, static_cast<std::uint16_t>(file)}] = known - 1;
    }
    EXPECT_EQ(pairs.by_target.size(), expected.size());
    unsigned told = 0;
    for (const auto& [pair, value] : expected) {
      const auto found = pairs.by_target.find(pair);
      const unsigned there = found == pairs.by_target.end() ? 1000 : found->second;
      if (there != value && ++told < 10)
        ADD_FAILURE() << "target " << pair.first << ", file " << pair.second << ": " << there << " and not "
                      << value;
    }
    std::cout << model.shared->steps << " steps, " << kills << " kills, " << expected.size()
              << " pairs at the end\n";
  }

  // By the public calls: a list for each of some change files and targets.
  void compare_lists() {
    for (unsigned file = 0; file < size.files; file += 37) {
      const FileList list = by_file(file_name(file), size.targets + 11);
      ASSERT_EQ(list.rc, DBE_OK);
      for (unsigned target = 0; target < size.targets; target += 7) {
        const unsigned known = model.cell(target, file);
        ASSERT_EQ(list.list[number(target_name(target))], known ? known - 1 : 15) << target << " " << file;
      }
    }
    for (unsigned target = 0; target < size.targets; target += 41) {
      const TargetList list = by_target(target_name(target), size.files * 4);
      for (const std::uint32_t entry : list.entries)
        ASSERT_EQ((entry & 255) + 1, model.cell(target, entry >> 8));
    }
  }

  void check_file() {
    std::string reason;
    const auto outcome = zvrdb::engine::verify_file(
        cms_file().c_str(), {.deep = true},
        [](void*, const zvrdb::engine::problem& found) {
          EXPECT_TRUE(found.note) << found.path << ": " << found.text;
        },
        nullptr, &reason);
    EXPECT_EQ(outcome, zvrdb::engine::report_outcome::sound) << reason;
  }

  const Size size = chosen_size();
  Model model{size};
  std::mt19937 random;
  std::array<pid_t, writers> children{};
  std::array<int, writers> progress{};
  int kills = 0;
};

TEST_F(StatusProcesses, BothSidesAndTheModelAgreeAfterManyDeathsOfTheWriters) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(numbered("seed ", seed));
  random.seed(seed);
  fill();
  if (HasFailure()) return;
  for (unsigned w = 0; w < writers; ++w) start(w);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(size.seconds);
  while (std::chrono::steady_clock::now() < end && !HasFailure()) {
    const unsigned victim = static_cast<unsigned>(random() % writers);
    if (!wait_for_steps(victim, 10 + static_cast<unsigned>(random() % 300))) break;
    kill_between_write_operations(victim);
    settle(victim);
    ++kills;
    start(victim);
  }
  stop_writers();
  EXPECT_EQ(model.shared->place, 0) << "an answer that a writer did not expect: " << model.shared->unexpected
                                    << " and not " << model.shared->wanted;
  EXPECT_GT(kills, 0);
  compare_with_model();
  compare_lists();
  check_file();
}

}  // namespace
}  // namespace cms_test
