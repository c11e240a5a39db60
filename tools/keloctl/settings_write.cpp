// SPDX-License-Identifier: MIT
// The commands that change settings. They write as a daemon does: the row is registered as an item of this program, and
// written through the journal.
#include <cstring>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/settings.hpp"

namespace kelo::ctl {
namespace {

// The registry keeps pointers into the table until the process ends.
kelo_dm_item items[2];

void register_item(const Found& found) {
  items[0].id = found.id;
  items[0].desc.def_type = found.type;
  std::memcpy(items[0].desc.item_table, found.table.c_str(), found.table.size() + 1);
  std::memcpy(items[0].desc.item_key, found.key.c_str(), found.key.size() + 1);
  items[1].id = kEndOfItems;
  kelo_dm_reg_def_items(items);
}

int store(const char* name, const Found& found, std::string_view value, Output& out) {
  if (!write_setting(found, value)) return failed_write(name, out);
  const Bytes shown = shown_value(found.type, value);
  if (out.human()) {
    out.say("%s is stored. Running daemons are not told: they use the value when they next read it.", name);
    return kDone;
  }
  out.text("table", found.table.view());
  out.text("key", found.key.view());
  out.text("value", shown.view());
  out.hex("hex", value);
  out.flag("daemons_told", false);
  return kDone;
}

// Finds a setting that may be written. The version record belongs to the library.
int find_writable(const char* name, Found& found, Output& out) {
  const int result = find_setting(name, found, out);
  if (result != kDone) return result;
  if (std::strcmp(found.table.c_str(), SQL_VER_TAB) == 0) {
    out.error("the version record is no setting");
    return kUsage;
  }
  if (found.type < KELO_DM_TYPE_SCALAR1 || found.type > KELO_DM_TYPE_BUFFER || found.id == kEndOfItems) {
    out.error("%s has the type %d and the id %d, which no setting has", name, found.type, found.id);
    return kNo;
  }
  return kDone;
}

// The bytes of a value as the command line gives it.
Bytes parse(const Words& words, const Found& found, Output& out) {
  const char* const text = words.at(1);
  const bool is_number = KELO_DM_IS_SCALAR(found.type);
  const std::size_t length =
      found.stored && found.value.size() != 0 ? found.value.size() : found.default_value.size();
  Bytes value;
  if (words.option("hex") != nullptr) {
    value = from_hex(text);
    if (!value) out.error("%s is not an even number of hexadecimal digits", text);
  } else if (is_number) {
    value = from_number(text, length);
    if (!value) out.error("%s is not a number of %zu bytes", text, length);
  } else if (found.type == KELO_DM_TYPE_STRING) {
    value = Bytes(text);
  } else {
    out.error("%s holds bytes: give them with --hex", words.at(0));
  }
  if (value && value.size() == 0) {
    out.error("an empty value cannot be stored: settings reset stores the default");
    return {};
  }
  if (value && is_number && value.size() != length) {
    out.error("%s has %zu bytes, not %zu", words.at(0), length, value.size());
    return {};
  }
  return value;
}

}  // namespace

bool write_setting(const Found& found, std::string_view value) {
  register_item(found);
  kelo_dm_handle* const handle = kelo_dm_reg(0);
  const int result =
      value.empty() ? kelo_dm_empty(handle, found.id)
                    : kelo_dm_write_verified(handle, found.id, value.data(), static_cast<int>(value.size()));
  kelo_dm_unreg(handle);
  return result == 0;
}

int failed_write(const char* name, Output& out) {
  const char* const reason = reason_of_failure();
  if (*reason != '\0')
    out.error("%s was not stored: %s", name, reason);
  else
    out.error("%s was not stored", name);
  return waited_in_vain() ? kTimeOut : kStorage;
}

int set_setting(const Words& words, Output& out) {
  Found found;
  const int result = find_writable(words.at(0), found, out);
  if (result != kDone) return result;
  const Bytes value = parse(words, found, out);
  if (!value) return kUsage;
  // The defaults do not tell the id. A daemon finds the row by its key, and stores the id with its next write.
  if (const char* const id = words.option("id")) {
    const Bytes number = from_number(id, sizeof found.id);
    if (!number) {
      out.error("%s is not an id", id);
      return kUsage;
    }
    std::memcpy(&found.id, number.c_str(), sizeof found.id);
  }
  if (found.id == kEndOfItems) {
    out.error("no setting has the id %d", kEndOfItems);
    return kUsage;
  }
  return store(words.at(0), found, value.view(), out);
}

int reset_setting(const Words& words, Output& out) {
  Found found;
  const int result = find_writable(words.at(0), found, out);
  if (result != kDone) return result;
  if (!found.has_default) {
    out.error("%s has no default", words.at(0));
    return kNo;
  }
  return store(words.at(0), found, found.default_value.view(), out);
}

}  // namespace kelo::ctl
