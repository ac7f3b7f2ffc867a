// Deletion of a whole request: all there or gone, whatever fails and whoever is killed.
#include <algorithm>
#include <cerrno>
#include <csignal>

#include "engine/format.h"
#include "engine/os_file.h"
#include "support/journal_mode.h"
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

using strings = std::vector<std::string>;

// Lines that only one of the two has.
strings difference(const strings& before, const strings& after) {
  strings lines;
  for (const std::string& line : before)
    if (std::find(after.begin(), after.end(), line) == after.end()) lines.push_back("lost " + line);
  for (const std::string& line : after)
    if (std::find(before.begin(), before.end(), line) == before.end()) lines.push_back("came " + line);
  return lines;
}

class RequestTree : public RequestsTest {
 protected:
  unsigned functions = 2;

  static Id request(std::uint32_t sequence, std::uint16_t recursion = 0) {
    Id id;
    id.sequence = sequence;
    id.recursion = recursion;
    return id;
  }
  static Id function_of(const Id& root, unsigned n) {
    Id id = root;
    id.function = numbered("F", n);
    return id;
  }
  // A root and two functions, each with two targets at two servers, fanout and vector; the
  // first function has a correlator.
  void put_tree(const Id& root) {
    ASSERT_EQ(put_request(DB_RQR, root), DBE_OK);
    for (unsigned n = 0; n < functions; ++n) {
      Id id = function_of(root, n);
      for (const std::uint32_t db_id : {DB_RQF, DB_FAN, DB_RQV}) ASSERT_EQ(put_request(db_id, id), DBE_OK);
      for (const char* server : {"SRV", "SRV2"}) {
        id.domain = server;
        id.target = server[3] ? "T2" : "T1";
        for (const std::uint32_t db_id : {DB_RQD, DB_RQT}) ASSERT_EQ(put_request(db_id, id), DBE_OK);
      }
    }
    ASSERT_EQ(put_correlator(function_of(root, 0), correlators++), DBE_OK);
  }
  static int delete_on(void* own, const Id& root) {
    const bytes id = root.of(DB_RQR);
    return db_del_rq_tree(own, id.data());
  }
  int delete_tree(const Id& root) { return delete_on(task, root); }
  // Records of this request and no others.
  std::size_t records_of(const Id& root) {
    std::size_t count = 0;
    for (const Type& type : request_types()) {
      const Id filter = root.wild(type.all() & ~(wild_source | wild_user | wild_sequence | wild_recursion));
      count += list(type.db_id, filter).ids.size();
    }
    return count;
  }
  std::size_t whole_tree() const { return 1 + functions * 7; }

  std::uint32_t correlators = 1;
};

TEST_F(RequestTree, IsDeletedWithAllItsRecordsAndCorrelators) {
  put_tree(request(1));
  ASSERT_EQ(records_of(request(1)), whole_tree());
  EXPECT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_TRUE(everything_stored().empty());
  EXPECT_FALSE(has_correlator(function_of(request(1), 0)));
  EXPECT_EQ(logged(36461), 1);
  EXPECT_NE(last_logged(36461).find("SRC.USER.1.0."), std::string::npos) << last_logged(36461);
  EXPECT_EQ(logged(36462), 0);
}

TEST_F(RequestTree, WithoutARootNothingIsChangedAndTheLogSaysSo) {
  put_tree(request(1));
  ASSERT_EQ(del_request(DB_RQR, request(1)), DBE_OK);
  const strings before = everything_stored();
  EXPECT_EQ(delete_tree(request(1)), DBE_NOT_FOUND);
  EXPECT_EQ(everything_stored(), before);
  EXPECT_TRUE(has_correlator(function_of(request(1), 0)));
  EXPECT_EQ(logged(36462), 1);
  EXPECT_NE(last_logged(36462).find("SRC.USER.1.0."), std::string::npos);
  EXPECT_NE(last_logged(36462).find("2002"), std::string::npos) << last_logged(36462);
  EXPECT_EQ(tcb()->trans_active[DB_RQR], 0);
}

