// SPDX-License-Identifier: MIT
// The back-end that the library's own hooks call, once a program has asked for one at run time.
#ifndef KELO_DATA_MANAGER_BACK_END_HPP
#define KELO_DATA_MANAGER_BACK_END_HPP

#include <atomic>

#include "kelo_utils/data_manager.h"

namespace kelo::dm {

struct BackEnd {
  void (*fill_operations)(kelo_dm_operations* operations);
  void (*set_store_area)(const char* primary_dir, const char* backup_dir);
  void (*check_versions)(int* matched);
  int (*health)();
};

// Null until a program asks for a back-end. A link with the archive has only the back-ends that are asked for, so the
// hooks name none.
inline std::atomic<const BackEnd*> chosen_back_end{nullptr};

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_BACK_END_HPP
