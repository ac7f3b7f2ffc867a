#include "engine/memory_disk.h"

#include <algorithm>
#include <memory>

#include "engine/os_file.h"

namespace zvrdb::test {
namespace {

struct stored {
  paged_bytes bytes;
  std::uint64_t identity;
  std::string path;   // empty while it has no name
};
struct held {
  int fd;
  std::uint64_t from, to;
};

struct {
  std::map<std::string, std::shared_ptr<stored>> names;
  std::map<int, std::shared_ptr<stored>> open;
  std::map<std::uint64_t, std::vector<held>> locks;   // by identity
  std::vector<disk_event> events;
  int next_fd = 1000;
  std::uint64_t mount = 1;
  std::uint64_t next_identity = 1;
  int good_flushes = -1;   // until flushes fail; -1: they don't
  int bad_flushes = 0;     // then so many
  int failed = 0;
} disk;

stored* file_of(int fd) {
  auto at = disk.open.find(fd);
  return at == disk.open.end() ? nullptr : at->second.get();
}

int open_as(const std::shared_ptr<stored>& f) {
  disk.open[disk.next_fd] = f;
  return disk.next_fd++;
}

int do_open(const char* path, engine::open_how) {
  auto at = disk.names.find(path);
  return at == disk.names.end() ? -1 : open_as(at->second);
}
int do_create(const char*) {
  auto f = std::make_shared<stored>();
  f->identity = disk.next_identity++;
  return open_as(f);
}
int do_put_in_place(int fd, const char* path) {
  if (disk.names.count(path)) return -1;
  disk.names[path] = disk.open.at(fd);
  file_of(fd)->path = path;
  disk.events.push_back({disk_event::kind::name, file_of(fd)->identity, 0, {}, path});
  return 0;
}
int do_close(int fd) {
  stored* f = file_of(fd);
  if (!f) return -1;
  std::erase_if(disk.locks[f->identity], [fd](const held& l) { return l.fd == fd; });
  disk.open.erase(fd);
  return 0;
}
void do_discard(int fd, const char*) { do_close(fd); }
int do_remove(const char* path) {
  if (!disk.names.count(path)) return -1;
  disk.events.push_back({disk_event::kind::remove, disk.names[path]->identity, 0, {}, path});
  disk.names.erase(path);
  return 0;
}
int do_exists(const char* path) { return disk.names.count(path) ? 1 : 0; }
std::int64_t do_read(int fd, std::uint64_t offset, void* to, std::size_t n) {
  return static_cast<std::int64_t>(file_of(fd)->bytes.read(offset, to, n));
}

std::int64_t do_write(int fd, std::uint64_t offset, const void* from, std::size_t n) {
  const auto* bytes = static_cast<const unsigned char*>(from);
  file_of(fd)->bytes.write(offset, bytes, n);
  disk.events.push_back({disk_event::kind::write, file_of(fd)->identity, offset, {bytes, bytes + n}, {}});
  return static_cast<std::int64_t>(n);
}
// Of a flush.
bool fails_now() {
  if (disk.good_flushes < 0 || disk.bad_flushes == 0) return false;
  if (disk.good_flushes > 0) {
    --disk.good_flushes;
    return false;
  }
  --disk.bad_flushes;
  ++disk.failed;
  return true;
}

int do_flush(int fd) {
  if (fails_now()) {
    disk.events.push_back({disk_event::kind::failed_flush, file_of(fd)->identity, 0, {}, file_of(fd)->path});
    return -1;
  }
  disk.events.push_back({disk_event::kind::flush, file_of(fd)->identity, 0, {}, file_of(fd)->path});
  return 0;
}
int do_cut(int fd, std::uint64_t size) {
  file_of(fd)->bytes.resize(size);
  disk.events.push_back({disk_event::kind::cut, file_of(fd)->identity, size, {}, {}});
  return 0;
}
std::int64_t do_size(int fd) { return static_cast<std::int64_t>(file_of(fd)->bytes.size()); }
std::uint64_t do_identity(int fd) { return file_of(fd)->identity; }
std::uint64_t do_mount(int) { return disk.mount; }

engine::lock_answer do_lock(int fd, std::uint64_t offset, std::uint64_t length) {
  std::vector<held>& locks = disk.locks[file_of(fd)->identity];
  for (const held& l : locks)
    if (l.fd != fd && l.from < offset + length && offset < l.to) return engine::lock_answer::busy;
  locks.push_back({fd, offset, offset + length});
  return engine::lock_answer::taken;
}
int do_unlock(int fd, std::uint64_t offset, std::uint64_t length) {
  std::vector<held>& locks = disk.locks[file_of(fd)->identity];
  std::vector<held> left;
  for (const held& l : locks) {
    if (l.fd != fd || l.to <= offset || offset + length <= l.from) {
      left.push_back(l);
      continue;
    }
    if (l.from < offset) left.push_back({fd, l.from, offset});
    if (l.to > offset + length) left.push_back({fd, offset + length, l.to});
  }
  locks = left;
  return 0;
}
std::int64_t do_find_held(int fd, std::uint64_t offset, std::uint64_t length) {
  for (const held& l : disk.locks[file_of(fd)->identity])
    if (l.fd != fd && l.from < offset + length && offset < l.to)
      return static_cast<std::int64_t>(std::max(l.from, offset));
  return engine::none_held;
}
int do_probe(int fd, std::uint64_t offset) { return do_find_held(fd, offset, 1) == engine::none_held ? 0 : 1; }

const engine::os_ops& table() {
  static const engine::os_ops ops = [] {
    engine::os_ops t = engine::linux_ops;
    t.open = do_open;
    t.create = do_create;
    t.put_in_place = do_put_in_place;
    t.discard = do_discard;
    t.close = do_close;
    t.remove = do_remove;
    t.exists = do_exists;
    t.read_at = do_read;
    t.write_at = do_write;
    t.flush = do_flush;
    t.cut = do_cut;
    t.size = do_size;
    t.identity = do_identity;
    t.mount = do_mount;
    t.lock = do_lock;
    t.unlock = do_unlock;
    t.probe = do_probe;
    t.find_held = do_find_held;
    return t;
  }();
  return ops;
}

// Files and names as events bring them about; a file without a name is not in the answer.
class builder {
 public:
  explicit builder(const disk_image& start) {
    for (const auto& [path, file] : start) {
      bytes_[file.identity] = file.bytes;
      names_[path] = file.identity;
    }
  }
  void apply(const disk_event& e) {
    if (e.what == disk_event::kind::write) bytes_[e.identity].write(e.offset, e.bytes.data(), e.bytes.size());
    if (e.what == disk_event::kind::cut) bytes_[e.identity].resize(e.offset);
    if (e.what == disk_event::kind::name) names_[e.path] = e.identity;
    if (e.what == disk_event::kind::remove) names_.erase(e.path);
  }
  void apply_torn(const disk_event& e, std::mt19937* coin) {
    if (e.what == disk_event::kind::cut && (*coin)() % 2 == 0) apply(e);
    for (std::size_t at = 0; at < e.bytes.size();) {
      const std::size_t in_sector = 512 - (e.offset + at) % 512;
      const std::size_t n = std::min(in_sector, e.bytes.size() - at);
      if ((*coin)() % 2 == 0) bytes_[e.identity].write(e.offset + at, e.bytes.data() + at, n);
      at += n;
    }
  }
  disk_image image() const {
    disk_image result;
    for (const auto& [path, identity] : names_) {
      auto at = bytes_.find(identity);
      result[path] = {at == bytes_.end() ? paged_bytes{} : at->second, identity};
    }
    return result;
  }

