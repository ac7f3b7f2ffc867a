#include <string>

#include "engine/report_walk.h"

namespace zvrdb::engine {
namespace {

struct dump_context {
  bool (*entry_fn)(void*, const dump_entry&);
  void* context;
};

bool dump_one(void* context, const report::node&, const report::entry& e) {
  dump_context* dump = static_cast<dump_context*>(context);
  dump_entry out;
  out.key = e.key;
  out.value.assign(e.value, e.value + e.value_size);
  out.rec = e.rec;
  out.piece = e.piece;
  out.last = e.last;
  out.data.assign(e.data, e.data + e.data_size);
  return dump->entry_fn(dump->context, out);
}

}  // namespace

report_outcome dump_file(const char* path, bool (*header_fn)(void*, const file_header&),
                         bool (*entry_fn)(void*, const dump_entry&), void* context, std::string* reason) {
  report::survey s;
  if (!report::open_survey(path, &s, reason)) return report_outcome::unreadable;
  if (!header_fn || header_fn(context, s.header)) {
    dump_context dump{entry_fn, context};
    report::visitor v;
    if (entry_fn) v.entry_fn = dump_one;
    v.context = &dump;
    report::walk_tree(&s, v);
  }
  report::close_survey(&s);
  return s.problems ? report_outcome::problems : report_outcome::sound;
}

}  // namespace zvrdb::engine
