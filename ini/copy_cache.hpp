// The buffer through which a file is copied.
#ifndef KELO_INI_COPY_CACHE_HPP
#define KELO_INI_COPY_CACHE_HPP

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>

#include "base/file.hpp"
#include "ini/assertion.hpp"
#include "kelo_utils/ini.h"

namespace kelo::ini {

// Copies at most `size` bytes from that position of one file to another. How many there were; 0 at the end
// of the file and on failure.
inline std::size_t cache_flush(int from, off_t position, std::size_t size, int to) {
  std::array<char, INI_BUFFERSIZE> cache;
  assert(size <= cache.size());
  const ssize_t count = base::retry_interrupted([&] { return pread(from, cache.data(), size, position); });
  const std::size_t read = count < 0 ? 0 : static_cast<std::size_t>(count);
  return base::write_all(to, {cache.data(), read}) == read ? read : 0;
}

}  // namespace kelo::ini

#endif  // KELO_INI_COPY_CACHE_HPP
