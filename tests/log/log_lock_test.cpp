// SPDX-License-Identifier: MIT
// The lock around each line: forks, fork handlers and cancelled threads. Whatever is wrong with it shows as a
// process that hangs, so every wait has its end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <latch>
#include <regex>
#include <semaphore>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/background_loggers.hpp"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/fault.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using kelo::tests::BackgroundLoggers;
using kelo::tests::BoundedFork;
using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;

constexpr int kForks = 300;
constexpr int kLoggers = 4;

std::atomic<int> lines_printed{0};
std::atomic<bool> stream_is_locked{false};
// Looked up before there are threads.
const auto try_lock_of_stream = kelo::tests::next_call("ftrylockfile", ::ftrylockfile);
const auto unlock_of_stream = kelo::tests::next_call("funlockfile", ::funlockfile);

// How the kernel answers when a page is to be emptied in children: as ever, as one that does not know how, or as an
// emulator that takes every advice and follows none.
enum class Advice { followed, refused, ignored };
Advice advice = Advice::followed;

}  // namespace

// The library's calls land here.
extern "C" int ftrylockfile(FILE* stream) noexcept {
  return stream_is_locked ? -1 : try_lock_of_stream(stream);
}
extern "C" void funlockfile(FILE* stream) noexcept {
  if (!stream_is_locked) unlock_of_stream(stream);
}
extern "C" int madvise(void* start, std::size_t length, int what) noexcept {
  if (advice == Advice::ignored) return 0;
  if (advice == Advice::followed) return static_cast<int>(syscall(SYS_madvise, start, length, what));
  errno = EINVAL;
  return -1;
}

namespace {

void log_text(const char* text) {
  std::array<char, KELO_LOG_BUFFER_SIZE> buffer;
  kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "%s", text);
}

bool last_line_ends_with(const char* text) {
  const std::size_t length = std::strlen(text);
  const std::size_t line_length = std::strlen(log_msg);
  return line_length >= length && std::strcmp(log_msg + line_length - length, text) == 0;
}

// Logs one line and says whether it was printed.
bool child_logs() {
  const int before = lines_printed;
  log_text("from the child\n");
  return lines_printed == before + 1 && last_line_ends_with(" | from the child\n");
}

void count_line(const char* /*line*/) {
  ++lines_printed;
  std::this_thread::yield();  // a fork likes to fall into the line
}

void log_a_line() { log_text("from a thread\n"); }

void log_through_the_library() { (void)kelo_dm_unreg(nullptr); }

class LogLock : public testing::Test {
 protected:
  void SetUp() override {
    alarm(120);
    kelo_set_log_tool_enable(0);
    set_print_interface(count_line);
  }
};

using Fork = LogLock;
using Cancel = LogLock;

void fork_while_threads_log(void (*log_one)()) {
  const BackgroundLoggers loggers(kLoggers, log_one);
  for (int i = 0; i < kForks; ++i) ASSERT_EQ(fork_bounded(child_logs), ChildEnd::good) << "fork " << i;
}

TEST_F(Fork, ChildrenLogWhileThreadsDo) { fork_while_threads_log(log_a_line); }

TEST_F(Fork, ChildrenLogWhileTheLibraryDoes) { fork_while_threads_log(log_through_the_library); }

TEST_F(Fork, ChildrenPrintOnStandardOutputWhileThreadsDo) {
  ASSERT_NE(std::freopen("/dev/null", "w", stdout), nullptr);
  set_print_interface(nullptr);
  const BackgroundLoggers loggers(kLoggers, log_a_line);
  for (int i = 0; i < kForks; ++i) {
    const ChildEnd end = fork_bounded([] {
      log_text("from the child\n");
      return last_line_ends_with(" | from the child\n");
    });
    ASSERT_EQ(end, ChildEnd::good) << "fork " << i;
  }
}

TEST_F(Fork, ChildCallsTheSettersWhileThreadsLog) {
  const BackgroundLoggers loggers(kLoggers, log_a_line);
  for (int i = 0; i < kForks; ++i) {
    const ChildEnd end = fork_bounded([] {
      kelo_set_log_level(LOG_LVL_ERR);
      set_print_interface(count_line);
      return kelo_get_log_level() == LOG_LVL_ERR && child_logs();
    });
    ASSERT_EQ(end, ChildEnd::good) << "fork " << i;
  }
}

std::latch line_under_way(1);
std::latch line_may_end(1);

