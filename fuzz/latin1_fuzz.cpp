// SPDX-License-Identifier: MIT
// 8-bit text of any bytes, into too little room and enough.
#include "fuzz/input.hpp"
#include "kelo_utils/app_common.h"

using kelo::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  std::vector<char> out(input.number(300), 'x');
  const std::vector<std::uint8_t> text = input.rest();

  const int length = kelo_util_ss_ascii_to_utf8(reinterpret_cast<const char*>(text.data()), text.size(),
                                                out.data(), out.size());
  const auto written = static_cast<std::size_t>(length);
  if (text.empty() || out.size() < 2 * text.size()) {
    require(written == 0 &&
            std::count(out.begin(), out.end(), 'x') == static_cast<std::ptrdiff_t>(out.size()));
    return 0;
  }
  require(written < out.size() && out[written] == '\0');

  // It comes back byte by byte, without its carriage returns and what the end of the buffer left out.
  std::vector<std::uint8_t> units(2 * written + 2);
  const int back = kelo_util_convert_utf8_to_ucs2(out.data(), written, units.data(), units.size());
  std::vector<std::uint8_t> kept(text);
  kept.erase(std::remove(kept.begin(), kept.end(), '\r'), kept.end());
  std::size_t matched = 0;
  for (const std::uint8_t byte : kept) {
    std::uint16_t unit = 0;
    std::copy_n(units.data() + 2 * matched, sizeof unit, reinterpret_cast<std::uint8_t*>(&unit));
    if (unit == byte) {
      ++matched;
    } else {
      require(byte > 127 && written + 2 >= out.size());
    }
  }
  require(static_cast<std::size_t>(back) == 2 * matched);
  return 0;
}
