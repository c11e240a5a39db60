// SPDX-License-Identifier: MIT
// Parts that several kinds of log lines have in common.
#include "log/line_parts.hpp"

#include <cstddef>
#include <cstring>

namespace kelo::log {

void append_display_name(base::TextBuilder& line, const char* func) {
  static constexpr char kProduct[] = "kelo";
  if (func == nullptr) {
    line.append("(null)");  // the text that the C library prints for a null string
    return;
  }
  while (const char* match = std::strstr(func, kProduct)) {
    line.append({func, static_cast<std::size_t>(match - func)}).append("oem");
    func = match + sizeof kProduct - 1;
  }
  line.append(func);
}

}  // namespace kelo::log
