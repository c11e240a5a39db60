// SPDX-License-Identifier: MIT
// The library's own channel, read by a real peer at /dev/log.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <utility>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/background_loggers.hpp"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/c_library.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::BackgroundLoggers;
using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;
using kelo::tests::kGnuLibrary;

constexpr char kLogSocket[] = "/dev/log";

class SyslogPeer {
 public:
  SyslogPeer() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kLogSocket, sizeof kLogSocket);
    bound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~SyslogPeer() { leave(); }
  SyslogPeer(const SyslogPeer&) = delete;
  SyslogPeer& operator=(const SyslogPeer&) = delete;
  SyslogPeer(SyslogPeer&& other) noexcept : socket_(std::exchange(other.socket_, -1)), bound_(other.bound_) {}
  SyslogPeer& operator=(SyslogPeer&& other) noexcept {
    std::swap(socket_, other.socket_);
    bound_ = other.bound_;
    return *this;
  }

  void leave() {
    if (socket_ < 0) return;
    close(std::exchange(socket_, -1));
    unlink(kLogSocket);
  }

  [[nodiscard]] bool bound() const { return bound_; }
  [[nodiscard]] int socket() const { return socket_; }

  // The next record that waits; a record is there as soon as the call that logs it returns.
  std::optional<std::string> take() {
    std::array<char, 16384> record{};
    const ssize_t length = recv(socket_, record.data(), record.size(), MSG_DONTWAIT);
    if (length < 0) return std::nullopt;
    return std::string(record.data(), static_cast<std::size_t>(length));
  }

 private:
  int socket_;
  bool bound_ = false;
};

class DiagStandIn : public testing::Test {
 protected:
  void SetUp() override {
    alarm(120);
    ASSERT_TRUE(peer_.bound()) << std::strerror(errno);
    kelo_set_log_level(LOG_LVL_DBUG);
  }

  // The priority of the next record, whose text must be this one.
  int priority_of(const std::string& function, const std::string& text) {
    const std::optional<std::string> record = peer_.take();
    if (!record) return -1;
    std::smatch match;
    static const std::regex kForm(R"(^<(\d+)>[\s\S]*?: (KELO-FWA\[[\s\S]*)$)");
    if (!std::regex_match(*record, match, kForm)) {
      ADD_FAILURE() << "record of another form: " << *record;
      return -1;
    }
    std::string sent = "KELO-FWA[" + std::to_string(getpid()) + "] " + function + "(): " + text;
    // Some C libraries end each record that has no end.
    if (!kGnuLibrary && !sent.ends_with('\n')) sent += '\n';
    EXPECT_EQ(sent, match[2].str());
    return std::stoi(match[1]);
  }

  SyslogPeer peer_;
};

constexpr int kUser = 1 << 3;  // the facility of a program that names none

TEST_F(DiagStandIn, StartSucceeds) { EXPECT_NE(Diag_LSM_Init(nullptr), 0); }

TEST_F(DiagStandIn, PriorityPerLevel) {
  KELO_LOG(LOG_LVL_DBUG, "debug");
  EXPECT_EQ(priority_of("TestBody", "debug"), kUser | 7);
  KELO_LOG(LOG_LVL_INFO, "information");
  EXPECT_EQ(priority_of("TestBody", "information"), kUser | 6);
  KELO_LOG(LOG_LVL_WRN, "warning");
  EXPECT_EQ(priority_of("TestBody", "warning"), kUser | 4);
  KELO_LOG(LOG_LVL_ERR, "error");
  EXPECT_EQ(priority_of("TestBody", "error"), kUser | 3);
  KELO_LOG(LOG_LVL_CRT, "critical");
  EXPECT_EQ(priority_of("TestBody", "critical"), kUser | 2);
  KELO_LOG(LOG_LVL_EMR, "emergency");
  EXPECT_EQ(priority_of("TestBody", "emergency"), kUser | 0);
  KELO_LOG(-1, "always");
  EXPECT_EQ(priority_of("TestBody", "always"), kUser | 5);
  EXPECT_EQ(std::nullopt, peer_.take()) << "one record per message";
}

TEST_F(DiagStandIn, MaskOfNoLevelIsANotice) {
  const LogDiagDescriptor descriptor = {1, KELO_LOG_DIAG_SUBSYSTEM, 0x06, KELO_LOG_DIAG_FORMAT, "file.c"};
  msg_sprintf(&descriptor, static_cast<int>(getpid()), "f", "two levels");
  EXPECT_EQ(priority_of("f", "two levels"), kUser | 5);
}

