// SPDX-License-Identifier: MIT
// The lines that are written to a settings file.
#include "ini/written_text.hpp"

#include <algorithm>

#include "ini/assertion.hpp"

namespace kelo::ini {
namespace {

constexpr char kQuote = '"';

// This is one byte less than can be read, so a line still fits after an editor has given it a line end of two bytes.
constexpr std::size_t kLongestLine = INI_BUFFERSIZE - 2;
constexpr std::size_t kLongestSection = kLongestLine - std::string_view("[]\n").size();
constexpr std::size_t kLongestKey = kLongestLine - std::string_view("=\n").size();
static_assert(kLongestSection == 507 && kLongestKey == 508);

// Whether a value must be quoted so that it is read back unchanged.
bool check_enquote(std::string_view value) {
  assert(value.data() != nullptr);
  return value.ends_with(' ') || value.find_first_of("\"#;") != std::string_view::npos;
}

}  // namespace

void WrittenText::writesection(std::string_view name) {
  assert(!name.empty());
  text_.put('[');
  put(name, kLongestSection);
  text_.append("]\n");
}

void WrittenText::writekey(std::string_view key, std::string_view value) {
  assert(key.data() != nullptr);
  put(key, kLongestKey);
  text_.put('=');
  const std::size_t room = kLongestKey - std::min(key.size(), kLongestKey);
  if (check_enquote(value)) {
    put_enclosed(value, room);
  } else {
    put(value, room);
  }
  text_.put('\n');
  assert(!text_.cut());
}

void WrittenText::put(std::string_view text, std::size_t most) {
  text_.append({text.data(), std::min(text.size(), most)});
}

// If the value is cut, both quotes are still written, and no escaped quote is split.
void WrittenText::put_enclosed(std::string_view value, std::size_t most) {
  if (most < 2) return;
  most -= 2;
  text_.put(kQuote);
  for (const char c : value) {
    const std::size_t size = c == kQuote ? 2 : 1;
    if (size > most) break;
    if (c == kQuote) text_.put('\\');
    text_.put(c);
    most -= size;
  }
  text_.put(kQuote);
}

}  // namespace kelo::ini
