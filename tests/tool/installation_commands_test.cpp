#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "tool_driver.h"

namespace {

using namespace tool_test;
using testing::HasSubstr;

constexpr const char* record_files[] = {"userreq", "trgcfg", "users",   "auth",    "cmstatus",
                                        "trggrp",  "catalog", "snacorr", "dyntggrp"};

// A tool process that waits for its standard input, attached to the installation.
class waiting_writer {
 public:
  explicit waiting_writer(const scratch_base& base) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) abort();
    process_ = fork();
    if (process_ == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      execl(ZVRADM_PATH, "zvradm", "--base", base.path().c_str(), "put", "trg", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    in_ = in[1];
    out_ = out[0];
  }
  ~waiting_writer() { end(SIGKILL); }
  waiting_writer(const waiting_writer&) = delete;
  waiting_writer& operator=(const waiting_writer&) = delete;

  void send(const std::string& lines) const {
    if (write(in_, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) abort();
  }
  // The next answer, "" when there is none any more.
  std::string answer() const {
    std::string line;
    char c;
    while (read(out_, &c, 1) == 1) {
      if (c == '\n') return line;
      line += c;
    }
    return "";
  }
  void end(int signal) {
    if (process_ <= 0) return;
    kill(process_, signal);
    waitpid(process_, nullptr, 0);
    process_ = -1;
    close(in_);
    close(out_);
  }

 private:
  pid_t process_ = -1;
  int in_ = -1, out_ = -1;
};

class InstallationCommands : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(base.init().exit, 0); }
  zvradm::json status() { return base.tool({"status", "--json"}).json(); }
  scratch_base base;
};

TEST_F(InstallationCommands, StatusTellsCountsLimitsAndFiles) {
  base.tool({"put", "trg"}, R"({"trg_name":"BERGEN","trg_type":["LOCAL","CLIENT"],"srv_name":"OSLO"})");
  const zvradm::json all = status();
  EXPECT_EQ(all["local_target"], "OSLO");
  EXPECT_EQ(all["targets"]["actual"], 2);
  EXPECT_EQ(all["targets"]["allowed"], 10000);
  EXPECT_EQ(all["local_targets"]["actual"], 2);
  EXPECT_EQ(all["server_targets"]["configured"], 10000);
  EXPECT_EQ(all["write_in_progress"], 0);
  EXPECT_EQ(all["local_dsu"], "OSLO01");
  EXPECT_EQ(all["files"].size(), 9u);
  for (const zvradm::json& file : all["files"]) EXPECT_EQ(file["use_count"], 0);
  EXPECT_TRUE(all["tasks"].empty());
  EXPECT_THAT(base.tool({"status"}).out, HasSubstr("no other task is alive"));
}

TEST_F(InstallationCommands, StatusNamesTheTasksThatLive) {
  waiting_writer writer(base);
  writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
  ASSERT_EQ(writer.answer(), R"({"line":1,"rc":0,"code":"DBE_OK"})");
  const zvradm::json all = status();
  ASSERT_EQ(all["tasks"].size(), 1u);
  EXPECT_EQ(all["tasks"][0]["name"], "zvradm");
  for (const zvradm::json& file : all["files"]) EXPECT_EQ(file["use_count"], 1);
  EXPECT_TRUE(all["journal"].is_boolean());
}

class JournalCommand : public InstallationCommands {
 protected:
  JournalCommand() {
    if (const char* chosen = std::getenv("ZVR_JOURNAL")) before_ = chosen;
    unsetenv("ZVR_JOURNAL");
  }
  ~JournalCommand() override {
    unsetenv("ZVR_JOURNAL");
    if (!before_.empty()) setenv("ZVR_JOURNAL", before_.c_str(), 1);
  }
  std::string before_;
};

TEST_F(JournalCommand, ShowsAndSetsTheChoiceOfTheInstallation) {
  EXPECT_EQ(base.tool({"journal"}).out, "on (default)\n");
  EXPECT_EQ(base.tool({"journal", "off"}).out, "off (installation)\n");
  EXPECT_EQ(base.tool({"journal"}).out, "off (installation)\n");
  zvradm::json all = status();
  EXPECT_EQ(all["journal"], false);
  EXPECT_EQ(all["journal_source"], "installation");
  EXPECT_THAT(base.tool({"status"}).out, HasSubstr("off (installation)"));
  EXPECT_EQ(base.tool({"get", "trg", "OSLO"}).exit, 0);
  EXPECT_EQ(base.tool({"journal", "on"}).out, "on (installation)\n");
  EXPECT_EQ(base.tool({"journal", "--json"}).out, "{\"journal\":true,\"source\":\"installation\",\"note\":\"\"}\n");
  EXPECT_EQ(base.tool({"journal", "perhaps"}).exit, 2);
}

