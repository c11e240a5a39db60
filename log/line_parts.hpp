// SPDX-License-Identifier: MIT
// Parts that several kinds of log lines have in common: function names and the time.
#ifndef KELO_LOG_LINE_PARTS_HPP
#define KELO_LOG_LINE_PARTS_HPP

#include <initializer_list>

#include "base/text_builder.hpp"

namespace kelo::log {

// Appends year, month, day, hour, minute, second and millisecond as "2024-05-06 07:08:09.010". printf() takes three times
// as long.
void append_stamp(base::TextBuilder& line, std::initializer_list<int> fields);

// Appends a function name with "kelo" replaced by "oem", because field engineers know the functions by those names.
void append_display_name(base::TextBuilder& line, const char* func);

}  // namespace kelo::log

#endif  // KELO_LOG_LINE_PARTS_HPP
