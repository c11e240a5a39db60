// SPDX-License-Identifier: MIT
// Finds out who holds the lock of the store.
#ifndef KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP
#define KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP

#include "base/text_builder.hpp"

namespace kelo::ctl {

base::FixedText<96> lock_file();

enum class LockState { no_file, not_readable, free, shared, exclusive };

struct Holder {
  LockState state;
  int pid;  // 0 when the process cannot be seen
  base::FixedText<96> description;
};

// Looks at the lock without taking it or waiting for it.
Holder find_holder();

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_LOCK_HOLDER_HPP
