// SPDX-License-Identifier: MIT
// The readers of hexadecimal text, each compared with the others.
#include "fuzz/input.hpp"
#include "kelo_utils/app_os_al.h"

using kelo::fuzz::require;

namespace {

void read_bytes(const std::vector<std::uint8_t>& digits, std::size_t room) {
  std::vector<std::uint8_t> bytes(room);
  const auto length = static_cast<std::uint32_t>(digits.size());
  const int count = kelo_hex_StringToBinary(reinterpret_cast<const char*>(digits.data()), length,
                                            bytes.data(), static_cast<std::uint32_t>(room));
  require(count == -1 || (2 * static_cast<std::size_t>(count) == digits.size()));
}

void read_text(const std::string& text) {
  const std::size_t half = text.size() / 2;
  std::vector<std::uint8_t> bytes(half + 1);
  const bool all_digits = kelo_change_hexstr_to_str(text.c_str(), bytes.data()) == 0;
  std::vector<std::uint8_t> same_bytes(half + 1);
  const int count = kelo_hex_StringToBinary(text.c_str(), static_cast<std::uint32_t>(text.size()),
                                            same_bytes.data(), static_cast<std::uint32_t>(half));
  require(all_digits == (count >= 0));
  if (!all_digits) return;

  require(bytes == same_bytes);
  std::vector<char> digits(text.size() + 1);
  require(hex_BinaryToString(bytes.data(), static_cast<std::uint32_t>(half), digits.data(),
                             static_cast<std::uint32_t>(digits.size())) == static_cast<int>(text.size()));
  std::string capital = text;
  kelo_string_toupper(capital.data());
  require(capital == digits.data());
}

void read_number(const std::string& text) {
  const int number = kelo_hex_HexaToInteger(text.c_str());
  const int lenient = htoi(text.c_str());
  require(number >= -1);
  require(number == -1 || number == lenient);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::size_t room = input.number(64);
  const std::vector<std::uint8_t> digits = input.bytes(input.number(64));
  const std::string text = input.text();
  read_bytes(digits, room);
  read_text(text);
  read_number(text);
  return 0;
}
