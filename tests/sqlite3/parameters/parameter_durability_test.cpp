// SPDX-License-Identifier: MIT
// Parameters survive a missing or late factory file, copies that fail, are killed or cut, and a power cut
// after an update.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/own_copy.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tools/power_cut/power_cut.hpp"

namespace {

namespace fs = std::filesystem;
namespace cut = kelo::power_cut;
using namespace kelo::tests;

constexpr std::uint32_t kFactoryChannel = 36;
constexpr std::uint32_t kUserChannel = 11;

// The channel that a daemon loads; -1 when it cannot.
int channel() {
  std::uint32_t found = 0;
  const int result = kelo_db_get_value("wifi", "channel", &found, KELO_DB_TYPE_32BIT_4, sizeof found);
  return result == 0 ? static_cast<int>(found) : -1;
}

int set_channel(std::uint32_t number) {
  return kelo_db_update_value("wifi", "channel", &number, KELO_DB_TYPE_32BIT_4);
}

// As the next start of the daemon finds it. All of its values are the user's or all are the factory's.
std::string next_start() {
  return run_in_child([] {
           char name[32] = {};
           const int number = channel();
           const int result = kelo_db_get_value("wifi", "ssid", name, KELO_DB_TYPE_TEXT, sizeof name);
           std::printf("%d %s", number, result == 0 ? name : "fails");
         })
      .standard_output;
}
constexpr char kAllFactory[] = "36 factory";
constexpr char kAllUser[] = "11 cabin";

class ParameterDurability : public ParameterTest {
 protected:
  void SetUp() override {
    ParameterTest::SetUp();
    factory_ = read_file(kFactoryFile);
    ASSERT_EQ(set_channel(kUserChannel), 0);
    set_cell("ssid", "'cabin'");
  }

  static void expect_whole() {
    const std::string found = next_start();
    EXPECT_TRUE(found == kAllUser || found == kAllFactory) << found;
    EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
  }

