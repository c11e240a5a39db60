// SPDX-License-Identifier: MIT
// Capturing a supervised command's output, against the plainest code that starts the same program and reads
// its pipe.
#include <benchmark/benchmark.h>
#include <spawn.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/plain_capture.hpp"
#include "bench/ratio.hpp"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"

namespace {

using kelo::bench::kOutputSize;

constexpr char kProgram[] = "/bin/cat";

pid_t start_program(const std::string& argument, int output) {
  const pid_t child = fork();
  if (child != 0) return child;
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  execl(kProgram, kProgram, argument.c_str(), nullptr);
  _exit(EXIT_FAILURE);
}

void capture_a_mebibyte(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_ERR);
  const std::string path = kelo::bench::file_of_lines(64);
  const std::string command = std::string(kProgram) + " " + path;
  std::vector<char> ours(kOutputSize + 2);
  std::vector<char> theirs(kOutputSize + 2);
  kelo::bench::compare(
      state,
      [&] {
        kelo_ds_system_call3(command.c_str(), 0, ours.data(), static_cast<std::int32_t>(ours.size()), 0);
      },
      [&] { kelo::bench::capture_plainly(theirs, [&](int output) { return start_program(path, output); }); });
  if (ours != theirs) state.SkipWithError("the outputs differ");
}
BENCHMARK(capture_a_mebibyte)->UseManualTime()->Unit(benchmark::kMicrosecond);

pid_t start_echo(int output) {
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&streams, output, STDERR_FILENO);
  std::string arguments[] = {"/bin/echo", "one", "line"};
  char* const texts[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
  pid_t child = -1;
  const int failure = posix_spawn(&child, texts[0], &streams, nullptr, texts, environ);
  posix_spawn_file_actions_destroy(&streams);
  return failure == 0 ? child : -1;
}

// A daemon has memory of its own, which must not make the start of a command slower.
void capture_one_line(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_ERR);
  const std::vector<char> memory(static_cast<std::size_t>(state.range(0)) << 20, 'x');
  std::vector<char> ours(64);
  std::vector<char> theirs(64);
  kelo::bench::compare(
      state,
      [&] {
        kelo_ds_system_call3("echo one line", 0, ours.data(), static_cast<std::int32_t>(ours.size()), 0);
      },
      [&] { kelo::bench::capture_plainly(theirs, start_echo); });
  benchmark::DoNotOptimize(memory.data());
  if (ours != theirs) state.SkipWithError("the outputs differ");
}
BENCHMARK(capture_one_line)->Arg(0)->Arg(64)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
