// Lists of requests as they are walked: order, what they read, and what happens to them
// meanwhile.
#include <algorithm>
#include <random>

#include "engine/faulty_os.h"
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

using strings = std::vector<std::string>;

class RequestLists : public RequestsTest {
 protected:
  // Target records of one function each, with a target of their own.
  void put_targets(unsigned first, unsigned last, const char* target) {
    for (unsigned n = first; n <= last; ++n) ASSERT_EQ(put_request(DB_RQT, at(n, target)), DBE_OK);
  }
  static Id at(unsigned sequence, const char* target) {
    Id id;
    id.sequence = sequence;
    id.target = target;
    return id;
  }
  static Id by_target(const char* target) {
    Id filter = everything();
    filter.target = target;
    return filter;
  }
  // Sequences of the rest of a list; it must end within so many steps.
  std::vector<std::uint32_t> rest(std::uint32_t db_id, bytes& state, unsigned most = 1000) {
    std::vector<std::uint32_t> found;
    Id id;
    while (found.size() < most && more(db_id, state, &id) == DBE_OK) found.push_back(id.sequence);
    EXPECT_LT(found.size(), most) << "the list goes round";
    return found;
  }
  using numbers = std::vector<std::uint32_t>;
};

TEST_F(RequestLists, FollowTheKeyAndNumbersByTheirValue) {
  Id id;
  const auto with = [&](const char* source, const char* user, std::uint32_t sequence,
                        std::uint16_t recursion) {
    id.source = source;
    id.user = user;
    id.sequence = sequence;
    id.recursion = recursion;
    EXPECT_EQ(put_request(DB_RQR, id), DBE_OK);
  };
  with("SRC2", "A", 1, 0);
  with("SRC", "B", 256, 0);
  with("SRC", "B", 2, 0x100);
  with("SRC", "B", 2, 0xFF);
  with("SRC", "A", 0x01000000, 0);
  with("SRC", "AB", 0, 0);
  EXPECT_EQ(all(DB_RQR), (strings{"SRC.A.16777216.0", "SRC.AB.0.0", "SRC.B.2.255", "SRC.B.2.256",
                                  "SRC.B.256.0", "SRC2.A.1.0"}));
}

TEST_F(RequestLists, AListThatIsOverStaysOver) {
  ASSERT_EQ(put_request(DB_RQR, Id{}), DBE_OK);
  bytes state;
  ASSERT_EQ(begin(DB_RQR, Id{}, state), DBE_OK);
  Id found;
  EXPECT_EQ(more(DB_RQR, state, &found), DBE_OK);
  for (int n = 0; n < 3; ++n) EXPECT_EQ(more(DB_RQR, state, &found), DBE_END_OF_LIST);
}

TEST_F(RequestLists, AFilterThatMatchesNothingIsAListWithoutEntries) {
  bytes state;
  for (const Type& type : request_types()) {
    ASSERT_EQ(begin(type.db_id, Id{}, state), DBE_OK);
    Id found;
    EXPECT_EQ(more(type.db_id, state, &found), DBE_END_OF_LIST) << type.suffix;
  }
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  EXPECT_TRUE(rest(DB_RQT, state).empty());
}

TEST_F(RequestLists, APrefixOfAUserListsThoseWhoBeginSo) {
  for (const char* user : {"A", "AB", "ABC", "AC", "B", "ABCDEFGHIJKLMNOP"}) {
    Id id;
    id.user = user;
    ASSERT_EQ(put_request(DB_RQT, id), DBE_OK);
  }
  Id filter = everything();
  filter.source = "SRC";
  filter.user = "AB*";
  EXPECT_EQ(list(DB_RQT, filter).ids, (strings{"SRC.AB.1.0.FUNC.SRV.T1", "SRC.ABC.1.0.FUNC.SRV.T1",
                                               "SRC.ABCDEFGHIJKLMNOP.1.0.FUNC.SRV.T1"}));
  filter.user = "AB";
  EXPECT_EQ(list(DB_RQT, filter).ids, (strings{"SRC.AB.1.0.FUNC.SRV.T1"})) << "a whole user is no prefix";
}

