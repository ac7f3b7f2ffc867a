// How long the first opening of a record file takes when its last writer was killed.
//
//   reopen_bench [--short] [--dir FOLDER]
//
// The file has a key that is unique and two that are not.  The writer is killed behind a
// commit, with the journal as good as full, in the midst of the pages of one, and in a
// transaction.  Between the kill and the opening the pages stay in memory.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "command_line.h"
#include "engine/engine.h"
#include "engine/os_file.h"

namespace {

using namespace zvrdb;
using clock_type = std::chrono::steady_clock;

[[noreturn]] void give_up(const char* what, int code) {
  std::fprintf(stderr, "reopen_bench: %s: %d\n", what, code);
  std::exit(1);
}
void expect(int code, const char* what) {
  if (code != engine::e_ok) give_up(what, code);
}

struct record {
  unsigned char name[76];
  unsigned char group[8];
  std::int32_t number;
  unsigned char body[212];
};

class file {
 public:
  explicit file(std::string path) : path_(std::move(path)) {}
  engine::PSP* handle() { return reinterpret_cast<engine::PSP*>(block_.data()); }
  void create() {
    expect(engine::dcreate(handle(), path_.c_str(), buffer_.data(), length(), 'S', 3, keys, engine::journal_use::on), "dcreate");
    expect(engine::csetfile(handle(), 4), "csetfile");
  }
  void open() {
    expect(engine::dopen(handle(), path_.c_str(), buffer_.data(), length(), 'S', 2, keys, engine::journal_use::on), "dopen");
    expect(engine::csetfile(handle(), 4), "csetfile");
  }
  void close() { expect(engine::dclose(handle()), "dclose"); }
  void begin() { expect(engine::transbeg(handle(), 3, nullptr), "transbeg"); }
  void end() { expect(engine::transend(handle(), 1), "transend"); }
  void insert(std::uint32_t i) {
    record r = {};
    // Spread over the tree.
    const std::uint32_t spread = i * 2654435761u;
    std::snprintf(reinterpret_cast<char*>(r.name), sizeof r.name, "record %08x", spread);
    std::snprintf(reinterpret_cast<char*>(r.group), sizeof r.group, "g%u", spread % 1000);
    r.number = static_cast<std::int32_t>(spread % 5000);
    engine::field fields[5] = {};
    fields[0] = {'B', 2, 'U', 0, sizeof r.name, 1, 0, r.name};
    fields[1] = {'B', 2, 'D', 0, sizeof r.group, 2, 0, r.group};
    fields[2] = {'L', 5, 'D', 0, sizeof r.number, 3, 0, &r.number};
    fields[3] = {'B', 'N', 'N', 0, sizeof r.body, 0, 0, r.body};
    fields[4].ftype = 'E';
    expect(engine::dinsert(handle(), fields), "dinsert");
  }
  const std::string& path() const { return path_; }

