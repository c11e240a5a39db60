// SPDX-License-Identifier: MIT
// Parameters of AT replies: blanks, sets of characters and quotes around them.
#include "fuzz/input.hpp"
#include "kelo_utils/app_os_al.h"

using kelo::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  std::vector<char> room(input.number(32));
  const std::vector<std::uint8_t> set_bytes = input.bytes(input.number(4));
  const std::string set(set_bytes.begin(), std::find(set_bytes.begin(), set_bytes.end(), 0));
  const std::string text = input.text();

  std::string trimmed = text;
  const char* const left = kelo_trim_string(trimmed.data());
  require(left == trimmed.data());
  require(text.find(left) != std::string::npos);

  std::string stripped = text;
  const std::string kept = kelo_at_param_strip(stripped.data(), set.c_str());
  require(text.find(kept) != std::string::npos);
  require(kept.empty() || (set.find(kept.front()) == set.npos && set.find(kept.back()) == set.npos));

  const int result = kelo_strip_quotes_out(text.c_str(), room.data(), room.size());
  require(result == 0 || '"' + std::string(room.data()) + '"' == text);
  return 0;
}
