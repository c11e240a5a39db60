// SPDX-License-Identifier: MIT
// Text encoded as GSM septets and as USSD, into buffers of any size, against the plainest code that does the same.
#include "kelo_utils/gsm_encode.h"

#include <string_view>

#include "fuzz/input.hpp"

namespace {

using kelo::fuzz::require;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kUntouched = 0x55;

// The characters of 3GPP TS 23.038, 6.2.1, in the order of their septets. The escape has a NUL, which no text has.
constexpr std::u32string_view kAlphabet{
    U"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\0ÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    U"¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà",
    128};

// Those of the extension table, 6.2.1.1, and their septets.
constexpr std::u32string_view kExtended = U"\f^{}\\[~]|€";
constexpr std::uint8_t kExtensions[] = {0x0A, 0x14, 0x28, 0x29, 0x2F, 0x3C, 0x3D, 0x3E, 0x40, 0x65};

// What an encoder makes of a text: its bytes, or why there are none.
struct Encoded {
  std::int32_t failure = 0;
  Bytes bytes;
};

// Takes the first character off. Returns false when it is ill-formed.
bool take_character(std::string_view& text, char32_t& character) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
  if ((byte(0) >= 0x80 && byte(0) < 0xC2) || byte(0) > 0xF4 || text.size() < length) return false;
  character = length == 1 ? byte(0) : byte(0) & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return false;
    character = character << 6 | (byte(i) & 0x3FU);
  }
  constexpr char32_t kFirst[] = {0, 0, 0x80, 0x800, 0x10000};
  text.remove_prefix(length);
  return character >= kFirst[length] && character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

Encoded expected_septets(std::string_view text) {
  Encoded encoded;
  while (!text.empty()) {
    char32_t character = 0;
    if (!take_character(text, character)) return {KELO_GSM_ILL_FORMED, {}};
    if (const std::size_t septet = kAlphabet.find(character); septet != kAlphabet.npos) {
      encoded.bytes.push_back(static_cast<std::uint8_t>(septet));
    } else if (const std::size_t place = kExtended.find(character); place != kExtended.npos) {
      encoded.bytes.insert(encoded.bytes.end(), {27, kExtensions[place]});
    } else {
      return {KELO_GSM_NOT_ENCODABLE, {}};
    }
  }
  return encoded;
}

// Bit by bit.
Bytes expected_octets(Bytes septets, bool ussd) {
  const std::size_t count = septets.size();
  if (ussd && (count % 8 == 7 || (count > 0 && count % 8 == 0 && septets.back() == '\r')))
    septets.push_back('\r');
  Bytes octets((septets.size() * 7 + 7) / 8);
  for (std::size_t bit = 0; bit < septets.size() * 7; ++bit) {
    const unsigned value = unsigned{septets[bit / 7]} >> (bit % 7) & 1U;
    octets[bit / 8] = static_cast<std::uint8_t>(octets[bit / 8] | value << (bit % 8));
  }
  return octets;
}

// The first failure counts, and a buffer that is too small is one.
Encoded expected_ucs2(std::string_view text, std::size_t size) {
  Encoded encoded;
  while (!text.empty()) {
    char32_t character = 0;
    if (!take_character(text, character)) return {KELO_GSM_ILL_FORMED, {}};
    std::vector<char32_t> units = {character};
    if (character > 0xFFFF)
      units = {0xD800 + ((character - 0x10000) >> 10), 0xDC00 + ((character - 0x10000) & 0x3FF)};
    for (const char32_t unit : units) {
      encoded.bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
      encoded.bytes.push_back(static_cast<std::uint8_t>(unit));
    }
    if (encoded.bytes.size() > size) return {KELO_GSM_TOO_LONG, {}};
  }
  return encoded;
}

Encoded fitting(Encoded encoded, std::size_t size) {
  if (encoded.failure == 0 && encoded.bytes.size() > size) return {KELO_GSM_TOO_LONG, {}};
  return encoded;
}

// A buffer with one byte more than the callee is told of.
class Output {
 public:
  explicit Output(std::size_t size) : bytes_(size + 1, kUntouched) {}
  std::uint8_t* data() { return bytes_.data(); }

  void check(std::int32_t result, const Encoded& expected) const {
    require(bytes_.back() == kUntouched);
    if (expected.failure != 0) {
      require(result == expected.failure);
      return;
    }
    require(result == static_cast<std::int32_t>(expected.bytes.size()));
    require(std::equal(expected.bytes.begin(), expected.bytes.end(), bytes_.begin()));
  }

 private:
  Bytes bytes_;
};

void check_septets(const std::string& text, std::size_t size, bool ussd) {
  const auto room = static_cast<std::int32_t>(size);
  Encoded septets = expected_septets(text);
  septets.bytes.reserve(1);  // no septets are given as an address, too
  Output out(size);
  out.check(kelo_gsm_encode(text.c_str(), out.data(), room), fitting(septets, size));
  Output packed(size);
  const auto count = static_cast<std::int32_t>(septets.bytes.size());
  packed.check(kelo_gsm_pack(septets.bytes.data(), count, ussd ? 1 : 0, packed.data(), room),
               fitting({0, expected_octets(septets.bytes, ussd)}, size));
}

void check_ussd(const std::string& text, std::size_t size, int coding) {
  constexpr std::uint8_t kSeptetScheme = 0x0F;
  constexpr std::uint8_t kUcs2Scheme = 0x48;
  Encoded expected = expected_septets(text);
  if (expected.failure == 0) expected.bytes = expected_octets(expected.bytes, true);
  expected = fitting(expected, size);
  const bool ucs2 =
      coding == KELO_USSD_UCS2 || (coding == KELO_USSD_CHOOSE && expected.failure == KELO_GSM_NOT_ENCODABLE);
  if (ucs2) expected = expected_ucs2(text, size);
  Output out(size);
  std::uint8_t dcs = kUntouched;
  const std::int32_t result =
      kelo_ussd_encode(text.c_str(), coding, &dcs, out.data(), static_cast<std::int32_t>(size));
  out.check(result, expected);
  require(dcs == (expected.failure != 0 ? kUntouched : ucs2 ? kUcs2Scheme : kSeptetScheme));
}

}  // namespace

// The size of the buffer, whether septets are packed for USSD, then the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::size_t room = input.number(400);
  const bool ussd = input.byte() % 2 != 0;
  const std::string text = input.text();
  check_septets(text, room, ussd);
  for (const int coding : {KELO_USSD_SEPTETS, KELO_USSD_CHOOSE, KELO_USSD_UCS2})
    check_ussd(text, room, coding);
  return 0;
}
