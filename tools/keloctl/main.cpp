// SPDX-License-Identifier: MIT
// keloctl, the operator's tool: finds the command, and prints what it found.
#include <cstdio>
#include <cstring>

#include "kelo_utils/data_manager.h"
#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/command.hpp"

namespace kelo::ctl {
namespace {

using Group = std::span<const Command> (*)();
constexpr Group kGroups[] = {settings_commands, store_commands, param_commands, log_commands,
                             ini_commands,      text_commands,  device_commands};

void print_usage(std::FILE* to) {
  std::fputs(
      "Usage: keloctl [--json | --tsv] [--verbose] [--store FOLDER/] [--backup FOLDER/] COMMAND...\n\n", to);
  for (const Group group : kGroups) {
    for (const Command& command : group()) {
      const base::FixedText<80> synopsis("%s%s%s %s", command.group, *command.name != '\0' ? " " : "",
                                         command.name, command.usage);
      std::fprintf(to, "  %-50s %s\n", synopsis.c_str(), command.summary);
    }
  }
  std::fputs(
      "\nThe exit status is 0 for done or healthy, 1 for no, 2 for wrong usage, 3 for a failure of the "
      "storage,\n"
      "4 for a bad checksum and 5 for a wait that was too long. keloctl(1) says more.\n",
      to);
}

const Command* find_command(const char* group_name, const char* name) {
  for (const Group group : kGroups) {
    for (const Command& command : group()) {
      if (std::strcmp(command.group, group_name) == 0 && std::strcmp(command.name, name) == 0)
        return &command;
    }
  }
  return nullptr;
}

struct Call {
  Format format = Format::human;
  const char* store = nullptr;
  const char* backup = nullptr;
};

// The value of an option "NAME=VALUE" or "NAME VALUE", or null when the word is another one.
const char* value_of(const char* name, std::span<char*> words, std::size_t& next) {
  const std::size_t length = std::strlen(name);
  const char* const word = words[next];
  if (std::strncmp(word, name, length) != 0) return nullptr;
  if (word[length] == '=') return word + length + 1;
  if (word[length] != '\0' || next + 1 == words.size()) return nullptr;
  return words[++next];
}

// Takes the options of all commands out of `words`, wherever they are before "--". Returns what is left.
std::span<char*> take_common_options(std::span<char*> words, Call& call) {
  std::size_t kept = 0;
  bool ended = false;
  for (std::size_t next = 0; next < words.size(); ++next) {
    char* const word = words[next];
    if (ended) {
      words[kept++] = word;
    } else if (std::strcmp(word, "--json") == 0) {
      call.format = Format::json;
    } else if (std::strcmp(word, "--tsv") == 0) {
      call.format = Format::tsv;
    } else if (std::strcmp(word, "--verbose") == 0) {
      show_log_lines();
    } else if (const char* const store = value_of("--store", words, next)) {
      call.store = store;
    } else if (const char* const backup = value_of("--backup", words, next)) {
      call.backup = backup;
    } else {
      ended = std::strcmp(word, "--") == 0;
      words[kept++] = word;
    }
  }
  return words.first(kept);
}

bool is_folder(const char* path) {
  constexpr std::size_t kLongest = 50;
  const std::size_t length = std::strlen(path);
  return length > 0 && length <= kLongest && path[length - 1] == '/';
}

int run(std::span<char*> given, const Call& call, Output& out) {
  for (const char* const folder : {call.store, call.backup}) {
    if (folder == nullptr || is_folder(folder)) continue;
    out.error("%s is not the path of a folder of at most 50 characters that ends in /", folder);
    return kUsage;
  }
  if (call.store != nullptr || call.backup != nullptr)
    kelo_dm_reg_store_area(call.store, call.backup != nullptr ? call.backup : call.store);
  // Some groups are one command.
  const Command* command = !given.empty() ? find_command(given[0], "") : nullptr;
  const std::size_t name_words = command != nullptr ? 1 : 2;
  if (command == nullptr && given.size() >= 2) command = find_command(given[0], given[1]);
  if (command == nullptr) {
    out.error("there is no such command: keloctl --help lists them");
    return kUsage;
  }
  Words words(given.subspan(name_words), command->options);
  const char* const wrong = words.sort();
  if (wrong != nullptr || words.count() < command->least || words.count() > command->most) {
    if (wrong != nullptr) out.error("%s is no option of this command, or lacks its value", wrong);
    out.error("usage: keloctl %s%s%s %s", command->group, *command->name != '\0' ? " " : "", command->name,
              command->usage);
    return kUsage;
  }
  return command->run(words, out);
}

}  // namespace
}  // namespace kelo::ctl

int main(int argc, char** argv) {
  using namespace kelo::ctl;
  Call call;
  std::span<char*> words(argv, static_cast<std::size_t>(argc));
  if (!words.empty()) words = take_common_options(words.subspan(1), call);
  if (words.size() == 1 && (std::strcmp(words[0], "--help") == 0 || std::strcmp(words[0], "help") == 0)) {
    print_usage(stdout);
    return kDone;
  }
  Output out(call.format);
  const int result = run(words, call, out);
  return out.finish(result == kDone) ? result : kStorage;
}
