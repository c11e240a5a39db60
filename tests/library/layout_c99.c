/* SPDX-License-Identifier: MIT */
// The layout of the public records as a C daemon sees it.
#include "tests/library/layout_c99.h"

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/kelo_utils.h"

// C99 has no assertion of its own: an array of -1 elements does not compile.
#define PIN_AT_(value, pinned, place) extern char layout_pin_##place[(value) == (pinned) ? 1 : -1]
#define PIN_AT(value, pinned, place) PIN_AT_(value, pinned, place)
#if UINTPTR_MAX == UINT32_MAX
#define PIN_VALUE(value, device, wide) PIN_AT(value, device, __LINE__)
#else
#define PIN_VALUE(value, device, wide) PIN_AT(value, wide, __LINE__)
#endif
#define PIN_SIZE(type, device, wide) PIN_VALUE(sizeof(type), device, wide)
#define PIN_FIELD(type, field, device, wide) PIN_VALUE(offsetof(type, field), device, wide)

#include "abi/layout_pins.h"

int layout_char_has_sign(void) { return CHAR_MIN < 0; }
