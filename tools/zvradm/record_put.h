// Storing of one JSON record through the exported calls; used by put and import.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "record_json.h"
#include "record_keys.h"

namespace zvradm {

// One line as a JSON object.  Throws field_fault.
json parse_record_line(const std::string& line);

class record_writer {
 public:
  // With `keeps` text records are refused that their text would not give back.  What was
  // exported is taken all the same: a text may hold a line that its protocol has no use for.
  enum class texts { may_lose, keeps };
  explicit record_writer(void* task, texts text_rule = texts::may_lose)
      : task_(task), text_rule_(text_rule), buffer_(65535) {}
  // The code of db_put.  With update the record that is stored already gives the
  // fields that the object leaves out.  Throws field_fault.
  std::int16_t put(const record_type& type, const json& object, bool update = false);
  // Throws the field_fault that put would throw.
  void check(const record_type& type, const json& object) { (void)prepare(type, object, false); }
  // Whether a record of the object's key is stored.
  bool is_there(const record_type& type, const json& object);
  // The library gives a new user its last_seqno, whatever is put: 0, or that of the deleted
  // user of the name.  This raises it to the object's, and never lowers it.
  void raise_last_seqno(const json& object);
  // The last call in words: `put trg "OSLO"`.
  const std::string& what() const { return what_; }
  // What the last put was refused for, in a sentence: `put tg "West": DBE_NO_TARGET (8200): ...`.
  std::string refused(const record_type& type, std::int16_t code);

 private:
  // Fills the buffer; the record's keys.
  record_keys prepare(const record_type& type, const json& object, bool update);
  std::int16_t read_stored(const record_type& type, const record_keys& keys);

  void require_kept(const record_type& type, const json& object) const;

  void* task_;
  texts text_rule_;
  std::vector<unsigned char> buffer_;
  std::string what_;
};

}  // namespace zvradm
