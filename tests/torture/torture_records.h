// The things of the kill torture in the database, by exported calls alone: each is a
// record, or several, whose every byte follows from its version.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/cf_names.h"
#include "torture/torture_model.h"

namespace torture {

// Records that no worker changes: what pairs and requests refer to.
inline constexpr unsigned status_targets = 10, status_files = 12;
static_assert(status_targets * status_files / workers == things[static_cast<unsigned>(Kind::pair)]);

// The lowest bit of a target's version chooses one of two names.
std::string target_name(unsigned worker, unsigned index, std::uint32_t version);
zvrtest::CfName change_file_name(unsigned worker, unsigned index);
std::string status_target(unsigned worker, unsigned index);  // of a pair
zvrtest::CfName status_file(unsigned worker, unsigned index);
std::string request_user(unsigned worker);
std::uint32_t request_number(unsigned index);

// Answer of a put of a thing that is not there.
int answer_of_first_put(Kind kind);

// The records that nobody changes.  0 or the first other code than 8196.
int put_base_records(void* task);

// As db_put and db_del of the thing's record; a request is put record by record and
// deleted as a tree.  base_version: of the target that the thing hangs on.
int put_thing(void* task, unsigned worker, Thing thing, std::uint32_t version, std::uint32_t base_version = 0);
int del_thing(void* task, unsigned worker, Thing thing, std::uint32_t version, std::uint32_t base_version = 0);

// What the database has of a thing.
struct Found {
  std::uint32_t version;  // 0: nothing
  std::string fault;      // other than "": neither a whole thing nor none
};
Found find_thing(void* task, unsigned worker, Thing thing);

// Names of all targets, change files in dotted form, requests as "user number".
std::vector<std::string> all_targets(void* task, std::string* fault);
// Pairs on all targets, whoever has their numbers.
unsigned all_pairs(void* task, std::string* fault);
std::vector<std::string> all_change_files(void* task, std::string* fault);
std::vector<std::string> all_requests(void* task, const std::string& user, std::string* fault);  // "*": of all

}  // namespace torture
