// SPDX-License-Identifier: MIT
// The sync of the directory that holds a file.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/file.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"

namespace {

namespace fs = std::filesystem;
using kelo::base::sync_directory_of;
using kelo::tests::open_descriptors;

std::vector<ino_t> synced;          // the inodes, in their order
std::vector<int> failures_to_come;  // of fsync(), from the last to the first

ino_t inode_of(const char* path) {
  struct stat status {};
  EXPECT_EQ(stat(path, &status), 0) << path;
  return status.st_ino;
}

class DirectorySync : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all("/tmp/outer");
    fs::create_directories("/tmp/outer/inner");
    synced.clear();
    failures_to_come.clear();
  }
  void TearDown() override { EXPECT_EQ(open_descriptors(), before_); }

 private:
  const std::set<std::string> before_ = open_descriptors();
};

}  // namespace

extern "C" int fsync(int fd) {
  static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
  struct stat status {};
  EXPECT_EQ(fstat(fd, &status), 0);
  synced.push_back(status.st_ino);
  if (failures_to_come.empty()) return real(fd);
  errno = failures_to_come.back();
  failures_to_come.pop_back();
  return -1;
}

namespace {

TEST_F(DirectorySync, SyncsWhatIsInFrontOfTheLastSlash) {
  EXPECT_TRUE(sync_directory_of("/tmp/outer/inner/file"));
  EXPECT_TRUE(sync_directory_of("/tmp/outer/file"));
  EXPECT_TRUE(sync_directory_of("/tmp/outer/inner/"));
  const ino_t outer = inode_of("/tmp/outer");
  const ino_t inner = inode_of("/tmp/outer/inner");
  EXPECT_EQ(synced, (std::vector<ino_t>{inner, outer, inner}));
}

TEST_F(DirectorySync, SyncsTheRoot) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << "the emulator shows a root of its own";
  EXPECT_TRUE(sync_directory_of("/file"));
  EXPECT_EQ(synced, std::vector<ino_t>{inode_of("/")});
}

TEST_F(DirectorySync, SyncsTheWorkingDirectoryForANameAlone) {
  ASSERT_EQ(chdir("/tmp/outer"), 0);
  EXPECT_TRUE(sync_directory_of("file"));
  EXPECT_TRUE(sync_directory_of(""));
  const ino_t outer = inode_of("/tmp/outer");
  EXPECT_EQ(synced, (std::vector<ino_t>{outer, outer}));
}

TEST_F(DirectorySync, FailsWithoutTheDirectory) {
  errno = 0;
  EXPECT_FALSE(sync_directory_of("/tmp/outer/missing/file"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(synced.empty());
}

// The kernel takes no path of PATH_MAX bytes; a shorter one must not be opened in its place.
TEST_F(DirectorySync, TakesNoPartOfAPathThatIsTooLong) {
  std::string path = "/tmp/outer/";
  path.resize(PATH_MAX - 1, '/');
  EXPECT_TRUE(sync_directory_of(path.c_str()));
  EXPECT_EQ(synced.size(), 1U);
  path += '/';
  errno = 0;
  EXPECT_FALSE(sync_directory_of(path.c_str()));
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(synced.size(), 1U);
}

TEST_F(DirectorySync, FailsWhenTheStorageDoes) {
  failures_to_come = {EIO};
  EXPECT_FALSE(sync_directory_of("/tmp/outer/file"));
  EXPECT_EQ(errno, EIO);
}

TEST_F(DirectorySync, AsksAgainAfterASignal) {
  failures_to_come = {EINTR};
  EXPECT_TRUE(sync_directory_of("/tmp/outer/file"));
  EXPECT_EQ(synced.size(), 2U);
}

TEST_F(DirectorySync, SucceedsWhereDirectoriesCannotBeSynced) {
  for (const int reason : {EINVAL, ENOTSUP}) {
    failures_to_come = {reason};
    EXPECT_TRUE(sync_directory_of("/tmp/outer/file"));
  }
}

}  // namespace
