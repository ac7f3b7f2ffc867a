#include "engine/file_check_records.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace zvrdb::engine::report {
namespace {

constexpr int packed_head = packed_at::fields;   // both checksums and the type byte
constexpr std::size_t shortest_body = packed_head + 2;

std::string leaf_path(const node& leaf) { return "leaf " + std::to_string(leaf.number); }

void tell_entry(deep_check* deep, const node& leaf, const entry& e, const std::string& text) {
  tell_problem(deep->s, leaf.number, leaf_path(leaf), "entry (" + describe(head_of(e)) + "): " + text);
}

std::uint16_t sum_from(const std::vector<unsigned char>& body, bool as_signed) {
  // All but the last bytes are shifted out of the sum.
  std::uint16_t sum = 0;
  for (std::size_t i = packed_at::type; i < body.size(); i++) {
    std::uint16_t added = as_signed ? static_cast<std::uint16_t>(static_cast<std::int8_t>(body[i])) : body[i];
    sum = static_cast<std::uint16_t>((sum + added) << 1);
  }
  return sum;
}

void sort_references(deep_check* deep) {
  auto by_record = [](const key_reference& a, const key_reference& b) {
    return a.rec != b.rec ? a.rec < b.rec : a.key < b.key;
  };
  std::sort(deep->references.begin(), deep->references.end(), by_record);
  deep->matched.assign(deep->references.size(), false);
  deep->sorted = true;
}

// The stored bytes that a key value was built from stand somewhere in the body.
bool body_holds(const deep_check& deep, const key_reference& ref) {
  const unsigned char* value = deep.values.data() + ref.value_at;
  int type = key_type_of(deep.s->header, ref.key);
  if (type == kt_composite) return true;
  std::array<unsigned char, 260> wanted;
  std::size_t size = ref.value_size;
  if (type == kt_bytes || type >= kt_bytes_16) {
    store16(wanted.data(), value[0], order_of(deep.s->header));
    std::memcpy(wanted.data() + 2, value + 1, size - 1);
    size++;
  } else {
    std::memcpy(wanted.data(), value, size);
  }
  return std::search(deep.body.begin() + packed_head, deep.body.end(), wanted.begin(),
                     wanted.begin() + static_cast<std::ptrdiff_t>(size)) != deep.body.end();
}

void match_keys(deep_check* deep, const node& leaf, std::uint16_t list) {
  auto found = std::lower_bound(deep->references.begin(), deep->references.end(), deep->value_rec,
                                [](const key_reference& ref, std::int32_t rec) { return ref.rec < rec; });
  bool any = false;
  for (; found != deep->references.end() && found->rec == deep->value_rec; ++found) {
    any = true;
    deep->matched[static_cast<std::size_t>(found - deep->references.begin())] = true;
    if (body_holds(*deep, *found)) continue;
    tell_problem(deep->s, found->node, "leaf " + std::to_string(found->node),
                 "the value of key " + std::to_string(found->key) + " of record " + std::to_string(found->rec) +
                     " doesn't stand in the record's body (" + leaf_path(leaf) + ")");
  }
  list_members& members = deep->lists[list];
  if (any) {
    members.any_with_keys = true;
  } else {
    members.without_keys.push_back(deep->value_rec);
  }
}

void check_body(deep_check* deep, const node& leaf) {
  survey* s = deep->s;
  std::string of_record = "the body of record " + std::to_string(deep->value_rec);
  deep->bodies.push_back(deep->value_rec);
  if (!deep->sorted) sort_references(deep);
  const std::vector<unsigned char>& body = deep->body;
  if (body.size() < shortest_body) {
    tell_problem(s, leaf.number, leaf_path(leaf), of_record + " is " + std::to_string(body.size()) + " bytes long, too short");
    return;
  }
  byte_order in_file = order_of(s->header);
  if (load16(body.data() + body.size() - 2, in_file) != packed_end)
    tell_problem(s, leaf.number, leaf_path(leaf), of_record + " doesn't end with its end mark");
  std::uint16_t stored = load16(body.data() + packed_at::record_checksum, in_file);
  if (stored != sum_from(body, true) && stored != sum_from(body, false))
    tell_problem(s, leaf.number, leaf_path(leaf), of_record + " has a wrong checksum");
  if (std::binary_search(deep->free_numbers.begin(), deep->free_numbers.end(), deep->value_rec))
    tell_problem(s, leaf.number, leaf_path(leaf), of_record + " exists, and its number waits for reuse");
  match_keys(deep, leaf, load16(body.data() + packed_at::list_checksum, in_file));
}

// Pieces count from 0 without a gap; the last one of 129 bears 0 again.
void gather(deep_check* deep, const node& leaf, const entry& e) {
  bool continues = deep->gathering && deep->value_key == e.key && deep->value_rec == e.rec && e.piece_byte != last_piece;
  bool wraps = deep->gathering && deep->value_key == e.key && deep->value_rec == e.rec && deep->next_piece == max_pieces - 1;
  if (deep->gathering && !continues && !wraps) {
    tell_problem(deep->s, leaf.number, leaf_path(leaf),
                 "the value of key " + std::to_string(deep->value_key) + ", record " + std::to_string(deep->value_rec) +
                     " ends without a last piece, before this leaf's entry (" + describe(head_of(e)) + ")");
    deep->gathering = false;
  }
  if (!deep->gathering) {
    deep->gathering = true;
    deep->value_key = e.key;
    deep->value_rec = e.rec;
    deep->next_piece = 0;
    deep->body.clear();
  }
  if (e.piece != (deep->next_piece & piece_number)) {
    tell_entry(deep, leaf, e, "piece number " + std::to_string(deep->next_piece) + " was expected");
    deep->gathering = false;
    return;
  }
  deep->next_piece++;
  deep->body.insert(deep->body.end(), e.data, e.data + e.data_size);
  if (!e.last) return;
  deep->gathering = false;
  check_body(deep, leaf);
}

void application_key(deep_check* deep, const node& leaf, const entry& e) {
  if (e.piece_byte != last_piece || e.data_size != 0) tell_entry(deep, leaf, e, "a key entry carries data");
  key_reference ref{e.rec, leaf.number, static_cast<std::uint8_t>(e.key), static_cast<std::uint8_t>(e.value_size),
                    deep->values.size()};
  deep->values.insert(deep->values.end(), e.value, e.value + e.value_size);
  deep->references.push_back(ref);
  deep->matched.push_back(false);
}

void free_number(deep_check* deep, const node& leaf, const entry& e) {
  if (e.value_size != 1 || e.data_size != 0 || e.piece_byte != last_piece)
    tell_entry(deep, leaf, e, "a free record number has a key value or data");
  deep->free_numbers.push_back(e.rec);
}

void lock_entry(deep_check* deep, const node& leaf, const entry& e) {
  if (e.data_size != 2 || e.piece_byte != last_piece) {
    tell_entry(deep, leaf, e, "a record lock names no slot");
    return;
  }
  int slot = load16(e.data, order_of(deep->s->header));
  if (slot >= slot_count) tell_entry(deep, leaf, e, "a record lock names slot " + std::to_string(slot));
  bool on_body = e.value_size >= 2 && e.value[1] == key_bodies;
  if (on_body) deep->locks.push_back({e.rec, leaf.number});
}

void check_number(deep_check* deep, const node& leaf, const entry& e) {
  if (e.key == key_rollback) return;
  if (e.rec < 1) {
    tell_entry(deep, leaf, e, "no record has such a number");
  } else if (e.rec >= deep->s->header.nextrec) {
    tell_entry(deep, leaf, e, "the number isn't below nextrec, " + std::to_string(deep->s->header.nextrec));
  }
}

void compare_counter(survey* s, const char* name, std::int64_t in_header, std::size_t in_tree) {
  if (in_header == static_cast<std::int64_t>(in_tree)) return;
  tell_note(s, -1, "header", std::string(name) + " is " + std::to_string(in_header) + ", the tree has " +
                                 std::to_string(in_tree) + ", as after a roll-back");
}

}  // namespace

