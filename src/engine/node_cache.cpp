#include "engine/node_cache.h"

#include <cstring>
#include <utility>

#include "engine/cached_reads.h"
#include "engine/companion.h"
#include "engine/header_page.h"
#include "engine/image_journal.h"
#include "engine/journal.h"
#include "engine/kept_bodies.h"
#include "engine/key_compare.h"
#include "engine/memory_lines.h"
#include "engine/one_thread.h"
#include "engine/open_handles.h"
#include "engine/os_file.h"
#include "engine/sharing.h"

namespace zvrdb::engine {

node_buffer main_buffer{{}, nullptr, -1, -1};
node_buffer second_buffer{{}, nullptr, -1, -1};
node_buffer third_buffer{{}, nullptr, -1, -1};
node_buffer log_buffer{{}, nullptr, -1, -1};
node_buffer scratch_buffer{{}, nullptr, -1, -1};

std::uint64_t blocks_looked_at = 0;
std::uint64_t nodes_looked_up = 0;

namespace {

using entry_offsets = std::uint16_t[max_entries + 1];

// A node and what is known of it, in one piece: what is looked at together lies together.
struct block {
  PSP* owner;           // null when free
  std::int32_t file;    // -1 when free
  std::int32_t number;  // -1 when free
  bool dirty;           // the node must still be written
  bool indexed;         // its offsets are those of the image
  std::uint32_t version;  // another number for each image that was here
  std::uint64_t moved;  // when it came to the front last
  block* newer;         // neighbours in order of use
  block* older;
  block* chain;         // next of the same hash
  std::uint32_t imaged; // generation in which its before-image was kept
  byte_range changed;   // while it is dirty: entries in which it may differ from what was there before
  entry_offsets offsets;
  node image;
};

// Where a search ended.
struct leaf_hint {
  std::uint32_t version;    // of the block then
  std::uint32_t changes;    // of all nodes then, its lower half
  std::uint64_t block : 21; // its place and one more; 0: none
  std::uint64_t offset : 10;
  std::uint64_t index : 8;
  std::uint64_t first : 1;  // of its key value
  std::uint64_t tag : 7;    // of the search's hash
  std::uint64_t body : 17;  // where the body of its record is kept, its lower bits
};
static_assert(max_entries < 1 << 8 && entry_area < 1 << 10);
constexpr unsigned hints_a_set = memory_line / sizeof(leaf_hint);   // looked at together
static_assert(hints_a_set == 4);
constexpr unsigned hints_a_block = 4;

// Blocks in order of use, most recent first, and a hash table over them.
struct block_cache {
  block* blocks = nullptr;
  void* hint_memory = nullptr;
  leaf_hint* hints = nullptr;   // sets, each in a line of memory
  block** table = nullptr;
  block* viewed = nullptr;
  block* newest = nullptr;
  block* oldest = nullptr;
  unsigned count = 0;
  unsigned used = 0;            // blocks from here on never held a node, and are in no list
  unsigned owned = 0;           // blocks that hold a node
  unsigned table_mask = 0;
  unsigned hint_mask = 0;
  unsigned wanted = 10;
  std::uint64_t moves = 0;
  std::uint32_t versions = 0;
  std::uint64_t changes = 0;   // of nodes, as far as this process knows
};
block_cache cache;

node_buffer* const tagged_buffers[] = {&main_buffer, &second_buffer, &third_buffer, &log_buffer, &scratch_buffer};

unsigned hash_of(const PSP* h, std::int32_t file, std::int32_t n) {
  const auto address = reinterpret_cast<std::uintptr_t>(h);
  std::uint64_t v = address ^ (static_cast<std::uint64_t>(static_cast<std::uint32_t>(n)) << 20) ^
                    static_cast<std::uint32_t>(file);
  v *= 0x9E3779B97F4A7C15u;
  return static_cast<unsigned>(v >> 40) & cache.table_mask;
}

void release_cache() {
  os().release(cache.blocks);
  os().release(cache.hint_memory);
  os().release(cache.table);
  release_kept_bodies();
  const unsigned wanted = cache.wanted;
  const std::uint64_t changes = cache.changes;
  cache = block_cache{};
  cache.wanted = wanted;
  cache.changes = changes;
}

void unchain(block* b) {
  if (b->owner == nullptr) return;
  block** link = &cache.table[hash_of(b->owner, b->file, b->number)];
  while (*link != b) link = &(*link)->chain;
  *link = b->chain;
}

void set_dirty(block* b, bool dirty) {
  if (b->dirty == dirty) return;
  b->dirty = dirty;
  b->owner->dirtyblocks += dirty ? 1 : -1;
}

void free_block(block* b) {
  if (b->owner == nullptr) return;
  set_dirty(b, false);
  unchain(b);
  --b->owner->blocks;
  --cache.owned;
  b->owner = nullptr;
  b->file = -1;
  b->number = -1;
}

// Numbers that begin anew would let old ones be taken for new.
void forget_hints() {
  for (unsigned i = 0; i <= cache.hint_mask; ++i) cache.hints[i] = {};
}

// Another image is there: what was known of the one before is of no use.
void new_image(block* b) {
  b->indexed = false;
  b->version = ++cache.versions;
  if (cache.versions == 0) {
    forget_hints();
    forget_kept_bodies();
  }
}

void own_block(block* b, PSP* h, std::int32_t n) {
  if (b->owner == h && b->file == h->file && b->number == n) return;
  free_block(b);
  ++h->blocks;
  ++cache.owned;
  b->owner = h;
  b->file = h->file;
  b->number = n;
  b->imaged = 0;
  new_image(b);
  block** head = &cache.table[hash_of(h, h->file, n)];
  b->chain = *head;
  *head = b;
}

void move_to_front(block* b) {
  if (cache.newest == b) return;
  b->newer->older = b->older;
  if (b->older != nullptr) {
    b->older->newer = b->newer;
  } else {
    cache.oldest = b->newer;
  }
  b->newer = nullptr;
  b->older = cache.newest;
  cache.newest->newer = b;
  cache.newest = b;
}

void move_to_back(block* b) {
  if (cache.oldest == b) return;
  b->older->newer = b->newer;
  (b->newer != nullptr ? b->newer->older : cache.newest) = b->older;
  b->older = nullptr;
  b->newer = cache.oldest;
  cache.oldest->older = b;
  cache.oldest = b;
}

// The block to be used next for a node that is in none: one that was let go of, one never used,
// else the oldest.
block* spare_block() {
  if (cache.oldest != nullptr && cache.oldest->owner == nullptr) return cache.oldest;
  if (cache.used == cache.count) return cache.oldest;
  block* b = cache.blocks + cache.used++;
  b->file = -1;
  b->number = -1;
  b->older = cache.newest;
  (cache.newest != nullptr ? cache.newest->newer : cache.oldest) = b;
  cache.newest = b;
  return b;
}

void take_to_front(block* b) {
  move_to_front(b);
  b->moved = ++cache.moves;
}

// In a big cache a block that came to the front not long ago stays where it is: moving it
// would touch its neighbours in memory for nothing.
void note_use(block* b) {
  constexpr unsigned big = 256;
  if (cache.count >= big && cache.moves - b->moved < cache.count / 4) return;
  take_to_front(b);
}

block* find_block(const PSP* h, std::int32_t n) {
  for (block* b = cache.table[hash_of(h, h->file, n)]; b != nullptr; b = b->chain)
    if (b->owner == h && b->file == h->file && b->number == n) return b;
  return nullptr;
}

int write_image(PSP* h, node& v, std::int32_t n, const byte_range& changed = all_entries) {
  if (n < 0 || n > max_node) return e_write;
  const int flagged = raise_flag(h);
  if (flagged != e_ok) return flagged;
  convert_head(v, h->order);
  const int written = physical_write(h, write_kind::node, node_offset(n), &v, page_size, changed);
  convert_head(v, h->order);
  return written;
}

int write_block(block* b) {
  const int written = write_image(b->owner, b->image, b->number, b->changed);
  if (written == e_ok) set_dirty(b, false);
  return written;
}

int read_image(PSP* h, node& v, std::int32_t n) {
  const int got = physical_read(h, node_offset(n), &v, page_size);
  if (got != e_ok) return got;
  convert_head(v, h->order);
  if (is_tree_level(v.level) && !node_is_sound(h, v)) return raise_damage(h, n);
  return e_ok;
}

// Makes room in a block: a changed node goes out first, under its own handle.
int evict(block* b) {
  if (!b->dirty) return e_ok;
  PSP* owner = b->owner;
  if (is_shared(owner) && owner->wrnest == 0) {
    // Left over from an operation that failed.  Its locks are gone and its flag stands
    // on the disk, so the file is known as damaged: not one byte more may be written.
    // What was read of the node is lost with it.
    set_dirty(b, false);
    note_change(owner);
    return e_ok;
  }
  return write_block(b);
}

// The block of node n, moved to the front; `hit` tells whether it holds the node.
int take_block(PSP* h, std::int32_t n, block** out, bool* hit) {
  block* b = find_block(h, n);
  *hit = b != nullptr;
  if (b == nullptr) {
    if (is_quiet(h)) {
      if (const int locked = lock_quiet_read(h); locked != e_ok) return locked;
    }
    b = spare_block();
    const int evicted = evict(b);
    if (evicted != e_ok) return evicted;
    take_to_front(b);
  } else {
    note_use(b);
  }
  *out = b;
  return e_ok;
}

bool unlocked_and_shared(const PSP* h) {
  return is_shared(h) && h->arbiter == 'U' && h->locklevel == 1 && !is_quiet(h);
}

void check_generation_between_operations(PSP* h) {
  if (unlocked_and_shared(h) && gencheck_lightly(h) != 0) purgefile(h);
}

void zero_spare(node& v) { std::memset(v.entries + entry_area, 0, node_spare); }

// A buffer that holds an older state of the node must not be taken for it.
void forget_other_copies(const node_buffer& b, const PSP* h, std::int32_t n) {
  for (node_buffer* other : tagged_buffers)
    if (other != &b && holds(*other, h, n)) clear_tag(*other);
}

// What writing a node over the one in a block changes, together with what was changed already.
// The journal alone asks for it.
byte_range change_of(const PSP* h, const block* b, const node& now) {
  if (h->journal == nullptr) return all_entries;
  const byte_range differing = differing_entries(reinterpret_cast<const std::uint8_t*>(&b->image),
                                                 reinterpret_cast<const std::uint8_t*>(&now));
  return b->dirty ? unite(differing, b->changed) : differing;
}

void drop_cached(PSP* h, std::int32_t n) {
  block* b = find_block(h, n);
  if (b == nullptr) return;
  free_block(b);
  move_to_back(b);
}

bool entry_is_sound(const PSP* h, const std::uint8_t* entry, int left, bool inner) {
  const int length = entry[entry_at::length];
  if (length < entry_head_size - 1 || length + 1 > left) return false;
  if (!good_key_number(entry[entry_at::key])) return false;
  const int rest = length + 1 - entry_head_size;
  const int k = key_value_length(type_of_key(h, entry[entry_at::key]), entry + entry_at::value, rest);
  if (k < 0 || k > max_key_value) return false;
  if (!inner) return length + 1 <= max_entry_size;
  return rest == k + 4 && load32s(entry + entry_head_size + k, h->order) >= 0;
}

}  // namespace

std::uint64_t node_changes() { return cache.changes; }

void note_change(PSP* h) {
  h->nodes_changed = ++cache.changes;
  if (static_cast<std::uint32_t>(cache.changes) == 0 && cache.hints != nullptr) forget_hints();
}

bool is_unchanged(const PSP* h, node_stamp s) {
  if (s.where == 0 || s.where > cache.used) return false;
  const block& b = cache.blocks[s.where - 1];
  return b.version == s.version && b.owner == h && b.file == h->file;
}

void convert_head(node& v, byte_order order) {
  if (order == native_order) return;
  v.child0 = static_cast<std::int32_t>(swap_bytes(static_cast<std::uint32_t>(v.child0)));
  v.next = static_cast<std::int32_t>(swap_bytes(static_cast<std::uint32_t>(v.next)));
  v.prev = static_cast<std::int32_t>(swap_bytes(static_cast<std::uint32_t>(v.prev)));
  v.level = swap_bytes(v.level);
  v.count = swap_bytes(v.count);
  v.room = static_cast<std::int16_t>(swap_bytes(static_cast<std::uint16_t>(v.room)));
}

bool leaf_entry_is_sound(const PSP* h, const std::uint8_t* entry, int left) {
  return left >= entry_head_size && entry_is_sound(h, entry, left, false);
}

bool node_is_sound(const PSP* h, const node& v) {
  if (v.count > max_entries || v.room < 0 || v.room > entry_area || v.level >= max_depth) return false;
  const bool inner = v.level != 0;
  if (inner && v.child0 < 0) return false;
  int at = 0;
  int last = 0;
  for (int i = 0; i < v.count; ++i) {
    if (at >= entry_area || !entry_is_sound(h, v.entries + at, entry_area - at, inner)) return false;
    last = at;
    at += entry_size(v.entries + at);
  }
  if (at + v.room != entry_area) return false;
  // The ends of a node in order, and each step to a neighbour checked: so no walk along
  // a level can go round in circles.
  const std::uint8_t* first = v.entries;
  return last == 0 || !is_totally_ordered(type_of_key(h, first[entry_at::key])) ||
         compare_entries(h, first, v.entries + last) <= 0;
}

void set_tag(node_buffer& b, PSP* h, std::int32_t n) {
  b.owner = h;
  b.file = h->file;
  b.number = n;
}

void clear_buffer(node_buffer& b) {
  std::memset(&b.image, 0, sizeof b.image);
  clear_tag(b);
}

void set_cache_blocks(unsigned count) {
  const one_thread alone;
  cache.wanted = count;
  if (cache.blocks != nullptr && !any_open_handle()) release_cache();
}

int cache_ready() {
  if (cache.blocks != nullptr && (cache.count == cache.wanted || any_open_handle())) return e_ok;
  release_cache();
  const unsigned count = cache.wanted;
  if (count == 0) return e_ok;
  constexpr unsigned most_blocks = 1u << 20;
  if (count > most_blocks) return e_no_memory;
  unsigned table = 16;
  while (table < 2 * count) table *= 2;
  cache.blocks = static_cast<block*>(os().allocate(count * sizeof(block)));
  cache.table = static_cast<block**>(os().allocate(table * sizeof(block*)));
  cache.hint_memory = os().allocate(std::size_t{hints_a_block} * table * sizeof(leaf_hint) + memory_line);
  const int kept = make_kept_bodies(count);
  if (cache.blocks == nullptr || cache.table == nullptr || cache.hint_memory == nullptr || kept != e_ok) {
    release_cache();
    return e_no_memory;
  }
  cache.hints = at_a_line<leaf_hint>(cache.hint_memory);
  cache.count = count;
  cache.table_mask = table - 1;
  cache.hint_mask = hints_a_block * table - 1;
  return e_ok;
}

unsigned cache_blocks() { return cache.count; }

unsigned nodes_in_cache() { return cache.owned; }

namespace {
// Brings leaves behind (or before) one that was just read into the cache.  What stands in the way
// ends it: whoever needs that node meets it.
void read_ahead(PSP* h, const block* leaf, int count, bool backwards) {
  const std::int32_t detail = h->errdetail;
  for (; count > 0; --count) {
    const std::int32_t n = backwards ? leaf->image.prev : leaf->image.next;
    if (n < 0 || n >= h->nextnode || n > max_node) break;
    block* b = find_block(h, n);
    if (b == nullptr) {
      b = spare_block();
      if (b->dirty) break;
      free_block(b);
      if (physical_read(h, node_offset(n), &b->image, page_size) != e_ok) break;
      convert_head(b->image, h->order);
      if (b->image.level != 0 || !node_is_sound(h, b->image)) break;
      own_block(b, h, n);
      take_to_front(b);
    }
    leaf = b;
  }
  h->errdetail = detail;
}

// Brings tree nodes that lie beside one that was just read, while there are blocks that never
// held one.  Not into a small cache, where they would put nodes in use next in line to go.
void read_neighbours(PSP* h, std::int32_t n, unsigned count) {
  static std::uint8_t images[most_nodes_brought * page_size];
  static node v;
  constexpr unsigned small = 16 * most_nodes_brought;
  if (cache.count < small || cache.used == cache.count) return;
  if (h->journal != nullptr && h->journal->pages.count != 0) return;   // newer than the file
  const std::int32_t first = n & ~static_cast<std::int32_t>(count - 1);
  const std::int64_t got = os().read_at(h->file, node_offset(first), images, count * page_size);
  const std::int32_t behind = first + static_cast<std::int32_t>(got < 0 ? 0 : got / static_cast<std::int64_t>(page_size));
  for (std::int32_t i = first; i < behind && i < h->nextnode && i <= max_node && cache.used < cache.count; ++i) {
    std::memcpy(&v, images + static_cast<std::size_t>(i - first) * page_size, page_size);
    convert_head(v, h->order);
    if (!is_tree_level(v.level) || find_block(h, i) != nullptr || !node_is_sound(h, v)) continue;
    block* b = spare_block();
    std::memcpy(&b->image, &v, page_size);
    own_block(b, h, i);
  }
}

// The block that holds node n, which is read if need be.
int find_or_read(PSP* h, std::int32_t n, block** out) {
  ++nodes_looked_up;
  check_generation_between_operations(h);
  bool hit = false;
  if (const int taken = take_block(h, n, out, &hit); taken != e_ok || hit) return taken;
  free_block(*out);
  const int got = read_image(h, (*out)->image, n);
  if (got != e_ok) return got;
  own_block(*out, h, n);
  if (const unsigned nodes = nodes_to_bring(h); nodes > 1) {
    read_neighbours(h, n, nodes);
    take_to_front(*out);   // who asked for it looks at it next
  }
  if ((*out)->image.level != 0) return e_ok;
  if (const int ahead = take_leaves_ahead(h); ahead > 0) {
    read_ahead(h, *out, ahead, h->cached->backwards);
    take_to_front(*out);   // who asked for it looks at it next
  }
  return e_ok;
}

int check_number(const PSP* h, std::int32_t n) {
  if (n < 0) return e_negative_node;
  if (n >= h->nextnode || n > max_node) return e_unallocated_node;
  return cache.blocks == nullptr ? e_io : e_ok;
}

// A block's place as it is told outside: one more than its index.
std::uint32_t place_of(const block* b) { return static_cast<std::uint32_t>(b - cache.blocks) + 1; }

void show(block* b, node_view* out) {
  std::uint16_t* offsets = b->offsets;
  if (!b->indexed) {
    const node& v = b->image;
    int at = 0;
    for (int i = 0; i < v.count; ++i) {
      offsets[i] = static_cast<std::uint16_t>(at);
      at += entry_size(v.entries + at);
    }
    b->indexed = true;
  }
  cache.viewed = b;
  *out = {&b->image, offsets, b->number, place_of(b), b->version};
}

bool is_tree_node(const node& v) { return is_tree_level(v.level) && v.count <= max_entries; }
}  // namespace

int view_node(PSP* h, std::int32_t n, node_view* out, std::uint32_t where) {
  if (const int good = check_number(h, n); good != e_ok) return good;
  block* b = where != 0 && where <= cache.used ? cache.blocks + (where - 1) : nullptr;
  if (b != nullptr && b->owner == h && b->file == h->file && b->number == n) {
    note_use(b);
  } else if (const int got = find_or_read(h, n, &b); got != e_ok) {
    return got;
  }
  if (!is_tree_node(b->image)) return e_damaged;
  show(b, out);
  return e_ok;
}

namespace {
leaf_hint* hint_set(std::uint64_t hash) {
  return cache.hints + (hash & cache.hint_mask & ~std::uint64_t{hints_a_set - 1});
}
unsigned tag_of(std::uint64_t hash) { return static_cast<unsigned>(hash >> 57); }
}  // namespace

bool recall_entry(PSP* h, std::uint64_t hash, hinted_entry* out) {
  if (cache.blocks == nullptr) return false;
  const leaf_hint* set = hint_set(hash);
  for (unsigned i = 0; i < hints_a_set; ++i) {
    const leaf_hint hint = set[i];
    if (hint.block == 0 || hint.tag != tag_of(hash)) continue;
    block* b = cache.blocks + (hint.block - 1);
    out->image = &b->image;
    out->index = hint.index;
    out->offset = hint.offset;
    call_for(out->image->entries + out->offset, max_entry_size);
    expect_kept_body(hint.body);
    if (b->owner != h || b->file != h->file || b->version != hint.version) continue;
    note_use(b);
    out->number = b->number;
    out->where = hint.block;
    out->version = hint.version;
    out->first = hint.first != 0;
    out->sure = hint.changes == static_cast<std::uint32_t>(cache.changes);
    return true;
  }
  return false;
}

void remember_entry(std::uint64_t hash, int index, int offset, bool first, std::uint32_t body) {
  const block* b = cache.viewed;
  leaf_hint* set = hint_set(hash);
  leaf_hint* to = set + (hash >> 48) % hints_a_set;   // unless there is one that is of no use
  for (unsigned i = 0; i < hints_a_set; ++i) {
    const leaf_hint& hint = set[i];
    const bool stale = hint.block == 0 || cache.blocks[hint.block - 1].version != hint.version;
    if (stale || hint.tag == tag_of(hash)) to = set + i;
  }
  to->version = b->version;
  to->changes = static_cast<std::uint32_t>(cache.changes);
  to->block = place_of(b) & 0x1FFFFF;
  to->offset = static_cast<unsigned>(offset) & 0x3FF;
  to->index = static_cast<unsigned>(index) & 0xFF;
  to->first = first;
  to->tag = tag_of(hash) & 0x7F;
  to->body = body & 0x1FFFF;
}

int nodeget(PSP* h, node_buffer* b, std::int32_t n) {
  if (const int good = check_number(h, n); good != e_ok) return good;
  const bool trusted = b == &main_buffer || b == &third_buffer || b == &log_buffer;
  if (trusted && holds(*b, h, n)) {
    h->current = &b->image;
    return e_ok;
  }
  block* found = nullptr;
  if (const int got = find_or_read(h, n, &found); got != e_ok) return got;
  if (b == nullptr) {
    h->current = &found->image;
    return e_ok;
  }
  std::memcpy(&b->image, &found->image, page_size);
  zero_spare(b->image);
  set_tag(*b, h, n);
  h->current = &b->image;
  return e_ok;
}

int nodeput(PSP* h, node_buffer& b, std::int32_t n) {
  if (b.image.room < 0 || (b.image.count & 0x8000) != 0 || n < 0) return raise_damage(h, n);
  if (cache.blocks == nullptr) return e_io;
  h->hdrdirty = 1;
  set_tag(b, h, n);
  forget_other_copies(b, h, n);
  check_generation_between_operations(h);
  block* found = nullptr;
  bool hit = false;
  if (const int taken = take_block(h, n, &found, &hit); taken != e_ok) return taken;
  if (keeps_images(h) && !(hit && found->imaged == h->generation)) {
    const int kept = keep_image(h, n, hit ? &found->image : nullptr);
    if (kept != e_ok) return kept;
  }
  found->changed = hit ? change_of(h, found, b.image) : all_entries;
  own_block(found, h, n);
  take_to_front(found);   // what the end of the operation writes stands together
  found->imaged = h->generation;
  std::memcpy(&found->image, &b.image, page_size);
  new_image(found);
  note_change(h);
  if (has_companion(h)) note_node_write(h, n);
  if (n > h->extent) return raise_damage(h, n);
  const bool through = h->intlevel == 3 || (h->intlevel == 2 && b.image.level == 0);
  set_dirty(found, true);
  return through ? write_block(found) : e_ok;
}

namespace {
// A node that was just written goes to the cache if it is a free one: the next allocation reads it.
int keep_free_node(PSP* h, const node& v, std::int32_t n) {
  if (v.level != level_free) return e_ok;
  block* b = nullptr;
  bool hit = false;
  if (const int taken = take_block(h, n, &b, &hit); taken != e_ok) return taken;
  own_block(b, h, n);
  std::memcpy(&b->image, &v, page_size);
  new_image(b);
  return e_ok;
}
}  // namespace

int nodeputd(PSP* h, node_buffer& b, std::int32_t n) {
  if (b.image.room < 0 || (b.image.count & 0x8000) != 0) return raise_damage(h, n);
  if (cache.blocks == nullptr || n < 0 || n > max_node) return e_io;
  const block* cached = find_block(h, n);
  if (keeps_images(h)) {
    const int kept = keep_image(h, n, cached != nullptr ? &cached->image : nullptr);
    if (kept != e_ok) return kept;
  }
  const byte_range changed = cached != nullptr ? change_of(h, cached, b.image) : all_entries;
  drop_cached(h, n);
  note_change(h);
  set_tag(b, h, n);
  forget_other_copies(b, h, n);
  const int written = write_image(h, b.image, n, changed);
  return written == e_ok && h->journal != nullptr ? keep_free_node(h, b.image, n) : written;
}

int nodegetd(PSP* h, node_buffer& b, std::int32_t n) {
  const int got = nodeget(h, &b, n);
  if (cache.blocks != nullptr) drop_cached(h, n);
  return got;
}

void forget_node(PSP* h, std::int32_t n) {
  if (cache.blocks == nullptr) return;
  const block* b = find_block(h, n);
  if (b != nullptr && !b->dirty) drop_cached(h, n);
}

namespace {
int write_dirty_blocks(PSP* h) {
  int result = e_ok;
  int left = h->dirtyblocks;
  for (block* b = cache.newest; b != nullptr && left > 0; b = b->older) {
    ++blocks_looked_at;
    if (b->owner != h || b->file != h->file || !b->dirty) continue;
    --left;
    const int written = write_block(b);
    if (result == e_ok) result = written;
  }
  return result;
}
}  // namespace

int flushfile(PSP* h) {
  int result = h->hdrdirty ? writehdr(h) : e_ok;
  const int nodes = write_dirty_blocks(h);
  if (result == e_ok) result = nodes;
  plain_flush(h);
  return result;
}

int dropfile(PSP* h) {
  const int result = write_dirty_blocks(h);
  if (result == e_ok) purgefile(h);
  plain_flush(h);
  return result;
}

void purgefile(PSP* h) {
  note_change(h);
  for (block* b = cache.newest; b != nullptr && h->blocks > 0; b = b->older)
    if (b->owner == h) free_block(b);
  h->dirtyblocks = 0;
  forget_buffers(h);
}

void purge_memory_of(PSP* h) {
  note_change(h);
  unsigned left = cache.owned;
  for (block* b = cache.newest; b != nullptr && left > 0; b = b->older) {
    if (b->owner == nullptr) continue;
    --left;
    if (b->owner == h) free_block(b);
  }
  forget_buffers(h);
}

void forget_buffers(PSP* h) {
  for (node_buffer* b : tagged_buffers)
    if (b->owner == h) clear_tag(*b);
}

void renew_cached_node(PSP* h, const node_change& c) {
  const std::int32_t n = c.number;
  if (cache.blocks == nullptr || n < 0 || n > max_node) return;
  note_change(h);
  block* b = find_block(h, n);
  if (b == nullptr && n >= h->nextnode && is_whole(c) && (cache.used < cache.count || !cache.oldest->dirty)) {
    b = spare_block();
    take_to_front(b);
    own_block(b, h, n);
  }
  if (b == nullptr) return;
  auto* image = reinterpret_cast<std::uint8_t*>(&b->image);
  std::memcpy(image, c.head, node_head_size);
  std::memcpy(image + c.from, c.entries, c.length);
  convert_head(b->image, h->order);
  new_image(b);
  set_dirty(b, false);
  if (!is_tree_level(b->image.level) || !node_is_sound(h, b->image)) free_block(b);
}

void forget_cache() {
  for (block* b = cache.newest; b != nullptr; b = b->older) {
    b->owner = nullptr;
    b->file = -1;
    b->number = -1;
    b->dirty = false;
  }
  cache.owned = 0;
  for (unsigned i = 0; cache.table != nullptr && i <= cache.table_mask; ++i) cache.table[i] = nullptr;
  for (node_buffer* b : tagged_buffers) clear_tag(*b);
}

}  // namespace zvrdb::engine
