// SPDX-License-Identifier: MIT
// The project's name on the kernel's command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/project_lookup.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::ExactBuffer;
using kelo::tests::failed;
using kelo::tests::Fault;
using kelo::tests::found;
using kelo::tests::kBootFile;
using kelo::tests::kCommandLine;
using kelo::tests::kLookup;
using kelo::tests::kOemLookup;
using kelo::tests::LogCapture;
using kelo::tests::Lookup;
using kelo::tests::no_key;
using kelo::tests::no_value;
using kelo::tests::Redirection;
using kelo::tests::taken;
using kelo::tests::terminated;
using kelo::tests::untouched;
using kelo::tests::write_file;
using testing::ElementsAre;
using testing::IsEmpty;
using ProjectName = kelo::tests::ProjectLookup;

TEST_F(ProjectName, IsFoundBetweenOtherWords) {
  const Result result = look_up_in("quiet kelo.project=ABC panic=1\n");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, terminated("ABC", 16));
  EXPECT_THAT(result.log, ElementsAre(found("ABC")));
}

TEST_F(ProjectName, HasAKeyInEachLookup) {
  const std::string both = "oem.project=VENDOR kelo.project=ABC";
  EXPECT_EQ(look_up_in(both, 16, kLookup).buffer, terminated("ABC", 16));
  const Result vendor = look_up_in(both, 16, kOemLookup);
  EXPECT_EQ(vendor.code, 0);
  EXPECT_EQ(vendor.buffer, terminated("VENDOR", 16));
  EXPECT_THAT(vendor.log, ElementsAre(found("VENDOR")));
}

TEST_F(ProjectName, IsNotThatOfTheOtherKey) {
  const Result standard = look_up_in("oem.project=VENDOR\n", 16, kLookup);
  EXPECT_EQ(standard.code, -1);
  EXPECT_EQ(standard.buffer, untouched(16));
  EXPECT_THAT(standard.log, ElementsAre(no_key("oem.project=VENDOR"), failed()));
  const Result vendor = look_up_in("kelo.project=ABC\n", 16, kOemLookup);
  EXPECT_EQ(vendor.code, -1);
  EXPECT_EQ(vendor.buffer, untouched(16));
  EXPECT_THAT(vendor.log, ElementsAre(no_key("kelo.project=ABC"), failed()));
}

TEST_F(ProjectName, IsFoundAfterAnySeparators) {
  for (const char* const separators : {"=", " ", "\t", "", " = ", "==", "= ", "=\t", "\t = =  \t"}) {
    const Result result = look_up_in("kelo.project"s + separators + "ABC");
    EXPECT_EQ(result.code, 0) << separators;
    EXPECT_EQ(result.buffer, terminated("ABC", 16)) << separators;
  }
}

TEST_F(ProjectName, GoesOnToASpaceATabOrTheEnd) {
  EXPECT_EQ(look_up_in("kelo.project=ABC DEF").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\tDEF").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project=A=B,\"C\" D").buffer, terminated("A=B,\"C\"", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\nDEF G").buffer, terminated("ABC\nDEF", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\0DEF"s).buffer, terminated("ABC", 16));
}

TEST_F(ProjectName, LosesOneLineFeedOfTheCommandLine) {
  EXPECT_EQ(look_up_in("kelo.project=ABC\n").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\n\n").buffer, terminated("ABC\n", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\n ").buffer, terminated("ABC\n", 16));
  EXPECT_EQ(look_up_in("kelo.project=ABC\n\0x"s).buffer, terminated("ABC", 16));
}

TEST_F(ProjectName, BelongsToTheFirstKeyInAnyWord) {
  EXPECT_EQ(look_up_in("xkelo.projects=ABC kelo.project=DEF").buffer, terminated("s=ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project= kelo.project=DEF").buffer, "kelo.project=DEF");
  EXPECT_EQ(look_up_in("kelo.projec kelo.project=DEF").buffer, terminated("DEF", 16));
}

TEST_F(ProjectName, IsLookedForInTheBootFileWithoutTheKey) {
  write_file(kBootFile, "project=XYZ");
  for (const auto& [line, text] : {std::pair{"\n"s, ""s},
                                   {"quiet\n", "quiet"},
                                   {"Kelo.Project=ABC", "Kelo.Project=ABC"},
                                   {"quiet\0kelo.project=ABC"s, "quiet"},
                                   {"\0kelo.project=ABC"s, ""}}) {
    const Result result = look_up_in(line);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.buffer, terminated("XYZ", 16));
    EXPECT_THAT(result.log, ElementsAre(no_key(text), failed(), taken("project=XYZ")));
  }
}

TEST_F(ProjectName, IsLookedForInTheBootFileWithoutAValue) {
  write_file(kBootFile, "project=XYZ");
  for (const char* const line : {"kelo.project=", "kelo.project", "a kelo.project= \t=", "kelo.project= "}) {
    for (const char* const end : {"", "\n"}) {
      const Result result = look_up_in(line + std::string(end));
      EXPECT_EQ(result.code, 0);
      EXPECT_EQ(result.buffer, terminated("XYZ", 16));
      EXPECT_THAT(result.log, ElementsAre(no_value(line), failed(), taken("project=XYZ")));
    }
  }
}

TEST_F(ProjectName, FillsTheBufferWithoutATerminator) {
  for (std::size_t size = 1; size <= 3; ++size) {
    const std::string expected = std::string("ABC").substr(0, size);
    const Result result = look_up_in("kelo.project=ABC DEF", size);
    EXPECT_EQ(result.code, 0) << size;
    EXPECT_EQ(result.buffer, expected) << size;
    EXPECT_THAT(result.log, ElementsAre(found(expected))) << size;
  }
  EXPECT_EQ(look_up_in("kelo.project=ABC DEF", 4).buffer, "ABC\0"s);
  EXPECT_EQ(look_up_in("kelo.project=ABC DEF", 5).buffer, terminated("ABC", 5));
}

