// SPDX-License-Identifier: MIT
// Reads a settings file line by line.
#include "ini/lines.hpp"

#include <cstring>

namespace kelo::ini {

bool Lines::next() {
  begin_ = end_;
  const std::string_view line = reader_.next();
  text_ = {line.data(), strnlen(line.data(), line.size())};
  if (line.empty()) return false;
  end_ += static_cast<off_t>(line.size());
  complete_ = line.back() == '\n';
  chunk_ = chunk_ + line.size() <= INI_BUFFERSIZE ? chunk_ + line.size() : line.size();
  return true;
}

}  // namespace kelo::ini
