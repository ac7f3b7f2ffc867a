// The bytes of a journal: what was appended is read again, and nothing else ever is.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "engine/crc32c.h"
#include "engine/engine.h"
#include "engine/journal_file.h"
#include "engine/sample_files.h"
#include "engine/faulty_os.h"
#include "engine/scratch_folder.h"

namespace zvrdb::test {
namespace {

using engine::journal_file;

using header_bytes = std::uint8_t[engine::header_size];

struct changed_node {
  std::int32_t number;
  std::uint8_t fill;   // the byte that fills it
  std::uint16_t from = engine::node_head_size;
  std::uint16_t length = engine::page_size - engine::node_head_size;
};
struct change {
  std::uint32_t generation;
  bool moves_generation_only;
  std::vector<changed_node> nodes;
};

engine::node_change node_of(const void* context, std::uint32_t i) {
  static std::array<std::uint8_t, engine::page_size> page;
  const changed_node& c = static_cast<const change*>(context)->nodes[i];
  page.fill(c.fill);
  return {c.number, c.from, c.length, page.data(), page.data() + c.from};
}

void fill_header(header_bytes& header, std::uint32_t generation) {
  std::memset(header, 0x5A, sizeof header);
  std::memcpy(header, &generation, sizeof generation);
}

class JournalFile : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = folder_.file("file.jnl");
    j_.identity = 77;
    ASSERT_EQ(engine::make_journal(&j_, path_.c_str()), 0);
    header_bytes header;
    fill_header(header, 10);
    ASSERT_EQ(engine::begin_life(&j_, header, 10, 10), 0);
  }
  void TearDown() override { engine::close_journal(&j_); }

