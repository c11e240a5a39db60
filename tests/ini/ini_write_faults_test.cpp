// SPDX-License-Identifier: MIT
// Changes that fail, and what they leave; what a copy keeps.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/settings_file.hpp"
#include "tests/support/storage_faults.hpp"
#include "tools/power_cut/power_cut.hpp"

namespace {

namespace fs = std::filesystem;
using kelo::tests::Fault;
using kelo::tests::file_exists;
using kelo::tests::kCopy;
using kelo::tests::kEveryTime;
using kelo::tests::kSettings;
using kelo::tests::kShortTransfer;
using kelo::tests::open_descriptors;
using kelo::tests::put;
using kelo::tests::read_file;
using kelo::tests::write_file;
using kelo::tests::Writes;

constexpr char kText[] = "[s]\nk=old\nl=2\n";

class IniWriteFaults : public testing::Test {
 protected:
  void SetUp() override {
    umask(022);
    for (const char* const left : {kSettings, kCopy, "/tmp/kept", "/tmp/settings~", "/tmp/folder"})
      fs::remove_all(left);
    write_file(kSettings, kText);
  }
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  static void expect_untouched() {
    EXPECT_EQ(read_file(kSettings), kText);
    EXPECT_FALSE(file_exists(kCopy));
  }

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

// The calls of a change by a copy, in their order: open, fstat, read; open of the copy; pread and write of
// what is before it, write of the line, pread and write of what is after it; fsync, rename, open and fsync of
// the directory.
TEST_F(IniWriteFaults, KeepsTheFileWhenACopyFails) {
  const struct {
    const char* call;
    int at;
    int error;
  } faults[] = {{"open", 1, EACCES},  {"open", 1, EMFILE}, {"fstat", 1, EIO},    {"read", 1, EIO},
                {"open", 2, ENOSPC},  {"fstat", 2, EIO},   {"pread", 1, EIO},    {"write", 1, ENOSPC},
                {"write", 2, ENOSPC}, {"pread", 2, EIO},   {"write", 3, ENOSPC}, {"fsync", 1, EIO},
                {"rename", 1, EACCES}};
  for (const auto& [call, at, error] : faults) {
    const Fault fault({.call = call, .code = error, .at = at});
    EXPECT_EQ(put("s", "k", "longer"), 0) << call << " " << at;
    EXPECT_EQ(fault.seen(), at) << call << " " << at;
    expect_untouched();
  }
  EXPECT_EQ(put("s", "k", "longer"), 1);
}

// Not every file system lets the kernel copy, and the kernel may copy less than it was asked to.
TEST_F(IniWriteFaults, CopiesLongStretchesItselfWhereTheKernelDoesNot) {
  std::string lines;
  for (int line = 0; line < 1000; ++line) lines += "key" + std::to_string(line) + "=value\n";
  for (const int error : {EXDEV, ENOSYS, kShortTransfer}) {
    write_file(kSettings, kText + lines);
    const Fault fault({.call = "copy_file_range", .code = error, .times = kEveryTime});
    EXPECT_EQ(put("s", "k", "longer"), 1) << error;
    EXPECT_GT(fault.failed(), 1) << error;
    EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n" + lines) << error;
  }
}

TEST_F(IniWriteFaults, TakesADirectoryThatCannotBeSynchronisedForGood) {
  for (const char* const call : {"open", "fsync"}) {
    write_file(kSettings, kText);
    const Fault fault({.call = call, .code = EINVAL, .at = call == std::string_view("open") ? 3 : 2});
    EXPECT_EQ(put("s", "k", "longer"), 1);
    EXPECT_EQ(fault.seen(), call == std::string_view("open") ? 3 : 2);
    EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  }
}

TEST_F(IniWriteFaults, FailsWhenALineCannotBeWrittenOver) {
  const struct {
    const char* call;
    int at;
  } faults[] = {{"open", 2}, {"lseek", 1}, {"write", 1}};
  for (const auto& [call, at] : faults) {
    const Fault fault({.call = call, .code = EIO, .at = at});
    EXPECT_EQ(put("s", "k", "new"), 0) << call;
    expect_untouched();
  }
  const Fault fault({"fsync", EIO});
  EXPECT_EQ(put("s", "k", "new"), 0) << "nobody knows what is on the storage";
  EXPECT_EQ(read_file(kSettings), "[s]\nk=new\nl=2\n");
}

TEST_F(IniWriteFaults, LeavesNoFileThatCouldNotBeMade) {
  const struct {
    const char* call;
    int at;
  } faults[] = {{"open", 2}, {"write", 1}, {"fsync", 1}};
  fs::remove(kSettings);
  for (const auto& [call, at] : faults) {
    const Fault fault({.call = call, .code = ENOSPC, .at = at});
    EXPECT_EQ(put("s", "k", "v"), 0) << call;
    EXPECT_EQ(fault.seen(), at);
    EXPECT_FALSE(file_exists(kSettings)) << call;
  }
}

TEST_F(IniWriteFaults, RefusesFilesThatCannotBeMade) {
  for (const std::string& path : std::vector<std::string>{"", "/tmp/none/settings.ini", "/tmp/settings.ini/x",
                                                          "/tmp/" + std::string(NAME_MAX + 1, 'n')})
    EXPECT_EQ(ini_puts("s", "k", "v", path.c_str()), 0) << path;
}

TEST_F(IniWriteFaults, RefusesAFileThatMayNotBeRead) {
  ASSERT_EQ(chmod(kSettings, 0200), 0);
  for (const char* const value : {"v", static_cast<const char*>(nullptr)}) EXPECT_EQ(put("s", "k", value), 0);
  ASSERT_EQ(chmod(kSettings, 0600), 0);
  expect_untouched();
}

TEST_F(IniWriteFaults, RefusesWhatIsNoRegularFile) {
  fs::create_directory("/tmp/folder");
  EXPECT_EQ(ini_puts("s", "k", "v", "/tmp/folder"), 0);
  EXPECT_EQ(ini_puts("s", "k", nullptr, "/tmp/folder"), 0);
  EXPECT_EQ(ini_puts("s", nullptr, nullptr, "/tmp/folder"), 0);
  EXPECT_TRUE(fs::is_directory("/tmp/folder"));
  fs::create_symlink("/dev/null", "/tmp/kept");
  EXPECT_EQ(ini_puts("s", "k", "v", "/tmp/kept"), 0);
  EXPECT_EQ(ini_puts("s", "k", nullptr, "/tmp/kept"), 0);
  EXPECT_TRUE(fs::is_character_file("/tmp/kept"));
}

TEST_F(IniWriteFaults, RefusesACopyWhoseNameIsTaken) {
  fs::create_directory(kCopy);
  EXPECT_EQ(put("s", "k", "longer"), 0);
  EXPECT_EQ(read_file(kSettings), kText);
  EXPECT_TRUE(fs::is_directory(kCopy));
  EXPECT_EQ(put("s", "k", "new"), 1) << "no copy is needed";
  EXPECT_EQ(read_file(kSettings), "[s]\nk=new\nl=2\n");
}

TEST_F(IniWriteFaults, RefusesACopyWhereNoneMayBeMade) {
  fs::create_directory("/tmp/folder");
  write_file("/tmp/folder/a.ini", kText);
  ASSERT_EQ(chmod("/tmp/folder", 0500), 0);
  EXPECT_EQ(ini_puts("s", "k", "longer", "/tmp/folder/a.ini"), 0);
  EXPECT_EQ(ini_puts("t", nullptr, nullptr, "/tmp/folder/a.ini"), 0) << "of a section that is not there, too";
  EXPECT_EQ(read_file("/tmp/folder/a.ini"), kText);
  EXPECT_EQ(ini_puts("s", "k", "new", "/tmp/folder/a.ini"), 1);
  ASSERT_EQ(chmod("/tmp/folder", 0700), 0);
}

TEST_F(IniWriteFaults, CopiesAFileThatMayNotBeWritten) {
  ASSERT_EQ(chmod(kSettings, 0444), 0);
  EXPECT_EQ(put("s", "k", "new"), 0) << "a line cannot be written over";
  expect_untouched();
  EXPECT_EQ(put("s", "k", "longer"), 1);
  EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
}

TEST_F(IniWriteFaults, ReplacesACopyThatWasLeft) {
  write_file(kCopy, std::string(5000, 'x'));
  ASSERT_EQ(chmod(kCopy, 0400), 0);
  EXPECT_EQ(put("s", "k", "longer"), 1);
  EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  EXPECT_FALSE(file_exists(kCopy));
}

TEST_F(IniWriteFaults, NeverTruncatesTheFileThroughALinkWithTheNameOfTheCopy) {
  fs::create_hard_link(kSettings, kCopy);
  EXPECT_EQ(put("s", "k", "longer"), 1);
  EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  fs::create_symlink(kSettings, kCopy);
  EXPECT_EQ(put("s", "k", "old"), 1);
  EXPECT_EQ(read_file(kSettings), kText);
  EXPECT_FALSE(fs::is_symlink(kSettings));
}

TEST_F(IniWriteFaults, KeepsAFileThatWouldBeItsOwnCopy) {
  write_file("/tmp/settings~", kText);
  EXPECT_EQ(ini_puts("s", "k", "longer", "/tmp/settings~"), 0);
  EXPECT_EQ(ini_puts("s", "k", nullptr, "/tmp/settings~"), 0);
  EXPECT_EQ(read_file("/tmp/settings~"), kText);
}

TEST_F(IniWriteFaults, WorksWithShortAndLongNames) {
  std::vector<std::string> names = {"a", "/tmp/a", "../tmp/b.ini", std::string(NAME_MAX, 'n'),
                                    "/tmp" + std::string(PATH_MAX - 7, '/') + "ab"};
  ASSERT_EQ(names.back().size(), PATH_MAX - 1U);
  for (const std::string& name : names) {
    EXPECT_EQ(ini_puts("s", "k", "1", name.c_str()), 1) << name;
    EXPECT_EQ(ini_puts("s", "k", "23", name.c_str()), 1) << name;
    EXPECT_EQ(kelo::tests::value_of("s", "k", name), "23");
    EXPECT_TRUE(fs::remove(name));
  }
  EXPECT_EQ(std::distance(fs::directory_iterator("/tmp"), {}), 1) << "no copy is left";
}

TEST_F(IniWriteFaults, KeepsTheModeOfTheFile) {
  for (const mode_t mode : {0600U, 0640U, 0666U, 0755U, 0444U, 0400U}) {
    write_file(kSettings, kText);
    ASSERT_EQ(chmod(kSettings, mode), 0);
    EXPECT_EQ(put("s", "k", "longer"), 1);
    struct stat status {};
    ASSERT_EQ(stat(kSettings, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, mode);
    EXPECT_TRUE(fs::remove(kSettings));
  }
}

TEST_F(IniWriteFaults, MakesFilesForEverybodyWithinTheUmask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    fs::remove(kSettings);
    umask(mask);
    EXPECT_EQ(put("s", "k", "v"), 1);
    struct stat status {};
    ASSERT_EQ(stat(kSettings, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U & ~mask);
  }
}

TEST_F(IniWriteFaults, ReplacesASymbolicLinkByTheCopy) {
  fs::rename(kSettings, "/tmp/kept");
  fs::create_symlink("/tmp/kept", kSettings);
  EXPECT_EQ(put("s", "k", "longer"), 1);
  EXPECT_FALSE(fs::is_symlink(kSettings));
  EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  EXPECT_EQ(read_file("/tmp/kept"), kText);
}

TEST_F(IniWriteFaults, MakesTheFileThatASymbolicLinkLeadsTo) {
  fs::remove(kSettings);
  fs::create_symlink("/tmp/kept", kSettings);
  EXPECT_EQ(put("s", "k", "v"), 1);
  EXPECT_TRUE(fs::is_symlink(kSettings));
  EXPECT_EQ(read_file("/tmp/kept"), "[s]\nk=v\n");
}

// While it lives no file of the process grows beyond that size.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) { set(size); }
  ~FileSizeLimit() { set(RLIM_INFINITY); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  static void set(rlim_t size) {
    const rlimit limit = {size, RLIM_INFINITY};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
};

TEST_F(IniWriteFaults, KeepsTheFileOnAFullStorage) {
  const std::string text = "[s]\nk=longer\nl=2\n";
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  for (rlim_t size = 0; size < text.size(); ++size) {
    int result = -1;
    {
      const FileSizeLimit limit(size);
      result = put("s", "k", "longer");
    }
    EXPECT_EQ(result, 0) << size;
    expect_untouched();
  }
  {
    const FileSizeLimit limit(text.size());
    EXPECT_EQ(put("s", "k", "longer"), 1);
  }
  EXPECT_EQ(read_file(kSettings), text);
  signal(SIGXFSZ, handler);
}

TEST_F(IniWriteFaults, GoesOnAfterShortWritesAndSignals) {
  for (std::size_t most = 1; most < 6; ++most) {
    write_file(kSettings, kText);
    const Writes writes(most);
    EXPECT_EQ(put("s", "k", "longer"), 1);
    EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  }
  for (const char* const call : {"open", "read", "pread", "write", "fsync"}) {
    write_file(kSettings, kText);
    const Fault fault({.call = call, .code = EINTR, .times = 3});
    EXPECT_EQ(put("s", "k", "longer"), 1) << call;
    EXPECT_GE(fault.seen(), 4) << call;
    EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
  }
}

TEST_F(IniWriteFaults, NeverLosesWhatItCouldNotRead) {
  const std::string text = std::string(3000, ';') + "\n[s]\nk=1\n";
  write_file(kSettings, text);
  for (int at = 1; at <= 3; ++at) {
    for (const auto& [key, value] : std::vector<std::pair<const char*, const char*>>{
             {"k", "2"}, {"k", "23"}, {"k", nullptr}, {nullptr, nullptr}}) {
      if (at == 3 && key != nullptr) continue;  // found before
      {
        const Fault fault({.call = "read", .code = EIO, .at = at, .times = kelo::tests::kEveryTime});
        EXPECT_EQ(put("s", key, value), 0) << at;
      }
      EXPECT_EQ(read_file(kSettings), text);
    }
  }
}

TEST_F(IniWriteFaults, NeedsNoHeap) {
  std::array<int, 3> results{};
  {
    const kelo::tests::FailingHeap heap(0);
    results = {put("s", "k", "longer"), put("t", "k", "v"), put("t", nullptr, nullptr)};
  }
  EXPECT_EQ(results, (std::array<int, 3>{1, 1, 1}));
  EXPECT_EQ(read_file(kSettings), "[s]\nk=longer\nl=2\n");
}

TEST_F(IniWriteFaults, WritesNothingToAFileThatStaysAsItIs) {
  const Fault writes({.call = "write", .at = kelo::tests::kNever});
  const Fault opens({.call = "open", .at = kelo::tests::kNever});
  EXPECT_EQ(put("s", "k", "old"), 1);
  EXPECT_EQ(put("s", "none", nullptr), 1);
  EXPECT_EQ(opens.seen(), 2) << "to read";
}

// The calls that change files when k of section s is set, each with its file.
std::vector<std::string> storage_calls(const char* value) {
  const auto run = kelo::power_cut::run(
      "/tmp", [=] { put("s", "k", value); }, kelo::power_cut::no_cut);
  std::vector<std::string> calls;
  for (const auto& [name, file] : run.calls) calls.emplace_back(name).append(" ").append(file);
  return calls;
}

// What has to be on the storage before the next step is.
class IniWriteOrder : public IniWriteFaults {
 protected:
  void SetUp() override {
    if (!kelo::power_cut::can_trace()) GTEST_SKIP() << "this machine does not let a program trace others";
    IniWriteFaults::SetUp();
  }
};

TEST_F(IniWriteOrder, SynchronisesTheCopyBeforeItTakesThePlaceOfTheFile) {
  EXPECT_EQ(storage_calls("longer"),
            (std::vector<std::string>{"unlink /tmp/settings.in~", "open /tmp/settings.in~",
                                      "write /tmp/settings.in~", "write /tmp/settings.in~",
                                      "write /tmp/settings.in~", "fsync /tmp/settings.in~",
                                      "rename /tmp/settings.in~", "fsync /tmp"}));
}

TEST_F(IniWriteOrder, SynchronisesTheDirectoryOfEveryPath) {
  fs::create_directory("/tmp/folder");
  const struct {
    const char* path;
    const char* directory;
  } cases[] = {{"settings.ini", "/tmp"}, {"folder/a", "/tmp/folder"}, {"/tmp/folder/../b", "/tmp"}};
  for (const auto& [path, directory] : cases) {
    for (const char* const value : {"made", "copied"}) {
      const auto run = kelo::power_cut::run(
          "/tmp", [path = path, value] { ini_puts("s", "k", value, path); }, kelo::power_cut::no_cut);
      ASSERT_FALSE(run.calls.empty());
      EXPECT_EQ(run.calls.back().name, "fsync") << path;
      EXPECT_EQ(run.calls.back().file, directory) << path;
    }
  }
}

TEST_F(IniWriteOrder, SynchronisesALineThatIsWrittenOver) {
  EXPECT_EQ(storage_calls("new"),
            (std::vector<std::string>{"write /tmp/settings.ini", "fsync /tmp/settings.ini"}))
      << "a single write";
}

TEST_F(IniWriteOrder, SynchronisesAFileThatIsMade) {
  fs::remove(kSettings);
  EXPECT_EQ(storage_calls("v"), (std::vector<std::string>{"open /tmp/settings.ini", "write /tmp/settings.ini",
                                                          "fsync /tmp/settings.ini", "fsync /tmp"}));
}

}  // namespace
