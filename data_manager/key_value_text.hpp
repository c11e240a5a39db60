// SPDX-License-Identifier: MIT
// Lists of key-value pairs as text: "key,value;" for each pair.
#ifndef KELO_DATA_MANAGER_KEY_VALUE_TEXT_HPP
#define KELO_DATA_MANAGER_KEY_VALUE_TEXT_HPP

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace kelo::dm {

constexpr char kKeyEnd = ',';
constexpr char kPairEnd = ';';

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

// Returns the number of bytes that a pair has in a list.
constexpr std::size_t text_size(const KeyValue& pair) {
  return pair.key.size() + pair.value.size() + sizeof kKeyEnd + sizeof kPairEnd;
}

// These return the parts of `text` before and after the byte at `position`. They replace substr(), which would link
// the C++ run time for an error that cannot happen here.
constexpr std::string_view part_before(std::string_view text, std::size_t position) {
  return {text.data(), std::min(position, text.size())};
}
constexpr std::string_view part_after(std::string_view text, std::size_t position) {
  text.remove_prefix(position < text.size() ? position + 1 : text.size());
  return text;
}

// Returns the position of `key` and the comma after it in `list`, or npos. A match at the end of a longer key or
// inside a value counts, since lists in the field were edited by this rule.
constexpr std::size_t find_key(std::string_view list, std::string_view key) {
  std::size_t comma = list.find(kKeyEnd);
  while (comma != std::string_view::npos && !part_before(list, comma).ends_with(key))
    comma = list.find(kKeyEnd, comma + 1);
  return comma == std::string_view::npos ? comma : comma - key.size();
}

// Writes `list` to `out` with `pair` in place of the pair that was found, or at the end when none was. `out` must
// hold both and a terminator. Returns the new text without its terminator.
inline std::string_view set_pair(std::string_view list, const KeyValue& pair, std::span<char> out) {
  const std::size_t position = find_key(list, pair.key);
  const std::string_view before = part_before(list, position);
  const std::string_view old_pair_and_rest{list.data() + before.size(), list.size() - before.size()};
  const std::string_view after = part_after(old_pair_and_rest, old_pair_and_rest.find(kPairEnd));
  std::size_t length = 0;
  for (const std::string_view part :
       {before, pair.key, std::string_view(&kKeyEnd, 1), pair.value, std::string_view(&kPairEnd, 1), after}) {
    std::copy(part.begin(), part.end(), out.data() + length);
    length += part.size();
  }
  out[length] = '\0';
  return {out.data(), length};
}

// Removes the first pair from `list` and returns it. The result is empty when the list is empty or the pair is. A
// pair without a comma is a key without a value.
constexpr std::optional<KeyValue> take_pair(std::string_view& list) {
  const std::size_t pair_end = list.find(kPairEnd);
  const std::string_view pair = part_before(list, pair_end);
  list = part_after(list, pair_end);
  if (pair.empty()) return std::nullopt;
  const std::size_t key_end = pair.find(kKeyEnd);
  return KeyValue{part_before(pair, key_end), part_after(pair, key_end)};
}

// Copies `text` to `row`, cuts it where it does not fit, and terminates it.
inline void fill_row(std::span<char> row, std::string_view text) {
  const std::size_t length = std::min(text.size(), row.size() - 1);
  std::copy_n(text.begin(), length, row.begin());
  row[length] = '\0';
}

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_KEY_VALUE_TEXT_HPP
