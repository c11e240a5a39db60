// SPDX-License-Identifier: MIT
// Symbol tables: hash tables that map names to value cells.
#include "kelo_utils/symtab.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/division.hpp"
#include "base/heap.hpp"
#include "symtab/kept_table.hpp"

static_assert(sizeof(void*) != 4 || (sizeof(sym_t) == 40 && offsetof(sym_t, name) == 4 &&
                                     offsetof(sym_t, content) == 20 && offsetof(sym_t, arg) == 36));

struct kelo::symtab::Table {
  int bucket_count;
  sym_t** buckets;  // first entries of the chains; null when there was no memory for them
  bool kept;        // the table is not freed when its handle is closed
};

namespace {

using kelo::base::remainder;
using kelo::symtab::Table;

// The state of a walk with symFirst() and symNext(): the next entry and its bucket. When `next` is null, the walk
// searches the buckets after `bucket`.
struct Cursor {
  int bucket;
  sym_t* next;
};

constexpr Cursor kWalkEnded = {INT_MAX, nullptr};

// All tables of the process share these. Callers serialise their calls.
void** tables;     // handle array of Table*
int handle_bound;  // one past the highest handle in use
int open_count;    // calls of symSubOpen() without their symSubClose()
Cursor cursor;

Table* table_of(sym_fd sd) {
  return sd >= 0 && sd < handle_bound ? static_cast<Table*>(tables[sd]) : nullptr;
}

// Returns null for a table that has no buckets and thus no entries.
Table* table_with_buckets(sym_fd sd) {
  Table* const table = table_of(sd);
  return table != nullptr && table->buckets != nullptr ? table : nullptr;
}

bool is_prime_odd(std::uint32_t candidate) {
  for (std::uint32_t divisor = 3; std::uint64_t{divisor} * divisor <= candidate; divisor += 2) {
    if (remainder(candidate, divisor) == 0) return false;
  }
  return true;
}

// Returns the largest prime that is not above `hash_size`, or 1 when there is none.
int bucket_count_for(int hash_size) {
  if (hash_size <= 1) return 1;
  if (hash_size <= 3) return hash_size;
  int candidate = hash_size % 2 == 0 ? hash_size - 1 : hash_size;
  while (!is_prime_odd(static_cast<std::uint32_t>(candidate))) candidate -= 2;
  return candidate;
}

std::uint32_t hash_of(const char* name) {
  std::uint32_t sum = 0;
  unsigned shift = 0;
  for (; *name != '\0'; ++name) {
    sum += static_cast<std::uint32_t>(static_cast<unsigned char>(*name)) << shift;
    shift += 7;
    if (shift >= 24) shift -= 24;
  }
  return sum;
}

int bucket_of(const Table& table, const char* name) {
  return static_cast<int>(remainder(hash_of(name), static_cast<std::uint32_t>(table.bucket_count)));
}

bool has_name(const sym_t& symbol, const char* name) {
  const char* const key = symbol.name.payload.string;
  return *key == *name && std::strcmp(key, name) == 0;
}

// Returns the link that points to the entry with this name, or the null link at the end of the chain.
sym_t** find_link(sym_t** link, const char* name) {
  while (*link != nullptr && !has_name(**link, name)) link = &(*link)->next;
  return link;
}

// Callers rely on it that an empty name can be entered but not found.
bool can_be_found(const char* name) { return name != nullptr && *name != '\0'; }

sym_t* make_symbol(const char* name, const value_t& value, int arg) {
  auto symbol = kelo::base::zeroed<sym_t>();
  if (!symbol) return nullptr;
  symbol->name = valueString(name, VALUE_FLAG_COPY);
  if (symbol->name.payload.string == nullptr) return nullptr;
  symbol->content = value;
  symbol->arg = arg;
  return symbol.release();
}

void free_symbol(sym_t* symbol) {
  valueFree(&symbol->name);
  valueFree(&symbol->content);
  std::free(symbol);
}

void replace_content(sym_t& symbol, const value_t& value, int arg) {
  // A caller may enter a cell again that it has looked up: its string is still in use then.
  const bool same_string =
      value.type == VALUE_TYPE_STRING && value.payload.string == symbol.content.payload.string;
  if (symbol.content.valid != 0 && !same_string) valueFree(&symbol.content);
  symbol.content = value;
  symbol.arg = arg;
}

Cursor cursor_after(const Table& table, int bucket, const sym_t& symbol) {
  if (symbol.next != nullptr) return {bucket, symbol.next};
  const int following = bucket + 1;
  return {following, following < table.bucket_count ? table.buckets[following] : nullptr};
}

// Returns `symbol` as the next entry of the walk.
sym_t* visit(const Table& table, int bucket, sym_t* symbol) {
  cursor = cursor_after(table, bucket, *symbol);
  return symbol;
}

sym_t* visit_first_from(const Table& table, int bucket) {
  for (; bucket < table.bucket_count; ++bucket) {
    if (table.buckets[bucket] != nullptr) return visit(table, bucket, table.buckets[bucket]);
  }
  return nullptr;
}

void free_symbols(Table& table) {
  for (int bucket = 0; bucket < table.bucket_count; ++bucket) {
    sym_t* symbol = table.buckets[bucket];
    while (symbol != nullptr) {
      sym_t* const next = symbol->next;
      if (cursor.next == symbol) cursor = kWalkEnded;
      free_symbol(symbol);
      symbol = next;
    }
  }
}

}  // namespace