TEST_F(JournalCommand, TellsWhenTheEnvironmentSaysOtherwise) {
  setenv("ZVR_JOURNAL", "off", 1);
  const tool_result set = base.tool({"journal", "on"});
  unsetenv("ZVR_JOURNAL");
  EXPECT_EQ(set.exit, 0);
  EXPECT_EQ(set.out, "off (ZVR_JOURNAL)\n");
  EXPECT_THAT(set.err, HasSubstr("ZVR_JOURNAL in this environment says otherwise"));
  EXPECT_EQ(base.tool({"journal"}).out, "on (installation)\n");
}

TEST_F(JournalCommand, TellsOfTasksThatKeepTheFilesAsTheyAre) {
  waiting_writer writer(base);
  writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
  ASSERT_NE(writer.answer(), "");
  EXPECT_THAT(base.tool({"journal", "off"}).out, HasSubstr("1 task is alive: a record file goes on as it is"));
  // Both go on beside each other.
  EXPECT_EQ(base.tool({"get", "trg", "BERGEN"}).exit, 0);
  writer.send("{\"trg_name\":\"VOSS\",\"trg_type\":130}\n");
  ASSERT_NE(writer.answer(), "");
  EXPECT_EQ(base.tool({"get", "trg", "VOSS"}).exit, 0);
}

TEST_F(JournalCommand, AFileThatSaysNeitherIsTold) {
  write_file(base.file("journal"), "of\n");
  EXPECT_THAT(base.tool({"journal"}).out, HasSubstr("says neither on nor off"));
  EXPECT_EQ(base.tool({"journal", "--json"}).json()["note"],
            "the file \"journal\" of the base directory says neither on nor off");
}

TEST_F(JournalCommand, AVariableThatSaysNeitherIsTold) {
  setenv("ZVR_JOURNAL", "of", 1);
  EXPECT_EQ(base.tool({"journal"}).out, "on (default; ZVR_JOURNAL says neither on nor off)\n");
  EXPECT_THAT(base.tool({"status"}).out, HasSubstr("on (default; ZVR_JOURNAL says neither on nor off)"));
}

TEST_F(InstallationCommands, JournalsAmongTheFilesArePassedOver) {
  const std::string journal = base.file("db/trgcfg.jnl");
  write_file(journal, "journal");
  const tool_result result = run_tool({"file", "check", journal, base.file("db/trgcfg")});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr(journal + ": a journal, passed over"));
}

TEST_F(InstallationCommands, CheckNotesAJournalThatCannotBeOpened) {
  const std::string file = base.file("db/trgcfg"), journal = file + ".jnl";
  std::filesystem::remove(journal);
  std::filesystem::create_directory(journal);
  const tool_result result = run_tool({"file", "check", "--deep", file});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.out, HasSubstr(file + ": note: its journal is there and cannot be opened"));
  EXPECT_THAT(run_tool({"file", "summary", file}).out, HasSubstr("its journal is there and cannot be opened"));
}

TEST_F(InstallationCommands, ACopyOfAHeldFileHasWhatADeadWriterStored) {
  const std::string copy = base.file("copy");
  {
    waiting_writer writer(base);
    writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
    ASSERT_NE(writer.answer(), "");
    writer.end(SIGKILL);
  }
  EXPECT_EQ(run_tool({"file", "hold", base.file("db/trgcfg"), "--run", "cp " + base.file("db/trgcfg") + " " + copy}).exit, 0);
  EXPECT_EQ(run_tool({"file", "check", "--deep", copy}).exit, 0);
  EXPECT_THAT(run_tool({"file", "dump", copy}).out, HasSubstr("\"reccount\":2"));
}

