// The list of focal points in common area 24.
#include <cstring>

#include "frame/entry.h"
#include "recfile/recfile.h"
#include "targets/target_fields.h"
#include "targets/targets_fixture.h"

namespace target_test {
namespace {

class FocalPoints : public TargetsTest {
 protected:
  std::uint32_t& count() { return static_cast<std::uint32_t*>(co_croca(task, CO_AREA_FOCAL_POINTS))[1]; }
  char* entry(std::size_t index) {
    return static_cast<char*>(co_croca(task, CO_AREA_FOCAL_POINTS)) + 8 + index * 80;
  }
  std::vector<std::string> listed() {
    std::vector<std::string> all;
    for (std::uint32_t i = 0; i < count(); ++i) all.emplace_back(entry(i));
    return all;
  }
  using Names = std::vector<std::string>;
};

TEST_F(FocalPoints, TheListHoldsFocalPointsInOrderOfAddition) {
  ASSERT_EQ(put(Record("B").mode(focal_point).rgn("N").ren("B1")), DBE_OK);
  ASSERT_EQ(put(Record("C").mode(push)), DBE_OK);
  ASSERT_EQ(put(Record("A").mode(focal_point | pull)), DBE_OK);
  EXPECT_EQ(listed(), (Names{"B", "A"}));
  EXPECT_STREQ(entry(0) + 64, "N");
  EXPECT_STREQ(entry(0) + 72, "B1");
}

TEST_F(FocalPoints, AReplacementRefreshesOrRemovesOrAppends) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  ASSERT_EQ(put(Record("B").mode(focal_point).rgn("NEW")), DBE_RECORD_REPLACED);
  EXPECT_STREQ(entry(1) + 64, "NEW");
  ASSERT_EQ(put(Record("A").mode(push)), DBE_RECORD_REPLACED);
  EXPECT_EQ(listed(), (Names{"B", "C"}));
  EXPECT_EQ(entry(2)[0], 0) << "the entry behind the last is cleared";
  ASSERT_EQ(put(Record("A").mode(focal_point)), DBE_RECORD_REPLACED);
  EXPECT_EQ(listed(), (Names{"B", "C", "A"}));
}

TEST_F(FocalPoints, ARebuildRefreshesTheListAndDoublesNothing) {
  ASSERT_EQ(put(Record("A").mode(focal_point).rgn("N")), DBE_OK);
  std::memset(entry(0) + 64, 'x', 16);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A"}));
  EXPECT_STREQ(entry(0) + 64, "N");
  count() = 0;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A"}));
}

TEST_F(FocalPoints, ARollbackOfAnAdditionTakesItOutOfTheList) {
  ASSERT_EQ(put(Record("A").mode(focal_point)), DBE_OK);
  ASSERT_EQ(put(Record("B").mode(push)), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(put(Record("NEW").mode(focal_point)), DBE_OK);
  ASSERT_EQ(put(Record("B").mode(focal_point)), DBE_RECORD_REPLACED);
  ASSERT_EQ(db_rollback(task, DB_TRG), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A"}));
  EXPECT_EQ(entry(1)[0], 0) << "the entries behind the last are cleared";
}

TEST_F(FocalPoints, ARollbackOfADeletionOrARenameBringsItBack) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(del("A"), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "B", "BB"), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_TRG), DBE_OK);
  EXPECT_EQ(listed(), (Names{"C", "A", "B"})) << "those that came back were added last";
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(del("B"), DBE_OK);
  EXPECT_EQ(listed(), (Names{"C"}));
}

TEST_F(FocalPoints, ATaskThatEndsInATransactionLeavesNoneBehind) {
  ASSERT_EQ(put(Record("A").mode(focal_point)), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_TRG), DBE_OK);
  ASSERT_EQ(put(Record("HALF").mode(focal_point)), DBE_OK);
  new_task();
  EXPECT_EQ(index_rc("A"), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A"}));
}

