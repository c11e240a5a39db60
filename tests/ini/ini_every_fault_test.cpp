// SPDX-License-Identifier: MIT
// Every kind of change to an INI file, with each of its calls of the system failing in turn.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include "kelo_utils/ini.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/ini_changes.hpp"

namespace {

using kelo::tests::Fault;
using kelo::tests::file_exists;
using kelo::tests::IniChange;
using kelo::tests::open_descriptors;
using kelo::tests::read_file;
using kelo::tests::write_file;
using Text = kelo::tests::IniModel::Text;
using Way = kelo::tests::IniModel::Way;

constexpr char kPath[] = "/tmp/settings.ini";
constexpr char kNewPath[] = "/tmp/settings.in~";

const char* c_string(const Text& text) { return text ? text->c_str() : nullptr; }

Text contents() { return file_exists(kPath) ? Text(read_file(kPath)) : Text(); }

class IniEveryFault : public testing::TestWithParam<IniChange> {
 protected:
  static int change() {
    return ini_puts(c_string(GetParam().section), c_string(GetParam().key), c_string(GetParam().value),
                    kPath);
  }

  static void restore() {
    std::filesystem::remove(kPath);
    if (GetParam().before) write_file(kPath, *GetParam().before);
  }

  // Fails the `at`-th of these calls. Whether there are so many.
  static bool fail(const char* call, int error, int at) {
    SCOPED_TRACE(call + (" " + std::to_string(at)));
    restore();
    const std::set<std::string> descriptors_before = open_descriptors();
    int result = -1;
    int seen = 0;
    {
      const Fault fault({.call = call, .code = error, .at = at});
      result = change();
      seen = fault.seen();
    }
    // All but the synchronisation of the directory, which is the second, has to succeed.
    const bool sync = std::string(call) == "fsync";
    EXPECT_TRUE(result == 0 || !sync || at > 1 || has_second_way());
    expect_consistent(result, sync);
    EXPECT_EQ(open_descriptors(), descriptors_before);
    return seen >= at;
  }

  // A line in two sectors is written in place, and synchronised, when its copy failed.
  static bool has_second_way() {
    return GetParam().way == Way::rewritten && GetParam().before->size() == after(GetParam())->size();
  }

  // A call that fails leaves the file as it was. That of a line which may not have reached the storage fails,
  // too.
  static void expect_consistent(int result, bool unsure) {
    EXPECT_FALSE(file_exists(kNewPath));
    if (result == 0 && !(unsure && GetParam().way == Way::in_place)) {
      EXPECT_EQ(contents(), GetParam().before);
    } else {
      EXPECT_EQ(contents(), after(GetParam()));
    }
  }
};

TEST_P(IniEveryFault, LeavesTheOldFileOrTheNewOne) {
  for (const char* const call : {"open", "fstat", "read", "pread", "write", "lseek", "fsync", "rename"}) {
    int at = 1;
    while (fail(call, EIO, at)) ++at;
    EXPECT_EQ(contents(), after(GetParam())) << "without a fault";
  }
}

// The storage is full after any number of writes, and stays so.
TEST_P(IniEveryFault, FailsWhenTheStorageIsFull) {
  for (int at = 1;; ++at) {
    restore();
    const Fault fault({.call = "write", .code = ENOSPC, .at = at, .times = kelo::tests::kEveryTime});
    const int result = change();
    const bool full = fault.seen() >= at;
    EXPECT_EQ(result, full ? 0 : 1) << at;
    expect_consistent(result, false);
    if (!full || HasFailure()) break;
  }
}

INSTANTIATE_TEST_SUITE_P(Changes, IniEveryFault, testing::ValuesIn(kelo::tests::ini_changes()),
                         [](const auto& change) { return std::string(change.param.name); });

}  // namespace
