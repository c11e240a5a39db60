// SPDX-License-Identifier: MIT
// Converts 8-bit text of supplementary services, which is ISO 8859-1, to UTF-8.
#include <cstddef>
#include <cstdint>

#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

using kelo::utf::output_limit;
using kelo::utf::valid_length;

// A character of ISO 8859-1 takes at most two bytes in UTF-8.
constexpr std::size_t kMostBytes = 2;

}  // namespace

int kelo_util_ss_ascii_to_utf8(const char* text, std::size_t len, char* out, std::size_t out_size) {
  const std::size_t length = valid_length(len);
  const std::size_t size = output_limit(out_size);
  if (text == nullptr || out == nullptr || length == 0 || size == 0) {
    KELO_LOG(LOG_LVL_ERR, "Invalid parameters; ascii_str = %p, utf8_str = %p\n",
             static_cast<const void*>(text), static_cast<void*>(out));
    return 0;
  }
  if (size / kMostBytes < length) {
    KELO_LOG(LOG_LVL_ERR, "the utf8 str buffer length is not enough\n");
    return 0;
  }

  std::size_t written = 0;
  for (std::size_t i = 0; i < length && written < size - 1; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    if (byte > 127) {
      if (written + 1 < size - 1) {
        out[written++] = static_cast<char>(0xC0 | byte >> 6);
        out[written++] = static_cast<char>(0x80 | (byte & 0x3F));
      } else {
        KELO_LOG(LOG_LVL_INFO,
                 "ignored extended character at index = %d not enough bytes. al: %uui: %u us: %u\n",
                 static_cast<int>(i), static_cast<unsigned>(length), static_cast<unsigned>(written),
                 static_cast<unsigned>(out_size));
      }
    } else if (byte == '\r') {
      KELO_LOG(LOG_LVL_INFO, "ignored charecter at index = %d \n", static_cast<int>(i));
    } else {
      out[written++] = text[i];
    }
  }
  out[written] = '\0';
  return static_cast<int>(written);
}