bool deep_entry(void* context, const node& leaf, const entry& e) {
  deep_check* deep = static_cast<deep_check*>(context);
  check_number(deep, leaf, e);
  if (deep->gathering && e.key != key_bodies) {
    tell_problem(deep->s, leaf.number, leaf_path(leaf),
                 "the body of record " + std::to_string(deep->value_rec) + " ends without a last piece");
    deep->gathering = false;
  }
  switch (e.key) {
    case key_rollback: break;   // left over from a roll-back that was interrupted; the next one removes it
    case key_free_records: free_number(deep, leaf, e); break;
    case key_bodies: gather(deep, leaf, e); break;
    case key_locks: lock_entry(deep, leaf, e); break;
    default: application_key(deep, leaf, e); break;
  }
  return true;
}

void finish_deep(deep_check* deep) {
  survey* s = deep->s;
  if (deep->gathering)
    tell_problem(s, -1, "tree", "the body of record " + std::to_string(deep->value_rec) + " ends without a last piece");
  for (std::size_t i = 0; i < deep->references.size(); i++) {
    if (deep->matched[i]) continue;
    const key_reference& ref = deep->references[i];
    tell_problem(s, ref.node, "leaf " + std::to_string(ref.node),
                 "key " + std::to_string(ref.key) + " names record " + std::to_string(ref.rec) + ", which has no body");
  }
  for (const auto& [list, members] : deep->lists) {
    if (!members.any_with_keys) continue;
    for (std::int32_t rec : members.without_keys)
      tell_problem(s, -1, "tree", "record " + std::to_string(rec) + " has no key entry");
  }
  for (const lock_reference& lock : deep->locks) {
    if (std::binary_search(deep->bodies.begin(), deep->bodies.end(), lock.rec)) continue;
    tell_note(s, lock.node, "leaf " + std::to_string(lock.node),
              "a lock is left on record " + std::to_string(lock.rec) + ", which doesn't exist");
  }
  // Header counters are not undone by a roll-back, so only the impossible is a problem.
  if (s->header.freerecs < 0) tell_problem(s, -1, "header", "freerecs is " + std::to_string(s->header.freerecs));
  compare_counter(s, "reccount", s->header.reccount, deep->bodies.size());
  compare_counter(s, "freerecs", s->header.freerecs, deep->free_numbers.size());
}

}  // namespace zvrdb::engine::report