TEST_F(DiagStandIn, LibraryMessage) {
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_EQ(priority_of("kelo_dm_unreg", "kelo_dm_unreg param NULL\n"), kUser | 3);
}

TEST_F(DiagStandIn, TextIsNotAFormat) {
  KELO_LOG(LOG_LVL_ERR, "%s", "100%s %n");
  EXPECT_EQ(priority_of("TestBody", "100%s %n"), kUser | 3);
}

TEST_F(DiagStandIn, LongestMessage) {
  if (!kGnuLibrary) GTEST_SKIP() << "syslog() of this C library cuts records of more than 1,024 bytes";
  const std::string text(KELO_LOG_BUFFER_SIZE - 1, 'm');
  KELO_LOG(LOG_LVL_ERR, "%s", text.c_str());
  EXPECT_EQ(priority_of("TestBody", text), kUser | 3);
}

TEST_F(DiagStandIn, NothingIsPrintedLocally) {
  kelo::tests::StdoutCapture capture;
  KELO_LOG(LOG_LVL_ERR, "text");
  EXPECT_EQ(capture.take(), "");
  EXPECT_STREQ(log_msg, "");
}

TEST_F(DiagStandIn, SuppressedAndLocalMessagesSendNothing) {
  kelo_set_log_level(LOG_LVL_CRT);
  KELO_LOG(LOG_LVL_ERR, "suppressed");
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) {});
  KELO_LOG(LOG_LVL_CRT, "local");
  EXPECT_EQ(std::nullopt, peer_.take());
}

TEST_F(DiagStandIn, KeepsErrno) {
  const LogDiagDescriptor descriptor = {1, KELO_LOG_DIAG_SUBSYSTEM, 0x08, KELO_LOG_DIAG_FORMAT, "file.c"};
  errno = EBUSY;
  msg_sprintf(&descriptor, static_cast<int>(getpid()), "f", "text");
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(priority_of("f", "text"), kUser | 3);
  peer_.leave();
  msg_sprintf(&descriptor, static_cast<int>(getpid()), "f", "to nobody");
  EXPECT_EQ(errno, EBUSY);
}

TEST_F(DiagStandIn, MayBeCalledFromThePrintCallback) {
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char* line) {
    const LogDiagDescriptor descriptor = {1, KELO_LOG_DIAG_SUBSYSTEM, 0x08, KELO_LOG_DIAG_FORMAT, "file.c"};
    msg_sprintf(&descriptor, static_cast<int>(getpid()), "f", line);
  });
  KELO_LOG(LOG_LVL_ERR, "text");
  EXPECT_EQ(priority_of("f", log_msg), kUser | 3);
}

TEST(DiagStandInAlone, MissingPeerIsNoHarm) {
  alarm(120);
  ASSERT_NE(access(kLogSocket, F_OK), 0);
  errno = EBUSY;
  KELO_LOG(LOG_LVL_ERR, "text");
  EXPECT_EQ(errno, EBUSY);
  const LogDiagDescriptor descriptor = {1, KELO_LOG_DIAG_SUBSYSTEM, 0x08, KELO_LOG_DIAG_FORMAT, "file.c"};
  msg_sprintf(&descriptor, static_cast<int>(getpid()), "f", "text");
  EXPECT_EQ(errno, EBUSY) << "also when syslog(3) finds nobody";
}

// --- The copy on standard error ------------------------------------------------------------------------------

// Starts the program that logs one message of each level. Its standard error is a pipe or a terminal.
class Speaker {
 public:
  static std::string errors_through_pipe(const std::string& variable, int* exit_status = nullptr) {
    std::FILE* const output =
        popen((variable + " " + kelo::tests::shell_command(kProgram) + " 2>&1 >/dev/null").c_str(), "r");
    std::string text;
    for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output)) text += static_cast<char>(c);
    const int status = pclose(output);
    if (exit_status != nullptr) *exit_status = status;
    return without_process_number(text);
  }

  static std::string errors_on_terminal(const std::string& variable) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) return "no terminal";
    const std::string command =
        variable + " " + kelo::tests::shell_command(kProgram) + " 2>" + ptsname(terminal);
    // While this end is open, what the program has written can be read after its end.
    const int other_end = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::string text;
    pollfd readable{terminal, POLLIN, 0};
    while (poll(&readable, 1, 200) == 1) {
      std::array<char, 4096> part{};
      const ssize_t size = read(terminal, part.data(), part.size());
      if (size <= 0) break;
      text.append(part.data(), static_cast<std::size_t>(size));
    }
    close(other_end);
    close(terminal);
    return without_process_number(std::regex_replace(text, std::regex("\r"), ""));
  }

 private:
  static constexpr char kProgram[] = KELO_BINARY_DIR "/tests/diag_stand_in_program";

  static std::string without_process_number(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(\[\d+\])"), "[PID]");
  }
};

