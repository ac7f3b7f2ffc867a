// Requests and correlators: records, filters, whole trees, and both ways between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "request_name.h"
#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::ElementsAre;
using testing::HasSubstr;

class RequestCommands : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(base.init().exit, 0);
    const tool_result filled = base.tool({"import", "-"}, R"({"type":"trg","trg_name":"BERGEN","trg_type":34})" "\n"
                                                          R"({"type":"trg","trg_name":"VOSS","trg_type":34})" "\n" + tree);
    ASSERT_EQ(filled.exit, 0) << filled.err;
  }
  tool_result tool(const std::vector<std::string>& arguments, const std::string& in = "") { return base.tool(arguments, in); }
  scratch_base base;
  const std::string tree =
      R"({"type":"rqr","user":"KLUND","src_domain":"OSLO","seq_no":17,"text90":"a package"})" "\n"
      R"({"type":"rqf","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","text4380":"t"})" "\n"
      R"({"type":"fan","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","rgn":"NORTH","ren":"OSLO01"})" "\n"
      R"({"type":"rqd","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","domain":"OSLO"})" "\n"
      R"({"type":"rqt","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","domain":"OSLO","target":"BERGEN"})" "\n"
      R"({"type":"rqt","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","domain":"OSLO","target":"VOSS","report_type":"TEXT","report_text":"done"})" "\n"
      R"({"type":"rqv","user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"INSTALL","vector_length":3,"vector":"010203"})" "\n";
};

TEST_F(RequestCommands, RecordsOfAllTypesArePutReadListedAndDeleted) {
  EXPECT_EQ(tool({"get", "rqr", "OSLO.KLUND.17.0"}).json()["text90"], "a package");
  EXPECT_EQ(tool({"get", "rqf", "OSLO.KLUND.17.0.INSTALL"}).json()["text4380"], "t");
  EXPECT_EQ(tool({"get", "fan", "OSLO.KLUND.17.0.INSTALL", "NORTH", "OSLO01"}).json()["ren"], "OSLO01");
  EXPECT_EQ(tool({"get", "rqd", "OSLO.KLUND.17.0.INSTALL", "OSLO"}).json()["domain"], "OSLO");
  EXPECT_EQ(tool({"get", "rqt", "OSLO.KLUND.17.0.INSTALL", "OSLO", "VOSS"}).json()["report_text"], "done");
  EXPECT_EQ(tool({"get", "rqv", "OSLO.KLUND.17.0.INSTALL"}).json()["vector"], "010203");
  for (const char* type : {"rqr", "rqf", "fan", "rqd", "rqv"}) EXPECT_EQ(tool({"list", type}).lines().size(), 1u) << type;
  EXPECT_EQ(tool({"put", "rqr"}, R"({"user":"KLUND","src_domain":"OSLO","seq_no":17})").json()["rc"], 8196);
  EXPECT_EQ(tool({"del", "rqt", "OSLO.KLUND.17.0.INSTALL", "OSLO", "VOSS"}).exit, 0);
  EXPECT_THAT(tool({"del", "rqt", "OSLO.KLUND.17.0.INSTALL", "OSLO", "VOSS"}).err,
              HasSubstr("del rqt \"OSLO.KLUND.17.0.INSTALL\" \"OSLO\" \"VOSS\": DBE_NOT_FOUND (8194)"));
}

TEST_F(RequestCommands, ADeepCheckTellsCorrelatorsWithoutTheirFunction) {
  ASSERT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).exit, 0);
  const std::string file = base.file("db/snacorr");
  EXPECT_THAT(run_tool({"file", "check", "--deep", file}).out, testing::Not(HasSubstr("without its function")));
  ASSERT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.3.REMOVE"}).exit, 0);
  const tool_result deep = run_tool({"file", "check", "--deep", file});
  EXPECT_EQ(deep.exit, 0) << "it does no harm";
  EXPECT_THAT(deep.out, HasSubstr(file + ": note: a correlator without its function: server number 1, user KLUND, "
                                         "sequence 17, recursion 3, function REMOVE\n"));
  EXPECT_THAT(deep.out, testing::Not(HasSubstr("INSTALL")));
  EXPECT_THAT(run_tool({"file", "check", "--deep", "--json", file}).out, HasSubstr("without its function"));
  EXPECT_THAT(run_tool({"file", "check", file}).out, testing::Not(HasSubstr("without its function")));
}

