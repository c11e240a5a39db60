// What a storage back-end of this library offers beside the table of operations.
#ifndef KELO_DATA_MANAGER_MANY_DEFAULTS_HPP
#define KELO_DATA_MANAGER_MANY_DEFAULTS_HPP

#include <atomic>
#include <span>

#include "kelo_utils/data_manager.h"

namespace kelo::dm {

// A default that is to be stored together with others.
struct PendingDefault {
  kelo_dm_item_desc* item;
  bool done;  // no single write is due any more
};

struct ManyDefaults {
  // The single write that it takes the place of: a handle with another one in its slot stores one by one.
  decltype(kelo_dm_operations::def_db_const) single;
  // Stores the defaults that it can, at least one being given. The others are stored one by one afterwards.
  void (*store)(std::span<PendingDefault> defaults);
};

// Of the back-end that registered with this process; null without one.
inline std::atomic<const ManyDefaults*> many_defaults{nullptr};

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MANY_DEFAULTS_HPP