constexpr char kDebug[] = "<15>diag_stand_in_program: KELO-FWA[PID] main(): debug\n";
constexpr char kInformation[] = "<14>diag_stand_in_program: KELO-FWA[PID] main(): information\n";
constexpr char kAlways[] = "<13>diag_stand_in_program: KELO-FWA[PID] main(): always\n";
constexpr char kWarning[] = "<12>diag_stand_in_program: KELO-FWA[PID] main(): warning\n";
constexpr char kError[] = "<11>diag_stand_in_program: KELO-FWA[PID] main(): error\n";
constexpr char kCritical[] = "<10>diag_stand_in_program: KELO-FWA[PID] main(): critical\n";
constexpr char kEmergency[] = "<8>diag_stand_in_program: KELO-FWA[PID] main(): emergency\n";

std::string all_from(std::size_t first) {
  const std::array<std::string, 7> lines = {kDebug, kInformation, kAlways,   kWarning,
                                            kError, kCritical,    kEmergency};
  std::string text;
  for (std::size_t i = first; i < lines.size(); ++i) text += lines.at(i);
  return text;
}

TEST(DiagStandInCopy, LevelsByNameAndNumber) {
  const std::array<std::pair<std::array<const char*, 3>, std::size_t>, 6> cases = {
      {{{"0", "DBUG", "dbug"}, 0},
       {{"1", "INFO", "Info"}, 1},
       {{"2", "WRN", "wrn"}, 3},
       {{"3", "ERR", "error"}, 4},
       {{"4", "CRT", "crt"}, 5},
       {{"5", "EMR", "emr"}, 6}}};
  for (const auto& [names, first] : cases) {
    for (const char* const name : names) {
      int status = -1;
      EXPECT_EQ(Speaker::errors_through_pipe(std::string("KELO_LOG_STDERR=") + name, &status),
                all_from(first))
          << name;
      EXPECT_EQ(status, 0);
    }
  }
}

TEST(DiagStandInCopy, NothingWithoutVariableAndTerminal) { EXPECT_EQ(Speaker::errors_through_pipe(""), ""); }

TEST(DiagStandInCopy, UnknownLevelIsSaidOnce) {
  constexpr char kComplaint[] =
      "<11>diag_stand_in_program: KELO-FWA[PID] KELO_LOG_STDERR(): verbose is no level\n";
  EXPECT_EQ(Speaker::errors_through_pipe("KELO_LOG_STDERR=verbose"), kComplaint + all_from(2));
}

TEST(DiagStandInCopy, TerminalWithoutSystemLog) {
  ASSERT_NE(access(kLogSocket, F_OK), 0);
  EXPECT_EQ(Speaker::errors_on_terminal(""), all_from(0));
  EXPECT_EQ(Speaker::errors_on_terminal("KELO_LOG_STDERR=CRT"), all_from(5)) << "the variable has priority";
}

TEST_F(DiagStandIn, TerminalIsQuietWhenThereIsASystemLog) {
  EXPECT_EQ(Speaker::errors_on_terminal(""), "");
  while (peer_.take()) {
  }
  EXPECT_EQ(Speaker::errors_on_terminal("KELO_LOG_STDERR=ERR"), all_from(4));
}

TEST_F(DiagStandIn, CopiedRecordsAreSentAsWell) {
  EXPECT_EQ(Speaker::errors_through_pipe("KELO_LOG_STDERR=EMR"), kEmergency);
  int records = 0;
  while (peer_.take()) ++records;
  EXPECT_EQ(records, 7);
}

