// SPDX-License-Identifier: MIT
// A directory that is made where it is missing.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
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

constexpr char kFunction[] = "oem_create_and_check_directory";

class CheckedDirectory : public testing::Test {
 protected:
  void SetUp() override {
    umask(0);
    fs::current_path("/tmp");
    asked_for.clear();
  }

  // Passes a copy of exactly that size, so that a read beyond it is seen.
  void check(const std::string& path, int level, const std::string& outcome,
             const std::vector<std::string>& directories) {
    asked_for.clear();
    const std::vector<char> text(path.c_str(), path.c_str() + path.size() + 1);
    oem_create_and_check_directory(text.data());
    expect_lines(log, kFunction, {{level, "Directory " + path + " " + outcome + ".\n"}});
    EXPECT_EQ(asked_for.names, directories) << path;
    EXPECT_EQ(path, std::string(text.data()));
  }

  void expect_made(const std::string& path, const std::vector<std::string>& directories) {
    EXPECT_FALSE(fs::exists(path)) << path;
    check(path, LOG_LVL_DBUG, "created", directories);
    EXPECT_TRUE(fs::is_directory(path)) << path;
  }

  void expect_there(const std::string& path) { check(path, LOG_LVL_DBUG, "already exists", {}); }

  void expect_failure(const std::string& path, const std::vector<std::string>& directories) {
    check(path, LOG_LVL_ERR, "creation error", directories);
  }

  LogCapture log;
};

TEST_F(CheckedDirectory, IsMadeWithThoseOnTheWay) {
  ASSERT_TRUE(fs::create_directory("/tmp/a"));
  expect_made("a/b/c/", {"a", "a/b", "a/b/c"});
  expect_made("/tmp/d/e", {"/tmp", "/tmp/d", "/tmp/d/e"});
  expect_made("f", {"f"});
  expect_made("g/", {"g"});
  expect_made("./h", {".", "./h"});
}

TEST_F(CheckedDirectory, IsLeftAloneWhereItIs) {
  ASSERT_TRUE(fs::create_directories("/tmp/a/b"));
  for (const char* const path : {"/tmp/a/b", "/tmp/a/b/", "a/b//", "a", "/", "//", ".", ".."})
    expect_there(path);
}

TEST_F(CheckedDirectory, MayBeAFileOfAnyKind) {
  write_file("/tmp/file", "x");
  ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
  fs::create_symlink("/tmp/file", "/tmp/link");
  for (const char* const path : {"/tmp/file", "/tmp/pipe", "/tmp/link", "/dev/null"}) expect_there(path);
  EXPECT_TRUE(fs::is_regular_file("/tmp/file"));
}

TEST_F(CheckedDirectory, IsNotALinkToNothing) {
  fs::create_symlink("/tmp/none", "/tmp/link");
  expect_failure("/tmp/link", {"/tmp", "/tmp/link"});
  EXPECT_FALSE(fs::exists("/tmp/none"));
}

TEST_F(CheckedDirectory, TakesSlashesAsTheyCome) {
  expect_made("//tmp/a", {"/", "//tmp", "//tmp/a"});
  expect_made("b//c", {"b", "b/", "b//c"});
}

TEST_F(CheckedDirectory, IsAnErrorAfterTwoSlashesAtTheEnd) {
  expect_failure("a//", {"a", "a/"});
  EXPECT_TRUE(fs::is_directory("a"));
  expect_there("a//");
}

TEST_F(CheckedDirectory, HasEveryPermissionButThoseOfTheMask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    umask(mask);
    expect_made("m/n", {"m", "m/n"});
    for (const char* const path : {"m", "m/n"}) {
      struct stat status {};
      ASSERT_EQ(stat(path, &status), 0);
      EXPECT_EQ(status.st_mode & 07777U, 0777U & ~mask) << path;
    }
    fs::remove_all("m");
  }
  for (const mode_t mode : asked_for.modes) EXPECT_EQ(mode, 0777U);
}

TEST_F(CheckedDirectory, IsAnErrorWithAFileOnTheWay) {
  write_file("/tmp/file", "x");
  expect_failure("/tmp/file/a", {"/tmp", "/tmp/file", "/tmp/file/a"});
  expect_failure("/tmp/file/", {"/tmp", "/tmp/file"});
  EXPECT_TRUE(fs::is_regular_file("/tmp/file"));
}

TEST_F(CheckedDirectory, IsAnErrorBelowADirectoryThatMayNotBeWritten) {
  ASSERT_TRUE(fs::create_directory("a"));
  ASSERT_EQ(chmod("a", 0555), 0);
  expect_failure("a/b/c", {"a", "a/b", "a/b/c"});
  EXPECT_FALSE(fs::exists("a/b"));
}

TEST_F(CheckedDirectory, IsMadeWhateverBecomesOfTheWay) {
  ASSERT_TRUE(fs::create_directories("a/b"));
  const Fault fault({.call = "mkdir", .code = EACCES, .times = 2});
  expect_made("a/b/c", {"a", "a/b", "a/b/c"});
  EXPECT_EQ(fault.seen(), 3);
}

TEST_F(CheckedDirectory, IsAnErrorWhenItsOwnStepFails) {
  const Fault fault({.call = "mkdir", .code = ENOSPC, .at = 3});
  expect_failure("a/b/c", {"a", "a/b", "a/b/c"});
  EXPECT_TRUE(fs::is_directory("a/b")) << "stays";
  EXPECT_FALSE(fs::exists("a/b/c"));
}

TEST_F(CheckedDirectory, IsAnErrorWhenSomebodyElseMakesIt) {
  const Fault fault({"mkdir", EEXIST});
  expect_failure("a", {"a"});
}

TEST_F(CheckedDirectory, RefusesPathsWithoutAName) {
  expect_failure("", {});
  oem_create_and_check_directory(nullptr);
  expect_lines(log, kFunction, {{LOG_LVL_ERR, "oem_create_and_check_directory param NULL\n"}});
  EXPECT_TRUE(asked_for.empty());
}

// A path of so many bytes below /tmp, of two names that the file system takes.
std::string path_of(std::size_t length) {
  const std::string front = "/tmp/" + std::string(100, 'n') + "/";
  return front + std::string(length - front.size(), 'n');
}

TEST_F(CheckedDirectory, TakesAPathOf255Bytes) {
  const std::string front = path_of(107).substr(0, 105);
  for (const std::string& path : {path_of(254), path_of(255), path_of(254) + "x", path_of(253) + "/"}) {
    fs::remove_all(front);
    const std::string last = path.back() == '/' ? path.substr(0, path.size() - 1) : path;
    expect_made(path, {"/tmp", front, last});
  }
  fs::remove_all(front);
  expect_made(path_of(253) + "x/", {"/tmp", front, path_of(253) + "x"});
}

TEST_F(CheckedDirectory, MakesNothingOfALongerPath) {
  for (const std::string& path : {path_of(256), path_of(257), path_of(255) + "/", path_of(250) + "/a/b/c"})
    expect_failure(path, {});
  EXPECT_TRUE(fs::is_empty("/tmp"));
}

TEST_F(CheckedDirectory, FindsALongerPath) {
  for (const std::size_t length : {256U, 257U}) {
    ASSERT_TRUE(fs::create_directories(path_of(length)));
    expect_there(path_of(length));
  }
}

}  // namespace
