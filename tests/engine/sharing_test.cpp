// Several processes on one file: slots, share modes, record locks, transactions of the
// dead and the living, changes seen by others.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "engine/agent.h"
#include "engine/engine_handle.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

class Sharing : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = folder_.file("shared");
    handle h;
    ASSERT_EQ(h.create(path_), 0);
    ASSERT_EQ(engine::csetfile(h, 4), 0);
    for (int i = 1; i <= 50; i++) ASSERT_EQ(h.insert(sample(i)), 0);
    ASSERT_EQ(h.close(), 0);
  }
  std::string open(const std::string& how = "S 2") { return "open " + path_ + " " + how; }
  std::string find(int i) { return "find " + std::to_string(i); }
  engine::file_summary summary() {
    engine::file_summary s;
    std::string reason;
    engine::summarize_file(path_.c_str(), &s, &reason);
    return s;
  }
  void expect_sound() {
    check_result result = check_file(path_, true);
    EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  }
  scratch_folder folder_;
  std::string path_;
};

TEST_F(Sharing, The210thHandleFindsNoSlot) {
  std::vector<std::unique_ptr<handle>> handles;
  for (int i = 0; i < 209; i++) {
    handles.push_back(std::make_unique<handle>());
    ASSERT_EQ(handles.back()->open(path_), 0) << i;
  }
  handle in_this_process;
  int result = in_this_process.open(path_);
  EXPECT_EQ(result, engine::e_no_slot);
  agent other;
  EXPECT_EQ(other.tell(open()), result);
  ASSERT_EQ(handles[100]->close(), 0);
  EXPECT_EQ(other.tell(open()), 0);
  EXPECT_EQ(other.tell(find(7)), 0);
}

TEST_F(Sharing, AnExclusiveOpenRefusesAllOthers) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open("E 2")), 0);
  EXPECT_EQ(other.tell(open("S 2")), engine::e_not_found);
  EXPECT_EQ(other.tell(open("S 1")), engine::e_not_found);
  EXPECT_EQ(other.tell(open("D 2")), engine::e_not_found);
  EXPECT_EQ(other.tell(open("E 2")), engine::e_not_found);
  ASSERT_EQ(owner.tell("close"), 0);
  EXPECT_EQ(other.tell(open("S 2")), 0);
}

TEST_F(Sharing, ASharedOpenRefusesAnExclusiveOne) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open("S 2")), 0);
  EXPECT_EQ(other.tell(open("E 2")), engine::e_not_found);
  EXPECT_EQ(other.tell("clear " + path_), engine::e_not_found);
  EXPECT_EQ(other.tell(open("S 2")), 0);
  ASSERT_EQ(owner.tell("close"), 0);
  ASSERT_EQ(other.tell("close"), 0);
  EXPECT_EQ(other.tell(open("E 2")), 0);
}

TEST_F(Sharing, AnOpenForOneWriterLetsReadersInAndNoOtherWriter) {
  agent writer, reader, other;
  ASSERT_EQ(writer.tell(open("D 2")), 0);
  EXPECT_EQ(reader.tell(open("S 1")), 0);
  EXPECT_EQ(other.tell(open("S 2")), engine::e_not_found);
  EXPECT_EQ(other.tell(open("D 2")), engine::e_not_found);
  EXPECT_EQ(writer.tell("insert 77"), 0);
  EXPECT_EQ(reader.tell(find(77)), 0);
  EXPECT_EQ(reader.tell(find(78)), engine::e_not_found);
}

TEST_F(Sharing, TheDeathOfAnExclusiveOwnerSetsTheFileFree) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open("E 2")), 0);
  ASSERT_EQ(owner.tell("die"), agent::died);
  EXPECT_EQ(other.tell(open("E 2")), 0);
}

TEST_F(Sharing, ChangesOfOneProcessAreSeenByTheOthersAtOnce) {
  agent writer, reader;
  ASSERT_EQ(writer.tell(open()), 0);
  ASSERT_EQ(reader.tell(open()), 0);
  for (int i = 100; i < 160; i++) {
    std::string number = std::to_string(i);
    ASSERT_EQ(reader.tell("find " + number), engine::e_not_found);
    ASSERT_EQ(writer.tell("insert " + number), 0);
    ASSERT_EQ(reader.tell("find " + number), 0);
    ASSERT_EQ(reader.tell("number"), sample(i).number);
    ASSERT_EQ(reader.tell("change " + number + " " + std::to_string(5000 + i)), 0);
    ASSERT_EQ(writer.tell("find " + number), 0);
    ASSERT_EQ(writer.tell("number"), 5000 + i);
    ASSERT_EQ(writer.tell("remove"), 0);
    ASSERT_EQ(reader.tell("find " + number), engine::e_not_found);
  }
  expect_sound();
}

