// SPDX-License-Identifier: MIT
// Programs of a test's own, in a folder whose name lets the supervised runner start them.
#ifndef KELO_TESTS_SUPPORT_OWN_TOOLS_HPP
#define KELO_TESTS_SUPPORT_OWN_TOOLS_HPP

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace kelo::tests {

// Writes an executable file with these contents and returns its path.
inline std::string make_tool(const std::string& name, const std::string& contents,
                             const std::string& folder = "/tmp/t/bin") {
  std::filesystem::create_directories(folder);
  std::string path = folder + "/" + name;
  std::ofstream(path) << contents;
  EXPECT_EQ(chmod(path.c_str(), 0755), 0) << path;
  return path;
}

// The same for a shell script.
inline std::string make_script(const std::string& name, const std::string& lines,
                               const std::string& folder = "/tmp/t/bin") {
  return make_tool(name, "#!/bin/sh\n" + lines + "\n", folder);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_OWN_TOOLS_HPP
