// SPDX-License-Identifier: MIT
// What an INI file answers and how a change leaves it, said as plainly as possible: the file is one text, each
// operation cuts it into lines anew, and nothing is fast.
#ifndef KELO_TESTS_INI_MODEL_HPP
#define KELO_TESTS_INI_MODEL_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kelo::tests {

class IniModel {
 public:
  // A text argument; nothing stands for a null pointer.
  using Text = std::optional<std::string>;

  // A text in the caller's buffer and the length that is returned with it.
  struct Answer {
    int length;
    std::string text;
    bool operator==(const Answer&) const = default;
  };

  struct Entry {
    std::string section;
    std::string key;
    std::string value;
    bool operator==(const Entry&) const = default;
  };

  // How a change reached the file.
  enum class Way { untouched, created, in_place, rewritten };

  // A file of these bytes, or no file.
  explicit IniModel(Text bytes = {}) : bytes_(std::move(bytes)) {}

  [[nodiscard]] const Text& bytes() const { return bytes_; }

  // `room` is the size of the caller's buffer, at least 1.
  [[nodiscard]] Answer gets(const Text& section, const Text& key, const Text& otherwise,
                            std::size_t room) const;
  [[nodiscard]] std::int32_t getl(const Text& section, const Text& key, std::int32_t otherwise) const;
  [[nodiscard]] float getf(const Text& section, const Text& key, float otherwise) const;
  [[nodiscard]] int getbool(const Text& section, const Text& key, int otherwise) const;
  [[nodiscard]] Answer section_at(int index, std::size_t room) const;
  [[nodiscard]] Answer key_at(const Text& section, int index, std::size_t room) const;
  // What a walk hands to its callback; nothing when there is no file to walk through.
  [[nodiscard]] std::optional<std::vector<Entry>> walk() const;

  Way puts(const Text& section, const Text& key, const Text& value);
  Way putl(const Text& section, const Text& key, std::int32_t value);
  Way putf(const Text& section, const Text& key, float value);

 private:
  [[nodiscard]] Text value_of(const Text& section, const Text& key) const;

  Text bytes_;
};

std::ostream& operator<<(std::ostream& out, const IniModel::Answer& answer);
std::ostream& operator<<(std::ostream& out, const IniModel::Entry& entry);
std::ostream& operator<<(std::ostream& out, IniModel::Way way);

// A text as a literal of C++, for messages; nothing is nullptr. Long runs of one character are shown as such.
std::string literal(const IniModel::Text& text);

}  // namespace kelo::tests

#endif  // KELO_TESTS_INI_MODEL_HPP
