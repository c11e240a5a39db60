// SPDX-License-Identifier: MIT
// Packed septets of any length, unpacked into room of any size and mapped to text.
#include <array>
#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/log_sink.hpp"
#include "kelo_utils/app_common.h"

using kelo::fuzz::require;

namespace {

// The septet that starts `7 * index` bits into the octets.
unsigned septet_at(const std::vector<std::uint8_t>& octets, std::size_t index) {
  unsigned septet = 0;
  for (std::size_t bit = 0; bit < 7; ++bit) {
    const std::size_t place = 7 * index + bit;
    septet |= (static_cast<unsigned>(octets[place / 8]) >> place % 8 & 1) << bit;
  }
  return septet;
}

// Characters of one and of two bytes, none of them a zero, and the terminator after them.
bool is_text_of_alphabet(const std::vector<char>& text, std::size_t length) {
  std::size_t i = 0;
  while (i < length) {
    const auto lead = static_cast<std::uint8_t>(text[i++]);
    if (lead == 0) return false;
    if (lead < 0x80) continue;
    if (lead < 0xC2 || lead > 0xCE || i == length) return false;
    if ((static_cast<std::uint8_t>(text[i++]) & 0xC0) != 0x80) return false;
  }
  return text[length] == '\0';
}

void check_unpacking(const std::vector<std::uint8_t>& octets, int packed_len, int limit) {
  const std::size_t most = limit < 0 || limit > 255 ? 255 : static_cast<std::size_t>(limit);
  std::vector<std::uint8_t> septets(most);
  septets.reserve(1);
  const int count = kelo_util_ussd_unpack(septets.data(), limit, octets.data(), packed_len);

  std::size_t expected = 8 * octets.size() / 7;
  if (octets.size() % 7 == 0 && septet_at(octets, expected - 1) == '\r') --expected;
  expected = std::min(expected, most);
  require(count == static_cast<int>(expected));
  for (std::size_t i = 0; i < expected; ++i) require(septets[i] == septet_at(octets, i));
}

void check_text(const std::vector<std::uint8_t>& octets, int packed_len, std::size_t size) {
  std::vector<char> text(size, 'x');
  const int length =
      kelo_util_convert_gsm_def_alpha_string_to_utf8(octets.data(), packed_len, text.data(), size);
  require(length >= 0 && static_cast<std::size_t>(length) < size);
  require(is_text_of_alphabet(text, static_cast<std::size_t>(length)));

  std::array<std::uint8_t, 255> septets{};
  const int count = kelo_util_ussd_unpack(septets.data(), septets.size(), octets.data(), packed_len);
  std::vector<char> in_two_steps(size, 'x');
  require(kelo_util_convert_gsm8bit_alpha_string_to_utf8(septets.data(), count, in_two_steps.data(), size) ==
          length);
  require(text == in_two_steps);
}

void check_mapping(const std::vector<std::uint8_t>& septets, std::size_t size) {
  std::vector<char> text(size, 'x');
  const int length = kelo_util_convert_gsm8bit_alpha_string_to_utf8(
      septets.data(), static_cast<int>(septets.size()), text.data(), size);
  require(length >= 0 && static_cast<std::size_t>(length) < size);
  require(std::strlen(text.data()) == static_cast<std::size_t>(length));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const int limit = static_cast<int>(input.number(600)) - 150;
  const std::size_t text_size = input.number(600) + 1;
  const int laps = input.byte();  // lengths that differ by 256 read the same octets
  const std::vector<std::uint8_t> octets = input.bytes(256);
  if (octets.empty()) return 0;
  const int packed_len = static_cast<int>(octets.size()) + 256 * laps;

  check_unpacking(octets, packed_len, limit);
  check_text(octets, packed_len, text_size);
  check_mapping(octets, text_size);
  return 0;
}
