// SPDX-License-Identifier: MIT
// Runs a command without a shell and supervises it.
#include <array>
#include <cstring>

#include "kelo-app-os-al/supervised_child.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

using kelo::os::SupervisedCommand;

constexpr std::size_t kCommandSize = 512;  // bytes, terminator included
constexpr std::size_t kMostWords = 31;
constexpr std::size_t kShellWords = 3;  // the words that make the shell start the program

// The paths of the programs that may be started by their names, which are the last parts of the paths. They are one
// text, because pointers to several texts would need relocations. "ndc" is in different folders, so it is searched
// for in PATH.
constexpr char kPrograms[] =
    "/usr/sbin/iptables\0"
    "/usr/sbin/ip6tables\0"
    "/sbin/ip\0"
    "ndc\0"
    "/sbin/ifconfig\0"
    "/sbin/tc\0"
    "/bin/rm\0"
    "/bin/echo\0"
    "/bin/ls\0"
    "/bin/sleep\0";

// A word that contains one of these is a path. They also occur in "/system/bin", "/usr/bin" and "/usr/sbin".
constexpr std::array<const char*, 2> kProgramFolders = {"/bin", "/sbin"};

// Returns the program to start for the first word of a command, or null when it must not be started.
const char* resolve_program(const char* word) {
  for (const char* folder : kProgramFolders) {
    if (std::strstr(word, folder) != nullptr) return word;
  }
  for (const char* path = kPrograms; *path != '\0'; path += std::strlen(path) + 1) {
    const char* const folder_end = std::strrchr(path, '/');
    if (std::strcmp(folder_end == nullptr ? path : folder_end + 1, word) == 0) return path;
  }
  return nullptr;
}

// Splits a copy of a command into words, so that everything is prepared before the fork.
class CommandWords {
 public:
  // `command` must have fewer than kCommandSize characters.
  explicit CommandWords(const char* command) {
    std::memcpy(text_.data(), command, std::strlen(command) + 1);
    char* rest = text_.data();
    while (char* const word = strsep(&rest, " ")) {
      if (*word != '\0') add(word);
    }
  }

  [[nodiscard]] const char* first() const { return words_[kShellWords]; }
  // The parameter types of exec ask for writable text, but nothing writes to it.
  SupervisedCommand command_of(const char* text, const char* program) {
    words_[0] = const_cast<char*>("sh");
    words_[1] = const_cast<char*>("-c");
    words_[2] = const_cast<char*>("exec \"$0\" \"$@\"");
    words_[kShellWords] = const_cast<char*>(program);
    return {text, words_.data(), words_.data() + kShellWords, too_many_};
  }

 private:
  void add(char* word) {
    too_many_ = count_ == kMostWords;
    if (!too_many_) words_[kShellWords + count_++] = word;
  }

  std::array<char, kCommandSize> text_;
  std::array<char*, kShellWords + kMostWords + 1> words_{};  // null after the last one
  std::size_t count_ = 0;
  bool too_many_ = false;
};

}  // namespace

int kelo_ds_system_call3(const char* command, std::int32_t /*reserved*/, char* output,
                         std::int32_t output_size, int verbose) {
  if (command == nullptr) return kelo::log::param_null(__func__);
  if (std::strlen(command) >= kCommandSize) {
    KELO_LOG(LOG_LVL_ERR, "unable to re-direct stderr: command string too long.Command string was: %s\n",
             command);
    return -1;
  }
  CommandWords words(command);
  const char* const program = words.first() == nullptr ? nullptr : resolve_program(words.first());
  if (program == nullptr) return -1;
  const SupervisedCommand supervised = words.command_of(command, program);
  return kelo::os::run_supervised(supervised, {output, output_size}, verbose != 0) ? 0 : -1;
}
