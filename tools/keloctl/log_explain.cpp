// SPDX-License-Identifier: MIT
// Finds the text of which a log line is an instance, in a file that the build makes from docs/messages.md. Its form is
// described in messages.awk.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/file.hpp"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/beside.hpp"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/log.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"text", 0},     {"level", 0}, {"names", 0},       {"meaning", 0},
                               {"harmless", 0}, {"code", 0},  {"code_meaning", 0}};

// --- The line -----------------------------------------------------------------------------------------------

struct Line {
  std::string_view text;
  base::FixedText<64> name;  // as the page shows names; empty when the line does not tell it
  const char* level = "";    // a word of the page; empty when the line does not tell it
};

// Names are on the page as a local line shows them.
void take_name(std::string_view name, Line& line) {
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool kelo = name.size() - i >= 4 && std::memcmp(name.data() + i, "kelo", 4) == 0;
    line.name.append(kelo ? std::string_view("oem") : std::string_view(name.data() + i, 1));
    i += kelo ? 3 : 0;
  }
}

const char* level_of_tag(const char* line, const char* end) {
  static constexpr struct {
    std::string_view tag;
    const char* level;
  } kTags[] = {
      {" DBUG", "debug"}, {" INFO", "info"}, {"-WRN-", "warning"}, {"=ERR=", "error"}, {"*CRT*", "critical"}};
  for (const auto& known : kTags) {
    const void* const found =
        memmem(line, static_cast<std::size_t>(end - line), known.tag.data(), known.tag.size());
    if (found != nullptr) return known.level;
  }
  return "";
}

// "TIME : =ERR= | [812 | 815-modem_rx] | oem_dm_write 97 | TEXT". Returns where the text begins, or null.
const char* split_local_line(const char* given, Line& line) {
  constexpr std::string_view kEndOfThread = "] | ";
  const char* const end = std::strstr(given, kEndOfThread.data());
  if (end == nullptr) return nullptr;
  const char* const name = end + kEndOfThread.size();
  const std::size_t length = std::strcspn(name, " ");
  const char* const text = std::strstr(name + length, " | ");
  if (text == nullptr) return nullptr;
  take_name({name, length}, line);
  line.level = level_of_tag(given, end);
  return text + 3;
}

// "KELO-FWA[812] kelo_dm_write(): TEXT", after what a system's log adds.
const char* split_record(const char* given, Line& line) {
  const char* const begin = std::strstr(given, "KELO-FWA[");
  const char* const name = begin != nullptr ? std::strstr(begin, "] ") : nullptr;
  const char* const end = name != nullptr ? std::strstr(name, "(): ") : nullptr;
  if (end == nullptr) return nullptr;
  take_name({name + 2, static_cast<std::size_t>(end - name - 2)}, line);
  return end + 4;
}

void take_text(const char* text, Line& line) {
  text += std::strspn(text, " \t\r\n");
  line.text = text;
  while (!line.text.empty() && std::strchr(" \t\r\n", line.text.back()) != nullptr)
    line.text.remove_suffix(1);
}

void split(const char* given, Line& line) {
  const char* text = split_local_line(given, line);
  if (text == nullptr) text = split_record(given, line);
  take_text(text != nullptr ? text : given, line);
}

// "NAME: TEXT", as --verbose prints it. Returns whether the line may be one.
bool split_verbose_line(const char* given, Line& line) {
  const char* const end = std::strstr(given, ": ");
  if (end == nullptr || !is_plain_identifier({given, static_cast<std::size_t>(end - given)})) return false;
  take_name({given, static_cast<std::size_t>(end - given)}, line);
  take_text(end + 2, line);
  return true;
}

// --- The table ----------------------------------------------------------------------------------------------

struct Row {
  std::array<std::string_view, 6> fields;
  [[nodiscard]] bool is_code() const { return fields[0] == "code"; }
  [[nodiscard]] std::string_view level() const { return fields[1]; }
  [[nodiscard]] std::string_view names() const { return fields[2]; }
  [[nodiscard]] std::string_view harmless() const { return fields[3]; }
  [[nodiscard]] std::string_view text() const { return fields[4]; }
  [[nodiscard]] std::string_view meaning() const { return fields[5]; }
};

std::string_view cut_before(char separator, std::string_view& rest) {
  const void* const found = rest.empty() ? nullptr : std::memchr(rest.data(), separator, rest.size());
  const std::size_t length = found == nullptr
                                 ? rest.size()
                                 : static_cast<std::size_t>(static_cast<const char*>(found) - rest.data());
  const std::string_view part(rest.data(), length);
  rest.remove_prefix(found == nullptr ? length : length + 1);
  return part;
}

template <typename Visit>
void each_row(std::string_view table, Visit visit) {
  while (!table.empty()) {
    std::string_view line = cut_before('\n', table);
    Row row;
    for (std::string_view& field : row.fields) field = cut_before('\t', line);
    visit(row);
  }
}

// Whether a list such as "a, b" has a name.
bool has_name(std::string_view names, std::string_view name) {
  while (!names.empty()) {
    std::string_view one = cut_before(',', names);
    while (!one.empty() && one.front() == ' ') one.remove_prefix(1);
    if (one == name) return true;
  }
  return false;
}

// --- The search ---------------------------------------------------------------------------------------------

