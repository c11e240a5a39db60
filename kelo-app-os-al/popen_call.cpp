// SPDX-License-Identifier: MIT
// Runs shell commands and captures their standard output line by line.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include "base/deadline.hpp"
#include "base/heap.hpp"
#include "base/line_reader.hpp"
#include "base/pipe_stream.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::LineReader;
using kelo::base::PipeStream;
using kelo::base::TextBuilder;

// The exported functions, with which their steps log too. They do not use __func__, which would be a second text.
constexpr char kCall[] = "kelo_popen_call";
constexpr char kCallEx[] = "kelo_popen_call_ex";

constexpr char kFailed[] = "popen call:%s fail[%s]\n";
constexpr char kInvalid[] = "parameter invaild!";
constexpr char kNullText[] = "(null)";  // the text that the C library prints for a null string
constexpr std::size_t kLongestPiece = 510;

// Fills the caller's buffer with zeros and starts the result in it.
TextBuilder zeroed_result(std::span<char> buffer) {
  std::fill(buffer.begin(), buffer.end(), '\0');
  return TextBuilder(buffer);
}

// Returns a line up to its first NUL byte. The result is a C string, so its readers could not see the rest of the line.
std::string_view text_of(std::string_view line) { return {line.data(), strnlen(line.data(), line.size())}; }

// Returns the complete lines at the start of `arrived` that fit into `room` bytes and contain no NUL byte.
std::string_view plain_lines(std::string_view arrived, std::size_t room) {
  const std::size_t length = strnlen(arrived.data(), std::min(arrived.size(), room));
  const std::string_view plain(arrived.data(), length);
  return {arrived.data(),
          plain.rfind('\n') + 1};  // without a newline rfind() returns npos, and npos + 1 is 0
}

// Keeps complete lines until a line does not fit. Returns false when memory runs out.
bool capture_lines(const PipeStream& pipe, std::span<char> buffer) {
  const auto storage = kelo::base::zeroed_array<char>(buffer.size());
  if (!storage) {
    KELO_LOG_AS(kCall, LOG_LVL_ERR, "result_str is NULL!");
    return false;
  }
  TextBuilder result = zeroed_result(buffer);
  // A piece of a longer line leaves space for one more character and the terminator.
  const std::size_t longest_piece = std::max<std::size_t>(buffer.size(), 2) - 2;
  LineReader lines(pipe.descriptor(), {storage.get(), longest_piece});
  for (std::string_view line = lines.next(); !line.empty(); line = lines.next()) {
    const std::string_view text = text_of(line);
    const std::size_t before = result.size();
    if (before + text.size() >= buffer.size()) {
      KELO_LOG_AS(kCall, LOG_LVL_ERR, "result_buf Exceeded max len.\n");
      break;
    }
    result.append(text);
    KELO_LOG_AS(kCall, LOG_LVL_DBUG, "Line string:%s", result.c_str() + before);
    if (kelo::log::passes(LOG_LVL_DBUG)) continue;
    // Short lines take most of the time, so lines that need not be logged are copied together.
    const std::string_view more = plain_lines(lines.pending(), buffer.size() - 1 - result.size());
    result.append(more);
    lines.skip(more.size());
  }
  return true;
}

// Keeps the output that fits.
void capture_pieces(const PipeStream& pipe, std::span<char> buffer) {
  std::array<char, kLongestPiece> storage;
  std::array<char, 1> no_buffer;
  TextBuilder result = zeroed_result(buffer.empty() ? no_buffer : buffer);
  LineReader lines(pipe.descriptor(), storage);
  for (std::string_view line = lines.next(); !line.empty(); line = lines.next()) {
    const std::string_view text = text_of(line);
    KELO_LOG_AS(kCallEx, LOG_LVL_DBUG, "%.*s\n", static_cast<int>(text.size()), text.data());
    const std::size_t taken = result.size() + 2;  // callers rely on the last byte but one being zero
    const std::size_t room = buffer.size() > taken ? buffer.size() - taken : 0;
    result.append({text.data(), std::min(text.size(), room)});
    if (result.size() + 1 == buffer.size()) {
      KELO_LOG_AS(kCallEx, LOG_LVL_DBUG, "len=%d,%d\n", static_cast<int>(result.size()),
                  static_cast<int>(buffer.size()) - 1);
      break;
    }
  }
}

// Returns the caller's buffer. It is empty when `size` is not positive.
std::span<char> buffer_of(char* buffer, std::int32_t size) {
  return {buffer, size > 0 ? static_cast<std::size_t>(size) : 0};
}

// Callers rely on this pause, during which the command produces its output. Signals do not shorten it.
void pause_for_output() {
  constexpr unsigned kSecond = 1'000'000;
  static_cast<void>(kelo::base::Deadline(1000).pause(kSecond));
}

}  // namespace

int kelo_popen_call(const char* command, char* result, std::int32_t size) {
  if (command == nullptr) {
    KELO_LOG_AS(kCall, LOG_LVL_ERR, kFailed, kNullText, kInvalid);
    return -1;
  }
  const PipeStream pipe = PipeStream::reading(command);
  if (!pipe) {
    KELO_LOG_AS(kCall, LOG_LVL_ERR, kFailed, command, std::strerror(errno));
    return -1;
  }
  const char* shown = kNullText;
  if (result != nullptr) {
    const std::span<char> buffer = buffer_of(result, size);
    if (!buffer.empty() && !capture_lines(pipe, buffer)) return -1;
    shown = buffer.empty() ? "" : result;
  }
  KELO_LOG_AS(kCall, LOG_LVL_DBUG, "popen call: %s success. result string:%s\n", command, shown);
  return 0;
}

int kelo_popen_call_ex(const char* command, char* result, std::int32_t size) {
  if (command == nullptr || result == nullptr) {
    KELO_LOG_AS(kCallEx, LOG_LVL_ERR, kFailed, command == nullptr ? kNullText : command, kInvalid);
    return -1;
  }
  const PipeStream pipe = PipeStream::reading(command);
  if (!pipe) {
    KELO_LOG_AS(kCallEx, LOG_LVL_ERR, kFailed, command, std::strerror(errno));
    return -1;
  }
  pause_for_output();
  capture_pieces(pipe, buffer_of(result, size));
  return 0;
}
