// The users that older targets list.
#pragma once

#include "migration/conversion.h"
#include "migration/new_files.h"

namespace zvrdb::migration {

// What the targets' records tell of users, gathered so that each user's record is written
// once: a name with a target's number, in the order of the targets.
class listed_users {
 public:
  explicit listed_users(const conversion& run) : run_(run) {}
  ~listed_users();
  listed_users(const listed_users&) = delete;
  listed_users& operator=(const listed_users&) = delete;

  // Takes the users of an older target's record. 0; 8455 without memory (36355 logged).
  std::int16_t add(const unsigned char* older, std::uint32_t target_number);
  // Brings the record of each user up to date. 0 or 8455.
  std::int16_t put(new_file* users);
  std::uint32_t users() const { return users_; }
  std::uint32_t passed_over() const { return passed_over_; }

 private:
  struct listed {
    char name[16];
    std::uint32_t target_number;
  };
  std::int16_t keep(const listed& one);
  std::int16_t put_user(new_file* users, const listed* first, const listed* end);
  const conversion& run_;
  listed* list_ = nullptr;
  std::uint32_t count_ = 0;
  std::uint32_t room_ = 0;
  std::uint32_t users_ = 0;
  std::uint32_t passed_over_ = 0;
};

// Opens "users". When there is none, it is built like the other new files, without a flush
// before its end: a mark beside it, "users.begun", tells the next run to throw it away.
// end_users takes the mark away, once the file is on the disk and closed. 0 or 8455.
std::int16_t open_users(const conversion& run, new_file* users);
std::int16_t end_users(const conversion& run);

// Fills (`is_new`) and brings up to date a user's record of user_len bytes whose name is in
// place: the target joins the list, which becomes "all targets" when it is full. A target
// that the list has already is not added again.
inline constexpr std::uint32_t user_len = 1236;
void update_usr_rec(const conversion& run, unsigned char* record, const char* target, bool is_new);

}  // namespace zvrdb::migration
