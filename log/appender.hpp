// Text put together in a fixed buffer.
#ifndef KELO_LOG_APPENDER_HPP
#define KELO_LOG_APPENDER_HPP

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "kelo_utils/base.h"

namespace kelo::log {

// Writes text behind text in a fixed buffer, cutting what does not fit; the buffer stays terminated.
class Appender {
 public:
  explicit Appender(std::span<char> buffer) : rest_(buffer) { rest_.front() = '\0'; }

  KELO_PRINTF(2, 3) void print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(rest_.data(), rest_.size(), format, arguments);
    va_end(arguments);
    if (length > 0) advance(static_cast<std::size_t>(length));
  }

  void append(std::string_view text) {
    const std::size_t kept = std::min(text.size(), rest_.size() - 1);
    std::memcpy(rest_.data(), text.data(), kept);
    rest_[kept] = '\0';
    advance(kept);
  }

 private:
  void advance(std::size_t length) { rest_ = rest_.subspan(std::min(length, rest_.size() - 1)); }

  std::span<char> rest_;  // never empty: its first byte is the terminator
};

// Engineers in the field know the functions by their "oem" names.
inline void append_display_name(Appender& line, const char* func) {
  static constexpr char kProduct[] = "kelo";
  if (func == nullptr) {
    line.append("(null)");  // as the C library prints a null string
    return;
  }
  while (const char* match = std::strstr(func, kProduct)) {
    line.append({func, static_cast<std::size_t>(match - func)});
    line.append("oem");
    func = match + sizeof kProduct - 1;
  }
  line.append(func);
}

}  // namespace kelo::log

#endif  // KELO_LOG_APPENDER_HPP
