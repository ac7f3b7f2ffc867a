#include "cmstatus/stored_records.h"

#include <cstring>

#include "memory/table_bounds.h"
#include "recfile/recfile.h"

namespace zvrdb::cmstatus {
namespace {

constexpr std::uint32_t room_per_change_file = 152;
constexpr std::uint32_t room_beside_targets = 20;

file_entry* cms_file(void* task) {
  return memory::tcb_of(task)->cms_file;
}

// One side of a pair goes alone only when the other is known not to be there: a search that
// failed is no such answer.
std::int16_t unless_unknown(void* task, std::int16_t rc) {
  if (rc != DBE_NOT_FOUND || !recfile::locate_failed(cms_file(task))) return rc;
  return DBE_IO_ERROR;
}

constexpr record_key key_of(record_kind kind, std::uint32_t number) {
  return {kind, number, 0};
}

std::uint32_t image_len(const image_area& image) {
  return key_len + image.body.length;
}

// The area that the task keeps, or, while that is taken, one for this use alone.  New pages
// for a long record each time would cost more than the record.
unsigned char* take_bytes(void* task, std::uint32_t length, const char* tag) {
  const auto make = [&] { return static_cast<unsigned char*>(co_malloc(task, length, CO_MEM_PRIVATE, tag)); };
  DBR_TCB* tcb = memory::tcb_of(task);
  if (tcb->image_taken != 0) return make();
  if (tcb->image_len < length) {
    if (tcb->image) co_free_int(task, tcb->image, tag);
    tcb->image = make();
    tcb->image_len = tcb->image ? length : 0;
  }
  tcb->image_taken = tcb->image ? 1 : 0;
  return tcb->image;
}

void give_bytes_back(void* task, unsigned char* bytes) {
  DBR_TCB* tcb = memory::tcb_of(task);
  if (bytes == tcb->image)
    tcb->image_taken = 0;
  else
    co_free_int(task, bytes, "cmstatus");
}

}  // namespace

image_area::image_area(void* task, const char* tag, std::uint32_t longest, std::uint32_t entry_len)
    : task_(task), bytes_(take_bytes(task, longest + entry_len, tag)), longest_(longest) {
  if (!bytes_) {
    co_log2(task, 36355, 0, 0, 0, "%s", "temp ext buffer");
    return;
  }
  std::memset(bytes_, 0, key_len);
  body = {bytes_ + key_len, 0, longest + entry_len - key_len};
}

image_area::~image_area() {
  if (bytes_) give_bytes_back(task_, bytes_);
}

image_area target_area(void* task, const char* tag) {
  const std::uint32_t longest = memory::cat_table_size(memory::tcb_of(task)) * room_per_change_file + key_len;
  return {task, tag, longest, target_entry_len};
}

image_area file_area(void* task, const char* tag, std::uint32_t more) {
  const std::uint32_t longest =
      memory::trg_count(memory::tcb_of(task)) * file_entry_len + room_beside_targets;
  return {task, tag, longest + more, file_entry_len};
}

std::int16_t locate(void* task, record_kind kind, std::uint32_t number) {
  record_key key = key_of(kind, number);
  return unless_unknown(task, recfile::db_locate(task, cms_file(task), &key, recfile::KEY_EQ));
}

std::int16_t read_image(void* task, image_area* image) {
  if (!image->there()) return DBE_IO_ERROR;
  std::uint32_t length = image->longest();
  const std::int16_t rc = recfile::db_read(task, cms_file(task), image->bytes(), &length);
  if (rc == DBE_OK) image->body.length = length - key_len;
  return rc;
}

std::int16_t write_image(void* task, record_kind kind, std::uint32_t number, const image_area& image) {
  record_key key = key_of(kind, number);
  return recfile::db_write(task, cms_file(task), &key, image.bytes(), image_len(image));
}

std::int16_t update_image(void* task, record_kind kind, std::uint32_t number, const image_area& image) {
  record_key key = key_of(kind, number);
  return unless_unknown(task,
                        recfile::db_update(task, cms_file(task), &key, image.bytes(), image_len(image)));
}

std::int16_t delete_record(void* task, record_kind kind, std::uint32_t number) {
  record_key key = key_of(kind, number);
  return unless_unknown(task, recfile::db_delete(task, &key, cms_file(task)));
}

std::int16_t end_change(void* task, std::int16_t rc) {
  if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) {
    recfile::rollback(task, DB_CMS);
    return rc;
  }
  const std::int16_t committed = recfile::commit(task, DB_CMS);
  return committed == DBE_OK ? rc : committed;
}

}  // namespace zvrdb::cmstatus
