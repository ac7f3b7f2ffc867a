// A record file in a scratch folder, and records with a few kinds of keys, for the
// tests of the engine.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/psp.h"

namespace engine_test {

using zvrdb::engine::field;
using zvrdb::engine::key_entry;
using zvrdb::engine::PSP;

// A folder that goes with the test.
class scratch_folder {
 public:
  scratch_folder() {
    char name[] = "/dev/shm/zvr-engine-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~scratch_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;
  std::string file(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// An open-file block and its record buffer.
struct handle {
  alignas(8) unsigned char block[zvrdb::engine::psp_size] = {};
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(16384);

  PSP* psp() { return reinterpret_cast<PSP*>(block); }
  operator PSP*() { return psp(); }  // NOLINT: reads like the call it stands in
  handle() = default;
  handle(const handle&) = delete;
  handle& operator=(const handle&) = delete;
  ~handle() { zvrdb::engine::abandon(psp()); }

  int create(const std::string& path, char access, int order, const key_entry* keys) {
    return zvrdb::engine::dcreate(psp(), path.c_str(), buffer.data(), static_cast<int>(buffer.size()), access, order,
                                  keys);
  }
  int open(const std::string& path, char access, int mode, const key_entry* keys) {
    return zvrdb::engine::dopen(psp(), path.c_str(), buffer.data(), static_cast<int>(buffer.size()), access, mode,
                                keys);
  }
};

// Key 1: name, type 2, unique.  Key 2: group, a string, with duplicates.  Key 3: a
// number with duplicates.  Then data.
inline constexpr key_entry name_keys[] = {{1, 2, {}, nullptr}, {2, 0, {}, nullptr}, {3, 5, {}, nullptr}, {}};

struct record {
  std::string name;
  std::string group;
  std::int32_t number = 0;
  std::string data;
  bool operator==(const record&) const = default;
};

// A field list over buffers of its own.
struct record_fields {
  char name[32] = {};
  char group[64] = {};
  std::int32_t number = 0;
  char data[16384] = {};
  field list[5] = {
      {'B', 2, 'U', 0, 0, 1, 0, name},  {'S', 'S', 'D', 0, sizeof group, 2, 0, group},
      {'L', 5, 'D', 0, 4, 3, 0, &number}, {'B', 'N', 'N', 0, 0, 0, 0, data},
      {'E', 'N', 'N', 0, 0, 0, 0, nullptr},
  };
  record_fields() = default;
  explicit record_fields(const record& r) { set(r); }
  record_fields(const record_fields&) = delete;
  record_fields& operator=(const record_fields&) = delete;
  void set(const record& r) {
    std::memcpy(name, r.name.data(), r.name.size());
    list[0].flen = static_cast<std::int16_t>(r.name.size());
    std::strcpy(group, r.group.c_str());
    number = r.number;
    std::memcpy(data, r.data.data(), r.data.size());
    list[3].flen = static_cast<std::int16_t>(r.data.size());
  }
  record get() const {
    return {std::string(name, static_cast<std::size_t>(list[0].flen)), group, number,
            std::string(data, static_cast<std::size_t>(list[3].flen))};
  }
};

inline int insert(PSP* h, const record& r) {
  const record_fields f(r);
  return zvrdb::engine::dinsert(h, f.list);
}

inline std::vector<unsigned char> name_value(const std::string& name) {
  std::vector<unsigned char> v{static_cast<unsigned char>(name.size())};
  v.insert(v.end(), name.begin(), name.end());
  return v;
}

inline int find_name(PSP* h, const std::string& name, int option = zvrdb::engine::find_equal) {
  return zvrdb::engine::dfind(h, 1, name_value(name).data(), 2, option);
}

inline record read_current(PSP* h, int* result = nullptr) {
  record_fields f;
  const int r = zvrdb::engine::dread(h, f.list);
  if (result != nullptr) {
    *result = r;
  } else {
    EXPECT_EQ(r, 0);
  }
  return f.get();
}

// Names in the order of key 1.
inline std::vector<std::string> all_names(PSP* h) {
  std::vector<std::string> names;
  for (int r = zvrdb::engine::dseq(h, 1, zvrdb::engine::seq_first); r == 0;
       r = zvrdb::engine::dseq(h, 1, zvrdb::engine::seq_next)) {
    const unsigned char* k = zvrdb::engine::current_key(h);
    names.emplace_back(reinterpret_cast<const char*>(k + 1), k[0]);
    if (names.size() > 1000000) break;
  }
  return names;
}

inline std::string numbered(const char* stem, int n) {
  char text[32];
  std::snprintf(text, sizeof text, "%s%06d", stem, n);
  return text;
}

}  // namespace engine_test
