// SPDX-License-Identifier: MIT
// Text that the library handles a machine word at a time, against plain forms that go byte by byte: at every
// alignment, and at both ends of a page whose neighbours must not be touched.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/guarded_page.hpp"
#include "tests/support/unicode_oracle.hpp"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::GuardedPage;
using kelo::tests::is_surrogate;
using kelo::tests::utf16_of;
using kelo::tests::utf8_of;
using namespace std::string_literals;

constexpr char kUntouched = '\x5A';

// A result, and all that a call has written.
struct Outcome {
  long result;
  std::string written;

  bool operator==(const Outcome&) const = default;
};

// Calls `call` for the text and for `room` bytes of output at all places, where it must do what is expected, and
// nothing to the bytes around. The text is all that may be read.
template <typename Call>
void expect_everywhere(const std::string& text, std::size_t room, const Outcome& expected, Call call) {
  static const GuardedPage source;
  static const GuardedPage target;
  ASSERT_LE(expected.written.size(), room);
  std::vector<char*> targets = target.places(room);
  std::size_t turn = 0;
  for (char* const from : source.places(text.size())) {
    // Each alignment of the source meets another one of the target in each call.
    char* const to = targets[(turn++ * 7 + text.size()) % targets.size()];
    source.put(from, text, kUntouched);
    target.put(to, "", kUntouched);
    std::string page = target.bytes();
    const auto place = static_cast<std::size_t>(to - targets.front());
    page.replace(place, expected.written.size(), expected.written);
    ASSERT_EQ(call(from, to), expected.result) << testing::PrintToString(text) << " into " << room;
    ASSERT_TRUE(target.bytes() == page) << testing::PrintToString(text) << " into " << room;
  }
}

class TextWords : public testing::Test {
 protected:
  void SetUp() override { kelo_set_log_level(LOG_LVL_CRT); }

  std::size_t below(std::size_t limit) { return random_() % limit; }
  char pick(std::string_view characters) { return characters[below(characters.size())]; }

 private:
  std::mt19937 random_{20260311};  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
};

// ---- Copies ----

std::size_t sequence_size(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  return byte < 0x80 ? 1 : byte < 0xC0 ? 0 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : byte < 0xF8 ? 4 : 0;
}

// `text` with its terminator, or as much of it as may be read.
Outcome plain_utf8_copy(std::string_view text, std::size_t size) {
  std::size_t length = 0;
  while (text[length] != '\0') {
    const std::size_t bytes = sequence_size(text[length]);
    if (bytes == 0) return {0, "\0"s};
    const bool is_whole = text.substr(length, bytes).find('\0') == std::string_view::npos;
    if (length + bytes >= size || !is_whole) return {-1, std::string(text.substr(0, length)) + '\0'};
    length += bytes;
  }
  return {0, std::string(text.substr(0, length)) + '\0'};
}

TEST_F(TextWords, AreCopiedAsUtf8) {
  for (int i = 0; i < 1000; ++i) {
    std::string text;
    for (std::size_t length = below(40); text.size() < length;) {
      text +=
          below(8) != 0 ? std::string(below(12), 'a') : utf8_of(static_cast<std::uint32_t>(below(0x110000)));
      if (below(60) == 0) text += static_cast<char>(0x80 + below(0x80));
    }
    text += '\0';
    const std::size_t size = 1 + below(text.size() + 2);
    const Outcome expected = plain_utf8_copy(text, size);
    // No more than the size is read of it.
    if (text.size() > size) text.resize(size);
    expect_everywhere(text, size, expected, [&](const char* from, char* to) {
      std::size_t copied = 99;
      const int result = kelo_utf8_Copy(to, from, size, &copied);
      EXPECT_EQ(copied, expected.written.size() - 1);
      return result;
    });
    if (HasFailure()) return;
  }
}

