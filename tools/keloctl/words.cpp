// SPDX-License-Identifier: MIT
// Separates the arguments of a command from its options.
#include <cstring>
#include <string_view>
#include <utility>

#include "tools/keloctl/command.hpp"

namespace kelo::ctl {
namespace {

// Looks for an option in a list such as "hex id=". Returns the option's place in the list, or null.
const char* find_option(const char* list, std::string_view name) {
  while (*list != '\0') {
    const std::size_t length = std::strcspn(list, " ");
    const std::size_t plain = std::strcspn(list, " =");
    if (std::string_view(list, plain) == name) return list;
    list += length;
    list += std::strspn(list, " ");
  }
  return nullptr;
}

bool takes_value(const char* option) { return option[std::strcspn(option, " =")] == '='; }

}  // namespace

bool Words::take_option(const char* word, std::size_t& next) {
  const std::size_t length = std::strcspn(word, "=");
  const char* const known = find_option(options_, {word, length});
  if (known == nullptr || options_count_ == kMostOptions) return false;
  const char* value = "";
  if (word[length] == '=') {
    if (!takes_value(known)) return false;
    value = word + length + 1;
  } else if (takes_value(known)) {
    if (next == words_.size()) return false;
    value = words_[next++];
  }
  given_[options_count_++] = {known, value};
  return true;
}

// An option of one letter has one dash. A word with one dash may also be a negative number.
int Words::dashes_of(const char* word) const {
  if (std::strncmp(word, "--", 2) == 0) return 2;
  const bool one_letter = word[0] == '-' && word[1] != '\0' && word[2] == '\0';
  return one_letter && find_option(options_, {word + 1, 1}) != nullptr ? 1 : 0;
}

const char* Words::sort() {
  bool ended = false;
  for (std::size_t next = 0; next < words_.size();) {
    char* const word = words_[next++];
    if (!ended && std::strcmp(word, "--") == 0) {
      ended = true;
    } else if (const int dashes = ended ? 0 : dashes_of(word); dashes != 0) {
      if (!take_option(word + dashes, next)) return word;
    } else {
      words_[index_of(count_++)] = word;
    }
  }
  return nullptr;
}

const char* Words::option(const char* name) const {
  const char* const known = find_option(options_, name);
  for (int i = 0; i < options_count_; ++i) {
    if (given_[i].name == known) return given_[i].value;
  }
  return nullptr;
}

}  // namespace kelo::ctl
