#include "record_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zvrdb/zvrdb.h>

#include <random>

#include "refusals.h"

namespace {

using namespace zvradm;
using testing::HasSubstr;

const record_type& trg() { return record_type_named("trg"); }

std::vector<unsigned char> record_of(const record_type& type, const char* text) {
  std::vector<unsigned char> record(65535);
  json_to_record(type, json::parse(text), record);
  return record;
}

// The fault that a text gives, as "path: words".
std::string fault_of(const record_type& type, const char* text) {
  try {
    record_of(type, text);
  } catch (const field_fault& fault) {
    return fault.path + ": " + fault.what();
  }
  return "none";
}

TEST(RecordJson, FieldsOfATargetStandAtTheirOffsets) {
  const auto record = record_of(trg(), R"({"trg_name":"OSLO","rgn":"NORTHERN","ren":"OSLO01","trg_type":40,
    "trg_os":7,"trg_mode":16,"cm_window_start":4294967295,"srv_name":"BERGEN",
    "hw_parms":[{"name":"disks","value":"2"},{"name":"memory","value":"512"}]})");
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data()), "OSLO");
  EXPECT_EQ(std::string(record.begin() + 124, record.begin() + 132), "NORTHERN");
  EXPECT_EQ(record[144], 40);
  EXPECT_EQ(record[145], 7);
  EXPECT_EQ(record[146], 16);
  EXPECT_EQ(load_number(record.data() + 148, 4), 4294967295u);
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 192), "BERGEN");
  EXPECT_EQ(load_number(record.data() + 700, 2), 2u);
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 988 + 162), "memory");
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 988 + 162 + 81), "512");
}

TEST(RecordJson, WordsStandForNumbersAndListsOfWordsForBits) {
  const auto record = record_of(trg(), R"({"trg_name":"A","trg_os":"solaris","trg_type":["LOCAL","SERVER"],
    "trg_mode":"PUSH","held_status":"HELD","log_level":"d","rbapi_trace":"both"})");
  EXPECT_EQ(record[145], 7);
  EXPECT_EQ(record[144], 40);
  EXPECT_EQ(record[146], 2);
  EXPECT_EQ(record[166], 1);
  EXPECT_EQ(record[165], 2);
  EXPECT_EQ(record[164], 3);
}

TEST(RecordJson, OutputGivesNumbersUnlessWordsAreAskedFor) {
  const auto record = record_of(trg(), R"({"trg_name":"A","trg_os":7,"trg_type":40})");
  const std::span<const unsigned char> bytes(record.data(), 192);
  EXPECT_EQ(record_to_json(trg(), bytes)["trg_type"], 40);
  const json words = record_to_json(trg(), bytes, {.words = true});
  EXPECT_EQ(words["trg_os"], "SOLARIS");
  EXPECT_EQ(words["trg_type"], json::parse(R"(["SERVER","LOCAL"])"));
}

TEST(RecordJson, ANumberWithoutAWordStaysANumber) {
  const auto record = record_of(trg(), R"({"trg_os":77,"trg_type":64})");
  const json words = record_to_json(trg(), {record.data(), 192}, {.words = true});
  EXPECT_EQ(words["trg_os"], 77);
  EXPECT_EQ(words["trg_type"], 64);
}

TEST(RecordJson, OnlyFieldsWithinTheLengthArePrinted) {
  const auto record = record_of(trg(), R"({"trg_name":"A"})");
  EXPECT_TRUE(record_to_json(trg(), {record.data(), 192}).contains("srv_num"));
  EXPECT_FALSE(record_to_json(trg(), {record.data(), 191}).contains("srv_num"));
  EXPECT_FALSE(record_to_json(trg(), {record.data(), 192}).contains("srv_name"));
  EXPECT_TRUE(record_to_json(trg(), {record.data(), 10}).empty());
}