 private:
  static constexpr engine::key_entry keys[4] = {{1, 2, {}, nullptr}, {2, 2, {}, nullptr}, {3, 5, {}, nullptr}, {}};
  int length() const { return static_cast<int>(buffer_.size()); }
  std::string path_;
  alignas(16) std::array<unsigned char, engine::psp_size> block_ = {};
  std::vector<unsigned char> buffer_ = std::vector<unsigned char>(16384);
};

// ---- The writer that is killed

int writes_left = -1;   // of record file and journal; none: it lives

std::int64_t write_or_die(int descriptor, std::uint64_t offset, const void* from, std::size_t n) {
  if (writes_left >= 0 && writes_left-- == 0) kill(getpid(), SIGKILL);
  return engine::linux_ops.write_at(descriptor, offset, from, n);
}

struct death {
  const char* name;
  bool in_transaction;
  int writes;           // of the last put that still happen; -1: killed behind it
};
constexpr death deaths[] = {
    {"behind a commit", false, -1},
    {"among the pages of a commit", false, 4},
    {"in a transaction of 200 records", true, -1},
};

std::uint64_t bytes_of(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

// Puts as many records as bring the journal near its checkpoint, and dies.
void write_and_die(const std::string& path, std::uint32_t from, std::uint32_t puts, const death& how) {
  engine::os_ops ops = engine::linux_ops;
  ops.write_at = write_or_die;
  engine::set_os_ops(&ops);
  engine::set_cache_blocks(4096);
  file f(path);
  f.open();
  for (std::uint32_t i = 0; i < puts; ++i) {
    f.begin();
    if (i + 1 == puts) writes_left = how.writes < 0 ? -1 : how.writes + 4;
    f.insert(from + i);
    f.end();
  }
  if (how.in_transaction) {
    f.begin();
    for (std::uint32_t i = 0; i < 200; ++i) f.insert(from + puts + i);
  }
  kill(getpid(), SIGKILL);
}

struct timing {
  double open, roll_back;   // milliseconds
};

timing open_again(const std::string& path) {
  file f(path);
  const clock_type::time_point begin = clock_type::now();
  f.open();
  const int state = engine::transstat(f.handle());
  const clock_type::time_point opened = clock_type::now();
  if (state == engine::e_trans_interrupted)
    expect(engine::transroll(f.handle(), nullptr, 0, nullptr), "transroll");
  else if (state == engine::e_trans_empty)
    f.end();
  else
    expect(state, "transstat");
  const clock_type::time_point settled = clock_type::now();
  f.close();
  const auto ms = [](auto from, auto to) { return std::chrono::duration<double, std::milli>(to - from).count(); };
  return {ms(begin, opened), ms(opened, settled)};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  std::uint32_t records = 100000;
  int rounds = 15;
  std::string parent = ".";
  const auto shorter = [&](const char*) { records = 20000, rounds = 5; };
  if (!bench::read_command_line(
          argc, argv,
          {{"--short", nullptr, "20,000 records and five rounds", shorter},
           {"--dir", "FOLDER", "where the file is made (default here)", [&](const char* f) { parent = f; }}}))
    return 2;
  std::string folder = parent + "/zvr-reopen-XXXXXX";
  if (!mkdtemp(folder.data())) give_up("mkdtemp", 0);
  const std::string path = folder + "/records";
  engine::set_cache_blocks(4096);
  {
    file f(path);
    f.create();
    for (std::uint32_t i = 0; i < records; ++i) {
      if (i % 500 == 0) f.begin();
      f.insert(i);
      if (i % 500 == 499 || i + 1 == records) f.end();
    }
    f.close();
  }
  std::printf("# Reopening after a kill\n\nA file of %u records of 300 bytes with three keys, %.1f MiB.\n\n", records,
              static_cast<double>(bytes_of(path)) / 1048576);
  std::printf("| killed | open, ms | worst | roll-back, ms | worst |\n|---|---:|---:|---:|---:|\n");
  std::uint32_t next = records;
  for (const death& how : deaths) {
    std::vector<double> opens, rolls;
    for (int round = 0; round < rounds; ++round) {
      // About 10 KiB of journal a put: from next to nothing to nearly all of it.
      const std::uint32_t puts = 90;
      const pid_t child = fork();
      if (child == 0) {
        write_and_die(path, next, puts, how);
        _exit(1);
      }
      int status = 0;
      waitpid(child, &status, 0);
      if (!WIFSIGNALED(status)) give_up("the writer lives", status);
      next += 1000;
      const timing t = open_again(path);
      opens.push_back(t.open);
      rolls.push_back(t.roll_back);
    }
    std::printf("| %s | %.2f | %.2f | %.2f | %.2f |\n", how.name, median(opens), *std::max_element(opens.begin(), opens.end()),
                median(rolls), *std::max_element(rolls.begin(), rolls.end()));
  }
  std::filesystem::remove_all(folder);
  return 0;
}
