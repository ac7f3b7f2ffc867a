// The records of "cmstatus": their keys, and their images in memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cmstatus/record_bodies.h"
#include "memory/codes.h"
#include "memory/dbr_tcb.h"

namespace zvrdb::cmstatus {

// Key in host order; a record's image begins with it and the body follows.
enum record_kind : std::uint32_t { by_trg = 1, by_cat = 2 };
struct record_key {
  std::uint32_t kind;
  std::uint32_t number;  // of the target or the change file
  std::uint32_t recnum;
};
static_assert(sizeof(record_key) == 12);
inline constexpr std::uint32_t key_len = sizeof(record_key);

// A work area for one image, whose bytes are not cleared but for the key; given back at the
// end of its scope.
class image_area {
 public:
  // Room for an image of `longest` bytes and one more entry: a record that fills the
  // area, with pairs of targets that are gone, can still grow by that.
  image_area(void* task, const char* tag, std::uint32_t longest, std::uint32_t entry_len);
  ~image_area();
  image_area(const image_area&) = delete;
  image_area& operator=(const image_area&) = delete;
  // False (36355 logged): no memory.
  bool there() const { return bytes_ != nullptr; }
  unsigned char* bytes() const { return bytes_; }
  std::uint32_t longest() const { return longest_; }
  record_body body{};  // empty at first

 private:
  void* task_;
  unsigned char* bytes_;
  std::uint32_t longest_;
};

// Areas for the longest images that are read: for a target by the size of the catalog, for
// a change file by the number of targets, with `more` bytes beside.  A longer image is
// refused with 8224.
image_area target_area(void* task, const char* tag);
image_area file_area(void* task, const char* tag, std::uint32_t more = 0);

// Each of these works on the record of this kind and number.
//
// Places the engine on it.  0, 8194 or 8455.
std::int16_t locate(void* task, record_kind kind, std::uint32_t number);
// Reads it where locate has placed the engine.  0, 8224 or 8455, also without memory.
std::int16_t read_image(void* task, image_area* image);
// Codes of db_write, db_update and db_delete.
std::int16_t write_image(void* task, record_kind kind, std::uint32_t number, const image_area& image);
std::int16_t update_image(void* task, record_kind kind, std::uint32_t number, const image_area& image);
std::int16_t delete_record(void* task, record_kind kind, std::uint32_t number);

// Ends the transaction of an operation on both sides: commits on 0 and 8196, rolls back
// on any other code.  The code, or that of a commit that failed.
std::int16_t end_change(void* task, std::int16_t rc);

}  // namespace zvrdb::cmstatus