  std::string factory_;
};

// --- The factory file comes late ---------------------------------------------------------------------------

TEST_F(ParameterDurability, AFactoryFileThatComesLateIsUsed) {
  const std::vector<std::function<int()>> touches = {
      channel, [] { return set_channel(5); },
      [] { return kelo_db_exec_cmd("select * from wifi", nullptr, nullptr, 0); }, kelo_db_restore_factory};
  for (const auto& touch : touches) {
    fs::remove(kUserFile);
    fs::remove(kFactoryFile);
    EXPECT_LE(touch(), 0);
    write_file(kFactoryFile, factory_);
    EXPECT_EQ(channel(), static_cast<int>(kFactoryChannel));
    EXPECT_EQ(set_channel(7), 0);
    EXPECT_EQ(channel(), 7);
  }
}

TEST_F(ParameterDurability, AnEmptyUserFileIsMadeAnew) {
  write_file(kUserFile, "");
  EXPECT_EQ(channel(), static_cast<int>(kFactoryChannel));
}

// --- Copies that do not come out whole ---------------------------------------------------------------------

TEST_F(ParameterDurability, AFailedFirstCopyIsMadeAgain) {
  for (const char* const lines :
       {kFailsAtOnce, "head -c 4096 \"$1\" > \"$2\"; exit 1", kCopiesHalf, ": > \"$2\""}) {
    fs::remove(kUserFile);
    {
      const OwnCopy copy(lines);
      static_cast<void>(channel());
    }
    EXPECT_EQ(next_start(), kAllFactory) << lines;
  }
}

TEST_F(ParameterDurability, AFailedRestoreKeepsTheUsersValues) {
  for (const char* const lines : {kFailsAtOnce, "head -c 4096 \"$1\" > \"$2\"; exit 1"}) {
    const OwnCopy copy(lines);
    EXPECT_EQ(kelo_db_restore_factory(), 0) << lines;
    EXPECT_EQ(next_start(), kAllUser) << lines;
  }
  const OwnCopy copy(kCopiesHalf);
  static_cast<void>(kelo_db_restore_factory());
  expect_whole();
}

TEST_F(ParameterDurability, ARestoreThatIsKilledLeavesAWholeFile) {
  HangingDaemon daemon([] { return kelo_db_restore_factory() == 1; });
  daemon.die();
  HangingDaemon::kill_copy();
  expect_whole();
}

TEST_F(ParameterDurability, AFirstCopyThatIsKilledIsMadeAgain) {
  fs::remove(kUserFile);
  HangingDaemon daemon([] { return channel() == static_cast<int>(kFactoryChannel); });
  daemon.die();
  HangingDaemon::kill_copy();
  EXPECT_EQ(next_start(), kAllFactory);
}

// A daemon that loads while another one restores gets a whole file, or nothing when the wait for one is over.
TEST_F(ParameterDurability, ARestoreIsNeverSeenHalfDone) {
  HangingDaemon daemon([] { return kelo_db_restore_factory() == 1; });
  const auto begin = std::chrono::steady_clock::now();
  const int found = channel();
  const auto waited = std::chrono::steady_clock::now() - begin;
  const bool gave_up = found == -1 && waited > std::chrono::milliseconds(4500);
  EXPECT_TRUE(gave_up || found == static_cast<int>(kUserChannel)) << found;
  EXPECT_TRUE(daemon.ends_well());
  EXPECT_EQ(next_start(), kAllFactory);
}

// --- Power cuts --------------------------------------------------------------------------------------------

struct History {
  const char* name;
  bool user_file;             // whether there is one before
  std::function<void()> act;  // runs with the power failing at some point
};
void PrintTo(const History& history, std::ostream* out) { *out << history.name; }

class ParameterPowerCut : public ParameterDurability, public testing::WithParamInterface<History> {};

TEST_P(ParameterPowerCut, EveryPointLeavesAWholeFile) {
  if (!cut::can_trace()) GTEST_SKIP() << "this machine does not let a program trace others";
  const fs::path snapshot = "/tmp/snapshot";
  if (!GetParam().user_file) fs::remove(kUserFile);
  fs::remove_all(snapshot);
  fs::copy(kParameterFolder, snapshot, fs::copy_options::recursive);
  const cut::Run whole = cut::run(kParameterFolder, GetParam().act, cut::no_cut);
  ASSERT_GT(whole.calls.size(), 1U);
  for (std::size_t point = 0; point < whole.calls.size(); ++point) {
    SCOPED_TRACE("cut before " + whole.calls[point].name + " of " + whole.calls[point].file);
    for (const auto& entry : fs::directory_iterator(kParameterFolder)) fs::remove_all(entry);
    fs::copy(snapshot, kParameterFolder, fs::copy_options::recursive);
    cut::run(kParameterFolder, GetParam().act,
             [=](std::size_t index, const cut::StorageCall& /*call*/) { return index == point; });
    expect_whole();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Histories, ParameterPowerCut,
    testing::Values(History{"first_copy", false, [] { static_cast<void>(channel()); }},
                    History{"restore", true, [] { static_cast<void>(kelo_db_restore_factory()); }},
                    History{"first_restore", false, [] { static_cast<void>(kelo_db_restore_factory()); }}),
    [](const auto& history) { return std::string(history.param.name); });

// Until the folder is synced the rollback journal may be there again after a power cut, and undoes the
// update.
TEST_F(ParameterDurability, AnUpdateIsLastingWhenItReturns) {
  const CallTrace trace;
  EXPECT_EQ(set_channel(5), 0);
  int last_data = -1;
  int last_folder = -1;
  const std::vector<TracedCall> calls = trace.calls();
  for (int i = 0; i < static_cast<int>(calls.size()); ++i) {
    const TracedCall& call = calls[static_cast<std::size_t>(i)];
    if (call.function != "fsync" && call.function != "fdatasync") continue;
    if (call.text == kUserFile) last_data = i;
    if (call.text == kParameterFolder) last_folder = i;
  }
  EXPECT_GE(last_data, 0) << trace.dump();
  EXPECT_GT(last_folder, last_data) << trace.dump();
}

TEST_F(ParameterDurability, ARestoreIsLastingWhenItReturns) {
  const CallTrace trace;
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  EXPECT_GT(trace.count("fsync", "user_info.db") + trace.count("fdatasync", "user_info.db"), 0)
      << trace.dump();
  EXPECT_EQ(next_start(), kAllFactory);
}

}  // namespace
