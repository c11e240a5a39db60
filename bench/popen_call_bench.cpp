// SPDX-License-Identifier: MIT
// Capturing a command's output, against the plainest code that starts the same shell and reads its pipe.
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

pid_t start_shell(const std::string& command, int output) {
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  std::string arguments[] = {"sh", "-c", command};
  char* const texts[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
  pid_t child = -1;
  const int failure = posix_spawn(&child, "/bin/sh", &streams, nullptr, texts, environ);
  posix_spawn_file_actions_destroy(&streams);
  return failure == 0 ? child : -1;
}

void capture_a_mebibyte(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_ERR);
  const std::string command = "cat " + kelo::bench::file_of_lines(static_cast<std::size_t>(state.range(0)));
  std::vector<char> ours(kOutputSize + 2);
  std::vector<char> theirs(kOutputSize + 2);
  kelo::bench::compare(
      state, [&] { kelo_popen_call(command.c_str(), ours.data(), static_cast<std::int32_t>(ours.size())); },
      [&] {
        kelo::bench::capture_plainly(theirs, [&](int output) { return start_shell(command, output); });
      });
  if (ours != theirs) state.SkipWithError("the outputs differ");
}
// Short lines, lines as tools print them, and no line at all.
BENCHMARK(capture_a_mebibyte)
    ->Arg(2)
    ->Arg(8)
    ->Arg(64)
    ->Arg(1 << 20)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