TEST_F(RequestCommands, ListsTakeTheFiltersOfTheLibrary) {
  ASSERT_EQ(tool({"put", "rqt"}, R"({"user":"KARI","src_domain":"OSLO","seq_no":2,"subreq_id":"REMOVE","domain":"VOSS","target":"VOSS"})").exit, 0);
  const auto count = [&](std::vector<std::string> filter) {
    filter.insert(filter.begin(), {"list", "rqt"});
    const tool_result result = tool(filter);
    EXPECT_EQ(result.exit, 0) << result.err;
    return result.lines().size();
  };
  EXPECT_EQ(count({}), 3u);
  EXPECT_EQ(count({"--server", "OSLO", "--user", "K*"}), 3u);
  EXPECT_EQ(count({"--server", "OSLO", "--user", "KL*"}), 2u);
  EXPECT_EQ(count({"--server", "OSLO", "--user", "KLUND", "--seq", "17", "--rec", "0", "--function", "INST*"}), 2u);
  EXPECT_EQ(count({"--target", "VOSS"}), 2u);
  EXPECT_EQ(count({"--filter", R"({"target":"BERGEN"})"}), 1u);
  EXPECT_EQ(count({"--filter", R"({"src_domain":"OSLO","user":"KARI","seq_no":2})"}), 1u);
  EXPECT_THAT(tool({"list", "rqt", "--target", "BERGEN", "--table"}).out, HasSubstr("INSTALL"));
  EXPECT_THAT(tool({"list", "rqd", "--domain", "OSLO"}).lines(), testing::SizeIs(1));
}

TEST_F(RequestCommands, AFilterThatTheLibraryDoesNotTakeIsToldAndNotAnEmptyList) {
  EXPECT_THAT(tool({"list", "rqt", "--seq", "17"}).err, HasSubstr("DBE_EMPTY_LIST (8217)"));
  EXPECT_EQ(tool({"list", "rqt", "--server", "NOBODY"}).exit, 1);
  EXPECT_EQ(tool({"list", "rqr", "--target", "VOSS"}).exit, 2);
  EXPECT_EQ(tool({"list", "rqr", "--names", "--len", "100"}).exit, 2);
  EXPECT_EQ(tool({"list", "trg", "--user", "A"}).exit, 2);
  EXPECT_EQ(tool({"list", "rqr", "--filter", "{"}).exit, 2);
  EXPECT_EQ(tool({"list", "rqr", "--filter", R"({"text90":"a"})"}).exit, 2);
}

TEST_F(RequestCommands, ARefusedFilterTellsWhichPartOfItIsWrong) {
  const auto told = [&](std::vector<std::string> filter) {
    filter.insert(filter.begin(), {"list", "rqt"});
    return tool(filter).err;
  };
  EXPECT_THAT(told({"--user", "K*"}), HasSubstr("--user is given, and --server before it is left open"));
  EXPECT_THAT(told({"--server", "OSLO", "--user", "K*", "--seq", "17"}),
              HasSubstr("--seq is given, and --user before it is a begin only"));
  EXPECT_THAT(told({"--server", "NOBODY"}), HasSubstr("there is no target \"NOBODY\" (--server)\n"));
  EXPECT_THAT(told({"--target", "V*"}), HasSubstr("there is no target \"V*\" (--target)"));
  EXPECT_THAT(told({"--seq", "many"}), HasSubstr("0 to 4294967295"));
  EXPECT_THAT(told({"--filter", R"({"server":"OSLO"})"}), HasSubstr("there are src_domain, user"));
  EXPECT_THAT(tool({"list", "tg", "--filter", "A"}).err, HasSubstr("and requests"));
}

TEST_F(RequestCommands, NamesOfRequestsAreTheirIdentifiers) {
  EXPECT_EQ(tool({"list", "rqr", "--names"}).lines(),
            std::vector<std::string>{R"({"user":"KLUND","src_domain":"OSLO","seq_no":17,"recursion_no":0})"});
  EXPECT_EQ(tool({"list", "rqv", "--names"}).json().size(), 5u);
}

TEST_F(RequestCommands, ARefusedPutNamesTheUnknownTarget) {
  EXPECT_THAT(tool({"put", "rqt"}, R"({"user":"K","src_domain":"OSLO","seq_no":1,"subreq_id":"F","domain":"OSLO","target":"ROMA"})").err,
              HasSubstr("(8200): there is no target \"ROMA\" (target)\n"));
  EXPECT_THAT(tool({"put", "tg"}, R"({"name":"West","members":["VOSS","ROMA"]})").err,
              HasSubstr("there is no target \"ROMA\" (members[1])"));
}

