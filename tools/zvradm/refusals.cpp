#include "refusals.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <array>

namespace zvradm {

namespace {

struct code_row {
  std::int16_t code;
  const char* name;
  const char* meaning;
};

constexpr std::array code_rows{
    code_row{DBE_OK, "DBE_OK", "done"},
    code_row{DBE_MIGRATION, "DBE_MIGRATION",
             "the older database is in a state that no conversion leaves, or a text of it cannot be read as a record"},
    code_row{DBE_BAD_DB_ID, "DBE_BAD_DB_ID", "this record type has no such operation; --help tells which types have"},
    code_row{DBE_NOT_FOUND, "DBE_NOT_FOUND", "no such record"},
    code_row{DBE_BAD_RECORD, "DBE_BAD_RECORD", "the record cannot be stored as it stands"},
    code_row{DBE_RECORD_REPLACED, "DBE_RECORD_REPLACED", "an existing record was replaced"},
    code_row{DBE_END_OF_LIST, "DBE_END_OF_LIST", "end of the list"},
    code_row{DBE_NO_TARGET, "DBE_NO_TARGET", "a target or server that is named is not known; 'zvradm list trg --names' tells all"},
    code_row{DBE_INIT_FAILED, "DBE_INIT_FAILED",
             "the tables in memory could not be built; the message log (log/messages.log) tells why, and where it "
             "does not, 'zvradm file check --deep' of db/trgcfg and db/catalog"},
    code_row{DBE_BAD_CMS_KEY, "DBE_BAD_CMS_KEY", "unknown target, or unknown change file"},
    code_row{DBE_ENTRY_CHANGED, "DBE_ENTRY_CHANGED", "the entry changed since the list was made; list again"},
    code_row{DBE_LIST_TOO_SMALL, "DBE_LIST_TOO_SMALL", "the list area is too small"},
    code_row{DBE_CMS_EXISTS, "DBE_CMS_EXISTS",
             "the change file has status on some target; 'zvradm cms del-file' deletes that"},
    code_row{DBE_LIMIT_EXCEEDED, "DBE_LIMIT_EXCEEDED",
             "a maximum would be exceeded; for targets see MAX TARGETS, MAX LOCAL TARGETS and MAX SERVER "
             "TARGETS in "
             "orvo.cfg, change files are at most 65535"},
    code_row{DBE_NO_STATUS, "DBE_NO_STATUS", "the target has no status"},
    code_row{DBE_NO_STAT_GET, "DBE_NO_STAT_GET", "the status was not read before"},
    code_row{DBE_NOT_AUTHORIZED, "DBE_NOT_AUTHORIZED", "the user is not authorized"},
    code_row{DBE_EMPTY_LIST, "DBE_EMPTY_LIST", "the filter matches nothing"},
    code_row{DBE_BUFFER_TOO_SMALL, "DBE_BUFFER_TOO_SMALL", "the buffer is shorter than the record"},
    code_row{DBE_TRANS_IN_PROGRESS, "DBE_TRANS_IN_PROGRESS", "a transaction of the other class is open"},
    code_row{DBE_FILE_NOT_FOUND, "DBE_FILE_NOT_FOUND", "a file does not exist, or the directory it is to be made in"},
    code_row{
        DBE_IO_ERROR, "DBE_IO_ERROR",
        "a record file failed, or there is no room for it on the disk; the message log (log/messages.log) tells which, "
        "'zvradm file check' what"},
    code_row{CO_IO_ERROR, "CO_IO_ERROR",
             "the system refused to read or write a file; see who may write in the base directory and in db/, "
             "and whether the disk is full"},
    code_row{CO_BAD_ARGUMENT, "CO_BAD_ARGUMENT", "a name or a path is too long"},
    code_row{CO_NO_MEMORY, "CO_NO_MEMORY", "there is no memory left"},
    code_row{DBE_FILE_STATUS, "DBE_FILE_STATUS", "status of a size query"},
    code_row{DBE_CO_FAILURE, "DBE_CO_FAILURE", "the common services failed"},
};

const code_row* find_row(std::int16_t code) {
  for (const code_row& row : code_rows)
    if (row.code == code) return &row;
  return nullptr;
}

}  // namespace

const char* code_name(std::int16_t code) {
  const code_row* row = find_row(code);
  return row ? row->name : "UNKNOWN";
}

const char* code_meaning(std::int16_t code) {
  const code_row* row = find_row(code);
  return row ? row->meaning : "not a code of the table";
}

bool is_stored(std::int16_t code) {
  return code == DBE_OK || code == DBE_RECORD_REPLACED;
}

refusal library_refusal(const std::string& what, std::int16_t code) {
  return refusal(what + ": " + code_name(code) + " (" + std::to_string(code) + "): " + code_meaning(code));
}

void require_ok(const std::string& what, std::int16_t code) {
  if (code != DBE_OK) throw library_refusal(what, code);
}

}  // namespace zvradm
