// SPDX-License-Identifier: MIT
// Operations on INI files, made by chance: names, values and lines from small sets that meet often.
#ifndef KELO_TESTS_SUPPORT_INI_STEPS_HPP
#define KELO_TESTS_SUPPORT_INI_STEPS_HPP

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/ini_model.hpp"

namespace kelo::tests {

enum class IniCall { gets, getl, getf, getbool, section_at, key_at, walk, puts, putl, putf };
inline constexpr std::size_t kIniCalls = 10;

struct IniStep {
  IniCall call;
  IniModel::Text section;
  IniModel::Text key;
  IniModel::Text text;  // the value to set, or the default
  int number = 0;       // the number to set, the default, or the index
  int room = 1;         // the size of the buffer
};

inline std::string shown(const IniStep& step) {
  const std::string place = literal(step.section) + ", " + literal(step.key);
  const std::string section = literal(step.section);
  const std::string number = std::to_string(step.number);
  const std::string buffer = ", buffer, " + std::to_string(step.room) + ")";
  switch (step.call) {
    case IniCall::gets:
      return "ini_gets(" + place + ", " + literal(step.text) + buffer;
    case IniCall::getl:
      return "ini_getl(" + place + ", " + number + ")";
    case IniCall::getf:
      return "ini_getf(" + place + ", " + number + ")";
    case IniCall::getbool:
      return "ini_getbool(" + place + ", " + number + ")";
    case IniCall::section_at:
      return "ini_getsection(" + number + buffer;
    case IniCall::key_at:
      return "ini_getkey(" + section + ", " + number + buffer;
    case IniCall::walk:
      return "ini_browse()";
    case IniCall::puts:
      return "ini_puts(" + place + ", " + literal(step.text) + ")";
    case IniCall::putl:
      return "ini_putl(" + place + ", " + number + ")";
    case IniCall::putf:
      return "ini_putf(" + place + ", " + number + " / 8.0)";
  }
  return {};
}

struct IniSequence {
  IniModel::Text file;
  std::vector<IniStep> steps;
};

inline std::string shown(const IniSequence& sequence) {
  std::string all = "  file: " + literal(sequence.file) + "\n";
  for (const IniStep& step : sequence.steps) all += "  " + shown(step) + "\n";
  return all;
}

class IniChance {
 public:
  explicit IniChance(unsigned seed) : random_(seed) {}

  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }
  bool one_in(std::size_t count) { return below(count) == 0; }

  IniSequence sequence() { return sequence_on(one_in(12) ? IniModel::Text() : IniModel::Text(file())); }

  IniSequence sequence_on(const IniModel::Text& file) {
    IniSequence made = {file, {}};
    for (std::size_t count = 2 + below(5); count > 0; --count) made.steps.push_back(step());
    return made;
  }

 private:
  template <typename List>
  auto any_of(const List& list) {
    return list[below(std::size(list))];
  }

  std::size_t long_length() {
    static constexpr std::size_t kLengths[] = {480, 511, 512, 600, 1024};
    return any_of(kLengths) + below(9) - 4;
  }

  static constexpr std::string_view kAlphabet = "aAbB01xX.-e\"\"\\\\##;; \t\r==::[]yt\xE9\x01\x7F";

  std::string characters(std::size_t length) { return characters_of(kAlphabet, length); }

  std::string name() {
    static constexpr const char* kNames[] = {"a", "A", "a", "A", "b", "B", "ab", "Ab", ""};
    if (one_in(60)) return std::string(long_length(), any_of(std::string_view("aA")));
    if (one_in(25)) return characters(1 + below(4));
    return any_of(kNames);
  }

  std::string number() {
    static constexpr const char* kNumbers[] = {
        "0",    "1",   "12",         "-7",          "010",         "0x10",
        "0XfF", "1xA", "2147483648", "-2147483649", "1e",          "1.125",
        "-.5",  "2e2", "\" 3\"",     "0x80000000",  "99999999999", "12345678901234567890"};
    return any_of(kNumbers);
  }

  std::string value() {
    static constexpr const char* kValues[] = {
        "",   "x",     "y",  "abc",     "abc ",       "yes",   "True", "no",          "Y",    "NO",
        "f",  "FALSE", "t",  "x;y",     "#x",         "\"x\"", "a\"b", "\"a;b\" ; c", "\\\"", "a\\",
        "\"", "\"\"",  " x", "\"x\\\"", "\"a\"\"b\"", "x # y", "\t",   "x\t"};
    if (one_in(25)) return std::string(long_length(), any_of(std::string_view("x\";")));
    if (one_in(4)) return number();
    if (one_in(3)) return characters(below(7));
    return any_of(kValues);
  }

  std::string blanks() { return one_in(3) ? characters_of(" \t\r", below(3)) : ""; }
  std::string characters_of(std::string_view alphabet, std::size_t length) {
    std::string text;
    while (text.size() < length) text += any_of(alphabet);
    return text;
  }

  std::string line() {
    switch (below(12)) {
      case 0:
      case 1:
      case 2:
        return blanks() + "[" + name() + "]" + blanks();
      case 3:
        return any_of(std::string_view("#;")) + characters(below(6));
      case 4:
        return blanks();
      case 5:
        return characters(one_in(20) ? long_length() : below(10));
      default:
        return blanks() + name() + blanks() + (one_in(5) ? ":" : "=") + blanks() + value() + blanks();
    }
  }

  std::string file() {
    if (one_in(20)) return "";
    std::string text;
    for (std::size_t count = below(12); count > 0; --count) text += line() + "\n";
    if (one_in(8))
      text += ";" + std::string(long_length() - std::min<std::size_t>(text.size(), 400), '-') + "\n";
    if (one_in(3)) text += line();
    if (one_in(20) && !text.empty()) text[below(text.size())] = '\0';
    return text;
  }

  IniStep step() {
    IniStep made;
    made.call = one_in(3) ? static_cast<IniCall>(below(kIniCalls)) : IniCall::puts;
    if (one_in(4)) made.call = IniCall::gets;
    if (!one_in(6)) made.section = name();
    if (!one_in(12)) made.key = name();
    if (!one_in(6)) made.text = value();
    made.number = static_cast<int>(below(12)) - 2;
    if (one_in(20)) made.number = static_cast<int>(random_());
    follow_up(made);
    static constexpr int kRooms[] = {1, 2, 3, 5, 64, 512, 1024, 1024, 1024};
    made.room = any_of(kRooms);
    return made;
  }

  // Many steps return to the place of the one before, with its value or with one as long.
  void follow_up(IniStep& step) {
    if (one_in(2)) {
      step.section = last_.section;
      step.key = last_.key;
      if (one_in(2)) step.text = last_.text;
      if (one_in(2) && step.text && !step.text->empty()) step.text->front() = any_of(kAlphabet);
    }
    last_ = step;
  }

  std::mt19937 random_;
  IniStep last_ = {};
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_INI_STEPS_HPP
