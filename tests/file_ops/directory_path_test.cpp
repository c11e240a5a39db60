// SPDX-License-Identifier: MIT
// Every missing directory of a path.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/file_ops.h"
#include "kelo_utils/log.h"
#include "tests/support/database.hpp"
#include "tests/support/fault.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/made_directories.hpp"

namespace {

using kelo::tests::asked_for;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::write_file;

namespace fs = std::filesystem;

constexpr char kFunction[] = "dir_make_path";

class DirectoryPath : public testing::Test {
 protected:
  void SetUp() override {
    umask(0);
    fs::current_path("/tmp");
    asked_for.clear();
  }

  void expect_made(const std::string& path, const std::vector<std::string>& directories) {
    asked_for.clear();
    EXPECT_EQ(dir_make_path(path.c_str(), 0755), 0) << path;
    EXPECT_EQ(asked_for.names, directories);
    for (const std::string& directory : directories) EXPECT_TRUE(fs::is_directory(directory)) << directory;
    EXPECT_TRUE(log.lines().empty()) << log.dump();
  }

  void expect_refused(const std::string& path) {
    EXPECT_EQ(dir_make_path(path.c_str(), 0755), -1) << path;
    expect_failure(path);
  }

  void expect_failure(const std::string& path) {
    expect_lines(log, kFunction, {{LOG_LVL_ERR, "Could not create directory '" + path + "'.\n"}});
  }

  void expect_overflow(const std::string& path) {
    asked_for.clear();
    EXPECT_EQ(dir_make_path(path.c_str(), 0755), -1);
    expect_lines(log, kFunction, {{LOG_LVL_ERR, "Directory path overflowed.\n"}});
    EXPECT_TRUE(asked_for.empty());
  }

  LogCapture log;
};

TEST_F(DirectoryPath, MakesEveryDirectory) {
  const std::vector<std::string> made = {"/tmp", "/tmp/a", "/tmp/a/b", "/tmp/a/b/c"};
  expect_made("/tmp/a/b/c/", made);
  expect_made("/tmp/a/b/c/", made);
  expect_made("/tmp/a/b/c", made);
}

TEST_F(DirectoryPath, MakesOnlyWhatIsMissing) {
  ASSERT_TRUE(fs::create_directories("/tmp/a/b"));
  write_file("/tmp/a/b/kept", "x");
  expect_made("/tmp/a/b/c/d", {"/tmp", "/tmp/a", "/tmp/a/b", "/tmp/a/b/c", "/tmp/a/b/c/d"});
  EXPECT_TRUE(fs::exists("/tmp/a/b/kept"));
}

TEST_F(DirectoryPath, MakesRelativePaths) {
  expect_made("one", {"one"});
  expect_made("two/", {"two"});
  expect_made("a/b", {"a", "a/b"});
  expect_made("./d", {".", "./d"});
  EXPECT_TRUE(fs::is_directory("/tmp/a/b"));
}

TEST_F(DirectoryPath, TakesSlashesAsTheyCome) {
  expect_made("a//b//", {"a", "a/", "a//b", "a//b/"});
  expect_made("//tmp/c", {"/", "//tmp", "//tmp/c"});
  expect_made("//", {"/"});
  EXPECT_TRUE(fs::is_directory("/tmp/a/b"));
}

TEST_F(DirectoryPath, RefusesThePathsOfNoName) {
  expect_refused("/");
  expect_refused("");
  EXPECT_TRUE(asked_for.empty());
}

TEST_F(DirectoryPath, GivesEachDirectoryTheMode) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    umask(mask);
    EXPECT_EQ(dir_make_path("/tmp/m/n", 0777), 0);
    for (const char* const path : {"/tmp/m", "/tmp/m/n"}) {
      struct stat status {};
      ASSERT_EQ(stat(path, &status), 0);
      EXPECT_EQ(status.st_mode & 07777U, 0777U & ~mask) << path;
    }
    fs::remove_all("/tmp/m");
  }
  asked_for.clear();
  EXPECT_EQ(dir_make_path("/tmp/m/n", 01750), 0);
  for (const mode_t mode : asked_for.modes) EXPECT_EQ(mode, 01750U);
}

TEST_F(DirectoryPath, FailsBelowADirectoryThatMayNotBeWritten) {
  EXPECT_EQ(dir_make_path("/tmp/a/b/c", 0555), -1);
  expect_failure("/tmp/a/b/c");
  EXPECT_TRUE(fs::is_directory("/tmp/a"));
  EXPECT_FALSE(fs::exists("/tmp/a/b"));
}

TEST_F(DirectoryPath, FailsWithAFileOnTheWay) {
  write_file("/tmp/file", "x");
  expect_refused("/tmp/file/a");
  expect_refused("/tmp/file/a/b/");
}

TEST_F(DirectoryPath, CallsAFileInThePlaceOfTheLastDirectoryMade) {
  write_file("/tmp/file", "x");
  EXPECT_EQ(dir_make_path("/tmp/file", 0755), 0);
  EXPECT_EQ(dir_make_path("/tmp/file/", 0755), 0);
  EXPECT_TRUE(fs::is_regular_file("/tmp/file"));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(DirectoryPath, StopsAtTheFirstFailure) {
  for (int at = 1; at <= 3; ++at) {
    asked_for.clear();
    const Fault fault({.call = "mkdir", .code = ENOSPC, .at = at});
    EXPECT_EQ(dir_make_path("p/q/r/", 0755), -1);
    EXPECT_EQ(fault.seen(), at);
    expect_failure("p/q/r/");
  }
  EXPECT_TRUE(fs::is_directory("p/q"));
  EXPECT_FALSE(fs::exists("p/q/r"));
}

TEST_F(DirectoryPath, RefusesANullPath) {
  EXPECT_EQ(dir_make_path(nullptr, 0755), -1);
  expect_lines(log, kFunction, {{LOG_LVL_ERR, "dir_make_path param NULL\n"}});
  EXPECT_TRUE(asked_for.empty());
}

// A path of so many bytes, in names that the file system takes.
std::string path_of(std::size_t length) {
  std::string path = "/tmp";
  while (path.size() < length) path += path.size() % 100 == 0 || path.size() == 4 ? '/' : 'n';
  return path;
}

TEST_F(DirectoryPath, TakesPathsOf511Bytes) {
  for (const std::size_t length : {510U, 511U}) {
    EXPECT_EQ(dir_make_path(path_of(length).c_str(), 0755), 0);
    EXPECT_TRUE(fs::is_directory(path_of(length)));
  }
  EXPECT_EQ(dir_make_path((path_of(510) + "/").c_str(), 0755), 0);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  for (const std::size_t length : {512U, 513U, 5000U}) expect_overflow(path_of(length));
  expect_overflow(path_of(511) + "/");
}

TEST_F(DirectoryPath, CutsNoCharacterInTwo) {
  expect_made("caf\xC3\xA9/x", {"caf\xC3\xA9", "caf\xC3\xA9/x"});
  EXPECT_EQ(dir_make_path((path_of(509) + "\xC3\xA9").c_str(), 0755), 0);
  expect_overflow(path_of(510) + "\xC3\xA9");
  expect_overflow("/tmp/half\xC3");
}

TEST_F(DirectoryPath, RefusesWhatIsNotUtf8) {
  asked_for.clear();
  expect_refused("/tmp/a/caf\xE9\x20/b/\xFF");
  expect_refused("\x80");
  EXPECT_FALSE(fs::exists("/tmp/a"));
}

}  // namespace
