// SPDX-License-Identifier: MIT
// Which of the two watch files takes a record, and records of several writers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/child_process.hpp"
#include "tests/support/stdout_capture.hpp"
#include "tests/support/watch_log.hpp"

namespace {

using kelo::tests::Fault;
using kelo::tests::kFull;
using kelo::tests::kWatchA;
using kelo::tests::kWatchB;
using kelo::tests::read_file;
using kelo::tests::run_in_child;
using kelo::tests::StdoutCapture;
using kelo::tests::WatchLog;

constexpr std::intmax_t kMissing = -1;

class WatchFiles : public WatchLog {
 protected:
  // Leaves both files as these sizes say.
  static void arrange(std::intmax_t a, std::intmax_t b) {
    const std::array<const char*, 2> paths = {kWatchA, kWatchB};
    const std::array<std::intmax_t, 2> sizes = {a, b};
    for (std::size_t i = 0; i < paths.size(); ++i) {
      std::filesystem::remove(paths[i]);
      if (sizes[i] != kMissing) make_file(paths[i], static_cast<std::uintmax_t>(sizes[i]));
    }
  }
};

std::string record(int line) { return "[123.46] f:" + std::to_string(line) + " t\n"; }

struct Choice {
  std::intmax_t size_of_a;
  std::intmax_t size_of_b;
  bool a;  // whether it takes the record
};

TEST_F(WatchFiles, SizeDecides) {
  const std::vector<Choice> choices = {
      {kMissing, kMissing, true},    {0, 0, true},
      {1048575, kMissing, true},     {1048576, kMissing, true},
      {1048577, kMissing, false},    {1048577, 0, false},
      {1048577, 1048575, false},     {1048577, 1048576, false},
      {1048576, 1048577, true},      {0, 1048577, true},
      {kMissing, 1048577, true},     {kMissing, 0, true},
      {1048576, 1048576, true},      {5000000000, kMissing, false},
      {2147483648, 1048576, false},  {4294967296, 1048576, false},
      {4294967297, kMissing, false}, {1048576, 4294967297, true},
  };
  for (const Choice& choice : choices) {
    SCOPED_TRACE(std::to_string(choice.size_of_a) + " " + std::to_string(choice.size_of_b));
    arrange(choice.size_of_a, choice.size_of_b);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    const auto size_of = [](const char* path) {
      return std::filesystem::exists(path) ? static_cast<std::intmax_t>(std::filesystem::file_size(path))
                                           : kMissing;
    };
    const auto grown = [](std::intmax_t size) {
      return (size == kMissing ? 0 : size) + static_cast<std::intmax_t>(record(1).size());
    };
    EXPECT_EQ(size_of(kWatchA), choice.a ? grown(choice.size_of_a) : choice.size_of_a);
    EXPECT_EQ(size_of(kWatchB), choice.a ? choice.size_of_b : grown(choice.size_of_b));
  }
}

TEST_F(WatchFiles, RecordGoesAfterWhatIsThere) {
  arrange(1048576, kMissing);
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  EXPECT_EQ(after(kWatchA, 1048576), record(1));
  EXPECT_EQ(oem_watch("f", 2, "t"), 0);
  EXPECT_EQ(after(kWatchA, 1048576), record(1));
  EXPECT_EQ(read_file(kWatchB), record(2));
}

// The turn begins with the process, so each of these has one of its own.
void in_own_process(const std::function<void()>& body) {
  const auto ended = run_in_child(body);
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

TEST_F(WatchFiles, FullFilesAreEmptiedInTurn) {
  in_own_process([] {
    for (int round = 0; round < 3; ++round) {
      arrange(kFull, kFull);
      EXPECT_EQ(oem_watch("f", 1, "t"), 0);
      EXPECT_EQ(oem_watch("f", 2, "t"), 0);
      EXPECT_EQ(read_file(kWatchA), record(1) + record(2));
      EXPECT_EQ(std::filesystem::file_size(kWatchB), kFull);
      make_file(kWatchA, kFull + 5);
      EXPECT_EQ(oem_watch("f", 3, "t"), 0);
      EXPECT_EQ(oem_watch("f", 4, "t"), 0);
      EXPECT_EQ(std::filesystem::file_size(kWatchA), kFull + 5);
      EXPECT_EQ(read_file(kWatchB), record(3) + record(4));
    }
  });
}

TEST_F(WatchFiles, TurnMovesOnlyWhenBothAreFull) {
  in_own_process([] {
    arrange(kFull, 5);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    arrange(5, kFull);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    arrange(kFull, kFull);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(read_file(kWatchA), record(1));
    arrange(kFull, 5);
    EXPECT_EQ(oem_watch("f", 2, "t"), 0);
    arrange(kFull, kFull);
    EXPECT_EQ(oem_watch("f", 3, "t"), 0);
    EXPECT_EQ(read_file(kWatchB), record(3));
    EXPECT_EQ(std::filesystem::file_size(kWatchA), kFull);
  });
}

TEST_F(WatchFiles, TurnStaysWhileTheWatchIsOffOrTimeless) {
  in_own_process([] {
    arrange(kFull, kFull);
    kelo::tests::write_file(kelo::tests::kWatchOption, "0");
    oem_watch("f", 1, "t");
    std::filesystem::remove(kelo::tests::kWatchOption);
    set_uptime("x");
    oem_watch("f", 1, "t");
    EXPECT_EQ(std::filesystem::file_size(kWatchA), kFull);
    EXPECT_EQ(std::filesystem::file_size(kWatchB), kFull);
    set_uptime("123.456");
    oem_watch("f", 1, "t");
    EXPECT_EQ(read_file(kWatchA), record(1));
  });
}

TEST_F(WatchFiles, FileThatCannotBeEmptiedIsReportedAndWritten) {
  in_own_process([] {
    for (const char* path : {kWatchA, kWatchB, kWatchA}) {
      arrange(kFull, kFull);
      StdoutCapture output;
      {
        const Fault fault({.call = "open", .code = EACCES, .at = 3});
        EXPECT_EQ(oem_watch("f", 1, "t"), 0);
      }
      EXPECT_EQ(output.take(), std::string("trunk ") + path + " file failed!!!\n");
      EXPECT_EQ(after(path, kFull), record(1));
      EXPECT_EQ(std::filesystem::file_size(path == kWatchA ? kWatchB : kWatchA), kFull);
    }
  });
}

TEST_F(WatchFiles, RecordGoesAfterTwoGibibytes) {
  in_own_process([] {
    constexpr std::intmax_t kSize = 3000000000;
    arrange(kSize, kFull);
    {
      const Fault fault({.call = "open", .code = EACCES, .at = 3});
      EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    }
    std::ifstream file(kWatchA);
    file.seekg(kSize);
    EXPECT_EQ(record(1), std::string(std::istreambuf_iterator<char>(file), {}));
  });
}

TEST_F(WatchFiles, FilesThatCannotBeWrittenStayAsTheyAre) {
  in_own_process([] {
    arrange(kFull, kFull);
    ASSERT_EQ(chmod(kWatchA, 0444), 0);
    ASSERT_EQ(chmod(kWatchB, 0444), 0);
    StdoutCapture output;
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(output.take(),
              std::string("trunk ") + kWatchA + " file failed!!!\ntrunk " + kWatchB + " file failed!!!\n");
    EXPECT_EQ(std::filesystem::file_size(kWatchA), kFull);
    EXPECT_EQ(std::filesystem::file_size(kWatchB), kFull);
  });
}

// --- Several writers

// Calls of write() that the calling thread has made, as the kernel counts them; -1 where it does not.
long write_calls() {
  std::ifstream counters("/proc/thread-self/io");
  std::string name;
  long value = 0;
  while (counters >> name >> value)
    if (name == "syscw:") return value;
  return -1;
}

TEST_F(WatchFiles, RecordOfUpTo4096BytesIsOneWrite) {
  if (write_calls() < 0) GTEST_SKIP() << "the kernel does not count";
  if (!kelo::tests::kGnuLibrary) GTEST_SKIP() << "streams of this C library hold 1,024 bytes";
  for (const std::size_t size : {30U, 1000U, 4095U, 4096U}) {
    const std::string text(size - record(1).size() + 1, 'x');
    std::filesystem::remove(kWatchA);
    const long before = write_calls();
    EXPECT_EQ(oem_watch("f", 1, "%s", text.c_str()), 0);
    EXPECT_EQ(write_calls() - before, 1) << size;
    EXPECT_EQ(std::filesystem::file_size(kWatchA), size);
  }
}

constexpr int kRecords = 150;

// Records of many lengths, each of one letter.
void write_records(char writer) {
  const std::string name(1, writer);
  for (int i = 0; i < kRecords; ++i) {
    const std::string text(static_cast<std::size_t>(1 + i * 37 % 4000), writer);
    EXPECT_EQ(oem_watch(name.c_str(), i, "%s", text.c_str()), 0);
  }
}

// Every line of both files is a whole record, and each writer's are in their order.
void expect_whole_records(const std::string& writers) {
  std::map<char, int> next;
  std::istringstream lines(read_file(kWatchA) + (std::filesystem::exists(kWatchB) ? read_file(kWatchB) : ""));
  for (std::string line; std::getline(lines, line);) {
    ASSERT_GT(line.size(), 10U);
    const char writer = line[9];
    const int number = next[writer]++;
    ASSERT_EQ(line, "[123.46] " + std::string(1, writer) + ":" + std::to_string(number) + " " +
                        std::string(static_cast<std::size_t>(1 + number * 37 % 4000), writer));
  }
  for (const char writer : writers) EXPECT_EQ(next[writer], kRecords) << writer;
}

TEST_F(WatchFiles, RecordsOfProcessesAreWhole) {
  std::vector<pid_t> children;
  for (const char writer : {'a', 'b', 'c'}) {
    const pid_t child = fork();
    if (child == 0) {
      write_records(writer);
      _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  expect_whole_records("abc");
}

TEST_F(WatchFiles, RecordsOfThreadsAreWhole) {
  std::vector<std::thread> threads;
  for (const char writer : {'a', 'b', 'c'}) threads.emplace_back([writer] { write_records(writer); });
  for (std::thread& thread : threads) thread.join();
  expect_whole_records("abc");
}

// Both may empty a file at once: no more than the files' content can be lost.
TEST_F(WatchFiles, ThreadsMayEmptyTheFilesTogether) {
  in_own_process([] {
    arrange(kFull, kFull);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([] {
        for (int round = 0; round < 100; ++round) {
          EXPECT_EQ(oem_watch("f", 1, "t"), 0);
          if (round % 10 == 0) {
            EXPECT_EQ(truncate(kWatchA, kFull), 0);
            EXPECT_EQ(truncate(kWatchB, kFull), 0);
          }
        }
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(std::filesystem::file_size(kWatchA), kFull + 400 * record(1).size());
  });
}

}  // namespace
