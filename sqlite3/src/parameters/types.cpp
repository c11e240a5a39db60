// Turns the text of cells into variables, and variables into update statements.
#include "sqlite3/src/parameters/types.hpp"

#include <algorithm>
#include <array>
#include <cstring>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/number.hpp"

namespace kelo::params {
namespace {

using base::TextBuilder;

// Variables are copied byte by byte: a descriptor may point into a packed record.
template <typename Number>
Number number_in(const void* variable) {
  Number number{};
  std::memcpy(&number, variable, sizeof number);
  return number;
}

template <typename Number>
bool read_number(void* variable, std::uint32_t /*size*/, const char* text) {
  const auto number = static_cast<Number>(decimal_number(text));
  std::memcpy(variable, &number, sizeof number);
  return true;
}

bool read_text(void* variable, std::uint32_t size, const char* text) {
  if (size == 0) return false;
  std::memset(variable, 0, size);
  kelo_string_memcpy(static_cast<char*>(variable), text, size - 1);
  return true;
}

template <typename Number>
bool write_signed(TextBuilder& update, const void* variable, std::uint32_t /*size*/) {
  update.print("%d", number_in<Number>(variable));
  return true;
}

bool write_unsigned(TextBuilder& update, const void* variable, std::uint32_t /*size*/) {
  update.print("%llu", static_cast<unsigned long long>(number_in<std::uint64_t>(variable)));
  return true;
}

// A text that would end its own quotes, or that has no end within its variable, has no literal.
bool write_text(TextBuilder& update, const void* variable, std::uint32_t size) {
  const char* const text = static_cast<const char*>(variable);
  const std::size_t room = std::min<std::size_t>(size, kStatementSize);
  const std::size_t length = strnlen(text, room);
  if (length == room || std::memchr(text, '"', length) != nullptr) return false;
  update.print("\"%s\"", text);
  return true;
}

struct Type {
  std::uint32_t code;
  bool (*read)(void* variable, std::uint32_t size, const char* text);
  bool (*write)(TextBuilder& update, const void* variable, std::uint32_t size);
  const char* gap;  // between "set" and the name where a table is written back
};

constexpr std::array<Type, 7> kTypes = {{
    {KELO_DB_TYPE_8BIT_0, read_number<std::uint8_t>, write_signed<std::uint8_t>, " "},
    {KELO_DB_TYPE_8BIT_1, read_number<std::uint8_t>, write_signed<std::uint8_t>, " "},
    {KELO_DB_TYPE_32BIT_2, read_number<std::uint32_t>, write_signed<std::int32_t>, " "},
    {KELO_DB_TYPE_32BIT_4, read_number<std::uint32_t>, write_signed<std::int32_t>, " "},
    {KELO_DB_TYPE_64BIT, read_number<std::uint64_t>, write_unsigned, "  "},
    {KELO_DB_TYPE_TEXT, read_text, write_text, " "},
    {KELO_DB_TYPE_32BIT_7, read_number<std::uint32_t>, write_signed<std::int32_t>, " "},
}};

constexpr char kWideGap[] = "  ";

const Type* find_type(const char* caller, std::uint32_t code) {
  const auto* const found =
      std::find_if(kTypes.begin(), kTypes.end(), [=](const Type& type) { return type.code == code; });
  if (found != kTypes.end()) return found;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, param_type:%d \n", static_cast<int>(code));
  return nullptr;
}

void begin_update(TextBuilder& update, const char* gap, Column column) {
  update.print("update %s set%s%s = ", column.table, gap, column.name);
}

bool end_update(const TextBuilder& update, const char* caller, Column column, bool written) {
  if (written && !update.cut()) return true;
  log_failed_update(caller, column);
  return false;
}

}  // namespace

bool read_variable(const char* caller, std::uint32_t type, void* variable, std::uint32_t size,
                   const char* text) {
  const Type* const found = find_type(caller, type);
  if (found == nullptr) return false;
  if (found->read(variable, size, text == nullptr ? "" : text)) return true;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, param_type:%d \n", static_cast<int>(type));
  return false;
}

bool write_update_of_variable(StatementText& update, const char* caller, UpdateForm form, Column column,
                              std::uint32_t type, const void* variable, std::uint32_t size) {
  const Type* const found = find_type(caller, type);
  if (found == nullptr) return false;
  begin_update(update, form == UpdateForm::kTable ? found->gap : kWideGap, column);
  const bool written = found->write(update, variable, size);
  return end_update(update.put(';'), caller, column, written);
}

bool write_update_of_factory_text(StatementText& update, const char* caller, Column column,
                                  const char* text) {
  begin_update(update, kWideGap, column);
  return end_update(update, caller, column, write_text(update, text == nullptr ? "" : text, kStatementSize));
}

void log_failed_update(const char* caller, Column column) {
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, tbl_name:%s update key:[%s] failed.\n", column.table, column.name);
}

}  // namespace kelo::params
