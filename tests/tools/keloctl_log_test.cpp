// SPDX-License-Identifier: MIT
// keloctl log: the watch log, the switches of the log, and the meaning of its lines.
#include <gmock/gmock.h>

#include <thread>

#include "kelo_utils/log.h"
#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr char kGood[] = "ok\ttrue\nerror\t\n";

// --- The watch log ------------------------------------------------------------------------------------------

constexpr char kWatchA[] = "/data/oem/logs/fwawatchA.log";
constexpr char kWatchB[] = "/data/oem/logs/fwawatchB.log";
constexpr char kOption[] = "/kelonv/data/fwawatch_option";

class KeloctlLog : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories("/data/oem/logs"); }
  void TearDown() override {
    chmod("/data/oem/logs", 0755);
    for (const std::string path : {"/data/oem", "/data/log_enable", "/data/filler", kOption})
      std::filesystem::remove_all(path);
  }

  static std::string records(int first, int last) {
    std::string all;
    for (int i = first; i <= last; ++i)
      all += "[" + std::to_string(i) + ".25] main:42 record " + std::to_string(i) + "\n";
    return all;
  }
  static void add(const char* path, const std::string& text) { std::ofstream(path, std::ios::app) << text; }
};

TEST_F(KeloctlLog, WatchPrintsTheLastRecords) {
  write_file(kWatchA, records(1, 12));
  EXPECT_EQ(keloctl("log watch"), (Ran{0, records(3, 12), ""}));
  EXPECT_EQ(keloctl("log watch -n 2"), (Ran{0, records(11, 12), ""}));
  EXPECT_EQ(keloctl("log watch -n 0"), (Ran{0, "", ""}));
  EXPECT_EQ(keloctl("log watch -n 100"), (Ran{0, records(1, 12), ""}));
  EXPECT_EQ(keloctl("log watch -n 1 --tsv"),
            (Ran{0, std::string("on\ttrue\nrecord\tA\t[12.25] main:42 record 12\n") + kGood, ""}));
  EXPECT_EQ(
      keloctl("log watch -n 1 --json"),
      (Ran{0,
           R"({"on":true,"records":[{"file":"A","text":"[12.25] main:42 record 12"}],"ok":true,"error":null})"
           "\n",
           ""}));
}

TEST_F(KeloctlLog, WatchPrintsTheOlderFileFirst) {
  write_file(kWatchB, records(1, 3));
  write_file(kWatchA, records(4, 6));
  std::filesystem::last_write_time(kWatchB,
                                   std::filesystem::last_write_time(kWatchA) - std::chrono::seconds(1));
  EXPECT_EQ(keloctl("log watch"), (Ran{0, records(1, 6), ""}));
  EXPECT_EQ(keloctl("log watch -n 4"), (Ran{0, records(3, 6), ""}));
  std::filesystem::last_write_time(kWatchB,
                                   std::filesystem::last_write_time(kWatchA) + std::chrono::seconds(1));
  EXPECT_EQ(keloctl("log watch -n 4"), (Ran{0, records(6, 6) + records(1, 3), ""}));
}

TEST_F(KeloctlLog, WatchShowsWhatIsCutOffAndNoControlCharacters) {
  write_file(kWatchA, records(1, 1) + "[2.25] main:42 a\x1b[2Jb");
  EXPECT_EQ(keloctl("log watch"), (Ran{0, records(1, 1) + "[2.25] main:42 a\\x1b[2Jb\n", ""}));
}

TEST_F(KeloctlLog, WatchOfAMissingAnEmptyAndAnUnreadableLog) {
  const std::string missing =
      std::string("there is no watch log: neither ") + kWatchA + " nor " + kWatchB + " exists";
  EXPECT_EQ(keloctl("log watch"), (Ran{1, "", complaint(missing)}));
  EXPECT_EQ(keloctl("log watch --json"),
            (Ran{1, "{\"on\":true,\"records\":[],\"ok\":false,\"error\":\"" + missing + "\"}\n", ""}));
  EXPECT_EQ(keloctl("log watch --tsv"), (Ran{1, "on\ttrue\nok\tfalse\nerror\t" + missing + "\n", ""}));
  write_file(kWatchA, "");
  EXPECT_EQ(keloctl("log watch"), (Ran{0, "", ""}));
  chmod(kWatchA, 0);
  const std::string forbidden = std::string(kWatchA) + " cannot be read: Permission denied";
  EXPECT_EQ(keloctl("log watch"), (Ran{3, "", complaint(forbidden)}));
  EXPECT_EQ(keloctl("log watch --tsv"), (Ran{3, "on\ttrue\nok\tfalse\nerror\t" + forbidden + "\n", ""}));
  for (const std::string count : {"-1", "x", "''"})
    EXPECT_EQ(keloctl("log watch -n " + count),
              (Ran{2, "", complaint((count == "''" ? "" : count) + " is not a number of records")}));
  EXPECT_EQ(keloctl("log watch -n"),
            (Ran{2, "", complaint("-n is no option of this command, or lacks its value")}));
}

