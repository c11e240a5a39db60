// SPDX-License-Identifier: MIT
// UTF-8 that may be ill-formed or cut off anywhere, into too little room and enough.
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
  const std::uint8_t* from = source.data();
  auto* to = reinterpret_cast<std::uint16_t*>(target.data());
  const int result = kelo_util_ConvertUTF8toUTF16(
      &from, from + source.size(), &to, reinterpret_cast<std::uint16_t*>(target.data() + room), mode);
  const auto written = static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(to) - target.data());
  require(written <= room && written % 2 == 0);
  target.resize(written);
  return {result, static_cast<std::size_t>(from - source.data()), target};
}

Bytes back(const Bytes& units, int mode) {
  Bytes target(2 * units.size());
  const auto* from = reinterpret_cast<const std::uint16_t*>(units.data());
  const auto* const end = reinterpret_cast<const std::uint16_t*>(units.data() + units.size());
  std::uint8_t* to = target.data();
  require(kelo_util_ConvertUTF16toUTF8(&from, end, &to, to + target.size(), mode) == KELO_UNICODE_COMPLETE);
  target.resize(static_cast<std::size_t>(to - target.data()));
  return target;
}

void require_sound(const Outcome& outcome, const Bytes& source) {
  require(outcome.source_bytes <= source.size());
  require((outcome.result == KELO_UNICODE_COMPLETE) == (outcome.source_bytes == source.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::size_t room = input.number(300);
  const Bytes source = input.rest();

  const Outcome strict = convert(source, room, KELO_UNICODE_STRICT);
  require_sound(strict, source);
  require(back(strict.written, KELO_UNICODE_STRICT) ==
          Bytes(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(strict.source_bytes)));

  const Outcome lenient = convert(source, room, KELO_UNICODE_LENIENT);
  require(lenient.result == strict.result && lenient.source_bytes == strict.source_bytes);
  require(lenient.written == strict.written);

  // What stopped the conversion also stops one that starts there.
  const Outcome rest =
      convert({source.begin() + static_cast<std::ptrdiff_t>(strict.source_bytes), source.end()},
              room - strict.written.size(), KELO_UNICODE_STRICT);
  require(rest.source_bytes == 0 && rest.result == strict.result);

  Bytes ucs2(room + 2);
  const int length = kelo_util_convert_utf8_to_ucs2(reinterpret_cast<const char*>(source.data()),
                                                    source.size(), ucs2.data(), ucs2.size());
  const auto written = static_cast<std::size_t>(length);
  const bool has_source = source.data() != nullptr;
  require(written == (has_source ? strict.written.size() : 0));
  require(std::equal(strict.written.begin(), strict.written.end(), ucs2.begin()));
  require(ucs2[written] == 0 && ucs2[written + 1] == 0);
  return 0;
}
