// SPDX-License-Identifier: MIT
// Ends a program, and everything it started, just before a chosen change to its files, to make what a power cut
// at that moment would leave.
#ifndef KELO_TOOLS_POWER_CUT_HPP
#define KELO_TOOLS_POWER_CUT_HPP

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelo::power_cut {

// A system call about to change a file, or to make a change durable.
struct StorageCall {
  std::string name;  // "pwrite64", "fsync", "unlink", ...
  std::string file;  // the file it works on
};

struct Run {
  std::vector<StorageCall> calls;  // every storage call up to the end, the one not made included
  bool cut = false;                // whether the run was cut off
  std::optional<int> exit_status;  // of a run that ended by itself, when it exited
};

// Decides, for each storage call before it is made, whether the power fails now. `index` counts from 0.
using CutHere = std::function<bool(std::size_t index, const StorageCall& call)>;

// Whether this machine lets a program trace others. An emulator of another processor does not.
bool can_trace();

// Runs `body` in a child process and traces it and its descendants. Only calls on files below `folder` count.
Run run(const std::string& folder, const std::function<void()>& body, const CutHere& cut_here);

// Never: the whole run is recorded.
inline bool no_cut(std::size_t /*index*/, const StorageCall& /*call*/) { return false; }

}  // namespace kelo::power_cut

#endif  // KELO_TOOLS_POWER_CUT_HPP
