// The storage engine with its commit journal, as the record files use it: shared, level 4.
#include <unistd.h>

#include <array>
#include <cstring>

#include "bench_installation.h"
#include "engine/engine.h"
#include "rivals/rival.h"

namespace bench {
namespace {

using namespace zvrdb;

constexpr int record_buffer = 16384;
constexpr char counted_key = 2;
constexpr engine::key_entry keys[] = {
    {1, 2, {}, nullptr}, {2, 2, {}, nullptr}, {3, 5, {}, nullptr}, {0, 0, {}, nullptr}};

void check(int rc, const char* what) {
  if (rc != engine::e_ok) give_up(what, rc);
}

class Engine final : public Rival {
 public:
  std::string name() const override { return "zvrdb engine"; }
  std::string settings() const override {
    return "record file shared by processes, integrity level 4, commit journal, reads from the cache without locks, cache of 131,072 nodes";
  }
  bool is_ours() const override { return true; }

  void open(const std::string& folder) override {
    path_ = folder + "/records";
    engine::set_cache_blocks(131072);
    const bool there = access(path_.c_str(), F_OK) == 0;
    const auto journal = engine::journal_use::on;
    check(there ? engine::dopen(psp(), path_.c_str(), buffer_.data(), record_buffer, 'S', 2, keys, journal)
                : engine::dcreate(psp(), path_.c_str(), buffer_.data(), record_buffer, 'S', 3, keys, journal),
          "open of the engine");
    check(engine::csetfile(psp(), 4), "integrity level");
    check(engine::read_from_cache(psp(), 0), "reads from the cache");
  }
  void close() override { check(engine::dclose(psp()), "close of the engine"); }
  void begin() override { check(engine::transbeg(psp(), 3, nullptr), "begin"); }
  void commit() override { check(engine::transend(psp(), 1), "commit"); }

  void insert(const Record& record) override {
    Fields f(record);
    check(engine::dinsert(psp(), f.list), "insert");
  }
  // As the library's own calls do: what belongs to one change is one call.
  void replace(const Record& record) override {
    engine::begin_call(psp());
    check(engine::transbeg(psp(), 3, nullptr), "begin");
    find(record.name);
    check(engine::dlock_for_call(psp()), "lock");
    Fields f(record);
    check(engine::dupdate(psp(), f.list), "update");
    check(engine::dunlock(psp()), "unlock");
    commit();
    check(engine::end_call(psp()), "end of a call");
  }
  void erase(const Record& record) override {
    engine::begin_call(psp());
    check(engine::transbeg(psp(), 3, nullptr), "begin");
    find(record.name);
    check(engine::dlock_for_call(psp()), "lock");
    Fields f(record);
    check(engine::ddelete(psp(), f.list), "delete");
    commit();
    check(engine::end_call(psp()), "end of a call");
  }
  bool get(const unsigned char* name, Record* out) override {
    unsigned char value[1 + name_len];
    value[0] = name_len;
    std::memcpy(value + 1, name, name_len);
    if (engine::dfind(psp(), 1, value, counted_key, engine::find_equal) != engine::e_ok) return false;
    Fields f(*out);
    check(engine::dread(psp(), f.list), "read");
    return true;
  }
  void scan(const Visit& visit) override {
    Record record;
    Fields f(record);
    for (int rc = engine::dseq(psp(), 1, engine::seq_first); rc == engine::e_ok;
         rc = engine::dseq(psp(), 1, engine::seq_next)) {
      f.restore();
      check(engine::dread(psp(), f.list), "read");
      visit({record.name, record.body});
    }
  }
  void list(const unsigned char* group, const Visit& visit) override {
    unsigned char value[1 + group_len];
    value[0] = group_len;
    std::memcpy(value + 1, group, group_len);
    Record record;
    Fields f(record);
    for (int rc = engine::dfind(psp(), 2, value, counted_key, engine::find_equal); rc == engine::e_ok;
         rc = engine::dseq(psp(), 2, engine::seq_next)) {
      if (std::memcmp(engine::current_key(psp()), value, sizeof value) != 0) return;
      f.restore();
      check(engine::dread(psp(), f.list), "read");
      visit({record.name, record.body});
    }
  }
  std::vector<std::string> data_files() const override { return {"records"}; }

 private:
  // The field list of a record, over the record's own bytes.
  struct Fields {
    explicit Fields(const Record& record) : Fields(const_cast<Record&>(record)) {}
    explicit Fields(Record& record)
        : list{{'B', counted_key, 'U', 0, name_len, 1, 0, record.name},
               {'B', counted_key, 'D', 0, group_len, 2, 0, record.group},
               {'L', 5, 'D', 0, 4, 3, 0, &record.kind},
               {'B', 'N', 'N', 0, body_len, 0, 0, record.body},
               {'E', 0, 0, 0, 0, 0, 0, nullptr}} {}
    // A read leaves the lengths that it found.
    void restore() {
      list[0].flen = name_len;
      list[1].flen = group_len;
      list[3].flen = body_len;
    }
    engine::field list[5];
  };

  engine::PSP* psp() { return reinterpret_cast<engine::PSP*>(block_.data()); }
  void find(const unsigned char* name) {
    unsigned char value[1 + name_len];
    value[0] = name_len;
    std::memcpy(value + 1, name, name_len);
    check(engine::dfind(psp(), 1, value, counted_key, engine::find_equal), "find");
  }

  std::string path_;
  alignas(16) std::array<unsigned char, engine::psp_size> block_{};
  std::vector<unsigned char> buffer_ = std::vector<unsigned char>(record_buffer);
};

}  // namespace

std::unique_ptr<Rival> make_engine() {
  return std::make_unique<Engine>();
}

}  // namespace bench