// The line is under way until the test lets it end.
void print_when_allowed(const char* line) {
  count_line(line);
  line_under_way.count_down();
  line_may_end.wait();
}

TEST_F(Fork, DoesNotWaitForTheLineBeingWritten) {
  set_print_interface(print_when_allowed);
  std::thread logger(log_a_line);
  line_under_way.wait();
  EXPECT_EQ(fork_bounded([] {
              set_print_interface(count_line);
              return child_logs() && child_logs();
            }),
            ChildEnd::good);
  line_may_end.count_down();
  logger.join();
  EXPECT_EQ(lines_printed, 1);
}

TEST_F(Fork, GrandchildrenLogToo) {
  set_print_interface(print_when_allowed);
  std::thread logger(log_a_line);
  line_under_way.wait();
  EXPECT_EQ(fork_bounded([] {
              set_print_interface(count_line);
              return fork_bounded(child_logs) == ChildEnd::good && child_logs();
            }),
            ChildEnd::good);
  line_may_end.count_down();
  logger.join();
}

std::binary_semaphore first_line_began{0};
std::binary_semaphore second_line_began{0};
std::atomic<bool> lines_met{false};

// The first line waits for one of another thread, which may come only after it.
void print_two_lines(const char* /*line*/) {
  if (lines_printed++ == 0) {
    first_line_began.release();
    lines_met = second_line_began.try_acquire_for(std::chrono::milliseconds(300));
  } else {
    second_line_began.release();
  }
}

TEST_F(Fork, ThreadsOfTheChildWriteOneLineAtATime) {
  set_print_interface(print_two_lines);
  EXPECT_EQ(fork_bounded([] {
              std::thread second([] {
                first_line_began.acquire();
                log_a_line();
              });
              log_a_line();
              second.join();
              return !lines_met && lines_printed == 2;
            }),
            ChildEnd::good);
}

TEST_F(Fork, ChildShowsItsOwnProcess) {
  log_text("from the parent\n");
  EXPECT_EQ(fork_bounded([] {
              log_text("from the child\n");
              const std::string identity =
                  " | [" + std::to_string(getpid()) + " | " + std::to_string(getpid()) + "-";
              return std::strstr(log_msg, identity.c_str()) != nullptr;
            }),
            ChildEnd::good);
}

// A child is found out in its first message, whether or not the kernel empties a page in it and fork handlers run.
class KernelsAdvice : public LogLock, public testing::WithParamInterface<Advice> {
 protected:
  void SetUp() override {
    advice = GetParam();
    LogLock::SetUp();
  }

  // A line is under way in another thread, whose lock the child inherits.
  static void expect_child_logs(pid_t (*make_child)()) {
    static std::binary_semaphore entered{0};
    static std::binary_semaphore left{0};
    set_print_interface([](const char* /*line*/) {
      entered.release();
      left.acquire();
    });
    std::thread logger(log_a_line);
    entered.acquire();
    set_print_interface(count_line);
    for (int generation = 0; generation < 2; ++generation) {
      const pid_t child = make_child();
      if (child == 0) {
        alarm(10);
        const bool first = child_logs();
        const bool good = child_logs() && first;
        const std::string identity = " | [" + std::to_string(getpid()) + " | ";
        _exit(good && std::strstr(log_msg, identity.c_str()) != nullptr ? 0 : 1);
      }
      int status = -1;
      EXPECT_EQ(child, waitpid(child, &status, 0));
      EXPECT_EQ(status, 0);
    }
    left.release();
    logger.join();
  }
};

TEST_P(KernelsAdvice, LeavesAForkedChildItsLines) { expect_child_logs(fork); }

TEST_P(KernelsAdvice, LeavesAChildWithoutForkHandlersItsLines) {
  if (kelo::tests::kThreadSanitizer)
    GTEST_SKIP() << "the thread sanitizer takes the child of a bare clone for its parent";
  expect_child_logs([] { return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)); });
}

std::string name_of(const testing::TestParamInfo<Advice>& info) {
  switch (info.param) {
    case Advice::followed:
      return "Followed";
    case Advice::refused:
      return "Refused";
    case Advice::ignored:
      break;
  }
  return "Ignored";
}

INSTANTIATE_TEST_SUITE_P(Fork, KernelsAdvice,
                         testing::Values(Advice::followed, Advice::refused, Advice::ignored), name_of);

