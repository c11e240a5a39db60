// SPDX-License-Identifier: MIT
// Converts values of settings to text and back.
#include "tools/keloctl/values.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/text_builder.hpp"
#include "kelo_utils/data_manager.h"

namespace kelo::ctl {
namespace {

unsigned char byte_at(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text.data()[index]);
}

int digit_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const int letter = digit | 0x20;
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

template <typename Integer>
long long read_as(std::string_view value) {
  Integer integer = 0;
  std::memcpy(&integer, value.data(), sizeof integer);
  return integer;
}

template <typename Integer>
Bytes write_as(unsigned long long number) {
  const auto integer = static_cast<Integer>(number);
  return Bytes({reinterpret_cast<const char*>(&integer), sizeof integer});
}

}  // namespace

std::size_t utf8_length(std::string_view text, std::size_t index) {
  const unsigned char first = byte_at(text, index);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xC2 && first < 0xE0   ? 2
                             : first >= 0xE0 && first < 0xF0 ? 3
                             : first >= 0xF0 && first < 0xF5 ? 4
                                                             : 0;
  if (length == 0 || text.size() - index < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte_at(text, index + i) & 0xC0) != 0x80) return 0;
  }
  // Longer forms than a character needs, surrogates and values above U+10FFFF
  const unsigned char second = byte_at(text, index + 1);
  if (first == 0xE0 && second < 0xA0) return 0;
  if (first == 0xED && second >= 0xA0) return 0;
  if (first == 0xF0 && second < 0x90) return 0;
  return first == 0xF4 && second >= 0x90 ? 0 : length;
}

bool is_printable(std::string_view text, std::size_t index) {
  const unsigned char first = byte_at(text, index);
  if (first < 0x80) return first >= 0x20 && first != 0x7F;
  // U+0080 to U+009F are control characters: terminals may obey them.
  if (first == 0xC2 && index + 1 < text.size() && byte_at(text, index + 1) < 0xA0) return false;
  return utf8_length(text, index) != 0;
}

Bytes::Bytes(std::string_view copied) : bytes_(base::zeroed_array<char>(copied.size() + 1)) {
  if (!bytes_) return;
  size_ = copied.size();
  if (size_ != 0) std::memcpy(bytes_.get(), copied.data(), size_);
}

Bytes Bytes::of_size(std::size_t size) {
  Bytes result;
  result.bytes_ = base::zeroed_array<char>(size + 1);
  if (result.bytes_) result.size_ = size;
  return result;
}

void Bytes::cut(std::size_t size) {
  if (size >= size_) return;
  size_ = size;
  bytes_[size] = '\0';
}

bool number_of(std::string_view value, long long& number) {
  switch (value.size()) {
    case 1:
      number = read_as<std::int8_t>(value);
      return true;
    case 2:
      number = read_as<std::int16_t>(value);
      return true;
    case 4:
      number = read_as<std::int32_t>(value);
      return true;
    case 8:
      number = read_as<std::int64_t>(value);
      return true;
    default:
      return false;
  }
}

Bytes shown_value(int type, std::string_view value) {
  if (type == KELO_DM_TYPE_STRING) return Bytes(value);
  long long number = 0;
  if (KELO_DM_IS_SCALAR(type) && number_of(value, number))
    return Bytes(base::FixedText<24>("%lld", number).view());
  Bytes digits = Bytes::of_size(2 * value.size());
  if (!digits) return digits;
  for (std::size_t i = 0; i < value.size(); ++i)
    std::snprintf(digits.data() + 2 * i, 3, "%02x", static_cast<unsigned>(byte_at(value, i)));
  return digits;
}

Bytes from_hex(std::string_view text) {
  if (text.size() % 2 != 0) return {};
  Bytes bytes = Bytes::of_size(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = digit_value(text.data()[2 * i]);
    const int low = digit_value(text.data()[2 * i + 1]);
    if (high < 0 || low < 0) return {};
    bytes.data()[i] = static_cast<char>(high << 4 | low);
  }
  return bytes;
}

Bytes from_number(const char* text, std::size_t size) {
  const bool negative = text[0] == '-';
  const char* const digits = text + (negative ? 1 : 0);
  if (*digits < '0' || *digits > '9' || size == 0 || size > 8) return {};
  char* end = nullptr;
  errno = 0;
  const unsigned long long magnitude = std::strtoull(digits, &end, 0);
  if (errno != 0 || *end != '\0') return {};
  const unsigned long long half = 1ULL << (8 * size - 1);
  if (magnitude > (negative ? half : 2 * half - 1)) return {};
  const unsigned long long number = negative ? 0 - magnitude : magnitude;
  switch (size) {
    case 1:
      return write_as<std::uint8_t>(number);
    case 2:
      return write_as<std::uint16_t>(number);
    case 4:
      return write_as<std::uint32_t>(number);
    case 8:
      return write_as<std::uint64_t>(number);
    default:
      return {};
  }
}

}  // namespace kelo::ctl
