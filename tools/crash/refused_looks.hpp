// SPDX-License-Identifier: MIT
// Lets SQLite run out of memory in a select that looks for a row.
#ifndef KELO_TOOLS_CRASH_REFUSED_LOOKS_HPP
#define KELO_TOOLS_CRASH_REFUSED_LOOKS_HPP

namespace kelo::crash {

// From here on every search for a row fails, or none does.
void refuse_looks(bool refused);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_REFUSED_LOOKS_HPP
