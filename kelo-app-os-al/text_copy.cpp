// SPDX-License-Identifier: MIT
// Copies text into buffers of a given size.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/fatal.hpp"
#include "base/words.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::load;
using Word = kelo::base::LargestWord;

// The sizes of UTF-8 characters, indexed by the number of leading one bits in their first byte.
constexpr std::array<std::uint8_t, 9> kCharacterSizes = {1, 0, 2, 3, 4, 0, 0, 0, 0};

std::size_t character_size(char lead) {
  return kCharacterSizes[static_cast<std::size_t>(std::countl_one(static_cast<std::uint8_t>(lead)))];
}

enum class Utf8Fit { whole, cut, ill_formed };

struct Utf8Prefix {
  Utf8Fit fit;
  std::size_t length;
};

// Returns how many bytes of complete characters at the start of `text` fit into `room` bytes, and whether the whole
// text fits. A character that the terminator interrupts is not complete and never fits.
Utf8Prefix whole_characters(const char* text, std::size_t room) {
  constexpr Word kNotAscii = kelo::base::all_bytes<Word>(0x80);
  const std::size_t end = strnlen(text, room + 1);
  const std::size_t fitting = std::min(end, room);
  std::size_t length = 0;
  while (length < end) {
    if (fitting - length >= sizeof(Word) && (load<Word>(text + length) & kNotAscii) == 0) {
      length += sizeof(Word);
      continue;
    }
    const std::size_t size = character_size(text[length]);
    if (size == 0) return {Utf8Fit::ill_formed, 0};
    if (size > fitting - length) return {Utf8Fit::cut, length};
    length += size;
  }
  return {Utf8Fit::whole, length};
}

// Copies the part of the text that fits into `size` bytes with a terminator. Returns the length of the source.
inline std::size_t copy_text(char* destination, const char* source, std::size_t size) {
  const std::size_t length = std::strlen(source);
  if (length < size) {
    std::memcpy(destination, source, length + 1);
  } else if (size != 0) {
    std::memcpy(destination, source, size - 1);
    destination[size - 1] = '\0';
  }
  return length;
}

}  // namespace

std::size_t kelo_strlcpy(char* destination, const char* source, std::size_t size) {
  if (destination == nullptr || source == nullptr) return 0;
  return copy_text(destination, source, size);
}

std::size_t kelo_strlcat(char* destination, const char* source, std::size_t size) {
  if (destination == nullptr || source == nullptr) return 0;
  const std::size_t length = strnlen(destination, size);
  return length + copy_text(destination + length, source, size - length);
}

void kelo_string_memcpy(char* destination, const char* source, std::size_t n) {
  if (destination == nullptr || source == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "Invalid string parameter.\n");
    return;
  }
  const std::size_t copied = strnlen(source, n);
  std::memcpy(destination, source, copied);
  std::memset(destination + copied, 0, n - copied);
}

int kelo_utf8_NumBytesInChar(char lead) { return static_cast<int>(character_size(lead)); }

int kelo_utf8_Copy(char* destination, const char* source, std::size_t size, std::size_t* copied) {
  if (destination == nullptr || source == nullptr || size == 0) kelo::base::fatal(kelo::base::kSystemCode);
  const Utf8Prefix prefix = whole_characters(source, size - 1);
  std::memcpy(destination, source, prefix.length);
  destination[prefix.length] = '\0';
  if (copied != nullptr) *copied = prefix.length;
  return prefix.fit == Utf8Fit::cut ? -1 : 0;
}