TEST(RecordJson, AnElementThatIsCutIsNotPrinted) {
  const auto record = record_of(trg(), R"({"hw_parms":[{"name":"a","value":"1"},{"name":"b","value":"2"}]})");
  EXPECT_EQ(record_to_json(trg(), {record.data(), 988 + 2 * 162})["hw_parms"].size(), 2u);
  EXPECT_EQ(record_to_json(trg(), {record.data(), 988 + 2 * 162 - 1})["hw_parms"].size(), 1u);
}

TEST(RecordJson, ACountAboveTheRoomIsNotFollowed) {
  std::vector<unsigned char> record(21724);
  store_number(record.data() + 700, 2, 65535);
  EXPECT_EQ(record_to_json(trg(), record)["hw_parms"].size(), 128u);
}

TEST(RecordJson, ExportLeavesOutWhatIsZeroOrLive) {
  auto record = record_of(trg(), R"({"trg_name":"A","trg_os":7,"srv_num":9,"trg_status":"01020304"})");
  const json line = record_to_json(trg(), {record.data(), 21724}, {.words = false, .transferable = true});
  EXPECT_EQ(json_line(line), R"({"trg_name":"A","trg_os":7})");
}

TEST(RecordJson, OpaqueBytesAreHexadecimalAndShorterInputIsFilledWithZeros) {
  const auto record = record_of(trg(), R"({"carried140":"0aFF"})");
  EXPECT_EQ(record_to_json(trg(), {record.data(), 192})["carried140"], "0aff0000");
}

TEST(RecordJson, TextThatIsNotUtf8GoesThroughUnchanged) {
  std::vector<unsigned char> record(21724);
  record[64] = 'S';
  record[65] = 0xF8;  // Latin-1
  record[66] = 'r';
  const json line = record_to_json(trg(), record);
  EXPECT_EQ(json_line(line["description"]), R"({"hex":"53f872"})");
  std::vector<unsigned char> again(21724);
  json_to_record(trg(), line, again);
  EXPECT_EQ(again, record);
}

TEST(RecordJson, TextThatLooksLikeJsonIsKept) {
  const auto record = record_of(trg(), R"({"description":"a \"quoted\" \\ text\tÅse"})");
  const json line = record_to_json(trg(), {record.data(), 192});
  EXPECT_EQ(line["description"], "a \"quoted\" \\ text\tÅse");
}

TEST(RecordJson, FaultsNameTheFieldAndWhatIsWrong) {
  EXPECT_EQ(fault_of(trg(), R"({"trg_nam":"A"})"), "trg_nam: unknown field");
  EXPECT_EQ(fault_of(trg(), R"({"rgn":"NINECHARS"})"), "rgn: 9 bytes, at most 8");
  EXPECT_EQ(fault_of(trg(), R"({"trg_name":7})"), "trg_name: must be text");
  EXPECT_EQ(fault_of(trg(), R"({"trg_name":"a\u0000b"})"), "trg_name: holds a zero byte");
  EXPECT_THAT(fault_of(trg(), R"({"trg_os":"BEOS"})"), HasSubstr("trg_os: unknown word 'BEOS'"));
  EXPECT_THAT(fault_of(trg(), R"({"trg_os":["DOS"]})"), HasSubstr("trg_os: must be a number or one of"));
  EXPECT_THAT(fault_of(trg(), R"({"trg_type":256})"), HasSubstr("trg_type: must be a number from 0 to 255"));
  EXPECT_THAT(fault_of(trg(), R"({"trg_type":-1})"), HasSubstr("from 0 to 255"));
  EXPECT_THAT(fault_of(trg(), R"({"cm_window_start":4294967296})"), HasSubstr("from 0 to 4294967295"));
  EXPECT_THAT(fault_of(trg(), R"({"cm_window_start":1.5})"), HasSubstr("must be a number"));
  EXPECT_EQ(fault_of(trg(), R"({"carried140":"0"})"), "carried140: must be an even number of hexadecimal digits");
  EXPECT_EQ(fault_of(trg(), R"({"carried140":"0011223344"})"), "carried140: 5 bytes, at most 4");
  EXPECT_EQ(fault_of(trg(), R"({"hw_parms":{}})"), "hw_parms: must be a list");
  EXPECT_EQ(fault_of(trg(), R"({"hw_parms":[{},{"nam":"x"}]})"), "hw_parms[1].nam: unknown field");
  EXPECT_EQ(fault_of(trg(), R"({"type":"prm"})"), "type: must be \"trg\" here");
  EXPECT_EQ(fault_of(trg(), "[]"), ": a record is a JSON object");
}