// As a kill leaves them that comes behind the flush of the journal.
TEST_F(InstallationCommands, CheckDumpAndSummaryNoteAJournalThatIsAheadOfItsFile) {
  const std::string file = base.file("db/trgcfg");
  const std::string words = "its journal has changes that it does not have yet";
  const auto notes = [&] {
    std::string who;
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"check"}, {"check", "--json"}, {"dump"}, {"summary"}, {"summary", "--table"}}) {
      std::vector<std::string> arguments{"file"};
      arguments.insert(arguments.end(), command.begin(), command.end());
      arguments.push_back(file);
      const tool_result told = run_tool(arguments);
      EXPECT_EQ(told.exit, 0) << told.err;
      if (told.out.find(words) != std::string::npos) who += (who.empty() ? "" : ", ") + command[0] + (command.size() > 1 ? command[1] : "");
    }
    return who;
  };
  {
    waiting_writer writer(base);
    writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
    ASSERT_NE(writer.answer(), "");
    const std::string before = read_file(file);
    writer.send("{\"trg_name\":\"TROMSO\",\"trg_type\":130}\n");
    ASSERT_NE(writer.answer(), "");
    writer.end(SIGKILL);
    EXPECT_EQ(notes(), "");
    write_file(file, before);
  }
  EXPECT_EQ(notes(), "check, check--json, dump, summary, summary--table");
  EXPECT_EQ(zvradm::json::parse(run_tool({"file", "dump", file}).lines()[0])["reccount"], 2);
  EXPECT_EQ(base.tool({"get", "trg", "TROMSO"}).exit, 0);
  EXPECT_EQ(notes(), "");
}

