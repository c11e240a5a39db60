// SPDX-License-Identifier: MIT
// The copy of the primary over the backup: what it keeps of its target, and that a copy that does not come
// out whole costs no value.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/own_copy.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/store_settings.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kelo::tests;

class StoreCopy : public StoreTest {
 protected:
  static constexpr char kElsewhere[] = "/tmp/elsewhere/";

  void SetUp() override {
    StoreTest::SetUp();
    fs::remove_all(kElsewhere);
    fs::create_directory(kElsewhere);
  }

  // The lines of a write from the warnings on.
  std::multiset<std::string> complaints_of(const std::string& key, const std::string& value) {
    log.clear();
    EXPECT_EQ(put(key, value), 0);
    std::multiset<std::string> texts;
    for (const LogLine& line : log.lines())
      if (line.level >= LOG_LVL_WRN) texts.insert(line.text);
    return texts;
  }

  // A row that no write of the library made: it tells a copy of the whole file from a row carried over.
  static void add_stray_row() {
    execute_sql(DB_CONFIG, "insert into lan values (9, 'stray', 5, 1, 0, cast('x' as blob))");
  }
  static std::string stray_rows(const char* path) {
    return scalar(path, "select count(*) from lan where key = 'stray'");
  }
};

// --- What the target is ------------------------------------------------------------------------------------

TEST_F(StoreCopy, KeepsABackupThatIsALink) {
  const std::string target = std::string(kElsewhere) + "backup.db";
  fs::rename(DB_CONFIGBAK, "/data/moved");
  fs::copy_file("/data/moved", target);
  fs::remove("/data/moved");
  fs::create_symlink(target, DB_CONFIGBAK);
  EXPECT_EQ(put("apn", "new value"), 0);
  EXPECT_TRUE(fs::is_symlink(DB_CONFIGBAK));
  EXPECT_FALSE(fs::is_symlink(target));
  EXPECT_TRUE(read_file(target) == read_file(DB_CONFIG));
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
  EXPECT_EQ(std::distance(fs::directory_iterator(kElsewhere), {}), 1) << "nothing else is left there";
}

TEST_F(StoreCopy, KeepsALinkWhenTheCopyFails) {
  const std::string target = std::string(kElsewhere) + "backup.db";
  fs::copy_file(DB_CONFIGBAK, target);
  fs::remove(DB_CONFIGBAK);
  fs::create_symlink(target, DB_CONFIGBAK);
  {
    const OwnCopy copy(kCopiesHalf);
    EXPECT_EQ(put("apn", "new value"), 0);
  }
  EXPECT_TRUE(fs::is_symlink(DB_CONFIGBAK));
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
}

// Nothing was set aside when a copy fails at its first file.
TEST_F(StoreCopy, ThatCannotBeginLeavesTheOldBackupWithTheOneRow) {
  fs::create_directory(std::string(DB_CONFIGBAK) + "-new");
  EXPECT_EQ(put("apn", "new value"), 0);
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
}

