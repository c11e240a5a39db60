// SPDX-License-Identifier: MIT
// The commands that show settings.
#include <cstring>

#include "tools/keloctl/command.hpp"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/settings.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {
    {"table", 12}, {"key", 20},   {"id", 6},      {"type", 1},      {"len", 4},
    {"state", 12}, {"value", 24}, {"default", 0}, {"hex", kHidden}, {"default_hex", kHidden}};

Tone tone_of(State state) { return state == State::bad_checksum ? Tone::bad : Tone::plain; }

void print_shown(const Item& item, bool there, std::string_view value, Output& out) {
  const Bytes shown = there ? shown_value(item.type, value) : Bytes();
  if (shown)
    out.text(shown.view());
  else
    out.nothing();
}

void print_item(const Item& item, Output& out) {
  out.begin_record();
  out.text(item.table);
  out.text(item.key);
  if (item.has_id)
    out.number(item.id);
  else
    out.nothing();
  out.number(item.type);
  out.number(static_cast<long long>(item.stored ? item.value.size() : item.default_value.size()));
  out.text(words_of(item.state), tone_of(item.state));
  print_shown(item, item.stored && item.state != State::empty, item.value, out);
  print_shown(item, item.has_default, item.default_value, out);
  if (item.stored)
    out.hex(item.value);
  else
    out.nothing();
  if (item.has_default)
    out.hex(item.default_value);
  else
    out.nothing();
  out.end_record();
}

struct Counts {
  long long items = 0;
  long long bad = 0;
};

// Prints the settings of a table, or all, and only those that differ from their defaults when `only_different` is set.
int print_items(const char* table, bool only_different, Counts& counts, Output& out) {
  Settings settings;
  int result = settings.open(out);
  if (result != kDone) return result;
  out.begin_list("items", "item", kColumns);
  if (out.human()) {
    out.begin_record();
    for (const Column& column : kColumns)
      if (column.width != kHidden) out.text(column.name);
    out.end_record();
  }
  result = settings.each(table, out, [&](const Item& item) {
    if (only_different && !item.differs()) return true;
    ++counts.items;
    counts.bad += item.state == State::bad_checksum ? 1 : 0;
    print_item(item, out);
    return true;
  });
  out.end_list();
  return result;
}

int list(const Words& words, Output& out) {
  Counts counts;
  const int result = print_items(words.at(0), false, counts, out);
  if (result != kDone) return result;
  if (counts.items == 0 && words.count() > 0) {
    out.error("there is no table %s", words.at(0));
    return kNo;
  }
  if (counts.bad == 0) return kDone;
  out.error("%lld values do not match their checksums", counts.bad);
  return kBadChecksum;
}

int diff(const Words& words, Output& out) {
  Counts counts;
  const int result = print_items(words.at(0), true, counts, out);
  if (result != kDone) return result;
  if (counts.bad != 0) {
    out.error("%lld values do not match their checksums", counts.bad);
    return kBadChecksum;
  }
  if (counts.items == 0) return kDone;
  out.error("%lld settings differ from their defaults", counts.items);
  return kNo;
}

void print_value(const char* name, const Found& found, std::string_view value, const Words& words,
                 Output& out) {
  if (!out.human()) {
    const Bytes shown = shown_value(found.type, value);
    out.text(name, shown.view());
    out.hex("hex", value);
    return;
  }
  const Bytes shown = shown_value(words.option("hex") != nullptr ? 0 : found.type, value);
  out.say_text(shown.view());
}

int get(const Words& words, Output& out) {
  Found found;
  const int result = find_setting(words.at(0), found, out);
  if (result != kDone) return result;
  if (!out.human()) {
    out.text("table", found.table.view());
    out.text("key", found.key.view());
    out.number("type", found.type);
    out.text("state", words_of(found.state));
  }
  const bool wants_default = words.option("default") != nullptr;
  if (!wants_default && found.state == State::bad_checksum) {
    out.error("the value of %s does not match its checksum", words.at(0));
    return kBadChecksum;
  }
  // Daemons take the default when nothing is stored.
  const bool is_set = !wants_default && found.state == State::set;
  if (!is_set && !found.has_default) {
    out.error("%s has %s", words.at(0), wants_default ? "no default" : "neither a value nor a default");
    return kNo;
  }
  print_value("value", found, is_set ? found.value.view() : found.default_value.view(), words, out);
  return kDone;
}

constexpr Command kCommands[] = {
    {"settings", "list", "[TABLE]", "the settings with their values and defaults", "", 0, 1, list},
    {"settings", "get", "TABLE.KEY [--default] [--hex]", "the value of a setting, or its default",
     "default hex", 1, 1, get},
    {"settings", "set", "TABLE.KEY VALUE [--hex] [--id N]", "store a value; running daemons are not told",
     "hex id=", 2, 2, set_setting},
    {"settings", "reset", "TABLE.KEY", "store the default as the value; running daemons are not told", "", 1,
     1, reset_setting},
    {"settings", "diff", "[TABLE]", "the settings that differ from their defaults", "", 0, 1, diff},
    {"settings", "export", "[TABLE]", "the stored settings in a form that import takes", "", 0, 1,
     export_settings},
    {"settings", "import", "FILE", "store the settings of an exported file, all or none", "", 1, 1,
     import_settings},
    {"settings", "clean", "[--keep-copy]", "delete all stored settings", "keep-copy", 0, 0, clean_settings},
};

}  // namespace

std::span<const Command> settings_commands() { return kCommands; }

int find_setting(const char* name, Found& found, Output& out) {
  const char* const point = std::strchr(name, '.');
  const std::string_view table(name, point != nullptr ? static_cast<std::size_t>(point - name) : 0);
  const std::string_view key(point != nullptr ? point + 1 : "");
  if (!is_plain_identifier(table) || !is_plain_identifier(key) || table.size() > 31 || key.size() > 31) {
    out.error("%s is not TABLE.KEY, two plain names of at most 31 characters", name);
    return kUsage;
  }
  found.table.append(table);
  found.key.append(key);
  Settings settings;
  int result = settings.open(out);
  if (result != kDone) return result;
  bool there = false;
  result = settings.each(found.table.c_str(), out, [&](const Item& item) {
    if (key != item.key) return true;
    there = true;
    found.state = item.state;
    found.type = item.type;
    found.has_id = item.has_id;
    found.id = item.id;
    found.stored = item.stored;
    found.value = Bytes(item.value);
    found.has_default = item.has_default;
    found.default_value = Bytes(item.default_value);
    return false;
  });
  if (result != kDone) return result;
  if (!there) {
    out.error("there is no setting %s", name);
    return kNo;
  }
  if (found.value && found.default_value) return kDone;
  out.error("there is no memory");
  return kStorage;
}

}  // namespace kelo::ctl
