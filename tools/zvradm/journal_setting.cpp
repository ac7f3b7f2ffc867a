#include "journal_setting.h"

namespace zvradm {

journal_view view_journal(void* task) {
  using namespace zvrdb::recfile;
  const journal_setting setting = read_journal_choice(task);
  const char* source = "default";
  if (setting.source == choice_source::environment) source = "ZVR_JOURNAL";
  if (setting.source == choice_source::installation) source = "installation";
  return {setting.use == zvrdb::engine::journal_use::on, source, setting.misread, setting.environment_misread};
}

std::string journal_text(const journal_view& view) {
  std::string text = view.on ? "on" : "off";
  text += " (" + (view.misread ? "the file \"journal\" of the base directory says neither on nor off" : view.source);
  if (view.environment_misread) text += "; ZVR_JOURNAL says neither on nor off";
  return text + ")";
}

}  // namespace zvradm
