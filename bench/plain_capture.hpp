// SPDX-License-Identifier: MIT
// The plainest capture of a program's output, for benchmarks to compare with: one pipe, and a loop of poll
// and read.
#ifndef KELO_BENCH_PLAIN_CAPTURE_HPP
#define KELO_BENCH_PLAIN_CAPTURE_HPP

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace kelo::bench {

inline constexpr std::size_t kOutputSize = 1 << 20;

// Writes a file of 1 MiB in lines of this many bytes and returns its path.
inline std::string file_of_lines(std::size_t length) {
  std::string path = "/tmp/output-" + std::to_string(length);
  std::FILE* const file = std::fopen(path.c_str(), "we");
  if (file == nullptr) std::abort();
  for (std::size_t i = 0; i < kOutputSize; ++i) std::fputc(i % length == length - 1 ? '\n' : 'x', file);
  std::fclose(file);
  return path;
}

// Reads to the end of the output, or until only the terminator's place is left. Returns how many bytes.
inline std::size_t read_all(int fd, std::vector<char>& output) {
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

// `start` starts the program with the descriptor that it gets as its standard output, and returns its id.
template <typename Start>
void capture_plainly(std::vector<char>& output, Start start) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
  const pid_t child = start(ends[1]);
  if (child < 0) std::abort();
  close(ends[1]);
  output[read_all(ends[0], output)] = '\0';
  close(ends[0]);
  waitpid(child, nullptr, 0);
}

}  // namespace kelo::bench

#endif  // KELO_BENCH_PLAIN_CAPTURE_HPP
