// The check of a record file: header, tree, chains of free and log nodes, nodes that
// nothing leads to, and in the deep strength the records.
#include <limits>
#include <string>

#include "engine/file_check_records.h"
#include "engine/report_walk.h"

namespace zvrdb::engine {
namespace report {
namespace {

// Trees beside the shared one: those that keys name are there, and what isn't named is zero.
void check_tree_tables(survey* s) {
  const file_header& h = s->header;
  for (std::size_t k = 0; k < h.key_trees.size(); k++) {
    const int tree = h.key_trees[k];
    const std::string key = "key " + std::to_string(k + 1);
    if (tree > static_cast<int>(h.tree_depths.size()) || (tree != 0 && k >= max_key_number)) {
      tell_problem(s, -1, "header", key + " lies in tree " + std::to_string(tree) + ", which can't be");
    } else if (tree != 0 && h.tree_depths[static_cast<std::size_t>(tree) - 1] == 0) {
      tell_problem(s, -1, "header", key + " lies in tree " + std::to_string(tree) + ", which isn't there");
    }
  }
  for (std::size_t t = 0; t < h.tree_depths.size(); t++) {
    const std::string tree = "tree " + std::to_string(t + 1);
    if (h.tree_depths[t] > max_depth) {
      tell_problem(s, -1, "header", tree + " has a depth of " + std::to_string(h.tree_depths[t]));
    } else if (h.tree_depths[t] == 0 && h.tree_roots[t] != 0) {
      tell_problem(s, -1, "header", tree + " isn't there, and its root is " + std::to_string(h.tree_roots[t]));
    }
  }
}

void check_marker(survey* s) {
  unsigned char bytes[header_size];
  if (!read_bytes(s->reader, 0, bytes, sizeof bytes)) return;
  if (load32(bytes + header_at::marker, order_of(s->header)) != 1)
    tell_problem(s, -1, "header", "the byte-order marker is neither of the two");
}

void check_key_types(survey* s) {
  for (std::size_t key = 0; key < s->header.key_types.size(); key++) {
    int type = s->header.key_types[key] & key_type_mask;
    bool known = type <= kt_uint16 || (type >= kt_bytes_16 && type <= kt_bytes_20);
    bool own = key >= key_rollback && key <= max_key_number;
    bool expected = !own || s->header.key_types[key] == (key == key_locks ? kt_bytes : kt_string);
    if (known && expected) continue;
    tell_problem(s, -1, "header", "key " + std::to_string(key) + " has type " + std::to_string(s->header.key_types[key]));
  }
}

void check_header(survey* s) {
  const file_header& h = s->header;
  auto wrong = [&](const char* field, std::int64_t value, const std::string& expected) {
    tell_problem(s, -1, "header", std::string(field) + " is " + std::to_string(value) + ", expected " + expected);
  };
  if (h.generation == 0) wrong("generation", h.generation, "at least 1");
  if (h.depth < 1 || h.depth > max_depth) wrong("depth", h.depth, "1 to 20");
  if (h.nextnode < 1 || h.nextnode > h.extent) wrong("nextnode", h.nextnode, "1 to extent, " + std::to_string(h.extent));
  if (h.nextrec < 1) wrong("nextrec", h.nextrec, "at least 1");
  if (h.infolen < 0 || h.infolen > static_cast<std::int32_t>(info_size)) wrong("infolen", h.infolen, "0 to 100");
  if (h.transhead < -1) wrong("transhead", h.transhead, "-1 or a node");
  if (h.savedhead < -1) wrong("savedhead", h.savedhead, "-1 or a node");
  std::int64_t pages = static_cast<std::int64_t>(h.size / page_size);
  if (h.extent < 0 || h.extent > max_node + 1 || h.extent > pages - 1)
    wrong("extent", h.extent, "at most " + std::to_string(pages - 1) + ", which the file has");
  if (h.write_flag)
    tell_problem(s, -1, "header", "the write-in-progress flag is set: a write was interrupted");
  check_tree_tables(s);
  check_marker(s);
  check_key_types(s);
}

// The end of a transaction that was cut short has put a log node at the head of the
// chain and not yet written it as a free one.  Whoever takes it ends the chain there.
bool is_half_freed(const node& n) { return n.level == level_log_first || n.level == level_log_later; }

void check_free_chain(survey* s, bool deep) {
  std::int32_t number = s->header.freenode;
  std::int64_t from = -1;
  while (number != -1) {
    std::string path = "free chain > " + std::to_string(number);
    if (number == 0 || !in_range(*s, number)) {
      tell_problem(s, from, path, "the chain of free nodes names node " + std::to_string(number) + ", which can't be free");
      return;
    }
    if (!claim(s, number, place::free_node)) {
      tell_problem(s, number, path, "the free node is in use elsewhere, or twice in the chain");
      return;
    }
    count_node(s);
    node n;
    if (!read_node(s->reader, s->header, number, &n)) {
      tell_problem(s, number, path, "the node can't be read");
      return;
    }
    if (is_half_freed(n)) {
      if (deep) tell_note(s, number, path, "a log node whose return to the free nodes was cut short");
      return;
    }
    if (n.level != level_free) {
      tell_problem(s, number, path, "level is " + std::to_string(n.level) + ", expected that of a free node");
      return;
    }
    if (n.child0 != -1 || n.prev != -1) tell_problem(s, number, path, "first child and prev of a free node aren't -1");
    if (n.count != 0) tell_problem(s, number, path, "a free node has a count of " + std::to_string(n.count));
    check_tail(s, n, 0, path);
    from = number;
    number = n.next;
  }
}

bool is_log_entry(const file_header& header, int type, const unsigned char* at, int left, std::string* text) {
  if (type >= log_ignored_from) return true;
  if (type == 0 || type > log_node_written) {
    *text = "a log record has the unknown type " + std::to_string(type);
    return false;
  }
  if (type == log_added || type == log_removed) {
    entry e;
    parsed outcome = parse_entry(header, at, left, &e, text);
    if (outcome == parsed::end) *text = "a log record of a change has no entry";
    return outcome == parsed::entry;
  }
  int expected = type == log_node_written ? 4 : 0;
  if (at[0] == expected) return true;
  *text = "a log record of type " + std::to_string(type) + " has " + std::to_string(at[0]) + " bytes of entry";
  return false;
}

// The records of one log node.  sequence: of the record before, -1 at the start.
void check_log_records(survey* s, const node& n, const std::string& path, int* sequence) {
  const unsigned char* area = n.bytes.data() + node_head_size;
  int used = 0;
  for (int i = 0; i < n.count; i++) {
    int left = entry_area - used;
    if (left < log_head_size + 1 || left < log_head_size + 1 + area[used + log_at::entry]) {
      tell_problem(s, n.number, path, "log record " + std::to_string(i + 1) + " runs out of the node");
      return;
    }
    const unsigned char* record = area + used;
    std::string text;
    if (!is_log_entry(s->header, record[log_at::type], record + log_at::entry, left - log_head_size, &text))
      tell_problem(s, n.number, path, text);
    int own = load16(record + log_at::sequence, order_of(s->header));
    if (own != (*sequence < 0 ? own : ((*sequence + 1) & 0xFFFF)))
      tell_problem(s, n.number, path, "log record " + std::to_string(i + 1) + " has sequence number " + std::to_string(own) +
                                          " behind " + std::to_string(*sequence));
    *sequence = own;
    used += log_head_size + 1 + record[log_at::entry];
  }
  check_tail(s, n, used, path);
}

// Walks one chain; returns the head's first child, which links kept chains, or -1.
std::int32_t check_log_chain(survey* s, std::int32_t head, const char* name) {
  std::int32_t link = -1;
  int sequence = -1;
  std::int32_t number = head;
  for (bool first = true; first || number != 0; first = false) {
    std::string path = std::string(name) + " " + std::to_string(head) + " > " + std::to_string(number);
    if (number == 0 || !in_range(*s, number)) {
      tell_problem(s, head, path, "the log chain names node " + std::to_string(number) + ", which can't be a log node");
      return -1;
    }
    if (!claim(s, number, place::log_node)) {
      tell_problem(s, number, path, "the log node is in use elsewhere, or twice in the chain");
      return -1;
    }
    count_node(s);
    node n;
    if (!read_node(s->reader, s->header, number, &n)) {
      tell_problem(s, number, path, "the node can't be read");
      return -1;
    }
    int expected = first ? level_log_first : level_log_later;
    if (n.level != expected) {
      tell_problem(s, number, path, "level is " + std::to_string(n.level) + ", expected " + std::to_string(expected));
      return -1;
    }
    if (n.prev < -1 || n.prev >= slot_count) tell_problem(s, number, path, "the owner is slot " + std::to_string(n.prev));
    if (first) {
      link = n.child0;
      if (link < -1) tell_problem(s, number, path, "the link to the chain before is " + std::to_string(link));
    } else if (n.child0 != 0) {
      tell_problem(s, number, path, "a later log node has a first child");
    }
    check_log_records(s, n, path, &sequence);
    number = n.next;
  }
  return link;
}

void check_log_chains(survey* s, bool deep) {
  if (s->header.transhead >= 0) {
    check_log_chain(s, s->header.transhead, "transaction");
    if (deep) tell_note(s, s->header.transhead, "transaction", "a transaction is in progress, or was interrupted");
  }
  std::int32_t head = s->header.savedhead;
  while (head >= 0) head = check_log_chain(s, head, "kept transaction");
}

// Log nodes of a roll-back stay behind by rule, and nodes that hold nothing are merely
// lost to a crash.  Entries that nothing leads to are not harmless.
void check_unreachable(survey* s, bool deep) {
  for (std::size_t i = 0; i < s->places.size(); i++) {
    if (s->places[i] != place::unseen) continue;
    count_node(s);
    std::int32_t number = static_cast<std::int32_t>(i);
    node n;
    if (!read_node(s->reader, s->header, number, &n)) {
      tell_problem(s, number, "unreachable", "the node can't be read");
    } else if (n.level < level_log_later && n.count != 0) {
      tell_problem(s, number, "unreachable", "nothing leads to this node of level " + std::to_string(n.level) + " with " +
                                                 std::to_string(n.count) + " entries");
    } else if (deep) {
      tell_note(s, number, "unreachable", n.level == level_free || n.level < level_log_later
                                              ? "an empty node that nothing leads to"
                                              : "a log node of an earlier roll-back");
    }
  }
}

}  // namespace
}  // namespace report

report_outcome verify_file(const char* path, const check_options& options, problem_fn tell, void* context,
                           std::string* reason) {
  using namespace report;
  survey s;
  if (!open_survey(path, &s, reason)) return report_outcome::unreadable;
  s.tell = tell;
  s.tell_context = context;
  s.progress = options.progress;
  s.progress_context = options.progress_context;
  if (options.deep && !s.reader.guarded)
    tell_note(&s, -1, "file", "no reader byte could be had: the file was read as it lay, writers may have been at work");
  if (s.header.journal_note) tell_note(&s, -1, "file", s.header.journal_note);
  s.segments = take_segments(s.header, options.keys);
  check_header(&s);
  deep_check deep;
  deep.s = &s;
  visitor v;
  if (options.deep) {
    v.entry_fn = deep_entry;
    v.context = &deep;
  }
  walk_tree(&s, v);
  if (options.deep) finish_deep(&deep);
  check_free_chain(&s, options.deep);
  check_log_chains(&s, options.deep);
  check_unreachable(&s, options.deep);
  close_survey(&s);
  return s.problems ? report_outcome::problems : report_outcome::sound;
}

}  // namespace zvrdb::engine
