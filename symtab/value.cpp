// SPDX-License-Identifier: MIT
// Value cells: the contents and the names of the entries of symbol tables.
#include <cstddef>
#include <cstdlib>

#include "kelo_utils/symtab.h"

static_assert(sizeof(void*) != 4 || (sizeof(value_t) == 16 && offsetof(value_t, type) == 8 &&
                                     offsetof(value_t, valid) == 12 && offsetof(value_t, allocated) == 13));

value_t valueInteger(int integer) {
  value_t value{};
  value.payload.integer = integer;
  value.type = VALUE_TYPE_INTEGER;
  value.valid = 1;
  return value;
}

value_t valueSymbol(void* pointer) {
  value_t value{};
  value.payload.symbol = pointer;
  value.type = VALUE_TYPE_SYMBOL;
  value.valid = 1;
  return value;
}

value_t valueString(const char* text, int flags) {
  const bool copy = (flags & VALUE_FLAG_COPY) != 0;
  value_t value{};
  value.payload.string = copy ? bstrdupNoBalloc(text) : text;
  value.type = VALUE_TYPE_STRING;
  value.valid = 1;
  value.allocated = copy ? 1 : 0;
  return value;
}

void valueFree(value_t* value) {
  if (value == nullptr) return;
  if (value->valid != 0 && value->allocated != 0 && value->type == VALUE_TYPE_STRING) {
    std::free(const_cast<char*>(value->payload.string));
  }
  value->type = VALUE_TYPE_NONE;
  value->valid = 0;
  value->allocated = 0;
}
