// SPDX-License-Identifier: MIT
// The default hooks of the data manager, which do nothing until a program asks for a back-end.
// They are weak and alone in this file, so that a program can define any of them. This works with the shared library and
// with the archive.
#include <cstdint>

#include "data_manager/back_end.hpp"
#include "kelo_utils/data_manager.h"

namespace {

using kelo::dm::BackEnd;

// Returns the result of `call` for the back-end that the program has asked for, and 0 when there is none.
template <typename Call>
int ask_back_end([[maybe_unused]] Call call) {
#ifdef KELO_ADDITIONS
  if (const BackEnd* const back_end = kelo::dm::chosen_back_end.load(std::memory_order_acquire))
    return call(*back_end);
#endif
  return 0;
}

}  // namespace

__attribute__((weak)) void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) {
  ask_back_end([=](const BackEnd& back_end) {
    back_end.fill_operations(operations);
    return 0;
  });
}

__attribute__((weak)) int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir) {
  return ask_back_end([=](const BackEnd& back_end) {
    back_end.set_store_area(primary_dir, backup_dir);
    return 0;
  });
}

__attribute__((weak)) int dm_pal_check_db_version_match(int* matched) {
  return ask_back_end([=](const BackEnd& back_end) {
    back_end.check_versions(matched);
    return 0;
  });
}

__attribute__((weak)) int dm_pal_check_db_health() {
  return ask_back_end([](const BackEnd& back_end) { return back_end.health(); });
}
