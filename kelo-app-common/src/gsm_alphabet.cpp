// SPDX-License-Identifier: MIT
// Converts the characters of the GSM default alphabet to UTF-8.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/heap.hpp"
#include "kelo-app-common/src/gsm_alphabet.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

// The characters of the septets 0 to 127. Septet 27, the escape to the extension table, becomes a space, as on phones
// that do not have this table.
constexpr std::u16string_view kAlphabet =
    u"@£$¥èéùìòÇ\nØø\rÅå"
    u"Δ_ΦΓΛΩΠΨΣΘΞ ÆæßÉ"
    u" !\"#¤%&'()*+,-./"
    u"0123456789:;<=>?"
    u"¡ABCDEFGHIJKLMNO"
    u"PQRSTUVWXYZÄÖÑÜ§"
    u"¿abcdefghijklmno"
    u"pqrstuvwxyzäöñüà";
static_assert(kAlphabet.size() == 128);
static_assert(std::all_of(kAlphabet.begin(), kAlphabet.end(),
                          [](char16_t character) { return character < 0x800; }),
              "each character takes at most two bytes of UTF-8");

}  // namespace

constexpr std::array<std::uint16_t, 128> kelo::gsm::kUtf8Bytes = [] {
  std::array<std::uint16_t, 128> bytes{};
  std::transform(kAlphabet.begin(), kAlphabet.end(), bytes.begin(), utf8_bytes);
  return bytes;
}();

namespace {

using kelo::gsm::kUtf8Bytes;

// Writes bytes into a buffer and reserves its last byte for the terminator.
class TextWriter {
 public:
  // `size` must not be 0.
  TextWriter(char* buffer, std::size_t size) : buffer_(buffer), room_(size - 1) {}

  [[nodiscard]] bool full() const { return length_ == room_; }
  [[nodiscard]] std::size_t length() const { return length_; }

  void put(unsigned byte) { buffer_[length_++] = static_cast<char>(byte); }
  // Writes a value of utf8_bytes(). A character that does not fit completely is dropped.
  void put_character(unsigned bytes) {
    if (bytes < 0x100) return put(bytes);
    if (room_ - length_ < 2) return;
    put(bytes >> 8);
    put(bytes & 0xFF);
  }
  void terminate() { buffer_[length_] = '\0'; }

 private:
  char* const buffer_;
  const std::size_t room_;
  std::size_t length_ = 0;
};

}  // namespace

int kelo_util_convert_gsm8bit_alpha_string_to_utf8(const std::uint8_t* septets, int count, char* out,
                                                   std::size_t out_size) {
  if (septets == nullptr || count <= 0 || out == nullptr || out_size == 0) {
    KELO_LOG(LOG_LVL_ERR, "Invalid parameters for GSM alphabet to UTF8 conversion, input len = %d\n", count);
    return 0;
  }
  TextWriter text(out, out_size);
  for (int i = 0; i < count && !text.full(); ++i) {
    const unsigned septet = septets[i];
    if (septet == '\r') {
      KELO_LOG(LOG_LVL_DBUG, "ignored CR charecter at index = %d\n", i);
    } else if (septet < kUtf8Bytes.size()) {
      text.put_character(kUtf8Bytes[septet]);
    } else {
      text.put(septet);
    }
  }
  text.terminate();
  return static_cast<std::uint16_t>(text.length());  // the length of text has sixteen bits for callers
}

int kelo_util_convert_gsm_def_alpha_string_to_utf8(const std::uint8_t* packed, int packed_len, char* out,
                                                   std::size_t out_size) {
  if (packed == nullptr || packed_len <= 0 || out == nullptr || out_size == 0) {
    KELO_LOG(LOG_LVL_ERR, "Invalid parameters for GSM alphabet to UTF8 conversion, input len = %d\n",
             packed_len);
    return 0;
  }
  // There are at most two septets for each octet, and unpacking stops at 255 septets.
  const int most_septets = 2 * std::min(packed_len, 128);
  const auto septets = kelo::base::zeroed_array<std::uint8_t>(static_cast<std::size_t>(most_septets));
  if (!septets) {
    KELO_LOG(LOG_LVL_ERR, "Fail to allocate buffer for GSM alphabet to UTF8 conversion\n");
    return 0;
  }
  const int count = kelo_util_ussd_unpack(septets.get(), most_septets, packed, packed_len);
  return kelo_util_convert_gsm8bit_alpha_string_to_utf8(septets.get(), count, out, out_size);
}
