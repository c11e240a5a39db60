// SPDX-License-Identifier: MIT
// Compares prefixes and suffixes, and changes the case of letters.
#include <strings.h>

#include <cctype>
#include <cstddef>
#include <cstring>

#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

int begins_alike(const char* text, const char* other, std::size_t length, int ignore_case) {
  const bool alike = ignore_case != 0
                         ? strncasecmp(text, other, length) == 0
                         : strnlen(text, length) == length && std::memcmp(text, other, length) == 0;
  return alike ? 1 : 0;
}

}  // namespace

int starts_with(const char* text, const char* prefix, int ignore_case) {
  if (text == nullptr || prefix == nullptr) return 0;
  return begins_alike(text, prefix, std::strlen(prefix), ignore_case);
}

int ends_with(const char* text, const char* suffix, int ignore_case) {
  if (text == nullptr || suffix == nullptr) return 0;
  const std::size_t text_length = std::strlen(text);
  const std::size_t length = std::strlen(suffix);
  if (length > text_length) return 0;
  return begins_alike(text + (text_length - length), suffix, length, ignore_case);
}

int tolowercase(int character) {
  return character >= 'A' && character <= 'Z' ? character + ('a' - 'A') : character;
}

char* kelo_string_toupper(char* text) {
  if (text == nullptr) {
    kelo::log::param_null(__func__);
    return nullptr;
  }
  // std::toupper() does not accept negative values. Bytes above 127 are negative where `char` is signed.
  for (char* at = text; *at != '\0'; ++at)
    *at = static_cast<char>(std::toupper(static_cast<unsigned char>(*at)));
  return text;
}
