// SPDX-License-Identifier: MIT
// The exported `log_msg` and `str_t` in every kind of program, and programs with objects of their own of that name.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/emulation.hpp"

namespace {

// The programs' exit status is the line of the claim that failed.
int exit_status(const std::string& program) {
  const int status = std::system(kelo::tests::shell_command(KELO_BINARY_DIR "/tests/" + program).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(LogData, IsTheLastLineInEveryKindOfProgram) {
  for (const char* const program :
       {"log_data_shared_pie", "log_data_shared_no_pie", "log_data_static_pie", "log_data_static_no_pie"})
    EXPECT_EQ(exit_status(program), 0) << program;
}

TEST(LogData, OfTheProgramIsLeftAlone) {
  for (const char* const program : {"own_log_data_128_pie", "own_log_data_128_no_pie",
                                    "own_log_data_4096_pie", "own_log_data_4096_no_pie"})
    EXPECT_EQ(exit_status(program), 0) << program;
}

TEST(LogData, OfAnotherLibraryIsLeftAlone) {
  for (const char* const program : {"own_log_data_elsewhere_pie", "own_log_data_elsewhere_no_pie"})
    EXPECT_EQ(exit_status(program), 0) << program;
}

TEST(LogData, FunctionOfTheProgramIsLeftAlone) {
  for (const char* const program : {"own_log_functions_pie", "own_log_functions_no_pie"})
    EXPECT_EQ(exit_status(program), 0) << program;
}

}  // namespace
