// SPDX-License-Identifier: MIT
// The lines that are written to a settings file.
#ifndef KELO_INI_WRITTEN_TEXT_HPP
#define KELO_INI_WRITTEN_TEXT_HPP

#include <cstddef>
#include <string_view>

#include "base/text_builder.hpp"
#include "kelo_utils/ini.h"

namespace kelo::ini {

// A text of at most a newline, a section header and a key line. A part that is too long for its line is cut.
class WrittenText {
 public:
  void write_newline() { text_.put('\n'); }
  void writesection(std::string_view name);
  void writekey(std::string_view key, std::string_view value);

  [[nodiscard]] std::string_view text() const { return text_.view(); }

 private:
  void put(std::string_view text, std::size_t most);
  void put_enclosed(std::string_view value, std::size_t most);

  base::FixedText<std::size_t{2} * INI_BUFFERSIZE> text_;
};

}  // namespace kelo::ini

#endif  // KELO_INI_WRITTEN_TEXT_HPP
