#include "tests/support/descriptors.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <system_error>

namespace kelo::tests {

std::set<std::string> open_descriptors() {
  namespace fs = std::filesystem;
  std::set<std::string> open;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the descriptor that lists the others
    const fs::path target = fs::read_symlink(entry.path(), gone);
    if (gone || target.string().ends_with("/fd")) continue;
    open.insert(entry.path().filename().string() + " " + target.string());
  }
  return open;
}

std::set<std::string> listed_descriptors(const std::string& path) {
  static const std::regex kEntry(R"(.* (\d+) -> (.*))");
  std::ifstream list(path);
  EXPECT_TRUE(list.is_open()) << "nothing listed in " << path;
  std::set<std::string> open;
  std::smatch match;
  for (std::string line; std::getline(list, line);) {
    if (!std::regex_match(line, match, kEntry) || match.str(2).ends_with("/fd")) continue;
    open.insert(match.str(1) + " " + match.str(2));
  }
  return open;
}

}  // namespace kelo::tests
