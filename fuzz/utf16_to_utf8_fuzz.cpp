// SPDX-License-Identifier: MIT
// UTF-16 with unpaired surrogates and half units, into too little room and enough.
#include "fuzz/input.hpp"
#include "kelo_utils/app_common.h"

using kelo::fuzz::require;

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Outcome {
  int result;
  std::size_t source_bytes;
  Bytes written;
};

Outcome convert(const Bytes& source, std::size_t room, int mode) {
  Bytes target(room);
  const auto* from = reinterpret_cast<const std::uint16_t*>(source.data());
  const auto* const end = reinterpret_cast<const std::uint16_t*>(source.data() + source.size());
  std::uint8_t* to = target.data();
  const int result = kelo_util_ConvertUTF16toUTF8(&from, end, &to, target.data() + room, mode);
  const auto written = static_cast<std::size_t>(to - target.data());
  require(written <= room);
  target.resize(written);
  return {result, static_cast<std::size_t>(reinterpret_cast<const std::uint8_t*>(from) - source.data()),
          target};
}

Bytes back(const Bytes& utf8) {
  Bytes target(2 * utf8.size());
  const std::uint8_t* from = utf8.data();
  auto* to = reinterpret_cast<std::uint16_t*>(target.data());
  auto* const end = reinterpret_cast<std::uint16_t*>(target.data() + target.size());
  require(kelo_util_ConvertUTF8toUTF16(&from, from + utf8.size(), &to, end, KELO_UNICODE_STRICT) ==
          KELO_UNICODE_COMPLETE);
  target.resize(static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(to) - target.data()));
  return target;
}

void require_bounds(const Outcome& outcome, const Bytes& source) {
  require(outcome.source_bytes <= source.size() && outcome.source_bytes % 2 == 0);
  require((outcome.result == KELO_UNICODE_COMPLETE) == (outcome.source_bytes == source.size()));
}

// What was converted comes back, and nothing else was.
void require_return(const Outcome& outcome, const Bytes& source) {
  require(back(outcome.written) ==
          Bytes(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(outcome.source_bytes)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::size_t room = input.number(300);
  const Bytes source = input.rest();

  const Outcome strict = convert(source, room, KELO_UNICODE_STRICT);
  require_bounds(strict, source);
  require_return(strict, source);
  const Outcome lenient = convert(source, room, KELO_UNICODE_LENIENT);
  require_bounds(lenient, source);
  // A surrogate without its other half, at which the strict mode stops, does not come back.
  if (lenient.source_bytes == strict.source_bytes) require_return(lenient, source);
  require(lenient.result != KELO_UNICODE_SOURCE_ILLEGAL);
  require(lenient.source_bytes >= strict.source_bytes);

  // What stopped the conversion also stops one that starts there.
  const Outcome rest =
      convert({source.begin() + static_cast<std::ptrdiff_t>(lenient.source_bytes), source.end()},
              room - lenient.written.size(), KELO_UNICODE_LENIENT);
  require(rest.source_bytes == 0 && rest.result == lenient.result);

  std::vector<char> text(room + 1, 'x');
  const int length = kelo_util_convert_ucs2_to_utf8(source.data(), source.size(), text.data(), text.size());
  require(static_cast<std::size_t>(length) == lenient.written.size() && text[lenient.written.size()] == '\0');
  require(std::equal(
      lenient.written.begin(), lenient.written.end(), text.begin(),
      [](std::uint8_t byte, char character) { return byte == static_cast<std::uint8_t>(character); }));
  return 0;
}