 private:
  std::map<std::uint64_t, paged_bytes> bytes_;
  std::map<std::string, std::uint64_t> names_;
};

}  // namespace

void mount_memory_disk(const disk_image& image, power how) {
  if (how == power::was_off) ++disk.mount;
  disk.names.clear();
  disk.open.clear();
  disk.locks.clear();
  disk.events.clear();
  fail_flushes(0, 0);
  for (const auto& [path, file] : image) {
    disk.names[path] = std::make_shared<stored>(stored{file.bytes, file.identity, path});
    disk.next_identity = std::max(disk.next_identity, file.identity + 1);
  }
  engine::set_os_ops(&table());
}
void unmount_memory_disk() { engine::set_os_ops(nullptr); }
const std::vector<disk_event>& disk_events() { return disk.events; }
int disk_flushes(const std::string& path_end) {
  return static_cast<int>(std::count_if(disk.events.begin(), disk.events.end(), [&](const disk_event& e) {
    return e.what == disk_event::kind::flush && e.path.ends_with(path_end);
  }));
}
disk_image disk_now() {
  disk_image result;
  for (const auto& [path, f] : disk.names) result[path] = {f->bytes, f->identity};
  return result;
}
void patch_disk(const std::string& path, std::uint64_t offset, const disk_bytes& bytes) {
  disk.names.at(path)->bytes.write(offset, bytes.data(), bytes.size());
}
void fail_flushes(int nth, int count) {
  disk.good_flushes = nth - 1;
  disk.bad_flushes = count;
  disk.failed = 0;
}
int failed_flushes() { return disk.failed; }
int disk_open_files() { return static_cast<int>(disk.open.size()); }

void rewind_disk(const disk_image& start, std::size_t n) {
  n = std::min(n, disk.events.size());
  const disk_image image = after_kill(start, disk.events, n);
  for (auto& [path, f] : disk.names) f->bytes = image.at(path).bytes;
  disk.events.resize(n);
}

disk_image after_kill(const disk_image& start, const std::vector<disk_event>& events, std::size_t n) {
  builder b(start);
  for (std::size_t i = 0; i < std::min(n, events.size()); i++) b.apply(events[i]);
  return b.image();
}

std::vector<std::size_t> undecided_writes(const std::vector<disk_event>& events, std::size_t n) {
  std::vector<std::size_t> result;
  std::map<std::uint64_t, std::vector<std::size_t>> waiting;   // for the next flush of their file
  for (std::size_t i = 0; i < n; i++) {
    std::vector<std::size_t>& own = waiting[events[i].identity];
    switch (events[i].what) {
      case disk_event::kind::write:
      case disk_event::kind::cut:
        own.push_back(i);
        break;
      case disk_event::kind::failed_flush:
        result.insert(result.end(), own.begin(), own.end());
        own.clear();
        break;
      case disk_event::kind::flush:
        own.clear();
        break;
      case disk_event::kind::name:
      case disk_event::kind::remove:
        break;
    }
  }
  for (const auto& [identity, own] : waiting) result.insert(result.end(), own.begin(), own.end());
  std::sort(result.begin(), result.end());
  return result;
}

disk_image after_power_cut(const disk_image& start, const std::vector<disk_event>& events, std::size_t n,
                           const write_fates& fates, std::mt19937* coin) {
  builder b(start);
  for (std::size_t i = 0; i < n; i++) {
    auto at = fates.find(i);
    if (at == fates.end() || at->second == write_fate::kept) {
      b.apply(events[i]);
    } else if (at->second == write_fate::torn) {
      b.apply_torn(events[i], coin);
    }
  }
  return b.image();
}

disk_image flushed_alone(const disk_image& start, const std::vector<disk_event>& events) {
  write_fates fates;
  for (const std::size_t i : undecided_writes(events, events.size())) fates[i] = write_fate::lost;
  return after_power_cut(start, events, events.size(), fates, nullptr);
}

}  // namespace zvrdb::test
