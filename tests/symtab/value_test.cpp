// SPDX-License-Identifier: MIT
// Typed values of symbols.
#include <gtest/gtest.h>

#include <climits>

#include "kelo_utils/symtab.h"
#include "tests/support/failing_heap.hpp"

namespace {

using kelo::tests::FailingHeap;

TEST(Value, TypeCodesAreTheStoredOnes) {
  EXPECT_EQ(0, VALUE_TYPE_NONE);
  EXPECT_EQ(3, VALUE_TYPE_INTEGER);
  EXPECT_EQ(10, VALUE_TYPE_STRING);
  EXPECT_EQ(12, VALUE_TYPE_SYMBOL);
}

TEST(Value, IntegerHoldsEveryInt) {
  for (const int integer : {0, 1, -1, INT_MAX, INT_MIN}) {
    const value_t value = valueInteger(integer);
    EXPECT_EQ(integer, value.payload.integer);
    EXPECT_EQ(value.type, VALUE_TYPE_INTEGER);
    EXPECT_EQ(value.valid, 1);
    EXPECT_EQ(value.allocated, 0);
    EXPECT_EQ(value.payload.words[1], 0u);
  }
}

TEST(Value, SymbolHoldsThePointer) {
  int target = 0;
  for (void* const pointer : {static_cast<void*>(&target), static_cast<void*>(nullptr)}) {
    const value_t value = valueSymbol(pointer);
    EXPECT_EQ(pointer, value.payload.symbol);
    EXPECT_EQ(value.type, VALUE_TYPE_SYMBOL);
    EXPECT_EQ(value.valid, 1);
    EXPECT_EQ(value.allocated, 0);
    EXPECT_EQ(value.payload.words[1], 0u);
  }
}

TEST(Value, StringWithoutTheFlagHoldsTheCallersPointer) {
  const char text[] = "text";
  for (const int flags : {0, 2, ~1}) {
    const value_t value = valueString(text, flags);
    EXPECT_EQ(text, value.payload.string);
    EXPECT_EQ(value.type, VALUE_TYPE_STRING);
    EXPECT_EQ(value.valid, 1);
    EXPECT_EQ(value.allocated, 0);
    EXPECT_EQ(value.payload.words[1], 0u);
  }
  EXPECT_EQ(valueString(nullptr, 0).payload.string, nullptr);
}

TEST(Value, StringWithTheFlagHoldsACopy) {
  for (const int flags : {int{VALUE_FLAG_COPY}, 3, -1}) {
    char text[] = "text";
    value_t value = valueString(text, flags);
    text[0] = 'n';
    EXPECT_STREQ(value.payload.string, "text");
    EXPECT_EQ(value.type, VALUE_TYPE_STRING);
    EXPECT_EQ(value.valid, 1);
    EXPECT_EQ(value.allocated, 1);
    EXPECT_EQ(value.payload.words[1], 0u);
    valueFree(&value);
  }
}

TEST(Value, CopyOfNullIsTheEmptyText) {
  value_t value = valueString(nullptr, VALUE_FLAG_COPY);
  ASSERT_NE(value.payload.string, nullptr);
  EXPECT_STREQ(value.payload.string, "");
  EXPECT_EQ(value.allocated, 1);
  valueFree(&value);
}

TEST(Value, CopyWithoutMemoryIsAnOwnedNull) {
  value_t value{};
  {
    const FailingHeap heap(0);
    value = valueString("text", VALUE_FLAG_COPY);
  }
  EXPECT_EQ(value.payload.string, nullptr);
  EXPECT_EQ(value.type, VALUE_TYPE_STRING);
  EXPECT_EQ(value.valid, 1);
  EXPECT_EQ(value.allocated, 1);
  valueFree(&value);
  EXPECT_EQ(value.valid, 0);
}

// That the owned string is freed shows as a leak, a string freed too often as a double free, under the
// address sanitizer.
TEST(Value, FreeClearsTheTagsAndKeepsThePayload) {
  int target = 0;
  const char text[] = "text";
  const value_t values[] = {valueInteger(7), valueSymbol(&target), valueString(text, 0),
                            valueString(text, VALUE_FLAG_COPY)};
  for (value_t value : values) {
    const value_payload_t before = value.payload;
    valueFree(&value);
    EXPECT_EQ(value.type, VALUE_TYPE_NONE);
    EXPECT_EQ(value.valid, 0);
    EXPECT_EQ(value.allocated, 0);
    EXPECT_EQ(before.words[0], value.payload.words[0]);
    EXPECT_EQ(before.words[1], value.payload.words[1]);
    valueFree(&value);
    EXPECT_EQ(value.type, VALUE_TYPE_NONE);
  }
}

TEST(Value, FreeLeavesStringsAloneThatTheTagsDoNotOwn) {
  char text[] = "not from the heap";
  value_t invalid = valueString(text, 0);
  invalid.allocated = 1;
  invalid.valid = 0;
  valueFree(&invalid);
  EXPECT_EQ(invalid.allocated, 0);

  value_t other_type = valueSymbol(text);
  other_type.allocated = 1;
  valueFree(&other_type);
  EXPECT_EQ(other_type.allocated, 0);
  EXPECT_STREQ(text, "not from the heap");
}

TEST(Value, FreeOfNullDoesNothing) { valueFree(nullptr); }

}  // namespace
