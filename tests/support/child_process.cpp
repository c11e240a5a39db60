// SPDX-License-Identifier: MIT
// Runs a part of a test in a child and tells how it ended.
#include "tests/support/child_process.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tests/support/emulation.hpp"

namespace kelo::tests {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using TemporaryFile = std::unique_ptr<std::FILE, FileCloser>;

std::string contents(std::FILE* file) {
  std::string text;
  std::rewind(file);
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) text += static_cast<char>(c);
  return text;
}

// An emulator says on standard error that a signal ended the program.
std::string without_emulators_word(std::string errors) {
  if (kEmulated) errors.erase(std::min(errors.find("qemu: uncaught target signal"), errors.size()));
  return errors;
}

}  // namespace

ChildResult run_in_child(const std::function<void()>& body) {
  const TemporaryFile output(std::tmpfile());
  const TemporaryFile errors(std::tmpfile());
  EXPECT_TRUE(output && errors);
  std::fflush(nullptr);
  const bool failed_before = testing::Test::HasFailure();
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(output.get()), STDOUT_FILENO);
    dup2(fileno(errors.get()), STDERR_FILENO);
    body();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() && !failed_before ? EXIT_FAILURE : EXIT_SUCCESS);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
          contents(output.get()), without_emulators_word(contents(errors.get()))};
}

}  // namespace kelo::tests
