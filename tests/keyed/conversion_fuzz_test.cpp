// Any bytes, any length, on either side: nothing beyond either buffer is touched.
// Deterministic; the seed is part of each message.
#include <random>

#include "keyed/conversion_fixture.h"

namespace zvrtest {
namespace {

constexpr std::uint32_t types[] = {4,  5,  6,  9,  11, 17, 18, 19, 20, 21, 22,
                                   23, 24, 25, 26, 27, 28, 29, 30, 31, 32};

class ConversionFuzz : public ConversionTest {
 protected:
  // Bytes with runs of zeros and small numbers, so that names, counts and links of all
  // kinds come up.
  static std::vector<unsigned char> some_bytes(std::mt19937& random, std::size_t length) {
    std::vector<unsigned char> bytes(length);
    for (std::size_t i = 0; i < length;) {
      const std::size_t run = std::min<std::size_t>(length - i, 1 + random() % 40);
      const unsigned kind = random() % 4;
      for (std::size_t k = 0; k < run; ++k, ++i)
        bytes[i] = static_cast<unsigned char>(kind == 0   ? 0
                                              : kind == 1 ? random()
                                              : kind == 2 ? random() % 10
                                                          : 'x');
    }
    return bytes;
  }
  static bool known(int rc) {
    return rc == DBE_OK || rc == DBE_NO_TARGET || rc == DBE_NOT_FOUND || rc == DBE_BAD_RECORD ||
           rc == DBE_BUFFER_TOO_SMALL;
  }
};

// All lengths up to 300, then ever larger steps up to the longest record.
std::vector<std::size_t> lengths(std::mt19937& random) {
  std::vector<std::size_t> all;
  for (std::size_t length = 0; length <= 66000; length += length < 300 ? 1 : 1 + random() % 4000)
    all.push_back(length);
  return all;
}

TEST_F(ConversionFuzz, AnyExternalBytesParseIntoBuffersOfAnyLength) {
  for (const std::uint32_t db_id : types) {
    std::mt19937 random(db_id);
    for (const std::size_t length : lengths(random)) {
      const std::vector<unsigned char> external = some_bytes(random, length);
      for (const std::size_t room :
           {std::size_t{random() % 300}, std::size_t{random() % 2500}, std::size_t{random() % 66000}})
        ASSERT_TRUE(known(parsed(db_id, external, room).rc)) << db_id << ' ' << length << ' ' << room;
    }
  }
}

TEST_F(ConversionFuzz, StoredRecordsCutAnywhereParseIntoBuffersOfEveryLength) {
  for (const std::uint32_t db_id : types) {
    std::mt19937 random(100 + db_id);
    record_bytes record(3000);
    record.all() = some_bytes(random, 3000);
    record.text(0, std::string("T1\0", 3)).text(16, std::string("T2\0", 3)).text(104, std::string("T3\0", 3));
    record.text(168, std::string("T4\0", 3)).text(192, std::string("T5\0", 3));
    const std::vector<unsigned char> external = unparsed(db_id, record).bytes;
    for (std::size_t cut = 0; cut <= std::min<std::size_t>(external.size(), 400); ++cut) {
      const std::vector<unsigned char> part(external.begin(), external.begin() + cut);
      ASSERT_TRUE(known(parsed(db_id, part, random() % 1300).rc)) << db_id << ' ' << cut;
    }
    for (std::size_t room = 0; room <= 1300; ++room)
      ASSERT_TRUE(known(parsed(db_id, external, room).rc)) << db_id << ' ' << room;
  }
}

TEST_F(ConversionFuzz, AnyInternalBytesOfAnyLengthUnparseIntoBuffersOfAnyLength) {
  for (const std::uint32_t db_id : types) {
    std::mt19937 random(200 + db_id);
    for (const std::size_t length : lengths(random)) {
      std::vector<unsigned char> internal = some_bytes(random, length);
      // Known names half of the time, so that the fields behind the keys are reached.
      for (const std::size_t name : {0u, 16u, 104u, 168u, 192u})
        if (random() % 2 && name + 3 <= length) std::memcpy(internal.data() + name, "T3", 3);
      for (const std::size_t room :
           {std::size_t{random() % 300}, std::size_t{random() % 66000}, std::size_t{65535}})
        ASSERT_TRUE(known(unparse(t.task(), db_id, internal, room).rc))
            << db_id << ' ' << length << ' ' << room;
    }
  }
}

}  // namespace
}  // namespace zvrtest