TEST_F(RequestTree, OfARootAloneIsTheRoot) {
  ASSERT_EQ(put_request(DB_RQR, request(1)), DBE_OK);
  EXPECT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_TRUE(everything_stored().empty());
}

TEST_F(RequestTree, OfAnotherRecursionStays) {
  put_tree(request(1, 0));
  put_tree(request(1, 1));
  EXPECT_EQ(delete_tree(request(1, 0)), DBE_OK);
  EXPECT_EQ(records_of(request(1, 0)), 0u);
  EXPECT_EQ(records_of(request(1, 1)), whole_tree());
  EXPECT_TRUE(has_correlator(function_of(request(1, 1), 0)));
}

TEST_F(RequestTree, ItsNeighboursInTheFileStay) {
  put_tree(request(2, 5));
  const Id middle = request(2, 5);
  std::vector<Id> others(8, middle);
  others[0].sequence = 1;
  others[1].sequence = 3;
  others[2].recursion = 4;
  others[3].recursion = 6;
  others[4].user = "USEQ";
  others[5].user = "USERS";
  others[6].source = "LOCAL";
  others[7].source = "SRC2";
  for (const Id& other : others) put_tree(other);
  EXPECT_EQ(delete_tree(middle), DBE_OK);
  EXPECT_EQ(records_of(middle), 0u);
  for (const Id& other : others) EXPECT_EQ(records_of(other), whole_tree()) << other.text(DB_RQR);
}

TEST_F(RequestTree, HasOnlyTheIdentifiersFourFieldsReadOfTheCaller) {
  put_tree(request(1));
  const bytes id = request(1).of(DB_RQR);  // 88 bytes of memory
  EXPECT_EQ(db_del_rq_tree(task, id.data()), DBE_OK);
}

TEST_F(RequestTree, RecordsOfFunctionsThatAreNotThereGoAsWell) {
  put_tree(request(1));
  for (unsigned n = 0; n < functions; ++n) {
    const bytes key = function_of(request(1), n).of(DB_RQF);
    const void* keys[] = {key.data()};
    ASSERT_EQ(db_del(task, DB_RQF, 1, keys), DBE_OK);
  }
  EXPECT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_TRUE(everything_stored().empty());
}

TEST_F(RequestTree, LongRecordsGoWithAllTheirPieces) {
  put_tree(request(1));
  for (unsigned n = 0; n < functions; ++n)
    ASSERT_EQ(put_record(DB_RQV, function_of(request(1), n), full_record(DB_RQV, request(1))),
              DBE_RECORD_REPLACED);
  EXPECT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_TRUE(everything_stored().empty());
}

TEST_F(RequestTree, OfAnUnknownServerIsTheLookupsOwnCode) {
  Id unknown = request(1);
  unknown.source = "NOBODY";
  EXPECT_EQ(delete_tree(unknown), DBE_NO_TARGET);
  EXPECT_NE(last_logged(36462).find("2008"), std::string::npos) << last_logged(36462);
}

TEST_F(RequestTree, ACallThatTheFrameRefusesIsLoggedWithoutAName) {
  put_tree(request(1));
  set_kind(0);  // whose local target must be there
  ASSERT_EQ(del("LOCAL"), DBE_OK);
  cntl()->fwrite_in_prog = 1;
  EXPECT_EQ(delete_tree(request(1)), DBE_INIT_FAILED);
  EXPECT_EQ(logged(36462), 1);
  EXPECT_EQ(last_logged(36462).find("USER"), std::string::npos) << last_logged(36462);
  EXPECT_NE(last_logged(36462).find("2009"), std::string::npos) << last_logged(36462);
  set_kind(2);
  EXPECT_EQ(records_of(request(1)), whole_tree());
}

