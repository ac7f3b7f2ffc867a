#include "record_import.h"

#include <zvrdb/zvrdb.h>

#include <map>
#include <set>

#include "refusals.h"

namespace zvradm {

const record_type& imported_type(const json& object) {
  const auto suffix = object.find("type");
  if (suffix == object.end() || !suffix->is_string()) throw field_fault("type", "is missing");
  const record_type* type = find_record_type(suffix->get_ref<const std::string&>());
  // The base configuration belongs to its installation.
  if (!type || type->db_id == DB_CFG || !type->storable())
    throw field_fault("type", "is not one that can be imported");
  return *type;
}

namespace {

// Text of a field, "" when it has none or is not plain text (which the put tells).
std::string text_of(const json& object, const char* name) {
  const auto member = object.find(name);
  return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

bool known(void* task, const std::string& name) {
  std::uint32_t number = 0;
  return db_get_trg_index(task, name.c_str(), &number) != DBE_NO_TARGET;
}

class importer {
 public:
  importer(void* task, bool keep_going, const refusal_fn& refused, progress& shown, std::uint64_t all)
      : task_(task), writer_(task), keep_going_(keep_going), refused_(refused), shown_(shown), all_(all) {}

  // Stores what can be stored now; what must wait is left in lines.
  bool pass(std::vector<import_line>& lines, bool wait) {
    std::vector<import_line> waiting;
    for (import_line& line : lines) {
      if (stopped()) return false;
      if (!one(line, wait)) waiting.push_back(std::move(line));
    }
    lines = std::move(waiting);
    return !stopped();
  }

  // Stores one of a ring of servers without its link, so that the others can follow;
  // false when no ring is left.
  bool break_ring(const std::vector<import_line>& lines) {
    std::map<std::string, json> waiting;
    for (const import_line& line : lines) {
      json object = parse_record_line(line.text);
      if (imported_type(object).db_id != DB_TRG) continue;
      const std::string name = text_of(object, "trg_name");
      waiting.emplace(name, std::move(object));
    }
    for (const auto& [name, first] : waiting) {
      std::set<std::string> chain{name};
      std::string server = text_of(first, "srv_name");
      while (waiting.count(server) != 0 && chain.insert(server).second)
        server = text_of(waiting[server], "srv_name");
      if (waiting.count(server) == 0 || !broken_.insert(server).second) continue;
      json member = waiting[server];
      member.erase("srv_name");
      return is_stored(writer_.put(imported_type(member), member));
    }
    return false;
  }

  const import_counts& counts() const { return counts_; }
  bool stopped() const { return counts_.refused > 0 && !keep_going_; }

 private:
  bool must_wait(const record_type& type, const json& object) const {
    const std::string name = text_of(object, "trg_name");
    if (type.db_id != DB_TRG) return !name.empty() && !known(task_, name);
    const std::string server = text_of(object, "srv_name");
    return !server.empty() && server != name && !known(task_, server);
  }

  bool one(const import_line& line, bool wait) {
    std::string fault;
    try {
      const json object = parse_record_line(line.text);
      const record_type& type = imported_type(object);
      if (wait && must_wait(type, object)) return false;
      // The library answers a new group as one that was replaced.
      const bool new_group = (type.db_id == DB_TG || type.db_id == DB_DTG) && !writer_.is_there(type, object);
      const std::int16_t code = writer_.put(type, object);
      if (code == DBE_OK && type.db_id == DB_USR) writer_.raise_last_seqno(object);
      if (is_stored(code)) {
        const bool added = code == DBE_OK || new_group || broken_.count(text_of(object, "trg_name")) != 0;
        ++(added ? counts_.added : counts_.replaced);
      }
      if (!is_stored(code)) fault = library_refusal(writer_.what(), code).what();
    } catch (const field_fault& wrong) {
      fault = (wrong.path.empty() ? "" : wrong.path + ": ") + wrong.what();
    } catch (const usage_fault& wrong) {
      fault = wrong.what();
    }
    if (!fault.empty()) {
      ++counts_.refused;
      refused_(line.number, fault);
    }
    shown_.reached(counts_.added + counts_.replaced + counts_.refused, all_);
    return true;
  }

  void* task_;
  record_writer writer_;
  bool keep_going_;
  const refusal_fn& refused_;
  progress& shown_;
  std::uint64_t all_;
  import_counts counts_;
  std::set<std::string> broken_;  // targets that were stored without their link before
};

}  // namespace

import_counts import_records(void* task, std::vector<import_line> lines, bool keep_going,
                             const refusal_fn& refused, progress& shown) {
  importer work(task, keep_going, refused, shown, lines.size());
  while (!lines.empty()) {
    const std::size_t before = lines.size();
    if (!work.pass(lines, true)) return work.counts();
    if (lines.size() < before || work.break_ring(lines)) continue;
    work.pass(lines, false);  // the library tells what is missing
    break;
  }
  return work.counts();
}

}  // namespace zvradm
