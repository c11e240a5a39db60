// SPDX-License-Identifier: MIT
// Calls a function for each key of a settings file, in the order of the file.
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "base/file.hpp"
#include "ini/bounded_copy.hpp"
#include "ini/lines.hpp"
#include "ini/syntax.hpp"
#include "kelo_utils/ini.h"

namespace {

using namespace kelo::ini;

// The three texts for the callback, one after the other in one buffer. Each is cut so that the terminators of the texts
// after it still fit.
class Entry {
 public:
  void set_section(std::string_view name) { key_ = put(0, name, 2) + 1; }
  void set_key(std::string_view key) { value_ = key_ + put(key_, key, 1) + 1; }
  void set_value(std::string_view value) { put(value_, value, 0); }

  [[nodiscard]] const char* section() const { return texts_.data(); }
  [[nodiscard]] const char* key() const { return texts_.data() + key_; }
  [[nodiscard]] const char* value() const { return texts_.data() + value_; }

 private:
  std::size_t put(std::size_t at, std::string_view text, std::size_t reserved) {
    return ini_strncpy(std::span(texts_).subspan(at, texts_.size() - at - reserved), text);
  }

  std::array<char, INI_BUFFERSIZE> texts_{};
  std::size_t key_ = 1;
  std::size_t value_ = 2;
};

}  // namespace

int ini_browse(ini_callback callback, void* user_data, const char* filename) {
  if (callback == nullptr || filename == nullptr) return 0;
  const auto file = kelo::base::open_file(filename, kelo::ini::kReading);
  if (!file) return 0;
  Lines lines(file.get());
  Entry entry;
  std::array<char, INI_BUFFERSIZE> room;
  while (lines.next()) {
    if (const auto name = section_name(lines.text())) {
      entry.set_section(*name);
    } else if (const auto line = key_line(lines.text())) {
      entry.set_key(line->key);
      entry.set_value(value_of(*line, room));
      if (callback(entry.section(), entry.key(), entry.value(), user_data) == 0) break;
    }
  }
  return 1;
}
