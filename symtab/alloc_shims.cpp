// SPDX-License-Identifier: MIT
// The functions of an older allocator, which programs still call. They take their memory from the C library.
#include <cstdlib>
#include <cstring>

#include "kelo_utils/symtab.h"

int bopen(int argument) { return argument; }

int bclose(int argument) { return argument; }

int bstats(int argument) { return argument; }

char* bstrdupANoBalloc(const char* str) {
  if (str == nullptr) str = "";
  const std::size_t size = std::strlen(str) + 1;
  void* const copy = std::calloc(size, 1);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, str, size));
}

char* bstrdupNoBalloc(const char* str) { return bstrdupANoBalloc(str); }

void* bmemdupNoBalloc(const void* src, size_t count) {
  void* const block = std::calloc(count, 1);
  if (block != nullptr && src != nullptr) std::memcpy(block, src, count);
  return block;
}