  int append(const change& c, const engine::group_link* promise = nullptr,
             const engine::group_link* decision = nullptr) {
    header_bytes header;
    fill_header(header, c.generation);
    engine::group_to_write g = {};
    g.generation_before = j_.at.generation;
    g.generation_after = c.generation;
    g.extent = 100;
    if (!c.moves_generation_only) {
      g.header = header;
      g.nodes = static_cast<std::uint32_t>(c.nodes.size());
      g.node_at = node_of;
      g.context = &c;
      g.promise = promise;
      g.decision = decision;
    }
    return engine::append_group(&j_, g);
  }
  void append_samples() {
    for (const change& c : samples()) ASSERT_EQ(append(c), 0);
  }
  static std::vector<change> samples() {
    return {{11, false, {{3, 0x11}, {4, 0x12}}}, {12, true, {}}, {13, false, {{3, 0x21, 500, 0}}},
            {14, false, {{3, 0x31, 30, 7}, {4, 0x32, 1017, 7}}}};
  }
  // How many of the samples a fresh reader finds; every group found is compared.
  int found(std::uint64_t identity = 77) {
    journal_file r;
    r.identity = identity;
    EXPECT_EQ(engine::open_journal(&r, path_.c_str()), 0);
    EXPECT_EQ(engine::catch_up(&r, true), 0);
    int count = 0;
    if (r.alive) {
      engine::group_place at = engine::first_place(&r);
      const std::vector<change> expected = samples();
      while (at.at < r.at.end) {
        engine::group_read g;
        EXPECT_EQ(engine::read_group(&r, at, &g), 1);
        const change& c = expected.at(static_cast<std::size_t>(count++));
        EXPECT_EQ(g.generation_after, c.generation);
        EXPECT_EQ(g.header == nullptr, c.moves_generation_only);
        EXPECT_EQ(g.nodes, c.nodes.size());
        engine::node_walk walk(g);
        for (const changed_node& expected_node : c.nodes) {
          engine::node_change node;
          EXPECT_TRUE(engine::next_node(&walk, &node));
          EXPECT_EQ(node.number, expected_node.number);
          EXPECT_EQ(node.from, expected_node.from);
          EXPECT_EQ(node.length, expected_node.length);
          const std::vector<std::uint8_t> fill(engine::page_size, expected_node.fill);
          EXPECT_EQ(std::memcmp(node.head, fill.data(), engine::node_head_size), 0);
          EXPECT_EQ(std::memcmp(node.entries, fill.data(), node.length), 0);
        }
        engine::node_change none;
        EXPECT_FALSE(engine::next_node(&walk, &none));
        at = engine::place_behind(at, g);
      }
    }
    engine::close_journal(&r);
    return count;
  }
  void patch(std::size_t at, const std::vector<unsigned char>& bytes) {
    ASSERT_EQ(pwrite(j_.file, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
  }

  scratch_folder folder_;
  std::string path_;
  journal_file j_;
};

TEST(Crc32c, HasTheValuesThatArePublished) {
  EXPECT_EQ(engine::crc32c(0, "123456789", 9), 0xE3069283u);
  const std::array<std::uint8_t, 32> zeros{};
  EXPECT_EQ(engine::crc32c(0, zeros.data(), zeros.size()), 0x8A9136AAu);
  std::array<std::uint8_t, 32> rising;
  for (std::size_t i = 0; i < rising.size(); i++) rising[i] = static_cast<std::uint8_t>(i);
  EXPECT_EQ(engine::crc32c(0, rising.data(), rising.size()), 0x46DD794Eu);
  EXPECT_EQ(engine::crc32c(engine::crc32c(0, rising.data(), 13), rising.data() + 13, 19), 0x46DD794Eu);
  for (std::size_t n = 0; n <= rising.size(); ++n)
    EXPECT_EQ(engine::crc32c_without_instruction(7, rising.data(), n), engine::crc32c(7, rising.data(), n));
}

TEST(Crc32c, IsTheSameWithTheInstructionOfTheProcessorAtEveryLength) {
  std::vector<std::uint8_t> bytes(2000);
  for (std::size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<std::uint8_t>(i * i * 31 + i / 7);
  std::uint32_t before = 0;
  for (std::size_t n = 0; n < bytes.size(); n++) {
    const std::uint8_t* from = bytes.data() + n % 9;
    const std::size_t length = std::min(n, bytes.size() - n % 9);
    const std::uint32_t one = engine::crc32c_without_instruction(before, from, length);
    ASSERT_EQ(engine::crc32c(before, from, length), one) << length << " bytes";
    before = one;
  }
}

TEST_F(JournalFile, GivesBackWhatWasAppended) {
  append_samples();
  EXPECT_EQ(found(), 4);
}

TEST_F(JournalFile, ASecondHandleCatchesUpWithTheFirst) {
  journal_file r;
  r.identity = 77;
  ASSERT_EQ(engine::open_journal(&r, path_.c_str()), 0);
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_EQ(r.at.generation, 10u);
  append_samples();
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_EQ(r.at.generation, 14u);
  EXPECT_EQ(r.at.end, j_.at.end);
  EXPECT_TRUE(r.at.any_change);
  header_bytes header;
  fill_header(header, 14);
  ASSERT_EQ(engine::begin_life(&j_, header, 14, 14), 0);
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_FALSE(r.at.any_change);
  EXPECT_EQ(r.salt, j_.salt);
  engine::close_journal(&r);
}

TEST_F(JournalFile, ANewLifeForgetsTheGroupsOfTheOldOne) {
  append_samples();
  header_bytes header;
  fill_header(header, 14);
  ASSERT_EQ(engine::begin_life(&j_, header, 14, 14), 0);
  EXPECT_EQ(found(), 0);
}

TEST_F(JournalFile, OfAnotherFileIsNotAlive) {
  append_samples();
  EXPECT_EQ(found(78), 0);
}

TEST_F(JournalFile, EveryTruncationEndsAtAWholeGroup) {
  append_samples();
  std::vector<std::uint64_t> ends;
  journal_file r = j_;
  r.buffer = nullptr;
  r.capacity = 0;
  engine::group_place at = engine::first_place(&r);
  while (at.at < j_.at.end) {
    engine::group_read g;
    ASSERT_EQ(engine::read_group(&r, at, &g), 1);
    ends.push_back(at.at + g.length);
    at = engine::place_behind(at, g);
  }
  ASSERT_EQ(ends.size(), 4u);
  for (std::uint64_t length = j_.at.end; length > 0; length -= length > 4096 ? 1 : 16) {
    ASSERT_EQ(truncate(path_.c_str(), static_cast<off_t>(length)), 0);
    int whole = 0;
    for (const std::uint64_t end : ends) whole += end <= length;
    ASSERT_EQ(found(), length < engine::journal_head_size ? 0 : whole) << length;
  }
  r.file = -1;
  engine::close_journal(&r);
}

TEST_F(JournalFile, EveryBitFlippedInAGroupEndsTheJournalBeforeIt) {
  append_samples();
  const std::vector<unsigned char> bytes = read_file(path_);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> groups;   // begin, end of the bytes that count
  {
    journal_file r = j_;
    r.buffer = nullptr;
    r.capacity = 0;
    for (engine::group_place at = engine::first_place(&r); at.at < j_.at.end;) {
      engine::group_read g;
      ASSERT_EQ(engine::read_group(&r, at, &g), 1);
      groups.push_back({at.at, at.at + g.length});
      at = engine::place_behind(at, g);
    }
    r.file = -1;
    engine::close_journal(&r);
  }
  int flips = 0;
  for (std::size_t i = 0; i < groups.size(); i++) {
    for (std::uint64_t at = groups[i].first; at < groups[i].second; at++) {
      for (int bit = 0; bit < 8; bit++, flips++) {
        patch(at, {static_cast<unsigned char>(bytes[at] ^ (1 << bit))});
        ASSERT_EQ(found(), static_cast<int>(i)) << at << " bit " << bit;
      }
      patch(at, {bytes[at]});
    }
  }
  std::cout << flips << " bits flipped" << std::endl;
  EXPECT_EQ(found(), 4);
}

TEST_F(JournalFile, EveryBitFlippedInTheHeadEndsTheLife) {
  append_samples();
  const std::vector<unsigned char> bytes = read_file(path_);
  for (std::size_t at = 0; at < engine::journal_head_size; at++) {
    for (int bit = 0; bit < 8; bit++) {
      patch(at, {static_cast<unsigned char>(bytes[at] ^ (1 << bit))});
      ASSERT_EQ(found(), 0) << at << " bit " << bit;
    }
    patch(at, {bytes[at]});
  }
  EXPECT_EQ(found(), 4);
}

TEST_F(JournalFile, ATornGroupEndsIt) {
  append_samples();
  const std::vector<unsigned char> bytes = read_file(path_);
  int torn = 0;
  for (std::uint64_t at = engine::journal_groups; at < j_.at.end; at += engine::journal_sector, torn++) {
    patch(at, std::vector<unsigned char>(engine::journal_sector));
    ASSERT_LT(found(), 4) << at;
    patch(at, std::vector<unsigned char>(bytes.begin() + static_cast<long>(at),
                                         bytes.begin() + static_cast<long>(at + engine::journal_sector)));
  }
  EXPECT_GT(torn, 4);
}

// A power cut takes a group and leaves the one behind it; the place is then written anew.
TEST_F(JournalFile, AGroupWrittenAnewDoesNotLeadToWhatOnceStoodBehindIt) {
  ASSERT_EQ(append(samples()[0]), 0);
  const engine::log_mark before = j_.at;
  ASSERT_EQ(append({12, false, {{5, 0x55}}}), 0);
  ASSERT_EQ(append({13, false, {{6, 0x66}}}), 0);
  engine::take_back_group(&j_, before);
  EXPECT_EQ(found(), 1);
  ASSERT_EQ(append({12, false, {{5, 0x55}}}), 0);   // the same change once more
  journal_file r;
  r.identity = 77;
  ASSERT_EQ(engine::open_journal(&r, path_.c_str()), 0);
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_EQ(r.at.generation, 12u);
  engine::close_journal(&r);
}

TEST_F(JournalFile, NodesBehindTheEndOfTheFileAreNotBelieved) {
  ASSERT_EQ(append({11, false, {{100, 0x11}}}), 0);   // extent is 100
  EXPECT_EQ(found(), 0);
}

// Who only looks at a file leaves a group each time; they are read many at once.
TEST_F(JournalFile, ManySmallGroupsAreReadWithFewCalls) {
  constexpr int groups = 1000;
  for (int i = 0; i < groups; i++) ASSERT_EQ(append({static_cast<std::uint32_t>(11 + i), true, {}}), 0);
  install_faulty_os();
  {
    journal_file r;
    r.identity = 77;
    ASSERT_EQ(engine::open_journal(&r, path_.c_str()), 0);
    clear_events();
    ASSERT_EQ(engine::catch_up(&r, true), 0);
    EXPECT_EQ(r.at.generation, 10u + groups);
    const auto reads = std::count_if(events().begin(), events().end(), [](const os_event& e) { return e.call == os_call::read; });
    EXPECT_LT(reads, groups * 512 / 65536 * 2 + 6);
    clear_events();
    ASSERT_EQ(engine::catch_up(&r, true), 0);
    EXPECT_LE(events().size(), 2U);
    engine::close_journal(&r);
  }
  remove_faulty_os();
}

// ---- Promises and decisions

engine::group_link link_of(std::uint64_t number) {
  engine::group_link link;
  link.there = true;
  link.number = number;
  link.salt = 99;
  std::strcpy(link.name, "other");
  return link;
}

TEST_F(JournalFile, APromiseIsKnownAsLongAsItIsTheLastGroup) {
  const engine::group_link promise = link_of(5);
  ASSERT_EQ(append(samples()[0]), 0);
  ASSERT_EQ(append({12, false, {{9, 0x21}}}, &promise), 0);
  journal_file r;
  r.identity = 77;
  ASSERT_EQ(engine::open_journal(&r, path_.c_str()), 0);
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_TRUE(r.at.promise.there);
  EXPECT_EQ(r.at.promise.number, 5u);
  EXPECT_EQ(r.at.promise.salt, 99u);
  EXPECT_STREQ(r.at.promise.name, "other");
  EXPECT_EQ(r.at.generation, 12u);
  EXPECT_EQ(r.before.generation, 11u);
  EXPECT_FALSE(r.at.decision.there);
  ASSERT_EQ(append(samples()[2]), 0);
  ASSERT_EQ(engine::catch_up(&r, true), 0);
  EXPECT_FALSE(r.at.promise.there);
  engine::close_journal(&r);
}

// Somebody has read a promise, or a group whose flush then failed; another one took it back.
TEST_F(JournalFile, AGroupThatWasTakenBackIsForgottenByWhoHasReadIt) {
  for (const bool promised : {true, false}) {
    SCOPED_TRACE(promised);
    header_bytes header;
    fill_header(header, 10);
    ASSERT_EQ(engine::begin_life(&j_, header, 10, 10), 0);
    const engine::group_link promise = link_of(5);
    ASSERT_EQ(append(samples()[0]), 0);
    const engine::log_mark before = j_.at;
    ASSERT_EQ(append(samples()[3], promised ? &promise : nullptr), 0);
    journal_file r;
    r.identity = 77;
    ASSERT_EQ(engine::open_journal(&r, path_.c_str()), 0);
    ASSERT_EQ(engine::catch_up(&r, promised), 0);
    EXPECT_EQ(r.at.generation, 14u);
    engine::take_back_group(&j_, before);
    ASSERT_EQ(append(samples()[1]), 0);
    ASSERT_EQ(append(samples()[2]), 0);
    ASSERT_EQ(engine::catch_up(&r, true), 0);
    EXPECT_EQ(r.at.generation, 13u);
    EXPECT_EQ(r.at.end, j_.at.end);
    EXPECT_EQ(r.at.chain, j_.at.chain);
    EXPECT_FALSE(r.at.promise.there);
    engine::close_journal(&r);
  }
}

TEST_F(JournalFile, ADecisionIsFoundByItsNumberInTheLifeThatThePromiseNames) {
  const engine::group_link decision = link_of(7);
  ASSERT_EQ(append(samples()[0], nullptr, &decision), 0);
  ASSERT_EQ(append(samples()[1]), 0);
  EXPECT_TRUE(j_.at.decision.there);
  engine::group_link promise = link_of(7);
  promise.salt = j_.salt;
  journal_file other;
  ASSERT_EQ(engine::open_journal(&other, path_.c_str()), 0);
  EXPECT_EQ(engine::find_decision(&other, promise, true), 1);
  promise.number = 8;
  EXPECT_EQ(engine::find_decision(&other, promise, true), 0);
  promise.number = 7;
  promise.salt++;
  EXPECT_EQ(engine::find_decision(&other, promise, true), 0);
  promise.salt--;
  // The decision torn: there is none.
  patch(engine::journal_groups + 700, {0xEE});
  EXPECT_EQ(engine::find_decision(&other, promise, true), 0);
  engine::close_journal(&other);
}

TEST_F(JournalFile, ALinkThatNamesAnotherFolderIsNoGroup) {
  engine::group_link promise = link_of(5);
  for (const char* name : {"", "../other", "a/b"}) {
    SCOPED_TRACE(name);
    std::memset(promise.name, 0, sizeof promise.name);
    std::strcpy(promise.name, name);
    const engine::log_mark before = j_.at;
    ASSERT_EQ(append(samples()[0], &promise), 0);
    EXPECT_EQ(found(), 0);
    engine::take_back_group(&j_, before);
  }
  std::memset(promise.name, 'x', sizeof promise.name);
  ASSERT_EQ(append(samples()[0], &promise), 0);
  EXPECT_EQ(found(), 0);
}

}  // namespace
}  // namespace zvrdb::test
