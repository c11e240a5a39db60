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
    EXPECT_EQ(VALUE_TYPE_INTEGER, value.type);
    EXPECT_EQ(1, value.valid);
    EXPECT_EQ(0, value.allocated);
    EXPECT_EQ(0u, value.payload.words[1]);
  }
}

TEST(Value, SymbolHoldsThePointer) {
  int target = 0;
  for (void* const pointer : {static_cast<void*>(&target), static_cast<void*>(nullptr)}) {
    const value_t value = valueSymbol(pointer);
    EXPECT_EQ(pointer, value.payload.symbol);
    EXPECT_EQ(VALUE_TYPE_SYMBOL, value.type);
    EXPECT_EQ(1, value.valid);
    EXPECT_EQ(0, value.allocated);
    EXPECT_EQ(0u, value.payload.words[1]);
  }
}

TEST(Value, StringWithoutTheFlagHoldsTheCallersPointer) {
  const char text[] = "text";
  for (const int flags : {0, 2, ~1}) {
    const value_t value = valueString(text, flags);
    EXPECT_EQ(text, value.payload.string);
    EXPECT_EQ(VALUE_TYPE_STRING, value.type);
    EXPECT_EQ(1, value.valid);
    EXPECT_EQ(0, value.allocated);
    EXPECT_EQ(0u, value.payload.words[1]);
  }
  EXPECT_EQ(nullptr, valueString(nullptr, 0).payload.string);
}

TEST(Value, StringWithTheFlagHoldsACopy) {
  for (const int flags : {int{VALUE_FLAG_COPY}, 3, -1}) {
    char text[] = "text";
    value_t value = valueString(text, flags);
    text[0] = 'n';
    EXPECT_STREQ("text", value.payload.string);
    EXPECT_EQ(VALUE_TYPE_STRING, value.type);
    EXPECT_EQ(1, value.valid);
    EXPECT_EQ(1, value.allocated);
    EXPECT_EQ(0u, value.payload.words[1]);
    valueFree(&value);
  }
}

TEST(Value, CopyOfNullIsTheEmptyText) {
  value_t value = valueString(nullptr, VALUE_FLAG_COPY);
  ASSERT_NE(nullptr, value.payload.string);
  EXPECT_STREQ("", value.payload.string);
  EXPECT_EQ(1, value.allocated);
  valueFree(&value);
}

TEST(Value, CopyWithoutMemoryIsAnOwnedNull) {
  value_t value{};
  {
    const FailingHeap heap(0);
    value = valueString("text", VALUE_FLAG_COPY);
  }
  EXPECT_EQ(nullptr, value.payload.string);
  EXPECT_EQ(VALUE_TYPE_STRING, value.type);
  EXPECT_EQ(1, value.valid);
  EXPECT_EQ(1, value.allocated);
  valueFree(&value);
  EXPECT_EQ(0, value.valid);
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
    EXPECT_EQ(VALUE_TYPE_NONE, value.type);
    EXPECT_EQ(0, value.valid);
    EXPECT_EQ(0, value.allocated);
    EXPECT_EQ(before.words[0], value.payload.words[0]);
    EXPECT_EQ(before.words[1], value.payload.words[1]);
    valueFree(&value);
    EXPECT_EQ(VALUE_TYPE_NONE, value.type);
  }
}

TEST(Value, FreeLeavesStringsAloneThatTheTagsDoNotOwn) {
  char text[] = "not from the heap";
  value_t invalid = valueString(text, 0);
  invalid.allocated = 1;
  invalid.valid = 0;
  valueFree(&invalid);
  EXPECT_EQ(0, invalid.allocated);

  value_t other_type = valueSymbol(text);
  other_type.allocated = 1;
  valueFree(&other_type);
  EXPECT_EQ(0, other_type.allocated);
  EXPECT_STREQ("not from the heap", text);
}

TEST(Value, FreeOfNullDoesNothing) { valueFree(nullptr); }

}  // namespace
