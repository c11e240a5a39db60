// Finding sections and keys, which every read and every write begins with.
#ifndef KELO_INI_KEY_SEARCH_HPP
#define KELO_INI_KEY_SEARCH_HPP

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "ini/lines.hpp"
#include "ini/syntax.hpp"

namespace kelo::ini {

// What is looked for: a name, or a position that counts from 0.
class Target {
 public:
  // Null is the empty name.
  static Target named(const char* name) { return Target(name == nullptr ? "" : name, std::nullopt); }
  // Nothing stands at a position below 0.
  static Target at(int position) { return Target({}, static_cast<std::size_t>(position)); }

  [[nodiscard]] bool by_position() const { return position_.has_value(); }
  [[nodiscard]] bool is_nameless() const { return !by_position() && name_.empty(); }
  [[nodiscard]] bool meets(std::string_view name, std::size_t position) const {
    return by_position() ? position == position_ : same_name(name, name_);
  }

 private:
  Target(std::string_view name, std::optional<std::size_t> position) : name_(name), position_(position) {}

  std::string_view name_;
  std::optional<std::size_t> position_;
};

// Moves to the header of the section, or not at all for the nameless one. False at the end of the file.
bool find_section(Lines& lines, Target section);

// Moves to the key in the section whose header the lines stand at. None where the section ends, which is at
// the next header or at the end of the file.
std::optional<KeyLine> find_key(Lines& lines, Target key);

// The answer to a read, copied into the buffer: the name of a key by its position, or the value of a key by
// its name; or the name of a section by its position, where no key is asked for. Its length, or none when
// the file does not have it.
std::optional<std::size_t> getkeystring(const char* filename, Target section, std::optional<Target> key,
                                        std::span<char> buffer);

}  // namespace kelo::ini

#endif  // KELO_INI_KEY_SEARCH_HPP
