// SPDX-License-Identifier: MIT
// Converts the texts of cells into variables, and variables into update statements.
#include "sqlite3/src/parameters/types.hpp"

#include <algorithm>
#include <cstring>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/number.hpp"

namespace kelo::params {
namespace {

using base::TextBuilder;

// Variables are copied by memcpy(), since they may be unaligned members of packed records.
template <typename Number>
Number number_in(const void* variable) {
  Number number{};
  std::memcpy(&number, variable, sizeof number);
  return number;
}

template <typename Number>
bool read_number(void* variable, const char* text) {
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

// Returns false for a text with a double quote, which would end the literal, and for a text without a terminator.
bool write_text(TextBuilder& update, const void* variable, std::uint32_t size) {
  const char* const text = static_cast<const char*>(variable);
  const std::size_t limit = std::min<std::size_t>(size, kStatementSize);
  const std::size_t length = strnlen(text, limit);
  if (length == limit || std::memchr(text, '"', length) != nullptr) return false;
  update.print("\"%s\"", text);
  return true;
}

enum class VariableKind : std::uint8_t { unknown, bits_8, bits_32, bits_64, text };

constexpr VariableKind kind_of(std::uint32_t type) {
  switch (type) {
    case KELO_DB_TYPE_8BIT_0:
    case KELO_DB_TYPE_8BIT_1:
      return VariableKind::bits_8;
    case KELO_DB_TYPE_32BIT_2:
    case KELO_DB_TYPE_32BIT_4:
    case KELO_DB_TYPE_32BIT_7:
      return VariableKind::bits_32;
    case KELO_DB_TYPE_64BIT:
      return VariableKind::bits_64;
    case KELO_DB_TYPE_TEXT:
      return VariableKind::text;
    default:
      return VariableKind::unknown;
  }
}

bool read(VariableKind kind, void* variable, std::uint32_t size, const char* text) {
  switch (kind) {
    case VariableKind::bits_8:
      return read_number<std::uint8_t>(variable, text);
    case VariableKind::bits_32:
      return read_number<std::uint32_t>(variable, text);
    case VariableKind::bits_64:
      return read_number<std::uint64_t>(variable, text);
    case VariableKind::text:
      return read_text(variable, size, text);
    default:
      return false;
  }
}

bool write(TextBuilder& update, VariableKind kind, const void* variable, std::uint32_t size) {
  switch (kind) {
    case VariableKind::bits_8:
      update.print("%d", number_in<std::uint8_t>(variable));
      return true;
    case VariableKind::bits_32:
      update.print("%d", number_in<std::int32_t>(variable));
      return true;
    case VariableKind::bits_64:
      update.print("%llu", static_cast<unsigned long long>(number_in<std::uint64_t>(variable)));
      return true;
    default:
      return write_text(update, variable, size);
  }
}

// Updates have one or two blanks between "set" and the name of the column.
constexpr const char* kTwoBlanks = "  ";

void log_type(const char* caller, std::uint32_t type) {
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, param_type:%d \n", static_cast<int>(type));
}

void begin_update(TextBuilder& update, const char* blanks, Column column) {
  update.print("update %s set%s%s = ", column.table, blanks, column.name);
}

bool end_update(const TextBuilder& update, const char* caller, Column column, bool written) {
  if (written && !update.cut()) return true;
  log_failed_update(caller, column);
  return false;
}

}  // namespace

bool read_variable(const char* caller, std::uint32_t type, void* variable, std::uint32_t size,
                   const char* text) {
  if (read(kind_of(type), variable, size, text == nullptr ? "" : text)) return true;
  log_type(caller, type);
  return false;
}

bool write_update_of_variable(StatementText& update, const char* caller, UpdateSpacing spacing, Column column,
                              std::uint32_t type, const void* variable, std::uint32_t size) {
  const VariableKind kind = kind_of(type);
  if (kind == VariableKind::unknown) {
    log_type(caller, type);
    return false;
  }
  const bool one_blank = spacing == UpdateSpacing::table && kind != VariableKind::bits_64;
  begin_update(update, one_blank ? " " : kTwoBlanks, column);
  const bool written = write(update, kind, variable, size);
  return end_update(update.put(';'), caller, column, written);
}

bool write_update_of_factory_text(StatementText& update, const char* caller, Column column,
                                  const char* text) {
  begin_update(update, kTwoBlanks, column);
  return end_update(update, caller, column, write_text(update, text == nullptr ? "" : text, kStatementSize));
}

void log_failed_update(const char* caller, Column column) {
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, tbl_name:%s update key:[%s] failed.\n", column.table, column.name);
}

}  // namespace kelo::params