TEST_F(RequestCommands, BytesWithoutTheirNumberAreKeptWhole) {
  const std::string id = R"({"user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"NEW",)";
  ASSERT_EQ(tool({"put", "fan"}, id + R"("rgn":"R","ren":"E","block":"0011ff"})").exit, 0);
  EXPECT_EQ(tool({"get", "fan", "OSLO.KLUND.17.0.NEW", "R", "E"}).json()["block"], "0011ff");
  ASSERT_EQ(tool({"put", "rqv"}, id + R"("vector":"0011ff"})").exit, 0);
  EXPECT_EQ(tool({"get", "rqv", "OSLO.KLUND.17.0.NEW"}).json()["vector"], "0011ff");
  ASSERT_EQ(tool({"put", "rqv", "--update"}, id + R"("vector":"00112233"})").exit, 0);
  EXPECT_EQ(tool({"get", "rqv", "OSLO.KLUND.17.0.NEW"}).json()["vector_length"], 4);
}

TEST_F(RequestCommands, ACorrelatorMadeForNoFunctionIsNoted) {
  EXPECT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).err, "");
  const tool_result slip = tool({"correlator", "of", "OSLO.KLUND.17.0.INSTAL"});
  EXPECT_EQ(slip.exit, 0);
  EXPECT_THAT(slip.err, HasSubstr("there is no record of the function \"OSLO.KLUND.17.0.INSTAL\""));
}

