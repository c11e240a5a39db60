// SPDX-License-Identifier: MIT
// Prints the claims of the demo and counts them.
#include "tools/demo/claims.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace kelo::demo {
namespace {

struct Counts {
  int made;
  int failed;
};

// Shared by the demo and the daemons it starts.
Counts& counts() {
  static Counts* const shared = static_cast<Counts*>(
      mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return *shared;
}

void print_line(const char* mark, const char* format, va_list arguments) {
  std::printf("  %s ", mark);
  std::vprintf(format, arguments);
  std::putchar('\n');
  std::fflush(stdout);
}

}  // namespace

void chapter(const char* title) {
  static int number = 0;
  std::printf("\n%d. %s\n", ++number, title);
  std::fflush(stdout);
}

void tell(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print_line("    ", format, arguments);
  va_end(arguments);
}

void claim(bool holds, const char* format, ...) {
  ++counts().made;
  if (!holds) ++counts().failed;
  va_list arguments;
  va_start(arguments, format);
  print_line(holds ? "ok  " : "FAIL", format, arguments);
  va_end(arguments);
}

void life(const std::function<void()>& body) {
  counts();
  std::fflush(stdout);
  const pid_t daemon = fork();
  if (daemon == 0) {
    body();
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  if (daemon < 0 || waitpid(daemon, &status, 0) != daemon || status != 0) {
    claim(false, "the daemon ended by itself (wait status %d)", status);
  }
}

int claims_made() { return counts().made; }
int claims_failed() { return counts().failed; }

}  // namespace kelo::demo