TEST_F(TextWords, AreCopiedAndAppended) {
  for (std::size_t held = 0; held < 20; ++held) {
    for (std::size_t length = 0; length < 20; ++length) {
      const std::string text = std::string(length, 'b') + '\0';
      for (const std::size_t size : {held, held + 1, held + length, held + length + 1, held + length + 2}) {
        const std::string before = (std::string(held, 'a') + '\0').substr(0, size);
        std::string after = before;
        if (size > held)
          after = before.substr(0, held) + text.substr(0, std::min(length, size - held - 1)) + '\0';
        expect_everywhere(text, size, {static_cast<long>(std::min(held, size) + length), after},
                          [&](const char* from, char* to) {
                            std::copy(before.begin(), before.end(), to);
                            return static_cast<long>(kelo_strlcat(to, from, size));
                          });
      }
      if (HasFailure()) return;
    }
  }
}

// ---- Septets ----

std::string plain_unpack(std::string_view packed, std::size_t limit) {
  std::string septets;
  std::size_t previous = 0;
  for (std::size_t i = 0; i < packed.size() && septets.size() < limit; ++i) {
    const std::size_t octet = static_cast<unsigned char>(packed[i]);
    const std::size_t shift = septets.size() % 8;
    septets += static_cast<char>(((octet << shift) & 0x7F) | previous >> (8 - shift));
    if (shift == 6 && septets.size() < limit && (i + 1 != packed.size() || octet >> 1 != '\r'))
      septets += static_cast<char>(octet >> 1);
    previous = octet;
  }
  return septets;
}

TEST_F(TextWords, AreUnpackedFromSeptets) {
  for (std::size_t octets = 1; octets <= 256; octets += octets < 30 ? 1 : 3) {
    for (const std::size_t limit :
         {std::size_t{0}, below(20), std::min<std::size_t>(8 * octets / 7 - 1, 255), std::size_t{255}}) {
      std::string packed(octets, '\0');
      for (char& octet : packed) octet = static_cast<char>(below(256));
      if (octets % 7 == 0 && below(2) == 0) packed.back() = static_cast<char>('\r' << 1 | below(2));
      const std::string septets = plain_unpack(packed, limit);
      expect_everywhere(
          packed, limit, {static_cast<long>(septets.size()), septets}, [&](const char* from, char* to) {
            return kelo_util_ussd_unpack(reinterpret_cast<std::uint8_t*>(to), static_cast<int>(limit),
                                         reinterpret_cast<const std::uint8_t*>(from),
                                         static_cast<int>(octets));
          });
      if (HasFailure()) return;
    }
  }
}

// ---- Hexadecimal text ----

int plain_digit(char character) {
  const std::size_t at = "0123456789abcdefABCDEF"s.find(character);
  if (at == std::string::npos) return -1;
  return static_cast<int>(at < 16 ? at : at - 6);
}

std::string plain_bytes(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    if (plain_digit(digits[i]) < 0 || plain_digit(digits[i + 1]) < 0) break;
    bytes += static_cast<char>(plain_digit(digits[i]) * 16 + plain_digit(digits[i + 1]));
  }
  return bytes;
}

// Both functions, on a text that may be read up to its terminator.
void read_digits(const std::string& digits) {
  const std::string bytes = plain_bytes(digits);
  const std::size_t pairs = digits.size() / 2;
  const std::string text = digits + '\0';
  const bool is_whole = bytes.size() == pairs && digits.size() % 2 == 0;
  expect_everywhere(text, pairs, {is_whole ? 0 : -1, is_whole ? bytes : ""}, [](const char* from, char* to) {
    return kelo_change_hexstr_to_str(from, reinterpret_cast<std::uint8_t*>(to));
  });
  if (digits.size() % 2 != 0) return;
  const auto read = [&](const char* from, char* to) {
    return kelo_hex_StringToBinary(from, static_cast<std::uint32_t>(2 * pairs),
                                   reinterpret_cast<std::uint8_t*>(to), static_cast<std::uint32_t>(pairs));
  };
  expect_everywhere(digits, pairs, {is_whole ? static_cast<long>(pairs) : -1, bytes}, read);
  // A text that ends before its length.
  const std::string cut = digits.substr(0, digits.size() / 3) + '\0';
  if (cut.size() <= digits.size()) expect_everywhere(cut, pairs, {-1, plain_bytes(cut)}, read);
}

