// Nodes between the file and memory: the process-wide buffers, the cache of blocks,
// and the order in which changes reach the disk.
//
// One thread at a time in the engine: nothing here is guarded.
#pragma once

#include <cstdint>

#include "engine/format.h"
#include "engine/journal_file.h"
#include "engine/psp.h"

namespace zvrdb::engine {

// A node being worked on, and whose it is.
struct node_buffer {
  node image;
  PSP* owner;           // null when empty
  std::int32_t file;    // -1 when empty
  std::int32_t number;  // -1 when empty
};

extern node_buffer main_buffer;     // the leaf at hand: all searches and changes
extern node_buffer second_buffer;   // the new node of a split; free nodes read
extern node_buffer third_buffer;    // log nodes during a roll-back
extern node_buffer log_buffer;      // the log node being filled
extern node_buffer scratch_buffer;  // the empty root

inline bool holds(const node_buffer& b, const PSP* h, std::int32_t n) {
  return b.owner == h && b.file == h->file && b.number == n && n >= 0;
}
inline void clear_tag(node_buffer& b) {
  b.owner = nullptr;
  b.file = -1;
  b.number = -1;
}
void set_tag(node_buffer& b, PSP* h, std::int32_t n);
void clear_buffer(node_buffer& b);   // all bytes zero, no tag

// Makes the cache if it isn't there.  0, e_no_memory.
int cache_ready();

// Makes node n current (h->current): in the buffer or, with none, in a cache block,
// where it stays until the next call.
// 0, e_unallocated_node, e_negative_node, e_io (no cache), e_not_found (read failed),
// e_short_read, e_damaged (the bytes are no node).
int nodeget(PSP* h, node_buffer* b, std::int32_t n);
// A tree node where it lies in the cache, and where its entries begin.  Good until the next call
// that reads a node.
struct node_view {
  const node* image;
  const std::uint16_t* offsets;   // of its `count` entries
  std::int32_t number;
  std::uint32_t where;            // in the cache, for a later view of the same node
  std::uint32_t version;          // of the image there
};
// As nodeget, without a buffer and without h->current.  e_damaged also for what is no tree node.
// `where` may tell the place of an earlier view, or anything.
int view_node(PSP* h, std::int32_t n, node_view* out, std::uint32_t where = 0);
// An image in the cache.
struct node_stamp {
  std::uint32_t where, version;
};
// Whether the node is still there and as it was.
bool is_unchanged(const PSP* h, node_stamp s);
// How often a node of any file changed, or may have, as far as this process knows.  What was seen
// at a number that is not below h->nodes_changed has not changed since.
std::uint64_t node_changes();
// Nodes of the file may be others now.
void note_change(PSP* h);

// Where a search ended: an entry in a leaf that the cache held then, and has not changed since.
struct hinted_entry {
  const node* image;
  std::int32_t number;
  std::uint32_t where;
  std::uint32_t version;
  int index;
  int offset;
  bool first;   // as it was told
  bool sure;    // no node of any file changed since
};
// What is known of the search with that hash.  It may be another search of the same hash.
bool recall_entry(PSP* h, std::uint64_t hash, hinted_entry* out);
// The search ended in the node viewed last, at an entry of the record whose body has that place
// among those that are kept.
void remember_entry(std::uint64_t hash, int index, int offset, bool first, std::uint32_t body);

// Writes a node through the cache, as the integrity level has it.
// 0, e_damaged (room or count negative, number above extent), e_io, e_write.
int nodeput(PSP* h, node_buffer& b, std::int32_t n);
// For log nodes: directly to and from the file, past the cache.
int nodeputd(PSP* h, node_buffer& b, std::int32_t n);
int nodegetd(PSP* h, node_buffer& b, std::int32_t n);

// The cache needs not keep a node that was written so.
void forget_node(PSP* h, std::int32_t n);

// Blocks that the cache has.
unsigned cache_blocks();
unsigned nodes_in_cache();
// The head of a node from the file's order to the machine's or back.
void convert_head(node& v, byte_order order);

// Measures of the work, for tests: blocks that were looked at for what must be written, and nodes
// that were sought in the cache by their number.
extern std::uint64_t blocks_looked_at;
extern std::uint64_t nodes_looked_up;

// Header if dirty, each dirty block, flush of the system.  The first error.
int flushfile(PSP* h);
// At close: as flushfile for blocks alone, and forgets them.  The first error.
int dropfile(PSP* h);
// Forgets all blocks and buffers of the file without writing.
void purgefile(PSP* h);
// The same for memory that an open block lay in: nothing in it is believed.
void purge_memory_of(PSP* h);
// What a change says of a node, for the block that holds it as it was before, and for a node that
// is new to the handle.
void renew_cached_node(PSP* h, const node_change& c);
// What the buffers hold of the file is old.
void forget_buffers(PSP* h);
// Forgets everything: for a forked child.
void forget_cache();

// Whether the bytes of a tree node can be walked: every length and number in bounds.
bool node_is_sound(const PSP* h, const node& v);
// The same for one leaf entry of which `left` bytes may be looked at.
bool leaf_entry_is_sound(const PSP* h, const std::uint8_t* entry, int left);

}  // namespace zvrdb::engine
