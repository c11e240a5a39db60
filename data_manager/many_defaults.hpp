// SPDX-License-Identifier: MIT
// The interface by which the SQLite back-end stores many defaults at once. It is not in the table of operations.
#ifndef KELO_DATA_MANAGER_MANY_DEFAULTS_HPP
#define KELO_DATA_MANAGER_MANY_DEFAULTS_HPP

#include <atomic>
#include <span>

#include "kelo_utils/data_manager.h"

namespace kelo::dm {

// One of the defaults that are stored together.
struct PendingDefault {
  kelo_dm_item_desc* item;
  bool done;  // set by the back-end when the default needs no single write
};

struct ManyDefaults {
  // The back-end's write of one default. A handle with another function in this slot does not use the interface.
  decltype(kelo_dm_operations::def_db_const) single;
  // Stores as many of the defaults as possible. The caller gives at least one and then stores the rest one by one.
  void (*store)(std::span<PendingDefault> defaults);
};

// The interface of the back-end that has registered in this process, or null.
inline std::atomic<const ManyDefaults*> many_defaults{nullptr};

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MANY_DEFAULTS_HPP
