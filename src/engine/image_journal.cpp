#include "engine/image_journal.h"

#include <cstring>

#include "engine/crc32c.h"
#include "engine/header_page.h"
#include "engine/node_cache.h"
#include "engine/node_check.h"
#include "engine/one_thread.h"
#include "engine/os_file.h"

namespace zvrdb::engine {
namespace {

namespace image_field {
constexpr std::size_t crc = 0, node = 8, number = 16, generation = 20;
}

std::uint64_t place_of_record(std::uint32_t i) { return page_size + std::uint64_t{image_record_size} * i; }

bool write_whole(std::int32_t file, std::uint64_t offset, const void* bytes, std::size_t n) {
  return os().write_at(file, offset, bytes, n) == static_cast<std::int64_t>(n);
}

int fail_write(PSP* h) {
  h->errdetail = e_write;
  return e_write;
}

int write_image_header(PSP* h) {
  image_journal* j = h->images;
  std::uint8_t page[page_size] = {};
  std::memcpy(page, j->header, sizeof j->header);
  store32(page + image_header_crc, crc32c(0, j->header, sizeof j->header), h->order);
  if (!write_whole(j->file, 0, page, sizeof page)) return fail_write(h);
  j->header_written = true;
  return e_ok;
}

// ---- Undoing

struct restore {
  PSP* h;
  std::int32_t file;
  image_transform in;
  std::uint8_t header[header_size];
  std::uint32_t generation;
  std::int32_t nextnode;
};

int read_restore_header(restore* r) {
  std::uint8_t page[image_header_crc + 4];
  PSP* h = r->h;
  if (os().read_at(r->file, 0, page, sizeof page) != static_cast<std::int64_t>(sizeof page)) return e_foreign_file;
  const byte_order o = h->order;
  if (order_of_marker(page + header_at::marker) != o) return e_foreign_file;
  if (load32(page + image_header_crc, o) != crc32c(0, page, header_size)) return e_foreign_file;
  for (const magic_word& w : magic_words)
    if (load32(page + w.offset, o) != w.letter) return e_foreign_file;
  std::memcpy(r->header, page, header_size);
  r->generation = load32(page + header_at::generation, o);
  r->nextnode = load32s(page + header_at::nextnode, o);
  return r->nextnode >= 1 && r->nextnode <= max_node + 1 ? static_cast<int>(e_ok) : static_cast<int>(e_foreign_file);
}

// Whether the journal is about the operation that the file shows as begun: its header is the
// one from before, or already that of the operation.
bool is_of_this_operation(const restore& r) {
  std::uint8_t there[header_size];
  build_header(r.h, there);   // without the bytes that mean nothing
  const std::uint32_t generation = load32(there + header_at::generation, r.h->order);
  constexpr std::size_t behind = header_at::generation + 4;
  if (generation == r.generation - 1) return std::memcmp(there + behind, r.header + behind, header_size - behind) == 0;
  return generation == r.generation &&
         std::memcmp(there + header_at::keytypes, r.header + header_at::keytypes, keytypes_size) == 0;
}

// Reads a record.  False where the images of the operation end.
bool read_record(const restore& r, std::uint32_t i, std::uint8_t (&record)[image_record_size]) {
  if (os().read_at(r.file, place_of_record(i), record, sizeof record) != static_cast<std::int64_t>(sizeof record))
    return false;
  if (r.in != nullptr) r.in(record, sizeof record);
  const byte_order o = r.h->order;
  if (load32(record + image_field::crc, o) != crc32c(0, record + 4, sizeof record - 4)) return false;
  if (load32(record + image_field::number, o) != i || load32(record + image_field::generation, o) != r.generation) return false;
  const std::int32_t n = load32s(record + image_field::node, o);
  if (n < 0 || n >= r.nextnode) return false;
  node v = {};
  std::memcpy(&v, record + image_at, page_size);
  convert_head(v, o);
  const int fault = check_node(r.h, v);
  if (fault != 0) note_fault(r.h, fault, n);
  return fault == 0;
}

int write_back(const restore& r, std::uint64_t offset, const void* bytes, std::size_t n) {
  return write_whole(r.h->file, offset, bytes, n) ? static_cast<int>(e_ok) : fail_write(r.h);
}

int flush_file(PSP* h) { return os().flush(h->file) == 0 ? static_cast<int>(e_ok) : fail_write(h); }

int write_images_back(const restore& r) {
  std::uint8_t record[image_record_size];
  std::uint32_t count = 0;
  while (read_record(r, count, record)) ++count;
  // A node may have come twice: the image from before everything is the first one.
  for (std::uint32_t i = count; i-- > 0;) {
    if (!read_record(r, i, record)) return e_io;
    const std::int32_t n = load32s(record + image_field::node, r.h->order);
    if (const int written = write_back(r, node_offset(n), record + image_at, page_size); written != e_ok) return written;
  }
  return e_ok;
}

int clear_unused_nodes(const restore& r) {
  static const std::uint8_t zeros[page_size] = {};
  const std::int64_t size = os().size(r.h->file);
  if (size < 0) return e_io;
  for (std::uint64_t at = node_offset(r.nextnode); at < static_cast<std::uint64_t>(size); at += page_size) {
    const std::uint64_t left = static_cast<std::uint64_t>(size) - at;
    const std::size_t n = left < page_size ? static_cast<std::size_t>(left) : page_size;
    if (const int written = write_back(r, at, zeros, n); written != e_ok) return written;
  }
  return e_ok;
}

// Nodes first and the header behind them, so that a restore cut short is begun again; the
// flag goes when all is on the disk.
int restore_operation(restore* r) {
  PSP* h = r->h;
  int result = read_restore_header(r);
  if (result == e_ok && !is_of_this_operation(*r)) result = e_foreign_file;
  if (result == e_ok) result = write_images_back(*r);
  if (result == e_ok) result = clear_unused_nodes(*r);
  if (result == e_ok) result = flush_file(h);
  if (result != e_ok) return result;
  store32(r->header + header_at::generation, r->generation - 1, h->order);
  result = write_back(*r, 0, r->header, header_size);
  if (result == e_ok) result = flush_file(h);
  const std::uint8_t clear[2] = {0, 0};
  if (result == e_ok) result = write_back(*r, flag_offset, clear, sizeof clear);
  return result == e_ok ? flush_file(h) : result;
}

// An existing file, or one made for it.
std::int32_t open_or_make(const char* path) {
  const open_how writing{true, false, false};
  std::int32_t file = os().open(path, writing);
  if (file >= 0 || os().exists(path) != 0) return file;
  file = os().create(path);
  if (file < 0 || os().put_in_place(file, path) == 0) return file;
  os().discard(file, path);
  return os().open(path, writing);
}

}  // namespace

void images_begin_operation(PSP* h) {
  image_journal* j = h->images;
  build_header(h, j->header);
  j->first_new = h->nextnode;
  j->records = 0;
  j->header_written = false;
  j->flushed = false;
}

int keep_image(PSP* h, std::int32_t n, const node* there) {
  image_journal* j = h->images;
  if (h->wrnest == 0 || n >= j->first_new) return e_ok;
  node v = {};
  if (there != nullptr) {
    std::memcpy(&v, there, page_size);
  } else {
    const int got = physical_read(h, node_offset(n), &v, page_size);
    if (got != e_ok) return got == e_not_found ? static_cast<int>(e_io) : got;
    convert_head(v, h->order);
  }
  // An image that a restore would take for the end of all must not be relied upon.
  if (const int fault = check_node(h, v); fault != 0) {
    note_fault(h, fault, n);
    return raise_damage(h, n);
  }
  convert_head(v, h->order);
  std::uint8_t record[image_record_size] = {};
  std::memcpy(record + image_at, &v, page_size);
  store32s(record + image_field::node, n, h->order);
  store32(record + image_field::number, j->records, h->order);
  store32(record + image_field::generation, h->generation, h->order);
  store32(record + image_field::crc, crc32c(0, record + 4, sizeof record - 4), h->order);
  if (j->out != nullptr) j->out(record, sizeof record);
  if (!write_whole(j->file, place_of_record(j->records), record, sizeof record)) return fail_write(h);
  ++j->records;
  j->flushed = false;
  return e_ok;
}

int images_before_write(PSP* h) {
  image_journal* j = h->images;
  if (j->flushed) return e_ok;
  if (!j->header_written) {
    if (const int written = write_image_header(h); written != e_ok) return written;
  }
  if (os().flush(j->file) != 0) return fail_write(h);
  j->flushed = true;
  return e_ok;
}

void images_let_go(PSP* h) {
  image_journal* j = h->images;
  if (j == nullptr) return;
  h->images = nullptr;
  os().close(j->file);
  os().release(j);
}

int dimages(PSP* h, const char* path, image_transform out) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  images_let_go(h);
  if (path == nullptr) return e_ok;
  if (h->rw == 1) return keep_status(h, e_read_only);
  if (h->intlevel < 4) return keep_status(h, e_level);
  if (h->journal != nullptr) return keep_status(h, e_bad_argument);
  const std::int32_t file = open_or_make(path);
  if (file < 0) return keep_status(h, e_not_found);
  if (os().identity(file) == os().identity(h->file)) {
    os().close(file);
    return keep_status(h, e_bad_argument);
  }
  auto* j = static_cast<image_journal*>(os().allocate(sizeof(image_journal)));
  if (j == nullptr) {
    os().close(file);
    return keep_status(h, e_no_memory);
  }
  j->file = file;
  j->out = out;
  j->flushed = true;   // no operation yet
  h->images = j;
  return e_ok;
}

int drestore(PSP* h, const char* path, image_transform in) {
  const one_thread alone;
  if (!is_open(h)) return e_bad_handle;
  const bool fit = is_exclusive(h) && h->rw == 2 && h->journal == nullptr && h->wrnest == 0 && h->rdnest == 0;
  if (path == nullptr || !fit || h->images != nullptr) return keep_status(h, e_bad_argument);
  h->fault_code = 0;
  if (const int flag = tstwrit(h); flag != e_write_flag) return keep_status(h, flag == e_ok ? e_trans_none : flag);
  restore r = {h, os().open(path, {false, false, false}), in, {}, 0, 0};
  if (r.file < 0) return keep_status(h, e_not_found);
  int result = restore_operation(&r);
  os().close(r.file);
  purgefile(h);
  h->lastkey = -1;
  mark_cursors_stale(h);
  if (result == e_ok) result = readhdr(h);
  return keep_status(h, result);
}

}  // namespace zvrdb::engine
