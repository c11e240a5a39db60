// SPDX-License-Identifier: MIT
// The commands on INI files.
#include "kelo_utils/ini.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "tools/keloctl/command.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"section", 16}, {"key", 20}, {"value", 0}};
constexpr std::size_t kMostBytes = 508;  // of a section name, and of key and value together

using Text = std::array<char, INI_BUFFERSIZE>;

bool can_read(const char* path, Output& out) {
  if (access(path, R_OK) == 0) return true;
  out.error("%s cannot be read: %s", path, std::strerror(errno));
  return false;
}

// Reads a value. A key that is missing gives either default, and a key that has one of them gives it twice.
bool read_value(const char* section, const char* key, const char* path, Text& value) {
  Text other{};
  ini_gets(section, key, "0", value.data(), INI_BUFFERSIZE, path);
  ini_gets(section, key, "1", other.data(), INI_BUFFERSIZE, path);
  return std::strcmp(value.data(), other.data()) == 0;
}

// A name must read as it was written: no separators, brackets, comments, control characters or blanks at its ends.
bool is_writable_name(const char* name, const char* refused) {
  const std::size_t length = std::strlen(name);
  if (length == 0 || std::strpbrk(name, refused) != nullptr || std::strchr("#;[ ", name[0]) != nullptr)
    return false;
  for (std::size_t i = 0; i < length; ++i) {
    if (static_cast<unsigned char>(name[i]) < ' ') return false;
  }
  return name[length - 1] != ' ';
}

bool is_writable_value(const char* value) {
  for (const char* at = value; *at != '\0'; ++at) {
    if (static_cast<unsigned char>(*at) < ' ') return false;
  }
  return value[0] != ' ';
}

// The bytes that a line takes: quotes may be added, and each double quote gets a backslash.
std::size_t line_size(const char* key, const char* value) {
  std::size_t quotes = 2;
  for (const char* at = value; *at != '\0'; ++at) quotes += *at == '"' ? 1 : 0;
  return std::strlen(key) + std::strlen(value) + quotes;
}

int ini_get(const Words& words, Output& out) {
  const char* const path = words.at(0);
  if (!can_read(path, out)) return kStorage;
  Text value{};
  if (!read_value(words.option("section"), words.at(1), path, value)) {
    out.error("%s has no key %s", path, words.at(1));
    return kNo;
  }
  if (out.human())
    out.say_text(value.data());
  else
    out.text("value", value.data());
  return kDone;
}

int ini_set(const Words& words, Output& out) {
  const char* const path = words.at(0);
  const char* const key = words.at(1);
  const char* const value = words.at(2);
  const char* const section = words.option("section");
  if (!is_writable_name(key, "=:") || !is_writable_value(value) ||
      (section != nullptr && (!is_writable_name(section, "]") || std::strlen(section) > kMostBytes)) ||
      line_size(key, value) > kMostBytes) {
    out.error("a section, a key or a value would not read as it is written");
    return kUsage;
  }
  Text stored{};
  if (ini_puts(section, key, value, path) == 1 && read_value(section, key, path, stored) &&
      std::strcmp(stored.data(), value) == 0)
    return kDone;
  out.error("%s was not changed", path);
  return kStorage;
}

int ini_del(const Words& words, Output& out) {
  const char* const path = words.at(0);
  const char* const key = words.at(1);
  const char* const section = words.option("section");
  if (key == nullptr && section == nullptr) {
    out.error("a key or a section must be named");
    return kUsage;
  }
  if (!can_read(path, out)) return kStorage;
  Text value{};
  Text first_key{};
  if (key != nullptr ? !read_value(section, key, path, value)
                     : ini_getkey(section, 0, first_key.data(), INI_BUFFERSIZE, path) == 0) {
    out.error("%s has no such %s", path, key != nullptr ? "key" : "section with keys");
    return kNo;
  }
  if (ini_puts(section, key, nullptr, path) == 1) return kDone;
  out.error("%s was not changed", path);
  return kStorage;
}

int print_key(const char* section, const char* key, const char* value, void* context) {
  Output& out = *static_cast<Output*>(context);
  out.begin_record();
  out.text(section);
  out.text(key);
  out.text(value);
  out.end_record();
  return 1;
}

int ini_list(const Words& words, Output& out) {
  if (!can_read(words.at(0), out)) return kStorage;
  out.begin_list("keys", "key", kColumns);
  ini_browse(print_key, &out, words.at(0));
  out.end_list();
  return kDone;
}

constexpr Command kCommands[] = {
    {"ini", "get", "FILE KEY [--section NAME]", "the value of a key of an INI file", "section=", 2, 2,
     ini_get},
    {"ini", "set", "FILE KEY VALUE [--section NAME]", "set a key of an INI file", "section=", 3, 3, ini_set},
    {"ini", "del", "FILE [KEY] [--section NAME]", "delete a key, or a section", "section=", 1, 2, ini_del},
    {"ini", "list", "FILE", "all keys of an INI file", "", 1, 1, ini_list},
};

}  // namespace

std::span<const Command> ini_commands() { return kCommands; }

}  // namespace kelo::ctl
