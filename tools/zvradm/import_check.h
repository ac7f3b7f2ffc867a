// Whether lines can be imported, found out before anything is stored: their fields, and
// the change files and targets that they name.
#pragma once

#include <set>
#include <string>

#include "record_put.h"

namespace zvradm {

class import_check {
 public:
  explicit import_check(void* task) : task_(task), writer_(task) {}
  // A record that the same import stores, so that others may name it.
  void will_be_stored(const record_type& type, const json& object);
  // Throws field_fault.
  void check(const record_type& type, const json& object);

 private:
  bool target_known(const json& name) const;
  bool change_file_known(const json& name) const;

  void* task_;
  record_writer writer_;
  std::set<std::string> targets_, change_files_;  // as JSON text
};

}  // namespace zvradm