TEST_F(KeloctlLog, WatchFollowsBothFilesUntilASignalEndsIt) {
  write_file(kWatchA, records(1, 2));
  std::thread writer([] {
    usleep(800000);
    add(kWatchA, records(3, 3) + "[4.25] main:4");
    usleep(800000);
    add(kWatchA, "2 record 4\n");
    usleep(800000);
    write_file(kWatchB, records(5, 5));
    usleep(800000);
    write_file(kWatchA, records(6, 6));
    oem_watch("late", 7, "%s", "the last one");
  });
  const std::string program = shell_command(KELO_BINARY_DIR "/tools/keloctl/keloctl");
  EXPECT_EQ(std::system(("timeout --preserve-status -s INT 5 " + program +
                         " log watch -f -n 1 --json > /tmp/followed 2>&1")
                            .c_str()),
            0);
  writer.join();
  EXPECT_THAT(
      read_file("/tmp/followed"),
      MatchesRegex(
          "\\{\"on\":true,\"records\":\\[\\{\"file\":\"A\",\"text\":\"\\[2.25\\] main:42 record 2\"\\},"
          "\\{\"file\":\"A\",\"text\":\"\\[3.25\\] main:42 record 3\"\\},"
          "\\{\"file\":\"A\",\"text\":\"\\[4.25\\] main:42 record 4\"\\},"
          "\\{\"file\":\"B\",\"text\":\"\\[5.25\\] main:42 record 5\"\\},"
          "\\{\"file\":\"A\",\"text\":\"\\[6.25\\] main:42 record 6\"\\},"
          "\\{\"file\":\"A\",\"text\":\"\\[[0-9.]+\\] late:7 the last one\"\\}\\],"
          "\"ok\":true,\"error\":null\\}\n"));
  std::filesystem::remove("/tmp/followed");
}

// --- The switches -------------------------------------------------------------------------------------------

TEST_F(KeloctlLog, OnAndOffWriteTheSwitchOfTheLocalLines) {
  const std::string path = "/data/log_enable";
  EXPECT_EQ(keloctl("log on"), (Ran{0, path + " is written. Running daemons are not told.\n", ""}));
  EXPECT_EQ(read_file(path), "1");
  EXPECT_EQ(keloctl("log off --json"),
            (Ran{0,
                 R"({"path":"/data/log_enable","on":false,"daemons_told":false,"ok":true,"error":null})"
                 "\n",
                 ""}));
  EXPECT_EQ(read_file(path), "0");
  EXPECT_EQ(keloctl("log on --tsv"),
            (Ran{0, "path\t" + path + "\non\ttrue\ndaemons_told\tfalse\n" + kGood, ""}));
  // The library writes the same bytes.
  kelo_set_log_tool_enable(0);
  EXPECT_EQ(read_file(path), "1");
  kelo_set_log_tool_enable(1);
  EXPECT_EQ(read_file(path), "0");
}

TEST_F(KeloctlLog, OnAndOffSwitchTheWatchLogAtOnce) {
  EXPECT_EQ(keloctl("log off --watch"), (Ran{0, "The watch log is off.\n", ""}));
  oem_watch("main", 1, "not written");
  write_file(kWatchA, records(1, 1));
  EXPECT_EQ(keloctl("log watch"), (Ran{0, records(1, 1), "keloctl: the watch log is off\n"}));
  EXPECT_THAT(keloctl("log watch --json").output, StartsWith("{\"on\":false,"));
  EXPECT_EQ(keloctl("log on --watch"), (Ran{0, "The watch log is on.\n", ""}));
  oem_watch("main", 1, "written");
  EXPECT_THAT(keloctl("log watch -n 1"), testing::Field(&Ran::output, EndsWith("main:1 written\n")));
}

