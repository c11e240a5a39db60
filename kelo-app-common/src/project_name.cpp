// SPDX-License-Identifier: MIT
// Finds the hardware project of this device in the kernel's command line or in a file that is written at boot.
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/file.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

// The messages of each step carry the name of the step for both exported functions.
#define LOOKUP_LOG(level, ...) KELO_LOG_AS("__kelo_get_project_name_cmdline", level, __VA_ARGS__)
#define COMMAND_LINE_LOG(level, ...) KELO_LOG_AS("odm_get_value_from_string", level, __VA_ARGS__)
#define BOOT_FILE_LOG(level, ...) KELO_LOG_AS("get_project_para", level, __VA_ARGS__)

namespace {

constexpr std::size_t kCommandLineLength = 2047;
constexpr std::size_t kChunkSize = 2048;
constexpr char kMarker[] = "project";
constexpr char kWhiteSpace[] = " \t\n\v\f\r";

// The text and its terminator.
using CommandLine = std::array<char, kCommandLineLength + 1>;

// Copies the part of a word that fits, and a terminator if there is still room for it. For an empty word nothing is
// written. Returns the number of characters copied.
std::size_t copy_word(std::string_view word, std::span<char> room) {
  const std::size_t count = std::min(word.size(), room.size());
  if (count == 0) return 0;
  std::memcpy(room.data(), word.data(), count);
  if (count < room.size()) room[count] = '\0';
  return count;
}

// Returns an empty text when the command line cannot be read.
CommandLine read_command_line() {
  CommandLine line{};
  const auto file = kelo::base::open_file("/proc/cmdline", O_RDONLY);
  if (file) (void)kelo::base::read_some(file.get(), {line.data(), kCommandLineLength});
  const std::size_t length = std::strlen(line.data());
  if (length != 0 && line[length - 1] == '\n') line[length - 1] = '\0';
  return line;
}

// Returns an empty text when the key or its value is missing.
std::string_view find_value(const char* command_line, const char* key) {
  const char* const found = std::strstr(command_line, key);
  if (found == nullptr) {
    // Field tools search for this text, so it is the same for both keys.
    COMMAND_LINE_LOG(LOG_LVL_ERR, "Could not find oem.project in %s\n", command_line);
    return {};
  }
  const char* value = found + std::strlen(key);
  value += std::strspn(value, "= \t");
  if (*value == '\0') COMMAND_LINE_LOG(LOG_LVL_ERR, "Only containe space in %s\n", command_line);
  return {value, std::strcspn(value, " \t")};
}

// Returns the word after the first equals sign. It is empty without an equals sign, and when nothing precedes the sign.
std::string_view assigned_word(const char* text) {
  const char* const equals = std::strchr(text, '=');
  if (equals == nullptr || equals == text) return {};
  const char* const word = equals + 1 + std::strspn(equals + 1, kWhiteSpace);
  return {word, std::strcspn(word, kWhiteSpace)};
}

// Returns whether the marker was found. The word after it may be missing.
bool copy_name_of_boot_file(std::span<char> name) {
  const auto file = kelo::base::open_file("/tmp/non_signal_info", O_RDONLY);
  if (!file) return false;
  // The buffer is not cleared between chunks: after a short chunk the end of the previous chunk is searched again.
  std::array<char, kChunkSize + 1> chunk{};
  while (kelo::base::read_some(file.get(), {chunk.data(), kChunkSize}) > 0) {
    if (std::strstr(chunk.data(), kMarker) != nullptr) {
      BOOT_FILE_LOG(LOG_LVL_DBUG, "Project Name: %s\n", chunk.data());
      copy_word(assigned_word(chunk.data()), name);
      return true;
    }
    BOOT_FILE_LOG(LOG_LVL_ERR, "can't not match %s\n", kMarker);
  }
  return false;
}

int get_project_name(const char* key, char* name, std::int32_t max_len) {
  if (name == nullptr) return -1;
  const std::span<char> room(name, static_cast<std::size_t>(std::max(max_len, 0)));
  const CommandLine command_line = read_command_line();
  if (const std::size_t length = copy_word(find_value(command_line.data(), key), room)) {
    LOOKUP_LOG(LOG_LVL_DBUG, "Project Name: %.*s\n", static_cast<int>(length), name);
    return 0;
  }
  LOOKUP_LOG(LOG_LVL_ERR, "get project name from cmdline failed\n");
  return copy_name_of_boot_file(room) ? 0 : -1;
}

}  // namespace

int kelo_get_project_name_cmdline(char* name, std::int32_t max_len) {
  return get_project_name("kelo.project", name, max_len);
}

int kelo_get_project_name_cmdline_oem_version(char* name, std::int32_t max_len) {
  return get_project_name("oem.project", name, max_len);
}
