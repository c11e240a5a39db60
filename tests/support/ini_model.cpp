// SPDX-License-Identifier: MIT
// INI files as a list of lines, against which the library is compared.
#include "tests/support/ini_model.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace kelo::tests {
namespace {

using Text = IniModel::Text;
using Lines = std::vector<std::string>;

constexpr std::size_t kLongestLine = 511;
constexpr std::size_t kLongestWrittenName = 507;
constexpr std::size_t kLongestWrittenKey = 508;
constexpr std::size_t kChunk = 512;
constexpr std::size_t kSector = 512;
constexpr std::size_t kNumberLength = 63;
constexpr std::size_t kWalkRoom = 512;

// --- Reading ------------------------------------------------------------------------------------------------

// Each line holds its newline; one that is too long is several.
Lines lines_of(const std::string& bytes) {
  Lines lines;
  std::string line;
  for (const char c : bytes) {
    line += c;
    if (c != '\n' && line.size() < kLongestLine) continue;
    lines.push_back(line);
    line.clear();
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

bool is_blank(char c) { return c >= 1 && c <= 32; }
bool starts_comment(char c) { return c == '#' || c == ';'; }

std::string without_leading_blanks(std::string text) {
  while (!text.empty() && is_blank(text.front())) text.erase(0, 1);
  return text;
}

std::string without_trailing_blanks(std::string text) {
  while (!text.empty() && is_blank(text.back())) text.pop_back();
  return text;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool same_name(std::string left, std::string right) {
  std::transform(left.begin(), left.end(), left.begin(), lower);
  std::transform(right.begin(), right.end(), right.begin(), lower);
  return left == right;
}

std::string without_comment(const std::string& value) {
  bool in_quotes = false;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (in_quotes && value.substr(i, 2) == "\\\"") {
      ++i;
    } else if (value[i] == '"') {
      in_quotes = !in_quotes;
    } else if (!in_quotes && starts_comment(value[i])) {
      return value.substr(0, i);
    }
  }
  return value;
}

std::string without_quotes(const std::string& value) {
  if (value.size() < 2 || value.front() != '"' || value.back() != '"') return value;
  const std::string inside = value.substr(1, value.size() - 2);
  std::string text;
  for (std::size_t i = 0; i < inside.size(); ++i) {
    const std::string pair = inside.substr(i, 2);
    if (pair == "\\\"" || pair == "\"\"") ++i;
    text += inside[i];
  }
  return text;
}

// A line's text ends at a zero byte and begins after its blanks.
std::string text_of(const std::string& line) {
  return without_leading_blanks(line.substr(0, line.find('\0')));
}

std::optional<std::string> header_name(const std::string& line) {
  const std::string text = text_of(line);
  const std::size_t end = text.rfind(']');
  if (!text.starts_with('[') || end == std::string::npos) return {};
  return text.substr(1, end - 1);
}

struct KeyLine {
  std::string key;
  std::string value;
};

std::optional<KeyLine> key_line(const std::string& line) {
  const std::string text = text_of(line);
  if (header_name(line) || text.empty() || starts_comment(text.front())) return {};
  std::size_t separator = text.find('=');
  if (separator == std::string::npos) separator = text.find(':');
  if (separator == std::string::npos) return {};
  const std::string value = without_leading_blanks(text.substr(separator + 1));
  return KeyLine{without_trailing_blanks(text.substr(0, separator)),
                 without_quotes(without_trailing_blanks(without_comment(value)))};
}

// The lines of a section without its header: from `first` up to, not including, `end`.
struct Range {
  std::size_t first;
  std::size_t end;
};

std::optional<Range> find_section(const Lines& lines, const Text& section) {
  std::size_t first = 0;
  if (section && !section->empty()) {
    const auto is_it = [&](const std::string& line) {
      const auto name = header_name(line);
      return name && same_name(*name, *section);
    };
    const auto header = std::find_if(lines.begin(), lines.end(), is_it);
    if (header == lines.end()) return {};
    first = static_cast<std::size_t>(header - lines.begin()) + 1;
  }
  std::size_t end = first;
  while (end < lines.size() && !header_name(lines[end])) ++end;
  return Range{first, end};
}

std::optional<std::size_t> find_key(const Lines& lines, Range range, const std::string& key) {
  for (std::size_t i = range.first; i < range.end; ++i) {
    const auto found = key_line(lines[i]);
    if (found && same_name(found->key, key)) return i;
  }
  return {};
}

IniModel::Answer answer(const std::string& text, std::size_t room) {
  const std::string cut = text.substr(0, room - 1);
  return {static_cast<int>(cut.size()), cut};
}

IniModel::Answer answer_at(const std::vector<std::string>& names, int index, std::size_t room) {
  if (index < 0 || static_cast<std::size_t>(index) >= names.size()) return {0, ""};
  return answer(names[static_cast<std::size_t>(index)], room);
}

// --- Writing ------------------------------------------------------------------------------------------------

std::string in_quotes(const std::string& value, std::size_t room) {
  if (room < 2) return "";
  std::string text = "\"";
  for (const char c : value) {
    const std::string written = c == '"' ? "\\\"" : std::string(1, c);
    if (text.size() + written.size() + 1 > room) break;
    text += written;
  }
  return text + "\"";
}

std::string written_value(const std::string& value, std::size_t room) {
  const bool quoted = value.find_first_of("\"#;") != std::string::npos || value.ends_with(' ');
  return quoted ? in_quotes(value, room) : value.substr(0, room);
}

std::string written_header(const std::string& section) {
  return "[" + section.substr(0, kLongestWrittenName) + "]\n";
}

std::string written_key_line(const std::string& key, const std::string& value) {
  const std::string kept = key.substr(0, kLongestWrittenKey);
  return kept + "=" + written_value(value, kLongestWrittenKey - kept.size()) + "\n";
}

// Chunks are as many whole lines as fit.
std::string last_chunk(const Lines& lines) {
  std::string chunk;
  for (const std::string& line : lines) {
    if (chunk.size() + line.size() > kChunk) chunk.clear();
    chunk += line;
  }
  return chunk;
}

std::string joined(const Lines& lines) {
  std::string bytes;
  for (const std::string& line : lines) bytes += line;
  return bytes;
}

Lines::iterator at(Lines& lines, std::size_t place) {
  return lines.begin() + static_cast<std::ptrdiff_t>(place);
}

}  // namespace

Text IniModel::value_of(const Text& section, const Text& key) const {
  if (!bytes_ || !key) return {};
  const Lines lines = lines_of(*bytes_);
  const auto range = find_section(lines, section);
  if (!range) return {};
  const auto place = find_key(lines, *range, *key);
  if (!place) return {};
  return key_line(lines[*place])->value;
}

IniModel::Answer IniModel::gets(const Text& section, const Text& key, const Text& otherwise,
                                std::size_t room) const {
  if (!key) return {0, ""};
  return answer(value_of(section, key).value_or(otherwise.value_or("")), room);
}

std::int32_t IniModel::getl(const Text& section, const Text& key, std::int32_t otherwise) const {
  const std::string text = value_of(section, key).value_or("").substr(0, kNumberLength);
  if (text.empty()) return otherwise;
  const bool hexadecimal = text.size() >= 2 && lower(text[1]) == 'x';
  const long long number = std::strtoll(text.c_str(), nullptr, hexadecimal ? 16 : 10);
  return static_cast<std::int32_t>(std::clamp<long long>(number, std::numeric_limits<std::int32_t>::min(),
                                                         std::numeric_limits<std::int32_t>::max()));
}

float IniModel::getf(const Text& section, const Text& key, float otherwise) const {
  const std::string text = value_of(section, key).value_or("").substr(0, kNumberLength);
  if (text.empty()) return otherwise;
  // Neither hexadecimal digits nor the name of a NaN belong to a decimal number.
  return std::strtof(text.substr(0, text.find_first_of("xX(")).c_str(), nullptr);
}

int IniModel::getbool(const Text& section, const Text& key, int otherwise) const {
  const std::string first = value_of(section, key).value_or("").substr(0, 1);
  if (first.empty()) return otherwise;
  switch (lower(first.front())) {
    case 't':
    case 'y':
    case '1':
      return 1;
    case 'f':
    case 'n':
    case '0':
      return 0;
    default:
      return otherwise;
  }
}

IniModel::Answer IniModel::section_at(int index, std::size_t room) const {
  std::vector<std::string> names;
  for (const std::string& line : lines_of(bytes_.value_or("")))
    if (const auto name = header_name(line)) names.push_back(*name);
  return answer_at(names, index, room);
}

IniModel::Answer IniModel::key_at(const Text& section, int index, std::size_t room) const {
  const Lines lines = lines_of(bytes_.value_or(""));
  std::vector<std::string> names;
  if (const auto range = find_section(lines, section)) {
    for (std::size_t i = range->first; i < range->end; ++i)
      if (const auto found = key_line(lines[i])) names.push_back(found->key);
  }
  return answer_at(names, index, room);
}

std::optional<std::vector<IniModel::Entry>> IniModel::walk() const {
  if (!bytes_) return {};
  std::vector<Entry> entries;
  std::string section;
  for (const std::string& line : lines_of(*bytes_)) {
    if (const auto name = header_name(line)) section = *name;
    if (const auto found = key_line(line)) {
      // Each of the three takes a terminator with it.
      const std::size_t key_room = kWalkRoom - section.size() - 3;
      const std::string key = found->key.substr(0, key_room);
      entries.push_back({section, key, found->value.substr(0, key_room - key.size())});
    }
  }
  return entries;
}

IniModel::Way IniModel::puts(const Text& section, const Text& key, const Text& value) {
  const bool sets = key && value;
  const std::string new_line = sets ? written_key_line(*key, *value) : "";
  const std::string new_header = section && !section->empty() ? written_header(*section) : "";
  if (!bytes_) {
    if (!sets) return Way::untouched;
    bytes_ = new_header + new_line;
    return Way::created;
  }

  Lines lines = lines_of(*bytes_);
  const auto range = find_section(lines, section);
  if (!range) {
    if (!sets) return key ? Way::untouched : Way::rewritten;
    const std::string chunk = last_chunk(lines);
    if (chunk.size() < 2 || !chunk.ends_with('\n')) *bytes_ += '\n';
    *bytes_ += new_header + new_line;
    return Way::rewritten;
  }
  if (!key) {
    const std::size_t header = new_header.empty() ? range->first : range->first - 1;
    lines.erase(at(lines, header), at(lines, range->end));
    bytes_ = joined(lines);
    return Way::rewritten;
  }

  const auto place = find_key(lines, *range, *key);
  if (!place && !sets) return Way::untouched;
  if (!place) {
    const bool starts_a_line = range->end < lines.size() || bytes_->empty() || bytes_->ends_with('\n');
    lines.insert(at(lines, range->end), (starts_a_line ? "" : "\n") + new_line);
    bytes_ = joined(lines);
    return Way::rewritten;
  }
  const std::string old_line = lines[*place];
  if (sets && key_line(old_line)->value == *value) return Way::untouched;
  const std::size_t begin = joined({lines.begin(), at(lines, *place)}).size();
  const bool one_sector = begin / kSector == (begin + old_line.size() - 1) / kSector;
  const bool same_length = old_line.ends_with('\n') && old_line.size() == new_line.size();
  lines[*place] = new_line;
  bytes_ = joined(lines);
  return sets && same_length && one_sector ? Way::in_place : Way::rewritten;
}

IniModel::Way IniModel::putl(const Text& section, const Text& key, std::int32_t value) {
  return puts(section, key, std::to_string(value));
}

IniModel::Way IniModel::putf(const Text& section, const Text& key, float value) {
  return puts(section, key, std::to_string(value));
}

std::string literal(const Text& text) {
  if (!text) return "nullptr";
  std::string shown = "\"";
  for (std::size_t i = 0; i < text->size();) {
    const char c = (*text)[i];
    const std::size_t run = std::min(text->find_first_not_of(c, i), text->size()) - i;
    std::string one(1, c);
    if (c == '\n') {
      one = "\\n";
    } else if (c == '\r') {
      one = "\\r";
    } else if (c == '\t') {
      one = "\\t";
    } else if (c == '"' || c == '\\') {
      one = std::string("\\") + c;
    } else if (c < ' ' || c > '~') {
      char code[8];
      std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
      one = code;
    }
    if (run > 8) {
      shown += "\" + " + std::to_string(run) + " * \"" + one + "\" + \"";
    } else {
      for (std::size_t count = 0; count < run; ++count) shown += one;
    }
    i += run;
  }
  return shown + "\"";
}

std::ostream& operator<<(std::ostream& out, const IniModel::Answer& answer) {
  return out << answer.length << ' ' << literal(answer.text);
}

std::ostream& operator<<(std::ostream& out, const IniModel::Entry& entry) {
  return out << '[' << literal(entry.section) << "] " << literal(entry.key) << " = " << literal(entry.value);
}

std::ostream& operator<<(std::ostream& out, IniModel::Way way) {
  static constexpr const char* kNames[] = {"untouched", "created", "in place", "rewritten"};
  return out << kNames[static_cast<std::size_t>(way)];
}

}  // namespace kelo::tests
