#include "engine/header_page.h"

#include <cstring>

#include "engine/image_journal.h"
#include "engine/journal.h"
#include "engine/os_file.h"
#include "engine/separate_trees.h"
#include "engine/sharing.h"

namespace zvrdb::engine {

int physical_write(PSP* h, write_kind kind, std::uint64_t offset, const void* bytes, std::size_t n,
                   const byte_range& changed) {
  if (h->journal != nullptr) return journal_write(h, kind, offset, bytes, n, changed);
  if (keeps_images(h)) {
    if (const int ready = images_before_write(h); ready != e_ok) return ready;
  }
  const std::int64_t put = os().write_at(h->file, offset, bytes, n);
  if (put == static_cast<std::int64_t>(n)) return e_ok;
  h->errdetail = e_write;
  return e_write;
}

int physical_read(PSP* h, std::uint64_t offset, void* bytes, std::size_t n) {
  if (h->journal != nullptr && journal_read(h, offset, bytes, n)) return e_ok;
  const std::int64_t got = os().read_at(h->file, offset, bytes, n);
  if (got == static_cast<std::int64_t>(n)) return e_ok;
  h->errdetail = got < 0 ? e_not_found : e_short_read;
  if (got < 0 && h->journal != nullptr && h->wrnest > 0) h->journal->broken = e_io;
  return h->errdetail;
}

void plain_flush(PSP* h) {
  if (h->journal != nullptr) return;   // its end flushes the journal
  if (os().flush(h->file) == 0) return;
  // The system tells of lost pages once; the operation must not end well after that.
  h->flush_failed = 1;
  h->errdetail = e_write;
}

int checked_flush(PSP* h) {
  if (h->journal != nullptr) return e_ok;
  return os().flush(h->file) == 0 ? e_ok : e_not_found;
}

int raise_flag(PSP* h) {
  if (h->intlevel != 4 || !h->flagenabled || h->flagon || h->journal != nullptr) return e_ok;
  if (is_shared(h)) {
    const int locked = lockread(h, true);
    if (locked != e_ok) return locked;
  }
  std::uint8_t bytes[2];
  store16(bytes, flag_set, h->order);
  const int written = physical_write(h, write_kind::flag, flag_offset, bytes, sizeof bytes);
  if (written != e_ok) return written;
  h->flagon = 1;
  h->flagclear = 1;
  plain_flush(h);
  return e_ok;
}

namespace {
// With a journal the flag stands only after a death that the journal does not explain.
int clear_flag_that_stands(PSP* h) {
  std::uint8_t there[2];
  const int got = physical_read(h, flag_offset, there, sizeof there);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  if (there[0] == 0 && there[1] == 0) return e_ok;
  const std::uint8_t bytes[2] = {0, 0};
  const int written = write_through(h, flag_offset, bytes, sizeof bytes);
  if (written == e_ok && os().flush(h->file) != 0) return e_write;
  return written;
}
}  // namespace

int clrwrit(PSP* h) {
  if (!is_open(h)) return e_bad_handle;
  if (h->journal != nullptr) return clear_flag_that_stands(h);
  const std::uint8_t bytes[2] = {0, 0};
  const int written = physical_write(h, write_kind::flag, flag_offset, bytes, sizeof bytes);
  if (written != e_ok) return written;
  plain_flush(h);
  h->flagclear = 0;
  return e_ok;
}

int tstwrit(PSP* h) {
  std::uint8_t bytes[2];
  const int got = physical_read(h, flag_offset, bytes, sizeof bytes);
  if (got != e_ok) return got == e_not_found ? e_io : got;
  // A file of foreign order may bear the flag in the order of the machine that set it.
  const bool set = load_le16(bytes) == flag_set || load_be16(bytes) == flag_set;
  return set ? e_write_flag : e_ok;
}

void build_header(const PSP* h, std::uint8_t (&image)[header_size]) {
  std::memset(image, 0, sizeof image);
  const byte_order o = h->order;
  store32(image + header_at::generation, h->generation, o);
  store32(image + header_at::marker, 1, o);
  for (const magic_word& w : magic_words) store32(image + w.offset, w.letter, o);
  const struct {
    std::size_t offset;
    std::int32_t value;
  } fields[] = {
      {header_at::root, h->root},         {header_at::depth, h->depth},
      {header_at::nextnode, h->nextnode}, {header_at::nextrec, h->nextrec},
      {header_at::extent, h->extent},     {header_at::freenode, h->freenode},
      {header_at::freerecs, h->freerecs}, {header_at::reccount, h->reccount},
      {header_at::infolen, h->infolen},   {header_at::transhead, h->transhead},
      {header_at::savedhead, h->savedhead},
  };
  for (const auto& f : fields) store32s(image + f.offset, f.value, o);
  std::memcpy(image + header_at::info, h->info, sizeof h->info);
  std::memcpy(image + header_at::keytypes, h->keytypes, sizeof h->keytypes);
  std::memcpy(image + header_at::keytree, h->treetables, sizeof h->treetables);
}

int writehdr(PSP* h) {
  const int flagged = raise_flag(h);
  if (flagged != e_ok) return flagged;
  if (h->generation == 0) h->generation = 1;
  std::uint8_t image[header_size];
  build_header(h, image);
  const int written = physical_write(h, write_kind::header, 0, image, sizeof image);
  if (written == e_ok) h->hdrdirty = 0;
  return written;
}

int readhdr(PSP* h) {
  std::uint8_t image[header_size];
  const int got = physical_read(h, 0, image, sizeof image);
  return got != e_ok ? got : take_header(h, image);
}

int take_header(PSP* h, const std::uint8_t* image) {
  const byte_order o = order_of_marker(image + header_at::marker);
  for (const magic_word& w : magic_words)
    if (load32(image + w.offset, o) != w.letter) return e_foreign_file;
  h->order = o;
  h->generation = load32(image + header_at::generation, o);
  h->root = load32s(image + header_at::root, o);
  h->depth = load32s(image + header_at::depth, o);
  h->nextnode = load32s(image + header_at::nextnode, o);
  h->nextrec = load32s(image + header_at::nextrec, o);
  h->extent = load32s(image + header_at::extent, o);
  h->freenode = load32s(image + header_at::freenode, o);
  h->freerecs = load32s(image + header_at::freerecs, o);
  h->reccount = load32s(image + header_at::reccount, o);
  h->infolen = load32s(image + header_at::infolen, o);
  h->transhead = load32s(image + header_at::transhead, o);
  h->savedhead = load32s(image + header_at::savedhead, o);
  std::memset(h->info, 0, sizeof h->info);
  if (h->infolen < 1 || h->infolen > static_cast<std::int32_t>(info_size)) h->infolen = 0;
  std::memcpy(h->info, image + header_at::info, static_cast<std::size_t>(h->infolen));
  std::memcpy(h->keytypes, image + header_at::keytypes, sizeof h->keytypes);
  std::memcpy(h->treetables, image + header_at::keytree, sizeof h->treetables);
  look_for_trees(h);
  h->hdrdirty = 0;
  return e_ok;
}

std::uint32_t read_generation(PSP* h) {
  std::uint8_t bytes[4];
  if (physical_read(h, header_at::generation, bytes, sizeof bytes) != e_ok) return 0;
  return load32(bytes, h->order);
}

int header_changed(PSP* h) {
  if (h->intlevel >= 1 && h->intlevel <= 3) return writehdr(h);
  h->hdrdirty = 1;
  return e_ok;
}

}  // namespace zvrdb::engine