TEST_F(RequestLists, APrefixOfTheFanoutServerListsThoseThatBeginSo) {
  for (const char* ren : {"A1", "A2", "B1"})
    for (const char* rgn : {"NORTH", "NOR", "SOUTH"}) {
      Id id;
      id.rgn = rgn;
      id.ren = ren;
      ASSERT_EQ(put_request(DB_FAN, id), DBE_OK);
    }
  Id filter;
  filter.rgn = "NORTH";
  filter.ren = "A*";
  EXPECT_EQ(list(DB_FAN, filter).ids, (strings{"SRC.USER.1.0.FUNC.NORTH.A1", "SRC.USER.1.0.FUNC.NORTH.A2"}));
  filter.rgn = "NOR*";
  filter.ren = "*";
  EXPECT_EQ(list(DB_FAN, filter).ids.size(), 6u);
}

TEST_F(RequestLists, AnExactFunctionIsItsNameAndNoLongerOne) {
  for (const char* function : {"F", "F1", "G"}) {
    Id id;
    id.function = function;
    for (const std::uint32_t db_id : {DB_RQF, DB_FAN, DB_RQD, DB_RQT})
      ASSERT_EQ(put_request(db_id, id), DBE_OK);
  }
  Id filter = Id{}.wild(wild_rgn | wild_ren | wild_server | wild_target);
  filter.function = "F";
  for (const std::uint32_t db_id : {DB_RQF, DB_FAN, DB_RQD, DB_RQT})
    EXPECT_EQ(list(db_id, filter).ids.size(), 1u);
  filter.function = "F*";
  for (const std::uint32_t db_id : {DB_RQF, DB_FAN, DB_RQD, DB_RQT})
    EXPECT_EQ(list(db_id, filter).ids.size(), 2u);
}

TEST_F(RequestLists, AnExactPrefixReadsNoRecordOutsideIt) {
  for (std::uint32_t sequence = 1; sequence <= 9; ++sequence)
    for (const Type& type : request_types())
      for (const char* user : {"A", "USER", "Z"}) {
        Id id;
        id.user = user;
        id.sequence = sequence;
        ASSERT_EQ(put_request(type.db_id, id), DBE_OK);
      }
  for (const Type& type : request_types()) {
    Id filter = everything();
    filter.source = "SRC";
    filter.user = "USER";
    bytes state;
    ASSERT_EQ(begin(type.db_id, filter, state), DBE_OK);
    bytes record(type.record_len);
    unsigned found = 0;
    const strings functions = entered([&] {
      while (db_get_more(task, type.db_id, state.data(), record.data(),
                         static_cast<std::uint16_t>(record.size())) == DBE_OK)
        ++found;
    });
    EXPECT_EQ(found, 9u) << type.suffix;
    EXPECT_EQ(std::count(functions.begin(), functions.end(), "db_read"), 9) << type.suffix;
    EXPECT_EQ(std::count(functions.begin(), functions.end(), "prs_ur_key"), 9) << type.suffix;
    EXPECT_EQ(std::count(functions.begin(), functions.end(), "get_more_keyed"), 10) << type.suffix;
  }
}

TEST_F(RequestLists, AListOfKeysReadsNoRecordAtAll) {
  put_targets(1, 9, "T1");
  bytes state;
  ASSERT_EQ(
      begin(DB_RQT, Id{}.wild(wild_target | wild_server | wild_function | wild_recursion | wild_sequence),
            state),
      DBE_OK);
  const strings functions = entered([&] { EXPECT_EQ(rest(DB_RQT, state).size(), 9u); });
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "db_read"), 0);
}

TEST_F(RequestLists, ARecordThatIsDeletedBehindTheListDoesItNoHarm) {
  for (const bool by_destination : {false, true}) {
    put_targets(1, 5, "T1");
    bytes state;
    ASSERT_EQ(begin(DB_RQT, by_destination ? by_target("T1") : everything(), state), DBE_OK);
    numbers found;
    Id id;
    while (more(DB_RQT, state, &id) == DBE_OK) {
      found.push_back(id.sequence);
      ASSERT_EQ(del_request(DB_RQT, id), DBE_OK);
    }
    EXPECT_EQ(found, (numbers{1, 2, 3, 4, 5})) << by_destination;
    EXPECT_TRUE(all(DB_RQT).empty());
  }
}

TEST_F(RequestLists, ARecordMayBeReplacedWhileTheListGoesOn) {
  for (const bool by_destination : {false, true}) {
    bytes state;
    put_targets(1, by_destination ? 0 : 5, "T1");
    ASSERT_EQ(begin(DB_RQT, by_destination ? by_target("T1") : everything(), state), DBE_OK);
    numbers found;
    Id id;
    while (found.size() < 10 && more(DB_RQT, state, &id) == DBE_OK) {
      found.push_back(id.sequence);
      ASSERT_EQ(put_record(DB_RQT, id, full_record(DB_RQT, id, id.sequence)), DBE_RECORD_REPLACED);
    }
    EXPECT_EQ(found, (numbers{1, 2, 3, 4, 5})) << by_destination;
  }
}

