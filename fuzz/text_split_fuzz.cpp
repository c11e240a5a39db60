// SPDX-License-Identifier: MIT
// Texts cut into tokens and put together again; replacements in texts of any length.
#include <cstring>

#include "fuzz/input.hpp"
#include "kelo_utils/app_os_al.h"

using kelo::fuzz::require;

namespace {

void split(const std::string& text, char delimiter) {
  std::string cut = text;
  const std::string delimiters(1, delimiter);
  std::vector<char*> tokens(text.size() + 1);
  const int count = split_string_to_array(cut.data(), delimiters.c_str(), tokens.data(), 0);
  std::string joined = tokens[0];
  for (int i = 1; i < count; ++i) joined += delimiter + std::string(tokens[static_cast<std::size_t>(i)]);
  require(joined == text);

  cut = text;
  const int filled =
      split_string_to_array(cut.data(), delimiters.c_str(), tokens.data(), KELO_SPLIT_SKIP_EMPTY);
  require(filled <= count);
  for (int i = 0; i < filled; ++i) require(*tokens[static_cast<std::size_t>(i)] != '\0');
}

void replace(const std::string& text, std::size_t pattern_length, const std::string& replacement) {
  const std::string pattern = text.substr(text.size() / 2, pattern_length);
  std::vector<char> room(text.size() + replacement.size() + 1);
  std::copy(text.begin(), text.end(), room.begin());
  require(replace_str(room.data(), pattern.c_str(), replacement.c_str()) == 0);

  std::string expected = text;
  expected.replace(text.find(pattern), pattern.size(), replacement);
  expected.resize(std::min<std::size_t>(expected.size(), 1023));
  require(std::memcmp(room.data(), expected.data(), expected.size()) == 0);
  if (text.size() > expected.size()) require(room.data() + expected.size() == text.substr(expected.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const auto delimiter = static_cast<char>(input.byte());
  const std::size_t pattern_length = input.number(16);
  const std::string replacement(input.number(1100), '-');
  const std::string text = input.text();
  if (delimiter != '\0') split(text, delimiter);
  replace(text, pattern_length, replacement);
  return 0;
}
