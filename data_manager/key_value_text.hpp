// The text that holds a list of key-value pairs: "key,value;" for each pair.
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

// Bytes that a pair takes in a list.
constexpr std::size_t text_size(const KeyValue& pair) {
  return pair.key.size() + pair.value.size() + sizeof kKeyEnd + sizeof kPairEnd;
}

// The part of `text` before and the part behind the byte at `place`. (substr() would bring in the C++ run
// time for an error that cannot happen here.)
constexpr std::string_view part_before(std::string_view text, std::size_t place) {
  return {text.data(), std::min(place, text.size())};
}
constexpr std::string_view part_behind(std::string_view text, std::size_t place) {
  text.remove_prefix(place < text.size() ? place + 1 : text.size());
  return text;
}

// Where `key` and the end of a key stand in `list`; npos if nowhere. Any place counts, the end of a longer
// key and the inside of a value too: lists in the field were edited by this rule.
constexpr std::size_t find_key(std::string_view list, std::string_view key) {
  std::size_t place = list.find(key);
  while (place != std::string_view::npos &&
         (place + key.size() == list.size() || list[place + key.size()] != kKeyEnd))
    place = list.find(key, place + 1);
  return place;
}

// Writes `list` with `pair` set in it to `out`, which has room for both and a terminator: in place of the
// pair found, else at the end. Returns the new text without its terminator.
inline std::string_view set_pair(std::string_view list, const KeyValue& pair, std::span<char> out) {
  const std::size_t place = find_key(list, pair.key);
  const std::string_view before = part_before(list, place);
  const std::string_view old_pair_on{list.data() + before.size(), list.size() - before.size()};
  const std::string_view behind = part_behind(old_pair_on, old_pair_on.find(kPairEnd));
  std::size_t length = 0;
  for (const std::string_view part : {before, pair.key, std::string_view(&kKeyEnd, 1), pair.value,
                                      std::string_view(&kPairEnd, 1), behind}) {
    std::copy(part.begin(), part.end(), out.data() + length);
    length += part.size();
  }
  out[length] = '\0';
  return {out.data(), length};
}

// Splits the first pair off `list`; nothing when the list has ended or the pair is empty. A pair without the
// end of a key is all key.
constexpr std::optional<KeyValue> take_pair(std::string_view& list) {
  const std::size_t pair_end = list.find(kPairEnd);
  const std::string_view pair = part_before(list, pair_end);
  list = part_behind(list, pair_end);
  if (pair.empty()) return std::nullopt;
  const std::size_t key_end = pair.find(kKeyEnd);
  return KeyValue{part_before(pair, key_end), part_behind(pair, key_end)};
}

// Copies as much of `text` as fits to `row`, and terminates it.
inline void fill_row(std::span<char> row, std::string_view text) {
  const std::size_t length = std::min(text.size(), row.size() - 1);
  std::copy_n(text.begin(), length, row.begin());
  row[length] = '\0';
}

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_KEY_VALUE_TEXT_HPP
