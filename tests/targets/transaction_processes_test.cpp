// Several processes change groups of targets in explicit transactions, on one file or
// on two, while they are killed between write operations: after any death a group is of
// one version, that which was stored or that under way, in memory and in the file.
#include "targets/target_writers.h"

namespace target_test {
namespace {

constexpr unsigned members = 4;
constexpr std::uint32_t requests = DB_RQR;

std::string member(unsigned writer, unsigned at) {
  return numbered("G", writer) + numbered(".", at);
}

class TransactionProcesses : public TargetWriters {
 protected:
  struct Shared {
    StoredVersion group[writers];   // which all of its members bear
  };

  // Stores the version in a member, or deletes it for version 0.
  int change_member(void* own, unsigned writer, unsigned at, std::uint32_t version) {
    const std::string name = member(writer, at);
    const void* keys[] = {name.c_str()};
    if (version == 0) return db_del(own, DB_TRG, 1, keys);
    Record record(name);
    record.description(std::to_string(version)).ren(std::to_string(version % 97));
    record.text(288, 60, std::to_string(version)).type(at == 0 ? server : client);
    if (at > 0) record.server(member(writer, 0));
    return db_put(own, DB_TRG, 1, keys, record.bytes.data(), record_len);
  }

  // One transaction: the first answer that is not the expected one, and then nothing is changed.
  int change_members(void* own, unsigned writer, std::uint32_t old, std::uint32_t version, bool two_files) {
    const int changed = old == 0 ? (version ? DBE_OK : DBE_NOT_FOUND) : (version ? DBE_RECORD_REPLACED : DBE_OK);
    int rc = DBE_OK;
    if (two_files) rc = db_start_trans(own, requests);
    if (rc == DBE_OK) rc = db_start_trans(own, DB_TRG);
    for (unsigned at = 0; rc == DBE_OK && at < members; ++at) {
      const int answer = change_member(own, writer, at, version);
      // An insert where a replacement was due is not told as DBE_OK.
      if (answer != changed) rc = answer != DBE_OK ? answer : DBE_NOT_FOUND;
    }
    if (rc != DBE_OK) {
      if (two_files) db_rollback(own, requests);
      db_rollback(own, DB_TRG);
      return rc;
    }
    if (two_files) rc = db_commit(own, requests);
    return rc == DBE_OK ? db_commit(own, DB_TRG) : rc;
  }

  bool change_group(void* own, unsigned writer, std::mt19937& random) {
    StoredVersion& group = shared->group[writer];
    const std::uint32_t old = group.done;
    const std::uint32_t next = random() % 4 == 0 ? 0 : static_cast<std::uint32_t>(random() | 1u);
    const bool two_files = random() % 3 == 0;
    group.under_way = next;
    const int rc = answer_in_the_end([&] { return change_members(own, writer, old, next, two_files); });
    if (!expect(rc, DBE_OK, 1)) return false;
    group.done = next;
    return true;
  }

  bool look_around(void* own, unsigned writer, std::mt19937& random) {
    char config[100];
    if (!expect(db_get(own, DB_CFG, 0, nullptr, config, sizeof config), DBE_OK, 2)) return false;
    const std::string name = member(writer, static_cast<unsigned>(random() % members));
    const int wanted = shared->group[writer].done ? DBE_OK : DBE_NOT_FOUND;
    unsigned char status[4];
    if (!expect(db_get_trg_stat(own, name.c_str(), status), wanted, 3)) return false;
    if (wanted != DBE_OK) return true;
    status[0] = static_cast<unsigned char>(random());
    return expect(db_put_trg_stat(own, name.c_str(), status), DBE_OK, 4);
  }

  bool step(void* own, unsigned writer, std::mt19937& random) override {
    return random() % 4 == 0 ? look_around(own, writer, random) : change_group(own, writer, random);
  }

  void check_dead_writer(unsigned writer) override {
    StoredVersion& group = shared->group[writer];
    const std::uint32_t first = stored_version(member(writer, 0));
    for (unsigned at = members; at-- > 0;) {
      const std::string name = member(writer, at);
      const std::uint32_t stored = stored_version(name);
      EXPECT_EQ(stored, first) << name;
      EXPECT_TRUE(stored == group.done || stored == group.under_way)
          << name << " is of version " << stored << ", neither " << group.done << " nor " << group.under_way;
      if (stored) {
        EXPECT_EQ(answer_in_the_end([&] { return del(name); }), DBE_OK) << name;
      }
    }
    group.done = 0;
    group.under_way = 0;
  }

  Shared* shared = share<Shared>();
};

TEST_F(TransactionProcesses, AGroupIsOfOneVersionAfterTheDeathOfAWriterBetweenWriteOperations) {
  configure(100, 100, 1000000);  // each replacement counts a server once more
  // Calls of class 0 wait for tables that somebody else has built.
  ASSERT_EQ(index_rc(""), DBE_NO_TARGET);
  run_and_kill({.kills = 12, .fewest_steps = 1, .most_steps = 8});
  for (unsigned w = 0; w < writers; ++w)
    for (unsigned at = 0; at < members; ++at)
      EXPECT_EQ(stored_version(member(w, at)), shared->group[w].done) << member(w, at);
}

}  // namespace
}  // namespace target_test
