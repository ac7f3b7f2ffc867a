// The base configuration and user authorization.
#include "frame/frame_fixture.h"

namespace zvrdb {
namespace {

using zvrtest::client_task;

class FirstHandlers : public zvrtest::FrameTest {
 protected:
  FirstHandlers() : task("handlers") {
    std::uint32_t number;
    EXPECT_EQ(DBE_NO_TARGET, db_get_trg_index(task, "X", &number));
  }
  client_task task;
};

TEST_F(FirstHandlers, GetCfgCopiesTheSmallerLength) {
  const auto* area = static_cast<const unsigned char*>(co_croca(task, CO_AREA_CONFIG));
  std::vector<unsigned char> record(10000, 0xEE);
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, record.data(), 100));
  EXPECT_EQ(0, std::memcmp(area, record.data(), 100));
  EXPECT_EQ(0xEE, record[100]);
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, record.data(), 10000));
  EXPECT_EQ(0, std::memcmp(area, record.data(), 4640));
  EXPECT_EQ(0xEE, record[4640]);
}

TEST_F(FirstHandlers, PutCfgChangesTheAreaAndNotTheFile) {
  const std::string file = installation.read("orvo.cfg");
  std::vector<unsigned char> record(4640);
  ASSERT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, record.data(), 4640));
  record[4639] = 0x5A;
  // Taken whole, whatever the length says.
  EXPECT_EQ(DBE_RECORD_REPLACED, db_put(task, DB_CFG, 0, nullptr, record.data(), 1));
  std::vector<unsigned char> again(4640);
  EXPECT_EQ(DBE_OK, db_get(task, DB_CFG, 0, nullptr, again.data(), 4640));
  EXPECT_EQ(record, again);
  EXPECT_EQ(file, installation.read("orvo.cfg"));
  EXPECT_EQ(1u, zvrtest::logged(task, 36353));
}

TEST_F(FirstHandlers, UserAuthorizationFillsWholePiecesOnly) {
  installation.write("users", "anna 1\n");
  const void* keys[] = {"anna", "SECOND", "Z"};
  const struct {
    std::uint16_t length;
    unsigned filled;
  } cases[] = {{0, 0}, {10, 0}, {15, 0}, {16, 16}, {31, 16}, {32, 32}, {33, 33}, {34, 34}, {64, 34}};
  for (const auto& it : cases) {
    unsigned char answer[64];
    std::memset(answer, 0xEE, sizeof answer);
    EXPECT_EQ(DBE_OK, db_get(task, DB_UA, 3, keys, answer, it.length)) << it.length;
    unsigned char expected[64];
    std::memset(expected, 0xEE, sizeof expected);
    unsigned char whole[34] = {};
    std::memcpy(whole, "anna", 4);
    std::memcpy(whole + 16, "SECOND", 6);
    whole[32] = 'Z';
    whole[33] = 1;
    std::memcpy(expected, whole, it.filled);
    EXPECT_EQ(0, std::memcmp(expected, answer, sizeof answer)) << it.length;
  }
}

TEST_F(FirstHandlers, UnknownAndUnauthorizedUsersFillTheBufferToo) {
  installation.write("users", "bert none\n");
  unsigned char answer[34] = {};
  const void* unknown[] = {"nobody-at-all", "T", "Z"};
  EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_UA, 3, unknown, answer, sizeof answer));
  EXPECT_EQ(0, std::memcmp("nobody-at-all\0\0\0", answer, 16));
  EXPECT_EQ(255, answer[33]);
  const void* refused[] = {"bert", "T", "Z"};
  EXPECT_EQ(DBE_NOT_AUTHORIZED, db_get(task, DB_UA, 3, refused, answer, sizeof answer));
  EXPECT_EQ(254, answer[33]);
}

TEST_F(FirstHandlers, TheNameMayStandInTheBufferItself) {
  installation.write("users", "anna 1\n");
  char answer[34] = {};
  std::strcpy(answer, "anna");
  std::strcpy(answer + 16, "SECOND");
  const void* keys[] = {answer, answer + 16, answer + 32};
  answer[32] = 'Q';
  EXPECT_EQ(DBE_OK, db_get(task, DB_UA, 3, keys, answer, sizeof answer));
  EXPECT_STREQ("anna", answer);
  EXPECT_STREQ("SECOND", answer + 16);
  EXPECT_EQ('Q', answer[32]);
  EXPECT_EQ(1, answer[33]);
}

TEST_F(FirstHandlers, FewerThanThreeKeysAreRefused) {
  char answer[34];
  const void* keys[] = {"anna", "SECOND", nullptr};
  EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_UA, 3, keys, answer, sizeof answer));
  EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_UA, 2, keys, answer, sizeof answer));
  EXPECT_EQ(DBE_NOT_FOUND, db_get(task, DB_UA, 3, nullptr, answer, sizeof answer));
}

}  // namespace
}  // namespace zvrdb