TEST(DiagStandInCopy, PipeWithoutReaderIsNoHarm) {
  const std::string program = kelo::tests::shell_command(KELO_BINARY_DIR "/tests/diag_stand_in_program");
  const std::string command =
      "{ sleep 0.3; KELO_LOG_STDERR=0 " + program + "; echo $? >/tmp/status; } 2>&1 >/dev/null | true";
  EXPECT_EQ(std::system(command.c_str()), 0);
  std::array<char, 8> status{};
  std::FILE* const file = std::fopen("/tmp/status", "r");
  ASSERT_NE(file, nullptr);
  EXPECT_NE(std::fgets(status.data(), status.size(), file), nullptr);
  std::fclose(file);
  EXPECT_STREQ(status.data(), "0\n");
}

// --- Forks -------------------------------------------------------------------------------------------------

TEST_F(DiagStandIn, ChildrenLogWhileThreadsDo) {
  std::atomic<bool> stop{false};
  std::atomic<int> received{0};
  std::atomic<int> from_children{0};
  std::thread reader([&] {
    pollfd waiting{peer_.socket(), POLLIN, 0};
    std::array<char, 16384> record;
    while (!stop) {
      if (poll(&waiting, 1, 20) != 1) continue;
      const ssize_t length = recv(peer_.socket(), record.data(), record.size() - 1, MSG_DONTWAIT);
      if (length < 0) continue;
      record[static_cast<std::size_t>(length)] = '\0';
      ++received;
      if (std::strstr(record.data(), "from the child") != nullptr) ++from_children;
    }
  });
  auto log_through_the_library = [] { (void)kelo_dm_unreg(nullptr); };
  constexpr int kForks = 300;
  {
    const BackgroundLoggers loggers(4, log_through_the_library);
    for (int i = 0; i < kForks; ++i) {
      const ChildEnd end = fork_bounded([] {
        const LogDiagDescriptor site = KELO_LOG_DESCRIPTOR(LOG_LVL_ERR);
        std::array<char, KELO_LOG_BUFFER_SIZE> buffer;
        if (kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "from the child") != 1) return false;
        msg_sprintf(&site, static_cast<int>(getpid()), "f", buffer.data());
        return true;
      });
      if (end != ChildEnd::good) {
        ADD_FAILURE() << "fork " << i << (end == ChildEnd::hung ? " hung" : " failed");
        break;
      }
    }
  }
  stop = true;
  reader.join();
  while (const std::optional<std::string> record = peer_.take())
    if (record->find("from the child") != std::string::npos) ++from_children;
  EXPECT_EQ(from_children, kForks);
  EXPECT_LT(kForks, received);
}

void send_text(const char* text) {
  const LogDiagDescriptor site = KELO_LOG_DESCRIPTOR(LOG_LVL_ERR);
  msg_sprintf(&site, static_cast<int>(getpid()), "f", text);
}

// No daemon takes the records of the threads, so that one of them waits within syslog(3) when the process forks.
TEST_F(DiagStandIn, ChildLogsWhileAThreadWaitsForTheDaemon) {
  if (!kGnuLibrary) GTEST_SKIP() << "fork() of this C library waits until no thread is within syslog()";
  std::atomic<int> sent{0};
  std::atomic<bool> stop{false};
  std::thread sender([&] {
    for (; !stop; ++sent) send_text("from the parent");
  });
  for (int before = -1; sent == 0 || before != sent;) {
    before = sent;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(fork_bounded([this] {
              unlink(kLogSocket);
              SyslogPeer own;
              peer_ = std::move(own);
              for (const char* const text : {"from the child", "100%s"}) {
                send_text(text);
                if (priority_of("f", text) != (kUser | 3)) return false;
              }
              return fork_bounded([this] {
                       send_text("from the grandchild");
                       return priority_of("f", "from the grandchild") == (kUser | 3);
                     }) == ChildEnd::good;
            }),
            ChildEnd::good);
  stop = true;
  while (peer_.take()) {
  }
  sender.join();
}

TEST_F(DiagStandIn, ChildOfAQuietParentCallsSyslog) {
  send_text("from the parent");
  EXPECT_EQ(priority_of("f", "from the parent"), kUser | 3);
  openlog("ident", 0, LOG_DAEMON);
  EXPECT_EQ(fork_bounded([this] {
              send_text("from the child");
              return priority_of("f", "from the child") == (LOG_DAEMON | 3);
            }),
            ChildEnd::good);
}

}  // namespace
