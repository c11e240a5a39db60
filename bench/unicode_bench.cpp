// SPDX-License-Identifier: MIT
// The Unicode conversions against the C library's iconv, opened once, and against ICU.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "bench/ratio.hpp"
#include "kelo_utils/app_common.h"

namespace {

using kelo::bench::compare;

// Texts of the length of a message and of a long file, in bytes of the source.
constexpr std::int64_t kMessage = 140;
constexpr std::int64_t kLong = 65536;
// Short texts are converted many times in one measurement, so that reading the clock does not count.
constexpr std::size_t kBytesInOneGo = 65536;

struct Text {
  const char* name;
  const char* sample;  // UTF-8, repeated up to the length wanted
};
constexpr std::array<Text, 6> kTexts = {
    {{"ascii", "The quick brown fox jumps over the lazy dog. "},
     {"two bytes", "\u0416\u0443\u0440\u043D\u0430\u043B"},
     {"russian",
      "\u0421\u044A\u0435\u0448\u044C \u0436\u0435 \u0435\u0449\u0451 \u044D\u0442\u0438\u0445 "
      "\u043C\u044F\u0433\u043A\u0438\u0445 \u0431\u0443\u043B\u043E\u043A. "},
     {"german", "Falsches \u00DCben von Xylophonmusik qu\u00E4lt jeden gr\u00F6\u00DFeren Zwerg. "},
     {"chinese", "\u6211\u80FD\u541E\u4E0B\u73BB\u7483\u800C\u4E0D\u4F24\u8EAB\u4F53\u3002"},
     {"emoji mix",
      "Lunch at 12? \U0001F354\U0001F35F yes \U0001F600, caf\u00E9 \u2615 is closed "
      "\U0001F622\U0001F622. "}}};

enum Peer : std::int64_t { kIconv, kIcu };

// The arguments of a benchmark.
struct Case {
  explicit Case(benchmark::State& state)
      : text(kTexts.at(static_cast<std::size_t>(state.range(0)))),
        bytes(static_cast<std::size_t>(state.range(1))),
        against_icu(state.range(2) == kIcu) {
    state.SetLabel(std::string(text.name) + (against_icu ? ", against ICU" : ", against iconv"));
  }
  const Text& text;
  std::size_t bytes;
  bool against_icu;
};

constexpr const char* kUtf16 = "UTF-16LE";

class Iconv {
 public:
  Iconv(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  ~Iconv() { iconv_close(handle_); }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  std::size_t convert(std::string_view source, std::string& target) const {
    char* from = const_cast<char*>(source.data());
    std::size_t left = source.size();
    char* to = target.data();
    std::size_t room = target.size();
    if (iconv(handle_, &from, &left, &to, &room) != 0 || left != 0) std::abort();
    return target.size() - room;
  }

 private:
  iconv_t handle_;
};

// A text in both encodings, the source `bytes` long, cut to whole characters.
struct Sample {
  Sample(const Text& text, std::size_t bytes, bool from_utf16) {
    const std::string_view piece = text.sample;
    const Iconv iconv(kUtf16, "UTF-8");
    const auto add = [&](std::string_view character) {
      std::string units(8, '\0');
      units.resize(iconv.convert(character, units));
      if ((from_utf16 ? utf16.size() + units.size() : utf8.size() + character.size()) > bytes) return false;
      utf8 += character;
      utf16 += units;
      return true;
    };
    for (;;) {
      for (std::size_t i = 0; i < piece.size();) {
        std::size_t end = i + 1;
        while (end < piece.size() && (piece[end] & 0xC0) == 0x80) ++end;
        if (!add(piece.substr(i, end - i))) return;
        i = end;
      }
    }
  }

