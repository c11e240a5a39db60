// Capturing a command's output, against the plainest code that starts the same shell and reads its pipe.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/ratio.hpp"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"

namespace {

constexpr std::size_t kOutputSize = 1 << 20;

// A file of 1 MiB in lines of this many bytes, and the command that prints it.
std::string command_of_lines(std::size_t length) {
  const std::string path = "/tmp/output-" + std::to_string(length);
  std::FILE* const file = std::fopen(path.c_str(), "we");
  if (file == nullptr) std::abort();
  for (std::size_t i = 0; i < kOutputSize; ++i) std::fputc(i % length == length - 1 ? '\n' : 'x', file);
  std::fclose(file);
  return "cat " + path;
}

// Reads the pipe to its end. Returns how many bytes are in the buffer.
std::size_t read_all(int fd, std::vector<char>& output) {
  std::size_t count = 0;
  for (;;) {
    pollfd end{fd, POLLIN, 0};
    if (poll(&end, 1, -1) < 0) {
      if (errno == EINTR) continue;
      return count;
    }
    const ssize_t more = read(fd, output.data() + count, output.size() - 1 - count);
    if (more <= 0) return count;
    count += static_cast<std::size_t>(more);
  }
}

std::size_t capture_plainly(const std::string& command, std::vector<char>& output) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return 0;
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, ends[1], STDOUT_FILENO);
  std::string arguments[] = {"sh", "-c", command};
  char* const texts[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
  pid_t child = -1;
  const int failure = posix_spawn(&child, "/bin/sh", &streams, nullptr, texts, environ);
  posix_spawn_file_actions_destroy(&streams);
  close(ends[1]);
  if (failure != 0) std::abort();
  const std::size_t count = read_all(ends[0], output);
  close(ends[0]);
  output[count] = '\0';
  waitpid(child, nullptr, 0);
  return count;
}

void capture_a_mebibyte(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_ERR);
  const std::string command = command_of_lines(static_cast<std::size_t>(state.range(0)));
  std::vector<char> ours(kOutputSize + 2);
  std::vector<char> theirs(kOutputSize + 2);
  kelo::bench::compare(
      state, [&] { kelo_popen_call(command.c_str(), ours.data(), static_cast<std::int32_t>(ours.size())); },
      [&] { capture_plainly(command, theirs); });
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
