// SPDX-License-Identifier: MIT
// Reads the script of the modem.
#include "tools/modem/script.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <istream>

#include <sstream>
#include <stdexcept>
#include <utility>

namespace kelo::modem {
namespace {

// Takes one line apart.
class Line {
 public:
  Line(std::string text, int number) : text_(std::move(text)), number_(number) { skip_blanks(); }

  [[noreturn]] void refuse(const std::string& what) const {
    throw std::runtime_error("line " + std::to_string(number_) + ": " + what);
  }

  [[nodiscard]] bool at_end() const { return at_ == text_.size() || text_[at_] == '#'; }

  std::string word() {
    const std::size_t start = at_;
    while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) == 0) ++at_;
    std::string found = text_.substr(start, at_ - start);
    skip_blanks();
    return found;
  }

  // Everything up to the end of the line, comment signs included.
  std::string rest() {
    std::string found = text_.substr(at_);
    while (!found.empty() && std::isspace(static_cast<unsigned char>(found.back())) != 0) found.pop_back();
    at_ = text_.size();
    return found;
  }

  int number() {
    int value = 0;
    const char* const start = text_.data() + at_;
    const auto [end, error] = std::from_chars(start, text_.data() + text_.size(), value);
    if (error != std::errc() || value < 0) refuse("a number is missing");
    at_ += static_cast<std::size_t>(end - start);
    return value;
  }

  [[nodiscard]] bool at_text() const { return at_ < text_.size() && text_[at_] == '"'; }

  // A quoted text and its count.
  std::string text() {
    std::string once;
    for (++at_; next() != '"'; ++at_) once += next() == '\\' ? escaped() : next();
    ++at_;
    std::string all = once;
    if (at_ < text_.size() && text_[at_] == '*') {
      ++at_;
      const int count = number();
      all.clear();
      for (int i = 0; i < count; ++i) all += once;
    }
    skip_blanks();
    return all;
  }

 private:
  void skip_blanks() {
    while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) != 0) ++at_;
  }

  [[nodiscard]] char next() const {
    if (at_ >= text_.size()) refuse("a text has no end");
    return text_[at_];
  }

  // The character that an escape means. The position is that of the last character of the escape afterwards.
  char escaped() {
    ++at_;
    switch (next()) {
      case 'r':
        return '\r';
      case 'n':
        return '\n';
      case 't':
        return '\t';
      case '\\':
      case '"':
        return next();
      case 'x':
        return hexadecimal();
      default:
        refuse("no such escape");
    }
  }

  char hexadecimal() {
    unsigned value = 0;
    const char* const digits = text_.data() + at_ + 1;
    const char* const end = digits + std::min<std::size_t>(2, text_.size() - at_ - 1);
    if (std::from_chars(digits, end, value, 16).ptr != digits + 2)
      refuse("two hexadecimal digits are missing");
    at_ += 2;
    return static_cast<char>(value);
  }

  const std::string text_;
  const int number_;
  std::size_t at_ = 0;
};

Datagram read_datagram(Line& line) {
  Datagram datagram;
  for (bool first = true; !line.at_end(); first = false) {
    if (line.at_text()) {
      datagram.bytes += line.text();
    } else if (first && line.word() == "echo") {
      datagram.echo = true;
    } else {
      line.refuse("neither a text nor the echo as the first");
    }
  }
  return datagram;
}

}  // namespace

const Answer* Script::find(std::string_view command) const {
  const auto fits = [command](const Answer& answer) {
    return answer.command == "*" || answer.command == command;
  };
  const auto found = std::find_if(answers.begin(), answers.end(), fits);
  return found == answers.end() ? nullptr : &*found;
}

Script read_script(std::istream& text) {
  Script script;
  std::chrono::milliseconds pause{0};
  std::string content;
  for (int number = 1; std::getline(text, content); ++number) {
    Line line(content, number);
    if (line.at_end()) continue;
    const std::string word = line.word();
    if (word == "command") {
      script.answers.push_back({line.rest(), {}});
      pause = {};
    } else if (script.answers.empty()) {
      line.refuse("no command yet");
    } else if (word == "pause") {
      pause += std::chrono::milliseconds(line.number());
    } else if (word == "send" || word == "stranger") {
      Datagram datagram = read_datagram(line);
      datagram.from_stranger = word == "stranger";
      datagram.pause = std::exchange(pause, {});
      script.answers.back().datagrams.push_back(std::move(datagram));
    } else {
      line.refuse("no such word: " + word);
    }
    if (!line.at_end()) line.refuse("too much");
  }
  return script;
}

Script read_script(const std::string& text) {
  std::istringstream stream(text);
  return read_script(stream);
}

}  // namespace kelo::modem
