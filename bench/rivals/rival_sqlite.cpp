// SQLite: every statement prepared once; WAL and DELETE journals with synchronous=FULL.
#include <sqlite3.h>

#include <cstring>

#include "bench_installation.h"
#include "rivals/rival.h"

namespace bench {
namespace {

void check(int rc, const char* what) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) give_up(what, rc);
}

enum Statement { begin_it, commit_it, insert_it, replace_it, erase_it, get_it, scan_it, list_it, statement_count };
constexpr const char* texts[statement_count] = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "INSERT INTO records VALUES (?1, ?2, ?3, ?4)",
    "UPDATE records SET body = ?2 WHERE name = ?1",
    "DELETE FROM records WHERE name = ?1",
    "SELECT grp, kind, body FROM records WHERE name = ?1",
    "SELECT name, body FROM records ORDER BY name",
    "SELECT name, body FROM records WHERE grp = ?1",
};

class Sqlite final : public Rival {
 public:
  Sqlite(const char* journal, bool clustered) : journal_(journal), clustered_(clustered) {}
  std::string name() const override {
    return std::string("SQLite ") + journal_ + (clustered_ ? ", clustered" : "");
  }
  std::string settings() const override {
    return std::string("journal_mode=") + journal_ +
           ", synchronous=FULL, cache 64 MiB, mmap 1 GiB, page 4 KiB, prepared statements; " +
           (clustered_ ? "WITHOUT ROWID by the unique key" : "rowid table, unique index") + ", two indexes";
  }
  void open(const std::string& folder) override {
    check(sqlite3_open((folder + "/records.db").c_str(), &db_), "open of SQLite");
    sqlite3_busy_timeout(db_, 60000);
    run((std::string("PRAGMA journal_mode=") + journal_).c_str());
    run("PRAGMA synchronous=FULL");
    run("PRAGMA cache_size=-65536");
    run("PRAGMA mmap_size=1073741824");
    run((std::string("CREATE TABLE IF NOT EXISTS records (name BLOB PRIMARY KEY NOT NULL, grp BLOB, kind INTEGER, "
                     "body BLOB)") +
         (clustered_ ? " WITHOUT ROWID" : ""))
            .c_str());
    run("CREATE INDEX IF NOT EXISTS by_group ON records (grp)");
    run("CREATE INDEX IF NOT EXISTS by_kind ON records (kind)");
    for (int i = 0; i < statement_count; ++i)
      check(sqlite3_prepare_v3(db_, texts[i], -1, SQLITE_PREPARE_PERSISTENT, &prepared_[i], nullptr), texts[i]);
  }
  void close() override {
    for (sqlite3_stmt*& s : prepared_) {
      sqlite3_finalize(s);
      s = nullptr;
    }
    check(sqlite3_close(db_), "close of SQLite");
    db_ = nullptr;
  }
  void begin() override { step(begin_it); }
  void commit() override { step(commit_it); }
  void insert(const Record& record) override {
    sqlite3_stmt* s = prepared_[insert_it];
    sqlite3_bind_blob(s, 1, record.name, name_len, SQLITE_STATIC);
    sqlite3_bind_blob(s, 2, record.group, group_len, SQLITE_STATIC);
    sqlite3_bind_int64(s, 3, record.kind);
    sqlite3_bind_blob(s, 4, record.body, body_len, SQLITE_STATIC);
    step(insert_it);
  }
  void replace(const Record& record) override {
    sqlite3_stmt* s = prepared_[replace_it];
    sqlite3_bind_blob(s, 1, record.name, name_len, SQLITE_STATIC);
    sqlite3_bind_blob(s, 2, record.body, body_len, SQLITE_STATIC);
    step(replace_it);
  }
  void erase(const Record& record) override {
    sqlite3_bind_blob(prepared_[erase_it], 1, record.name, name_len, SQLITE_STATIC);
    step(erase_it);
  }
  bool get(const unsigned char* name, Record* out) override {
    sqlite3_stmt* s = prepared_[get_it];
    sqlite3_bind_blob(s, 1, name, name_len, SQLITE_STATIC);
    const int rc = sqlite3_step(s);
    check(rc, "get");
    if (rc == SQLITE_ROW) {
      std::memcpy(out->name, name, name_len);
      std::memcpy(out->group, sqlite3_column_blob(s, 0), group_len);
      out->kind = static_cast<std::uint32_t>(sqlite3_column_int64(s, 1));
      std::memcpy(out->body, sqlite3_column_blob(s, 2), body_len);
    }
    sqlite3_reset(s);
    return rc == SQLITE_ROW;
  }
  void scan(const Visit& visit) override { walk(prepared_[scan_it], visit); }
  void list(const unsigned char* group, const Visit& visit) override {
    sqlite3_bind_blob(prepared_[list_it], 1, group, group_len, SQLITE_STATIC);
    walk(prepared_[list_it], visit);
  }
  std::vector<std::string> data_files() const override { return {"records.db"}; }

 private:
  void run(const char* text) { check(sqlite3_exec(db_, text, nullptr, nullptr, nullptr), text); }
  void step(Statement which) {
    check(sqlite3_step(prepared_[which]), texts[which]);
    sqlite3_reset(prepared_[which]);
  }
  static void walk(sqlite3_stmt* s, const Visit& visit) {
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW)
      visit({static_cast<const unsigned char*>(sqlite3_column_blob(s, 0)),
             static_cast<const unsigned char*>(sqlite3_column_blob(s, 1))});
    check(rc, "walk");
    sqlite3_reset(s);
  }

  const char* journal_;
  bool clustered_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* prepared_[statement_count] = {};
};

}  // namespace

void add_sqlite(Rivals* rivals) {
  rivals->push_back(std::make_unique<Sqlite>("WAL", false));
  rivals->push_back(std::make_unique<Sqlite>("WAL", true));
  rivals->push_back(std::make_unique<Sqlite>("DELETE", false));
}

}  // namespace bench