TEST_F(InstallationCommands, ResetIsRefusedWhileATaskLives) {
  waiting_writer writer(base);
  writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
  ASSERT_NE(writer.answer(), "");
  const tool_result refused = base.tool({"reset"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("1 task is alive"));
  writer.end(SIGKILL);
  EXPECT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_EQ(base.tool({"get", "trg", "BERGEN"}).exit, 0);
}

TEST_F(InstallationCommands, ResetRemovesTheSharedFolderAndMayBeRepeated) {
  const std::string folder = status()["shared_folder"];
  EXPECT_TRUE(std::filesystem::exists(folder));
  EXPECT_EQ(base.tool({"reset"}).exit, 0);
  EXPECT_FALSE(std::filesystem::exists(folder));
  EXPECT_EQ(base.tool({"reset"}).exit, 0);
}

TEST_F(InstallationCommands, InitIsRefusedWhileATaskLives) {
  waiting_writer writer(base);
  writer.send("{\"trg_name\":\"BERGEN\",\"trg_type\":130}\n");
  ASSERT_NE(writer.answer(), "");
  const std::string config = read_file(base.file("orvo.cfg"));
  const tool_result refused = base.init({"--force", "--max-targets", "77"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("alive"));
  EXPECT_EQ(read_file(base.file("orvo.cfg")), config);
}

TEST_F(InstallationCommands, AKilledWriterLosesNothingThatWasAcknowledged) {
  std::string lines;
  for (int i = 100; i < 120; ++i) lines += "{\"trg_name\":\"K" + std::to_string(i) + "\",\"trg_type\":130}\n";
  waiting_writer writer(base);
  writer.send(lines);
  int acknowledged = 0;
  while (acknowledged < 20 && !writer.answer().empty()) ++acknowledged;
  writer.end(SIGKILL);
  ASSERT_EQ(acknowledged, 20);
  const tool_result listed = base.tool({"list", "trg", "--name", "K"});
  ASSERT_EQ(listed.exit, 0) << listed.err;
  const auto found = listed.lines();
  ASSERT_EQ(found.size(), 20u);
  for (std::size_t i = 0; i < found.size(); ++i)
    EXPECT_EQ(zvradm::json::parse(found[i])["trg_name"], "K" + std::to_string(100 + i));
  const zvradm::json now = status();
  EXPECT_EQ(now["write_in_progress"], 0);
  for (const zvradm::json& file : now["files"]) EXPECT_EQ(file["use_count"], 0);
  std::vector<std::string> check{"file", "check", "--deep"};
  for (const char* name : record_files) check.push_back(base.file(std::string("db/") + name));
  const tool_result checked = run_tool(check);
  EXPECT_EQ(checked.exit, 0) << checked.out;
}

TEST_F(InstallationCommands, NothingIsWrittenWhileAFileIsHeld) {
  waiting_writer writer(base);
  writer.send("{\"trg_name\":\"BEFORE\",\"trg_type\":130}\n");
  ASSERT_NE(writer.answer(), "");
  const std::string held = base.file("db/trgcfg");
  const std::string first = base.file("first"), second = base.file("second");
  const std::string reached = base.file("reached"), go_on = base.file("go-on");
  ASSERT_EQ(mkfifo(reached.c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(go_on.c_str(), 0600), 0);
  tool_result done;
  std::thread holder([&] {
    done = run_tool({"file", "hold", held, "--run",
                     "cp " + held + " " + first + " && echo > " + reached + " && cat " + go_on + " && cp " + held +
                         " " + second});
  });
  read_file(reached);  // the file is held from here on
  writer.send("{\"trg_name\":\"MEANWHILE\",\"trg_type\":130}\n");
  write_file(go_on, "\n");
  holder.join();
  EXPECT_EQ(done.exit, 0) << done.err;
  EXPECT_NE(writer.answer(), "");
  EXPECT_EQ(read_file(first), read_file(second));
  EXPECT_EQ(run_tool({"file", "check", "--deep", second}).exit, 0);
}

TEST_F(InstallationCommands, HoldTellsWhatItsCommandAnswered) {
  EXPECT_EQ(run_tool({"file", "hold", base.file("db/trgcfg"), "--run", "true"}).exit, 0);
  EXPECT_EQ(run_tool({"file", "hold", base.file("db/trgcfg"), "--run", "exit 3"}).exit, 1);
  EXPECT_EQ(run_tool({"file", "hold", base.file("db/trgcfg")}).exit, 2);
}

TEST_F(InstallationCommands, HoldTellsWhyAFileCannotBeOpened) {
  const tool_result result = run_tool({"file", "hold", base.file("db/nothing"), "--run", "true"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("db/nothing: cannot be opened for writing: No such file or directory"));
}

TEST_F(InstallationCommands, HoldTakesAFileThatIsNamedTwiceOnce) {
  const std::string file = base.file("db/trgcfg");
  const tool_result result = run_tool({"file", "hold", file, base.file("db/../db/trgcfg"), file, "--run", "echo ran"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, "ran\n");
}

TEST_F(InstallationCommands, HoldRunsNothingWhenNothingIsHeld) {
  const tool_result result =
      run_tool({"file", "hold", base.file("db/trgcfg.jnl"), base.file("db/tmp"), "--run", "echo ran"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("none of the names is a record file"));
}

TEST_F(InstallationCommands, DumpAndSummaryTellWhatIsNoRecordFile) {
  for (const char* command : {"dump", "summary"}) {
    const tool_result result = run_tool({"file", command, base.file("db/trgcfg.jnl")});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("db/trgcfg.jnl: a journal and no record file"));
  }
}

TEST_F(InstallationCommands, AChoiceThatCannotBeStoredLeavesNothingBehind) {
  ASSERT_TRUE(std::filesystem::create_directory(base.file("journal")));
  const tool_result refused = base.tool({"journal", "off"});
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err, HasSubstr("cannot be replaced"));
  EXPECT_FALSE(std::filesystem::exists(base.file("journal.new")));
}

TEST_F(InstallationCommands, ResetSaysWhenThereIsNoInstallation) {
  EXPECT_EQ(base.tool({"reset"}).err, "");
  const std::string empty = base.file("empty");
  ASSERT_TRUE(std::filesystem::create_directory(empty));
  const tool_result result = run_tool({"--base", empty, "reset"});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr("there is no installation here"));
}

TEST_F(InstallationCommands, FoldersAndTextRecordsAmongTheFilesArePassedOver) {
  write_file(base.file("db/user_config"), "CONFIG_USER: VIEW\n");
  const std::vector<std::string> every{base.file("db/tmp"), base.file("db/trgcfg"), base.file("db/user_config")};
  for (std::vector<std::string> command : {std::vector<std::string>{"file", "check"}, {"file", "hold", "--run", "true"}}) {
    command.insert(command.end(), every.begin(), every.end());
    const tool_result result = run_tool(command);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_THAT(result.err, testing::HasSubstr("db/tmp: a folder, passed over"));
    EXPECT_THAT(result.err, testing::HasSubstr("db/user_config: a text record, passed over"));
  }
  EXPECT_EQ(run_tool({"file", "check", base.file("db/tmp")}).exit, 2);
}

TEST_F(InstallationCommands, CheckTellsSoundFiles) {
  const tool_result result = run_tool({"file", "check", base.file("db/trgcfg"), base.file("db/catalog")});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out, base.file("db/trgcfg") + ": sound\n" + base.file("db/catalog") + ": sound\n");
}

TEST_F(InstallationCommands, CheckTellsWhatARollBackLeftBehindAsNotesOfASoundFile) {
  std::string lines;
  for (int i = 0; i < 60; ++i) lines += R"({"type":"trg","trg_name":"T)" + std::to_string(i) + "\",\"trg_type\":130}\n";
  lines += R"({"type":"trg","trg_name":"LAST","srv_name":"NOBODY","trg_type":130})";
  ASSERT_EQ(base.tool({"import", "-"}, lines).exit, 1);
  const std::string file = base.file("db/trgcfg");
  const tool_result told = run_tool({"file", "check", "--deep", file});
  EXPECT_EQ(told.exit, 0) << told.out;
  const auto text = told.lines();
  ASSERT_GE(text.size(), 2u);
  ASSERT_LE(text.size(), 6u) << "nodes with one and the same note are told together";
  for (std::size_t i = 0; i + 1 < text.size(); ++i) EXPECT_THAT(text[i], testing::StartsWith(file + ": note: "));
  EXPECT_EQ(text.back(), file + ": sound");
  const auto json_lines = run_tool({"file", "check", "--deep", "--json", file}).lines();
  ASSERT_EQ(json_lines.size(), text.size());
  for (std::size_t i = 0; i + 1 < json_lines.size(); ++i) {
    EXPECT_TRUE(zvradm::json::parse(json_lines[i]).contains("note")) << json_lines[i];
    EXPECT_FALSE(zvradm::json::parse(json_lines[i]).contains("problem")) << json_lines[i];
  }
  EXPECT_EQ(zvradm::json::parse(json_lines.back())["problems"], 0);
}

TEST_F(InstallationCommands, CheckTellsProblemsWithTheirPlaceAndEndsWithOne) {
  std::string bytes = read_file(base.file("db/trgcfg"));
  ASSERT_GT(bytes.size(), 2048u);
  bytes[1024 + 30] = static_cast<char>(bytes[1024 + 30] ^ 0x55);
  for (std::size_t i = 1024 + 18; i < 1024 + 60; ++i) bytes[i] = static_cast<char>(0xA5);
  write_file(base.file("damaged"), bytes);
  const tool_result result = run_tool({"file", "check", base.file("damaged"), base.file("db/trgcfg")});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.out, HasSubstr("node 0"));
  EXPECT_THAT(result.out, HasSubstr(" problem"));
  EXPECT_THAT(result.out, HasSubstr("db/trgcfg: sound")) << "the files behind are checked all the same";
}

