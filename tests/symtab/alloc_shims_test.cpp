// SPDX-License-Identifier: MIT
// The allocation functions that the symbol table exports.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kelo_utils/symtab.h"
#include "tests/support/failing_heap.hpp"

namespace {

using kelo::tests::FailingHeap;

struct Free {
  void operator()(void* block) const { std::free(block); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

TEST(AllocShims, TheThreePoolCallsReturnTheirArgument) {
  for (const int argument : {0, 1, -1, 4096, INT_MAX, INT_MIN}) {
    EXPECT_EQ(argument, bopen(argument));
    EXPECT_EQ(argument, bclose(argument));
    EXPECT_EQ(argument, bstats(argument));
  }
}

class StringCopy : public testing::TestWithParam<char* (*)(const char*)> {};

TEST_P(StringCopy, IsANewBlockWithTheSameText) {
  char text[] = "1203";
  const Owned<char> copy(GetParam()(text));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(text, copy.get());
  text[0] = 'x';
  EXPECT_STREQ(copy.get(), "1203");
}

TEST_P(StringCopy, OfEmptyTextIsEmpty) {
  const Owned<char> copy(GetParam()(""));
  ASSERT_NE(copy, nullptr);
  EXPECT_STREQ(copy.get(), "");
}

TEST_P(StringCopy, OfNullIsAFreshEmptyText) {
  const Owned<char> first(GetParam()(nullptr));
  const Owned<char> second(GetParam()(nullptr));
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_STREQ(first.get(), "");
}

TEST_P(StringCopy, IsNullWithoutMemory) {
  char* copy = nullptr;
  char* of_null = nullptr;
  {
    const FailingHeap heap(0);
    copy = GetParam()("1203");
    of_null = GetParam()(nullptr);
  }
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(of_null, nullptr);
}

INSTANTIATE_TEST_SUITE_P(AllocShims, StringCopy, testing::Values(bstrdupANoBalloc, bstrdupNoBalloc));

TEST(AllocShims, BlockCopyHoldsEveryByte) {
  const unsigned char source[] = {0, 1, 0, 255, 7};
  const Owned<void> copy(bmemdupNoBalloc(source, sizeof source));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(static_cast<const void*>(source), copy.get());
  EXPECT_EQ(std::memcmp(source, copy.get(), sizeof source), 0);
}

TEST(AllocShims, BlockCopyReadsNoByteBeyondTheCount) {
  // Exactly as large as the count says, so that a sanitizer sees one byte too many.
  const Owned<char> source(static_cast<char*>(std::malloc(3)));
  std::fill_n(source.get(), 3, 'x');
  const Owned<void> copy(bmemdupNoBalloc(source.get(), 3));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(std::memcmp("xxx", copy.get(), 3), 0);
}

TEST(AllocShims, BlockCopyOfNullIsZeroFilled) {
  const Owned<void> block(bmemdupNoBalloc(nullptr, 64));
  ASSERT_NE(block, nullptr);
  const unsigned char zeros[64] = {};
  EXPECT_EQ(std::memcmp(zeros, block.get(), sizeof zeros), 0);
}

TEST(AllocShims, BlockCopyOfNoBytesIsABlock) {
  const Owned<void> block(bmemdupNoBalloc("x", 0));
  EXPECT_NE(block, nullptr);
}

TEST(AllocShims, BlockCopyIsNullWithoutMemory) {
  void* copy = nullptr;
  void* of_null = nullptr;
  {
    const FailingHeap heap(0);
    copy = bmemdupNoBalloc("abc", 3);
    of_null = bmemdupNoBalloc(nullptr, 3);
  }
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(of_null, nullptr);
}

}  // namespace
