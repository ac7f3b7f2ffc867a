#include "journal_setting.h"

namespace zvradm {

journal_view view_journal(void* task) {
  using namespace zvrdb::recfile;
  const journal_setting setting = read_journal_choice(task);
  const char* source = "default";
  if (setting.source == choice_source::environment) source = "ZVR_JOURNAL";
  if (setting.source == choice_source::installation) source = "installation";
  const char* note = "";
  if (setting.environment_misread) note = "ZVR_JOURNAL says neither on nor off";
  if (setting.misread) note = "the file \"journal\" of the base directory says neither on nor off";
  return {setting.use == zvrdb::engine::journal_use::on, source, note};
}

std::string journal_text(const journal_view& view) {
  const std::string word = view.on ? "on" : "off";
  return word + " (" + view.source + (view.note.empty() ? "" : "; " + view.note) + ")";
}

}  // namespace zvradm