TEST_F(Sharing, AWalkGoesOnFromItsKeyAfterOthersChangedTheFile) {
  std::vector<int> order;
  for (int i = 1; i <= 50; i++) order.push_back(i);
  std::sort(order.begin(), order.end(), [](int a, int b) { return sample(a).name < sample(b).name; });
  agent walker, writer;
  ASSERT_EQ(walker.tell(open()), 0);
  ASSERT_EQ(writer.tell(open()), 0);
  ASSERT_EQ(walker.tell("seq 1 3"), 0);
  for (std::size_t at = 1; at < 40; at++) {
    // The record that the walk stands on is deleted, and some others are added.
    ASSERT_EQ(writer.tell(find(order[at - 1])), 0);
    ASSERT_EQ(writer.tell("remove"), 0);
    ASSERT_EQ(walker.tell("seq 1 1"), 0) << at;
    ASSERT_EQ(walker.tell("number"), sample(order[at]).number) << at;
  }
  ASSERT_EQ(writer.tell(find(order[39])), 0);
  ASSERT_EQ(writer.tell("remove"), 0);
  EXPECT_EQ(walker.tell("seq 1 2"), engine::e_not_found);
}

TEST_F(Sharing, ATransactionOfALivingProcessIsBusy) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(other.tell(open()), 0);
  ASSERT_EQ(owner.tell("begin"), 0);
  EXPECT_EQ(other.tell("state"), engine::e_trans_busy);
  EXPECT_EQ(other.tell("begin"), engine::e_trans_busy);
  EXPECT_EQ(other.tell("end"), engine::e_trans_busy);
  EXPECT_EQ(other.tell("back"), engine::e_trans_none);
  ASSERT_EQ(owner.tell("insert 60"), 0);
  EXPECT_EQ(owner.tell("state"), engine::e_trans_interrupted);
  EXPECT_EQ(other.tell("state"), engine::e_trans_busy);
  ASSERT_EQ(owner.tell("end"), 0);
  EXPECT_EQ(other.tell("state"), 0);
  EXPECT_EQ(other.tell("begin"), 0);
}

TEST_F(Sharing, ATransactionOfADeadProcessIsInterruptedAndRolledBackByAnother) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(other.tell(open()), 0);
  ASSERT_EQ(owner.tell("begin"), 0);
  ASSERT_EQ(owner.tell("insert 60"), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("remove"), 0);
  ASSERT_EQ(other.tell(find(60)), 0);
  ASSERT_EQ(owner.tell("die"), agent::died);
  EXPECT_EQ(other.tell("state"), engine::e_trans_interrupted);
  EXPECT_EQ(other.tell("begin"), engine::e_trans_interrupted);
  EXPECT_EQ(other.tell("back"), 0);
  EXPECT_EQ(other.tell(find(60)), engine::e_not_found);
  EXPECT_EQ(other.tell(find(7)), 0);
  EXPECT_EQ(other.tell("begin"), 0);
  EXPECT_EQ(other.tell("end"), 0);
  expect_sound();
}

TEST_F(Sharing, ARecordLockedByALivingProcessIsRefused) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(other.tell(open()), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("lock"), 0);
  EXPECT_EQ(owner.tell("lock"), 0);
  EXPECT_EQ(summary().locks, 1U);
  ASSERT_EQ(other.tell(find(7)), 0);
  EXPECT_EQ(other.tell("lock"), engine::e_locked_by_other);
  EXPECT_EQ(other.tell("unlock"), engine::e_locked_by_other);
  ASSERT_EQ(other.tell(find(8)), 0);
  EXPECT_EQ(other.tell("lock"), 0);
  ASSERT_EQ(owner.tell("unlock"), 0);
  EXPECT_EQ(summary().locks, 1U);
  ASSERT_EQ(other.tell(find(7)), 0);
  EXPECT_EQ(other.tell("lock"), 0);
  expect_sound();
}

TEST_F(Sharing, TheLockOfADeadProcessIsTakenOver) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(other.tell(open()), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("lock"), 0);
  ASSERT_EQ(other.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("die"), agent::died);
  EXPECT_EQ(other.tell("lock"), 0);
  EXPECT_EQ(other.tell("change 7 4711"), 0);
  EXPECT_EQ(summary().locks, 0U);
  expect_sound();
}

TEST_F(Sharing, TheLockOfADeadProcessIsTakenOverInsideATransaction) {
  agent owner, other;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(other.tell(open()), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("lock"), 0);
  ASSERT_EQ(owner.tell("die"), agent::died);
  ASSERT_EQ(other.tell("begin"), 0);
  ASSERT_EQ(other.tell(find(7)), 0);
  EXPECT_EQ(other.tell("change 7 4711"), 0);
  EXPECT_EQ(other.tell("end"), 0);
  expect_sound();
}

TEST_F(Sharing, AMoveOfTheKey19CursorDropsTheLock) {
  agent owner;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("lock"), 0);
  ASSERT_EQ(owner.tell(find(8)), 0);
  ASSERT_EQ(owner.tell("number"), sample(8).number);
  EXPECT_EQ(summary().locks, 0U);
}

