// SPDX-License-Identifier: MIT
// The layout of the public records, in C++17 here and in C99 beside it: that it compiles is the test.
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <type_traits>

#include "kelo_utils/kelo_utils.h"
#include "tests/library/layout_c99.h"

namespace {

constexpr bool is(std::size_t value, std::size_t device, std::size_t wide) {
  return value == (sizeof(void*) == 4 ? device : wide);
}

#define PIN_VALUE(value, device, wide) static_assert(is(value, device, wide))
#define PIN_SIZE(type, device, wide) \
  static_assert(std::is_standard_layout_v<type> && is(sizeof(type), device, wide))
#define PIN_FIELD(type, field, device, wide) static_assert(is(offsetof(type, field), device, wide))

#include "abi/layout_pins.h"

// So that a run of the suite there is a run with a char that is never negative.
#ifdef __arm__
static_assert(sizeof(void*) == 4 && !std::is_signed_v<char>);
#endif

TEST(Layout, IsOneInBothLanguages) { EXPECT_EQ(layout_char_has_sign() != 0, CHAR_MIN < 0); }

}  // namespace
