// The walk over the tree of a record file that check, dump and summary share.  It finds
// what is wrong with the structure, and hands out every node and leaf entry that can be
// reached, in tree order.  No node is visited twice, so it ends on any bytes.
#pragma once

#include <string>
#include <vector>

#include "engine/report_format.h"

namespace zvrdb::engine::report {

// What a node was found to be.
enum class place : unsigned char { unseen, inner, leaf, free_node, log_node };

struct survey {
  report_reader reader;
  file_header header = {};
  segment_tables segments = {};
  std::vector<place> places;    // one a node that was allocated and lies in the file
  problem_fn tell = nullptr;    // may be null
  void* tell_context = nullptr;
  void (*progress)(void* context, std::uint64_t done, std::uint64_t all) = nullptr;
  void* progress_context = nullptr;
  std::uint64_t done = 0;       // nodes looked at
  std::uint64_t problems = 0;
};

// Opens the file and reads its header; false: reason is filled and nothing is open.
bool open_survey(const char* path, survey* s, std::string* reason);
void close_survey(survey* s);

void tell_problem(survey* s, std::int64_t node, std::string path, std::string text);
void tell_note(survey* s, std::int64_t node, std::string path, std::string text);
void count_node(survey* s);

// The number names a node that was allocated and lies in the file.
bool in_range(const survey& s, std::int32_t number);
// Marks the node as found; false when it was found before.
bool claim(survey* s, std::int32_t number, place what);

// Either function may be null.  entry_fn stops the walk by returning false.
struct visitor {
  void (*node_fn)(void* context, const node& at, int used) = nullptr;
  bool (*entry_fn)(void* context, const node& leaf, const entry& found) = nullptr;
  void* context = nullptr;
};
// All trees, one after the other.
void walk_tree(survey* s, const visitor& v);

// What lies behind the entries: the rest of the node is zero and `room` tells its length.
void check_tail(survey* s, const node& n, int used, const std::string& path);

}  // namespace zvrdb::engine::report