TEST_F(Sharing, ACloseDropsTheLocks) {
  agent owner;
  ASSERT_EQ(owner.tell(open()), 0);
  ASSERT_EQ(owner.tell(find(7)), 0);
  ASSERT_EQ(owner.tell("lock"), 0);
  ASSERT_EQ(owner.tell("close"), 0);
  EXPECT_EQ(summary().locks, 0U);
}

TEST_F(Sharing, AWriterKilledBetweenFlagAndClearingLeavesTheFileToClrwrit) {
  agent writer, other;
  ASSERT_EQ(writer.tell(open()), 0);
  ASSERT_EQ(writer.tell("kill_after_flag 2"), 0);
  ASSERT_EQ(writer.tell("insert 60"), agent::died);
  EXPECT_TRUE(summary().header.write_flag);
  EXPECT_EQ(other.tell(open()), engine::e_write_flag);
  EXPECT_EQ(other.tell("clear " + path_), 0);
  EXPECT_EQ(other.tell(open()), 0);
  EXPECT_EQ(other.tell(find(7)), 0);
}

TEST_F(Sharing, AWriterKilledInATransactionMidWriteIsRolledBack) {
  agent writer, other;
  ASSERT_EQ(writer.tell(open()), 0);
  ASSERT_EQ(writer.tell("begin"), 0);
  ASSERT_EQ(writer.tell("insert 60"), 0);
  // The flag alone is on disk, none of the data.
  ASSERT_EQ(writer.tell("kill_after_flag 1"), 0);
  ASSERT_EQ(writer.tell("insert 61"), agent::died);
  EXPECT_EQ(other.tell(open()), engine::e_write_flag);
  EXPECT_EQ(other.tell("clear " + path_), 0);
  ASSERT_EQ(other.tell(open()), 0);
  EXPECT_EQ(other.tell("state"), engine::e_trans_interrupted);
  EXPECT_EQ(other.tell("back"), 0);
  EXPECT_EQ(other.tell(find(60)), engine::e_not_found);
  EXPECT_EQ(other.tell(find(61)), engine::e_not_found);
  EXPECT_EQ(other.tell(find(7)), 0);
  expect_sound();
}

TEST_F(Sharing, ReadersNeverSeeHalfAWrite) {
  // The writer toggles a record's number while this process reads it by two keys.
  agent writer;
  ASSERT_EQ(writer.tell(open()), 0);
  ASSERT_EQ(writer.tell(find(7)), 0);
  handle reader;
  ASSERT_EQ(reader.open_for_work(path_), 0);
  for (int round = 0; round < 300; round++) {
    writer.send("change 7 " + std::to_string(9000 + round));
    for (int i = 0; i < 3; i++) {
      ASSERT_EQ(reader.find_name(sample(7).name), 0);
      sample_record found;
      ASSERT_EQ(reader.read(&found), 0);
      ASSERT_TRUE(found.number == sample(7).number || found.number / 1000 == 9) << found.number;
      std::int32_t lowest = 9000;
      int result = engine::dfind(reader, 3, &lowest, 3, engine::find_greater_equal);
      ASSERT_TRUE(result == 0 || result == 2 || (round == 0 && result == engine::e_not_found)) << result;
    }
    ASSERT_EQ(writer.answer(), 0);
  }
  expect_sound();
}

TEST_F(Sharing, TheCheckRunsBesideAWriter) {
  agent writer;
  ASSERT_EQ(writer.tell(open()), 0);
  for (int i = 100; i < 300; i++) {
    writer.send("insert " + std::to_string(i));
    expect_sound();
    ASSERT_EQ(writer.answer(), 0);
  }
}

TEST_F(Sharing, TheCheckTellsThatItReadAFileTakenWhole) {
  agent owner;
  ASSERT_EQ(owner.tell(open("E 2")), 0);
  check_result result = check_file(path_, true);
  EXPECT_EQ(result.outcome, engine::report_outcome::sound) << result.text();
  ASSERT_FALSE(result.notes.empty());
  EXPECT_NE(result.notes[0].text.find("read as it lay"), std::string::npos);
  ASSERT_EQ(owner.tell("close"), 0);
  EXPECT_TRUE(check_file(path_, true).notes.empty());
}

TEST_F(Sharing, ManyWritersKeepTheFileSound) {
  std::vector<std::unique_ptr<agent>> agents;
  for (int a = 0; a < 4; a++) {
    agents.push_back(std::make_unique<agent>());
    ASSERT_EQ(agents.back()->tell(open()), 0);
  }
  for (int i = 100; i < 220; i += 4) {
    for (int a = 0; a < 4; a++) agents[static_cast<std::size_t>(a)]->send("insert " + std::to_string(i + a));
    for (int a = 0; a < 4; a++) ASSERT_EQ(agents[static_cast<std::size_t>(a)]->answer(), 0);
  }
  EXPECT_EQ(summary().records, 170U);
  expect_sound();
}

}  // namespace
}  // namespace zvrdb::test
