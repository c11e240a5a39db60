// SPDX-License-Identifier: MIT
// Looks the project's name up with a command line and a boot file of the test's own.
#ifndef KELO_TESTS_SUPPORT_PROJECT_LOOKUP_HPP
#define KELO_TESTS_SUPPORT_PROJECT_LOOKUP_HPP

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline constexpr char kCommandLine[] = "/tmp/cmdline";  // instead of the kernel's
inline constexpr char kBootFile[] = "/tmp/non_signal_info";

using Lookup = int (*)(char*, std::int32_t);
inline constexpr Lookup kLookup = kelo_get_project_name_cmdline;
inline constexpr Lookup kOemLookup = kelo_get_project_name_cmdline_oem_version;

inline std::string untouched(std::size_t count) { return std::string(count, ExactBuffer::kUntouched); }

// A name with its terminator, and untouched bytes after it.
inline std::string terminated(const std::string& name, std::size_t size) {
  return name + '\0' + untouched(size - name.size() - 1);
}

// The lines that each step logs.
inline std::string found(const std::string& name) {
  return "DBUG __oem_get_project_name_cmdline|Project Name: " + name;
}
inline std::string failed() {
  return "ERR __oem_get_project_name_cmdline|get project name from cmdline failed";
}
inline std::string no_key(const std::string& line) {
  return "ERR odm_get_value_from_string|Could not find oem.project in " + line;
}
inline std::string no_value(const std::string& line) {
  return "ERR odm_get_value_from_string|Only containe space in " + line;
}
inline std::string taken(const std::string& chunk) { return "DBUG get_project_para|Project Name: " + chunk; }
inline std::string no_marker() { return "ERR get_project_para|can't not match project"; }

// A test begins without a command line and without a boot file. It leaves no descriptor open.
class ProjectLookup : public testing::Test {
 protected:
  struct Result {
    int code;
    std::string buffer;
    std::vector<std::string> log;
  };

  void SetUp() override {
    std::filesystem::remove(kCommandLine);
    std::filesystem::remove(kBootFile);
  }
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  // What a lookup leaves in a buffer of `size` bytes, beyond which nothing can be written.
  Result look_up(std::size_t size = 16, Lookup lookup = kLookup) {
    const ExactBuffer buffer(size);
    const int code = lookup(buffer.data(), static_cast<std::int32_t>(size));
    return {code, buffer.bytes(), told()};
  }

  Result look_up_in(const std::string& command_line, std::size_t size = 16, Lookup lookup = kLookup) {
    write_file(kCommandLine, command_line);
    return look_up(size, lookup);
  }

  // Level, function and text of each line without its line end, in their order; clears them.
  std::vector<std::string> told() {
    std::vector<std::string> lines;
    for (const auto& line : log.lines()) {
      EXPECT_EQ(line.text.back(), '\n');
      lines.push_back(level_name(line.level) + ' ' + line.function + '|' +
                      line.text.substr(0, line.text.size() - 1));
    }
    log.clear();
    return lines;
  }

  LogCapture log;

 private:
  const Redirection redirection_{"/proc/cmdline", kCommandLine};
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_PROJECT_LOOKUP_HPP
