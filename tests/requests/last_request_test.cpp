// The root record of the highest recursion.
#include "requests/requests_fixture.h"

namespace request_test {
namespace {

class LastRequest : public RequestsTest {
 protected:
  static Id root(const char* user, std::uint32_t sequence, std::uint16_t recursion) {
    Id id;
    id.user = user;
    id.sequence = sequence;
    id.recursion = recursion;
    return id;
  }
  int last(const Id& id, std::string* found = nullptr, std::size_t length = 4222) {
    const bytes key = id.of(DB_RQR);
    bytes record(length, 0x77);
    const int rc = db_get_lst_rec(task, key.data(), record.data(), static_cast<std::uint16_t>(length));
    if (found && length >= 88) *found = Id::read(DB_RQR, record).text(DB_RQR);
    return rc;
  }
};

TEST_F(LastRequest, IsTheOneOfTheHighestRecursion) {
  for (const std::uint16_t recursion : std::vector<std::uint16_t>{0, 1, 0x100, 0xFFFF})
    ASSERT_EQ(put_request(DB_RQR, root("U", 5, recursion)), DBE_OK);
  ASSERT_EQ(put_request(DB_RQR, root("U", 6, 0)), DBE_OK);
  std::string found;
  EXPECT_EQ(last(root("U", 5, 7), &found), DBE_OK);
  EXPECT_EQ(found, "SRC.U.5.65535");
  EXPECT_EQ(del_request(DB_RQR, root("U", 5, 0xFFFF)), DBE_OK);
  EXPECT_EQ(last(root("U", 5, 0), &found), DBE_OK);
  EXPECT_EQ(found, "SRC.U.5.256");
}

TEST_F(LastRequest, OfASequenceWithoutRootIsTheNextLowerRootOfTheFile) {
  ASSERT_EQ(put_request(DB_RQR, root("A", 1, 3)), DBE_OK);
  ASSERT_EQ(put_request(DB_RQR, root("B", 9, 0)), DBE_OK);
  std::string found;
  EXPECT_EQ(last(root("B", 8, 0), &found), DBE_OK);
  EXPECT_EQ(found, "SRC.A.1.3") << "another user's";
  EXPECT_EQ(last(root("Z", 1, 0), &found), DBE_OK);
  EXPECT_EQ(found, "SRC.B.9.0");
}

TEST_F(LastRequest, IsNotFoundWhenNoLowerRootIsThere) {
  EXPECT_EQ(last(root("A", 1, 0)), DBE_NOT_FOUND);
  ASSERT_EQ(put_request(DB_RQR, root("B", 1, 0)), DBE_OK);
  ASSERT_EQ(put_request(DB_RQF, root("A", 1, 0)), DBE_OK);
  EXPECT_EQ(last(root("A", 1, 0)), DBE_NOT_FOUND) << "records of other types stand above all roots";
}

TEST_F(LastRequest, OfAnUnknownServerIsTheLookupsOwnCode) {
  Id id;
  id.source = "NOBODY";
  EXPECT_EQ(last(id), DBE_NO_TARGET);
}

TEST_F(LastRequest, ReadsAsMuchAsTheBufferTakes) {
  const bytes record = full_record(DB_RQR, Id{});
  ASSERT_EQ(put_record(DB_RQR, Id{}, record), DBE_OK);
  const bytes key = Id{}.of(DB_RQR);
  for (const std::size_t length : {std::size_t{90}, std::size_t{348}, record.size()}) {
    bytes buffer(length, 0x77);
    ASSERT_EQ(db_get_lst_rec(task, key.data(), buffer.data(), static_cast<std::uint16_t>(length)), DBE_OK);
    EXPECT_EQ(text_at(buffer, 0, 16), "USER");
    EXPECT_EQ(buffer[88], record[88]);
  }
  bytes shorter(87, 0x77);
  EXPECT_EQ(db_get_lst_rec(task, key.data(), shorter.data(), 87), DBE_OK);
  EXPECT_EQ(shorter, bytes(87, 0x77));
}

TEST_F(LastRequest, MayBeARecordOfSeveralPieces) {
  bytes record = root("U", 5, 2).of(DB_RQR);
  record.resize(40000, 'x');
  ASSERT_EQ(put_record(DB_RQR, root("U", 5, 2), record), DBE_OK);
  std::string found;
  EXPECT_EQ(last(root("U", 5, 0), &found), DBE_OK);
  EXPECT_EQ(found, "SRC.U.5.2");
  const bytes key = root("U", 5, 0).of(DB_RQR);
  bytes back(300, 0x77);
  ASSERT_EQ(db_get_lst_rec(task, key.data(), back.data(), 300), DBE_OK);
  EXPECT_TRUE(std::equal(back.begin(), back.end() - 1, record.begin()));
}

TEST_F(LastRequest, TakesTheIdentifierAsItStands) {
  ASSERT_EQ(put_request(DB_RQR, root("U", 5, 2)), DBE_OK);
  const bytes before = root("U", 5, 1).of(DB_RQR);
  bytes key = before;
  bytes record(88);
  EXPECT_EQ(db_get_lst_rec(task, key.data(), record.data(), 88), DBE_OK);
  EXPECT_EQ(key, before);
}

TEST_F(LastRequest, NullArgumentsAreRefused) {
  const bytes key = Id{}.of(DB_RQR);
  bytes record(88);
  EXPECT_EQ(db_get_lst_rec(nullptr, key.data(), record.data(), 88), DBE_INIT_FAILED);
  EXPECT_EQ(db_get_lst_rec(task, nullptr, record.data(), 88), DBE_NOT_FOUND);
  EXPECT_EQ(db_get_lst_rec(task, key.data(), nullptr, 88), DBE_BAD_RECORD);
}

}  // namespace
}  // namespace request_test