TEST(RecordJson, TextMustLeaveRoomForItsEnd) {
  const std::string longest(63, 'x');
  EXPECT_EQ(fault_of(trg(), ("{\"trg_name\":\"" + longest + "\"}").c_str()), "none");
  EXPECT_EQ(fault_of(trg(), ("{\"trg_name\":\"" + longest + "x\"}").c_str()), "trg_name: 64 bytes, at most 63");
}

TEST(RecordJson, AListTakesAsManyElementsAsThereIsRoomFor) {
  json line{{"trg_name", "A"}, {"parms", json::array()}};
  for (int i = 0; i < 1000; ++i) line["parms"].push_back({{"name", std::to_string(i)}, {"value", "v"}});
  const record_type& prm = record_type_named("prm");
  const auto record = record_of(prm, json_line(line).c_str());
  EXPECT_EQ(load_number(record.data() + 64, 2), 1000u);
  EXPECT_EQ(record_to_json(prm, {record.data(), 62068})["parms"], line["parms"]);
  line["parms"].push_back({{"name", "one too many"}});
  EXPECT_EQ(fault_of(prm, json_line(line).c_str()), "parms: 1001 elements, at most 1000");
}

TEST(RecordJson, ListsOfParametersMayBeCalledEntriesInTheInput) {
  const record_type& thw = record_type_named("thw");
  const auto record = record_of(thw, R"({"trg_name":"A","entries":[{"name":"n","value":"v"}]})");
  EXPECT_EQ(json_line(record_to_json(thw, {record.data(), 20804})["hw_parms"]), R"([{"name":"n","value":"v"}])");
}

TEST(RecordJson, ServersOfTheConfigurationAreTakenUpToTheLastOne) {
  const record_type& cfg = record_type_named("cfg");
  const auto record = record_of(cfg, R"({"servers":[{"name":"ONE"},{"name":"TWO"}],"configuration":"BASE"})");
  EXPECT_EQ(record[85], 1);
  EXPECT_EQ(json_line(record_to_json(cfg, {record.data(), 4640})["servers"]), R"([{"name":"ONE"},{"name":"TWO"}])");
}

// Any bytes whatever come back the same, but for what stands behind the end of a text,
// behind the elements in use, and in the bytes that no row has.
TEST(RecordJson, AnyRecordGoesThroughJsonAndComesBackTheSame) {
  std::mt19937 random(20250101);
  for (const char* suffix : {"trg", "thw", "prm", "cfg", "ua"}) {
    const record_type& type = record_type_named(suffix);
    for (int round = 0; round < 20; ++round) {
      std::vector<unsigned char> record(65535);
      for (std::size_t i = 0; i < type.get_length; ++i) record[i] = static_cast<unsigned char>(random());
      if (type.db_id != DB_CFG && type.db_id != DB_UA) {
        const std::size_t at = type.db_id == DB_TRG ? 700 : 64;
        store_number(record.data() + at, 2, load_number(record.data() + at, 2) % 100);
      }
      for (const field& f : type.fields)
        if (f.kind == field_kind::text) record[f.offset + f.width - 1] = 0;
      for (const field& f : type.fields)
        if (f.kind == field_kind::list)
          for (std::uint32_t i = 0; i < f.capacity; ++i)
            for (const field& part : f.elements)
              if (part.kind == field_kind::text) record[f.offset + i * f.width + part.offset + part.width - 1] = 0;
      const json line = record_to_json(type, {record.data(), type.get_length});
      std::vector<unsigned char> again(65535);
      json_to_record(type, json::parse(json_line(line)), again);
      EXPECT_EQ(record_to_json(type, {again.data(), type.get_length}), line) << suffix;
    }
  }
}

