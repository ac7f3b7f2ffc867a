#include "crash/stored_records.h"

#include <zvrdb/records.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <sstream>
#include <vector>

#include "crash/crash_installation.h"
#include "support/cf_names.h"

namespace crash_test {
namespace {

using bytes = std::vector<unsigned char>;

constexpr const char* targets[] = {"LOCAL", "SRC", "SRV", "T1", "T2", "NEW"};
constexpr const char* change_files[] = {"APP.ONE.REF.1", "APP.TWO.REF.1", "APP.THREE.REF.1", "APP.FREE.REF.1"};
constexpr std::uint32_t requests[] = {1, 2, 3};

bool done(int rc) {
  return rc == DBE_OK || rc == DBE_RECORD_REPLACED;
}

template <std::size_t n>
void set_text(char (&field)[n], const std::string& text) {
  std::memset(field, 0, n);
  std::memcpy(field, text.data(), std::min(text.size(), n - 1));
}

std::string numbered(const char* text, unsigned long long number) {
  return std::string(text).append(std::to_string(number));
}

template <class Record>
bool put_named(void* task, std::uint32_t db_id, const std::string& target, const Record& record) {
  Record copy = record;
  const void* keys[] = {target.c_str()};
  return done(db_put(task, db_id, 1, keys, &copy, static_cast<std::uint16_t>(sizeof copy)));
}

template <class Record>
void fill_parameters(Record* record, const std::string& target, unsigned parameters, unsigned seed) {
  set_text(record->trg_name, target);
  record->num_parms = static_cast<std::uint16_t>(parameters);
  for (unsigned i = 0; i < parameters; ++i) {
    set_text(record->parms[i].name, numbered("P", i));
    set_text(record->parms[i].value, numbered("value of seed ", seed) + std::string(25, 'x'));
  }
}

// ---- Requests: identifiers begin with user, source, sequence, recursion, function.

struct request_type {
  std::uint32_t db_id;
  std::size_t id_len, record_len;
};
constexpr request_type request_types[] = {{DB_RQR, 88, 358},   {DB_RQF, 104, 112}, {DB_FAN, 120, 128},
                                          {DB_RQD, 168, 176},  {DB_RQT, 232, 240}, {DB_RQV, 104, 10204}};

bytes request_id(std::uint32_t sequence, unsigned function, const char* server, const char* target) {
  bytes id(232);
  const auto text = [&id](std::size_t at, const std::string& value) { std::memcpy(&id[at], value.data(), value.size()); };
  text(0, "USER");
  text(16, "SRC");
  std::memcpy(&id[80], &sequence, sizeof sequence);
  text(88, numbered("F", function));
  text(104, server);
  text(168, target);
  return id;
}

bool put_request_record(void* task, const request_type& type, const bytes& whole_id) {
  bytes record(whole_id.begin(), whole_id.begin() + static_cast<std::ptrdiff_t>(type.id_len));
  if (type.db_id == DB_FAN) std::memcpy(&record[104], "RGN1    REN1    ", 16);
  bytes key = record;
  record.resize(type.record_len);
  record[type.record_len - 1] = 7;
  const void* keys[] = {key.data()};
  return done(db_put(task, type.db_id, 1, keys, record.data(), static_cast<std::uint16_t>(record.size())));
}

db_coo correlator_of(std::uint32_t sequence, unsigned function) {
  db_coo record = {};
  const bytes id = request_id(sequence, function, "", "");
  std::memcpy(&record, id.data(), 104);
  std::memcpy(record.origin, "ORIGIN", 6);
  record.year = 2001;
  record.month = 2;
  record.day = 3;
  record.sequence = sequence * 10 + function;
  return record;
}

// ---- What is there

void tell_content(std::ostringstream& out, int rc, const bytes& content) {
  out << ' ' << rc;
  if (rc == DBE_OK) out << ' ' << std::hash<std::string>{}(std::string(content.begin(), content.end())) % 1000000;
}

void observe_targets(void* task, std::ostringstream& out) {
  for (const char* name : targets) {
    const void* keys[] = {name};
    out << name;
    for (const auto& [db_id, length] :
         {std::pair{DB_TRG, std::size_t{192}}, {DB_TRG, sizeof(db_trg)}, {DB_PRM, sizeof(db_prm)},
          {DB_THW, sizeof(db_thw)}, {DB_SHT, sizeof(db_sht)}}) {
      bytes content(length);
      tell_content(out, db_get(task, static_cast<std::uint32_t>(db_id), 1, keys, content.data(), static_cast<std::uint16_t>(length)),
                   content);
    }
    std::uint32_t count = 0;
    std::vector<std::uint32_t> list(16);
    const int rc = db_cm_by_trg(task, name, list.data(), 64, &count);
    out << " pairs " << rc;
    if (rc == DBE_OK) {
      std::sort(list.begin(), list.begin() + std::min<std::uint32_t>(count, 16));
      for (std::uint32_t i = 0; i < count && i < 16; ++i) out << ' ' << list[i];
    }
    out << '\n';
  }
}

void observe_change_files(void* task, std::ostringstream& out) {
  for (const char* dotted : change_files) {
    const zvrtest::CfName name = zvrtest::cf(dotted);
    const void* keys[] = {name.data()};
    bytes content(512);
    out << dotted;
    tell_content(out, db_get(task, DB_CAT, 1, keys, content.data(), static_cast<std::uint16_t>(content.size())), content);
    std::vector<std::uint8_t> list(101);
    const int rc = db_cm_by_cat(task, name.data(), list.data(), static_cast<std::uint32_t>(list.size()));
    out << " pairs " << rc;
    for (std::size_t i = 0; rc == DBE_OK && i < list.size(); ++i)
      if (list[i] != 15 && list[i] != 0) out << ' ' << i << ':' << unsigned{list[i]};
    out << '\n';
  }
}

void observe_requests(void* task, std::ostringstream& out) {
  for (const request_type& type : request_types) {
    bytes filter(type.id_len);
    std::memset(filter.data(), 0, filter.size());
    const auto wild = [&filter](std::size_t at) {
      if (at < filter.size()) filter[at] = '*';
    };
    for (const std::size_t at : {0u, 16u, 88u, 104u, 168u}) wild(at);
    if (type.db_id == DB_FAN) wild(112);
    const std::uint32_t any_sequence = 0xFFFFFFFFu;
    const std::uint16_t any_recursion = 0xFFFF;
    std::memcpy(&filter[80], &any_sequence, sizeof any_sequence);
    std::memcpy(&filter[84], &any_recursion, sizeof any_recursion);
    bytes state(332);
    int rc = db_init_list(task, type.db_id, filter.data(), state.data(), static_cast<std::uint32_t>(state.size()));
    out << "requests of type " << type.db_id << ": " << rc;
    while (rc == DBE_OK) {
      bytes record(type.record_len);
      rc = db_get_more(task, type.db_id, state.data(), record.data(), static_cast<std::uint16_t>(record.size()));
      tell_content(out, rc, record);
    }
    out << '\n';
  }
  for (const std::uint32_t sequence : requests)
    for (const unsigned function : {0u, 1u}) {
      const db_coo key = correlator_of(sequence, function);
      const void* keys[] = {&key};
      db_coo found;
      out << "correlator " << sequence << ' ' << function << ' ' << db_get(task, DB_COO, 1, keys, &found, sizeof found)
          << '\n';
    }
}

}  // namespace

bool put_target(void* task, const std::string& name, const std::string& description, bool local) {
  db_trg record = {};
  set_text(record.trg_name, name);
  set_text(record.description, description);
  std::memcpy(record.rgn, "RGN     ", 8);
  std::memset(record.ren, ' ', 8);
  std::memcpy(record.ren, name.data(), std::min<std::size_t>(name.size(), 8));
  record.trg_type = static_cast<unsigned char>(local ? DB_TRG_LOCAL | DB_TRG_CLIENT : 128 | DB_TRG_CLIENT);
  return put_named(task, DB_TRG, name, record);
}

bool del_target(void* task, const std::string& name) {
  const void* keys[] = {name.c_str()};
  return db_del(task, DB_TRG, 1, keys) == DBE_OK;
}

bool put_shadow(void* task, const std::string& target, unsigned parameters, unsigned seed) {
  static db_sht record;
  record = {};
  fill_parameters(&record, target, parameters, seed);
  return put_named(task, DB_SHT, target, record);
}

bool del_shadow(void* task, const std::string& target) {
  const void* keys[] = {target.c_str()};
  return db_del(task, DB_SHT, 1, keys) == DBE_OK;
}

bool put_parameters(void* task, const std::string& target, unsigned parameters, unsigned seed) {
  static db_prm record;
  record = {};
  fill_parameters(&record, target, parameters, seed);
  return put_named(task, DB_PRM, target, record);
}

bool put_hardware(void* task, const std::string& target, unsigned seed) {
  static db_thw record;
  record = {};
  set_text(record.trg_name, target);
  record.num_hw_parms = 1;
  set_text(record.hw_parms[0].name, "disk");
  set_text(record.hw_parms[0].value, numbered("size ", seed));
  return put_named(task, DB_THW, target, record);
}

bool put_change_file(void* task, const std::string& dotted) {
  const zvrtest::CfName name = zvrtest::cf(dotted);
  bytes record(512);
  std::copy(name.begin(), name.end(), record.begin());
  const void* keys[] = {name.data()};
  return done(db_put(task, DB_CAT, 1, keys, record.data(), static_cast<std::uint16_t>(record.size())));
}

bool del_change_file(void* task, const std::string& dotted) {
  const zvrtest::CfName name = zvrtest::cf(dotted);
  const void* keys[] = {name.data()};
  return db_del(task, DB_CAT, 1, keys) == DBE_OK;
}

bool put_status(void* task, const std::string& target, const std::string& change_file, unsigned status) {
  const zvrtest::CfName name = zvrtest::cf(change_file);
  bytes record(176);
  record[140] = static_cast<unsigned char>(status);
  const void* keys[] = {target.c_str(), name.data()};
  return done(db_put(task, DB_CMS, 2, keys, record.data(), static_cast<std::uint16_t>(record.size())));
}

bool del_status(void* task, const std::string& target, const std::string& change_file) {
  const zvrtest::CfName name = zvrtest::cf(change_file);
  const void* keys[] = {target.c_str(), name.data()};
  return db_del(task, DB_CMS, 2, keys) == DBE_OK;
}

bool put_request(void* task, std::uint32_t sequence) {
  const auto put = [&](std::size_t type, const bytes& id) { return put_request_record(task, request_types[type], id); };
  bool good = put(0, request_id(sequence, 0, "", ""));
  for (const unsigned function : {0u, 1u}) {
    const bytes id = request_id(sequence, function, "SRV", "SRV");
    for (std::size_t type = 1; type < std::size(request_types); ++type) good = good && put(type, id);
    good = good && put(4, request_id(sequence, function, "SRV", "T2"));
    db_coo correlator = correlator_of(sequence, function);
    const db_coo key = correlator;
    const void* keys[] = {&key};
    good = good && done(db_put(task, DB_COO, 1, keys, &correlator, sizeof correlator));
  }
  return good;
}

bool put_request_root(void* task, std::uint32_t sequence) {
  return put_request_record(task, request_types[0], request_id(sequence, 0, "", ""));
}

bool has_request_root(void* task, std::uint32_t sequence) {
  bytes key = request_id(sequence, 0, "", "");
  key.resize(request_types[0].id_len);
  const void* keys[] = {key.data()};
  bytes record(request_types[0].record_len);
  return db_get(task, request_types[0].db_id, 1, keys, record.data(), static_cast<std::uint16_t>(record.size())) == DBE_OK;
}

bool del_request(void* task, std::uint32_t sequence) {
  const bytes id = request_id(sequence, 0, "", "");
  return db_del_rq_tree(task, id.data()) == DBE_OK;
}

bool put_start(void* task) {
  for (const char* name : {"LOCAL", "SRC", "SRV", "T1", "T2"})
    if (!put_target(task, name, "of the start")) return false;
  return put_parameters(task, "T1", 20, 1) && put_hardware(task, "T1", 1) && put_shadow(task, "T2", 1000, 1) &&
         put_shadow(task, "SRV", 10, 1) && put_change_file(task, "APP.ONE.REF.1") &&
         put_change_file(task, "APP.TWO.REF.1") && put_status(task, "T1", "APP.ONE.REF.1", 1) &&
         put_status(task, "T1", "APP.TWO.REF.1", 2) && put_status(task, "T2", "APP.ONE.REF.1", 3) &&
         put_request(task, 1) && put_request(task, 2);
}

bool explicit_transaction(void* task, bool keep) {
  return db_start_trans(task, DB_TRG) == DBE_OK && put_target(task, "NEW", "in a transaction") &&
         put_shadow(task, "NEW", 1000, 1) && put_target(task, "T1", "changed in it") && del_shadow(task, "T2") &&
         (keep ? db_commit(task, DB_TRG) : db_rollback(task, DB_TRG)) == DBE_OK;
}

std::string observe(void* task) {
  std::ostringstream out;
  observe_targets(task, out);
  observe_change_files(task, out);
  observe_requests(task, out);
  return out.str();
}

bool work_a_little(void* task) {
  std::uint32_t number = 0;
  return put_target(task, "WORK", "goes on") && put_shadow(task, "WORK", 1000, 3) && del_shadow(task, "WORK") &&
         del_target(task, "WORK") && db_get_trg_index(task, "WORK", &number) == DBE_NO_TARGET;
}

bool work_on(void* task) {
  std::uint32_t number = 0;
  return put_target(task, "WORK", "goes on") && put_shadow(task, "WORK", 1000, 3) && del_shadow(task, "WORK") &&
         put_status(task, "WORK", change_files[0], 3) && db_start_trans(task, DB_TRG) == DBE_OK &&
         put_target(task, "WORK", "goes on longer") && db_commit(task, DB_TRG) == DBE_OK &&
         put_request(task, 9) && del_request(task, 9) && del_target(task, "WORK") &&
         db_get_trg_index(task, "WORK", &number) == DBE_NO_TARGET;
}

}  // namespace crash_test
