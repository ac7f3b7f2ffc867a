#include "cmstatus/record_bodies.h"

#include <cstring>

namespace zvrdb::cmstatus {
namespace {

constexpr std::uint32_t status_bits = 8;

template <class Number>
Number load(const unsigned char* at) {
  Number number;
  std::memcpy(&number, at, sizeof number);
  return number;
}
template <class Number>
void store(unsigned char* at, Number number) {
  std::memcpy(at, &number, sizeof number);
}

bool holds_entry(const record_body& body, std::uint32_t offset) {
  return body.length >= target_entry_len && offset <= body.length - target_entry_len;
}

}  // namespace

std::int16_t find_cms(const record_body& body, std::uint16_t number, std::uint32_t* offset) {
  const std::uint32_t end = body.length / target_entry_len * target_entry_len;
  std::uint32_t place = end;
  for (std::uint32_t at = 0; at < end; at += target_entry_len) {
    const auto found = load<std::uint16_t>(body.bytes + at);
    if (found == number) {
      *offset = at;
      return DBE_OK;
    }
    if (found == free_entry && place == end) place = at;
  }
  *offset = place;
  return DBE_NOT_FOUND;
}

void free_entry_at(const record_body& body, std::uint32_t offset) {
  if (holds_entry(body, offset)) store(body.bytes + offset, free_entry);
}

bool store_entry(record_body* body, std::uint32_t offset, std::uint16_t number, std::uint8_t status,
                 const unsigned char* details) {
  if (body->room < target_entry_len || offset > body->room - target_entry_len) return false;
  unsigned char* entry = body->bytes + offset;
  if (!holds_entry(*body, offset)) {
    std::memset(entry, 0, target_entry_len);
    body->length = offset + target_entry_len;
  }
  store(entry, number);
  entry[entry_status] = status;
  std::memcpy(entry + entry_details, details, details_len);
  return true;
}

std::uint32_t find_target(const record_body& body, std::uint32_t trg_index) {
  const std::uint32_t entries = entries_of_file(body);
  std::uint32_t position = 0;
  while (position < entries && target_status_at(body, position).trg_index != trg_index) ++position;
  return position;
}

std::int16_t store_target(record_body* body, std::uint32_t trg_index, std::uint8_t status) {
  const std::uint32_t entries = entries_of_file(*body);
  const std::uint32_t position = find_target(*body, trg_index);
  const std::uint32_t offset = position * file_entry_len;
  if (body->room < file_entry_len || offset > body->room - file_entry_len) return DBE_BUFFER_TOO_SMALL;
  store(body->bytes + offset, trg_index << status_bits | status);
  if (position < entries) return DBE_RECORD_REPLACED;
  body->length = offset + file_entry_len;
  return DBE_OK;
}

void remove_target(record_body* body, std::uint32_t position) {
  const std::uint32_t entries = entries_of_file(*body);
  if (position >= entries) return;
  unsigned char* entry = body->bytes + std::size_t{position} * file_entry_len;
  std::memmove(entry, entry + file_entry_len, std::size_t{entries - position - 1} * file_entry_len);
  body->length = (entries - 1) * file_entry_len;
}

}  // namespace zvrdb::cmstatus
