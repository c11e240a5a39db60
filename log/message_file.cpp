// SPDX-License-Identifier: MIT
// Appends single messages to a file through the shell.
#include <sys/time.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <span>
#include <string_view>

#include "base/heap.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"
#include "log/line_parts.hpp"

namespace {

using kelo::base::TextBuilder;
using kelo::base::zeroed_array;

constexpr std::size_t kCommandSize = 2048;
constexpr std::size_t kLongLineSize = 8440;
constexpr std::size_t kLongCommandSize = 12660;

using Stamp = kelo::base::FixedText<64>;

Stamp local_stamp() {
  timeval now{};
  gettimeofday(&now, nullptr);
  // localtime_r() alone may not notice that the time zone has changed since its first use.
  tzset();
  tm local{};
  localtime_r(&now.tv_sec, &local);
  Stamp stamp;
  kelo::log::append_stamp(stamp, {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                                  local.tm_min, local.tm_sec, static_cast<int>(now.tv_usec / 1000)});
  return stamp;
}

// Appends a line, which is given in pieces, to the file. The command is composed in `buffer`. Nothing is escaped: some
// callers rely on the shell to expand values in the text.
int echo_into(const char* path, std::initializer_list<std::string_view> line, std::span<char> buffer) {
  TextBuilder command(buffer);
  command.append("echo \"");
  for (const std::string_view piece : line) command.append(piece);
  command.append("\" >> ").append(path);
  return kelo_system_call(command.c_str(), static_cast<std::uint32_t>(command.size()));
}

}  // namespace

int kelo_write_msg2file(const char* path, const char* msg) {
  if (path == nullptr || msg == nullptr) return kelo::log::param_null(__func__);
  std::array<char, kCommandSize> command;
  return echo_into(path, {"[", local_stamp().view(), "]", msg}, command);
}

void kelo_write_msg2file_ex(char* buf, const char* path, const char* func, const char* fmt, ...) {
  if (buf == nullptr || path == nullptr || fmt == nullptr) {
    kelo::log::param_null(__func__);
    return;
  }
  const Stamp stamp = local_stamp();
  va_list arguments;
  va_start(arguments, fmt);
  const int length = std::vsnprintf(buf, KELO_LOG_BUFFER_SIZE, fmt, arguments);
  va_end(arguments);
  if (length < 0) *buf = '\0';
  const auto text = zeroed_array<char>(kLongLineSize);
  if (!text) return;
  const auto command = zeroed_array<char>(kLongCommandSize);
  if (!command) return;
  // Without a function name an empty line is appended.
  if (func != nullptr) {
    TextBuilder line({text.get(), kLongLineSize});
    line.put('[').append(stamp.view()).put(']');
    kelo::log::append_display_name(line, func);
    line.append(": ").append(buf);
  }
  echo_into(path, {text.get()}, {command.get(), kLongCommandSize});
}