TEST_F(ProjectName, LeavesTheRestOfALargeBuffer) {
  write_file(kCommandLine, "kelo.project=ABC");
  const ExactBuffer buffer(4);
  EXPECT_EQ(kelo_get_project_name_cmdline(buffer.data(), INT32_MAX), 0);
  EXPECT_EQ(buffer.bytes(), "ABC\0"s);
}

TEST_F(ProjectName, IsNotWrittenWithoutRoom) {
  write_file(kCommandLine, "kelo.project=ABC\n");
  for (const Lookup lookup : {kLookup, kOemLookup}) {
    for (const std::int32_t max_len : {0, -1, -16, INT32_MIN}) {
      const ExactBuffer buffer(16);
      std::filesystem::remove(kBootFile);
      log.clear();
      EXPECT_EQ(lookup(buffer.data(), max_len), -1);
      EXPECT_EQ(told().back(), failed());
      write_file(kBootFile, "project=XYZ");
      EXPECT_EQ(lookup(buffer.data(), max_len), 0);
      EXPECT_EQ(told().back(), taken("project=XYZ"));
      EXPECT_TRUE(buffer.untouched());
    }
  }
}

TEST_F(ProjectName, IsLookedForIn2047Bytes) {
  const std::string key = "kelo.project=";
  const std::string before = std::string(2047 - key.size() - 3, 'x');
  EXPECT_EQ(look_up_in(before + key + "ABC").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in(before + key + "ABC\n").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in(before + key + "ABCD").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in(before + key + "AB\nD").buffer, terminated("AB", 16));
  const Result no_room = look_up_in("xxx" + before + key + "A");
  EXPECT_EQ(no_room.code, -1);
  EXPECT_THAT(no_room.log, ElementsAre(no_value("xxx" + before + key), failed()));
  const Result cut_key = look_up_in("xxxxx" + before + key + "A");
  EXPECT_THAT(cut_key.log, ElementsAre(no_key("xxxxx" + before + "kelo.projec"), failed()));
}

TEST_F(ProjectName, IsLookedForInTheBootFileWithoutACommandLine) {
  const Result neither = look_up();
  EXPECT_EQ(neither.code, -1);
  EXPECT_EQ(neither.buffer, untouched(16));
  EXPECT_THAT(neither.log, ElementsAre(no_key(""), failed()));
  write_file(kBootFile, "project=XYZ");
  const Result result = look_up();
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, terminated("XYZ", 16));
}

TEST_F(ProjectName, IsLookedForInTheBootFileWhenTheCommandLineCannotBeRead) {
  write_file(kCommandLine, "kelo.project=ABC");
  write_file(kBootFile, "project=XYZ");
  const Fault fault({"read", EIO});
  const Result result = look_up();
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, terminated("XYZ", 16));
  EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), taken("project=XYZ")));
}

TEST_F(ProjectName, IsReadAnewByEachCall) {
  EXPECT_EQ(look_up_in("kelo.project=ABC").buffer, terminated("ABC", 16));
  EXPECT_EQ(look_up_in("kelo.project=DEF").buffer, terminated("DEF", 16));
  EXPECT_EQ(look_up_in("").code, -1);
}

TEST_F(ProjectName, GoesOnAfterSignals) {
  kelo_set_log_level(LOG_LVL_CRT);  // logging opens and reads as well
  write_file(kCommandLine, "quiet");
  write_file(kBootFile, "project=XYZ");
  for (const char* const call : {"open", "read"}) {
    for (const int at : {1, 2}) {
      const Fault fault({.call = call, .code = EINTR, .at = at, .times = 3});
      EXPECT_EQ(look_up().buffer, terminated("XYZ", 16)) << call;
      EXPECT_EQ(fault.seen(), 5) << call;
    }
  }
}

TEST_F(ProjectName, NeedsABuffer) {
  write_file(kCommandLine, "kelo.project=ABC oem.project=ABC");
  write_file(kBootFile, "project=XYZ");
  const Fault opens({.call = "open", .at = kelo::tests::kNever});
  for (const Lookup lookup : {kLookup, kOemLookup}) {
    for (const std::int32_t max_len : {16, 0, -1}) EXPECT_EQ(lookup(nullptr, max_len), -1);
  }
  EXPECT_EQ(opens.seen(), 0);
  EXPECT_THAT(told(), IsEmpty());
}

TEST(ProjectNameOfThisKernel, IsLookedForInItsCommandLine) {
  std::ifstream file("/proc/cmdline");
  std::string line;
  ASSERT_TRUE(std::getline(file, line));
  ASSERT_EQ(line.find(".project"), std::string::npos);
  std::filesystem::remove(kBootFile);
  const LogCapture log;
  const ExactBuffer buffer(16);
  EXPECT_EQ(kelo_get_project_name_cmdline(buffer.data(), 16), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "Could not find oem.project in " + line.substr(0, 2047) + "\n"), 1)
      << log.dump();
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(ProjectName, ServesSeveralThreadsAtOnce) {
  write_file(kCommandLine, "kelo.project=ABC oem.project=VENDOR");
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([id] {
      const Redirection redirection("/proc/cmdline", kCommandLine);
      for (int i = 0; i < 100; ++i) {
        const ExactBuffer buffer(16);
        EXPECT_EQ((id % 2 == 0 ? kLookup : kOemLookup)(buffer.data(), 16), 0);
        EXPECT_EQ(buffer.bytes(), terminated(id % 2 == 0 ? "ABC" : "VENDOR", 16));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
