// SPDX-License-Identifier: MIT
// What descriptors a supervised command costs, and gets.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/child_process.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/supervised_run.hpp"

namespace {

using kelo::tests::kDescriptorsOfAStart;
using kelo::tests::limit_descriptors;
using kelo::tests::listed_descriptors;
using kelo::tests::make_script;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using kelo::tests::Outcome;
using kelo::tests::run_supervised;

class SupervisedDescriptors : public kelo::tests::SupervisedRun {};

bool closes_on_exec(const std::string& descriptor) {
  return (fcntl(std::stoi(descriptor), F_GETFD) & FD_CLOEXEC) != 0;
}

// What a program started here would find open, but for its output and errors.
std::set<std::string> inheritable_descriptors() {
  std::set<std::string> open = open_descriptors();
  std::erase_if(open, [](const std::string& entry) {
    return closes_on_exec(entry) || entry.starts_with("1 ") || entry.starts_with("2 ");
  });
  return open;
}

std::set<std::string> listing_by_child() {
  const std::string listing = run_supervised("ls -l /proc/self/fd").output;
  std::ofstream("/tmp/list") << listing;
  return listed_descriptors("/tmp/list");
}

TEST_F(SupervisedDescriptors, HandsDownTheStandardStreamsAndTheWatchPipeAlone) {
  const std::set<std::string> before = inheritable_descriptors();
  const std::set<std::string> listed = listing_by_child();
  std::set<std::string> added;
  std::set_difference(listed.begin(), listed.end(), before.begin(), before.end(),
                      std::inserter(added, added.end()));
  EXPECT_EQ(listed.size(), before.size() + added.size());
  ASSERT_EQ(added.size(), 3U) << testing::PrintToString(added);
  std::vector<std::string> targets;
  targets.reserve(added.size());
  for (const std::string& entry : added) targets.push_back(entry.substr(entry.find(' ') + 1));
  EXPECT_EQ(added.begin()->substr(0, 2), "1 ");
  EXPECT_EQ(std::next(added.begin())->substr(0, 2), "2 ");
  EXPECT_EQ(targets[0], targets[1]) << "output and errors do not share a pipe";
  EXPECT_NE(targets[2], targets[0]) << "the output's write end is open once more";
  EXPECT_TRUE(targets[2].starts_with("pipe:")) << targets[2];
}

// What `body` reports from a process whose standard streams are closed.
std::string without_standard_streams(const std::function<std::string()>& body) {
  const auto child_result = kelo::tests::run_in_child([&] {
    const int report = open("/tmp/report", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(stream);
    const std::string text = body();
    EXPECT_EQ(write(report, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
      EXPECT_EQ(fcntl(stream, F_GETFD), -1);
  });
  EXPECT_EQ(child_result.exit_status, 0);
  std::string text;
  std::getline(std::ifstream("/tmp/report"), text);
  return text;
}

TEST_F(SupervisedDescriptors, ServesAProcessWithoutStandardStreams) {
  const std::string script =
      make_script("streams", "[ -e /proc/$$/fd/0 ] || printf 'no input,'; printf out,; printf err >&2");
  EXPECT_EQ(without_standard_streams([&] {
              const Outcome streams = run_supervised(script);
              return std::to_string(streams.result) + " " + streams.output;
            }),
            "0 no input,out,err");
}

TEST_F(SupervisedDescriptors, WatchesTheBackgroundWithoutStandardStreams) {
  const std::string script = make_script("left", "(sleep 0.5; echo > /tmp/late) > /dev/null 2>&1 &\n");
  EXPECT_EQ(without_standard_streams([&] {
              const int result = run_supervised(script).result;
              return std::to_string(result) + (std::filesystem::exists("/tmp/late") ? " late" : " early");
            }),
            "0 late");
}

TEST_F(SupervisedDescriptors, HandsDownNothingElseWithoutStandardStreams) {
  EXPECT_EQ(without_standard_streams([] {
              const std::size_t before = inheritable_descriptors().size();
              return std::to_string(listing_by_child().size() - before);
            }),
            "3");
}

TEST_F(SupervisedDescriptors, FailsCleanlyWhereAPipeCannotBeKeptClearOfTheStreams) {
  EXPECT_EQ(without_standard_streams([this] {
              limit_descriptors(STDERR_FILENO + 1);
              const int result = run_supervised("echo x").result;
              return std::to_string(result) + " " + std::to_string(log.lines().size()) + " " +
                     std::to_string(log.count(LOG_LVL_DBUG, "ret=-1\n"));
            }),
            "-1 1 1");
}

TEST_F(SupervisedDescriptors, ServesAProcessWithMoreThan1024Descriptors) {
  limit_descriptors(2048);
  if (IsSkipped() || HasFatalFailure()) return;
  const ManyDescriptors many(1500, 0);
  ASSERT_GT(many.highest(), 1024);
  const Outcome echo = run_supervised("echo x");
  EXPECT_EQ(echo.result, 0);
  EXPECT_EQ(echo.output, "x\n");
}

TEST_F(SupervisedDescriptors, FailsCleanlyWhenDescriptorsRunOut) {
  limit_descriptors(64);
  for (const std::size_t free : {0U, 1U, 2U, 3U}) {
    log.clear();
    {
      const ManyDescriptors many(64, free);
      EXPECT_EQ(run_supervised("echo x").result, -1);
    }
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), free < 2 ? 1U : 2U) << log.dump();
    EXPECT_EQ(lines.back().text, "ret=-1\n");
    EXPECT_EQ(lines.back().level, LOG_LVL_DBUG);
  }
  const ManyDescriptors many(64, 4 + kDescriptorsOfAStart);
  EXPECT_EQ(run_supervised("echo x").output, "x\n");
}

}  // namespace
