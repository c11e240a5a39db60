// SPDX-License-Identifier: MIT
// Finds out who holds the lock of a store: that of the settings, or that of the parameters.
#ifndef KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP
#define KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP

#include "base/text_builder.hpp"
#include "kelo_utils/sqlite.h"

namespace kelo::ctl {

// The lock file of the store with this database.
base::FixedText<96> lock_file(const char* database = DB_CONFIG);

enum class LockState { no_file, not_readable, free, shared, exclusive };

struct Holder {
  LockState state;
  int pid;  // 0 when the process cannot be seen
  base::FixedText<96> description;
};

// Looks at the lock without taking it or waiting for it.
Holder find_holder(const char* database = DB_CONFIG);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP
