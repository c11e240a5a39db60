// SPDX-License-Identifier: MIT
// settings export, import and clean. An exported file has a first line with the names of the columns, and a line of five
// fields for each stored setting; the value is in hexadecimal digits, so that no field needs quotes.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/line_reader.hpp"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/settings.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"table", 0}, {"key", 0}, {"id", 0}, {"type", 0}, {"hex", 0}};
constexpr std::string_view kFirstLine = "table,key,id,type,hex";
constexpr std::size_t kLongestLine = 1 << 20;

// --- Export -------------------------------------------------------------------------------------------------

void export_item(const Item& item, Output& out) {
  const Bytes digits = shown_value(0, item.value);
  if (out.human()) {
    out.say("%s,%s,%d,%d,%s", item.table, item.key, item.id, item.type, digits ? digits.c_str() : "");
    return;
  }
  out.begin_record();
  out.text(item.table);
  out.text(item.key);
  out.number(item.id);
  out.number(item.type);
  out.hex(item.value);
  out.end_record();
}

// --- Import -------------------------------------------------------------------------------------------------

// A line of the file. Entries stay until the process ends.
struct Entry {
  Entry* next;
  Found found;  // what is stored now, and the id and the type of the line
  Bytes value;  // of the line
  bool written;
};
Entry* first_entry = nullptr;

Entry* add_entry(Entry**& end) {
  void* const memory = std::calloc(1, sizeof(Entry));
  if (memory == nullptr) return nullptr;
  Entry* const entry = new (memory) Entry{};
  *end = entry;
  end = &entry->next;
  return entry;
}

// Cuts the text before the next comma off `rest`.
std::string_view next_field(std::string_view& rest) {
  const void* const comma = rest.empty() ? nullptr : std::memchr(rest.data(), ',', rest.size());
  const std::size_t length = comma == nullptr
                                 ? rest.size()
                                 : static_cast<std::size_t>(static_cast<const char*>(comma) - rest.data());
  const std::string_view field(rest.data(), length);
  rest.remove_prefix(comma == nullptr ? length : length + 1);
  return field;
}

bool read_number(std::string_view field, int& number) {
  const base::FixedText<16> text("%.*s", static_cast<int>(field.size()), field.data());
  const Bytes bytes = field.size() < 12 ? from_number(text.c_str(), sizeof number) : Bytes();
  if (bytes) std::memcpy(&number, bytes.c_str(), sizeof number);
  return static_cast<bool>(bytes);
}

bool has_type(int type) { return type >= KELO_DM_TYPE_SCALAR1 && type <= KELO_DM_TYPE_BUFFER; }

// Reads a line. Returns what is wrong with it, or null.
const char* read_line(std::string_view line, Entry& entry, Output& out) {
  const std::string_view table = next_field(line);
  const std::string_view key = next_field(line);
  int id = 0;
  int type = 0;
  const bool numbers = read_number(next_field(line), id) && read_number(next_field(line), type);
  if (!numbers || table.size() > 31 || key.size() > 31 || id == kEndOfItems || !has_type(type))
    return "it is not table, key, id, type and value";
  entry.value = from_hex(line);
  if (!entry.value || entry.value.size() == 0) return "the value is not in hexadecimal digits";
  if (table == SQL_VER_TAB) return "the version record is no setting";
  const base::FixedText<72> name("%.*s.%.*s", static_cast<int>(table.size()), table.data(),
                                 static_cast<int>(key.size()), key.data());
  const int result = find_setting(name.c_str(), entry.found, out);
  if (result == kUsage) return "the names are not plain names";
  if (result == kNo) out.forget_error();  // the device does not know it yet
  if (result != kNo && result != kDone) return "the store cannot be read";
  if (result == kDone && entry.found.type != type) return "the setting has another type";
  entry.found.id = id;
  entry.found.type = type;
  return nullptr;
}

std::string_view without_line_end(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

int read_file(const char* path, Output& out) {
  const base::Descriptor file = base::open_file(path, O_RDONLY);
  const auto storage = base::zeroed_array<char>(kLongestLine);
  if (!file || !storage) {
    out.error("%s cannot be read: %s", path, std::strerror(errno));
    return kStorage;
  }
  base::LineReader lines(file.get(), {storage.get(), kLongestLine});
  Entry** end = &first_entry;
  for (int number = 1;; ++number) {
    const std::string_view line = lines.next();
    if (line.empty()) break;
    const char* wrong = "there is no memory";
    if (number == 1) {
      wrong = without_line_end(line) == kFirstLine ? nullptr : "it does not name the columns";
    } else if (Entry* const entry = add_entry(end)) {
      wrong = read_line(without_line_end(line), *entry, out);
    }
    if (wrong == nullptr) continue;
    const bool locked = waited_in_vain();
    out.forget_error();
    out.error("%s: line %d: %s; nothing was stored", path, number, wrong);
    return locked ? kTimeOut : kUsage;
  }
  if (!lines.failed()) return kDone;
  out.error("%s cannot be read", path);
  return kStorage;
}

// Gives the settings that were stored their values of before.
void take_back() {
  for (Entry* entry = first_entry; entry != nullptr; entry = entry->next) {
    if (entry->written) static_cast<void>(write_setting(entry->found, entry->found.value.view()));
  }
}

bool is_stored(const Entry& entry) {
  return entry.found.state == State::set && entry.found.value.view() == entry.value.view();
}

int store_entries(Output& out) {
  long long stored = 0;
  long long same = 0;
  for (Entry* entry = first_entry; entry != nullptr; entry = entry->next) {
    if (is_stored(*entry)) {
      ++same;
      continue;
    }
    const base::FixedText<72> name("%s.%s", entry->found.table.c_str(), entry->found.key.c_str());
    out.progress(name.c_str());
    entry->written = true;
    if (!write_setting(entry->found, entry->value.view())) {
      const int result = failed_write(name.c_str(), out);
      take_back();
      return result;
    }
    ++stored;
  }
  out.progress("");
  out.number("stored", stored);
  out.number("unchanged", same);
  if (stored != 0) out.say("Running daemons are not told: they use the values when they next read them.");
  return kDone;
}

}  // namespace

int export_settings(const Words& words, Output& out) {
  Settings settings;
  int result = settings.open(out);
  if (result != kDone) return result;
  out.begin_list("items", "item", kColumns);
  out.say("%s", kFirstLine.data());
  long long bad = 0;
  result = settings.each(words.at(0), out, [&](const Item& item) {
    bad += item.state == State::bad_checksum ? 1 : 0;
    if (item.state == State::set) export_item(item, out);
    return true;
  });
  out.end_list();
  if (result != kDone || bad == 0) return result;
  out.error("%lld values do not match their checksums and are left out", bad);
  return kBadChecksum;
}

int import_settings(const Words& words, Output& out) {
  const int result = read_file(words.at(0), out);
  return result == kDone ? store_entries(out) : result;
}

int clean_settings(const Words& words, Output& out) {
  {
    Look look;
    const int result = look.begin(out);
    if (result != kDone) return result;
    if (open_for_look(DB_CONFIG).health == Health::missing &&
        open_for_look(DB_CONFIGBAK).health == Health::missing) {
      out.error("there is no store");
      return kNo;
    }
  }
  if (dm_sqlite_clean(words.option("keep-copy") != nullptr ? "" : nullptr) == 0) {
    out.say("The settings are deleted. Running daemons are not told.");
    return kDone;
  }
  out.error("not all was deleted: %s", reason_of_failure());
  return waited_in_vain() ? kTimeOut : kStorage;
}

}  // namespace kelo::ctl
