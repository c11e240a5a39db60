// SPDX-License-Identifier: MIT
// USSD text of every data coding scheme, decoded into buffers of any size that hold no terminator before.
#include <cstring>

#include "fuzz/input.hpp"
#include "fuzz/log_sink.hpp"
#include "kelo_utils/app_common.h"

using kelo::fuzz::require;

namespace {

constexpr char kUntouched = 'x';

bool is_8_bit(unsigned dcs) {
  const unsigned high = dcs >> 4;
  const bool general = (high >= 4 && high <= 7) || high == 9;
  return (general && (dcs & 0x0C) == 4) || (high == 15 && (dcs & 4) != 0);
}

void check_ascii(const std::vector<std::uint8_t>& data) {
  std::string text(data.begin(), std::find(data.begin(), data.end(), 0));
  const bool ascii = std::all_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) == 0; });
  require(kelo_util_UssdStringIsAscii(text.c_str()) == (ascii ? 1 : 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  kelo::fuzz::Input input(bytes, size);
  const std::uint8_t dcs = input.byte();
  std::vector<char> out(input.number(600), kUntouched);
  out.reserve(1);
  std::vector<std::uint8_t> data = input.rest();
  data.reserve(1);

  const int result = kelo_util_convert_ussd_string_to_utf8(dcs, data.data(), static_cast<int>(data.size()),
                                                           out.data(), out.size());
  const auto length = static_cast<std::size_t>(result);
  require(result >= 0 && (length == 0 || length < out.size()));
  if (length > 0) require(out[length] == '\0');
  // What the text does not reach stays as it was.
  for (std::size_t i = length + 1; i < out.size(); ++i) require(out[i] == kUntouched);
  if (is_8_bit(dcs)) {
    require(length == (data.size() + 1 < out.size() ? data.size() : 0));
    require(std::memcmp(out.data(), data.data(), length) == 0);
  }
  check_ascii(data);
  return 0;
}
