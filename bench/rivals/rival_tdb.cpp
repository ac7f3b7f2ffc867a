// TDB: one hashed file; a list of names for each group and kind beside the records.
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <tdb.h>

#include <cstring>

#include "bench_installation.h"
#include "rivals/rival.h"

namespace bench {
namespace {

void check(int rc, const char* what) {
  if (rc != 0) give_up(what, rc);
}

struct Value {
  unsigned char group[group_len];
  std::uint32_t kind;
  unsigned char body[body_len];
};

TDB_DATA bytes(const void* from, std::size_t n) {
  return {static_cast<unsigned char*>(const_cast<void*>(from)), n};
}

int copy_value(TDB_DATA, TDB_DATA data, void* to) {
  if (data.dsize != sizeof(Value)) return -1;
  std::memcpy(to, data.dptr, sizeof(Value));
  return 0;
}
int copy_names(TDB_DATA, TDB_DATA data, void* to) {
  auto* names = static_cast<std::vector<unsigned char>*>(to);
  names->assign(data.dptr, data.dptr + data.dsize);
  return 0;
}

class Tdb final : public Rival {
 public:
  std::string name() const override { return "TDB"; }
  std::string settings() const override {
    return "transactions, hash of 100,003 buckets, incompatible (Jenkins) hash, mmap; repeating keys as lists of names";
  }
  // It has no order to scan by.
  unsigned abilities() const override { return all_abilities & ~static_cast<unsigned>(Ability::scan); }
  void open(const std::string& folder) override {
    tdb_ = tdb_open((folder + "/records.tdb").c_str(), 100003, TDB_INCOMPATIBLE_HASH, O_RDWR | O_CREAT, 0644);
    if (!tdb_) give_up("open of TDB", 0);
  }
  void close() override { check(tdb_close(tdb_), "close of TDB"); }
  void begin() override { check(tdb_transaction_start(tdb_), "begin"); }
  void commit() override { check(tdb_transaction_commit(tdb_), "commit"); }
  void insert(const Record& record) override {
    const Change change(this);
    store(record, TDB_INSERT);
    Place places[2];
    places_of(record, places);
    for (const Place& p : places)
      check(tdb_append(tdb_, bytes(p.key, p.length), bytes(record.name, name_len)), "append");
  }
  void replace(const Record& record) override {
    const Change change(this);
    store(record, TDB_MODIFY);
  }
  void erase(const Record& record) override {
    const Change change(this);
    check(tdb_delete(tdb_, bytes(record.name, name_len)), "delete");
    Place places[2];
    places_of(record, places);
    for (const Place& p : places) {
      check(tdb_parse_record(tdb_, bytes(p.key, p.length), copy_names, &names_), "list");
      for (std::size_t at = 0; at < names_.size(); at += name_len)
        if (std::memcmp(names_.data() + at, record.name, name_len) == 0) {
          names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(at),
                       names_.begin() + static_cast<std::ptrdiff_t>(at + name_len));
          break;
        }
      check(tdb_store(tdb_, bytes(p.key, p.length), bytes(names_.data(), names_.size()), TDB_REPLACE), "store");
    }
  }
  bool get(const unsigned char* name, Record* out) override {
    Value value;
    if (tdb_parse_record(tdb_, bytes(name, name_len), copy_value, &value) != 0) return false;
    std::memcpy(out->name, name, name_len);
    std::memcpy(out->group, value.group, group_len);
    out->kind = value.kind;
    std::memcpy(out->body, value.body, body_len);
    return true;
  }
  void scan(const Visit&) override {}
  void list(const unsigned char* group, const Visit& visit) override {
    Record key;
    std::memcpy(key.group, group, group_len);
    key.kind = 0;
    Place places[2];
    places_of(key, places);
    check(tdb_parse_record(tdb_, bytes(places[0].key, places[0].length), copy_names, &names_), "list");
    for (std::size_t at = 0; at < names_.size(); at += name_len) {
      Value value;
      check(tdb_parse_record(tdb_, bytes(names_.data() + at, name_len), copy_value, &value), "get");
      visit({names_.data() + at, value.body});
    }
  }
  std::vector<std::string> data_files() const override { return {"records.tdb"}; }

 private:
  struct Place {
    unsigned char key[1 + group_len];
    std::size_t length;
  };
  static void places_of(const Record& record, Place (&out)[2]) {
    out[0].key[0] = 'g';
    std::memcpy(out[0].key + 1, record.group, group_len);
    out[0].length = 1 + group_len;
    out[1].key[0] = 'k';
    std::memcpy(out[1].key + 1, &record.kind, sizeof record.kind);
    out[1].length = 1 + sizeof record.kind;
  }
  class Change {
   public:
    explicit Change(Tdb* tdb) : tdb_(tdb_transaction_active(tdb->tdb_) ? nullptr : tdb) {
      if (tdb_) tdb_->begin();
    }
    ~Change() {
      if (tdb_) tdb_->commit();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    Tdb* tdb_;
  };
  void store(const Record& record, int how) {
    Value value;
    std::memcpy(value.group, record.group, group_len);
    value.kind = record.kind;
    std::memcpy(value.body, record.body, body_len);
    check(tdb_store(tdb_, bytes(record.name, name_len), bytes(&value, sizeof value), how), "store");
  }

  tdb_context* tdb_ = nullptr;
  std::vector<unsigned char> names_;
};

}  // namespace

void add_tdb(Rivals* rivals) {
  rivals->push_back(std::make_unique<Tdb>());
}

}  // namespace bench
