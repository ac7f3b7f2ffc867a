#include <string>

#include "engine/report_walk.h"

namespace zvrdb::engine {
namespace report {
namespace {

struct summary_context {
  file_summary* summary;
  std::uint64_t leaf_bytes = 0;
  std::uint64_t inner_bytes = 0;
};

void count_tree_node(void* context, const node& n, int used) {
  summary_context* c = static_cast<summary_context*>(context);
  std::uint64_t bytes = static_cast<std::uint64_t>(used);
  if (n.level > 0) {
    c->summary->inner_nodes++;
    c->inner_bytes += bytes;
    return;
  }
  c->summary->leaves++;
  c->leaf_bytes += bytes;
  if (used == 0) c->summary->empty_leaves++;
}

bool count_entry(void* context, const node&, const entry& e) {
  file_summary* summary = static_cast<summary_context*>(context)->summary;
  std::size_t key = static_cast<std::size_t>(e.key);
  summary->entries_by_key[key]++;
  summary->bytes_by_key[key] += static_cast<std::uint64_t>(e.size);
  // One last piece a body; a first piece may bear the number of a 129th.
  if (e.key == key_bodies && e.last) summary->records++;
  if (e.key == key_free_records) summary->free_numbers++;
  if (e.key == key_locks) summary->locks++;
  return true;
}

// Claims the nodes of a chain as far as it can be walked; returns how many.
std::uint64_t count_chain(survey* s, std::int32_t head, std::int32_t end, place what, std::int32_t* link) {
  std::uint64_t count = 0;
  std::int32_t number = head;
  while (number != end && in_range(*s, number) && claim(s, number, what)) {
    node n;
    if (!read_node(s->reader, s->header, number, &n)) break;
    bool fits = what == place::free_node ? n.level == level_free
                                         : n.level == (count ? level_log_later : level_log_first);
    if (!fits) {
      s->places[static_cast<std::size_t>(number)] = place::unseen;
      bool half_freed = what == place::free_node && (n.level == level_log_first || n.level == level_log_later);
      if (!half_freed) s->problems++;
      break;
    }
    if (count == 0 && link) *link = n.child0;
    count++;
    number = n.next;
  }
  return count;
}

}  // namespace
}  // namespace report

report_outcome summarize_file(const char* path, file_summary* summary, std::string* reason) {
  using namespace report;
  *summary = file_summary();
  survey s;
  if (!open_survey(path, &s, reason)) return report_outcome::unreadable;
  summary->header = s.header;
  summary_context context{summary};
  visitor v{count_tree_node, count_entry, &context};
  walk_tree(&s, v);
  summary->trees = trees_of(s.header).size();
  summary->free_nodes = count_chain(&s, s.header.freenode, -1, place::free_node, nullptr);
  if (s.header.transhead >= 0) summary->log_nodes = count_chain(&s, s.header.transhead, 0, place::log_node, nullptr);
  std::int32_t saved = s.header.savedhead;
  while (saved >= 0) {
    std::int32_t link = -1;
    summary->log_nodes += count_chain(&s, saved, 0, place::log_node, &link);
    saved = link;
  }
  for (place p : s.places) summary->unreachable_nodes += p == place::unseen;
  std::int64_t unused = static_cast<std::int64_t>(s.header.extent) - s.header.nextnode;
  if (unused > 0) summary->unused_nodes = static_cast<std::uint64_t>(unused);
  double leaf_area = static_cast<double>(entry_area) * static_cast<double>(summary->leaves);
  double inner_area = static_cast<double>(entry_area) * static_cast<double>(summary->inner_nodes);
  if (summary->leaves) summary->leaf_fill = static_cast<double>(context.leaf_bytes) / leaf_area;
  if (summary->inner_nodes) summary->inner_fill = static_cast<double>(context.inner_bytes) / inner_area;
  close_survey(&s);
  return s.problems ? report_outcome::problems : report_outcome::sound;
}

}  // namespace zvrdb::engine
