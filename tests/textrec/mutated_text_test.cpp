// Texts with damage of every sort, the same at each run: whatever comes, a parse ends with
// one of its two codes, stays in its text and its record, and tells a fault when it fails.
#include <algorithm>
#include <random>

#include "sample_tables.h"
#include "text_fixture.h"
#include "textrec/keyword_tables.h"
#include "textrec/older_tables.h"
#include "textrec/text_records.h"

namespace {

using namespace zvrdb::textrec;
using zvrtest::ParsedText;

struct Seed {
  const char* name;
  const keyword_entry* table;
  std::uint32_t length;
  std::string text;
};

const std::vector<Seed>& seeds() {
  static const std::vector<Seed> all = {
      {"connection", scn_keywords, scn_record_len,
       "TYPE:         STS\nPROTOCOL:         APPC\nSEND TP SYMBOLIC DESTINATION:  A\nNEXT DSU:  R.E\n"
       "TRANSMISSION TIME-OUT:  4294967295\nRETRY LIMIT:  3\nREMOTE SERVER NAME: x\n"},
      {"routes", rte_keywords, rte_record_len,
       "NETWORK PROTOCOL: BOTH\nR1.E1  FAST  LEVEL2  0DATA  ANY  CONN1  3\n\nR.E C\n# x\nR.E C 4\n"},
      {"user configuration", ucf_keywords, ucf_record_len,
       "CONFIG_USER:      VIEW\nCM_PREP:          INST&EXEC\nCONFIG1:    view\nTARGET3:      OWN_TARGET\n"},
      {"older target", older_target_keywords, older_target_len,
       "DESCRIPTION: d\nTARGET TYPE: pull\nSHORT NAME: S1\nCM WINDOW START: 8:30\nMANAGER ADDRESS: a\n"
       "MANAGER ADDRESS: b\nHARDWARE PARMS: N=V\nUSER: u\nNUMBER OF USERS: 1\n"},
      {"older parameters", older_parameter_keywords, older_parameter_len,
       "NUMBER OF PARMS: 2\nA: 1\nB: 2\nC\n"},
      {"every kind", zvrtest::sample_keywords, zvrtest::sample_len,
       "SHORT: -1\nUSHORT: 010\nLONG: 0x7F\nWIDE: big\nNARROW: big\nSHORT NAME: ABC\nLIST: a\nMORE: b\n"},
  };
  return all;
}

class MutatedText : public zvrtest::TextTest {
 protected:
  void expect_an_end(const Seed& seed, const std::string& text, std::uint32_t length) {
    const ParsedText result = parsed(seed.table, text, length);
    ASSERT_TRUE(result.rc == DBE_OK || result.rc == DBE_BAD_RECORD) << seed.name << "\n" << text;
    if (result.rc == DBE_BAD_RECORD) {
      ASSERT_FALSE(result.faults.empty()) << seed.name << "\n" << text;
    }
    const auto lines = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    for (const auto& fault : result.faults) ASSERT_LE(fault.line, lines);
  }
};

std::string mutated(std::string text, std::mt19937& random) {
  constexpr char bytes[] =
      ":\n\n \t\r.=*#\x1A"
      "0A9z&%\xC3\xFF";
  const auto below = [&](std::size_t n) { return n == 0 ? 0 : random() % n; };
  for (std::size_t i = below(6) + 1; i > 0; --i) {
    const std::size_t at = below(text.size() + 1);
    switch (below(6)) {
      case 0:
        text.insert(at, 1, bytes[below(sizeof bytes - 1)]);
        break;
      case 1:
        if (at < text.size()) text[at] = bytes[below(sizeof bytes - 1)];
        break;
      case 2:
        text.erase(at, below(12));
        break;
      case 3:
        text.insert(at, text.substr(below(text.size() + 1), below(80)));
        break;
      case 4:
        text.insert(at, below(300), bytes[below(sizeof bytes - 1)]);
        break;
      default:
        text.resize(at);
    }
  }
  return text;
}

TEST_F(MutatedText, EveryParseEndsWithinItsTextAndItsRecord) {
  std::mt19937 random(20111);
  for (const Seed& seed : seeds()) {
    std::string text = seed.text;
    for (int round = 0; round < 1500; ++round) {
      // Damage piles up for a while, then begins anew.
      text = mutated(round % 8 == 0 ? seed.text : text, random);
      expect_an_end(seed, text, seed.length);
      expect_an_end(seed, text, static_cast<std::uint32_t>(random() % (seed.length + 1)));
      if (HasFatalFailure()) return;
    }
  }
}

TEST_F(MutatedText, EveryCutOfATextIsRead) {
  for (const Seed& seed : seeds())
    for (std::size_t length = 0; length <= seed.text.size(); ++length) {
      expect_an_end(seed, seed.text.substr(0, length), seed.length);
      if (HasFatalFailure()) return;
    }
}

TEST_F(MutatedText, EveryByteMayStandAnywhere) {
  const Seed& seed = seeds()[0];
  for (std::size_t at = 0; at < seed.text.size(); at += 7)
    for (int byte = 1; byte < 256; ++byte) {
      std::string text = seed.text;
      text[at] = static_cast<char>(byte);
      expect_an_end(seed, text, seed.length);
      if (HasFatalFailure()) return;
    }
}

TEST_F(MutatedText, EveryRecordLengthIsKept) {
  for (const Seed& seed : seeds())
    for (std::uint32_t length = 0; length < std::min(seed.length, 700u); ++length)
      EXPECT_EQ(parsed(seed.table, seed.text, length).rc, DBE_OK) << seed.name << length;
}

}  // namespace
