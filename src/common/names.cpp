// Names of change files and requests as text, and steps over characters.
#include <wchar.h>

#include <cstdio>
#include <cstring>

#include "common/task_block.h"

namespace zvrdb::common {
namespace {

// The structured name: 11 token offsets, then 65 bytes of NUL-terminated tokens.  An end
// mark among the offsets ends the name; any other offset beyond the text is no token.
constexpr uint32_t kMaxTokens = 11;
constexpr uint32_t kTextOffset = kMaxTokens;
constexpr uint32_t kTextSize = 65;
constexpr uint32_t kNameSize = kTextOffset + kTextSize;
constexpr uint8_t kEndMark = 255;
constexpr uint8_t kNoToken = 255;  // the answer when no token is of the kind
static_assert(kNameSize == 76);

struct Token {
  const char* text;
  size_t length;
};

// Token i, cut at the end of the text; false when it is absent.
bool token_of(const unsigned char* name, uint32_t i, Token* out) {
  const uint8_t offset = name[i];
  if (offset >= kTextSize) return false;
  out->text = reinterpret_cast<const char*>(name) + kTextOffset + offset;
  out->length = strnlen(out->text, kTextSize - offset);
  return true;
}

bool is_word(Token token, const char* word) {
  return token.length == strlen(word) && memcmp(token.text, word, token.length) == 0;
}

constexpr size_t kUserWidth = 16;
constexpr size_t kDomainOffset = 16;
constexpr size_t kDomainWidth = 64;
constexpr size_t kSequenceOffset = 80;
constexpr size_t kRecursionOffset = 84;
constexpr size_t kFunctionOffset = 88;
constexpr size_t kFunctionWidth = 16;

// Bytes of the UTF-8 character that begins here; 1 for what is none.
int utf8_length(const char* position) {
  const auto byte = [position](int i) { return static_cast<unsigned char>(position[i]); };
  const unsigned first = byte(0);
  const int length = first < 0xC2 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 1;
  for (int i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 1;  // a NUL ends the look too
  // Longer than it need be, half of a pair, or beyond the last character.
  if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F)) return 1;
  if ((first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F)) return 1;
  return length;
}

int character_length(const char* position) {
  const Process& here = process();
  if (*position == '\0') return 0;
  if (here.characters == Process::Characters::bytes) return 1;
  if (here.characters == Process::Characters::utf8) return utf8_length(position);
  const locale_t before = uselocale(here.locale);
  mbstate_t state{};
  const size_t length = mbrlen(position, strnlen(position, MB_CUR_MAX), &state);
  uselocale(before);
  // What is no character of the locale is taken byte by byte.
  return length == 0 || length > 16 ? 1 : static_cast<int>(length);
}

}  // namespace
}  // namespace zvrdb::common

using namespace zvrdb::common;

void co_glob_to_dot(void* handle, char* out, const void* in) {
  (void)handle;
  if (out == nullptr) return;
  *out = '\0';
  if (in == nullptr) return;
  const auto* name = static_cast<const unsigned char*>(in);
  char text[CO_DOTTED_NAME];
  size_t length = 0;
  uint32_t printed = 0;
  for (uint32_t i = 0; i < kMaxTokens; ++i) {
    if (name[i] == kEndMark) break;
    Token token;
    if (!token_of(name, i, &token)) continue;
    // Overlapping tokens of a damaged name could be longer than any sound one.
    if (length + 1 + 2 * token.length >= sizeof text) break;
    if (printed++ > 0) text[length++] = '.';
    for (size_t k = 0; k < token.length; ++k) {
      if (token.text[k] == '.') text[length++] = '\\';
      text[length++] = token.text[k];
    }
  }
  memcpy(out, text, length);
  out[length] = '\0';
}

uint8_t co_find_subtree(void* handle, const void* in) {
  (void)handle;
  if (in == nullptr) return kNoToken;
  const auto* name = static_cast<const unsigned char*>(in);
  for (uint32_t i = 0; i < kMaxTokens; ++i) {
    if (name[i] == kEndMark) break;
    Token token;
    if (!token_of(name, i, &token)) continue;
    if (is_word(token, "REF") || is_word(token, "UPD") || is_word(token, "FIX"))
      return static_cast<uint8_t>(i);
  }
  return kNoToken;
}

void co_bld_reqid(void* handle, const void* request_key, char* out) {
  (void)handle;
  if (out == nullptr) return;
  *out = '\0';
  if (request_key == nullptr) return;
  const char* key = static_cast<const char*>(request_key);
  uint32_t sequence;
  uint16_t recursion;
  memcpy(&sequence, key + kSequenceOffset, sizeof sequence);
  memcpy(&recursion, key + kRecursionOffset, sizeof recursion);
  snprintf(out, CO_REQUEST_TEXT, "%.*s.%.*s.%lu.%hu.%.*s",
           static_cast<int>(strnlen(key + kDomainOffset, kDomainWidth)), key + kDomainOffset,
           static_cast<int>(strnlen(key, kUserWidth)), key, static_cast<unsigned long>(sequence), recursion,
           static_cast<int>(strnlen(key + kFunctionOffset, kFunctionWidth)), key + kFunctionOffset);
}

int co_mblen(void* handle, const char* position) {
  (void)handle;
  return position == nullptr ? 0 : character_length(position);
}

const char* co_next_char(void* handle, const char* position) {
  (void)handle;
  return position == nullptr ? nullptr : position + character_length(position);
}

const char* co_prev_char(void* handle, const char* start, const char* position) {
  (void)handle;
  if (start == nullptr || position == nullptr || position <= start) return start;
  if (process().characters == Process::Characters::bytes) return position - 1;
  // Characters can only be told apart from the front.
  const char* before = start;
  for (const char* c = start; c < position && *c != '\0'; c += character_length(c)) before = c;
  return before;
}

void co_strip_trailing_blanks(void* handle, char* text) {
  (void)handle;
  if (text == nullptr) return;
  size_t length = strlen(text);
  while (length > 0 && (text[length - 1] == ' ' || (text[length - 1] >= '\t' && text[length - 1] <= '\r')))
    text[--length] = '\0';
}