TEST_F(RequestTree, NullArgumentsAreRefused) {
  EXPECT_EQ(db_del_rq_tree(nullptr, nullptr), DBE_INIT_FAILED);
  EXPECT_EQ(db_del_rq_tree(task, nullptr), DBE_NOT_FOUND);
  EXPECT_EQ(logged(36462), 1);
}

// ---- inside a client's transaction

TEST_F(RequestTree, DeletionInsideATransactionOnRequestsEndsItWithItsOwn) {
  put_tree(request(1));
  ASSERT_EQ(db_start_trans(task, DB_RQT), DBE_OK);
  ASSERT_EQ(put_request(DB_RQR, request(7)), DBE_OK);
  ASSERT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_EQ(tcb()->trans_active[DB_RQT], 0);
  EXPECT_EQ(db_rollback(task, DB_RQT), DBE_OK) << "finds nothing";
  EXPECT_TRUE(there(DB_RQR, request(7)));
  EXPECT_EQ(records_of(request(1)), 0u);
  // The lock of the installation is free.
  EXPECT_EQ(in_child([](void* child) { return delete_on(child, request(1)) == DBE_NOT_FOUND ? 0 : 1; }), 0);
}

TEST_F(RequestTree, WithoutARootATransactionOfTheClientStaysOpen) {
  ASSERT_EQ(db_start_trans(task, DB_RQR), DBE_OK);
  ASSERT_EQ(put_request(DB_RQR, request(7)), DBE_OK);
  EXPECT_EQ(delete_tree(request(1)), DBE_NOT_FOUND);
  EXPECT_EQ(tcb()->trans_active[DB_RQR], 1);
  ASSERT_EQ(db_rollback(task, DB_RQR), DBE_OK);
  EXPECT_FALSE(there(DB_RQR, request(7)));
}

TEST_F(RequestTree, ATransactionOfTheClientOnCorrelatorsStaysTheClients) {
  put_tree(request(1));
  ASSERT_EQ(db_start_trans(task, DB_COO), DBE_OK);
  ASSERT_EQ(delete_tree(request(1)), DBE_OK);
  EXPECT_EQ(tcb()->trans_active[DB_COO], 1);
  EXPECT_FALSE(has_correlator(function_of(request(1), 0)));
  ASSERT_EQ(db_rollback(task, DB_COO), DBE_OK);
  EXPECT_TRUE(has_correlator(function_of(request(1), 0)));
  EXPECT_EQ(records_of(request(1)), 0u) << "the records are gone for good";
}

TEST_F(RequestTree, LeavesNoLockBehindWhenAnOlderTransactionOnAnotherFileIsOpen) {
  put_tree(request(1));
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(delete_tree(request(1)), DBE_OK);
  ASSERT_EQ(db_commit(task, DB_TRG), DBE_OK);
  EXPECT_EQ(in_child([](void* child) { return delete_on(child, request(1)) == DBE_NOT_FOUND ? 0 : 1; }), 0);
}

// ---- failing storage

// Write operations begin with the writing of their flag: that of the nth from now on is
// refused, with every write that follows.  (A failure in the midst of a write operation
// is the engine's, which may leave that one operation half done, but for a journal: then
// each write counts.)
struct {
  int left = 0;  // 0: none is refused
  bool refusing = false;
  unsigned refused = 0;
  int flushes_left = 0;  // the nth flush from now on fails, once; 0: none
  unsigned flushes = 0;
} fault;

bool begins_write_operation(std::uint64_t offset, const void* from, std::size_t n) {
  return zvrdb::test::journals_on() || (offset == 1010 && n == 2 && *static_cast<const unsigned char*>(from) != 0);
}

std::int64_t write_unless_refused(int file, std::uint64_t offset, const void* from, std::size_t n) {
  const bool this_one = begins_write_operation(offset, from, n) && fault.left > 0 && --fault.left == 0;
  if (this_one) fault.refusing = true;
  if (this_one || fault.refusing) {
    ++fault.refused;
    errno = ENOSPC;
    return -1;
  }
  return zvrdb::engine::linux_ops.write_at(file, offset, from, n);
}