struct Fit {
  std::size_t fixed = 0;  // characters of the text that do not change
  std::string_view code;  // what is at the place of CODE
};

bool may_be(std::string_view word, std::string_view value, Fit& fit) {
  const bool primary = value == DB_CONFIG;
  const bool backup = value == DB_CONFIGBAK;
  if ((word == "PRIMARY" && primary) || (word == "BACKUP" && backup)) fit.fixed += value.size();
  if (word == "PRIMARY") return !backup;
  if (word == "BACKUP") return !primary;
  if (word != "CODE") return true;
  fit.code = value;
  for (const char digit : value) {
    if (digit < '0' || digit > '9') return false;
  }
  return !value.empty();
}

// Whether a line is the text of a row, whose changing parts are words in braces.
bool fits(std::string_view text, std::string_view line, Fit& fit) {
  std::string_view fixed = cut_before('{', text);
  if (line.size() < fixed.size() || std::memcmp(line.data(), fixed.data(), fixed.size()) != 0) return false;
  line.remove_prefix(fixed.size());
  fit.fixed = fixed.size();
  while (!text.empty()) {
    const std::string_view word = cut_before('}', text);
    const bool last = text.find('{') == std::string_view::npos;
    fixed = cut_before('{', text);
    if (line.size() < fixed.size()) return false;
    const char* found = line.data() + line.size() - fixed.size();
    if (!last)
      found = static_cast<const char*>(memmem(line.data(), line.size(), fixed.data(), fixed.size()));
    else if (std::memcmp(found, fixed.data(), fixed.size()) != 0)
      found = nullptr;
    if (found == nullptr) return false;
    const auto length = static_cast<std::size_t>(found - line.data());
    if (!may_be(word, {line.data(), length}, fit)) return false;
    line.remove_prefix(length + fixed.size());
    fit.fixed += fixed.size();
  }
  return line.empty();
}

// How well a row fits, or 0. The name counts most, as several functions log the same text, and then how little of the
// text may change.
std::size_t rank_of(const Row& row, const Line& line, Fit& fit) {
  if (row.is_code() || !fits(row.text(), line.text, fit)) return 0;
  std::size_t name = 1;
  if (line.name.size() != 0 && !row.names().empty()) name = has_name(row.names(), line.name.view()) ? 2 : 0;
  const bool same_level = row.level().find(line.level) != std::string_view::npos;
  return 1 + 2 * (fit.fixed + name * 10000) + (same_level ? 1 : 0);
}

std::size_t best_rank(std::string_view table, const Line& line) {
  std::size_t best = 0;
  each_row(table, [&](const Row& row) {
    Fit fit;
    best = std::max(best, rank_of(row, line, fit));
  });
  return best;
}

// --- The answer ---------------------------------------------------------------------------------------------

void say_row(const Row& row, std::string_view code, std::string_view code_meaning, Output& out) {
  out.text("text", row.text());
  out.text("level", row.level());
  if (!row.names().empty()) out.text("name", row.names());
  out.text("meaning", row.meaning());
  out.text("harmless", row.harmless() == "depends" ? "it depends, see the meaning" : row.harmless());
  if (code_meaning.empty()) return;
  out.text("CODE", code);
  out.text("", code_meaning);
}

void print_row(const Row& row, std::string_view code, std::string_view code_meaning, Output& out) {
  out.begin_record();
  out.text(row.text());
  out.text(row.level());
  out.text(row.names());
  out.text(row.meaning());
  out.text(row.harmless());
  for (const std::string_view text : {code, code_meaning}) {
    if (text.empty())
      out.nothing();
    else
      out.text(text);
  }
  out.end_record();
}

Bytes read_table(Output& out) {
  const LongPath path = beside_program("../share/kelo-utils/messages");
  const base::Descriptor file = base::open_file(path.c_str(), O_RDONLY);
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    out.error("the table of messages is missing, which is installed with this program: %s: %s", path.c_str(),
              std::strerror(errno));
    return {};
  }
  Bytes table = Bytes::of_size(static_cast<std::size_t>(status.st_size));
  if (!table || base::read_all(file.get(), {table.data(), table.size()}) == table.size()) return table;
  out.error("%s cannot be read", path.c_str());
  return {};
}

}  // namespace

int explain_line(const Words& words, Output& out) {
  const Bytes table = read_table(out);
  if (!table) return kStorage;
  Line line;
  split(words.at(0), line);
  std::size_t best = best_rank(table.view(), line);
  if (best == 0 && line.name.size() == 0 && split_verbose_line(words.at(0), line))
    best = best_rank(table.view(), line);
  out.begin_list("matches", "match", kColumns);
  bool first = true;
  each_row(table.view(), [&](const Row& row) {
    Fit fit;
    if (best == 0 || rank_of(row, line, fit) != best) return;
    std::string_view code_meaning;
    each_row(table.view(), [&](const Row& other) {
      if (other.is_code() && other.fields[1] == fit.code) code_meaning = other.fields[2];
    });
    if (!first) out.say_text({});
    first = false;
    (out.human() ? say_row : print_row)(row, fit.code, code_meaning, out);
  });
  out.end_list();
  if (best != 0) return kDone;
  out.error("the library logs no such text");
  return kNo;
}

}  // namespace kelo::ctl