  std::string utf8;
  std::string utf16;
};

// Calls `convert` as often as makes one measurement, and ends the program when it gives another size.
template <typename Convert>
auto repeated(std::size_t bytes, std::size_t expected, Convert convert) {
  return [=, times = kBytesInOneGo / bytes] {
    for (std::size_t i = 0; i < times; ++i) {
      if (convert() != expected) std::abort();
      benchmark::ClobberMemory();
    }
  };
}

// ---- UTF-16 to UTF-8 ----

std::size_t library_to_utf8(const std::string& utf16, std::string& target) {
  const auto* from = reinterpret_cast<const std::uint16_t*>(utf16.data());
  auto* to = reinterpret_cast<std::uint8_t*>(target.data());
  auto* const start = to;
  kelo_util_ConvertUTF16toUTF8(&from, from + utf16.size() / 2, &to, to + target.size(), KELO_UNICODE_STRICT);
  return static_cast<std::size_t>(to - start);
}

std::size_t icu_to_utf8(const std::string& utf16, std::string& target) {
  UErrorCode error = U_ZERO_ERROR;
  std::int32_t length = 0;
  u_strToUTF8(target.data(), static_cast<std::int32_t>(target.size()), &length,
              reinterpret_cast<const UChar*>(utf16.data()), static_cast<std::int32_t>(utf16.size() / 2),
              &error);
  return static_cast<std::size_t>(length);
}

void utf16_to_utf8(benchmark::State& state) {
  const auto [text, bytes, against_icu] = Case(state);
  const Sample sample(text, bytes, true);
  const Iconv iconv("UTF-8", kUtf16);
  std::string ours(sample.utf8.size(), '\0');
  std::string theirs = ours;
  const auto library = repeated(bytes, ours.size(), [&] { return library_to_utf8(sample.utf16, ours); });
  if (against_icu) {
    compare(state, library, repeated(bytes, ours.size(), [&] { return icu_to_utf8(sample.utf16, theirs); }));
  } else {
    compare(state, library,
            repeated(bytes, ours.size(), [&] { return iconv.convert(sample.utf16, theirs); }));
  }
  if (ours != sample.utf8 || theirs != sample.utf8) std::abort();
}

// ---- UTF-8 to UTF-16 ----

std::size_t library_to_utf16(const std::string& utf8, std::string& target) {
  const auto* from = reinterpret_cast<const std::uint8_t*>(utf8.data());
  auto* to = reinterpret_cast<std::uint16_t*>(target.data());
  auto* const start = to;
  kelo_util_ConvertUTF8toUTF16(&from, from + utf8.size(), &to, to + target.size() / 2, KELO_UNICODE_STRICT);
  return 2 * static_cast<std::size_t>(to - start);
}

std::size_t icu_to_utf16(const std::string& utf8, std::string& target) {
  UErrorCode error = U_ZERO_ERROR;
  std::int32_t length = 0;
  u_strFromUTF8(reinterpret_cast<UChar*>(target.data()), static_cast<std::int32_t>(target.size() / 2),
                &length, utf8.data(), static_cast<std::int32_t>(utf8.size()), &error);
  return 2 * static_cast<std::size_t>(length);
}

void utf8_to_utf16(benchmark::State& state) {
  const auto [text, bytes, against_icu] = Case(state);
  const Sample sample(text, bytes, false);
  const Iconv iconv(kUtf16, "UTF-8");
  std::string ours(sample.utf16.size(), '\0');
  std::string theirs = ours;
  const auto library = repeated(bytes, ours.size(), [&] { return library_to_utf16(sample.utf8, ours); });
  if (against_icu) {
    compare(state, library, repeated(bytes, ours.size(), [&] { return icu_to_utf16(sample.utf8, theirs); }));
  } else {
    compare(state, library, repeated(bytes, ours.size(), [&] { return iconv.convert(sample.utf8, theirs); }));
  }
  if (ours != sample.utf16 || theirs != sample.utf16) std::abort();
}

// ---- ISO 8859-1 to UTF-8 ----

void latin1_to_utf8(benchmark::State& state) {
  const bool extended = state.range(0) != 0;
  const auto bytes = static_cast<std::size_t>(state.range(1));
  state.SetLabel(extended ? "above ASCII, against iconv" : "ascii, against iconv");
  const std::string source(bytes, extended ? '\xE9' : 'a');
  const Iconv iconv("UTF-8", "ISO-8859-1");
  std::string ours(2 * bytes + 1, '\0');
  std::string theirs = ours;
  const std::size_t size = iconv.convert(source, theirs);
  const auto library = [&] {
    return static_cast<std::size_t>(
        kelo_util_ss_ascii_to_utf8(source.data(), bytes, ours.data(), ours.size()));
  };
  const auto peer = [&] { return iconv.convert(source, theirs); };
  compare(state, repeated(bytes, size, library), repeated(bytes, size, peer));
  if (ours != theirs) std::abort();
}

void all_texts(benchmark::internal::Benchmark* benchmark) {
  benchmark
      ->ArgsProduct({benchmark::CreateDenseRange(0, kTexts.size() - 1, 1), {kMessage, kLong}, {kIconv, kIcu}})
      ->ArgNames({"text", "bytes", "peer"})
      ->UseManualTime();
}
BENCHMARK(utf16_to_utf8)->Apply(all_texts);
BENCHMARK(utf8_to_utf16)->Apply(all_texts);
BENCHMARK(latin1_to_utf8)
    ->ArgsProduct({{0, 1}, {kMessage, kLong}})
    ->ArgNames({"extended", "bytes"})
    ->UseManualTime();

}  // namespace
