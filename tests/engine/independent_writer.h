// Builds whole record files in memory, byte by byte, for either byte order.  It shares
// no code and no constant with the engine, so a file that both agree on is right, and a
// mistake would have to be made twice.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zvrdb::test {

// One value of the tree.  The writer cuts its data in pieces and sorts the pieces.
struct tree_entry {
  int key;                // key number, 1 to 20
  std::string value;      // key value as it stands in the file
  std::int32_t rec;       // record number
  std::string data;
  bool removed = false;   // laid out, then taken away: its leaf and separators stay as they were
};

struct log_record {
  int type;
  std::string entry;      // leaf form without the length byte; empty for none
};

struct log_chain {
  int owner_slot = 0;
  std::vector<log_record> records = {};
};

struct file_recipe {
  bool big_endian = false;
  std::uint32_t generation = 7;
  std::map<int, int> key_types = {};      // application keys 1 to 15
  std::vector<tree_entry> entries = {};
  int leaf_limit = 1006;               // bytes of entries that a leaf may take
  int inner_limit = 1006;              // the same for an inner node
  unsigned scatter_seed = 0;           // 0: nodes numbered in tree order, else at random
  int free_nodes = 0;
  int spare_nodes = 5;                 // nodes on disk that were never used
  std::int32_t next_record = 0;        // 0: one above the highest number in use
  std::string information = {};          // user information, at most 100 bytes
  std::optional<log_chain> transaction = {};
  std::vector<log_chain> kept = {};         // the first one heads the list
  bool write_flag = false;
};

// What the writer decided, for tests that look into the file.
struct file_layout {
  std::vector<unsigned char> bytes;
  int depth = 0;
  int leaves = 0;
  int tree_nodes = 0;
  int next_node = 0;
};

file_layout build_file(const file_recipe& recipe);

// ---- Values in a file's byte order
std::string bytes16(bool big_endian, std::uint16_t value);
std::string bytes32(bool big_endian, std::uint32_t value);
std::string bytes_float(bool big_endian, float value);
std::string bytes_double(bool big_endian, double value);

// ---- Records
struct record_field {
  char type;              // type character
  char key_type;          // 'N', 'S' or the number of the key type
  char duplicates;        // 'D', 'U', 'N'
  int key;                // key number, 0 for none
  std::string value;      // in file order; without the NUL of 'S' and the length of 'B'
};

std::string packed_record(bool big_endian, const std::vector<record_field>& fields, unsigned char record_type = 0);
// Key value of a field as it stands in an entry.
std::string key_value(const record_field& field);
// Adds the body and one entry for each keyed field.
void add_record(file_recipe* recipe, std::int32_t rec, const std::vector<record_field>& fields);
void add_free_number(file_recipe* recipe, std::int32_t rec);
// A record lock on the entry (key, value, rec) held by the slot.
void add_lock(file_recipe* recipe, int key, const std::string& value, std::int32_t rec, int slot);
// Leaf form, without the length byte, of the one piece of an entry, for log records.
std::string leaf_form(bool big_endian, const tree_entry& entry, int piece_byte = 0x80);

void write_file(const std::string& path, const std::vector<unsigned char>& bytes);
std::vector<unsigned char> read_file(const std::string& path);

}  // namespace zvrdb::test
