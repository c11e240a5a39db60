/* SPDX-License-Identifier: MIT */
/**
 * @file ini.hpp
 * @brief The C++ face: INI files, with their texts as std::string.
 *
 *     const kelo::Ini settings("/data/daemon.ini");
 *     const std::string name = settings.text("net", "name").value_or("home");
 *     settings.set_number("net", "mtu", 1500);
 */
#ifndef KELO_UTILS_KELO_INI_HPP
#define KELO_UTILS_KELO_INI_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kelo_utils/ini.h"
#include "kelo_utils/kelo/result.hpp"

namespace kelo {

/**
 * An INI file by its name. Nothing is open or kept between two calls.
 *
 * `section` is the name of a section; null or empty for the nameless one. What ini.h says of the format and of
 * changes holds here.
 *
 * @par Blocking
 * The functions block for the reads of the file, or until a change is on the storage.
 * @par Threads
 * Any thread may call them, but no thread may use a file while another one changes it. They are not for signal
 * handlers.
 */
class Ini {
 public:
  /** The code of a key that is missing, and of a change or a walk that failed. */
  static constexpr std::int32_t failed = -1;

  /**
   * Names a file, which need not exist.
   * @param file  its path.
   */
  explicit Ini(std::string file) : file_(std::move(file)) {}

  /** @return path of the file. */
  [[nodiscard]] const std::string& file() const noexcept { return file_; }

  /**
   * Reads a value as text.
   * @param section  the section.
   * @param key      the key.
   * @return the text; the code -1 for a key that is missing.
   */
  Result<std::string> text(const char* section, const char* key) const {
    static constexpr char kMissing[] = "\n";  // no value has a newline
    char buffer[INI_BUFFERSIZE];
    buffer[0] = kMissing[0];
    ini_gets(section, key, kMissing, buffer, INI_BUFFERSIZE, file_.c_str());
    if (buffer[0] == kMissing[0]) return Result<std::string>::failed(failed);
    return Result<std::string>(std::string(buffer));
  }

  /**
   * Reads a value as a whole number, as ini_getl() does.
   * @param section      the section.
   * @param key          the key.
   * @param other_value  the result for a key that is missing or has an empty value.
   * @return the number.
   */
  [[nodiscard]] std::int32_t number(const char* section, const char* key, std::int32_t other_value) const {
    return ini_getl(section, key, other_value, file_.c_str());
  }

  /**
   * Reads a value as a decimal number, as ini_getf() does.
   * @param section      the section.
   * @param key          the key.
   * @param other_value  the result for a key that is missing or has an empty value.
   * @return the number.
   */
  [[nodiscard]] float real(const char* section, const char* key, float other_value) const {
    return ini_getf(section, key, other_value, file_.c_str());
  }

  /**
   * Reads a value as a truth value, as ini_getbool() does.
   * @param section      the section.
   * @param key          the key.
   * @param other_value  the result for a key that is missing or has another value.
   * @return the truth value.
   */
  [[nodiscard]] bool flag(const char* section, const char* key, bool other_value) const {
    return ini_getbool(section, key, other_value ? 1 : 0, file_.c_str()) != 0;
  }

  /** @return the names of the sections in their order, up to one with an empty name. */
  [[nodiscard]] std::vector<std::string> sections() const {
    return names([this](int index, char* buffer) {
      return ini_getsection(index, buffer, INI_BUFFERSIZE, file_.c_str());
    });
  }

  /**
   * Lists the keys of a section.
   * @param section  the section.
   * @return the names of its keys in their order, up to one with an empty name.
   */
  [[nodiscard]] std::vector<std::string> keys(const char* section) const {
    return names([this, section](int index, char* buffer) {
      return ini_getkey(section, index, buffer, INI_BUFFERSIZE, file_.c_str());
    });
  }

  /**
   * Calls a function for all keys of the file in their order, as ini_browse() does.
   * @tparam Function  type of `function`.
   * @param function   is called with section, key and value, each a `const char*` that is valid during the call.
   *                   It returns false to end the walk. It must not throw.
   * @return success; the code -1 when the file cannot be opened.
   */
  template <class Function>
  Result<void> for_each(Function&& function) const {
    using Kept = std::remove_reference_t<Function>;
    struct Walk {
      static int visit(const char* section, const char* key, const char* value, void* user) noexcept {
        return (**static_cast<Kept**>(user))(section, key, value) ? 1 : 0;
      }
    };
    Kept* kept = &function;
    return outcome(ini_browse(&Walk::visit, &kept, file_.c_str()));
  }

  /**
   * Sets a key to a text, as ini_puts() does.
   * @param section  the section.
   * @param key      the key.
   * @param value    the text, up to its first NUL. It may be empty.
   * @return success; the code -1 when the file cannot be changed.
   */
  Result<void> set_text(const char* section, const char* key, const std::string& value) const {
    return outcome(key != nullptr ? ini_puts(section, key, value.c_str(), file_.c_str()) : 0);
  }

  /**
   * Sets a key to a whole number, as ini_putl() does.
   * @param section  the section.
   * @param key      the key.
   * @param value    the number.
   * @return success; the code -1 when the file cannot be changed.
   */
  Result<void> set_number(const char* section, const char* key, std::int32_t value) const {
    return outcome(key != nullptr ? ini_putl(section, key, value, file_.c_str()) : 0);
  }

  /**
   * Sets a key to a number with six digits after the point, as ini_putf() does.
   * @param section  the section.
   * @param key      the key.
   * @param value    the number.
   * @return success; the code -1 when the file cannot be changed.
   */
  Result<void> set_real(const char* section, const char* key, float value) const {
    return outcome(key != nullptr ? ini_putf(section, key, value, file_.c_str()) : 0);
  }

  /**
   * Deletes a key. One that is missing is no failure.
   * @param section  the section.
   * @param key      the key.
   * @return success; the code -1 when the file cannot be changed.
   */
  Result<void> remove(const char* section, const char* key) const {
    return outcome(key != nullptr ? ini_puts(section, key, nullptr, file_.c_str()) : 0);
  }

  /**
   * Deletes a section with all its keys. One that is missing is no failure.
   * @param section  the section.
   * @return success; the code -1 when the file cannot be changed.
   */
  Result<void> remove_section(const char* section) const {
    return outcome(ini_puts(section, nullptr, nullptr, file_.c_str()));
  }

 private:
  static Result<void> outcome(int done) noexcept { return Result<void>::of(done != 0 ? 0 : failed); }

  template <class Read>
  static std::vector<std::string> names(Read read) {
    std::vector<std::string> found;
    char buffer[INI_BUFFERSIZE];
    for (int index = 0; read(index, buffer) > 0; ++index) found.emplace_back(buffer);
    return found;
  }

  std::string file_;
};

}  // namespace kelo

#endif /* KELO_UTILS_KELO_INI_HPP */