TEST_F(Fork, ParentGoesOnLogging) {
  EXPECT_EQ(fork_bounded(child_logs), ChildEnd::good);
  std::thread(log_a_line).join();
  log_a_line();
  EXPECT_EQ(lines_printed, 2);
}

TEST_F(Fork, TwoThreadsForkWhileOthersLog) {
  const BackgroundLoggers loggers(2, log_a_line);
  std::array<std::thread, 2> forkers;
  std::atomic<int> bad{0};
  for (std::thread& forker : forkers) {
    forker = std::thread([&bad] {
      for (int i = 0; i < kForks / 2 && bad == 0; ++i)
        if (fork_bounded(child_logs) != ChildEnd::good) ++bad;
    });
  }
  for (std::thread& forker : forkers) forker.join();
  EXPECT_EQ(bad, 0);
}

// --- A fork while standard output is in use ------------------------------------------------------------------

// In a child of some C libraries, standard output stays locked when a thread of the parent held its lock.
void flush_stdout() {
  if (ftrylockfile(stdout) != 0) return;
  std::fflush(stdout);
  funlockfile(stdout);
}

// Standard output is a pipe, each line of it written at once, until take() or the end. What the stream holds before
// goes to the pipe, too.
class PipedStdout {
 public:
  PipedStdout() : kept_(dup(STDOUT_FILENO)) {
    set_print_interface(nullptr);
    if (kept_ < 0 || pipe2(ends_.data(), O_CLOEXEC) != 0 || dup2(ends_[1], STDOUT_FILENO) < 0) std::abort();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  }
  ~PipedStdout() {
    restore();
    close(ends_[0]);
  }
  PipedStdout(const PipedStdout&) = delete;
  PipedStdout& operator=(const PipedStdout&) = delete;

  // Leaves no place for a single byte.
  void fill() {
    const std::array<char, 4096> bytes{};
    fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    for (const std::size_t size : {bytes.size(), std::size_t{1}}) {
      while (write(ends_[1], bytes.data(), size) > 0) {
      }
    }
    fcntl(ends_[1], F_SETFL, 0);
  }

  std::size_t read_some(std::span<char> bytes) {
    const ssize_t count = read(ends_[0], bytes.data(), bytes.size());
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  // Ends the use of the pipe; returns what is in it.
  std::string take() {
    restore();
    std::string text;
    std::array<char, 4096> bytes;
    while (const std::size_t count = read_some(bytes)) text.append(bytes.data(), count);
    return text;
  }

  // Gives standard output of the parent back.
  void restore() {
    if (kept_ < 0) return;
    flush_stdout();
    dup2(kept_, STDOUT_FILENO);
    close(std::exchange(kept_, -1));
    close(std::exchange(ends_[1], -1));
  }

 private:
  int kept_;
  std::array<int, 2> ends_{-1, -1};
};

std::size_t count_of(std::string_view part, std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// Logs to a pipe of the child's own; whether the line comes out once, as a line of its own.
bool child_prints() {
  PipedStdout own;
  log_text("from the child\n");
  const std::string text = own.take();
  static const std::regex kLine(R"((^|\n)[-0-9 :.]+ : =ERR= \| \[[^\n]*\] \| f 1 \| from the child\n$)");
  return count_of("from the child", text) == 1 && std::regex_search(text, kLine);
}

void wait_until_asleep(const char* status_path) {
  for (bool asleep = false; !asleep; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
    std::string status;
    std::getline(std::ifstream(status_path), status, '\0');
    asleep = status.find(") S ") != std::string::npos;
  }
}

TEST_F(Fork, DoesNotWaitForStandardOutput) {
  std::fflush(stdout);
  PipedStdout full;
  full.fill();
  std::atomic<int> logger_id{0};
  std::thread logger([&] {
    logger_id = get_tid();
    log_text("from the parent\n");
  });
  while (logger_id == 0) std::this_thread::yield();
  wait_until_asleep(("/proc/self/task/" + std::to_string(logger_id) + "/stat").c_str());
  EXPECT_EQ(fork_bounded(child_prints), ChildEnd::good);
  std::array<char, 65536> bytes;
  (void)full.read_some(bytes);
  logger.join();
  EXPECT_EQ(count_of("from the parent", full.take()), 1U);
}

TEST_F(Fork, ChildrenPrintWholeLinesWhileThreadsDo) {
  std::fflush(stdout);
  PipedStdout output;
  std::string text;
  std::thread reader([&] {
    std::array<char, 4096> bytes;
    while (const std::size_t count = output.read_some(bytes)) text.append(bytes.data(), count);
  });
  int bad = 0;
  {
    const BackgroundLoggers loggers(kLoggers, log_a_line);
    for (int i = 0; i < kForks && bad == 0; ++i) {
      const ChildEnd end = fork_bounded([i] {
        std::array<char, KELO_LOG_BUFFER_SIZE> buffer;
        kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "from child %d.\n", i);
        return true;
      });
      if (end != ChildEnd::good) ++bad;
    }
  }
  output.restore();
  reader.join();
  EXPECT_EQ(bad, 0);
  for (int i = 0; i < kForks; ++i) {
    const std::string line = "] | f 1 | from child " + std::to_string(i) + ".\n";
    EXPECT_EQ(count_of(line, text), 1U) << line;
  }
}

// A C library that leaves the lock of the stream as the parent's other thread held it.
TEST_F(Fork, ChildPrintsPastAStreamThatIsLockedForGood) {
  stream_is_locked = true;
  EXPECT_EQ(ChildEnd::good, fork_bounded([] {
              std::array<int, 2> ends{};
              if (pipe2(ends.data(), O_CLOEXEC) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) return false;
              std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);  // keeps what is put into the stream
              set_print_interface(nullptr);
              log_text("from the child\n");
              std::array<char, KELO_LOG_LINE_SIZE> line{};
              fcntl(ends[0], F_SETFL, O_NONBLOCK);
              return read(ends[0], line.data(), line.size()) > 0 && std::strcmp(line.data(), log_msg) == 0;
            }));
}

