// Check, dump and summary of a record file, as functions with callbacks.  None of
// them changes the file; each survives any bytes whatever: bounded in time, memory
// and depth, never a read out of bounds.  They may run beside live users: the file is
// read under a reader byte when it can be had (a writer then waits for the report to
// end), else as it lies, which the check tells in a note.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine.h"

namespace zvrdb::engine {

enum class report_outcome { sound, problems, unreadable };

struct problem {
  std::int64_t node;    // node number, -1 for the header
  std::string path;     // how the walk came there, e.g. "root 7 > child 3 > leaf 12"
  std::string text;     // what is wrong and, where it helps, what was expected
  bool note = false;    // remarkable but legal; a note alone leaves the file sound
};

struct check_options {
  bool deep = false;    // also every record body against its key entries, free numbers, log chains
  void (*progress)(void* context, std::uint64_t done, std::uint64_t all) = nullptr;
  void* progress_context = nullptr;
  // The key table that the file is opened with, or null.  With the segment tables in it the
  // values of composite keys and their order are checked too; the file doesn't tell them.
  const key_entry* keys = nullptr;
};

using problem_fn = void (*)(void* context, const problem&);
// Notes are told in deep checks only.  reason: why the file could not be read, when the
// outcome is unreadable.
report_outcome verify_file(const char* path, const check_options&, problem_fn, void* context, std::string* reason);

struct file_header {
  std::uint32_t generation;
  bool little_endian;
  std::int32_t root, depth, nextnode, nextrec, extent, freenode, freerecs, reccount, infolen, transhead, savedhead;
  std::array<std::uint8_t, 22> key_types;
  std::array<std::uint8_t, 22> key_trees;     // of keys 1 to 22: the tree they lie in, 0 the shared one
  std::array<std::uint8_t, 20> tree_depths;   // of trees 1 to 20, 0 for none
  std::array<std::int32_t, 20> tree_roots;
  bool write_flag;      // write-in-progress flag set
  std::uint64_t size;   // bytes of the file
  const char* journal_note;   // what its journal means to who looks at the file alone; null: nothing
};

struct dump_entry {
  int key;                            // key number
  std::vector<unsigned char> value;   // key value, as it lies in the file
  std::int32_t rec;
  int piece;
  bool last;
  std::vector<unsigned char> data;
};

// header_fn once, then entry_fn for each leaf entry in tree order, one tree after the other
// where there are more than the shared one, the one with the record bodies last; either
// function may stop the walk by returning false.
report_outcome dump_file(const char* path, bool (*header_fn)(void*, const file_header&),
                         bool (*entry_fn)(void*, const dump_entry&), void* context, std::string* reason);

struct file_summary {
  file_header header;
  std::uint64_t inner_nodes, leaves, empty_leaves, free_nodes, log_nodes, unused_nodes, unreachable_nodes;
  std::uint64_t trees;                            // the shared one among them
  std::uint64_t records, free_numbers, locks;
  double leaf_fill, inner_fill;                   // 0 to 1, mean share of the entry area in use
  std::array<std::uint64_t, 22> entries_by_key, bytes_by_key;
};
report_outcome summarize_file(const char* path, file_summary*, std::string* reason);

}  // namespace zvrdb::engine