int flush_or_fail(int file) {
  ++fault.flushes;
  if (fault.flushes_left > 0 && --fault.flushes_left == 0) {
    ++fault.refused;
    errno = EIO;
    return -1;
  }
  return zvrdb::engine::linux_ops.flush(file);
}

class FailingTreeDeletion : public RequestTree {
 protected:
  void SetUp() override {
    fault = {};
    operations = zvrdb::engine::linux_ops;
    operations.write_at = write_unless_refused;
    operations.flush = flush_or_fail;
    zvrdb::engine::set_os_ops(&operations);
    RequestTree::SetUp();
    functions = 1;
    put_tree(request(1));
    put_tree(request(2));
  }
  void TearDown() override {
    fault = {};
    RequestTree::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }
  // Behind the end of the records a correlator may stay.
  void put_tree_again() {
    const bytes key = function_of(request(1), 0).of(DB_RQF);
    const void* keys[] = {key.data()};
    const int rc = db_del(task, DB_COO, 1, keys);
    ASSERT_TRUE(rc == DBE_OK || rc == DBE_NOT_FOUND) << rc;
    put_tree(request(1));
  }
  // Each nth failure in turn, until none is met.
  void sweep(bool of_flushes) {
    const strings before = everything_stored();
    unsigned undone = 0;
    for (int nth = 1; nth < 500; ++nth) {
      SCOPED_TRACE(numbered("failure ", static_cast<unsigned>(nth)));
      fault = {};
      (of_flushes ? fault.flushes_left : fault.left) = nth;
      const int rc = delete_tree(request(1));
      const unsigned refused = fault.refused;
      fault = {};
      if (!of_flushes) new_task();  // opens the files anew and finds them as the failure left them
      const strings after = everything_stored();
      EXPECT_EQ(records_of(request(2)), whole_tree());
      if (rc == DBE_OK) {
        EXPECT_EQ(records_of(request(1)), 0u);
        if (refused == 0) {
          EXPECT_FALSE(has_correlator(function_of(request(1), 0)));
          // With journals the two files are flushed once each.
          EXPECT_GE(undone, of_flushes && zvrdb::test::journals_on() ? 2 : whole_tree() + 1);
          return;
        }
        put_tree_again();
      } else {
        EXPECT_EQ(rc, DBE_IO_ERROR);
        // A flush that fails at the very end may have ended the transaction or not.
        if (of_flushes && records_of(request(1)) == 0) {
          put_tree_again();
          continue;
        }
        ++undone;
        ASSERT_EQ(difference(before, after), strings{});
        ASSERT_TRUE(has_correlator(function_of(request(1), 0)));
      }
    }
    ADD_FAILURE() << "something fails for ever";
  }
  zvrdb::engine::os_ops operations;
};

TEST_F(FailingTreeDeletion, IsRolledBackWhereverWritesBeginToFail) {
  sweep(false);
}

TEST_F(FailingTreeDeletion, IsAllOrNothingAtEachFlushThatFails) {
  sweep(true);
}