// --- A fork from the print callback ------------------------------------------------------------------------

thread_local BoundedFork* wanted_child = nullptr;

void fork_and_count_line(const char* line) {
  count_line(line);
  if (wanted_child != nullptr) std::exchange(wanted_child, nullptr)->begin();
}

// Logs a line whose callback forks; the child leaves the callback, logs a line of its own and ends.
ChildEnd fork_in_callback() {
  BoundedFork child;
  wanted_child = &child;
  log_text("forks\n");
  if (child.in_child()) BoundedFork::finish(child_logs());
  return child.end();
}

TEST_F(Fork, FromTheCallback) {
  set_print_interface(fork_and_count_line);
  EXPECT_EQ(fork_in_callback(), ChildEnd::good);
  std::thread(log_a_line).join();
  EXPECT_EQ(lines_printed, 2) << "the parent's lock was given back";
}

TEST_F(Fork, FromTheCallbackWhileThreadsLog) {
  set_print_interface(fork_and_count_line);
  const BackgroundLoggers loggers(kLoggers, log_a_line);
  for (int i = 0; i < kForks; ++i) ASSERT_EQ(fork_in_callback(), ChildEnd::good) << "fork " << i;
}

TEST_F(Fork, ChildMayEndInTheCallback) {
  static BoundedFork child;
  set_print_interface([](const char*) {
    if (child.begin() == 0) {
      log_text("dropped as in any callback");
      BoundedFork::finish(!last_line_ends_with("dropped as in any callback"));
    }
  });
  log_text("forks\n");
  EXPECT_EQ(child.end(), ChildEnd::good);
}

// The child of a callback is inside the line as its parent is: a thread that it starts waits for the line's end.
TEST_F(Fork, ThreadOfTheChildWaitsForTheCallback) {
  static BoundedFork child;
  static std::thread second;
  static std::atomic<int> printed_meanwhile{-1};
  set_print_interface([](const char* line) {
    count_line(line);
    if (!child.in_child() && lines_printed == 1 && child.begin() == 0) {
      second = std::thread(log_a_line);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      printed_meanwhile = lines_printed - 1;
    }
  });
  log_text("forks\n");
  if (child.in_child()) {
    second.join();
    BoundedFork::finish(printed_meanwhile == 0 && lines_printed == 2);
  }
  EXPECT_EQ(child.end(), ChildEnd::good);
}

// --- Fork handlers of the program --------------------------------------------------------------------------

TEST_F(Fork, HandlersOfTheProgramMayLog) {
  ASSERT_EQ(pthread_atfork(log_a_line, log_a_line, log_a_line), 0);
  EXPECT_EQ(fork_bounded([] { return lines_printed == 2 && child_logs(); }), ChildEnd::good);
  EXPECT_EQ(lines_printed, 2) << "one before the fork and one after it";
}

