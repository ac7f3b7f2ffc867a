#include "engine/report_walk.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "engine/journal.h"

namespace zvrdb::engine::report {
namespace {

using bound = std::optional<entry_head>;

// One inner node on the way from the root, and what of it is still to be visited.
struct frame {
  std::int32_t number;
  int level;
  std::vector<std::int32_t> children;
  std::vector<entry_head> separators;  // one less than the children that are followed
  std::size_t next_child = 0;
  bound low, high;
};

// The node last visited on a level.
struct level_end {
  bool any = false;
  std::int32_t number = -1;
  std::int32_t next = -1;
};

struct walk {
  survey* s;
  const visitor* v;
  std::vector<frame> stack;
  int tree = 0;
  std::array<level_end, max_depth> ends = {};
  bool stopped = false;
};

std::string path_to(const walk& w, std::int32_t number, const char* kind) {
  std::string path = w.tree == 0 ? "" : "tree " + std::to_string(w.tree) + " ";
  const std::size_t none = path.size();
  for (const frame& f : w.stack) {
    path += path.size() == none ? "root " : "child ";
    path += std::to_string(f.number) + " > ";
  }
  return path + (path.size() == none ? "root" : kind) + " " + std::to_string(number);
}

// Of a value of 129 pieces the last bears the number 0 again, 128 not fitting in.
bool same_value(const entry_head& a, const entry_head& b) {
  return a.key == b.key && a.rec == b.rec && a.value_size == b.value_size && a.value == b.value;
}
bool is_wrapped_piece(const entry_head& before, const entry_head& after) {
  return same_value(before, after) && (before.piece_byte & piece_number) == piece_number && after.piece_byte == last_piece;
}

bool sorts_before(const survey& s, const entry_head& first, const entry_head& second) {
  comparison c = compare_heads(s.header, s.segments, first, second);
  return c.sign < 0 || c.unordered || is_wrapped_piece(first, second);
}

// At or below, as the left side of a separator is.  A separator that is a wrapped piece
// has all other pieces of its value below it.
bool within_high(const survey& s, const entry_head& head, const entry_head& high) {
  comparison c = compare_heads(s.header, s.segments, head, high);
  if (c.sign <= 0 || c.unordered) return true;
  return high.piece_byte == last_piece && same_value(head, high);
}

void check_order(walk* w, const node& n, const bound& before, const entry_head& head, const bound& low,
                 const bound& high) {
  const survey& s = *w->s;
  const char* kind = n.level ? "child" : "leaf";
  if (before && !sorts_before(s, *before, head)) {
    tell_problem(w->s, n.number, path_to(*w, n.number, kind),
                 "entry (" + describe(head) + ") doesn't sort after the one before it (" + describe(*before) + ")");
  } else if (!before && low && !sorts_before(s, *low, head)) {
    tell_problem(w->s, n.number, path_to(*w, n.number, kind),
                 "entry (" + describe(head) + ") isn't above the separator to its left (" + describe(*low) + ")");
  }
  if (high && !within_high(s, head, *high)) {
    tell_problem(w->s, n.number, path_to(*w, n.number, kind),
                 "entry (" + describe(head) + ") is above the separator to its right (" + describe(*high) + ")");
  }
}

bool check_entry_form(walk* w, const node& n, const entry& e) {
  std::string text;
  if (n.level > 0 && e.data_size != 4) {
    text = "a separator has " + std::to_string(e.data_size) + " bytes behind its key value instead of a child number";
  } else if (e.value_size > max_key_value + (e.key == key_locks ? 1 : 0)) {
    text = "a key value is " + std::to_string(e.value_size) + " bytes long";
  } else if (n.level == 0 && e.size > max_entry_size) {
    text = "an entry is " + std::to_string(e.size) + " bytes long";
  } else if (const segment* table = w->s->segments[static_cast<std::size_t>(e.key)];
             table && !is_made_of(table, e.value, e.value_size)) {
    text = "a composite value of key " + std::to_string(e.key) + " isn't made of the key's segments";
  } else {
    return true;
  }
  tell_problem(w->s, n.number, path_to(*w, n.number, n.level ? "child" : "leaf"), text);
  return n.level == 0;
}

void check_neighbours(walk* w, const node& n, const std::string& path) {
  level_end& end = w->ends[static_cast<std::size_t>(n.level)];
  std::int32_t expected = end.any ? end.number : -1;
  if (n.prev != expected) {
    tell_problem(w->s, n.number, path,
                 "prev is " + std::to_string(n.prev) + ", the node to the left is " + std::to_string(expected));
  }
  if (end.any && end.next != n.number) {
    tell_problem(w->s, end.number, path,
                 "next of node " + std::to_string(end.number) + " is " + std::to_string(end.next) +
                     ", the node to the right is " + std::to_string(n.number));
  }
  end = {true, n.number, n.next};
}

// An inner node that has a right neighbour ends with a separator whose child stands in
// that neighbour too and is followed only there.
void push_children(walk* w, const node& n, frame&& f, const bound& low, const bound& high, const std::string& path) {
  f.number = n.number;
  f.level = n.level;
  f.low = low;
  f.high = high;
  f.children.insert(f.children.begin(), n.child0);
  if (n.next != -1) {
    if (f.separators.empty()) {
      tell_problem(w->s, n.number, path, "an inner node with a right neighbour has no separator towards it");
    } else {
      if (!in_range(*w->s, f.children.back()))
        tell_problem(w->s, n.number, path, "the separator to the right neighbour names a node that doesn't exist");
      f.high = f.separators.back();
      f.separators.pop_back();
      f.children.pop_back();
    }
  }
  w->stack.push_back(std::move(f));
}

// Entries of a node whose head was found good.  Returns the bytes that they use, -1 when
// an entry is damaged.
int visit_entries(walk* w, const node& n, frame* f, const bound& low, const bound& high, const std::string& path) {
  const file_header& header = w->s->header;
  const unsigned char* area = n.bytes.data() + node_head_size;
  int used = 0;
  int count = 0;
  bool whole = true;
  bound before;
  for (;;) {
    entry e;
    std::string text;
    parsed outcome = parse_entry(header, area + used, entry_area - used, &e, &text);
    if (outcome == parsed::damaged) {
      tell_problem(w->s, n.number, path, text);
      whole = false;
    }
    if (outcome != parsed::entry) break;
    if (!check_entry_form(w, n, e)) {
      whole = false;
      break;
    }
    if (int tree = header.key_trees[static_cast<std::size_t>(e.key) - 1]; tree != w->tree) {
      tell_problem(w->s, n.number, path,
                   "an entry of key number " + std::to_string(e.key) + " stands in tree " + std::to_string(w->tree) +
                       ", that key belongs in tree " + std::to_string(tree));
    }
    entry_head head = head_of(e);
    check_order(w, n, before, head, low, high);
    before = head;
    if (n.level > 0) {
      f->separators.push_back(head);
      f->children.push_back(load32s(e.data, order_of(header)));
    } else if (w->v->entry_fn && !w->v->entry_fn(w->v->context, n, e)) {
      w->stopped = true;
      return used;
    }
    used += e.size;
    count++;
  }
  if (!whole) return -1;
  if (count != n.count) {
    tell_problem(w->s, n.number, path,
                 "count is " + std::to_string(n.count) + ", the node has " + std::to_string(count) + " entries");
  }
  return used;
}

// level -1: any, for the root.
void visit(walk* w, std::int32_t number, int level, const bound& low, const bound& high) {
  survey* s = w->s;
  const char* kind = level == 0 ? "leaf" : "child";
  std::int64_t parent = w->stack.empty() ? -1 : w->stack.back().number;
  if (!in_range(*s, number)) {
    tell_problem(s, parent, path_to(*w, number, kind), "names node " + std::to_string(number) + ", which doesn't exist");
    return;
  }
  if (!claim(s, number, level == 0 ? place::leaf : place::inner)) {
    tell_problem(s, number, path_to(*w, number, kind), "the node is reached a second time");
    return;
  }
  count_node(s);
  node n;
  std::string path = path_to(*w, number, kind);
  if (!read_node(s->reader, s->header, number, &n)) {
    tell_problem(s, number, path, "the node can't be read");
    return;
  }
  if ((level >= 0 && n.level != level) || n.level >= max_depth) {
    tell_problem(s, number, path,
                 "level is " + std::to_string(n.level) + (level < 0 ? ", no level of a tree" : ", expected " + std::to_string(level)));
    return;
  }
  s->places[static_cast<std::size_t>(number)] = n.level ? place::inner : place::leaf;
  if (n.count > max_entries) {
    tell_problem(s, number, path, "count is " + std::to_string(n.count) + ", more than a node can hold");
    return;
  }
  check_neighbours(w, n, path);
  if (n.level == 0 && n.child0 != 0) tell_problem(s, number, path, "a leaf has a first child");
  frame f;
  int used = visit_entries(w, n, &f, low, high, path);
  if (w->stopped) return;
  if (used >= 0) check_tail(s, n, used, path);
  if (w->v->node_fn) w->v->node_fn(w->v->context, n, std::max(used, 0));
  if (n.level > 0) push_children(w, n, std::move(f), low, high, path);
}

// Visits the child that is next in the topmost frame, or takes the frame away.
void advance(walk* w) {
  frame& top = w->stack.back();
  if (top.next_child >= top.children.size()) {
    w->stack.pop_back();
    return;
  }
  std::size_t i = top.next_child++;
  bound low = i > 0 ? bound(top.separators[i - 1]) : top.low;
  bound high = i < top.separators.size() ? bound(top.separators[i]) : top.high;
  visit(w, top.children[i], top.level - 1, low, high);
}

// False when the visitor stopped the walk.
bool walk_one_tree(survey* s, const visitor& v, int tree) {
  walk w;
  w.s = s;
  w.v = &v;
  w.tree = tree;
  const std::size_t at = static_cast<std::size_t>(tree) - 1;
  const std::int32_t root = tree == 0 ? s->header.root : s->header.tree_roots[at];
  const int depth = tree == 0 ? s->header.depth : s->header.tree_depths[at];
  visit(&w, root, -1, {}, {});
  if (!w.stack.empty() || !w.stopped) {
    int level = w.stack.empty() ? 0 : w.stack.back().level;
    if (depth != level + 1) {
      tell_problem(s, -1, "header",
                   (tree == 0 ? "depth" : "the depth of tree " + std::to_string(tree)) + " is " + std::to_string(depth) +
                       ", the tree has " + std::to_string(level + 1) + " levels");
    }
  }
  while (!w.stack.empty() && !w.stopped) advance(&w);
  if (w.stopped) return false;
  for (std::size_t level = 0; level < w.ends.size(); level++) {
    const level_end& end = w.ends[level];
    if (end.any && end.next != -1) {
      tell_problem(s, end.number, "level " + std::to_string(level),
                   "next of the last node is " + std::to_string(end.next) + ", expected -1");
    }
  }
  return true;
}

}  // namespace

bool open_survey(const char* path, survey* s, std::string* reason) {
  std::string text;
  if (!reason) reason = &text;
  if (!open_reader(path, &s->reader, reason)) return false;
  if (!read_header(s->reader, &s->header, reason)) {
    close_reader(&s->reader);
    return false;
  }
  switch (look_at_journal_beside(path)) {
    case journal_beside::nothing:
      s->header.journal_note = nullptr;
      break;
    case journal_beside::ahead:
      s->header.journal_note =
          "its journal has changes that it does not have yet, or only in part: the next opening brings them in, and "
          "what is told here may be over then";
      break;
    case journal_beside::closed:
      s->header.journal_note =
          "its journal is there and cannot be opened, and until it can be the file isn't opened either: see the "
          "journal's owner, mode and kind";
      break;
  }
  std::uint64_t pages = s->header.size / page_size;
  std::uint64_t on_disk = pages > 0 ? pages - 1 : 0;
  std::uint64_t allocated = s->header.nextnode > 0 ? static_cast<std::uint64_t>(s->header.nextnode) : 0;
  allocated = std::min<std::uint64_t>(allocated, static_cast<std::uint64_t>(max_node) + 1);
  s->places.assign(static_cast<std::size_t>(std::min(on_disk, allocated)), place::unseen);
  return true;
}

void close_survey(survey* s) { close_reader(&s->reader); }

void tell_problem(survey* s, std::int64_t node, std::string path, std::string text) {
  s->problems++;
  if (s->tell) s->tell(s->tell_context, {node, std::move(path), std::move(text), false});
}

void tell_note(survey* s, std::int64_t node, std::string path, std::string text) {
  if (s->tell) s->tell(s->tell_context, {node, std::move(path), std::move(text), true});
}

void count_node(survey* s) {
  s->done++;
  if (s->progress) s->progress(s->progress_context, std::min<std::uint64_t>(s->done, s->places.size()), s->places.size());
}

bool in_range(const survey& s, std::int32_t number) {
  return number >= 0 && static_cast<std::size_t>(number) < s.places.size();
}

bool claim(survey* s, std::int32_t number, place what) {
  place& p = s->places[static_cast<std::size_t>(number)];
  if (p != place::unseen) return false;
  p = what;
  return true;
}

void check_tail(survey* s, const node& n, int used, const std::string& path) {
  if (n.room != entry_area - used) {
    tell_problem(s, n.number, path,
                 "room is " + std::to_string(n.room) + ", expected " + std::to_string(entry_area - used));
  }
  for (std::size_t i = node_head_size + static_cast<std::size_t>(used); i < n.bytes.size(); i++) {
    if (n.bytes[i] == 0) continue;
    tell_problem(s, n.number, path, "byte " + std::to_string(i) + ", behind the last entry, isn't zero");
    return;
  }
}

void walk_tree(survey* s, const visitor& v) {
  for (int tree : trees_of(s->header))
    if (!walk_one_tree(s, v, tree)) return;
}

}  // namespace zvrdb::engine::report
