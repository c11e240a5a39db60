/* SPDX-License-Identifier: MIT */
/**
 * @file text.hpp
 * @brief The C++ face: conversions of text with std::string.
 *
 * The functions keep no state. Texts with a NUL in them end there, except where a function takes a length.
 */
#ifndef KELO_UTILS_KELO_TEXT_HPP
#define KELO_UTILS_KELO_TEXT_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo_utils/gsm_encode.h"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/text.h"
#include "kelo_utils/unicode.h"
#include "kelo_utils/ussd.h"

namespace kelo {

/**
 * Writes bytes as hexadecimal text: two upper-case digits for each byte.
 * @param bytes  the bytes, at most 0x3FFFFFFF.
 * @return the digits; the empty text for more bytes.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::string to_hex(const std::vector<unsigned char>& bytes) {
  std::string text;
  if (bytes.empty() || bytes.size() > 0x3FFFFFFF) return text;
  text.resize(2 * bytes.size() + 1);
  hex_BinaryToString(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &text[0],
                     static_cast<std::uint32_t>(text.size()));
  text.pop_back();
  return text;
}

/**
 * Reads bytes from hexadecimal text: two digits of either case for each byte.
 * @param text  the digits.
 * @return the bytes; the code -1 for an odd number of characters or one that is no digit.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::vector<unsigned char>> from_hex(const std::string& text) {
  using Bytes = std::vector<unsigned char>;
  if (std::strlen(text.c_str()) != text.size()) return Result<Bytes>::failed(-1);
  Bytes bytes(text.size() / 2 + 1);
  const std::int32_t code = kelo_change_hexstr_to_str(text.c_str(), bytes.data());
  if (code != 0) return Result<Bytes>::failed(code);
  bytes.pop_back();
  return Result<Bytes>(std::move(bytes));
}

/**
 * Removes the white space at both ends of a text, as kelo_trim_string() does.
 * @param text  the text.
 * @return what is left.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::string trimmed(std::string text) {
  kelo_trim_string(&text[0]);
  text.resize(std::strlen(text.c_str()));
  return text;
}

/**
 * Converts the letters of a text to upper case, as kelo_string_toupper() does.
 * @param text  the text.
 * @return the text in upper case.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::string to_upper(std::string text) {
  kelo_string_toupper(&text[0]);
  return text;
}

/**
 * Cuts a text into tokens, as split_string_to_array() does.
 * @param text        the text. The empty text is one empty token.
 * @param delimiters  the characters that end a token, not null.
 * @param skip_empty  whether empty tokens are left out.
 * @return the tokens in their order.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::vector<std::string> split(std::string text, const char* delimiters, bool skip_empty = false) {
  std::vector<std::string> tokens;
  char* rest = &text[0];
  while (const char* const token = strsep(&rest, delimiters))
    if (!skip_empty || *token != '\0') tokens.emplace_back(token);
  return tokens;
}

/**
 * Converts UTF-16 to UTF-8, only whole characters.
 * @param units  the text in the byte order of the machine.
 * @param mode   what is done with an unpaired surrogate.
 * @return the text; after a failure a ::kelo_unicode_result as the code, with what was converted before it as the
 *         value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::string> utf8_from_utf16(std::u16string_view units,
                                           kelo_unicode_mode mode = KELO_UNICODE_STRICT) {
  return Result<std::string>::filled_by([&](std::string& text) {
    text.resize(3 * units.size());
    const auto* source = reinterpret_cast<const std::uint16_t*>(units.data());
    auto* const begin = reinterpret_cast<std::uint8_t*>(&text[0]);
    std::uint8_t* target = begin;
    const std::int32_t code =
        kelo_util_ConvertUTF16toUTF8(&source, source + units.size(), &target, begin + text.size(), mode);
    text.resize(static_cast<std::size_t>(target - begin));
    return code;
  });
}

/**
 * Converts UTF-8 to UTF-16, only whole characters.
 * @param text  the text.
 * @return the units in the byte order of the machine; after a failure a ::kelo_unicode_result as the code, with
 *         what was converted before it as the value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::u16string> utf16_from_utf8(std::string_view text) {
  return Result<std::u16string>::filled_by([&](std::u16string& units) {
    units.resize(text.size());
    const auto* source = reinterpret_cast<const std::uint8_t*>(text.data());
    auto* const begin = reinterpret_cast<std::uint16_t*>(&units[0]);
    std::uint16_t* target = begin;
    const std::int32_t code = kelo_util_ConvertUTF8toUTF16(&source, source + text.size(), &target,
                                                           begin + units.size(), KELO_UNICODE_STRICT);
    units.resize(static_cast<std::size_t>(target - begin));
    return code;
  });
}

/**
 * Converts 8-bit text (ISO 8859-1) to UTF-8, as kelo_util_ss_ascii_to_utf8() does: carriage returns are left out.
 * @param text  the text, less than 2^30 bytes.
 * @return the text as UTF-8; the empty text for a longer one.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::string utf8_from_latin1(std::string_view text) {
  std::string converted;
  if (text.empty() || text.size() >= 0x40000000) return converted;
  converted.resize(2 * text.size() + 1);
  const int length = kelo_util_ss_ascii_to_utf8(text.data(), text.size(), &converted[0], converted.size());
  converted.resize(static_cast<std::size_t>(length));
  return converted;
}

/**
 * Decodes the text of a USSD or cell-broadcast message, as kelo_util_convert_ussd_string_to_utf8() does.
 * @param dcs      data coding scheme.
 * @param message  coded text, at most 255 bytes. A message over the air has fewer.
 * @return the text as UTF-8; the empty text when it cannot be decoded, or the message is longer.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline std::string utf8_from_ussd(std::uint8_t dcs, const std::vector<unsigned char>& message) {
  char text[1024] = "";
  if (message.empty() || message.size() > 255) return std::string();
  const int length = kelo_util_convert_ussd_string_to_utf8(
      dcs, message.data(), static_cast<int>(message.size()), text, sizeof text);
  return std::string(text, static_cast<std::size_t>(length));
}

#ifndef KELO_NO_ADDITIONS

/** A USSD message as the network takes it. */
struct UssdMessage {
  std::uint8_t dcs = 0;            /**< data coding scheme */
  std::vector<unsigned char> data; /**< coded text */
};

/**
 * Encodes text as a USSD message, as kelo_ussd_encode() does.
 * @param text    UTF-8 text.
 * @param coding  how to encode it.
 * @return the message; a ::kelo_gsm_result as the code of a failure.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<UssdMessage> ussd_from_utf8(const std::string& text,
                                          kelo_ussd_coding coding = KELO_USSD_CHOOSE) {
  unsigned char data[160];  // a USSD message has no more
  UssdMessage message;
  const std::int32_t count = kelo_ussd_encode(text.c_str(), coding, &message.dcs, data, sizeof data);
  if (count < 0) return Result<UssdMessage>::failed(count);
  message.data.assign(data, data + count);
  return Result<UssdMessage>(std::move(message));
}

/**
 * Encodes text as septets, one per byte, as kelo_gsm_encode() does.
 * @param text  UTF-8 text of less than 2^30 bytes.
 * @return the septets; a ::kelo_gsm_result as the code of a failure.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::vector<unsigned char>> septets_from_utf8(const std::string& text) {
  using Septets = std::vector<unsigned char>;
  if (text.size() >= 0x40000000) return Result<Septets>::failed(KELO_GSM_TOO_LONG);
  Septets septets(2 * text.size() + 1);
  const std::int32_t count =
      kelo_gsm_encode(text.c_str(), septets.data(), static_cast<std::int32_t>(septets.size()));
  if (count < 0) return Result<Septets>::failed(count);
  septets.resize(static_cast<std::size_t>(count));
  return Result<Septets>(std::move(septets));
}

/**
 * Packs eight septets into seven octets, as kelo_gsm_pack() does.
 * @param septets  the septets, one per byte, less than 2^30.
 * @param ussd     whether they are a USSD message, which is padded in its own way.
 * @return the octets; a ::kelo_gsm_result as the code of a failure.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
inline Result<std::vector<unsigned char>> packed_septets(const std::vector<unsigned char>& septets,
                                                         bool ussd) {
  using Octets = std::vector<unsigned char>;
  if (septets.empty()) return Result<Octets>();
  if (septets.size() >= 0x40000000) return Result<Octets>::failed(KELO_GSM_TOO_LONG);
  Octets packed(septets.size() + 1);
  const std::int32_t count =
      kelo_gsm_pack(septets.data(), static_cast<std::int32_t>(septets.size()), ussd ? 1 : 0, packed.data(),
                    static_cast<std::int32_t>(packed.size()));
  if (count < 0) return Result<Octets>::failed(count);
  packed.resize(static_cast<std::size_t>(count));
  return Result<Octets>(std::move(packed));
}

#endif /* KELO_NO_ADDITIONS */

}  // namespace kelo

#endif /* KELO_UTILS_KELO_TEXT_HPP */
