// What a message costs: one that the threshold suppresses against comparing a global, and a local line
// against the plainest code that does the same work.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "kelo_utils/log.h"

namespace {

// Processor time of this thread: what else the machine does does not count.
double nanoseconds_spent() {
  timespec spent{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &spent);
  return static_cast<double>(spent.tv_sec) * 1e9 + static_cast<double>(spent.tv_nsec);
}

// Runs both in turn, so that a change of the processor's pace weighs on both alike, and reports the ratio of
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

void read_name(std::array<char, 64>& name, int process, int thread) {
  std::array<char, 64> path;
  std::snprintf(path.data(), path.size(), "/proc/%d/task/%d/comm", process, thread);
  std::snprintf(name.data(), name.size(), "NULL");
  const int file = open(path.data(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  const ssize_t length = read(file, name.data(), name.size() - 1);
  close(file);
  if (length > 0) name[static_cast<std::size_t>(length - 1)] = '\0';  // in place of the newline
}

__attribute__((format(printf, 3, 4), noinline)) void log_plainly(const char* function, int source_line,
                                                                 const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(plain_message.data(), plain_message.size(), format, arguments);
  va_end(arguments);
  const int process = getpid();
  const int thread = static_cast<int>(syscall(SYS_gettid));
  std::array<char, 64> name;
  read_name(name, process, thread);
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

}  // namespace
