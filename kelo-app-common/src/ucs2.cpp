// SPDX-License-Identifier: MIT
// Converts between UCS-2 text in byte arrays and UTF-8.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

using kelo::utf::output_limit;
using kelo::utf::valid_length;

constexpr std::size_t kUcs2Terminator = 2;

// Returns the length of converted text. If the conversion has written more than `room` bytes, that is logged.
std::size_t bounded_length(const char* function, std::size_t length, std::size_t room) {
  if (length <= room) return length;
  // The text and the name in it are the same for both directions, because crash logs are searched for them.
  KELO_LOG_AS(function, LOG_LVL_ERR,
              "Bug in kelo_util_ConvertUTF16toUTF8. Buffer overrun detected. Size %zu greater than %zu\n",
              length, room);
  return room;
}

}  // namespace

int kelo_util_convert_ucs2_to_utf8(const std::uint8_t* ucs2, std::size_t byte_len, char* out,
                                   std::size_t out_size) {
  const std::size_t length = valid_length(byte_len);
  const std::size_t size = output_limit(out_size);
  auto* const start = reinterpret_cast<std::uint8_t*>(out);
  std::uint8_t* end = start;

  int result = KELO_UNICODE_SOURCE_ILLEGAL;
  if (ucs2 != nullptr && length != 0) {
    result = KELO_UNICODE_TARGET_EXHAUSTED;
    if (out != nullptr && size != 0) {
      const auto* source = reinterpret_cast<const std::uint16_t*>(ucs2);
      const auto* const source_end = reinterpret_cast<const std::uint16_t*>(ucs2 + length);
      result =
          kelo_util_ConvertUTF16toUTF8(&source, source_end, &end, start + size - 1, KELO_UNICODE_LENIENT);
    }
  }
  if (result == KELO_UNICODE_TARGET_EXHAUSTED) {
    KELO_LOG(LOG_LVL_DBUG, "String has been truncated. Buffer size of %zu not large enough\n", out_size);
  } else if (result != KELO_UNICODE_COMPLETE) {
    KELO_LOG(LOG_LVL_ERR, "Error in converting ucs2 string to utf8\n");
  }
  if (out == nullptr) KELO_LOG(LOG_LVL_ERR, "utf8str or utf8Start is NULL\n");
  if (out == nullptr || size == 0) return 0;

  const std::size_t written = bounded_length(__func__, static_cast<std::size_t>(end - start), size - 1);
  out[written] = '\0';
  return static_cast<int>(written);
}

int kelo_util_convert_utf8_to_ucs2(const char* utf8, std::size_t len, std::uint8_t* ucs2_out,
                                   std::size_t out_size) {
  if (utf8 == nullptr || ucs2_out == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "Invalid parameters. utf8str: %p, ucs2str: %p\n", static_cast<const void*>(utf8),
             static_cast<void*>(ucs2_out));
    return 0;
  }
  const std::size_t size = output_limit(out_size);
  const std::size_t room = size - std::min(size, kUcs2Terminator);
  const auto* source = reinterpret_cast<const std::uint8_t*>(utf8);
  auto* end = reinterpret_cast<std::uint16_t*>(ucs2_out);
  const int result =
      kelo_util_ConvertUTF8toUTF16(&source, source + valid_length(len), &end,
                                   reinterpret_cast<std::uint16_t*>(ucs2_out + room), KELO_UNICODE_STRICT);
  if (result == KELO_UNICODE_TARGET_EXHAUSTED) {
    KELO_LOG(LOG_LVL_ERR, "String has been truncated. Buffer size of %zu not large enough\n", out_size);
  } else if (result != KELO_UNICODE_COMPLETE) {
    KELO_LOG(LOG_LVL_ERR, "Error in converting utf8 string to ucs2\n");
  }
  const auto converted = static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(end) - ucs2_out);
  const std::size_t written = bounded_length(__func__, converted, room);
  std::fill_n(ucs2_out + written, std::min(size - written, kUcs2Terminator), std::uint8_t{0});
  return static_cast<int>(written);
}
