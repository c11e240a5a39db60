// Bringing a change to a settings file onto the storage. Each function tells whether it is there.
#ifndef KELO_INI_CHANGE_HPP
#define KELO_INI_CHANGE_HPP

#include <sys/types.h>

#include <string_view>

#include "ini/written_text.hpp"

namespace kelo::ini {

// A stretch of the file that goes, which may be empty, and what takes its place.
struct Change {
  off_t begin = 0;
  off_t end = 0;
  WrittenText text;
};

// Makes a file that is not there. On failure there is none.
bool create_file(const char* filename, std::string_view text);

// Writes over a stretch of the same length.
bool overwrite_stretch(const char* filename, const Change& change);

// Puts a changed copy in the place of the file, which is open as `settings`. On failure, and whenever the power
// fails, the file is as it was or as it is to be.
bool replace_file(const char* filename, int settings, const Change& change);

}  // namespace kelo::ini

#endif  // KELO_INI_CHANGE_HPP
