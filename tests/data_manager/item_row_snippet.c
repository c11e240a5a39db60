/* SPDX-License-Identifier: MIT */
/* One row of a table of default items, chosen by -DROW=NAME, for item_row_check.cmake. C99 and C++17. */
#include "kelo_utils/data_manager.h"

enum { FIELD = sizeof(intptr_t) };

static const unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};

#define ONE_BYTE KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR1, -2, 1)
#define WHOLE_FIELD KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR4, 5000, sizeof(intptr_t))
#define NO_BYTES KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR1, 0, 0)
#define LONG_TEXT KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_STRING, KELO_DM_TEXT("a long text"), 11)
#define LONG_TEXT_ITEM KELO_DM_TEXT_ITEM(1, "TAB", "KEY", "a long text")
#define LONG_BYTES_ITEM KELO_DM_BYTES_ITEM(1, "TAB", "KEY", bytes)
#define TABLE_END KELO_DM_END

#define LONGER_SCALAR1 KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR1, 5000, FIELD + 1)
#define LONGER_SCALAR2 KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR2, 5000, FIELD + 1)
#define LONGER_SCALAR3 KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, 5000, FIELD + 1)
#define LONGER_SCALAR4 KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR4, 5000, FIELD + 1)
#define LONGER_BY_NUMBER KELO_DM_ITEM(1, "TAB", "KEY", 4, 5000, 4 * sizeof(intptr_t))
#define EIGHT_BYTES KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR4, 5000, 8)

extern const void* const kept_bytes;
const void* const kept_bytes = bytes;

#ifdef ROW
extern kelo_dm_item table[];
kelo_dm_item table[] = {ROW, KELO_DM_END};
#endif

/* What a machine of the byte order that the check sets finds in the field. */
#if defined(CHECK_BYTE_ORDER) && defined(__cplusplus)
constexpr intptr_t field_of(const kelo_dm_item& item) { return item.desc.def_value; }
constexpr int32_t length_of(const kelo_dm_item& item) { return item.desc.len; }
#define FIELD_OF(value, len) field_of(KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, value, len))
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define AT_FRONT(value, len) static_cast<intptr_t>(static_cast<uintptr_t>(value) << (8 * (FIELD - (len))))
#else
#define AT_FRONT(value, len) static_cast<intptr_t>(value)
#endif
static_assert(FIELD_OF(0x7F, 1) == AT_FRONT(0x7F, 1), "");
static_assert(FIELD_OF(1500, 2) == AT_FRONT(1500, 2), "");
static_assert(FIELD_OF(-6, 4) == AT_FRONT(-6, 4), "");
static_assert(FIELD_OF(5000, 4) == AT_FRONT(5000, 4), "");
static_assert(FIELD_OF(5000, FIELD) == 5000, "");
static_assert(FIELD_OF(5000, 0) == 5000, "");
static_assert(field_of(KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_BUFFER, 5000, 2)) == 5000, "");
static_assert(length_of(KELO_DM_ITEM(1, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, 5000, 4)) == 4, "");
#endif