// ---- by destination

class ByDestination : public RequestLists {};

TEST_F(ByDestination, ListsOneTargetOfAllRequests) {
  put_targets(1, 3, "T1");
  put_targets(4, 6, "T2");
  put_targets(7, 9, "T1");
  EXPECT_EQ(list(DB_RQT, by_target("T1")).ids.size(), 6u);
  EXPECT_EQ(list(DB_RQT, by_target("T2")).ids.size(), 3u);
  EXPECT_TRUE(list(DB_RQT, by_target("T3")).ids.empty());
}

TEST_F(ByDestination, ListsTheDomainRecordsOfOneServerAndNoTargetRecords) {
  for (std::uint32_t n = 1; n <= 4; ++n) {
    Id id;
    id.sequence = n;
    id.domain = n % 2 ? "SRV" : "SRV2";
    ASSERT_EQ(put_request(DB_RQD, id), DBE_OK);
    ASSERT_EQ(put_request(DB_RQT, id), DBE_OK);
  }
  Id filter = everything();
  filter.domain = "SRV";
  EXPECT_EQ(list(DB_RQD, filter).ids, (strings{"SRC.USER.1.0.FUNC.SRV", "SRC.USER.3.0.FUNC.SRV"}));
  filter.domain = "SRC";
  EXPECT_TRUE(list(DB_RQD, filter).ids.empty());
}

TEST_F(ByDestination, GivesWholeRecords) {
  const bytes record = full_record(DB_RQT, Id{});
  ASSERT_EQ(put_record(DB_RQT, Id{}, record), DBE_OK);
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  bytes back(record.size(), 0x77);
  ASSERT_EQ(db_get_more(task, DB_RQT, state.data(), back.data(), static_cast<std::uint16_t>(back.size())),
            DBE_OK);
  EXPECT_EQ(back, record);
}

// A text without an end is stored up to the end of the record, which makes it a record of
// several pieces, each with the destination in its key.
TEST_F(ByDestination, GivesARecordOfSeveralPiecesOnce) {
  for (const unsigned n : {1u, 2u}) {
    bytes record = at(n, "T1").of(DB_RQT);
    record.resize(40000, 'x');
    ASSERT_EQ(put_record(DB_RQT, at(n, "T1"), record), DBE_OK);
  }
  put_targets(3, 3, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  EXPECT_EQ(rest(DB_RQT, state), (numbers{1, 2, 3}));

  Id id = at(1, "T1");
  bytes record = id.of(DB_RQD);
  record.resize(40000, 'x');
  ASSERT_EQ(put_record(DB_RQD, id, record), DBE_OK);
  Id filter = everything();
  filter.domain = "SRV";
  EXPECT_EQ(list(DB_RQD, filter).ids, strings{id.text(DB_RQD)});
}

TEST_F(ByDestination, ReadsNoRecordOfAnotherTarget) {
  put_targets(1, 20, "T2");
  put_targets(21, 24, "T1");
  put_targets(25, 40, "T3");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  const strings functions = entered([&] { EXPECT_EQ(rest(DB_RQT, state).size(), 4u); });
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "prs_ur_key"), 4);
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "get_more_alt"), 5);
  EXPECT_EQ(std::count(functions.begin(), functions.end(), "db_locate"), 0);
}

TEST_F(ByDestination, GoesOnBehindReadsOfTheTask) {
  put_targets(1, 4, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  numbers found;
  Id id;
  bytes record(10204);
  while (more(DB_RQT, state, &id) == DBE_OK) {
    found.push_back(id.sequence);
    EXPECT_EQ(get_request(DB_RQT, at(1, "T1"), record), DBE_OK);
    EXPECT_EQ(list(DB_RQT, everything()).ids.size(), 4u);
  }
  EXPECT_EQ(found, (numbers{1, 2, 3, 4}));
}

TEST_F(ByDestination, TwoListsShareOnePosition) {
  put_targets(1, 4, "T1");
  put_targets(5, 6, "T2");
  bytes one, two;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), one), DBE_OK);
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), two), DBE_OK);
  Id id;
  ASSERT_EQ(more(DB_RQT, one, &id), DBE_OK);
  ASSERT_EQ(more(DB_RQT, two, &id), DBE_OK);
  EXPECT_EQ(id.sequence, 1u);
  ASSERT_EQ(more(DB_RQT, two, &id), DBE_OK);
  ASSERT_EQ(more(DB_RQT, one, &id), DBE_OK);
  EXPECT_EQ(id.sequence, 3u) << "it goes on where the other one stood";
  // A list of another target takes the position away: the first one is over.
  bytes other;
  ASSERT_EQ(begin(DB_RQT, by_target("T2"), other), DBE_OK);
  ASSERT_EQ(more(DB_RQT, other, &id), DBE_OK);
  EXPECT_EQ(more(DB_RQT, one, &id), DBE_END_OF_LIST);
}

