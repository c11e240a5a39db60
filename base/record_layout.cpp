// SPDX-License-Identifier: MIT
// Checks the layout of the public records at compile time. It contains no code.
#include <cstddef>
#include <type_traits>

#include "kelo_utils/kelo_utils.h"

namespace {

constexpr bool is(std::size_t value, std::size_t device, std::size_t wide) {
  return value == (sizeof(void*) == 4 ? device : wide);
}

#define PIN_VALUE(value, device, wide) static_assert(is(value, device, wide))
#define PIN_SIZE(type, device, wide) \
  static_assert(std::is_standard_layout_v<type> && is(sizeof(type), device, wide))
#define PIN_FIELD(type, field, device, wide) static_assert(is(offsetof(type, field), device, wide))

#include "abi/layout_pins.h"

}  // namespace
