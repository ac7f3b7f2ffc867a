#include "text_store.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <cstdio>
#include <vector>

#include "config_file.h"
#include "memory/dbr_tcb.h"
#include "memory/record_types.h"
#include "refusals.h"
#include "text_faults.h"
#include "textrec/parsed_files.h"

namespace zvradm {

namespace {

constexpr std::uint32_t record_stored = 36353;

void require_unchanged(const std::string& path, const std::string* before) {
  std::string now;
  const bool there = read_text_file(path, now);
  if (there != (before != nullptr) || (before && now != *before))
    throw refusal(path + ": was changed by somebody else meanwhile");
}

// The semaphore of a class of records, held.
class held_class {
 public:
  held_class(void* task, std::uint16_t sem_index) : task_(task) {
    if (co_open_sema4(task, sem_index == 0 ? "DBRFILE" : "DBR_MEM", &handle_, 0, 1) != CO_OK ||
        co_req_sema4(task, handle_, 0) != CO_OK)
      throw refusal("the semaphore of the text records cannot be taken");
  }
  ~held_class() { co_clear_sema4(task_, handle_); }
  held_class(const held_class&) = delete;
  held_class& operator=(const held_class&) = delete;

 private:
  void* task_;
  std::uint32_t handle_ = 0;
};

}  // namespace

void replace_text(void* task, const text_type& type, const std::string& path, const std::string* before,
                  const std::string& text) {
  prepare_text_record(task, type.db_id);
  // Brings the task into the class of the type, and puts right what a crash left there.
  const void* const keys[] = {"none"};
  unsigned char nothing = 0;
  const std::int16_t asked = db_get(task, type.db_id, type.many ? 1 : 0, keys, &nothing, 0);
  if (asked != DBE_NOT_FOUND) require_ok(path, asked);
  auto* tcb = static_cast<zvrdb::DBR_TCB*>(co_slots(task)->dbr_tcb);
  const held_class held(task, tcb->sem_index);
  require_unchanged(path, before);
  const std::int16_t code =
      zvrdb::textrec::put_unparsed(task, path.c_str(), text.data(), static_cast<std::uint32_t>(text.size()));
  if (!is_stored(code)) throw library_refusal(path, code);
  ++tcb->cntl->gen[type.db_id];
  zvrdb::memory::log_db_msg(task, record_stored, type.db_id);
}

void replace_config_text(const std::string& base, const std::string* before, const std::string& text) {
  const config_lock lock(base);
  lock.require();
  std::string unfinished;
  if (read_text_file(pending_path(base), unfinished))
    throw refusal(pending_path(base) + ": an init or a rename is unfinished; finish it first");
  require_unchanged(config_path(base), before);
  write_config_text(config_path(base), text);
}

}  // namespace zvradm
