// SPDX-License-Identifier: MIT
// Text copied, unpacked and read, against plain loops and the libraries that programs use otherwise.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/ratio.hpp"
#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"

namespace {

using kelo::bench::compare;

// Short calls are made many times in one measurement, so that reading the clock does not count.
template <typename Call>
auto repeated(int times, Call call) {
  return [=] {
    for (int i = 0; i < times; ++i) {
      call();
      benchmark::ClobberMemory();
    }
  };
}

void require(bool condition) {
  if (!condition) std::abort();
}

// ---- Copies ----

void utf8_copy(benchmark::State& state) {
  const auto bytes = static_cast<std::size_t>(state.range(0));
  const std::string source(bytes, 'a');
  std::string ours(bytes + 1, '\0');
  std::string theirs = ours;
  const auto library = [&] {
    std::size_t copied = 0;
    require(kelo_utf8_Copy(ours.data(), source.c_str(), ours.size(), &copied) == 0 && copied == bytes);
  };
  const auto peer = [&] {
    const gchar* end = nullptr;
    require(g_utf8_validate(source.c_str(), -1, &end) != FALSE);
    const auto length = static_cast<std::size_t>(end - source.c_str());
    std::memcpy(theirs.data(), source.c_str(), length + 1);
  };
  compare(state, repeated(2000, library), repeated(2000, peer));
  require(ours == theirs);
}
BENCHMARK(utf8_copy)->Arg(16)->Arg(64)->Arg(1024)->ArgName("bytes")->UseManualTime();

// Two texts of that length, one appended to the other, with the plain calls.
[[gnu::noinline]] std::size_t plain_append(char* destination, const char* source, std::size_t size) {
  const std::size_t length = std::strlen(destination);
  const std::size_t added = std::strlen(source);
  if (length + added < size) std::memcpy(destination + length, source, added + 1);
  return length + added;
}

void strlcat_two(benchmark::State& state) {
  const auto bytes = static_cast<std::size_t>(state.range(0));
  const std::string source(bytes, 'a');
  std::string ours(2 * bytes + 1, '\0');
  std::string theirs = ours;
  const auto twice = [&source](std::string& text, auto append) {
    text[0] = '\0';
    append(text.data(), source.c_str(), text.size());
    require(append(text.data(), source.c_str(), text.size()) == 2 * source.size());
  };
  compare(state, repeated(2000, [&] { twice(ours, kelo_strlcat); }),
          repeated(2000, [&] { twice(theirs, plain_append); }));
  require(ours == theirs);
}
BENCHMARK(strlcat_two)->Arg(8)->Arg(32)->Arg(200)->ArgName("bytes")->UseManualTime();

// ---- Septets ----

constexpr int kSeptets = 160;

std::vector<std::uint8_t> packed_septets() {
  std::vector<std::uint8_t> packed(kSeptets * 7 / 8);
  for (std::size_t i = 0; i < kSeptets; ++i) {
    const auto septet = static_cast<unsigned>('a' + i % 26);
    for (std::size_t bit = 0; bit < 7; ++bit) {
      const std::size_t place = 7 * i + bit;
      packed[place / 8] = static_cast<std::uint8_t>(packed[place / 8] | (septet >> bit & 1) << place % 8);
    }
  }
  return packed;
}

[[gnu::noinline]] int plain_unpack(std::uint8_t* out, const std::uint8_t* packed, int octets) {
  int count = 0;
  unsigned bits = 0;
  unsigned held = 0;
  for (int i = 0; i < octets; ++i) {
    bits |= static_cast<unsigned>(packed[i]) << held;
    held += 8;
    while (held >= 7) {
      out[count++] = static_cast<std::uint8_t>(bits & 0x7F);
      bits >>= 7;
      held -= 7;
    }
  }
  return count;
}

// The alphabet of the plain loop. The measured texts have no characters of two bytes.
[[gnu::noinline]] int plain_text(char* out, const std::uint8_t* packed, int octets) {
  static const auto forms = [] {
    std::array<std::uint16_t, 128> made{};
    for (std::size_t i = 0; i < made.size(); ++i) made[i] = static_cast<std::uint16_t>(i);
    return made;
  }();
  std::array<std::uint8_t, 256> septets;
  const int count = plain_unpack(septets.data(), packed, octets);
  char* end = out;
  for (int i = 0; i < count; ++i) {
    const unsigned form = forms[septets[static_cast<std::size_t>(i)]];
    if (form == '\r') continue;
    if (form > 0xFF) *end++ = static_cast<char>(form >> 8);
    *end++ = static_cast<char>(form);
  }
  *end = '\0';
  return static_cast<int>(end - out);
}

void unpack_septets(benchmark::State& state) {
  const std::vector<std::uint8_t> packed = packed_septets();
  const int octets = static_cast<int>(packed.size());
  std::array<std::uint8_t, 256> ours{};
  std::array<std::uint8_t, 256> theirs{};
  compare(
      state,
      repeated(1000,
               [&] { require(kelo_util_ussd_unpack(ours.data(), 255, packed.data(), octets) == kSeptets); }),
      repeated(1000, [&] { require(plain_unpack(theirs.data(), packed.data(), octets) == kSeptets); }));
  require(ours == theirs);
}
BENCHMARK(unpack_septets)->UseManualTime();

void septets_to_utf8(benchmark::State& state) {
  const std::vector<std::uint8_t> packed = packed_septets();
  const int octets = static_cast<int>(packed.size());
  std::array<char, 400> ours{};
  std::array<char, 400> theirs{};
  compare(state,
          repeated(1000,
                   [&] {
                     require(kelo_util_convert_gsm_def_alpha_string_to_utf8(
                                 packed.data(), octets, ours.data(), ours.size()) == kSeptets);
                   }),
          repeated(1000, [&] { require(plain_text(theirs.data(), packed.data(), octets) == kSeptets); }));
  require(ours == theirs);
}
BENCHMARK(septets_to_utf8)->UseManualTime();

// ---- Hexadecimal text ----

constexpr std::size_t kDigits = 4096;

[[gnu::noinline]] bool plain_bytes(const char* text, std::size_t length, std::uint8_t* bytes) {
  static const auto values = [] {
    std::array<std::uint8_t, 256> made{};
    made.fill(0xFF);
    const std::string digits = "0123456789abcdef";
    for (std::size_t i = 0; i < digits.size(); ++i) {
      made[static_cast<unsigned char>(digits[i])] = static_cast<std::uint8_t>(i);
      made[static_cast<unsigned char>(g_ascii_toupper(digits[i]))] = static_cast<std::uint8_t>(i);
    }
    return made;
  }();
  for (std::size_t i = 0; i < length; i += 2) {
    const unsigned high = values[static_cast<unsigned char>(text[i])];
    const unsigned low = values[static_cast<unsigned char>(text[i + 1])];
    if (high > 15 || low > 15) return false;
    bytes[i / 2] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return true;
}

std::string hex_digits() {
  std::string text;
  for (std::size_t i = 0; text.size() < kDigits; ++i) text += "0123456789abcdefABCDEF"[i * 7 % 22];
  return text;
}

using Bytes = std::array<std::uint8_t, kDigits / 2>;

void string_to_binary(benchmark::State& state) {
  const std::string text = hex_digits();
  Bytes ours{};
  Bytes theirs{};
  compare(state,
          repeated(100,
                   [&] {
                     require(kelo_hex_StringToBinary(text.c_str(), kDigits, ours.data(), kDigits / 2) >= 0);
                   }),
          repeated(100, [&] { require(plain_bytes(text.c_str(), kDigits, theirs.data())); }));
  require(ours == theirs);
}
BENCHMARK(string_to_binary)->UseManualTime();

void change_hexstr_to_str(benchmark::State& state) {
  const std::string text = hex_digits();
  Bytes ours{};
  Bytes theirs{};
  compare(state, repeated(100, [&] { require(kelo_change_hexstr_to_str(text.c_str(), ours.data()) == 0); }),
          repeated(100, [&] { require(plain_bytes(text.c_str(), kDigits, theirs.data())); }));
  require(ours == theirs);
}
BENCHMARK(change_hexstr_to_str)->UseManualTime();

}  // namespace
