// SPDX-License-Identifier: MIT
// The commands that show parameters and change single ones.
#include <cstdint>
#include <cstring>

#include "kelo_utils/parameters.h"
#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/parameters.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"table", 12}, {"name", 20},  {"type", 7},
                               {"state", 16}, {"value", 24}, {"factory", 0}};

void print_cell(const Cell& cell, Output& out) {
  if (cell.there && !cell.null)
    out.text(cell.text.view());
  else
    out.nothing();
}

int list(const Words& words, Output& out) {
  Parameters parameters;
  int result = parameters.open(false, out);
  if (result != kDone) return result;
  out.begin_list("parameters", "parameter", kColumns);
  if (out.human()) {
    out.begin_record();
    for (const Column& column : kColumns) out.text(column.name);
    out.end_record();
  }
  bool any = false;
  result = parameters.each(words.at(0), out, [&](const Parameter& parameter) {
    any = true;
    out.begin_record();
    out.text(parameter.table);
    out.text(parameter.name);
    out.text(parameter.value.type);
    out.text(parameter.state());
    print_cell(parameter.value, out);
    print_cell(parameter.factory, out);
    out.end_record();
    return true;
  });
  out.end_list();
  if (result != kDone || any || words.count() == 0) return result;
  out.error("there is no table %s with a row", words.at(0));
  return kNo;
}

int get(const Words& words, Output& out) {
  ParameterName name;
  FoundParameter found;
  const int result = find_parameter(words.at(0), false, name, found, out);
  if (result != kDone) return result;
  const Cell& cell = words.option("factory") != nullptr ? found.factory : found.value;
  if (!cell.there) {
    out.error("%s has no factory value", words.at(0));
    return kNo;
  }
  if (out.human()) {
    out.say_text(cell.text.view());
    return kDone;
  }
  out.text("table", name.table.view());
  out.text("name", name.name.view());
  out.text("type", cell.type);
  out.text("state", found.state);
  if (cell.null)
    out.nothing("value");
  else
    out.text("value", cell.text.view());
  return kDone;
}

// Numbers above 63 bits would be stored as inexact ones, and the library writes negative ones with 32 bits. Returns false
// for a text that is no such number.
bool read_number(const char* text, Bytes& bytes, long long& number) {
  const bool negative = text[0] == '-';
  bytes = from_number(text, negative ? sizeof(std::int32_t) : sizeof(std::int64_t));
  return bytes && number_of(bytes.view(), number) && (number < 0) == negative;
}

int set_number(const ParameterName& name, const char* text, Output& out) {
  Bytes bytes;
  long long number = 0;
  if (!read_number(text, bytes, number)) {
    out.error("%s is not a number from -2147483648 to 9223372036854775807", text);
    return kUsage;
  }
  const kelo_db_type type = number < 0 ? KELO_DB_TYPE_32BIT_2 : KELO_DB_TYPE_64BIT;
  if (kelo_db_update_value(name.table.c_str(), name.name.c_str(), bytes.c_str(), type) != 0)
    return failed_change("the parameter was not stored", out);
  return print_stored(name, base::FixedText<24>("%lld", number).view(), out);
}

int set_text(const ParameterName& name, const char* text, Output& out) {
  if (!is_storable(name, text, out)) return kUsage;
  if (kelo_db_update_value(name.table.c_str(), name.name.c_str(), text, KELO_DB_TYPE_TEXT) != 0)
    return failed_change("the parameter was not stored", out);
  return print_stored(name, text, out);
}

int set(const Words& words, Output& out) { return set_parameter(words.at(0), words.at(1), out); }

constexpr Command kCommands[] = {
    {"param", "list", "[TABLE]", "the parameters with their values and those of the factory", "", 0, 1, list},
    {"param", "get", "TABLE.NAME [--factory]", "the value of a parameter, or that of the factory", "factory",
     1, 1, get},
    {"param", "set", "TABLE.NAME VALUE", "store a value; running daemons are not told", "", 2, 2, set},
    {"param", "restore", "TABLE.NAME | --all", "store the factory value of a parameter, or of all", "all", 0,
     1, restore_parameters},
    {"param", "provision", "FILE [--user]", "make the factory settings from SQL, and the user's", "user", 1,
     1, provision_parameters},
};

}  // namespace

std::span<const Command> param_commands() { return kCommands; }

int set_parameter(const char* given, const char* value, Output& out) {
  ParameterName name;
  FoundParameter found;
  const int result = find_parameter(given, true, name, found, out);
  if (result != kDone) return result;
  return found.is_number ? set_number(name, value, out) : set_text(name, value, out);
}

int print_stored(const ParameterName& name, std::string_view value, Output& out) {
  if (out.human()) {
    out.say("%s.%s is stored. Running daemons are not told: they use the value when they next read it.",
            name.table.c_str(), name.name.c_str());
    return kDone;
  }
  out.text("table", name.table.view());
  out.text("name", name.name.view());
  out.text("value", value);
  out.flag("daemons_told", false);
  return kDone;
}

int failed_change(const char* what, Output& out) {
  const char* const reason = reason_of_failure();
  out.error("%s%s%s", what, *reason != '\0' ? ": " : "", reason);
  return waited_in_vain() ? kTimeOut : kStorage;
}

// The library writes a text in double quotes, in a statement of at most 255 bytes.
bool is_storable(const ParameterName& name, const char* text, Output& out) {
  constexpr std::size_t kMostBytes = 255 - 19;
  const std::size_t most = kMostBytes - name.table.size() - name.name.size();
  if (std::strchr(text, '"') == nullptr && std::strlen(text) <= most) return true;
  out.error("%s.%s takes a text of at most %zu bytes without double quotes", name.table.c_str(),
            name.name.c_str(), most);
  return false;
}

}  // namespace kelo::ctl
