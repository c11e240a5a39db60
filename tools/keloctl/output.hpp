// SPDX-License-Identifier: MIT
// What a command prints: for people, as lines of tab-separated fields, or as one JSON object.
#ifndef KELO_TOOLS_KELOCTL_OUTPUT_HPP
#define KELO_TOOLS_KELOCTL_OUTPUT_HPP

#include <cstddef>
#include <span>
#include <string_view>

#include "base/text_builder.hpp"

namespace kelo::ctl {

enum class Format { human, tsv, json };
enum class Tone { plain, good, bad };

// A column of a list. People see it padded to `width`, with no padding for 0, and not at all when it is hidden.
struct Column {
  const char* name;
  int width;
};
inline constexpr int kHidden = -1;

// Fields and lists are printed in the order of the calls. In a record the values are those of the columns, in order.
class Output {
 public:
  explicit Output(Format format);

  void text(const char* name, std::string_view value, Tone tone = Tone::plain);
  void number(const char* name, long long value);
  void flag(const char* name, bool value);
  void hex(const char* name, std::string_view bytes);
  void nothing(const char* name);

  // `record` is the first field of the record's line in the form of tab-separated fields.
  void begin_list(const char* name, const char* record, std::span<const Column> columns);
  void begin_record();
  void text(std::string_view value, Tone tone = Tone::plain) { text(nullptr, value, tone); }
  void number(long long value) { number(nullptr, value); }
  void hex(std::string_view bytes) { hex(nullptr, bytes); }
  void nothing() { nothing(nullptr); }
  void end_record();
  void end_list();

  // A record that is printed at once, with values as in a list. In JSON it is an object on a line of its own.
  void begin_line(const char* record, std::span<const Column> columns);
  // Returns false when the output takes no more.
  bool end_line();

  // Prints text for people alone.
  void say(const char* format, ...) KELO_PRINTF(2, 3);

  // Prints a value for people alone, on a line of its own.
  void say_text(std::string_view value);

  // Keeps the text that says why the command fails.
  void error(const char* format, ...) KELO_PRINTF(2, 3);

  // Forgets it, after a failure that does not matter.
  void forget_error() { failed_ = false; }

  // Says on a terminal what is looked at now. The line is replaced by the next one and by an empty one.
  void progress(const char* what) const;

  // Hands over what is printed so far. Returns false when it could not be written.
  [[nodiscard]] bool flush() const;

  // Prints the result and the error. Returns false when not all of the output could be written.
  bool finish(bool ok);

  [[nodiscard]] bool json() const { return format_ == Format::json; }
  [[nodiscard]] bool human() const { return format_ == Format::human; }

 private:
  void begin_value(const char*& name);
  void end_value();
  void print_escaped(std::string_view value) const;
  void bare(const char* name, const char* value);
  [[nodiscard]] const Column* column() const;

  Format format_;
  bool coloured_ = false;
  bool in_list_ = false;
  bool in_record_ = false;
  bool first_record_ = true;
  bool first_value_ = true;
  const char* record_ = "";
  std::span<const Column> columns_;
  std::size_t next_column_ = 0;
  bool failed_ = false;
  char error_[1024] = "";
};

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_OUTPUT_HPP
