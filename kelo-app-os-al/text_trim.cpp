// SPDX-License-Identifier: MIT
// Removes white space, characters of a set or quotes from the ends of a text.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>

#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

// std::isspace() does not accept negative values. Bytes above 127 are negative where `char` is signed.
bool is_space(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

}  // namespace

char* kelo_trim_string(char* text) {
  if (text == nullptr) return nullptr;
  const char* begin = text;
  while (is_space(*begin)) ++begin;
  std::size_t length = std::strlen(begin);
  while (length > 0 && is_space(begin[length - 1])) --length;
  std::memmove(text, begin, length);
  text[length] = '\0';
  return text;
}

char* kelo_at_param_strip(char* text, const char* set) {
  if (text == nullptr || set == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  char* const begin = text + std::strspn(text, set);
  char* end = begin + std::strlen(begin);
  while (end > begin && std::strchr(set, end[-1]) != nullptr) *--end = '\0';
  return begin;
}

int kelo_strip_quotes_out(const char* input, char* output, std::size_t size) {
  if (input == nullptr || output == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  if (*input != '"') {
    KELO_LOG(LOG_LVL_ERR, "The in_str must be quoted\n");
    return 0;
  }
  const char* const quoted = input + 1;
  const std::size_t length = std::strcspn(quoted, "\"");
  std::memcpy(output, quoted, std::min(length, size));
  if (quoted[length] == '\0' || length >= size) {
    KELO_LOG(LOG_LVL_ERR, "The in_str has opened quotes, or out_str is small: %d\n", static_cast<int>(size));
    return 0;
  }
  if (quoted[length + 1] != '\0') {
    KELO_LOG(LOG_LVL_ERR, "String is not terminated after end quote found\n");
    return 0;
  }
  output[length] = '\0';
  return 1;
}
