// What the disk can do at best: one page of 4 KiB written and flushed, or read.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "bench_installation.h"
#include "rivals/rival.h"

namespace bench {
namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t pages = 4096;

class Floor final : public Rival {
 public:
  std::string name() const override { return "floor"; }
  std::string settings() const override { return "pwrite of 4 KiB and fdatasync, pread of 4 KiB, file of 16 MiB made before"; }
  unsigned abilities() const override {
    return static_cast<unsigned>(Ability::change) | static_cast<unsigned>(Ability::get);
  }
  void open(const std::string& folder) override {
    const std::string path = folder + "/pages";
    const bool there = access(path.c_str(), F_OK) == 0;
    file_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (file_ < 0) give_up("open of the floor", file_);
    for (std::size_t i = 0; !there && i < pages; ++i) put(i);
    if (!there) fsync(file_);
  }
  void close() override { ::close(file_); }
  void begin() override {}
  void commit() override {}
  void insert(const Record& record) override {
    put(place(record.name));
    if (fdatasync(file_) != 0) give_up("flush", 0);
  }
  void replace(const Record& record) override { insert(record); }
  void erase(const Record& record) override { insert(record); }
  bool get(const unsigned char* name, Record* out) override {
    if (pread(file_, bytes_, page, static_cast<off_t>(place(name) * page)) != static_cast<ssize_t>(page))
      give_up("read", 0);
    std::memcpy(out, bytes_, sizeof *out);
    return true;
  }
  void scan(const Visit&) override {}
  void list(const unsigned char*, const Visit&) override {}
  std::vector<std::string> data_files() const override { return {}; }

 private:
  static std::size_t place(const unsigned char* name) {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < name_len; ++i) sum = sum * 31 + name[i];
    return sum % pages;
  }
  void put(std::size_t n) {
    ++bytes_[0];
    if (pwrite(file_, bytes_, page, static_cast<off_t>(n * page)) != static_cast<ssize_t>(page)) give_up("write", 0);
  }
  int file_ = -1;
  unsigned char bytes_[page] = {};
};

}  // namespace

std::unique_ptr<Rival> make_floor() {
  return std::make_unique<Floor>();
}

}  // namespace bench
