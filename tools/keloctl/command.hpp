// SPDX-License-Identifier: MIT
// What a command of keloctl is, and what it gets: its arguments, its options and the output.
#ifndef KELO_TOOLS_KELOCTL_COMMAND_HPP
#define KELO_TOOLS_KELOCTL_COMMAND_HPP

#include <span>

#include "tools/keloctl/output.hpp"

namespace kelo::ctl {

enum Exit { kDone = 0, kNo = 1, kUsage = 2, kStorage = 3, kBadChecksum = 4, kTimeOut = 5 };

// The words after the name of a command. Options may be anywhere between the arguments, until "--".
class Words {
 public:
  // `options` names the options of the command, separated by blanks. A name that ends in "=" takes a value.
  Words(std::span<char*> words, const char* options) : words_(words), options_(options) {}

  // Moves the arguments to the front. Returns the word that is wrong, or null.
  const char* sort();

  [[nodiscard]] int count() const { return count_; }
  // Returns null when there are fewer arguments.
  [[nodiscard]] const char* at(int index) const { return index < count_ ? words_[index_of(index)] : nullptr; }
  // Returns the value of an option, an empty text for an option without a value, and null when it is not given.
  [[nodiscard]] const char* option(const char* name) const;

 private:
  static constexpr int kMostOptions = 8;
  struct Option {
    const char* name;
    const char* value;
  };
  static std::size_t index_of(int index) { return static_cast<std::size_t>(index); }
  [[nodiscard]] int dashes_of(const char* word) const;
  [[nodiscard]] bool take_option(const char* word, std::size_t& next);

  std::span<char*> words_;
  const char* options_;
  int count_ = 0;
  int options_count_ = 0;
  Option given_[kMostOptions] = {};
};

struct Command {
  const char* group;
  const char* name;
  const char* usage;    // its arguments and options
  const char* summary;  // for the help
  const char* options;  // for Words
  int least;            // arguments
  int most;
  int (*run)(const Words& words, Output& out);  // returns an Exit
};

std::span<const Command> settings_commands();
std::span<const Command> store_commands();
std::span<const Command> param_commands();
std::span<const Command> log_commands();
std::span<const Command> ini_commands();
std::span<const Command> text_commands();
std::span<const Command> device_commands();

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_COMMAND_HPP
