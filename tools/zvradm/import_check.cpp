#include "import_check.h"

#include <zvrdb/zvrdb.h>

#include "change_file_name.h"
#include "named_targets.h"
#include "refusals.h"
#include "request_list.h"

namespace zvradm {

void import_check::will_be_stored(const record_type& type, const json& object) {
  if (type.db_id == DB_TRG && object.contains("trg_name")) targets_.insert(json_line(object["trg_name"]));
  if (type.db_id == DB_CAT && object.contains("cf_name")) change_files_.insert(json_line(object["cf_name"]));
}

bool import_check::target_known(const json& name) const {
  if (targets_.count(json_line(name)) != 0 || !name.is_string()) return true;
  std::uint32_t number = 0;
  return db_get_trg_index(task_, name.get<std::string>().c_str(), &number) != DBE_NO_TARGET;
}

bool import_check::change_file_known(const json& name) const {
  if (change_files_.count(json_line(name)) != 0) return true;
  const db_cf_name key = change_file_from_json(name);
  const void* const keys[] = {&key};
  db_cf_name found;
  const std::int16_t code = db_get(task_, DB_CAT, 1, keys, &found, sizeof found);
  if (code != DBE_OK && code != DBE_NOT_FOUND)
    throw library_refusal("get cat \"" + change_file_text(key) + "\"", code);
  return code == DBE_OK;
}

void import_check::check(const record_type& type, const json& object) {
  writer_.check(type, object);
  if (type.db_id == DB_CMS && !target_known(object["trg_name"]))
    throw field_fault("trg_name", "there is no target " + json_line(object["trg_name"]));
  if (const field* list = list_of_targets(type); list && object.contains(list->name))
    for (const json& name : object[list->name])
      if (name != "" && !target_known(name))
        throw field_fault(list->name, "there is no target " + json_line(name));
  const bool has_request = is_request(type) || type.db_id == DB_COO;
  for (const char* name : {"src_domain", "domain", "target"})
    if (has_request && object.contains(name) && !target_known(object[name]))
      throw field_fault(name, "there is no target " + json_line(object[name]));
  const bool names_change_file = type.db_id == DB_PRD || type.db_id == DB_FST || type.db_id == DB_CMS;
  if (names_change_file && !change_file_known(object["cf_name"]))
    throw field_fault("cf_name", "there is no change file \"" +
                                     change_file_text(change_file_from_json(object["cf_name"])) + "\"");
}

}  // namespace zvradm