TEST_F(KeloctlLog, SwitchThatCannotBeWritten) {
  std::filesystem::create_directory("/data/log_enable");
  const std::string error = "/data/log_enable was not written: Is a directory";
  EXPECT_EQ(keloctl("log on"), (Ran{3, "", complaint(error)}));
  EXPECT_EQ(keloctl("log on --json"), (Ran{3, "{\"ok\":false,\"error\":\"" + error + "\"}\n", ""}));
  EXPECT_EQ(keloctl("log on --tsv"), (Ran{3, "ok\tfalse\nerror\t" + error + "\n", ""}));
  std::filesystem::remove("/data/log_enable");
  {
    std::ofstream filler("/data/filler");
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
  EXPECT_EQ(keloctl("log on"),
            (Ran{3, "", complaint("/data/log_enable was not written: No space left on device")}));
}

// --- The meaning of lines -----------------------------------------------------------------------------------

constexpr char kStepped[] =
    "text        sqlite3_step error 101\n"
    "level       error\n"
    "name        dm_read_db, dm_read_def_db\n"
    "meaning     The table has no row of this key. Harmless for an item that has never been written, or has "
    "no "
    "default: the daemon uses its default.\n"
    "harmless    it depends, see the meaning\n";

TEST_F(KeloctlLog, ExplainTakesEveryFormOfALine) {
  for (const std::string line : {
           "2026-03-01 12:34:56.789 : =ERR= | [812 | 815-modem_rx] | dm_read_db 97 | sqlite3_step error 101",
           "KELO-FWA[812] dm_read_db(): sqlite3_step error 101",
           "<11>daemon: KELO-FWA[812] dm_read_db(): sqlite3_step error 101",
           "Mar  1 12:34:56 cpe daemon: KELO-FWA[812] dm_read_db(): sqlite3_step error 101",
           "dm_read_db: sqlite3_step error 101",
           " sqlite3_step error 101 ",
       })
    EXPECT_EQ(keloctl("log explain '" + line + "'"), (Ran{0, kStepped, ""})) << line;
}

TEST_F(KeloctlLog, ExplainPrefersTheFunctionAndTheLevel) {
  const auto answers = [](const std::string& line) {
    const std::string output = keloctl("log explain --tsv '" + line + "'").output;
    return static_cast<int>(std::count(output.begin(), output.end(), '\n')) - 2;
  };
  EXPECT_EQ(answers("hash:wan apn"), 3);
  EXPECT_THAT(keloctl("log explain 'KELO-FWA[812] kelo_dm_write_db(): hash:wan apn'").output,
              HasSubstr("kelo_dm_write_db() reads first, so the text comes twice. Harmless, although"));
  EXPECT_EQ(answers("KELO-FWA[812] kelo_dm_write_db(): hash:wan apn"), 1);
  EXPECT_EQ(answers("2026-03-01 12:34:56.789 :  INFO | [8 | 8-a] | own 97 | hash:wan apn"), 1);
  EXPECT_EQ(answers("KELO-FWA[812] dm_pal_write(): ERROR: cp /data/config.db /data/configbak.db"), 1);
  EXPECT_EQ(answers("ERROR: cp /data/configbak.db /data/config.db"), 3);
  EXPECT_THAT(keloctl("log explain 'ERROR: cp /a.db /b.db'").output, HasSubstr("{SOURCE} {TARGET}"));
}

TEST_F(KeloctlLog, ExplainTellsTheMeaningOfACode) {
  EXPECT_EQ(
      keloctl("log explain --json 'KELO-FWA[812] dm_update_record(): 97 step failed rc: 5'"),
      (Ran{
          0,
          R"({"matches":[{"text":"{LINE} step failed rc: {CODE}","level":"error",)"
          R"("names":"dm_update_record, dm_update_def_record","meaning":"SQLite could not store the row. The row )"
          R"(keeps its old value, although the call returns 0. kelo_dm_write_verified() returns -1 in this case. )"
          R"(CODE is 5 for a lock of another program and 1 for every other reason: check the free space, the mode )"
          R"(of the file and the kernel's log.","harmless":"no","code":"5","code_meaning":"Another program that )"
          R"(uses SQLite has held its lock for more than five seconds. Find that program."}],"ok":true,"error":null})"
          "\n",
          ""}));
  EXPECT_THAT(keloctl("log explain '97 step failed rc: 13'").output,
              EndsWith("CODE        13\n            The file system is full. Make space.\n"));
}

TEST_F(KeloctlLog, ExplainOfATextThatTheLibraryDoesNotLog) {
  EXPECT_EQ(keloctl("log explain 'a text of a daemon'"),
            (Ran{1, "", complaint("the library logs no such text")}));
  EXPECT_EQ(keloctl("log explain '' --json"),
            (Ran{1, "{\"matches\":[],\"ok\":false,\"error\":\"the library logs no such text\"}\n", ""}));
  EXPECT_EQ(keloctl("log explain -- '-----------------Get db num:3---------------'").status, 0);
  EXPECT_EQ(keloctl("log explain '" + std::string(5000, '[') + "'").status, 1);
}

TEST_F(KeloctlLog, ExplainSaysThatItsTableIsMissing) {
  std::filesystem::create_directories("/tmp/elsewhere/bin");
  std::filesystem::copy_file(KELO_BINARY_DIR "/tools/keloctl/keloctl", "/tmp/elsewhere/bin/keloctl");
  EXPECT_EQ(
      std::system(("LD_LIBRARY_PATH='" KELO_BINARY_DIR "' " + shell_command("/tmp/elsewhere/bin/keloctl") +
                   " log explain x > /tmp/elsewhere/said 2>&1")
                      .c_str()),
      3 << 8);
  EXPECT_EQ(read_file("/tmp/elsewhere/said"),
            complaint("the table of messages is missing, which is installed with this program: "
                      "/tmp/elsewhere/bin/../share/kelo-utils/messages: No such file or directory"));
  std::filesystem::remove_all("/tmp/elsewhere");
}

}  // namespace