TEST_F(RequestCommands, ATreeIsShownIndented) {
  ASSERT_EQ(tool({"put", "rqt"}, R"({"user":"KLUND","src_domain":"OSLO","seq_no":17,"subreq_id":"LOST","domain":"VOSS","target":"VOSS"})").exit, 0);
  const std::string correlator = tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).json()["correlator"];
  EXPECT_EQ(tool({"request-tree", "show", "OSLO.KLUND.17.0"}).out, "request OSLO.KLUND.17.0\n"
            "  function INSTALL  correlator " + correlator + "\n"
            "    fan-out NORTH.OSLO01\n"
            "    domain OSLO\n"
            "      target BERGEN\n"
            "      target VOSS\n"
            "    vector\n"
            "  function LOST (no record)\n"
            "    domain VOSS (no record)\n"
            "      target VOSS\n");
  EXPECT_THAT(tool({"request-tree", "show", "OSLO.KLUND.18.0"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(RequestCommands, ATreeIsDeletedWithItsCorrelator) {
  ASSERT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).exit, 0);
  ASSERT_EQ(tool({"request-tree", "del", "OSLO.KLUND.17.0"}).exit, 0);
  for (const char* type : {"rqr", "rqf", "fan", "rqd", "rqt", "rqv"}) EXPECT_EQ(tool({"list", type}).out, "") << type;
  EXPECT_THAT(tool({"get", "coo", "OSLO.KLUND.17.0.INSTALL"}).err, HasSubstr("DBE_NOT_FOUND"));
  EXPECT_THAT(tool({"request-tree", "del", "OSLO.KLUND.17.0"}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
}

TEST_F(RequestCommands, TheLastRequestIsTheOneOfTheHighestRecursion) {
  ASSERT_EQ(tool({"put", "rqr"}, R"({"user":"KLUND","src_domain":"OSLO","seq_no":17,"recursion_no":3})").exit, 0);
  EXPECT_EQ(tool({"last-request", "OSLO.KLUND.17.0"}).json()["request"], "OSLO.KLUND.17.3");
  EXPECT_EQ(tool({"last-request", "OSLO.KLUND.17"}).json()["request"], "OSLO.KLUND.17.3");
  EXPECT_EQ(tool({"last-request", "OSLO.KLUND"}).exit, 2);
  EXPECT_THAT(tool({"last-request", "OSLO.KLUND.18.0"}).err, HasSubstr("the one below it is \"OSLO.KLUND.17.3\""));
}

TEST_F(RequestCommands, ACorrelatorLeadsThereAndBack) {
  EXPECT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL", "--known"}).exit, 1);
  const zvradm::json made = tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).json();
  const std::string text = made["correlator"];
  EXPECT_EQ(text.substr(0, 5), "OSLO.");
  EXPECT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL", "--known"}).json(), made);
  EXPECT_EQ(tool({"request", "of", text}).json(), made);
  EXPECT_EQ(tool({"get", "coi", text}).json(), tool({"get", "coo", "OSLO.KLUND.17.0.INSTALL"}).json());
  EXPECT_EQ(tool({"put", "coi"}, "{}").exit, 1);
  EXPECT_EQ(tool({"list", "coo"}).exit, 1);
}

TEST_F(RequestCommands, ACorrelatorFromElsewhereGetsARequestWhenAsked) {
  const std::string text = "ELSEWHERE.2000/12/9.1:2:3.77";
  EXPECT_THAT(tool({"request", "of", text}).err, HasSubstr("DBE_NOT_FOUND (8194)"));
  const zvradm::json made = tool({"request", "of", text, "--server", "BERGEN", "--seq", "5"}).json();
  EXPECT_EQ(made["request"], "BERGEN.remuser.5.0.Y2000M12D09");
  EXPECT_EQ(tool({"request", "of", text}).json(), made);
  EXPECT_THAT(tool({"request", "of", "ELSEWHERE.2000/12/9.1:2:3.78", "--server", "BERGEN", "--seq", "5"}).err,
              HasSubstr("belongs to another correlator"));
}

TEST_F(RequestCommands, AnExportImportedElsewhereGivesTheSameExport) {
  ASSERT_EQ(tool({"correlator", "of", "OSLO.KLUND.17.0.INSTALL"}).exit, 0);
  ASSERT_EQ(tool({"request", "of", "ELSEWHERE.2000/12/9.1:2:3.77", "--server", "VOSS"}).exit, 0);
  const tool_result exported = tool({"export"});
  ASSERT_EQ(exported.exit, 0) << exported.err;
  EXPECT_THAT(exported.out, HasSubstr("\"type\":\"rqv\""));
  EXPECT_THAT(exported.out, HasSubstr("remuser"));
  scratch_base other;
  ASSERT_EQ(other.init().exit, 0);
  const tool_result imported = other.tool({"import", "-"}, exported.out);
  ASSERT_EQ(imported.exit, 0) << imported.err;
  EXPECT_EQ(other.tool({"export"}).out, exported.out);
}

TEST_F(RequestCommands, AnImportThatNamesUnknownTargetsStoresNothing) {
  const tool_result result = tool({"import", "-"}, R"({"type":"rqr","user":"A","src_domain":"NOBODY","seq_no":1})" "\n");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("line 1: src_domain: there is no target \"NOBODY\""));
}

// ---- names

using namespace zvradm;

TEST(RequestNames, AreReadAsTheyAreWritten) {
  for (const char* text : {"OSLO.KLUND.17.0.INSTALL", "a\\.b.c\\\\d.4294967295.65535.f\\.g", "OSLO..0.0."})
    EXPECT_EQ(request_text(parse_request(text, request_form::function), request_form::function), text);
  EXPECT_EQ(request_text(parse_request("OSLO.KLUND.17.0.", request_form::root), request_form::root), "OSLO.KLUND.17.0");
  for (const char* text : {"ORIGIN.2001/2/3.4:5:6.512000", "a.b.c.65535/255/255.255:255:255.4294967295"})
    EXPECT_EQ(correlator_text(parse_correlator(text)), text);
}

TEST(RequestNames, AreRefusedWithAReason) {
  for (const char* text : {"", "OSLO", "OSLO.K.17", "OSLO.K.x.0.F", "OSLO.K.4294967296.0.F", "OSLO.K.1.65536.F",
                           "OSLO.12345678901234567.1.0.F", "OSLO.K.1.0.F.G", "OSLO.K.-1.0.F", "O\\x.K.1.0.F", "O.K.1.0.F\\"})
    EXPECT_THROW(parse_request(text, request_form::function), request_fault) << text;
  EXPECT_THROW(parse_request(std::string(64, 'x') + ".K.1.0", request_form::root), request_fault);
  for (const char* text : {"", "A", "A.1", "A.2001/2/3.1", "A.2001/2.1:2:3.4", "A.2001/2/3.1:2:3.x", "A.2001/256/3.1:2:3.4"})
    EXPECT_THROW(parse_correlator(text), request_fault) << text;
}

}  // namespace
