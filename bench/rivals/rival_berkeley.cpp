// Berkeley DB: a transactional environment with synchronous commit, secondary indexes kept by it.
#include <db.h>

#include <cstring>

#include "bench_installation.h"
#include "rivals/rival.h"

namespace bench {
namespace {

void check(int rc, const char* what) {
  if (rc != 0) give_up(what, rc);
}

DBT bytes(const void* from, std::size_t n) {
  DBT d;
  std::memset(&d, 0, sizeof d);
  d.data = const_cast<void*>(from);
  d.size = static_cast<u_int32_t>(n);
  return d;
}
// Room of the caller for what is found.
DBT room(void* to, std::size_t n) {
  DBT d = bytes(to, 0);
  d.ulen = static_cast<u_int32_t>(n);
  d.flags = DB_DBT_USERMEM;
  return d;
}

struct Value {
  unsigned char group[group_len];
  std::uint32_t kind;
  unsigned char body[body_len];
};

int group_of(DB*, const DBT*, const DBT* data, DBT* out) {
  *out = bytes(data->data, group_len);
  return 0;
}
int kind_of(DB*, const DBT*, const DBT* data, DBT* out) {
  *out = bytes(static_cast<unsigned char*>(data->data) + offsetof(Value, kind), sizeof(std::uint32_t));
  return 0;
}

class Berkeley final : public Rival {
 public:
  std::string name() const override { return "Berkeley DB"; }
  std::string settings() const override {
    return "transactional environment, synchronous commit, cache 256 MiB, B-tree, two associated secondary B-trees";
  }
  void open(const std::string& folder) override {
    check(db_env_create(&env_, 0), "Berkeley DB");
    env_->set_cachesize(env_, 0, 256u << 20, 1);
    env_->set_lk_max_locks(env_, 400000);
    env_->set_lk_max_objects(env_, 400000);
    env_->set_lk_max_lockers(env_, 4000);
    env_->set_lk_detect(env_, DB_LOCK_DEFAULT);
    env_->set_lg_bsize(env_, 32u << 20);
    env_->set_lg_max(env_, 256u << 20);
    check(env_->open(env_, folder.c_str(),
                     DB_CREATE | DB_INIT_TXN | DB_INIT_LOCK | DB_INIT_LOG | DB_INIT_MPOOL, 0644),
          "open of the environment");
    records_ = open_one("records", 0);
    groups_ = open_one("groups", DB_DUPSORT);
    kinds_ = open_one("kinds", DB_DUPSORT);
    check(records_->associate(records_, nullptr, groups_, group_of, 0), "associate");
    check(records_->associate(records_, nullptr, kinds_, kind_of, 0), "associate");
  }
  void close() override {
    check(env_->txn_checkpoint(env_, 0, 0, DB_FORCE), "checkpoint");
    groups_->close(groups_, 0);
    kinds_->close(kinds_, 0);
    records_->close(records_, 0);
    check(env_->close(env_, 0), "close of Berkeley DB");
  }
  void begin() override { check(env_->txn_begin(env_, nullptr, &txn_, 0), "begin"); }
  void commit() override {
    check(txn_->commit(txn_, 0), "commit");
    txn_ = nullptr;
  }
  void insert(const Record& record) override { put(record, DB_NOOVERWRITE); }
  void replace(const Record& record) override { put(record, 0); }
  void erase(const Record& record) override {
    for (;;) {
      DBT key = bytes(record.name, name_len);
      const int rc = records_->del(records_, txn_, &key, txn_ ? 0 : DB_AUTO_COMMIT);
      if (rc == DB_LOCK_DEADLOCK && !txn_) continue;
      return check(rc, "delete");
    }
  }
  bool get(const unsigned char* name, Record* out) override {
    for (;;) {
      Value value;
      DBT key = bytes(name, name_len), data = room(&value, sizeof value);
      const int rc = records_->get(records_, nullptr, &key, &data, 0);
      if (rc == DB_LOCK_DEADLOCK) continue;
      if (rc != 0) return false;
      std::memcpy(out->name, name, name_len);
      std::memcpy(out->group, value.group, group_len);
      out->kind = value.kind;
      std::memcpy(out->body, value.body, body_len);
      return true;
    }
  }
  void scan(const Visit& visit) override {
    DBC* c = nullptr;
    check(records_->cursor(records_, nullptr, &c, 0), "cursor");
    unsigned char name[name_len];
    Value value;
    DBT key = room(name, sizeof name), data = room(&value, sizeof value);
    while (c->get(c, &key, &data, DB_NEXT) == 0) visit({name, value.body});
    c->close(c);
  }
  void list(const unsigned char* group, const Visit& visit) override {
    DBC* c = nullptr;
    check(groups_->cursor(groups_, nullptr, &c, 0), "cursor");
    unsigned char found[group_len], name[name_len];
    std::memcpy(found, group, group_len);
    Value value;
    DBT key = room(found, sizeof found), record = room(name, sizeof name), data = room(&value, sizeof value);
    key.size = group_len;
    for (int rc = c->pget(c, &key, &record, &data, DB_SET); rc == 0; rc = c->pget(c, &key, &record, &data, DB_NEXT_DUP))
      visit({name, value.body});
    c->close(c);
  }
  std::vector<std::string> data_files() const override { return {"records", "groups", "kinds"}; }

 private:
  DB* open_one(const char* name, u_int32_t flags) {
    DB* db = nullptr;
    check(db_create(&db, env_, 0), name);
    if (flags) check(db->set_flags(db, flags), name);
    check(db->open(db, nullptr, name, nullptr, DB_BTREE, DB_CREATE | DB_AUTO_COMMIT, 0644), name);
    return db;
  }
  void put(const Record& record, u_int32_t flags) {
    Value value;
    std::memcpy(value.group, record.group, group_len);
    value.kind = record.kind;
    std::memcpy(value.body, record.body, body_len);
    for (;;) {
      DBT key = bytes(record.name, name_len), data = bytes(&value, sizeof value);
      const int rc = records_->put(records_, txn_, &key, &data, flags | (txn_ ? 0u : DB_AUTO_COMMIT));
      if (rc == DB_LOCK_DEADLOCK && !txn_) continue;
      return check(rc, "put");
    }
  }

  DB_ENV* env_ = nullptr;
  DB* records_ = nullptr;
  DB* groups_ = nullptr;
  DB* kinds_ = nullptr;
  DB_TXN* txn_ = nullptr;
};

}  // namespace

void add_berkeley(Rivals* rivals) {
  rivals->push_back(std::make_unique<Berkeley>());
}

}  // namespace bench
