// SPDX-License-Identifier: MIT
// Replaces a part of a text, and splits a text into tokens.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/text_builder.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kReplaceSize = 1024;

char* next_token(char** text, const char* delimiters) {
  char* const token = *text;
  if (token == nullptr) return nullptr;
  char* const end = token + std::strcspn(token, delimiters);
  if (*end == '\0') {
    *text = nullptr;
  } else {
    *end = '\0';
    *text = end + 1;
  }
  return token;
}

}  // namespace

int replace_str(char* text, const char* pattern, const char* replacement) {
  if (text == nullptr) return kelo::log::param_null(__func__);
  if (pattern == nullptr || replacement == nullptr) return -1;
  const char* const found = std::strstr(text, pattern);
  if (found == nullptr) return -1;

  kelo::base::FixedText<kReplaceSize> result;
  result.append({text, static_cast<std::size_t>(found - text)}).append(replacement);
  result.append(found + std::strlen(pattern));
  // Callers replace text in fields of fixed width, so no terminator is written after the result.
  std::memcpy(text, result.c_str(), result.size());
  return 0;
}

namespace kelo::text {

// The C library's header declares that the arguments of this function are never null, so the compiler would remove
// the check for null. Here the function is declared under another name that has the same symbol, which keeps the
// check.
KELO_API char* strsep(char** text, const char* delimiters) __asm__("strsep");

char* strsep(char** text, const char* delimiters) {
  if (text == nullptr || delimiters == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  return next_token(text, delimiters);
}

}  // namespace kelo::text

int split_string_to_array(char* text, const char* delimiters, char** array, std::uint32_t flags) {
  if (text == nullptr || array == nullptr) return -1;
  if (delimiters == nullptr) return kelo::log::param_null(__func__);
  int count = 0;
  while (char* const token = next_token(&text, delimiters)) {
    if (*token == '\0' && (flags & KELO_SPLIT_SKIP_EMPTY) != 0) continue;
    array[count++] = token;
  }
  return count;
}
