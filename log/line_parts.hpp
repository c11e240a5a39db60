// Parts that lines of several kinds share: names of functions and the time.
#ifndef KELO_LOG_LINE_PARTS_HPP
#define KELO_LOG_LINE_PARTS_HPP

#include "base/text_builder.hpp"

namespace kelo::log {

// Year, month, day, hour, minute, second and millisecond.
inline constexpr const char* kStampFormat = "%04d-%02d-%02d %02d:%02d:%02d.%03d";

// Engineers in the field know the functions by their "oem" names.
void append_display_name(base::TextBuilder& line, const char* func);

}  // namespace kelo::log

#endif  // KELO_LOG_LINE_PARTS_HPP
