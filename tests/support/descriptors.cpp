// SPDX-License-Identifier: MIT
// Counts the open descriptors of the process.
#include "tests/support/descriptors.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

void expect_nothing_inherited(const std::string& path, const std::set<std::string>& before) {
  const auto held = listed_descriptors(path);
  EXPECT_GE(held.size(), 3U);
  for (const std::string& descriptor : held) {
    const bool standard = descriptor[0] <= '2' && descriptor[1] == ' ';
    EXPECT_TRUE(standard || before.count(descriptor) == 1) << descriptor;
  }
}

void limit_descriptors(rlim_t limit) {
  rlimit limits{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
  limits.rlim_cur = limit;
  if (limits.rlim_max < limit) GTEST_SKIP() << "this machine allows " << limits.rlim_max << " descriptors";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
}

ManyDescriptors::ManyDescriptors(std::size_t most, std::size_t free) {
  while (descriptors_.size() < most) {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd < 0) break;
    descriptors_.push_back(fd);
  }
  for (; free > 0; --free, descriptors_.pop_back()) close(descriptors_.back());
}

ManyDescriptors::~ManyDescriptors() {
  for (const int fd : descriptors_) close(fd);
}

}  // namespace kelo::tests
