// SPDX-License-Identifier: MIT
// Writes a changed settings file to the storage.
#ifndef KELO_INI_CHANGE_HPP
#define KELO_INI_CHANGE_HPP

#include <sys/types.h>

#include <cstddef>
#include <string_view>

#include "ini/written_text.hpp"

namespace kelo::ini {

// A part of the file, which may be empty, and the text that replaces it.
struct Change {
  off_t begin = 0;
  off_t end = 0;
  WrittenText text;
};

// Copies at most `size` bytes from `position` of one file to another. Returns the number of bytes copied, which is 0
// at the end of the file and on failure. `size` must not exceed INI_BUFFERSIZE.
std::size_t cache_flush(int from, off_t position, std::size_t size, int to);

// The following functions return true when the change is on the storage.

// Creates a file that does not exist. On failure it does not exist afterwards either.
bool create_file(const char* filename, std::string_view text);

// Writes the new text over the part, which has the same length.
bool overwrite_stretch(const char* filename, const Change& change);

// Replaces the file, which is open as `settings`, by a changed copy. After a failure or a power cut the file has
// either its old or its new content.
bool replace_file(const char* filename, int settings, const Change& change);

}  // namespace kelo::ini

#endif  // KELO_INI_CHANGE_HPP
