// UCS-2 text in byte arrays.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

// No array is larger: a size beyond is a negative number of a careless caller.
bool is_size(std::size_t size) { return size <= PTRDIFF_MAX; }

// How much of an output buffer is used: lengths are reported as an int.
std::size_t usable_size(std::size_t size) { return is_size(size) ? std::min<std::size_t>(size, INT_MAX) : 0; }

// Any pointer to a byte does for the start of a unit: units are copied to where they can be read.
const std::uint16_t* units_at(const std::uint8_t* bytes) {
  return reinterpret_cast<const std::uint16_t*>(bytes);
}

}  // namespace

int kelo_util_convert_ucs2_to_utf8(const std::uint8_t* ucs2, std::size_t byte_len, char* out,
                                   std::size_t out_size) {
  auto* const start = reinterpret_cast<std::uint8_t*>(out);
  const std::size_t size = usable_size(out_size);
  std::uint8_t* end = start;

  int result = KELO_UNICODE_SOURCE_ILLEGAL;
  if (ucs2 != nullptr && byte_len != 0 && is_size(byte_len)) {
    result = KELO_UNICODE_TARGET_EXHAUSTED;
    if (out != nullptr && size != 0) {
      const std::uint16_t* source = units_at(ucs2);
      result = kelo_util_ConvertUTF16toUTF8(&source, units_at(ucs2 + byte_len), &end, start + size - 1,
                                            KELO_UNICODE_LENIENT);
    }
  }
  if (result == KELO_UNICODE_TARGET_EXHAUSTED) {
    KELO_LOG(LOG_LVL_DBUG, "String has been truncated. Buffer size of %zu not large enough\n", out_size);
  } else if (result != KELO_UNICODE_COMPLETE) {
    KELO_LOG(LOG_LVL_ERR, "Error in converting ucs2 string to utf8\n");
  }
  if (out == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "utf8str or utf8Start is NULL\n");
    return 0;
  }
  if (size == 0) return 0;

  auto length = static_cast<std::size_t>(end - start);
  if (length > size - 1) {
    KELO_LOG(LOG_LVL_ERR,
             "Bug in kelo_util_ConvertUTF16toUTF8. Buffer overrun detected. Size %zu greater than %zu\n",
             length, size - 1);
    length = size - 1;
  }
  out[length] = '\0';
  return static_cast<int>(length);
}
