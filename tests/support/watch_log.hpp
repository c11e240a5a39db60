// SPDX-License-Identifier: MIT
// The watch log under test: an uptime of the test's choice, opens that fail, and the two files. Include it in
// exactly one source file of a test program.
//
// The calls that can be made to fail are: open, fopen and read.
#ifndef KELO_TESTS_SUPPORT_WATCH_LOG_HPP
#define KELO_TESTS_SUPPORT_WATCH_LOG_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/log.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/fault.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline constexpr char kWatchFolder[] = "/data/oem/logs";
inline constexpr char kWatchA[] = "/data/oem/logs/fwawatchA.log";
inline constexpr char kWatchB[] = "/data/oem/logs/fwawatchB.log";
inline constexpr char kWatchOption[] = "/kelonv/data/fwawatch_option";
inline constexpr char kChosenUptime[] = "/tmp/uptime";
inline constexpr std::uintmax_t kFull = 1048577;  // the smallest size of a full file

// Whether "/proc/uptime" opens the chosen one.
inline bool uptime_is_chosen = true;

struct WatchedOpen {
  std::string path;
  bool closes_on_exec;
};
// While it is set, every open of a file is put down there.
inline std::vector<WatchedOpen>* watched_opens = nullptr;

// Each test begins with an empty folder, without an option file, 123.456 seconds after boot. It ends with the
// descriptors that it began with and nothing logged.
class WatchLog : public testing::Test {
 protected:
  WatchLog() {
    std::filesystem::remove_all("/data/oem");
    std::filesystem::remove_all(kWatchOption);
    std::filesystem::create_directories(kWatchFolder);
    set_uptime("123.456 99.00\n");
    uptime_is_chosen = true;
  }
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_before_);
    EXPECT_TRUE(log.lines().empty()) << log.dump();
  }

  static void set_uptime(std::string_view text) { write_file(kChosenUptime, text); }

  // A file of that size, zeros where nothing was written.
  static void make_file(const char* path, std::uintmax_t size) {
    write_file(path, "");
    std::filesystem::resize_file(path, size);
  }

  // What follows the first `size` bytes of a file.
  static std::string after(const char* path, std::size_t size) {
    const std::string bytes = read_file(path);
    return bytes.size() < size ? "shorter: " + std::to_string(bytes.size()) : bytes.substr(size);
  }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

// The library is built with wide file offsets, which have names of their own.
int open64(const char* path, int flags, ...) {
  static const auto real = kelo::tests::next_call("open64", open64);
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  if (kelo::tests::watched_opens != nullptr)
    kelo::tests::watched_opens->push_back({path, (flags & O_CLOEXEC) != 0});
  if (kelo::tests::Fault::meets("open")) return -1;
  const bool replaced = kelo::tests::uptime_is_chosen && std::string_view(path) == "/proc/uptime";
  return real(replaced ? kelo::tests::kChosenUptime : path, flags, mode);
}

std::FILE* fopen64(const char* path, const char* mode) {
  static const auto real = kelo::tests::next_call("fopen64", fopen64);
  if (kelo::tests::watched_opens != nullptr)
    kelo::tests::watched_opens->push_back({path, std::string_view(mode).find('e') != std::string_view::npos});
  return kelo::tests::Fault::meets("fopen") ? nullptr : real(path, mode);
}

ssize_t read(int fd, void* bytes, std::size_t size) {
  static const auto real = kelo::tests::next_call("read", read);
  return kelo::tests::Fault::meets("read") ? -1 : real(fd, bytes, size);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_WATCH_LOG_HPP