TEST_F(FailingTreeDeletion, OfAThousandRecordsIsOneTransaction) {
  constexpr unsigned targets = 999;
  const auto put_large = [&](const Id& root) {
    ASSERT_EQ(db_start_trans(task, DB_RQR), DBE_OK);
    ASSERT_EQ(put_request(DB_RQR, root), DBE_OK);
    for (unsigned n = 0; n < targets; ++n) ASSERT_EQ(put_request(DB_RQT, function_of(root, n)), DBE_OK);
    ASSERT_EQ(db_commit(task, DB_RQR), DBE_OK);
  };
  const auto flushes_of = [&](const std::function<void()>& work) {
    fault = {};
    work();
    return fault.flushes;
  };
  put_large(request(3));
  const unsigned tree = flushes_of([&] { ASSERT_EQ(delete_tree(request(3)), DBE_OK); });
  EXPECT_EQ(records_of(request(3)), 0u);
  put_large(request(3));
  const unsigned in_one_transaction = flushes_of([&] {
    ASSERT_EQ(db_start_trans(task, DB_RQR), DBE_OK);
    for (unsigned n = 0; n < targets; ++n) ASSERT_EQ(del_request(DB_RQT, function_of(request(3), n)), DBE_OK);
    ASSERT_EQ(del_request(DB_RQR, request(3)), DBE_OK);
    ASSERT_EQ(db_commit(task, DB_RQR), DBE_OK);
  });
  // The file's free places differ by a few; transactions of their own would be thousands.
  EXPECT_LE(tree, in_one_transaction + 20);
  EXPECT_EQ(records_of(request(3)), 0u);
}

// ---- killed between write operations

int write_operations_left = 0;  // until death; 0: no death
unsigned write_operations = 0;

// Each write operation begins with the arbiter of its file.
zvrdb::engine::lock_answer lock_or_die(int file, std::uint64_t offset, std::uint64_t length) {
  if (offset == zvrdb::engine::arbiter_byte) {
    if (write_operations_left > 0 && --write_operations_left == 0) raise(SIGKILL);
    ++write_operations;
  }
  return zvrdb::engine::linux_ops.lock(file, offset, length);
}

class KilledTreeDeletion : public RequestTree {
 protected:
  void SetUp() override {
    operations = zvrdb::engine::linux_ops;
    operations.lock = lock_or_die;
    zvrdb::engine::set_os_ops(&operations);
    RequestTree::SetUp();
  }
  void TearDown() override {
    RequestTree::TearDown();
    zvrdb::engine::set_os_ops(nullptr);
  }
  zvrdb::engine::os_ops operations;
};

TEST_F(KilledTreeDeletion, LeavesTheWholeTreeOrNoneOfIt) {
  functions = 1;
  put_tree(request(1));
  put_tree(request(2));
  const strings before = everything_stored();
  unsigned whole = 0, gone = 0;
  for (int nth = 1; nth < 2000; ++nth) {
    SCOPED_TRACE(numbered("killed before write operation ", static_cast<unsigned>(nth)));
    const int end = in_child([nth](void* child) {
      // What the task needs before is not the deletion's.
      std::uint32_t number = 0;
      db_get_trg_index(child, "T1", &number);
      write_operations_left = nth;
      const int rc = delete_on(child, request(1));
      write_operations_left = 0;
      return rc == DBE_OK ? 0 : 1;
    });
    const std::size_t left = records_of(request(1));
    EXPECT_TRUE(left == 0 || left == whole_tree()) << left << " records are left";
    EXPECT_EQ(records_of(request(2)), whole_tree());
    const bool correlator = has_correlator(function_of(request(1), 0));
    if (left != 0) {
      ++whole;
      EXPECT_NE(end, 0) << "success was told";
      EXPECT_TRUE(correlator) << "a function has lost its correlator";
      ASSERT_EQ(difference(before, everything_stored()), strings{});
      continue;
    }
    ++gone;
    if (end == 0) {
      EXPECT_FALSE(correlator);
      EXPECT_GT(whole, whole_tree()) << "each record is an operation of its own at least";
      EXPECT_GT(gone, 1u) << "killed behind the end of the records' transaction";
      return;
    }
    EXPECT_EQ(end, -SIGKILL);
    if (correlator) {
      const bytes key = function_of(request(1), 0).of(DB_RQF);
      const void* keys[] = {key.data()};
      ASSERT_EQ(db_del(task, DB_COO, 1, keys), DBE_OK);
    }
    put_tree(request(1));
  }
  ADD_FAILURE() << "the deletion never came to its end";
}

}  // namespace
}  // namespace request_test
