// SPDX-License-Identifier: MIT
// What a message costs: one that the threshold suppresses against comparing a global, and a local line and a record for
// a channel that does nothing against the plainest code that does the same work.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "kelo_utils/log.h"

namespace {

// Processor time of this thread: other work of the machine does not count.
double nanoseconds_spent() {
  timespec spent{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &spent);
  return static_cast<double>(spent.tv_sec) * 1e9 + static_cast<double>(spent.tv_nsec);
}

// Runs both in turn, so that a change of the processor's speed affects both, and reports the ratio of
// their times. `batch` calls are timed together.
template <typename Library, typename Plain>
void compare(benchmark::State& state, int batch, Library library, Plain plain) {
  double library_time = 0;
  double plain_time = 0;
  while (state.KeepRunning()) {
    const double start = nanoseconds_spent();
    for (int i = 0; i < batch; ++i) library();
    const double middle = nanoseconds_spent();
    for (int i = 0; i < batch; ++i) plain();
    plain_time += nanoseconds_spent() - middle;
    library_time += middle - start;
  }
  const double calls = static_cast<double>(state.iterations()) * batch;
  state.counters["library_ns"] = library_time / calls;
  state.counters["plain_ns"] = plain_time / calls;
  state.counters["library_to_plain"] = library_time / plain_time;
}

// --- Suppressed message ------------------------------------------------------------------------------------

volatile int plain_threshold = LOG_LVL_INFO;

[[gnu::always_inline]] inline void log_value(int& value) {
  KELO_LOG(LOG_LVL_DBUG, "value %d\n", value);
  benchmark::DoNotOptimize(value);
}

[[gnu::always_inline]] inline void print_value(int& value) {
  if (plain_threshold <= LOG_LVL_DBUG) std::printf("value %d\n", value);
  benchmark::DoNotOptimize(value);
}

void suppressed(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_INFO);
  int value = 0;
  compare(
      state, 10000, [&value] { log_value(value); }, [&value] { print_value(value); });
}
BENCHMARK(suppressed);

// --- Local line --------------------------------------------------------------------------------------------

void take_line(const char* line) { benchmark::DoNotOptimize(line); }

std::array<char, KELO_LOG_BUFFER_SIZE> plain_message;
std::array<char, KELO_LOG_LINE_SIZE> plain_line;

__attribute__((format(printf, 3, 4), noinline)) void log_plainly(const char* function, int source_line,
                                                                 const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(plain_message.data(), plain_message.size(), format, arguments);
  va_end(arguments);
  const int process = getpid();
  const int thread = static_cast<int>(syscall(SYS_gettid));
  std::array<char, 17> name{};
  prctl(PR_GET_NAME, name.data());
  timeval now{};
  gettimeofday(&now, nullptr);
  tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  const int length = std::snprintf(plain_line.data(), plain_line.size(),
                                   "%04d-%02d-%02d %02d:%02d:%02d.%03d : %s | [%d | %d-%s] | %s %d | %s",
                                   utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                                   utc.tm_sec, static_cast<int>(now.tv_usec / 1000), "=ERR=", process, thread,
                                   name.data(), function, source_line, plain_message.data());
  if (length > 0) take_line(plain_line.data());
}

void log_failure() { KELO_LOG(LOG_LVL_ERR, "lookup of item %d failed: %s\n", 1203, "no such row"); }

void print_failure() {
  log_plainly(__func__, __LINE__, "lookup of item %d failed: %s\n", 1203, "no such row");
}

void local_line(benchmark::State& state) {
  kelo_set_log_tool_enable(0);
  set_print_interface(take_line);
  compare(state, 100, log_failure, print_failure);
  set_print_interface(nullptr);
}
BENCHMARK(local_line);

// --- To the channel ----------------------------------------------------------------------------------------

pthread_mutex_t plain_mutex = PTHREAD_MUTEX_INITIALIZER;

// A channel that takes records and does nothing with them; the library calls it as well.
__attribute__((format(printf, 2, 3), noinline)) void hand_over_plainly(const char* function,
                                                                       const char* format, ...) {
  char* const text = static_cast<char*>(std::calloc(1, KELO_LOG_BUFFER_SIZE));
  pthread_mutex_lock(&plain_mutex);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, KELO_LOG_BUFFER_SIZE, format, arguments);
  va_end(arguments);
  pthread_mutex_unlock(&plain_mutex);
  static const LogDiagDescriptor descriptor = {1, KELO_LOG_DIAG_SUBSYSTEM, 8, KELO_LOG_DIAG_FORMAT, __FILE__};
  msg_sprintf(&descriptor, getpid(), function, text);
  std::free(text);
}

void hand_over() { hand_over_plainly(__func__, "lookup of item %d failed: %s\n", 1203, "no such row"); }

void to_channel(benchmark::State& state) {
  kelo_set_log_tool_enable(1);
  compare(state, 100, log_failure, hand_over);
  kelo_set_log_tool_enable(0);
}
// First of all: a process that printed locally before never starts its channel.
BENCHMARK(to_channel);

}  // namespace

int Diag_LSM_Init(char* /*environment*/) { return 1; }

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) { benchmark::DoNotOptimize(descriptor); }
