// SPDX-License-Identifier: MIT
// Shortens what makes a test fail, so that its message shows little more than the cause.
#ifndef KELO_TESTS_SUPPORT_SHORTEN_HPP
#define KELO_TESTS_SUPPORT_SHORTEN_HPP

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace kelo::tests {

// Leaves out parts of a list or a text, large ones first, as long as `fails` holds for what is left.
template <typename List, typename Fails>
void leave_out(List& list, const Fails& fails) {
  for (std::size_t size = list.size(); size > 0; size /= 2) {
    for (std::size_t at = 0; at + size <= list.size();) {
      List shorter = list;
      const auto from = shorter.begin() + static_cast<std::ptrdiff_t>(at);
      shorter.erase(from, from + static_cast<std::ptrdiff_t>(size));
      if (fails(shorter)) {
        list = std::move(shorter);
      } else {
        at += size;
      }
    }
  }
}

template <typename Fails>
void shorten(std::optional<std::string>& text, const Fails& fails) {
  if (!text) return;
  std::string shorter = *text;
  leave_out(shorter, [&](const std::string& each) { return fails(std::optional<std::string>(each)); });
  text = shorter;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_SHORTEN_HPP
