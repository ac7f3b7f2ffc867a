// LMDB in its default mode: records by name, and two databases of duplicates that lead to names.
#include <lmdb.h>

#include <cstring>

#include "bench_installation.h"
#include "rivals/rival.h"

namespace bench {
namespace {

void check(int rc, const char* what) {
  if (rc != 0) give_up(what, rc);
}

MDB_val bytes(const void* from, std::size_t n) {
  return {n, const_cast<void*>(from)};
}

struct Value {
  unsigned char group[group_len];
  std::uint32_t kind;
  unsigned char body[body_len];
};

class Lmdb final : public Rival {
 public:
  std::string name() const override { return "LMDB"; }
  std::string settings() const override {
    return "default durability (data and meta page flushed), map 2 GiB, secondary databases DUPSORT | DUPFIXED, "
           "read transactions renewed";
  }
  void open(const std::string& folder) override {
    check(mdb_env_create(&env_), "LMDB");
    mdb_env_set_maxdbs(env_, 4);
    mdb_env_set_mapsize(env_, std::size_t{2} << 30);
    check(mdb_env_open(env_, folder.c_str(), 0, 0644), "open of LMDB");
    MDB_txn* t = nullptr;
    check(mdb_txn_begin(env_, nullptr, 0, &t), "begin");
    check(mdb_dbi_open(t, "records", MDB_CREATE, &records_), "records");
    check(mdb_dbi_open(t, "groups", MDB_CREATE | MDB_DUPSORT | MDB_DUPFIXED, &groups_), "groups");
    check(mdb_dbi_open(t, "kinds", MDB_CREATE | MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERKEY, &kinds_), "kinds");
    check(mdb_txn_commit(t), "commit");
    check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader_), "reader");
    mdb_txn_reset(reader_);
  }
  void close() override {
    mdb_txn_abort(reader_);
    mdb_env_close(env_);
  }
  void begin() override { check(mdb_txn_begin(env_, nullptr, 0, &writer_), "begin"); }
  void commit() override {
    check(mdb_txn_commit(writer_), "commit");
    writer_ = nullptr;
  }
  void insert(const Record& record) override {
    const Change change(this);
    Value value;
    fill(&value, record);
    MDB_val name = bytes(record.name, name_len), data = bytes(&value, sizeof value);
    check(mdb_put(writer_, records_, &name, &data, MDB_NOOVERWRITE), "put");
    MDB_val group = bytes(record.group, group_len), kind = bytes(&record.kind, sizeof record.kind);
    check(mdb_put(writer_, groups_, &group, &name, 0), "put of a group");
    check(mdb_put(writer_, kinds_, &kind, &name, 0), "put of a kind");
  }
  void replace(const Record& record) override {
    const Change change(this);
    Value value;
    fill(&value, record);
    MDB_val name = bytes(record.name, name_len), data = bytes(&value, sizeof value);
    check(mdb_put(writer_, records_, &name, &data, 0), "put");
  }
  void erase(const Record& record) override {
    const Change change(this);
    MDB_val name = bytes(record.name, name_len);
    MDB_val group = bytes(record.group, group_len), kind = bytes(&record.kind, sizeof record.kind);
    check(mdb_del(writer_, records_, &name, nullptr), "delete");
    check(mdb_del(writer_, groups_, &group, &name), "delete of a group");
    check(mdb_del(writer_, kinds_, &kind, &name), "delete of a kind");
  }
  bool get(const unsigned char* name, Record* out) override {
    check(mdb_txn_renew(reader_), "renew");
    MDB_val key = bytes(name, name_len), data;
    const int rc = mdb_get(reader_, records_, &key, &data);
    if (rc == 0) {
      const auto* value = static_cast<const unsigned char*>(data.mv_data);
      std::memcpy(out->name, name, name_len);
      std::memcpy(out->group, value, group_len);
      std::memcpy(&out->kind, value + group_len, sizeof out->kind);
      std::memcpy(out->body, value + body_at, body_len);
    }
    mdb_txn_reset(reader_);
    return rc == 0;
  }
  void scan(const Visit& visit) override {
    check(mdb_txn_renew(reader_), "renew");
    MDB_cursor* c = nullptr;
    check(mdb_cursor_open(reader_, records_, &c), "cursor");
    MDB_val key, data;
    for (int rc = mdb_cursor_get(c, &key, &data, MDB_FIRST); rc == 0; rc = mdb_cursor_get(c, &key, &data, MDB_NEXT))
      visit(view(key, data));
    mdb_cursor_close(c);
    mdb_txn_reset(reader_);
  }
  void list(const unsigned char* group, const Visit& visit) override {
    check(mdb_txn_renew(reader_), "renew");
    MDB_cursor* c = nullptr;
    check(mdb_cursor_open(reader_, groups_, &c), "cursor");
    MDB_val key = bytes(group, group_len), name;
    for (int rc = mdb_cursor_get(c, &key, &name, MDB_SET); rc == 0; rc = mdb_cursor_get(c, &key, &name, MDB_NEXT_DUP)) {
      MDB_val data;
      check(mdb_get(reader_, records_, &name, &data), "get");
      visit(view(name, data));
    }
    mdb_cursor_close(c);
    mdb_txn_reset(reader_);
  }
  std::vector<std::string> data_files() const override { return {"data.mdb"}; }

 private:
  static constexpr std::size_t body_at = offsetof(Value, body);
  // A transaction of its own unless one is open.
  class Change {
   public:
    explicit Change(Lmdb* lmdb) : lmdb_(lmdb->writer_ == nullptr ? lmdb : nullptr) {
      if (lmdb_) lmdb_->begin();
    }
    ~Change() {
      if (lmdb_) lmdb_->commit();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    Lmdb* lmdb_;
  };
  static void fill(Value* value, const Record& record) {
    std::memcpy(value->group, record.group, group_len);
    value->kind = record.kind;
    std::memcpy(value->body, record.body, body_len);
  }
  static RecordView view(const MDB_val& key, const MDB_val& data) {
    return {static_cast<const unsigned char*>(key.mv_data), static_cast<const unsigned char*>(data.mv_data) + body_at};
  }

  MDB_env* env_ = nullptr;
  MDB_dbi records_ = 0, groups_ = 0, kinds_ = 0;
  MDB_txn* reader_ = nullptr;
  MDB_txn* writer_ = nullptr;
};

}  // namespace

void add_lmdb(Rivals* rivals) {
  rivals->push_back(std::make_unique<Lmdb>());
}

}  // namespace bench
