#include <sqlite3.h>

#include <string>

#include "bench_installation.h"
#include "rivals/system_workloads.h"

namespace bench {
namespace {

void check(int rc, const char* what) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) give_up(what, rc);
}

void run(sqlite3* db, const char* text) {
  check(sqlite3_exec(db, text, nullptr, nullptr, nullptr), text);
}

sqlite3* open_tables(const std::string& folder) {
  sqlite3* db = nullptr;
  check(sqlite3_open((folder + "/lists.db").c_str(), &db), "open of SQLite");
  run(db, "PRAGMA journal_mode=WAL; PRAGMA cache_size=-65536; PRAGMA mmap_size=1073741824");
  return db;
}

sqlite3_stmt* prepare(sqlite3* db, const char* text) {
  sqlite3_stmt* s = nullptr;
  check(sqlite3_prepare_v3(db, text, -1, SQLITE_PREPARE_PERSISTENT, &s, nullptr), text);
  return s;
}

}  // namespace

bool have_status_lists() {
  return true;
}

void make_status_lists(const std::string& folder, const StatusTables& tables) {
  sqlite3* db = open_tables(folder);
  run(db,
      "CREATE TABLE files (number INTEGER PRIMARY KEY, section TEXT, package TEXT, kind TEXT, version TEXT);"
      "CREATE INDEX by_kind ON files (section, kind);"
      "CREATE TABLE status (target INTEGER, file INTEGER, state INTEGER, PRIMARY KEY (target, file)) WITHOUT ROWID;"
      "CREATE INDEX by_file ON status (file, target, state);"
      "BEGIN");
  sqlite3_stmt* file = prepare(db, "INSERT INTO files VALUES (?1, ?2, ?3, ?4, '1-2')");
  for (std::uint32_t i = 0; i < tables.files; ++i) {
    const std::string section = std::to_string(i / 2 % tables.sections);
    const std::string package = std::to_string(i / 2 / tables.sections);
    sqlite3_bind_int64(file, 1, i);
    sqlite3_bind_text(file, 2, section.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(file, 3, package.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(file, 4, i % 2 ? "FIX" : "REF", -1, SQLITE_STATIC);
    check(sqlite3_step(file), "insert");
    sqlite3_reset(file);
  }
  sqlite3_finalize(file);
  sqlite3_stmt* status = prepare(db, "INSERT OR IGNORE INTO status VALUES (?1, ?2, 1)");
  const auto put = [&](std::uint32_t target, std::uint32_t number) {
    sqlite3_bind_int64(status, 1, target);
    sqlite3_bind_int64(status, 2, number);
    check(sqlite3_step(status), "insert");
    sqlite3_reset(status);
  };
  for (std::uint32_t t = 1; t <= tables.targets; ++t) put(t, 0);
  for (std::uint32_t f = 0; f < tables.files; ++f) put(1, f);
  sqlite3_finalize(status);
  run(db, "COMMIT; ANALYZE");
  check(sqlite3_close(db), "close");
}

struct StatusLists::Inside {
  sqlite3* db;
  sqlite3_stmt *filter, *targets, *files;
};

StatusLists::StatusLists(const std::string& folder) : inside_(new Inside{}) {
  inside_->db = open_tables(folder);
  inside_->filter = prepare(inside_->db, "SELECT number FROM files WHERE section = ?1 AND kind = 'FIX'");
  inside_->targets = prepare(inside_->db, "SELECT target, state FROM status WHERE file = 0");
  inside_->files = prepare(inside_->db, "SELECT file, state FROM status WHERE target = 1");
}

StatusLists::~StatusLists() {
  for (sqlite3_stmt* s : {inside_->filter, inside_->targets, inside_->files}) sqlite3_finalize(s);
  sqlite3_close(inside_->db);
  delete inside_;
}

std::uint32_t StatusLists::by_filter(std::uint32_t* out) {
  sqlite3_bind_text(inside_->filter, 1, "7", -1, SQLITE_STATIC);
  std::uint32_t n = 0;
  while (sqlite3_step(inside_->filter) == SQLITE_ROW)
    out[n++] = static_cast<std::uint32_t>(sqlite3_column_int(inside_->filter, 0));
  sqlite3_reset(inside_->filter);
  return n;
}

std::uint32_t StatusLists::targets_of_file(unsigned char* out) {
  std::uint32_t n = 0;
  while (sqlite3_step(inside_->targets) == SQLITE_ROW) {
    out[sqlite3_column_int(inside_->targets, 0)] =
        static_cast<unsigned char>(sqlite3_column_int(inside_->targets, 1));
    ++n;
  }
  sqlite3_reset(inside_->targets);
  return n;
}

std::uint32_t StatusLists::files_of_target(std::uint32_t* out) {
  std::uint32_t n = 0;
  while (sqlite3_step(inside_->files) == SQLITE_ROW)
    out[n++] = static_cast<std::uint32_t>(sqlite3_column_int(inside_->files, 0)) << 8 |
               static_cast<std::uint32_t>(sqlite3_column_int(inside_->files, 1));
  sqlite3_reset(inside_->files);
  return n;
}

}  // namespace bench