TEST_F(StoreCopy, KeepsTheModeOfTheBackup) {
  const mode_t before = umask(022);
  for (const mode_t mode : {0666U, 0640U}) {
    ASSERT_EQ(chmod(DB_CONFIGBAK, mode), 0);
    EXPECT_EQ(put("apn", "new value"), 0);
    struct stat status {};
    ASSERT_EQ(stat(DB_CONFIGBAK, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode);
  }
  umask(before);
}

TEST_F(StoreCopy, KeepsTheModeOfAPrimaryThatIsRepaired) {
  ASSERT_EQ(chmod(DB_CONFIG, 0666), 0);
  corrupt_schema(DB_CONFIG);
  EXPECT_EQ(put("apn", "new value"), 0);
  struct stat status {};
  ASSERT_EQ(stat(DB_CONFIG, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666U);
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
}

// --- Copies that do not come out whole ---------------------------------------------------------------------

struct BadCopy {
  const char* name;
  const char* lines;  // of the `cp`; null: no process can be started
};
void PrintTo(const BadCopy& copy, std::ostream* out) { *out << copy.name; }

class StoreBadCopy : public StoreCopy, public testing::WithParamInterface<BadCopy> {
 protected:
  void begin_to_fail() {
    if (GetParam().lines != nullptr) {
      copy_.emplace(GetParam().lines);
    } else {
      no_process_ = std::make_unique<Fault>(FaultPlan{.call = "popen", .code = EAGAIN, .times = kEveryTime});
    }
  }
  void end_to_fail() {
    copy_.reset();
    no_process_.reset();
  }

 private:
  std::optional<OwnCopy> copy_;
  std::unique_ptr<Fault> no_process_;
};

// A value that is written once more because reads show it must not be undone by a later copy.
TEST_P(StoreBadCopy, NeverBringsAnOlderValueBack) {
  begin_to_fail();
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(get("apn"), "second");
  // What kelo_dm_write_db() does: it writes only what differs from what is read.
  if (get("apn") != "internet") {
    EXPECT_EQ(put("apn", "internet"), 0);
  }
  EXPECT_EQ(get("apn"), "internet");
  end_to_fail();
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "internet");
  EXPECT_EQ(get("mtu"), "1492");
  EXPECT_EQ(get("name", "lan"), "home");
}

TEST_P(StoreBadCopy, LeavesTheOldBackupWithTheOneRow) {
  add_stray_row();
  begin_to_fail();
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(put("fresh", "row"), 0);
  end_to_fail();
  EXPECT_EQ(stray_rows(DB_CONFIGBAK), "0");
  EXPECT_EQ(scalar(DB_CONFIGBAK, "pragma integrity_check"), "ok");
  EXPECT_EQ(get("apn"), "second");
  EXPECT_EQ(get("fresh"), "row");
  expect_others_kept();
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

TEST_P(StoreBadCopy, IsSaidInTheLog) {
  const std::multiset<std::string> usual = complaints_of("apn", "first");
  begin_to_fail();
  EXPECT_GT(complaints_of("apn", "second").size(), usual.size()) << log.dump();
  end_to_fail();
  EXPECT_EQ(complaints_of("apn", "third"), usual);
}

TEST_P(StoreBadCopy, LeavesAStartTheRightValues) {
  begin_to_fail();
  EXPECT_EQ(put("apn", "second"), 0);
  end_to_fail();
  start_and([] {
    EXPECT_EQ(get("apn"), "second");
    expect_others_kept();
  });
}

INSTANTIATE_TEST_SUITE_P(
    Copies, StoreBadCopy,
    testing::Values(BadCopy{"fails_at_once", kFailsAtOnce}, BadCopy{"copies_half", kCopiesHalf},
                    BadCopy{"copies_half_and_fails", "head -c 4096 \"$1\" > \"$2\"; exit 1"},
                    BadCopy{"copies_nothing", ": > \"$2\""}, BadCopy{"cannot_start", nullptr}),
    [](const auto& copy) { return std::string(copy.param.name); });

TEST_F(StoreCopy, ThatCannotBeSyncedLeavesTheOldBackupWithTheOneRow) {
  const std::multiset<std::string> usual = complaints_of("mtu", "1500");
  add_stray_row();
  {
    const Fault fault({.call = "fsync", .code = EIO, .text = "configbak"});
    EXPECT_GT(complaints_of("apn", "second").size(), usual.size()) << log.dump();
    EXPECT_EQ(fault.failed(), 1);
  }
  EXPECT_EQ(stray_rows(DB_CONFIGBAK), "0");
  EXPECT_EQ(get("apn"), "second");
  expect_others_kept();
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

// --- Directories -------------------------------------------------------------------------------------------

// The place of the last call that syncs exactly this file or folder; -1 when there is none.
int last_sync(const CallTrace& trace, const std::string& path) {
  const std::vector<TracedCall> calls = trace.calls();
  for (int i = static_cast<int>(calls.size()) - 1; i >= 0; --i) {
    const TracedCall& call = calls[static_cast<std::size_t>(i)];
    if ((call.function == "fsync" || call.function == "fdatasync") && call.text == path) return i;
  }
  return -1;
}

// The rollback journal of the commit must be gone for good, and the new copy must be found under its name,
// also when the write journal, whose own commits sync its folder, cannot be written.
TEST_F(StoreCopy, SyncsTheFoldersWithoutAWriteJournal) {
  start_and([] {
    sqlite_reg_store_area("/data/", kElsewhere);
    EXPECT_EQ(put("apn", "first"), 0);
    make_no_database(DB_STATE);
    const CallTrace trace;
    EXPECT_EQ(put("apn", "second"), 0);
    EXPECT_GE(last_sync(trace, DB_CONFIG), 0) << trace.dump();
    EXPECT_GT(last_sync(trace, "/data"), last_sync(trace, DB_CONFIG)) << trace.dump();
    EXPECT_GE(last_sync(trace, DB_CONFIGBAK), 0) << trace.dump();
    EXPECT_GT(last_sync(trace, "/tmp/elsewhere"), last_sync(trace, DB_CONFIGBAK)) << trace.dump();
  });
}

}  // namespace
