#include <lmdb.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "bench_installation.h"
#include "rivals/system_workloads.h"

namespace bench {
namespace {

constexpr char folder_name[] = "/target-names";

void check(int rc, const char* what) {
  if (rc != 0) give_up(what, rc);
}

MDB_val bytes(const void* from, std::size_t n) {
  return {n, const_cast<void*>(from)};
}

}  // namespace

struct TargetNames::Inside {
  MDB_env* env = nullptr;
  MDB_dbi targets = 0;
  MDB_txn* txn = nullptr;

  explicit Inside(const std::string& folder) {
    check(mdb_env_create(&env), "LMDB");
    mdb_env_set_mapsize(env, std::size_t{1} << 30);
    check(mdb_env_open(env, (folder + folder_name).c_str(), 0, 0644), "open of LMDB");
  }
  ~Inside() { mdb_env_close(env); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
};

bool have_target_names() {
  return true;
}

void make_target_names(const std::string& folder, std::uint32_t count, std::string (*name_of)(std::uint32_t)) {
  std::filesystem::create_directory(folder + folder_name);
  TargetNames::Inside inside(folder);
  check(mdb_txn_begin(inside.env, nullptr, 0, &inside.txn), "begin");
  check(mdb_dbi_open(inside.txn, nullptr, 0, &inside.targets), "targets");
  unsigned char head[target_head_len] = {};
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::string name = name_of(i);
    std::memset(head, 0, 64);
    std::memcpy(head, name.data(), name.size());
    MDB_val key = bytes(name.data(), name.size()), data = bytes(head, sizeof head);
    check(mdb_put(inside.txn, inside.targets, &key, &data, 0), "put");
  }
  check(mdb_txn_commit(inside.txn), "commit");
}

TargetNames::TargetNames(const std::string& folder) : inside_(new Inside(folder)) {
  check(mdb_txn_begin(inside_->env, nullptr, MDB_RDONLY, &inside_->txn), "reader");
  check(mdb_dbi_open(inside_->txn, nullptr, 0, &inside_->targets), "targets");
  mdb_txn_reset(inside_->txn);
}

TargetNames::~TargetNames() {
  mdb_txn_abort(inside_->txn);
  delete inside_;
}

bool TargetNames::get(const std::string& name, unsigned char* out, std::size_t length) {
  check(mdb_txn_renew(inside_->txn), "renew");
  MDB_val key = bytes(name.data(), name.size()), data;
  const int rc = mdb_get(inside_->txn, inside_->targets, &key, &data);
  if (rc == 0) std::memcpy(out, data.mv_data, std::min(length, data.mv_size));
  mdb_txn_reset(inside_->txn);
  return rc == 0;
}

}  // namespace bench