TEST(RecordJson, NoRowOfATypeHasTheNameOfAnother) {
  for (const record_type& type : record_types())
    for (const field& a : type.fields)
      for (const field& b : type.fields)
        EXPECT_TRUE(&a == &b || std::string_view(a.name) != b.name) << type.suffix << " " << a.name;
}

TEST(Bits, AreNumbersOrWords) {
  EXPECT_EQ(parse_bits("--type", "40", target_types()), 40u);
  EXPECT_EQ(parse_bits("--type", "0x28", target_types()), 40u);
  EXPECT_EQ(parse_bits("--type", "LOCAL,server", target_types()), 40u);
  EXPECT_EQ(parse_bits("--type", "LOCAL+8", target_types()), 40u);
  EXPECT_THROW(parse_bits("--type", "", target_types()), usage_fault);
  EXPECT_THROW(parse_bits("--type", "8x", target_types()), usage_fault);
  EXPECT_THROW(parse_bits("--type", "-1", target_types()), usage_fault);
  EXPECT_THROW(parse_bits("--type", "4294967296", target_types()), usage_fault);
}

TEST(Utf8, OverlongSurrogateAndCutSequencesAreNotUtf8) {
  EXPECT_TRUE(is_utf8("plain, \xC3\xA5, \xE2\x82\xAC, \xF0\x9F\x98\x80"));
  EXPECT_FALSE(is_utf8("\xC0\x80"));
  EXPECT_FALSE(is_utf8("\xED\xA0\x80"));
  EXPECT_FALSE(is_utf8("\xE2\x82"));
  EXPECT_FALSE(is_utf8("\xF5\x80\x80\x80"));
  EXPECT_FALSE(is_utf8("\x80"));
}

TEST(RecordJson, FieldsOfAChangeFileStandAtTheirOffsets) {
  const record_type& cat = record_type_named("cat");
  const auto record = record_of(cat, R"({"cf_name":["A","FIX"],"carried84":513,"text102":"text","cf_flags":["DEFAULT_STATUS"],
    "lines":["one","","three"],"carried2462":255})");
  EXPECT_EQ(record[0], 0);
  EXPECT_EQ(record[1], 2);
  EXPECT_EQ(record[2], 255);
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 11 + 2), "FIX");
  EXPECT_EQ(load_number(record.data() + 84, 2), 513u);
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 102), "text");
  EXPECT_EQ(record[360], 32);
  EXPECT_STREQ(reinterpret_cast<const char*>(record.data() + 364 + 512), "three");
  EXPECT_EQ(record[2462], 255);
  const json back = record_to_json(cat, std::span(record).first(sizeof(db_cat)));
  EXPECT_EQ(back["lines"], json::parse(R"(["one","","three"])"));
  EXPECT_EQ(back["cf_name"], json::parse(R"(["A","FIX"])"));
}

TEST(RecordJson, FaultsOfAChangeFileTellTheirPlace) {
  const record_type& cat = record_type_named("cat");
  EXPECT_THAT(fault_of(cat, R"({"cf_name":"A.B"})"), HasSubstr("cf_name: the name of a change file must be a list"));
  EXPECT_THAT(fault_of(cat, R"({"lines":["1","2","3","4","5","6","7","8","9"]})"), HasSubstr("lines: 9 elements, at most 8"));
  EXPECT_THAT(fault_of(cat, R"({"lines":["1",2]})"), HasSubstr("lines[1]: must be text"));
  EXPECT_EQ(fault_of(cat, ("{\"lines\":[\"" + std::string(256, 'x') + "\"]}").c_str()), "lines[0]: 256 bytes, at most 255");
}

TEST(RecordJson, WhatMustBeGivenIsExportedEvenWhenItIsZero) {
  const record_type& fst = record_type_named("fst");
  const auto record = record_of(fst, R"({"cf_name":["A"],"product_id":0,"fileset_id":0})");
  EXPECT_EQ(json_line(record_to_json(fst, std::span(record).first(sizeof(db_fst)), {.words = false, .transferable = true})),
            R"({"cf_name":["A"],"product_id":0,"fileset_id":0})");
}

}  // namespace
