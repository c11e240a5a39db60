// SPDX-License-Identifier: MIT
// The watch log, which consists of two files that are emptied in turn.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <span>

#include "base/file.hpp"
#include "log/library_log.hpp"

namespace {

constexpr char kFileA[] = "/data/oem/logs/fwawatchA.log";
constexpr char kFileB[] = "/data/oem/logs/fwawatchB.log";
constexpr char kOptionFile[] = "/kelonv/data/fwawatch_option";
constexpr char kUptimeFile[] = "/proc/uptime";
constexpr off_t kFullSize = 1048576;  // a larger file counts as full

// The stream writes the content of its buffer with one call, so other records never split a record up to this size.
constexpr std::size_t kWholeRecord = 4096;

// When both files are full, this tells whether B is emptied next. No lock guards it: two threads may change it at the
// same time, just as both may empty a file.
std::atomic<bool> empty_b_next{false};

// Reads the start of a file into `text` and terminates it. Returns false when nothing could be read.
bool read_text(const char* path, std::span<char> text) {
  const kelo::base::Descriptor file = kelo::base::open_file(path, O_RDONLY);
  if (!file) return false;
  const ssize_t count = kelo::base::read_some(file.get(), text.first(text.size() - 1));
  if (count <= 0) return false;
  text[static_cast<std::size_t>(count)] = '\0';
  return true;
}

bool switched_off() {
  std::array<char, 128 + 1> option;
  return read_text(kOptionFile, option) && std::strtol(option.data(), nullptr, 10) == 0;
}

std::optional<double> uptime() {
  std::array<char, 128> text;
  if (!read_text(kUptimeFile, text)) return {};
  char* end = nullptr;
  const double seconds = std::strtod(text.data(), &end);
  if (end == text.data()) return {};
  return seconds;
}

bool is_full(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && status.st_size > kFullSize;
}

void empty(const char* path) {
  if (!kelo::base::open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0666))
    std::fprintf(stdout, "trunk %s file failed!!!\n", path);
}

const char* choose_file() {
  if (!is_full(kFileA)) return kFileA;
  if (!is_full(kFileB)) return kFileB;
  const bool b = empty_b_next.load(std::memory_order_relaxed);
  empty_b_next.store(!b, std::memory_order_relaxed);
  const char* const path = b ? kFileB : kFileA;
  empty(path);
  return path;
}

}  // namespace

int oem_watch(const char* name, int line, const char* fmt, ...) {
  if (fmt == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  const kelo::base::ErrnoKeeper keep;
  if (switched_off()) return 0;
  const std::optional<double> seconds = uptime();
  if (!seconds) return 0;
  std::array<char, kWholeRecord> buffer;
  kelo::base::Stream file(std::fopen(choose_file(), "ae"));
  if (!file) return 0;
  std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  std::fprintf(file.get(), "[%.2f] %s:%d ", *seconds, name != nullptr ? name : "(null)", line);
  va_list arguments;
  va_start(arguments, fmt);
  std::vfprintf(file.get(), fmt, arguments);
  va_end(arguments);
  std::fputs("\n", file.get());
  return std::fclose(file.release());
}