TEST_F(FocalPoints, ADeletionKilledBeforeItReachedTheListIsMadeUpFor) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  const std::uint32_t doomed = number("A");
  kill_writer_after([doomed](void* own) {
    namespace frame = zvrdb::frame;
    if (frame::dbr_in(own, frame::operation::write, DB_TRG) != DBE_OK) return;
    zvrdb::targets::target_key key{DB_TRG, doomed, 0};
    zvrdb::recfile::db_delete(own, &key, frame::tcb_of(own)->trg_file);
  });
  EXPECT_EQ(index_rc("A"), DBE_NO_TARGET);
  EXPECT_EQ(listed(), (Names{"B"}));
  EXPECT_EQ(put(Record("A").mode(push)), DBE_OK);
  EXPECT_EQ(listed(), (Names{"B"}));
}

TEST_F(FocalPoints, AnEntryThatAKillLeftTwiceStandsOnceAfterwards) {
  for (const char* name : {"A", "B", "C"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  // The removal of A, killed after it had moved one of the two entries behind it.
  std::memcpy(entry(0), entry(1), 80);
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(listed(), (Names{"B", "C", "A"}));
  EXPECT_EQ(entry(3)[0], 0);
}

TEST_F(FocalPoints, WhatIsNoFocalPointLeavesTheListAtARebuild) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  ASSERT_EQ(put(Record("C").mode(push)), DBE_OK);
  std::memset(entry(2), 'x', 80);
  std::strcpy(entry(3), "C");
  count() = 0xFFFFFFFF;
  ASSERT_EQ(rebuild(), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A", "B"}));
  EXPECT_EQ(entry(2)[0], 0);
  EXPECT_EQ(entry(3)[0], 0);
}

TEST_F(FocalPoints, DeletionAndRenameReachTheList) {
  for (const char* name : {"A", "B"}) ASSERT_EQ(put(Record(name).mode(focal_point)), DBE_OK);
  ASSERT_EQ(db_rename_trg(task, "B", "BB"), DBE_OK);
  EXPECT_EQ(listed(), (Names{"A", "BB"}));
  ASSERT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(listed(), (Names{"BB"}));
}

TEST_F(FocalPoints, AMissingEntryIsToldWhenItsTargetIsDeletedOrRenamed) {
  ASSERT_EQ(put(Record("A").mode(focal_point).type(remote | server)), DBE_OK);
  ASSERT_EQ(put(Record("B").mode(focal_point)), DBE_OK);
  count() = 0;
  EXPECT_EQ(db_rename_trg(task, "B", "C"), DBE_IO_ERROR);
  EXPECT_EQ(get("C").rc, DBE_OK) << "renamed all the same";
  EXPECT_EQ(del("A"), DBE_IO_ERROR);
  EXPECT_EQ(get("A").rc, DBE_NOT_FOUND) << "deleted all the same";
  EXPECT_EQ(cntl()->num_trgs_actual, 1u);
  EXPECT_EQ(cntl()->num_srv_actual, 1u) << "the count of servers is lowered last";
  EXPECT_EQ(logged(36468), 2);
}

TEST_F(FocalPoints, ACountBeyondTheAreaIsNotBelieved) {
  ASSERT_EQ(put(Record("A").mode(focal_point)), DBE_OK);
  count() = 0xFFFFFFFF;
  EXPECT_EQ(put(Record("A").mode(focal_point).rgn("N")), DBE_RECORD_REPLACED);
  EXPECT_STREQ(entry(0) + 64, "N");
  EXPECT_EQ(put(Record("B").mode(focal_point)), DBE_OK) << "a full list stays as it is";
  EXPECT_EQ(logged(36383), 1);
  EXPECT_EQ(del("A"), DBE_OK);
  EXPECT_EQ(count(), CO_FOCAL_CAPACITY - 1);
}

}  // namespace
}  // namespace target_test
