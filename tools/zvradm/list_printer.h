// Where the records of a list go, one at a time: JSON lines, or rows of one table.
#pragma once

#include <functional>

#include "record_table.h"

namespace zvradm {

struct list_form {
  std::uint16_t length = 0;  // bytes of each record
  bool words = false;
  bool as_table = false;
};

class list_printer {
 public:
  list_printer(const record_type& type, const list_form& form)
      : type_(type), form_(form), table_(record_table(type, form.length)) {}
  // task: for what a table looks up beside the record; may be null.
  void add(void* task, std::span<const unsigned char> record);
  void end() const;

 private:
  void fill_server(void* task, std::span<const unsigned char> record, std::vector<std::string>& row) const;

  const record_type& type_;
  list_form form_;
  table table_;
};

}  // namespace zvradm