TEST_F(TextWords, AreReadFromHexadecimalDigits) {
  constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
  for (std::size_t length = 0; length < 70; ++length) {
    std::string digits;
    while (digits.size() < length) digits += pick(kDigits);
    read_digits(digits);
    if (HasFailure()) return;
  }
}

TEST_F(TextWords, AreNotReadFromAnyOtherCharacter) {
  for (unsigned byte = 1; byte < 256; ++byte) {
    const std::string digits = "09afAF5b09afAF5b";
    std::string changed = digits;
    changed[std::size_t{byte} * 5 % digits.size()] = static_cast<char>(byte);
    read_digits(changed);
    // At every place of a word; the neighbours are at the edges of what is a digit.
    for (std::size_t at = 0; at < digits.size(); ++at) {
      changed = digits;
      changed[at] = static_cast<char>(byte);
      const std::string bytes = plain_bytes(changed);
      std::string read(8, kUntouched);
      const int result =
          kelo_hex_StringToBinary(changed.c_str(), 16, reinterpret_cast<std::uint8_t*>(read.data()), 8);
      ASSERT_EQ(result, bytes.size() == 8 ? 8 : -1) << changed;
      ASSERT_EQ(read, bytes + std::string(8 - bytes.size(), kUntouched)) << changed;
    }
    if (HasFailure()) return;
  }
}

// ---- Unicode ----

// What a conversion of these characters, each in both encodings, comes to when only `room` bytes fit.
struct Characters {
  std::vector<std::string> utf8;
  std::vector<std::string> utf16;

  void add(std::uint32_t code) {
    utf8.push_back(utf8_of(code));
    utf16.push_back(bytes_of(utf16_of(code)));
  }
};

std::string joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const std::string& piece : pieces) text += piece;
  return text;
}

Outcome plain_conversion(const std::vector<std::string>& target, std::size_t room) {
  Outcome outcome{KELO_UNICODE_COMPLETE, ""};
  for (const std::string& character : target) {
    if (outcome.written.size() + character.size() > room) {
      outcome.result = KELO_UNICODE_TARGET_EXHAUSTED;
      break;
    }
    outcome.written += character;
  }
  return outcome;
}

template <typename From, typename To>
void convert_everywhere(const std::vector<std::string>& source, const std::vector<std::string>& target,
                        std::size_t room, int (*convert)(const From**, const From*, To**, To*, int)) {
  const std::string text = joined(source);
  const Outcome expected = plain_conversion(target, room);
  expect_everywhere(text, room, expected, [&](const char* place, char* room_place) {
    const auto* from = reinterpret_cast<const From*>(place);
    auto* to = reinterpret_cast<To*>(room_place);
    const int result = convert(&from, reinterpret_cast<const From*>(place + text.size()), &to,
                               reinterpret_cast<To*>(room_place + room), KELO_UNICODE_STRICT);
    EXPECT_EQ(reinterpret_cast<const char*>(to), room_place + expected.written.size());
    EXPECT_EQ(result == KELO_UNICODE_COMPLETE, reinterpret_cast<const char*>(from) == place + text.size());
    return result;
  });
}

TEST_F(TextWords, AreConvertedBetweenEncodings) {
  constexpr std::uint32_t kLimits[] = {0x80, 0x800, 0x10000, 0x110000};
  for (int i = 0; i < 500; ++i) {
    Characters text;
    // Runs of one kind, as texts have them, mixed with others.
    for (std::size_t left = below(30), kind = 0; left > 0; --left) {
      if (below(4) == 0) kind = below(4);
      const auto code = static_cast<std::uint32_t>(below(kLimits[kind]));
      text.add(is_surrogate(code) ? 'a' : code);
    }
    const std::size_t utf8_size = joined(text.utf8).size();
    const std::size_t utf16_size = joined(text.utf16).size();
    for (const std::size_t less : {std::size_t{0}, below(9)}) {
      convert_everywhere(text.utf16, text.utf8, utf8_size - std::min(less, utf8_size),
                         kelo_util_ConvertUTF16toUTF8);
      convert_everywhere(text.utf8, text.utf16, utf16_size - std::min(less, utf16_size),
                         kelo_util_ConvertUTF8toUTF16);
    }
    if (HasFailure()) return;
  }
}

}  // namespace
