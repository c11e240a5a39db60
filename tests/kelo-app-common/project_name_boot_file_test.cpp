// SPDX-License-Identifier: MIT
// The project's name in the file written at boot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>

#include "kelo_utils/log.h"
#include "tests/support/every_text.hpp"
#include "tests/support/project_lookup.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::every_text;
using kelo::tests::failed;
using kelo::tests::Fault;
using kelo::tests::kBootFile;
using kelo::tests::kCommandLine;
using kelo::tests::kOemLookup;
using kelo::tests::no_key;
using kelo::tests::no_marker;
using kelo::tests::taken;
using kelo::tests::terminated;
using kelo::tests::untouched;
using kelo::tests::write_file;
using testing::ElementsAre;

constexpr std::size_t kChunkSize = 2048;

class BootFileName : public kelo::tests::ProjectLookup {
 protected:
  Result look_up_in_boot_file(const std::string& contents, std::size_t size = 16) {
    write_file(kBootFile, contents);
    return look_up(size);
  }
};

TEST_F(BootFileName, IsTheWordAfterTheEqualsSign) {
  for (const auto& [contents, name] : {std::pair{"project=XYZ"s, "XYZ"s},
                                       {"project=XYZ\n", "XYZ"},
                                       {"project=XYZ 1\n", "XYZ"},
                                       {"project=XYZ\tB", "XYZ"},
                                       {"project=XYZ\vB", "XYZ"},
                                       {"project=XYZ\fB", "XYZ"},
                                       {"project=XYZ\r\n", "XYZ"},
                                       {"project=X=Z\n", "X=Z"},
                                       {"project = \t\n\v\f\rXYZ\n", "XYZ"},
                                       {"project\n=\nXYZ\n", "XYZ"},
                                       {"model=A\nproject=XYZ\n", "A"},
                                       {"XYZ=project\n", "project"},
                                       {" =XYZ project\n", "XYZ"},
                                       {"the projector=X\xC3\x9CZ\n", "X\xC3\x9CZ"}}) {
    const Result result = look_up_in_boot_file(contents);
    EXPECT_EQ(result.code, 0) << contents;
    EXPECT_EQ(result.buffer, terminated(name, 16)) << contents;
    EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), taken(contents)));
  }
}

TEST_F(BootFileName, IsLeftAsItWasWithoutAWord) {
  for (const std::string& contents :
       {"project"s, "project XYZ\n"s, "project="s, "project= \t\r\n"s, "=project=XYZ\n"s, "=\nproject\n"s}) {
    const Result result = look_up_in_boot_file(contents);
    EXPECT_EQ(result.code, 0) << contents;
    EXPECT_EQ(result.buffer, untouched(16)) << contents;
    EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), taken(contents)));
  }
}

// The boot scripts' format, as the C library scans it.
TEST_F(BootFileName, IsScannedAsTheCLibraryDoes) {
  static constexpr char kFormat[] = "%*[^=]=%s[^\n]";
  for (const std::string& text : every_text("=a \n", 5)) {
    for (const auto& [front, end] : {std::pair{text, ""s}, {""s, text}, {text, text}}) {
      const std::string contents = std::string(front).append("project").append(end);
      std::string expected = untouched(32);
      std::sscanf(contents.c_str(), kFormat, expected.data());
      const Result result = look_up_in_boot_file(contents, 32);
      EXPECT_EQ(result.code, 0) << contents;
      EXPECT_EQ(result.buffer, expected) << contents;
    }
  }
}

TEST_F(BootFileName, IsCutAtTheBuffer) {
  for (std::size_t size = 1; size <= 3; ++size) {
    EXPECT_EQ(look_up_in_boot_file("project=XYZ\n", size).code, 0);
    EXPECT_EQ(look_up_in_boot_file("project=XYZ\n", size).buffer, std::string("XYZ").substr(0, size));
  }
  EXPECT_EQ(look_up_in_boot_file("project=XYZ\n", 4).buffer, "XYZ\0"s);
  EXPECT_EQ(look_up_in_boot_file("project=XYZ\n", 5).buffer, terminated("XYZ", 5));
}

TEST_F(BootFileName, MayFillAChunk) {
  const std::string name(kChunkSize - 8, 'n');
  EXPECT_EQ(look_up_in_boot_file("project=" + name, 4096).buffer, terminated(name, 4096));
  const Result longer = look_up_in_boot_file("project=" + name + "more", 4096);
  EXPECT_EQ(longer.code, 0);
  EXPECT_EQ(longer.buffer, terminated(name, 4096)) << "the chunk after it is not part of the name";
  EXPECT_THAT(longer.log, ElementsAre(no_key(""), failed(), taken("project=" + name)));
}

