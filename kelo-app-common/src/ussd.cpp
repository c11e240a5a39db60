// SPDX-License-Identifier: MIT
// Converts USSD messages to UTF-8 according to their data coding scheme.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "base/heap.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

// All messages about a conversion carry the name of the exported function.
#define USSD_LOG(level, ...) KELO_LOG_AS("kelo_util_convert_ussd_string_to_utf8", level, __VA_ARGS__)

namespace {

struct Message {
  unsigned dcs;
  std::span<const std::uint8_t> data;
  std::span<char> out;
};

// Logs the text in the output buffer. After a failed step the buffer still has the content of the caller, which may
// have no terminator.
void log_text(const Message& message, const char* coding) {
  const std::size_t most = std::min<std::size_t>(message.out.size(), KELO_LOG_BUFFER_SIZE);
  USSD_LOG(LOG_LVL_DBUG, "USSD DCS %s str, hi %d lo %d: %.*s\n", coding, static_cast<int>(message.dcs >> 4),
           static_cast<int>(message.dcs & 0x0F), static_cast<int>(most), message.out.data());
}

int decode_septets(const Message& message) {
  const int octets = static_cast<std::uint8_t>(message.data.size());  // the count has eight bits
  const int length = kelo_util_convert_gsm_def_alpha_string_to_utf8(message.data.data(), octets,
                                                                    message.out.data(), message.out.size());
  log_text(message, "7-bit");
  return length;
}

int decode_octets(const Message& message) {
  log_text(message, "8-bit");
  const std::size_t length = message.data.size();
  if (message.out.size() <= length + 1) {
    USSD_LOG(LOG_LVL_ERR, "Destination buffer (sz %zu) less than required %zu\n", message.out.size(),
             length + 1);
    return 0;
  }
  std::memcpy(message.out.data(), message.data.data(), length);
  message.out[length] = '\0';
  return static_cast<int>(length);
}

// Copies UCS-2 text and swaps the bytes of each pair. A single byte at the end is dropped.
void swap_pairs(std::span<const std::uint8_t> from, std::uint8_t* to) {
  for (std::size_t i = 0; i + 1 < from.size(); i += 2) {
    to[i] = from[i + 1];
    to[i + 1] = from[i];
  }
}

int decode_ucs2(const Message& message, std::size_t language_size) {
  const std::size_t length = message.data.size();
  const auto text = kelo::base::zeroed_array<std::uint8_t>(length + 1);
  if (!text) {
    USSD_LOG(LOG_LVL_ERR, "USC2 to UTF8 conversion failed due to lack of memory\n");
    return 0;
  }
  USSD_LOG(LOG_LVL_DBUG, "ussd string size%s = %d\n", language_size == 0 ? "" : " preceded by language",
           static_cast<int>(length));
  const std::size_t language = std::min(language_size, length);
  std::memcpy(text.get(), message.data.data(), language);
  swap_pairs(message.data.subspan(language), text.get() + language);
  const int converted =
      kelo_util_convert_ucs2_to_utf8(text.get(), length, message.out.data(), message.out.size());
  log_text(message, "UCS2");
  return static_cast<std::uint16_t>(converted);  // the length of text has sixteen bits for callers
}

enum class Coding : std::uint8_t { septets, octets, ucs2, ucs2_after_language };

int decode(const Message& message, Coding coding) {
  switch (coding) {
    case Coding::septets:
      return decode_septets(message);
    case Coding::octets:
      return decode_octets(message);
    case Coding::ucs2:
      return decode_ucs2(message, 0);
    case Coding::ucs2_after_language:
      return decode_ucs2(message, 2);
  }
  return 0;
}

// A group of data coding schemes: their bits under `mask` are `value`.
struct CodingGroup {
  std::uint8_t mask;
  std::uint8_t value;
  Coding coding;
};

// Schemes that belong to no group are not supported.
constexpr std::array<CodingGroup, 12> kCodingGroups = {{
    {0xF0, 0x00, Coding::septets},  // text in a language
    {0xFF, 0x10, Coding::septets},  // text after its language
    {0xFF, 0x11, Coding::ucs2_after_language},
    {0xE0, 0x20, Coding::septets},  // text in further languages
    {0xCC, 0x40, Coding::septets},  // general data coding
    {0xCC, 0x44, Coding::octets},
    {0xCC, 0x48, Coding::ucs2},
    {0xFC, 0x90, Coding::septets},  // messages with a user data header
    {0xFC, 0x94, Coding::octets},
    {0xFC, 0x98, Coding::ucs2},
    {0xF4, 0xF0, Coding::septets},  // message classes
    {0xF4, 0xF4, Coding::octets},
}};

}  // namespace

int kelo_util_UssdStringIsAscii(const char* text) {
  if (text == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  while (*text != '\0' && static_cast<std::uint8_t>(*text) < 0x80) ++text;
  return *text == '\0' ? 1 : 0;
}

int kelo_util_convert_ussd_string_to_utf8(std::uint8_t dcs, const std::uint8_t* data, int len, char* out,
                                          std::size_t out_size) {
  if (data == nullptr || len < 0 || out == nullptr) {
    USSD_LOG(LOG_LVL_ERR, "FATAL : CHECK FAILED\n");
    return 0;
  }
  for (const CodingGroup& group : kCodingGroups) {
    if ((dcs & group.mask) == group.value)
      return decode({dcs, {data, static_cast<std::size_t>(len)}, {out, out_size}}, group.coding);
  }
  return 0;
}
