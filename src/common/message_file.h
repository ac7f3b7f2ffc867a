// The message file: one line a number, "NUMBER SEVERITY TEXT".
#pragma once

#include <cstdint>

namespace zvrdb::common {

struct Message {
  uint32_t number;
  char severity;  // I, W or E
  const char* text;
};

struct MessageTable {
  Message* rows;  // sorted by number
  uint32_t count;
  char* texts[2];  // the files that rows point into: the standard one, the override
};

// Reads the message file of the product and what the base directory's own file
// "messages/zvr.msg" puts in place of single numbers.  Without any file the table
// is empty: messages are then logged with number and inserts.
void load_messages(const char* base, MessageTable* table);
void free_messages(MessageTable* table);
const Message* find_message(const MessageTable& table, uint32_t number);

}  // namespace zvrdb::common
