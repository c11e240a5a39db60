// SPDX-License-Identifier: MIT
// Finds sections and keys in a settings file. Each read and each write starts with that.
#ifndef KELO_INI_KEY_SEARCH_HPP
#define KELO_INI_KEY_SEARCH_HPP

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "ini/lines.hpp"
#include "ini/syntax.hpp"

namespace kelo::ini {

// The section or key to find, given by its name or by its position. Positions count from 0.
class Target {
 public:
  // A null pointer means the empty name.
  static Target named(const char* name) { return Target(name == nullptr ? "" : name, std::nullopt); }
  // A position below 0 never matches.
  static Target at(int position) { return Target({}, static_cast<std::size_t>(position)); }

  [[nodiscard]] bool by_position() const { return position_.has_value(); }
  [[nodiscard]] bool is_nameless() const { return !by_position() && name_.empty(); }
  [[nodiscard]] bool matches(std::string_view name, std::size_t position) const {
    return by_position() ? position == position_ : same_name(name, name_);
  }

 private:
  Target(std::string_view name, std::optional<std::size_t> position) : name_(name), position_(position) {}

  std::string_view name_;
  std::optional<std::size_t> position_;
};

// Moves to the header of the section. For the nameless section, which has no header, it does not move. Returns false
// at the end of the file.
bool find_section(Lines& lines, Target section);

// Moves to the line of the key, starting at the header of its section. Returns nothing when the section ends, at the
// next header or at the end of the file.
std::optional<KeyLine> find_key(Lines& lines, Target key);

// Copies the result of a read into the buffer and returns its length, or nothing when the file does not contain it.
// The result is the value of a key given by name, the name of a key given by position or, without a key, the name of
// a section given by position.
std::optional<std::size_t> getkeystring(const char* filename, Target section, std::optional<Target> key,
                                        std::span<char> buffer);

}  // namespace kelo::ini

#endif  // KELO_INI_KEY_SEARCH_HPP
