// SPDX-License-Identifier: MIT
// Prints the results of commands in three forms.
#include "tools/keloctl/output.hpp"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

void print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void print_hex(std::string_view bytes) {
  for (const char byte : bytes) std::printf("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
}

// Characters of the display: a continuation byte belongs to the character before it.
int display_width(std::string_view text) {
  int width = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t length = utf8_length(text, i);
    width += is_printable(text, i) ? 1 : 4;
    if (length > 1) i += length - 1;
  }
  return width;
}

// A backslash starts an escape, so it is escaped itself where programs read the text.
void print_with_escapes(std::string_view text, bool escape_backslash) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t length = utf8_length(text, i);
    if (!is_printable(text, i)) {
      std::printf("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(text[i])));
    } else if (text[i] == '\\' && escape_backslash) {
      print("\\\\");
    } else {
      print({text.data() + i, length});
      i += length - 1;
    }
  }
}

// JSON is UTF-8: a byte that belongs to no character becomes the replacement character.
void print_json_text(std::string_view text) {
  std::putchar('"');
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t length = utf8_length(text, i);
    const auto byte = static_cast<unsigned char>(text[i]);
    if (length == 0) {
      print("\\ufffd");
    } else if (byte < 0x20 || byte == 0x7F) {
      std::printf("\\u%04x", static_cast<unsigned>(byte));
    } else if (byte == '"' || byte == '\\') {
      std::printf("\\%c", byte);
    } else {
      print({text.data() + i, length});
      i += length - 1;
    }
  }
  std::putchar('"');
}

constexpr const char* kColours[] = {"", "\033[32m", "\033[31m"};

}  // namespace

Output::Output(Format format) : format_(format) {
  coloured_ = format == Format::human && isatty(STDOUT_FILENO) == 1;
  if (format_ == Format::json) std::putchar('{');
}

const Column* Output::column() const {
  return in_record_ && next_column_ < columns_.size() ? &columns_[next_column_] : nullptr;
}

void Output::begin_value(const char*& name) {
  if (const Column* const in = column()) name = in->name;
  if (format_ == Format::json) {
    if (!first_value_) std::putchar(',');
    print_json_text(name);
    std::putchar(':');
  } else if (format_ == Format::tsv) {
    if (in_record_)
      std::putchar('\t');
    else
      std::printf("%s\t", name);
  } else if (!in_record_) {
    std::printf("%-12s", name);
  }
  first_value_ = false;
}

void Output::end_value() {
  if (in_record_)
    ++next_column_;
  else if (format_ != Format::json)
    std::putchar('\n');
}

void Output::print_escaped(std::string_view value) const {
  if (format_ == Format::json)
    print_json_text(value);
  else
    print_with_escapes(value, format_ == Format::tsv);
}

void Output::text(const char* name, std::string_view value, Tone tone) {
  const Column* const in = column();
  const bool hidden = human() && in != nullptr && in->width == kHidden;
  begin_value(name);
  if (!hidden) {
    const bool coloured = coloured_ && tone != Tone::plain;
    if (human() && in_record_ && next_column_ != 0) print("  ");
    if (coloured) print(kColours[static_cast<int>(tone)]);
    print_escaped(value);
    if (coloured) print("\033[0m");
    if (human() && in != nullptr) {
      const int width = display_width(value);
      if (width < in->width) std::printf("%*s", in->width - width, "");
    }
  }
  end_value();
}

// Numbers, flags and null have no quotes in JSON.
void Output::bare(const char* name, const char* value) {
  if (format_ != Format::json) {
    text(name, value);
    return;
  }
  begin_value(name);
  print(value);
  end_value();
}

void Output::number(const char* name, long long value) {
  bare(name, base::FixedText<24>("%lld", value).c_str());
}

void Output::flag(const char* name, bool value) {
  if (human())
    text(name, value ? "yes" : "no");
  else
    bare(name, value ? "true" : "false");
}

void Output::nothing(const char* name) {
  if (format_ == Format::json)
    bare(name, "null");
  else
    text(name, human() ? "-" : "");
}

void Output::hex(const char* name, std::string_view bytes) {
  const Column* const in = column();
  const bool hidden = human() && in != nullptr && in->width == kHidden;
  begin_value(name);
  if (!hidden) {
    if (human() && in_record_) print("  ");
    if (format_ == Format::json) std::putchar('"');
    print_hex(bytes);
    if (format_ == Format::json) std::putchar('"');
  }
  end_value();
}

void Output::begin_list(const char* name, const char* record, std::span<const Column> columns) {
  if (format_ == Format::json) {
    if (!first_value_) std::putchar(',');
    print_json_text(name);
    print(":[");
  }
  first_value_ = false;
  in_list_ = true;
  first_record_ = true;
  record_ = record;
  columns_ = columns;
}

void Output::begin_record() {
  if (format_ == Format::json) {
    print(first_record_ ? "{" : ",{");
  } else if (format_ == Format::tsv) {
    print(record_);
  }
  first_record_ = false;
  first_value_ = true;
  in_record_ = true;
  next_column_ = 0;
}

void Output::end_record() {
  std::putchar(format_ == Format::json ? '}' : '\n');
  in_record_ = false;
  first_value_ = false;
}

void Output::end_list() {
  if (format_ == Format::json) std::putchar(']');
  in_list_ = false;
}

void Output::begin_line(const char* record, std::span<const Column> columns) {
  if (format_ == Format::tsv) print(record);
  columns_ = columns;
  next_column_ = 0;
  in_record_ = true;
}

// The brace that begins the next object stays in the buffer, so that readers get whole lines.
bool Output::end_line() {
  in_record_ = false;
  first_value_ = true;
  print(format_ == Format::json ? "}\n" : "\n");
  const bool printed = flush();
  if (format_ == Format::json) std::putchar('{');
  return printed;
}

void Output::say(const char* format, ...) {
  if (!human()) return;
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::putchar('\n');
}

void Output::say_text(std::string_view value) {
  if (!human()) return;
  print_escaped(value);
  std::putchar('\n');
}

void Output::error(const char* format, ...) {
  if (failed_) return;  // the first reason is the cause of the others
  va_list arguments;
  va_start(arguments, format);
  failed_ = true;
  base::TextBuilder(error_).vprint(format, arguments);
  va_end(arguments);
}

void Output::progress(const char* what) const {
  if (!human() || isatty(STDERR_FILENO) != 1) return;
  std::fprintf(stderr, "\r\033[K%s", what);
}

bool Output::finish(bool ok) {
  if (in_record_) end_record();
  if (in_list_) end_list();
  if (human()) {
    if (failed_) {
      std::fflush(stdout);
      std::fprintf(stderr, "keloctl: %s\n", error_);
    }
  } else {
    flag("ok", ok);
    if (!failed_)
      nothing("error");
    else
      text("error", error_);
    if (format_ == Format::json) print("}\n");
  }
  return flush();
}

bool Output::flush() const { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

}  // namespace kelo::ctl
