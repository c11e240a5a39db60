// SPDX-License-Identifier: MIT
// Every text there is over a small alphabet: input for a comparison with a plain second implementation.
#ifndef KELO_TESTS_EVERY_TEXT_HPP
#define KELO_TESTS_EVERY_TEXT_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::tests {

// All texts of 0 to `max_length` characters of `alphabet`, the shorter ones first.
inline std::vector<std::string> every_text(std::string_view alphabet, std::size_t max_length) {
  std::vector<std::string> texts = {""};
  std::size_t begin = 0;
  for (std::size_t length = 1; length <= max_length; ++length) {
    const std::size_t end = texts.size();
    for (; begin < end; ++begin) {
      for (const char last : alphabet) texts.push_back(texts[begin] + last);
    }
  }
  return texts;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_EVERY_TEXT_HPP
