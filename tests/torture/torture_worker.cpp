#include "torture/torture_worker.h"

#include <zvrco/zvrco.h>
#include <zvrdb/zvrdb.h>

#include <algorithm>
#include <set>

namespace torture {
namespace {

constexpr const char* kind_names[kinds] = {"target",  "parameters", "change file", "pair", "own pair",
                                           "request", "correlator", "group",       "user", "connection"};

std::string told(Thing thing) {
  return std::string(kind_names[static_cast<unsigned>(thing.kind)]) + " " + std::to_string(thing.index);
}

}  // namespace

bool Worker::fail(const std::string& what) {
  report_failure(shared_, self_, what);
  return false;
}

bool Worker::expect(int code, int wanted, const char* call, Thing thing) {
  if (code == wanted) return true;
  return fail(std::string(call) + " of " + told(thing) + " answered " + std::to_string(code) + " and not " +
              std::to_string(wanted));
}

void Worker::write_down(const std::vector<Wanted>& changes, Phase first) {
  Note& note = shared_->note[self_];
  for (std::size_t i = 0; i < changes.size(); ++i) {
    note.change[i].kind = static_cast<std::uint32_t>(changes[i].thing.kind);
    note.change[i].index = changes[i].thing.index;
    note.change[i].before = cell(changes[i].thing).load();
    note.change[i].after = changes[i].after;
  }
  note.changes = static_cast<std::uint32_t>(changes.size());
  note.phase = first;
}

void Worker::strike_out(bool done) {
  Note& note = shared_->note[self_];
  for (std::uint32_t i = 0; i < note.changes; ++i) {
    const Change& change = note.change[i];
    cell({static_cast<Kind>(change.kind.load()), change.index}) = done ? change.after.load() : change.before.load();
  }
  note.phase = Phase::nothing;
}

bool Worker::settle() {
  Note& note = shared_->note[self_];
  const Phase phase_of_death = note.phase;
  if (phase_of_death == Phase::nothing) return true;
  bool before = true, after = true;
  std::string seen;
  for (std::uint32_t i = 0; i < note.changes; ++i) {
    const Change& change = note.change[i];
    const Thing thing{static_cast<Kind>(change.kind.load()), change.index};
    const Found found = find_thing(task_, self_, thing);
    if (!found.fault.empty()) return fail("after a death: " + found.fault);
    before = before && found.version == change.before;
    after = after && found.version == change.after;
    seen += told(thing) + " was " + std::to_string(change.before) + ", should be " + std::to_string(change.after) +
            ", is " + std::to_string(found.version) + "; ";
  }
  const bool may_be_before = phase_of_death != Phase::acknowledged, may_be_after = phase_of_death != Phase::open;
  if (!(before && may_be_before) && !(after && may_be_after))
    return fail("after a death in phase " + std::to_string(static_cast<unsigned>(phase_of_death)) + ": " + seen);
  const bool done = after && may_be_after;
  ++(done ? shared_->settled_after : shared_->settled_before);
  strike_out(done);
  return true;
}

std::uint32_t Worker::base_of(Thing thing) {
  switch (thing.kind) {
    case Kind::parameters:
      return cell({Kind::target, thing.index});
    case Kind::own_pair:
      return cell({Kind::target, first_local + thing.index / pairs_of_a_target});
    case Kind::correlator:
      return cell({Kind::request, thing.index});
    default:
      return 1;
  }
}

bool Worker::put(Thing thing) {
  const std::uint32_t known = cell(thing), base = base_of(thing);
  if (base == 0) return true;
  std::uint32_t version = new_version();
  if (thing.kind == Kind::target) version |= known & 1;
  if (thing.kind == Kind::parameters) version /= 2;
  write_down({{thing, version}}, Phase::deciding);
  const int rc = put_thing(task_, self_, thing, version, base);
  if (!expect(rc, known ? DBE_RECORD_REPLACED : answer_of_first_put(thing.kind), "put", thing)) return false;
  phase(Phase::acknowledged);
  strike_out(true);
  return true;
}

bool Worker::remove(Thing thing) {
  const std::uint32_t known = cell(thing), base = base_of(thing);
  if (base == 0) return true;
  if (thing.kind == Kind::user && known == 0) return true;  // one that was deleted is deleted again with DBE_OK
  std::vector<Wanted> changes = {{thing, 0}};
  const auto goes_too = [&](Thing other) {
    if (cell(other)) changes.push_back({other, 0});
  };
  if (thing.kind == Kind::target) {
    goes_too({Kind::parameters, thing.index});
    for (unsigned i = 0; thing.index >= first_local && i < pairs_of_a_target; ++i)
      goes_too({Kind::own_pair, (thing.index - first_local) * pairs_of_a_target + i});
  }
  if (thing.kind == Kind::request) goes_too({Kind::correlator, thing.index});
  write_down(changes, Phase::deciding);
  const int rc = del_thing(task_, self_, thing, known, base);
  if (!expect(rc, known ? DBE_OK : DBE_NOT_FOUND, "delete", thing)) return false;
  phase(Phase::acknowledged);
  strike_out(true);
  return true;
}

bool Worker::rename(Thing target) {
  const std::uint32_t known = cell(target);
  if (known == 0) return true;
  write_down({{target, known ^ 1}}, Phase::deciding);
  const int rc = db_rename_trg(task_, target_name(self_, target.index, known).c_str(),
                               target_name(self_, target.index, known ^ 1).c_str());
  if (!expect(rc, DBE_OK, "rename", target)) return false;
  phase(Phase::acknowledged);
  strike_out(true);
  return true;
}

bool Worker::look_at(Thing thing) {
  const Found found = find_thing(task_, self_, thing);
  if (!found.fault.empty()) return fail(found.fault);
  if (found.version == cell(thing)) return true;
  return fail(told(thing) + " is " + std::to_string(found.version) + " and not " + std::to_string(cell(thing)));
}

// A tree is put whole, in a transaction of its own.
bool Worker::put_or_remove_request() {
  const Thing thing = some(Kind::request);
  const std::uint32_t known = cell(thing);
  if (known && pick(2) == 0) return remove(thing);
  const std::uint32_t version = new_version();
  write_down({{thing, version}}, Phase::open);
  if (!expect(db_start_trans(task_, DB_RQR), DBE_OK, "begin", thing)) return false;
  const int rc = put_thing(task_, self_, thing, version);
  if (!expect(rc, known ? DBE_RECORD_REPLACED : DBE_OK, "put", thing)) return false;
  const bool keep = pick(4) != 0;
  if (!keep) {
    if (!expect(db_rollback(task_, DB_RQR), DBE_OK, "roll-back", thing)) return false;
    strike_out(false);
    return true;
  }
  phase(Phase::deciding);
  if (!expect(db_commit(task_, DB_RQR), DBE_OK, "commit", thing)) return false;
  phase(Phase::acknowledged);
  strike_out(true);
  return true;
}

bool Worker::change_in_transaction(const Wanted& wanted) {
  const std::uint32_t known = cell(wanted.thing);
  if (wanted.after == 0)
    return expect(del_thing(task_, self_, wanted.thing, known), known ? DBE_OK : DBE_NOT_FOUND, "delete", wanted.thing);
  return expect(put_thing(task_, self_, wanted.thing, wanted.after, base_of(wanted.thing)), known ? DBE_RECORD_REPLACED : DBE_OK, "put",
                wanted.thing);
}

// Two to four targets, with their parameters or without.
bool Worker::transaction_on_targets() {
  const unsigned first = pick(10), count = 2 + pick(3);
  std::vector<Wanted> changes;
  for (unsigned i = 0; i < count; ++i) {
    const Thing target{Kind::target, (first + i) % things[0]}, parameters{Kind::parameters, target.index};
    const std::uint32_t known = cell(target);
    if (cell(parameters) && pick(2) == 0)
      changes.push_back({parameters, new_version() / 2});
    else if (known && cell(parameters) == 0 && target.index < first_local && pick(3) == 0)
      changes.push_back({target, 0});
    else
      changes.push_back({target, new_version() | (known & 1)});
  }
  write_down(changes, Phase::open);
  if (!expect(db_start_trans(task_, DB_TRG), DBE_OK, "begin", changes[0].thing)) return false;
  for (const Wanted& wanted : changes)
    if (!change_in_transaction(wanted)) return false;
  if (pick(4) == 0) {
    if (!expect(db_rollback(task_, DB_TRG), DBE_OK, "roll-back", changes[0].thing)) return false;
    strike_out(false);
    return true;
  }
  phase(Phase::deciding);
  if (!expect(db_commit(task_, DB_TRG), DBE_OK, "commit", changes[0].thing)) return false;
  phase(Phase::acknowledged);
  strike_out(true);
  return true;
}

// The lock is held between the two calls.
bool Worker::status_of_a_target() {
  const Thing target = some(Kind::target);
  const std::uint32_t known = cell(target);
  const std::string name = target_name(self_, target.index, known);
  unsigned char status[4];
  const int rc = db_get_trg_stat(task_, name.c_str(), status);
  if (!expect(rc, known ? DBE_OK : DBE_NOT_FOUND, "status", target)) return false;
  if (known == 0) return true;
  status[0] = static_cast<unsigned char>(random_());
  return expect(db_put_trg_stat(task_, name.c_str(), status), DBE_OK, "put of status", target);
}

std::string Worker::name_of(Thing thing) {
  switch (thing.kind) {
    case Kind::target:
      return target_name(self_, thing.index, cell(thing));
    case Kind::change_file:
      return zvrtest::dotted(change_file_name(self_, thing.index));
    default:
      return request_user(self_) + " " + std::to_string(request_number(thing.index));
  }
}

// Each of the worker's own things is listed once if it is there, and no other of its own.
// "" or what is wrong.
std::string Worker::fault_of_list(const std::vector<std::string>& found, Kind kind) {
  std::multiset<std::string> wanted;
  for (unsigned i = 0; i < things[static_cast<unsigned>(kind)]; ++i)
    if (cell({kind, i})) wanted.insert(name_of({kind, i}));
  std::multiset<std::string> own;
  const std::string number = std::to_string(self_);
  for (const std::string& name : found) {
    const bool mine = kind == Kind::target ? name.starts_with("A" + number + ".") || name.starts_with("Z" + number + ".")
                      : kind == Kind::change_file ? name.starts_with("OWN." + number + ".")
                                                  : name.starts_with(request_user(self_) + " ");
    if (mine) own.insert(name);
  }
  if (own == wanted) return {};
  return "a list of " + std::string(kind_names[static_cast<unsigned>(kind)]) + "s has " + std::to_string(own.size()) +
         " of its own and not " + std::to_string(wanted.size());
}

// A list of change files does not outlive the tables in memory, which are built anew after
// deaths: its entries then stand for others.  Such a list is begun again; lists that are wrong
// with no death between them are wrong for good.
bool Worker::look_at_list(Kind kind) {
  const unsigned attempts = kind == Kind::change_file ? 10 : 1;
  std::string wrong;
  for (unsigned i = 0; i < attempts; ++i) {
    std::string fault;
    std::vector<std::string> found;
    if (kind == Kind::target) found = all_targets(task_, &fault);
    if (kind == Kind::change_file) found = all_change_files(task_, &fault);
    if (kind == Kind::request) found = all_requests(task_, request_user(self_), &fault);
    if (!fault.empty()) return fail(fault);
    wrong = fault_of_list(found, kind);
    if (wrong.empty()) return true;
  }
  return fail(wrong);
}

bool Worker::look_at_everything() {
  for (unsigned kind = 0; kind < kinds; ++kind)
    for (unsigned i = 0; i < things[kind]; ++i)
      if (!look_at({static_cast<Kind>(kind), i})) return false;
  return look_at_list(Kind::target) && look_at_list(Kind::change_file) && look_at_list(Kind::request);
}

bool Worker::step() {
  const unsigned choice = pick(100);
  if (choice < 14) return put(some(Kind::target));
  if (choice < 19) return remove(some(Kind::target));
  if (choice < 26) return rename(some(Kind::target));
  if (choice < 34) return put(some(Kind::parameters));
  if (choice < 37) return remove(some(Kind::parameters));
  if (choice < 45) return put(some(pick(2) == 0 ? Kind::pair : Kind::own_pair));
  if (choice < 49) return remove(some(pick(2) == 0 ? Kind::pair : Kind::own_pair));
  if (choice < 54) return put(some(Kind::change_file));
  if (choice < 57) return remove(some(Kind::change_file));
  if (choice < 63) return put_or_remove_request();
  if (choice < 66) return put(some(Kind::correlator));
  if (choice < 73) return transaction_on_targets();
  constexpr Kind simple[] = {Kind::group, Kind::user, Kind::connection, Kind::correlator};
  if (choice < 80) return put(some(simple[pick(3)]));
  if (choice < 83) return remove(some(simple[pick(4)]));
  if (choice < 94) return look_at(some(static_cast<Kind>(pick(kinds))));
  if (choice < 97) return look_at_list(pick(2) == 0 ? Kind::target : Kind::request);
  if (choice < 98) return look_at_list(Kind::change_file);
  return status_of_a_target();
}

}  // namespace torture
