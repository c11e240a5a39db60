// SPDX-License-Identifier: MIT
// Parts that several kinds of log lines have in common: function names and the time.
#ifndef KELO_LOG_LINE_PARTS_HPP
#define KELO_LOG_LINE_PARTS_HPP

#include "base/text_builder.hpp"

namespace kelo::log {

// The arguments are year, month, day, hour, minute, second and millisecond.
inline constexpr const char* kStampFormat = "%04d-%02d-%02d %02d:%02d:%02d.%03d";

// Appends a function name with "kelo" replaced by "oem", because field engineers know the functions by those names.
void append_display_name(base::TextBuilder& line, const char* func);

}  // namespace kelo::log

#endif  // KELO_LOG_LINE_PARTS_HPP
