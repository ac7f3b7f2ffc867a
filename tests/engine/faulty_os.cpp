#include "engine/faulty_os.h"

#include <csignal>
#include <cstring>

#include "engine/os_file.h"

namespace zvrdb::test {
namespace {

using engine::linux_ops;

constexpr std::uint64_t flag_at = 1010;
constexpr std::size_t most_events = 100000;

struct {
  std::vector<os_event> events;
  bool armed = false;
  os_call call = os_call::open;
  int left = 0;
  bool for_good = false;
  int failures = 0;
  int open_files = 0;
  int kill_left = 0;      // writes until death, once the flag is set; 0: no death
  bool flag_seen = false;
} state;

// Notes the call; true when it must fail.
bool fails(os_call call, int file, std::uint64_t offset = 0, std::size_t n = 0) {
  if (state.events.size() < most_events) state.events.push_back({call, file, offset, n});
  if (!state.armed || state.call != call) return false;
  if (state.left > 0) state.left--;
  if (state.left > 0) return false;
  state.armed = state.for_good;
  state.failures++;
  return true;
}

int do_open(const char* path, engine::open_how how) {
  if (fails(os_call::open, -1)) return -1;
  int file = linux_ops.open(path, how);
  if (file >= 0) state.open_files++;
  return file;
}

int do_create(const char* path) {
  if (fails(os_call::create, -1)) return -1;
  int file = linux_ops.create(path);
  if (file >= 0) state.open_files++;
  return file;
}

int do_put_in_place(int file, const char* path) {
  return fails(os_call::put_in_place, file) ? -1 : linux_ops.put_in_place(file, path);
}

void do_discard(int file, const char* path) {
  state.open_files--;
  linux_ops.discard(file, path);
}

// A failing close gives the descriptor up all the same, as the system's does.
int do_close(int file) {
  bool failed = fails(os_call::close, file);
  state.open_files--;
  int result = linux_ops.close(file);
  return failed ? -1 : result;
}

int do_remove(const char* path) { return fails(os_call::remove, -1) ? -1 : linux_ops.remove(path); }

std::int64_t do_read(int file, std::uint64_t offset, void* to, std::size_t n) {
  return fails(os_call::read, file, offset, n) ? -1 : linux_ops.read_at(file, offset, to, n);
}

std::int64_t do_write(int file, std::uint64_t offset, const void* from, std::size_t n) {
  if (state.kill_left > 0 && state.flag_seen && --state.kill_left == 0) std::raise(SIGKILL);
  bool is_flag = offset == flag_at && n == 2 && *static_cast<const unsigned char*>(from) != 0;
  if (state.kill_left > 0 && is_flag) state.flag_seen = true;
  return fails(os_call::write, file, offset, n) ? -1 : linux_ops.write_at(file, offset, from, n);
}

int do_flush(int file) { return fails(os_call::flush, file) ? -1 : linux_ops.flush(file); }

std::int64_t do_size(int file) { return fails(os_call::size, file) ? -1 : linux_ops.size(file); }

engine::lock_answer do_lock(int file, std::uint64_t offset, std::uint64_t length) {
  return fails(os_call::lock, file, offset, length) ? engine::lock_answer::failed : linux_ops.lock(file, offset, length);
}

int do_unlock(int file, std::uint64_t offset, std::uint64_t length) {
  return fails(os_call::unlock, file, offset, length) ? -1 : linux_ops.unlock(file, offset, length);
}

int do_probe(int file, std::uint64_t offset) {
  return fails(os_call::probe, file, offset, 1) ? -1 : linux_ops.probe(file, offset);
}

std::int64_t do_find_held(int file, std::uint64_t offset, std::uint64_t length) {
  return fails(os_call::probe, file, offset, length) ? -1 : linux_ops.find_held(file, offset, length);
}

void* do_allocate(std::size_t bytes) { return fails(os_call::allocate, -1, 0, bytes) ? nullptr : linux_ops.allocate(bytes); }

const engine::os_ops& table() {
  static const engine::os_ops ops = [] {
    engine::os_ops t = linux_ops;
    t.open = do_open;
    t.create = do_create;
    t.put_in_place = do_put_in_place;
    t.discard = do_discard;
    t.close = do_close;
    t.remove = do_remove;
    t.read_at = do_read;
    t.write_at = do_write;
    t.flush = do_flush;
    t.size = do_size;
    t.lock = do_lock;
    t.unlock = do_unlock;
    t.probe = do_probe;
    t.find_held = do_find_held;
    t.allocate = do_allocate;
    return t;
  }();
  return ops;
}

}  // namespace

void install_faulty_os() {
  state = {};
  engine::set_os_ops(&table());
}

void remove_faulty_os() { engine::set_os_ops(nullptr); }

void fail_call(os_call call, int nth, bool for_good) {
  state.armed = true;
  state.call = call;
  state.left = nth;
  state.for_good = for_good;
  state.failures = 0;
}

void disarm() { state.armed = false; }
int failures() { return state.failures; }

void kill_after_flag(int nth) {
  state.kill_left = nth;
  state.flag_seen = false;
}

void clear_events() { state.events.clear(); }
const std::vector<os_event>& events() { return state.events; }
int open_files() { return state.open_files; }

}  // namespace zvrdb::test
