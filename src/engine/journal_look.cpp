// What a reader sees of a journal without asking the system: its first bytes are mapped.
#include "engine/journal_layout.h"

namespace zvrdb::engine {

namespace {
// The first bytes of a journal as they are now, which others write meanwhile.
class journal_view {
 public:
  journal_view(const journal_file* j, const std::uint8_t* view) : j_(j), view_(view) {}
  std::uint64_t look(std::uint64_t at) const {
    const std::uint64_t v = __atomic_load_n(reinterpret_cast<const std::uint64_t*>(view_ + at), __ATOMIC_ACQUIRE);
    return native_order == byte_order::little ? v : swap_bytes(v);
  }
  bool same_life() const { return look(head_at::salt) == j_->salt; }
  static bool in_sight(std::uint64_t at) { return at + group_head_size <= journal_size; }
  // Whether a group of this life begins at a place in sight.
  bool begins(std::uint64_t at, std::uint64_t sequence) const {
    return look(at + group_at::sequence) == sequence && look(at + group_at::salt) == j_->salt;
  }
  std::uint64_t end_of(std::uint64_t at) const {
    static_assert(group_at::length == 4);
    return at + to_sectors(look(at) >> 32);
  }
  bool is_of_pair(std::uint64_t at) const { return is_linked(kind_of(at)); }
  bool is_promise(std::uint64_t at) const { return kind_of(at) == kind_promise; }
  bool is_change(std::uint64_t at) const { return kind_of(at) != 0 && open_of(at) == group_open::no; }
  // Of no interest to who only reads, as long as nothing else follows.
  bool may_wait(std::uint64_t at) const { return kind_of(at) == 0 || open_of(at) == group_open::in_call; }
  std::uint32_t generation_after(std::uint64_t at) const {
    static_assert(group_at::before == 24 && group_at::after == 28);
    return static_cast<std::uint32_t>(look(at + group_at::before) >> 32);
  }

 private:
  std::uint32_t kind_of(std::uint64_t at) const { return static_cast<std::uint32_t>(look(at + group_at::kind)); }
  group_open open_of(std::uint64_t at) const {
    return static_cast<group_open>(static_cast<std::uint32_t>(look(at + group_at::open)));
  }

  const journal_file* j_;
  const std::uint8_t* view_;
};
}  // namespace

bool is_same_life(const journal_file* j, const std::uint8_t* bytes) { return journal_view(j, bytes).same_life(); }

journal_news look_for_news(const journal_file* j, const std::uint8_t* bytes, std::uint32_t* generation) {
  constexpr int most_groups = 16;
  const journal_view view(j, bytes);
  if (!view.same_life()) return journal_news::some;
  std::uint64_t at = j->at.end;
  std::uint64_t sequence = j->at.sequence;
  if (view.look(journal_doubt_at) != 0) {
    // A life that has just begun is in doubt until its head is flushed.  The file was before.
    const bool begun_only = j->at.last == 0 && !view.begins(at, sequence);
    return begun_only ? journal_news::nothing_to_read : journal_news::some;
  }
  for (int groups = 0; groups < most_groups && view.in_sight(at); ++groups) {
    if (!view.begins(at, sequence)) return groups == 0 ? journal_news::none : journal_news::nothing_to_read;
    const std::uint64_t behind = view.end_of(at);
    if (behind == at || !view.in_sight(behind)) break;
    if (!view.may_wait(at)) {
      const bool last = view.is_change(at) && !view.begins(behind, sequence + 1);
      if (!last) return journal_news::some;
      if (generation != nullptr) *generation = view.generation_after(at);
      if (view.is_promise(at)) return journal_news::promise_under_way;
      return view.is_of_pair(at) ? journal_news::pair_under_way : journal_news::change_under_way;
    }
    at = behind;
    ++sequence;
  }
  return journal_news::some;
}

bool look_for_change(const journal_file* j, const std::uint8_t* bytes, std::uint32_t generation) {
  const journal_view view(j, bytes);
  if (!view.same_life()) return false;
  std::uint64_t at = j->at.end;
  for (std::uint64_t sequence = j->at.sequence; view.in_sight(at) && view.begins(at, sequence); ++sequence) {
    if (view.is_change(at) && view.generation_after(at) == generation) return true;
    const std::uint64_t behind = view.end_of(at);
    if (behind == at) return false;
    at = behind;
  }
  return false;
}

bool look_for_ended_change(const journal_file* j, const std::uint8_t* bytes, std::uint32_t* generation) {
  const journal_view view(j, bytes);
  std::uint64_t at = j->at.end;
  std::uint64_t sequence = j->at.sequence;
  if (!view.same_life() || !view.in_sight(at) || !view.begins(at, sequence)) return false;
  bool ended = false;
  for (;;) {
    if (!view.is_change(at)) return false;
    const std::uint64_t behind = view.end_of(at);
    if (behind == at || !view.in_sight(behind)) return false;
    if (!view.begins(behind, ++sequence)) return ended;
    *generation = view.generation_after(at);
    ended = true;
    at = behind;
  }
}

}  // namespace zvrdb::engine