TEST_F(ByDestination, APositionThatIsTakenBackEndsTheList) {
  put_targets(1, 5, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  Id id;
  for (int n = 0; n < 3; ++n) ASSERT_EQ(more(DB_RQT, state, &id), DBE_OK);
  unsigned steps = 0;
  do {
    bytes again;
    Id ignored;
    ASSERT_EQ(begin(DB_RQT, by_target("T1"), again), DBE_OK);
    ASSERT_EQ(more(DB_RQT, again, &ignored), DBE_OK);
  } while (more(DB_RQT, state, &id) == DBE_OK && ++steps < 100);
  EXPECT_EQ(steps, 0u) << "record 2 was given before";
}

TEST_F(ByDestination, NewRecordsOfTheTaskMoveThePositionAndDoNotMakeTheListGoRound) {
  put_targets(1, 5, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  unsigned steps = 0;
  Id id;
  while (more(DB_RQT, state, &id) == DBE_OK && steps < 100) {
    ++steps;
    // Deleted and put again: it may get its number back, or one below the list's place.
    ASSERT_EQ(del_request(DB_RQT, at(1, "T1")), DBE_OK);
    ASSERT_EQ(put_request(DB_RQT, at(1, "T1")), DBE_OK);
  }
  EXPECT_LE(steps, 5u);
}

TEST_F(ByDestination, ChangesOfAnotherProcessAreMetOnTheWay) {
  put_targets(1, 6, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  Id id;
  for (int n = 0; n < 2; ++n) ASSERT_EQ(more(DB_RQT, state, &id), DBE_OK);
  // The record that the list stands on, the next one, and one behind it all.
  EXPECT_EQ(in_child([](void* child) {
              for (const unsigned n : {2u, 3u}) {
                const bytes key = at(n, "T1").of(DB_RQT);
                const void* keys[] = {key.data()};
                if (db_del(child, DB_RQT, 1, keys) != DBE_OK) return 1;
              }
              const Id other = at(3, "T2");
              return put_on(child, DB_RQT, other, short_record(DB_RQT, other, 1)) == DBE_OK ? 0 : 2;
            }),
            0);
  EXPECT_EQ(rest(DB_RQT, state), (numbers{4, 5, 6}));
}

TEST_F(ByDestination, WhenAnotherProcessDeletesAllTheListIsOver) {
  put_targets(1, 6, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  Id id;
  ASSERT_EQ(more(DB_RQT, state, &id), DBE_OK);
  EXPECT_EQ(in_child([](void* child) {
              for (unsigned n = 1; n <= 6; ++n) {
                const bytes key = at(n, "T1").of(DB_RQT);
                const void* keys[] = {key.data()};
                if (db_del(child, DB_RQT, 1, keys) != DBE_OK) return 1;
              }
              return 0;
            }),
            0);
  EXPECT_TRUE(rest(DB_RQT, state).empty());
}

TEST_F(ByDestination, ManyChangesOfAnotherProcessNeverMakeTheListGoRound) {
  put_targets(1, 40, "T1");
  std::mt19937 random(4711);
  for (int round = 0; round < 4; ++round) {
    bytes state;
    ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
    unsigned steps = 0;
    Id id;
    while (more(DB_RQT, state, &id) == DBE_OK && steps < 1000) {
      ++steps;
      if (steps % 8 != 0) continue;
      const unsigned seed = static_cast<unsigned>(random());
      ASSERT_EQ(in_child([seed](void* child) {
                  std::mt19937 own(seed);
                  for (int n = 0; n < 10; ++n) {
                    const Id one = at(1 + static_cast<unsigned>(own() % 60), own() % 2 ? "T1" : "T2");
                    const bytes key = one.of(DB_RQT);
                    const void* keys[] = {key.data()};
                    const int rc = own() % 2 ? db_del(child, DB_RQT, 1, keys)
                                             : put_on(child, DB_RQT, one, short_record(DB_RQT, one, 1));
                    if (rc != DBE_OK && rc != DBE_NOT_FOUND && rc != DBE_RECORD_REPLACED) return 1;
                  }
                  return 0;
                }),
                0);
    }
    EXPECT_LE(steps, 60u);
  }
}

TEST_F(ByDestination, AStateOfAnEarlierTaskDoesNotMakeTheListGoRound) {
  put_targets(1, 5, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  Id id;
  unsigned steps = 0;
  while (more(DB_RQT, state, &id) == DBE_OK && steps < 100) {
    ++steps;
    new_task();
  }
  EXPECT_LE(steps, 5u);
}

TEST_F(ByDestination, ARolledBackTransactionBetweenTwoStepsDoesNoHarm) {
  put_targets(1, 5, "T1");
  bytes state;
  ASSERT_EQ(begin(DB_RQT, by_target("T1"), state), DBE_OK);
  Id id;
  ASSERT_EQ(more(DB_RQT, state, &id), DBE_OK);
  ASSERT_EQ(db_start_trans(task, DB_RQT), DBE_OK);
  ASSERT_EQ(del_request(DB_RQT, at(1, "T1")), DBE_OK);
  ASSERT_EQ(del_request(DB_RQT, at(2, "T1")), DBE_OK);
  ASSERT_EQ(db_rollback(task, DB_RQT), DBE_OK);
  const numbers found = rest(DB_RQT, state);
  EXPECT_LE(found.size(), 5u);
  EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
  EXPECT_EQ(list(DB_RQT, by_target("T1")).ids.size(), 5u);
}

TEST_F(ByDestination, AnyListStateIsWalkedSafely) {
  for (const Type& type : request_types()) {
    ASSERT_EQ(put_request(type.db_id, Id{}), DBE_OK);
    ASSERT_EQ(put_request(type.db_id, at(2, "T2")), DBE_OK);
  }
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(numbered("seed ", seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    const Type& type = request_types()[random() % request_types().size()];
    bytes state;
    ASSERT_EQ(begin(type.db_id, type.db_id == DB_RQT && random() % 2 ? by_target("T1") : everything(), state),
              DBE_OK);
    const unsigned changes = static_cast<unsigned>(random() % 6);
    for (unsigned n = 0; n < changes; ++n) {
      const std::size_t place = random() % 2 ? 244 + random() % 12 : random() % list_len;
      state[place] = static_cast<unsigned char>(random() % 3 ? random() % 4 : random());
    }
    const Type& walked = random() % 4 ? type : request_types()[random() % request_types().size()];
    for (int n = 0; n < 6; ++n) {
      bytes record(random() % (walked.record_len + 1) + 1);
      db_get_more(task, walked.db_id, state.data(), record.data(), static_cast<std::uint16_t>(record.size()));
    }
  }
}

// ---- what a list costs

class CostOfLists : public RequestLists {
 protected:
  void SetUp() override {
    zvrdb::test::install_faulty_os();
    RequestLists::SetUp();
  }
  void TearDown() override {
    RequestLists::TearDown();
    zvrdb::test::remove_faulty_os();
  }
  static std::size_t reads() {
    const auto& events = zvrdb::test::events();
    return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [](const auto& event) {
      return event.call == zvrdb::test::os_call::read;
    }));
  }
};

TEST_F(CostOfLists, AListByDestinationCostsWhatItReturnsAndNotWhatTheFileHolds) {
  ASSERT_EQ(db_start_trans(task, DB_RQT), DBE_OK);
  put_targets(1, 1500, "T2");
  put_targets(1501, 1503, "T1");
  put_targets(1504, 3000, "T3");
  ASSERT_EQ(db_commit(task, DB_RQT), DBE_OK);
  for (const char* target : {"T1", "SRV2"}) {
    new_task();  // with nothing in its cache
    ASSERT_EQ(index_rc("T1"), DBE_OK);
    zvrdb::test::clear_events();
    const std::size_t found = list(DB_RQT, by_target(target)).ids.size();
    EXPECT_EQ(found, std::string(target) == "T1" ? 3u : 0u);
    // Down the tree for the place, and down it for each record, with the header each time.
    EXPECT_LE(reads(), 12 * (found + 1)) << target;
  }
}

}  // namespace
}  // namespace request_test
