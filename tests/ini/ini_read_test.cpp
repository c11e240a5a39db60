// SPDX-License-Identifier: MIT
// Values by name, as text: buffers, defaults, and files that cannot be read.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::Fault;
using kelo::tests::kAbsent;
using kelo::tests::kSettings;
using kelo::tests::open_descriptors;
using kelo::tests::value_of;
using kelo::tests::write_file;

class IniRead : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove(kSettings);
    write_file(kSettings, "[s]\nk=value\nempty=\n");
  }
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

TEST_F(IniRead, CutsAValueToItsBuffer) {
  const std::string value = "value";
  for (std::size_t size = 1; size <= 8; ++size) {
    const ExactBuffer buffer(size);
    const std::string part = value.substr(0, size - 1);
    EXPECT_EQ(ini_gets("s", "k", "default", buffer.data(), static_cast<int>(size), kSettings),
              static_cast<int>(part.size()));
    EXPECT_EQ(buffer.bytes().substr(0, part.size() + 1), part + '\0') << size;
    EXPECT_EQ(buffer.bytes().substr(part.size() + 1),
              std::string(size - part.size() - 1, ExactBuffer::kUntouched));
  }
}

TEST_F(IniRead, CutsADefaultToItsBuffer) {
  for (std::size_t size = 1; size <= 10; ++size) {
    const ExactBuffer buffer(size);
    const std::string part = std::string("default").substr(0, size - 1);
    EXPECT_EQ(ini_gets("s", "none", "default", buffer.data(), static_cast<int>(size), kSettings),
              static_cast<int>(part.size()));
    EXPECT_STREQ(buffer.data(), part.c_str());
  }
}

TEST_F(IniRead, CutsAQuotedValueAfterItsQuotes) {
  write_file(kSettings, R"(k="\"abc")");
  const ExactBuffer buffer(3);
  EXPECT_EQ(ini_gets(nullptr, "k", nullptr, buffer.data(), 3, kSettings), 2);
  EXPECT_STREQ(buffer.data(), "\"a");
}

TEST_F(IniRead, AnswersWithTheDefaultForWhatIsNotThere) {
  for (const auto& [section, key] : std::vector<std::pair<const char*, const char*>>{
           {"s", "none"}, {"none", "k"}, {nullptr, "k"}, {"", "k"}, {"s", ""}}) {
    const ExactBuffer buffer(16);
    EXPECT_EQ(ini_gets(section, key, "default", buffer.data(), 16, kSettings), 7);
    EXPECT_STREQ(buffer.data(), "default");
    EXPECT_EQ(ini_gets(section, key, nullptr, buffer.data(), 16, kSettings), 0);
    EXPECT_STREQ(buffer.data(), "") << "no default is the empty text";
  }
}

TEST_F(IniRead, TakesAnEmptyValueForAValue) { EXPECT_EQ(value_of("s", "empty"), ""); }

TEST_F(IniRead, DoesNothingWithoutAKeyOrABuffer) {
  const ExactBuffer buffer(8);
  EXPECT_EQ(ini_gets("s", nullptr, "default", buffer.data(), 8, kSettings), 0);
  EXPECT_EQ(ini_gets("s", "k", "default", nullptr, 8, kSettings), 0);
  for (const int size : {0, -1, INT_MIN})
    EXPECT_EQ(ini_gets("s", "k", "default", buffer.data(), size, kSettings), 0);
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(IniRead, AnswersWithTheDefaultForAFileThatCannotBeOpened) {
  EXPECT_EQ(value_of("s", "k", "/tmp/none.ini"), kAbsent);
  EXPECT_EQ(value_of("s", "k", ""), kAbsent);
  EXPECT_EQ(value_of("s", "k", "/tmp/settings.ini/k"), kAbsent);
  EXPECT_EQ(value_of("s", "k", "/tmp/" + std::string(NAME_MAX + 1, 'n')), kAbsent);
  const ExactBuffer buffer(16);
  EXPECT_EQ(ini_gets("s", "k", "default", buffer.data(), 16, nullptr), 7);
  EXPECT_STREQ(buffer.data(), "default");
  ASSERT_EQ(chmod(kSettings, 0200), 0);
  EXPECT_EQ(value_of("s", "k"), kAbsent);
}

TEST_F(IniRead, AnswersWithTheDefaultForAFileThatCannotBeRead) {
  EXPECT_EQ(value_of(nullptr, "k", "/tmp"), kAbsent) << "a directory can be opened";
  const Fault fault({"read", EIO});
  EXPECT_EQ(value_of("s", "k"), kAbsent);
}

TEST_F(IniRead, FindsNothingInAnEmptyFile) {
  write_file(kSettings, "");
  EXPECT_EQ(value_of("s", "k"), kAbsent);
  EXPECT_EQ(value_of(nullptr, "k"), kAbsent);
}

TEST_F(IniRead, GoesOnAfterASignal) {
  {
    const Fault fault({.call = "open", .code = EINTR, .times = 2});
    EXPECT_EQ(value_of("s", "k"), "value");
    EXPECT_EQ(fault.seen(), 3);
  }
  const Fault fault({.call = "read", .code = EINTR, .times = 2});
  EXPECT_EQ(value_of("s", "k"), "value");
}

TEST_F(IniRead, NeedsNoHeap) {
  std::array<char, 16> buffer{};
  int length = 0;
  {
    const kelo::tests::FailingHeap heap(0);
    length = ini_gets("s", "k", nullptr, buffer.data(), static_cast<int>(buffer.size()), kSettings);
  }
  EXPECT_EQ(length, 5);
  EXPECT_STREQ(buffer.data(), "value");
}

TEST_F(IniRead, ReadsWhatAPipeGives) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "k=1\n", 4), 4);
  close(ends[1]);
  EXPECT_EQ(value_of(nullptr, "k", "/dev/fd/" + std::to_string(ends[0])), "1");
  close(ends[0]);
}

TEST_F(IniRead, LeavesTheFileAsItIs) {
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(stat(kSettings, &before), 0);
  EXPECT_EQ(value_of("s", "k"), "value");
  ASSERT_EQ(stat(kSettings, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(kelo::tests::read_file(kSettings), "[s]\nk=value\nempty=\n");
}

}  // namespace
