// SPDX-License-Identifier: MIT
// Bounded copies of text that may be cut off or ill-formed anywhere.
#include <cstring>

#include "fuzz/input.hpp"
#include "kelo_utils/app_os_al.h"

using kelo::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  std::vector<char> room(input.number(64) + 1, 'x');
  const std::string text = input.text();

  std::size_t copied = 0;
  const int result = kelo_utf8_Copy(room.data(), text.c_str(), room.size(), &copied);
  require(copied < room.size() && std::strlen(room.data()) == copied);
  require(std::memcmp(room.data(), text.c_str(), copied) == 0);
  require(result == -1 || copied == 0 || copied == text.size());

  require(kelo_strlcpy(room.data(), text.c_str(), room.size()) == text.size());
  require(std::strlen(room.data()) == std::min(text.size(), room.size() - 1));
  require(kelo_strlcat(room.data(), text.c_str(), room.size()) >= text.size());
  require(std::strlen(room.data()) < room.size());
  return 0;
}