TEST_F(BootFileName, NeedsTheMarker) {
  for (const std::string& contents : {"name=XYZ\n"s, "Project=XYZ\n"s, "projec=t\n"s, "a\0project=XYZ\n"s}) {
    const Result result = look_up_in_boot_file(contents);
    EXPECT_EQ(result.code, -1) << contents;
    EXPECT_EQ(result.buffer, untouched(16)) << contents;
    EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), no_marker())) << contents;
  }
}

TEST_F(BootFileName, EndsAtANul) {
  EXPECT_EQ(look_up_in_boot_file("project=X\0YZ"s).buffer, terminated("X", 16));
  const Result result = look_up_in_boot_file("project\0=XYZ"s);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, untouched(16));
  EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), taken("project")));
}

TEST_F(BootFileName, IsLookedForInEachChunk) {
  const std::string first(kChunkSize, 'x');
  const Result second_chunk = look_up_in_boot_file(first + "project=XYZ ");
  EXPECT_EQ(second_chunk.code, 0);
  EXPECT_EQ(second_chunk.buffer, terminated("XYZ", 16));
  EXPECT_THAT(second_chunk.log,
              ElementsAre(no_key(""), failed(), no_marker(), taken("project=XYZ " + first.substr(12))));
  const Result third_chunk = look_up_in_boot_file(first + first + "project=XYZ ");
  EXPECT_EQ(third_chunk.buffer, terminated("XYZ", 16));
  EXPECT_EQ(std::count(third_chunk.log.begin(), third_chunk.log.end(), no_marker()), 2);
  const Result none = look_up_in_boot_file(first + first);
  EXPECT_EQ(none.code, -1);
  EXPECT_THAT(none.log, ElementsAre(no_key(""), failed(), no_marker(), no_marker()));
}

TEST_F(BootFileName, IsTakenFromTheFirstChunkWithTheMarker) {
  const std::string first = "project=ABC\n" + std::string(kChunkSize - 12, 'x');
  EXPECT_EQ(look_up_in_boot_file(first + "project=XYZ\n").buffer, terminated("ABC", 16));
}

TEST_F(BootFileName, IsNotFoundOnTheBorderOfTwoChunks) {
  const Result result = look_up_in_boot_file(std::string(kChunkSize - 3, 'x') + "project=XYZ\n");
  EXPECT_EQ(result.code, -1);
  EXPECT_EQ(result.buffer, untouched(16));
  EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), no_marker(), no_marker()));
}

TEST_F(BootFileName, IsAlsoMadeOfWhatAShortChunkLeavesOfTheOneBefore) {
  const std::string first = "...ject=XYZ\n" + std::string(kChunkSize - 12, 'x');
  const Result result = look_up_in_boot_file(first + "pro");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, terminated("XYZ", 16));
  EXPECT_THAT(result.log,
              ElementsAre(no_key(""), failed(), no_marker(), taken("project=XYZ\n" + first.substr(12))));
  EXPECT_EQ(look_up_in_boot_file(first + "pro\0"s).code, -1) << "a NUL hides what follows it";
}

TEST_F(BootFileName, NeedsAFileThatHoldsSomething) {
  const Result empty = look_up_in_boot_file("");
  EXPECT_EQ(empty.code, -1);
  EXPECT_THAT(empty.log, ElementsAre(no_key(""), failed()));
  std::filesystem::remove(kBootFile);
  std::filesystem::create_directory(kBootFile);
  const Result folder = look_up();
  EXPECT_EQ(folder.code, -1);
  EXPECT_THAT(folder.log, ElementsAre(no_key(""), failed()));
}

TEST_F(BootFileName, NeedsAFileThatCanBeRead) {
  write_file(kBootFile, "project=XYZ");
  ASSERT_EQ(chmod(kBootFile, 0), 0);
  const Result closed = look_up();
  EXPECT_EQ(closed.code, -1);
  EXPECT_THAT(closed.log, ElementsAre(no_key(""), failed()));
  ASSERT_EQ(chmod(kBootFile, 0400), 0);
  EXPECT_EQ(look_up().code, 0) << "it is not written";
}

TEST_F(BootFileName, NeedsEveryRead) {
  kelo_set_log_level(LOG_LVL_CRT);  // logging reads as well
  write_file(kCommandLine, "quiet");
  for (const int failing : {2, 3}) {
    const Fault fault({.call = "read", .code = EIO, .at = failing});
    const Result result = look_up_in_boot_file(std::string(kChunkSize, 'x') + "project=XYZ\n");
    EXPECT_EQ(result.code, -1) << failing;
    EXPECT_EQ(result.buffer, untouched(16)) << failing;
    EXPECT_EQ(fault.seen(), failing);
  }
}

TEST_F(BootFileName, IsTheSameInBothLookups) {
  write_file(kBootFile, "project=XYZ\n");
  const Result result = look_up(16, kOemLookup);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.buffer, terminated("XYZ", 16));
  EXPECT_THAT(result.log, ElementsAre(no_key(""), failed(), taken("project=XYZ\n")));
}

}  // namespace