int symSubOpen() {
  open_count += 1;
  if (open_count == 1) {
    handle_bound = 0;
    tables = nullptr;
  }
  return 0;
}

void symSubClose() {
  if (open_count > 0) open_count -= 1;
}

sym_fd symOpen(int hash_size) {
  const sym_fd sd = hAlloc(&tables);
  if (sd < 0) return -1;
  auto table = kelo::base::zeroed<Table>();
  if (!table) {
    handle_bound = hFree(&tables, sd);
    return -1;
  }
  table->bucket_count = bucket_count_for(hash_size);
  table->buckets = kelo::base::zeroed_array<sym_t*>(static_cast<std::size_t>(table->bucket_count)).release();
  tables[sd] = table.release();
  if (handle_bound <= sd) handle_bound = sd + 1;
  return sd;
}

void symClose(sym_fd sd) {
  Table* const table = table_of(sd);
  if (table == nullptr) return;
  handle_bound = hFree(&tables, sd);
  if (table->kept) return;
  if (table->buckets != nullptr) free_symbols(*table);
  std::free(table->buckets);
  std::free(table);
}

Table* kelo::symtab::keep(sym_fd sd) {
  Table* const table = table_with_buckets(sd);
  if (table != nullptr) table->kept = true;
  return table;
}

sym_t* kelo::symtab::look_up(const Table& table, const char* name) {
  if (table.buckets == nullptr || !can_be_found(name)) return nullptr;
  return *find_link(&table.buckets[bucket_of(table, name)], name);
}

sym_t* kelo::symtab::enter(const Table& table, const char* name, const value_t& value, int arg) {
  if (table.buckets == nullptr || name == nullptr) return nullptr;
  sym_t** const link = find_link(&table.buckets[bucket_of(table, name)], name);
  if (*link != nullptr) {
    replace_content(**link, value, arg);
  } else {
    *link = make_symbol(name, value, arg);
  }
  return *link;
}

sym_t* symLookup(sym_fd sd, const char* name) {
  const Table* const table = table_of(sd);
  return table == nullptr ? nullptr : kelo::symtab::look_up(*table, name);
}

sym_t* symEnter(sym_fd sd, const char* name, value_t value, int arg) {
  const Table* const table = table_of(sd);
  return table == nullptr ? nullptr : kelo::symtab::enter(*table, name, value, arg);
}

int symDelete(sym_fd sd, const char* name) {
  const Table* const table = table_with_buckets(sd);
  if (table == nullptr || !can_be_found(name)) return -1;
  const int bucket = bucket_of(*table, name);
  sym_t** const link = find_link(&table->buckets[bucket], name);
  sym_t* const symbol = *link;
  if (symbol == nullptr) return -1;
  if (cursor.next == symbol) cursor = cursor_after(*table, bucket, *symbol);
  *link = symbol->next;
  free_symbol(symbol);
  return 0;
}

sym_t* symFirst(sym_fd sd) {
  const Table* const table = table_with_buckets(sd);
  return table == nullptr ? nullptr : visit_first_from(*table, 0);
}

sym_t* symNext(sym_fd sd) {
  const Table* const table = table_with_buckets(sd);
  if (table == nullptr || cursor.bucket >= table->bucket_count) return nullptr;
  if (cursor.next != nullptr) return visit(*table, cursor.bucket, cursor.next);
  return visit_first_from(*table, cursor.bucket + 1);
}