// --- Handlers that were there before the first line --------------------------------------------------------

// Nothing has entered the lock when a body begins.
class BeforeTheFirstLine : public testing::Test {
 protected:
  void SetUp() override { alarm(120); }
};

void print_locally() {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
}

TEST_F(BeforeTheFirstLine, HandlersMayLog) {
  ASSERT_EQ(pthread_atfork(log_a_line, log_a_line, log_a_line), 0);
  print_locally();
  log_a_line();
  for (int forks = 1; forks <= 2; ++forks) {
    EXPECT_EQ(fork_bounded([forks] { return lines_printed == 1 + 2 * forks && child_logs(); }),
              ChildEnd::good);
    EXPECT_EQ(1 + 2 * forks, lines_printed) << "one before the fork and one after it";
  }
  std::thread(log_a_line).join();
  EXPECT_EQ(lines_printed, 6) << "the lock was given back";
}

TEST_F(BeforeTheFirstLine, CallbackMayLogInAHandler) {
  ASSERT_EQ(pthread_atfork(log_a_line, nullptr, nullptr), 0);
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char* line) {
    log_text("dropped as in any callback");
    count_line(line);
  });
  log_a_line();
  EXPECT_EQ(fork_bounded([] { return lines_printed == 2 && child_logs(); }), ChildEnd::good);
}

TEST_F(BeforeTheFirstLine, HandlerMayLogTheFirst) {
  static constexpr auto kLogTheFirst = [] {
    if (lines_printed == 0) print_locally();
    log_a_line();
  };
  ASSERT_EQ(pthread_atfork(kLogTheFirst, kLogTheFirst, kLogTheFirst), 0);
  EXPECT_EQ(fork_bounded([] { return lines_printed == 2 && child_logs(); }), ChildEnd::good);
  EXPECT_EQ(fork_bounded([] { return lines_printed == 4 && child_logs(); }), ChildEnd::good);
  EXPECT_EQ(lines_printed, 4);
}

// The fork has begun, and asked who wants to know of it, when another thread enters the lock for the first time.
std::binary_semaphore fork_began{0};
std::binary_semaphore line_began{0};
std::binary_semaphore child_ended{0};

TEST_F(BeforeTheFirstLine, AnotherThreadMayLogItDuringAFork) {
  static constexpr auto kAwaitTheLine = [] {
    fork_began.release();
    // A C library that allows no registration while a handler runs keeps the line back until the fork is over.
    (void)line_began.try_acquire_for(std::chrono::seconds(2));
  };
  ASSERT_EQ(pthread_atfork(kAwaitTheLine, nullptr, nullptr), 0);
  std::thread logger([] {
    fork_began.acquire();
    kelo_set_log_tool_enable(0);
    set_print_interface([](const char* line) {
      line_began.release();
      child_ended.acquire();
      count_line(line);
    });
    log_a_line();
  });
  EXPECT_EQ(fork_bounded([] {
              print_locally();
              return child_logs() && child_logs();
            }),
            ChildEnd::good);
  child_ended.release();
  logger.join();
  EXPECT_EQ(lines_printed, 1);
}

// --- Cancelled threads -------------------------------------------------------------------------------------

TEST_F(Cancel, ThreadEndsAfterItsLine) {
  static std::latch in_callback(1);
  static std::latch was_cancelled(1);
  static std::atomic<bool> left_the_line{false};
  set_print_interface([](const char*) {
    if (lines_printed++ > 0) return;
    in_callback.count_down();
    was_cancelled.wait();
    pthread_testcancel();
  });
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void*) -> void* {
                  log_text("text\n");
                  left_the_line = true;
                  pthread_testcancel();
                  return nullptr;
                },
                nullptr),
            0);
  in_callback.wait();
  ASSERT_EQ(pthread_cancel(thread), 0);
  was_cancelled.count_down();
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_TRUE(left_the_line);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(fork_bounded(child_logs), ChildEnd::good) << "the lock was given back";
}

TEST_F(Cancel, StateIsAsBefore) {
  for (const int state : {PTHREAD_CANCEL_DISABLE, PTHREAD_CANCEL_ENABLE}) {
    pthread_setcancelstate(state, nullptr);
    log_text("text\n");
    int after = -1;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &after);
    EXPECT_EQ(state, after);
  }
}

}  // namespace
