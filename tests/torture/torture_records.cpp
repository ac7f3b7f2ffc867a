#include "torture/torture_records.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace torture {
namespace {

constexpr const char* source = "SOURCE";
constexpr const char* destination = "SERVER";
constexpr unsigned functions = 2;

std::string numbered(const char* text, std::uint32_t number) {
  return text + std::to_string(number);
}

template <std::size_t width>
void set_text(char (&field)[width], const std::string& text) {
  std::memset(field, 0, width);
  std::memcpy(field, text.data(), std::min(text.size(), width - 1));
}
template <std::size_t width>
std::string text_of(const char (&field)[width]) {
  return {field, strnlen(field, width)};
}
std::uint32_t number_of(const std::string& text) {
  return static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

int get(void* task, std::uint32_t db_id, const void* key, void* record, std::size_t length) {
  const void* keys[] = {key};
  return db_get(task, db_id, 1, keys, record, static_cast<std::uint16_t>(length));
}
int put(void* task, std::uint32_t db_id, const void* key, void* record, std::size_t length) {
  const void* keys[] = {key};
  return db_put(task, db_id, 1, keys, record, static_cast<std::uint16_t>(length));
}
int del(void* task, std::uint32_t db_id, const void* key) {
  const void* keys[] = {key};
  return db_del(task, db_id, 1, keys);
}

Found broken(const std::string& why, int code = 0) {
  return {0, code ? why + ", code " + std::to_string(code) : why};
}

// ---- targets: every third version has hardware that fills a second piece

std::unique_ptr<db_trg> target_record(const std::string& name, std::uint32_t version, bool local = false) {
  auto record = std::make_unique<db_trg>();
  const std::string text = std::to_string(version);
  set_text(record->trg_name, name);
  set_text(record->description, text);
  std::memcpy(record->ren, name.data(), std::min(name.size(), sizeof record->ren));
  record->trg_type = static_cast<std::uint8_t>((local ? DB_TRG_LOCAL : DB_TRG_REMOTE) | DB_TRG_CLIENT);
  record->srv_num = DB_NO_SERVER;
  set_text(record->customer_name, text);
  set_text(record->manager_address, std::string(150, 'a') + text);
  record->num_hw_parms = version / 2 % 3 == 0 ? 110 : static_cast<std::uint16_t>(version / 2 % 3);
  for (unsigned i = 0; i < record->num_hw_parms; ++i) {
    set_text(record->hw_parms[i].name, numbered("part ", i));
    set_text(record->hw_parms[i].value, text);
  }
  return record;
}

Found find_target_named(void* task, const std::string& name) {
  auto record = std::make_unique<db_trg>();
  db_trg head{};
  const int in_memory = get(task, DB_TRG, name.c_str(), &head, offsetof(db_trg, srv_name));
  const int rc = get(task, DB_TRG, name.c_str(), record.get(), sizeof *record);
  if (rc != in_memory) return broken(name + " in memory " + std::to_string(in_memory) + ", in the file", rc ? rc : -1);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of " + name, rc);
  const std::uint32_t version = number_of(text_of(record->description));
  const auto whole = target_record(name, version);
  const bool same = text_of(record->trg_name) == name && text_of(record->customer_name) == text_of(whole->customer_name) &&
                    text_of(record->manager_address) == text_of(whole->manager_address) &&
                    record->num_hw_parms == whole->num_hw_parms &&
                    std::memcmp(record->hw_parms, whole->hw_parms, record->num_hw_parms * sizeof(db_hw_parm)) == 0;
  if (!same || version == 0) return broken("half a record of " + name);
  if (text_of(head.description) != text_of(record->description)) return broken("memory and file of " + name);
  return {version, ""};
}

Found find_target(void* task, unsigned worker, unsigned index) {
  const Found names[2] = {find_target_named(task, target_name(worker, index, 0)),
                          find_target_named(task, target_name(worker, index, 1))};
  for (const Found& found : names)
    if (!found.fault.empty()) return found;
  if (names[0].version && names[1].version) return broken(target_name(worker, index, 0) + " under both names");
  // A rename keeps the record: which name it has is the lowest bit of the version.
  if (names[0].version) return {names[0].version & ~1u, ""};
  return {names[1].version | (names[1].version ? 1u : 0u), ""};
}

// ---- parameters: up to four pieces

std::unique_ptr<db_prm> parameters_record(const std::string& name, std::uint32_t version) {
  auto record = std::make_unique<db_prm>();
  set_text(record->trg_name, name);
  record->num_parms = static_cast<std::uint16_t>(version % 2 == 0 ? 1 + version / 2 % 3 : 900 + version / 2 % 100);
  for (unsigned i = 0; i < record->num_parms; ++i) {
    set_text(record->parms[i].name, numbered("P", i));
    set_text(record->parms[i].value, std::to_string(version));
  }
  return record;
}

Found find_parameters(void* task, unsigned worker, unsigned index) {
  for (const std::uint32_t form : {0u, 1u}) {
    const std::string name = target_name(worker, index, form);
    auto record = std::make_unique<db_prm>();
    const int rc = get(task, DB_PRM, name.c_str(), record.get(), sizeof *record);
    if (rc == DBE_NO_TARGET || rc == DBE_NOT_FOUND) continue;
    if (rc != DBE_OK) return broken("get of parameters of " + name, rc);
    const std::uint32_t version = number_of(text_of(record->parms[0].value));
    const auto whole = parameters_record(name, version);
    if (record->num_parms != whole->num_parms ||
        std::memcmp(record->parms, whole->parms, record->num_parms * sizeof(db_parm)) != 0)
      return broken("half of the parameters of " + name);
    return {version, ""};
  }
  return {0, ""};
}

// ---- change files

Found find_change_file(void* task, unsigned worker, unsigned index) {
  const zvrtest::CfName name = change_file_name(worker, index);
  auto record = std::make_unique<db_cat>();
  const int rc = get(task, DB_CAT, name.data(), record.get(), sizeof *record);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of " + zvrtest::dotted(name), rc);
  const std::string text = text_of(record->text102);
  for (const auto& line : record->lines)
    if (text_of(line) != text) return broken("half a record of " + zvrtest::dotted(name));
  return {number_of(text), ""};
}

int put_change_file_named(void* task, const zvrtest::CfName& name, std::uint32_t version) {
  auto record = std::make_unique<db_cat>();
  std::memcpy(&record->cf_name, name.data(), name.size());
  set_text(record->text102, std::to_string(version));
  for (auto& line : record->lines) set_text(line, std::to_string(version));
  return put(task, DB_CAT, name.data(), record.get(), sizeof *record);
}

// ---- CM status: each side of the pair tells the same status

std::uint8_t status_of(std::uint32_t version) {
  return static_cast<std::uint8_t>(version % 12);  // none that stands for no status
}

// A pair of a target that stays, or of one of the worker's own under the name that it has.
struct PairNames {
  std::string target;
  zvrtest::CfName file;
};
PairNames pair_names(unsigned worker, Thing thing, std::uint32_t target_version) {
  if (thing.kind == Kind::pair) return {status_target(worker, thing.index), status_file(worker, thing.index)};
  return {target_name(worker, first_local + thing.index / pairs_of_a_target, target_version),
          zvrtest::cf(numbered("PACK.", thing.index % pairs_of_a_target) + ".UPD")};
}

Found find_pair_of(void* task, const PairNames& names) {
  const void* keys[] = {names.target.c_str(), names.file.data()};
  db_cms record{};
  const int rc = db_get(task, DB_CMS, 2, keys, &record, sizeof record);
  if (rc != DBE_OK && rc != DBE_NOT_FOUND) return broken("get of a pair of " + names.target, rc);
  const std::string text(reinterpret_cast<const char*>(record.cm_details), 12);
  const std::uint32_t version = rc == DBE_OK ? number_of(text) : 0;
  if (rc == DBE_OK && record.cm_status != status_of(version)) return broken("half a pair of " + names.target);
  std::uint32_t number = 0;
  std::uint8_t list[2001];
  const int found = db_get_trg_index(task, names.target.c_str(), &number);
  if (found == DBE_NO_TARGET && version == 0) return {0, ""};
  if (found != DBE_OK || number >= sizeof list) return broken("number of " + names.target, found);
  const int listed = db_cm_by_cat(task, names.file.data(), list, sizeof list);
  if (listed != DBE_OK) return broken("list of " + zvrtest::dotted(names.file), listed);
  if (list[number] != (rc == DBE_OK ? status_of(version) : 15))
    return broken("the sides of a pair of " + names.target + " differ");
  return {version, ""};
}

Found find_pair(void* task, unsigned worker, Thing thing) {
  if (thing.kind == Kind::pair) return find_pair_of(task, pair_names(worker, thing, 0));
  Found found = find_pair_of(task, pair_names(worker, thing, 0));
  return found.version || !found.fault.empty() ? found : find_pair_of(task, pair_names(worker, thing, 1));
}

int put_pair(void* task, const PairNames& names, std::uint32_t version) {
  const void* keys[] = {names.target.c_str(), names.file.data()};
  db_cms record{};
  record.cm_status = status_of(version);
  const std::string text = std::to_string(version);
  std::memcpy(record.cm_details, text.data(), text.size());
  return db_put(task, DB_CMS, 2, keys, &record, sizeof record);
}

// ---- requests: a root, two functions, and what hangs on each of them

db_rqt_id request_id(unsigned worker, unsigned index, unsigned function) {
  db_rqt_id id{};
  db_rqf_id& head = id.destination.function;
  const std::string user = request_user(worker), name = numbered("FUNCTION", function);
  std::memcpy(head.request.user, user.data(), user.size());
  set_text(head.request.src_domain, source);
  head.request.seq_no = request_number(index);
  std::memcpy(head.subreq_id, name.data(), name.size());
  set_text(id.destination.domain, destination);
  set_text(id.target, destination);
  return id;
}

// One record of the tree.  Its version stands behind its identifier.
struct Part {
  std::uint32_t db_id;
  unsigned function;
  std::size_t id_len, version_at, record_len;
};
constexpr std::size_t fan_block = 638, fan_block_len = 24560;
std::vector<Part> parts_of_tree() {
  std::vector<Part> parts = {{DB_RQR, 0, sizeof(db_rqr_id), 348, DB_RQR_LEN}};
  for (unsigned f = 0; f < functions; ++f) {
    parts.push_back({DB_RQF, f, sizeof(db_rqf_id), 104, DB_RQF_LEN});
    parts.push_back({DB_RQD, f, sizeof(db_rqd_id), 168, DB_RQD_LEN});
    parts.push_back({DB_RQT, f, sizeof(db_rqt_id), 232, DB_RQT_LEN});
  }
  parts.push_back({DB_FAN, 0, sizeof(db_fan_id), 120, DB_FAN_LEN});  // of two pieces
  return parts;
}

std::vector<unsigned char> identifier_of(const Part& part, unsigned worker, unsigned index) {
  const db_rqt_id id = request_id(worker, index, part.function);
  std::vector<unsigned char> bytes(sizeof id);
  std::memcpy(bytes.data(), &id, sizeof id);
  if (part.db_id == DB_FAN) std::memcpy(bytes.data() + sizeof(db_rqf_id), "RGN     REN     ", 16);
  bytes.resize(part.id_len);
  return bytes;
}

unsigned char fan_byte(std::uint32_t version) {
  return static_cast<unsigned char>(1 + version % 255);
}

int put_request(void* task, unsigned worker, unsigned index, std::uint32_t version) {
  int first_rc = DBE_OK;
  for (const Part& part : parts_of_tree()) {
    std::vector<unsigned char> id = identifier_of(part, worker, index), record = id;
    record.resize(part.record_len);
    std::memcpy(record.data() + part.version_at, &version, sizeof version);
    if (part.db_id == DB_FAN) {
      const auto length = static_cast<std::uint16_t>(fan_block_len);
      std::memcpy(record.data() + 124, &length, sizeof length);
      std::memset(record.data() + fan_block, fan_byte(version), fan_block_len);
    }
    if (part.db_id == DB_RQT) record[520] = record[521] = 0xFF;  // no report
    const int rc = put(task, part.db_id, id.data(), record.data(), record.size());
    if (rc != DBE_OK && rc != DBE_RECORD_REPLACED) return rc;
    if (part.db_id == DB_RQR)
      first_rc = rc;
    else if (rc != first_rc)
      return -1;  // some of the tree was there and some was not
  }
  return first_rc;
}

Found find_request(void* task, unsigned worker, unsigned index) {
  Found whole{0, ""};
  bool first = true;
  const std::string name = request_user(worker) + " " + std::to_string(request_number(index));
  for (const Part& part : parts_of_tree()) {
    const std::vector<unsigned char> id = identifier_of(part, worker, index);
    std::vector<unsigned char> record(part.record_len);
    const int rc = get(task, part.db_id, id.data(), record.data(), record.size());
    if (rc != DBE_OK && rc != DBE_NOT_FOUND) return broken("get of request " + name, rc);
    std::uint32_t version = 0;
    if (rc == DBE_OK) std::memcpy(&version, record.data() + part.version_at, sizeof version);
    if (part.db_id == DB_FAN && rc == DBE_OK &&
        !std::all_of(record.begin() + fan_block, record.begin() + fan_block + fan_block_len,
                     [&](unsigned char c) { return c == fan_byte(version); }))
      return broken("half a fan-out record of " + name);
    if (!first && version != whole.version)
      return broken("half of request " + name + ": " + std::to_string(whole.version) + " and " + std::to_string(version));
    whole.version = version;
    first = false;
  }
  return whole;
}

// ---- correlators of the first function of a request, found by either key

db_coo correlator_record(unsigned worker, unsigned index, std::uint32_t version) {
  db_coo record{};
  record.request = request_id(worker, index, 0).destination.function;
  set_text(record.origin, source);
  record.year = 2001;
  record.month = 2;
  record.day = 3;
  record.sequence = worker * 100 + index;
  record.num_mangled = version;
  return record;
}

Found find_correlator(void* task, unsigned worker, unsigned index) {
  const db_coo key = correlator_record(worker, index, 0);
  db_coo record{}, other{};
  const int rc = get(task, DB_COO, &key, &record, sizeof record);
  const int by_other = get(task, DB_COI, &key, &other, sizeof other);
  if (rc != by_other) return broken("the two keys of a correlator, " + std::to_string(rc) + " and", by_other ? by_other : -1);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of a correlator", rc);
  if (std::memcmp(&record, &other, sizeof record) != 0) return broken("two correlators of one request");
  return {record.num_mangled, ""};
}

// ---- groups of a few local targets, or of so many that they fill four pieces

std::string own_name(const char* kind, unsigned worker, unsigned index) {
  return kind + std::to_string(worker) + "." + std::to_string(index);
}

std::unique_ptr<db_tg> group_record(const std::string& name, std::uint32_t version) {
  auto record = std::make_unique<db_tg>();
  set_text(record->name, name);
  set_text(record->description, std::to_string(version));
  record->num_members = static_cast<std::uint16_t>(version / 2 % 3 == 0 ? 900 : 1 + version / 2 % 9);
  for (unsigned i = 0; i < record->num_members; ++i)
    set_text(record->members[i], numbered("STATUS", (version + i) % status_targets));
  return record;
}

Found find_group(void* task, unsigned worker, unsigned index) {
  const std::string name = own_name("GROUP", worker, index);
  auto record = std::make_unique<db_tg>();
  const int rc = get(task, DB_TG, name.c_str(), record.get(), sizeof *record);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of " + name, rc);
  const std::uint32_t version = number_of(text_of(record->description));
  const auto whole = group_record(name, version);
  if (record->num_members != whole->num_members ||
      std::memcmp(record->members, whole->members, record->num_members * sizeof record->members[0]) != 0)
    return broken("half a record of " + name);
  return {version, ""};
}

// ---- users

db_usr user_record(const std::string& name, std::uint32_t version) {
  db_usr record{};
  std::memcpy(record.usr_name, name.data(), name.size());
  set_text(record.description, std::to_string(version));
  record.tak_mask = version;
  record.all_targets = 1;
  return record;
}

Found find_user(void* task, unsigned worker, unsigned index) {
  const std::string name = own_name("U", worker, index);
  db_usr record{};
  const int rc = get(task, DB_USR, name.c_str(), &record, sizeof record);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of user " + name, rc);
  if (number_of(text_of(record.description)) != record.tak_mask) return broken("half a record of user " + name);
  return {record.tak_mask, ""};
}

// ---- connections: each is a text file, put in place of the one before

db_scn connection_record(const std::string& name, std::uint32_t version) {
  db_scn record{};
  std::memcpy(record.connection, name.data(), name.size());
  record.protocol = DB_SCN_TCPIP;
  record.connection_type = 2;
  record.transmission_time_out = version;
  record.send_mu_id_time_out = version;
  record.receive_mu_id_time_out = version;
  std::memcpy(record.next_rgn, "NORTH", 5);
  std::memcpy(record.next_ren, "OSLO", 4);
  set_text(record.remote_server, "OSLO");
  return record;
}

Found find_connection(void* task, unsigned worker, unsigned index) {
  const std::string name = own_name("C", worker, index);
  db_scn record{};
  const int rc = get(task, DB_SCN, name.c_str(), &record, sizeof record);
  if (rc == DBE_NOT_FOUND) return {0, ""};
  if (rc != DBE_OK) return broken("get of connection " + name, rc);
  if (record.transmission_time_out != record.send_mu_id_time_out ||
      record.transmission_time_out != record.receive_mu_id_time_out)
    return broken("half a text of connection " + name);
  return {record.transmission_time_out, ""};
}

}  // namespace

// A group is written twice, and the second answer is given.
int answer_of_first_put(Kind kind) {
  return kind == Kind::group ? DBE_RECORD_REPLACED : DBE_OK;
}

std::string target_name(unsigned worker, unsigned index, std::uint32_t version) {
  return (version & 1 ? "Z" : "A") + std::to_string(worker) + "." + std::to_string(index);
}
zvrtest::CfName change_file_name(unsigned worker, unsigned index) {
  return zvrtest::cf("OWN." + std::to_string(worker) + "." + std::to_string(index) + ".FIX");
}
// Worker w has each sixth of all pairs, so that the records of both sides have many writers.
std::string status_target(unsigned worker, unsigned index) {
  return numbered("STATUS", (index * workers + worker) / status_files);
}
zvrtest::CfName status_file(unsigned worker, unsigned index) {
  return zvrtest::cf(numbered("PACK.", (index * workers + worker) % status_files) + ".UPD");
}
std::string request_user(unsigned worker) {
  return numbered("USER", worker);
}
std::uint32_t request_number(unsigned index) {
  return 100 + index;
}

int put_base_records(void* task) {
  std::vector<std::string> local = {source, destination};
  for (unsigned i = 0; i < status_targets; ++i) local.push_back(numbered("STATUS", i));
  for (const std::string& name : local) {
    const auto record = target_record(name, 2, true);
    const int rc = put(task, DB_TRG, name.c_str(), record.get(), sizeof *record);
    if (rc != DBE_OK) return rc;
  }
  for (unsigned i = 0; i < status_files; ++i) {
    const int rc = put_change_file_named(task, zvrtest::cf(numbered("PACK.", i) + ".UPD"), 1);
    if (rc != DBE_OK) return rc;
  }
  return DBE_OK;
}

int put_thing(void* task, unsigned worker, Thing thing, std::uint32_t version, std::uint32_t base_version) {
  switch (thing.kind) {
    case Kind::target: {
      const std::string name = target_name(worker, thing.index, version);
      const auto record = target_record(name, version, thing.index >= first_local);
      return put(task, DB_TRG, name.c_str(), record.get(), sizeof *record);
    }
    case Kind::parameters: {
      const std::string name = target_name(worker, thing.index, base_version);
      const auto record = parameters_record(name, version);
      return put(task, DB_PRM, name.c_str(), record.get(), sizeof *record);
    }
    case Kind::change_file:
      return put_change_file_named(task, change_file_name(worker, thing.index), version);
    case Kind::pair:
    case Kind::own_pair:
      return put_pair(task, pair_names(worker, thing, base_version), version);
    case Kind::correlator: {
      db_coo record = correlator_record(worker, thing.index, version);
      return put(task, DB_COO, &record, &record, sizeof record);
    }
    case Kind::request:
      return put_request(task, worker, thing.index, version);
    case Kind::group: {
      const std::string name = own_name("GROUP", worker, thing.index);
      const auto record = group_record(name, version);
      return put(task, DB_TG, name.c_str(), record.get(), sizeof *record);
    }
    case Kind::user: {
      const std::string name = own_name("U", worker, thing.index);
      db_usr record = user_record(name, version);
      return put(task, DB_USR, name.c_str(), &record, sizeof record);
    }
    case Kind::connection: {
      const std::string name = own_name("C", worker, thing.index);
      db_scn record = connection_record(name, version);
      return put(task, DB_SCN, name.c_str(), &record, sizeof record);
    }
  }
  return -1;
}

int del_thing(void* task, unsigned worker, Thing thing, std::uint32_t version, std::uint32_t base_version) {
  switch (thing.kind) {
    case Kind::target:
      return del(task, DB_TRG, target_name(worker, thing.index, version).c_str());
    case Kind::parameters:
      return del(task, DB_PRM, target_name(worker, thing.index, base_version).c_str());
    case Kind::change_file:
      return del(task, DB_CAT, change_file_name(worker, thing.index).data());
    case Kind::pair:
    case Kind::own_pair: {
      const PairNames names = pair_names(worker, thing, base_version);
      const void* keys[] = {names.target.c_str(), names.file.data()};
      return db_del(task, DB_CMS, 2, keys);
    }
    case Kind::correlator: {
      const db_coo record = correlator_record(worker, thing.index, 0);
      return del(task, DB_COO, &record);
    }
    case Kind::request: {
      const db_rqt_id id = request_id(worker, thing.index, 0);
      return db_del_rq_tree(task, &id);
    }
    case Kind::group:
      return del(task, DB_TG, own_name("GROUP", worker, thing.index).c_str());
    case Kind::user:
      return del(task, DB_USR, own_name("U", worker, thing.index).c_str());
    case Kind::connection:
      return del(task, DB_SCN, own_name("C", worker, thing.index).c_str());
  }
  return -1;
}

Found find_thing(void* task, unsigned worker, Thing thing) {
  switch (thing.kind) {
    case Kind::target:
      return find_target(task, worker, thing.index);
    case Kind::parameters:
      return find_parameters(task, worker, thing.index);
    case Kind::change_file:
      return find_change_file(task, worker, thing.index);
    case Kind::pair:
    case Kind::own_pair:
      return find_pair(task, worker, thing);
    case Kind::correlator:
      return find_correlator(task, worker, thing.index);
    case Kind::request:
      return find_request(task, worker, thing.index);
    case Kind::group:
      return find_group(task, worker, thing.index);
    case Kind::user:
      return find_user(task, worker, thing.index);
    case Kind::connection:
      return find_connection(task, worker, thing.index);
  }
  return broken("no such kind");
}

std::vector<std::string> all_targets(void* task, std::string* fault) {
  std::vector<char> list(500 * 64);
  std::uint16_t count = 0, index = 0;
  const int rc = db_start_list(task, DB_TRG, nullptr, list.data(), static_cast<std::uint32_t>(list.size()), &count, &index);
  if (rc != DBE_OK) *fault = "list of targets, code " + std::to_string(rc);
  std::vector<std::string> names;
  for (unsigned i = 0; i < count && rc == DBE_OK; ++i) names.emplace_back(list.data() + i * 64);
  return names;
}

unsigned all_pairs(void* task, std::string* fault) {
  unsigned pairs = 0;
  for (unsigned file = 0; file < status_files; ++file) {
    std::uint8_t list[2001];
    const int rc = db_cm_by_cat(task, zvrtest::cf(numbered("PACK.", file) + ".UPD").data(), list, sizeof list);
    if (rc != DBE_OK) *fault = "status of a change file, code " + std::to_string(rc);
    for (const std::uint8_t status : list) pairs += rc == DBE_OK && status != 15;
  }
  return pairs;
}

std::vector<std::string> all_change_files(void* task, std::string* fault) {
  const zvrtest::CfName filter = zvrtest::cf("*.*.*.*.*.*.*.*.*.*.*");
  std::vector<db_cat_entry> list(500);
  std::uint16_t count = 0, index = 0;
  int rc = db_start_list(task, DB_CAT, filter.data(), list.data(), static_cast<std::uint32_t>(list.size() * sizeof list[0]),
                         &count, &index);
  std::vector<std::string> names;
  if (rc != DBE_OK) *fault = "list of change files, code " + std::to_string(rc);
  while (rc == DBE_OK) {
    db_cf_name name;
    rc = db_get_next(task, DB_CAT, list.data(), count, &index, &name, sizeof name);
    if (rc == DBE_NOT_FOUND || rc == DBE_ENTRY_CHANGED) {
      rc = DBE_OK;  // another worker's, changed since
      continue;
    }
    if (rc == DBE_END_OF_LIST) break;
    if (rc != DBE_OK) *fault = "next change file, code " + std::to_string(rc);
    zvrtest::CfName bytes;
    std::memcpy(bytes.data(), &name, sizeof name);
    names.push_back(zvrtest::dotted(bytes));
  }
  return names;
}

std::vector<std::string> all_requests(void* task, const std::string& user, std::string* fault) {
  db_rqr_id filter{};
  std::memcpy(filter.user, user.data(), user.size());
  set_text(filter.src_domain, source);
  filter.seq_no = 0xFFFFFFFFu;
  filter.recursion_no = 0xFFFF;
  if (user == "*") set_text(filter.src_domain, "*");
  alignas(8) unsigned char state[DB_REQUEST_LIST_STATE] = {};
  int rc = db_init_list(task, DB_RQR, &filter, state, sizeof state);
  std::vector<std::string> names;
  if (rc != DBE_OK) *fault = "list of requests, code " + std::to_string(rc);
  while (rc == DBE_OK) {
    db_rqr_id id{};
    rc = db_get_more(task, DB_RQR, state, &id, sizeof id);
    if (rc == DBE_END_OF_LIST) break;
    if (rc != DBE_OK) *fault = "next request, code " + std::to_string(rc);
    names.push_back(text_of(id.user) + " " + std::to_string(id.seq_no));
  }
  return names;
}

}  // namespace torture
