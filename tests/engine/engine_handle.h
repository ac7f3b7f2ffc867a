// One open-file block for a test, with its record buffer; closed, or let go of, at the end.
#pragma once

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/sample_files.h"

namespace zvrdb::test {

inline constexpr int record_buffer = 16384;

class handle {
 public:
  handle() { block_.fill(0); }
  ~handle() {
    if (engine::checkpsp(get()) == 'O' && engine::dclose(get()) != 0) engine::abandon(get());
  }
  handle(const handle&) = delete;
  handle& operator=(const handle&) = delete;

  engine::PSP* get() { return reinterpret_cast<engine::PSP*>(block_.data()); }
  operator engine::PSP*() { return get(); }

  engine::journal_use journal = engine::journal_use::off;   // of the opens to come
  // Reads without locks from then on; a run of all tests can be told to.
  bool from_cache = std::getenv("ZVR_TEST_READ_FROM_CACHE") != nullptr;
  unsigned options = 0;                                     // the same

  int create(const std::string& path, char access = 'S', int byte_order = 3,
             const engine::key_entry* keys = sample_key_table()) {
    return opened(engine::dcreate(get(), path.c_str(), buffer_.data(), record_buffer, access, byte_order, keys, journal,
                                  options));
  }
  int open(const std::string& path, char access = 'S', int mode = 2, const engine::key_entry* keys = sample_key_table()) {
    return opened(
        engine::dopen(get(), path.c_str(), buffer_.data(), record_buffer, access, mode, keys, journal, options));
  }
  // As the record files are used: shared, level 4.
  int open_for_work(const std::string& path) {
    int result = open(path);
    return result ? result : engine::csetfile(get(), 4);
  }
  int close() { return engine::dclose(get()); }

  // ---- Whole records of the samples
  int insert(const sample_record& record) {
    sample_fields fields(record);
    return engine::dinsert(get(), fields.list);
  }
  int read(sample_record* record) {
    sample_fields fields;
    int result = engine::dread(get(), fields.list);
    *record = fields.record();
    return result;
  }
  int find_name(const std::string& name, int option = engine::find_equal) {
    std::array<unsigned char, 256> value = {};
    value[0] = static_cast<unsigned char>(name.size());
    std::memcpy(value.data() + 1, name.data(), name.size());
    return engine::dfind(get(), 1, value.data(), 2, option);
  }
  // Locks the current record, changes it and unlocks it.
  int update(const sample_record& record) {
    int result = engine::dlock_for_call(get());
    if (result) return result;
    sample_fields fields(record);
    result = engine::dupdate(get(), fields.list);
    int unlocked = engine::dunlock(get());
    return result ? result : unlocked;
  }
  int remove() {
    int result = engine::dlock_for_call(get());
    if (result) return result;
    sample_fields fields;
    return engine::ddelete(get(), fields.list);
  }

 private:
  int opened(int result) {
    if (result == engine::e_ok && from_cache) engine::read_from_cache(get(), 0);
    return result;
  }
  alignas(16) std::array<unsigned char, engine::psp_size> block_;
  std::vector<unsigned char> buffer_ = std::vector<unsigned char>(record_buffer);
};

}  // namespace zvrdb::test