TEST_F(InstallationCommands, CheckOfWhatIsNoRecordFileEndsWithTwo) {
  write_file(base.file("text"), "hello\n");
  const tool_result foreign = run_tool({"file", "check", base.file("text"), base.file("db/trgcfg")});
  EXPECT_EQ(foreign.exit, 2);
  EXPECT_THAT(foreign.err, HasSubstr("not readable"));
  EXPECT_EQ(run_tool({"file", "check", base.file("nothing")}).exit, 2);
  const auto lines = run_tool({"file", "check", "--json", base.file("text")}).lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(zvradm::json::parse(lines[0])["outcome"], "unreadable");
}

TEST_F(InstallationCommands, DumpPrintsTheHeaderAndTheEntriesInOrder) {
  const tool_result result = run_tool({"file", "dump", base.file("db/trgcfg")});
  ASSERT_EQ(result.exit, 0) << result.err;
  const auto lines = result.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_TRUE(zvradm::json::parse(lines[0]).contains("nextnode"));
  int previous = 0;
  bool record_seen = false;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const zvradm::json entry = zvradm::json::parse(lines[i]);
    std::string members;
    for (const auto& [name, value] : entry.items()) members += name + " ";
    EXPECT_EQ(members, "key value rec piece last data ");
    EXPECT_GE(entry["key"].get<int>(), previous);
    previous = entry["key"];
    record_seen = record_seen || entry["data"].get<std::string>().find("4f534c4f") != std::string::npos;
  }
  EXPECT_TRUE(record_seen) << "the local target's name";
  EXPECT_EQ(run_tool({"file", "dump", base.file("nothing")}).exit, 1);
}

TEST_F(InstallationCommands, SummaryCountsRecordsAndNodes) {
  const tool_result result = run_tool({"file", "summary", base.file("db/trgcfg")});
  ASSERT_EQ(result.exit, 0) << result.err;
  const zvradm::json summary = result.json();
  EXPECT_EQ(summary["records"], 1);
  EXPECT_GE(summary["nodes"]["leaves"], 1);
  EXPECT_EQ(summary["header"]["size"], read_file(base.file("db/trgcfg")).size());
  EXPECT_THAT(run_tool({"file", "summary", "--table", base.file("db/trgcfg")}).out, HasSubstr("fill of leaves"));
  EXPECT_EQ(run_tool({"file", "summary", base.file("nothing")}).exit, 1);
}

}  // namespace
