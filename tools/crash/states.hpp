// SPDX-License-Identifier: MIT
// Builds what a disk may hold after the power failed: which of its unsynced changes were lost.
#ifndef KELO_TOOLS_CRASH_STATES_HPP
#define KELO_TOOLS_CRASH_STATES_HPP

#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tools/crash/disk.hpp"

namespace kelo::crash {

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
constexpr unsigned kWholeBlock = 0xFF;

// How much of a block's unsynced changes is kept, counted from the first. Of the last of them only the sectors in
// `sectors` were written.
struct BlockKept {
  std::size_t versions = kAll;
  unsigned sectors = kWholeBlock;
  bool operator==(const BlockKept&) const = default;
};

// How much of a file's unsynced changes is kept, each counted from the first.
struct FileKept {
  std::size_t changes = kAll;  // of any kind
  std::size_t cuts = kAll;     // changes to a smaller size; what follows a lost one is lost, too
  std::size_t sizes = kAll;    // changes to a greater size
  std::map<std::size_t, BlockKept> blocks;
  bool operator==(const FileKept&) const = default;
};

// What a power failure left: the changes before event `cut`, without the lost ones.
struct Selection {
  std::size_t cut = 0;
  std::set<std::size_t> lost_names;  // events whose changes of directory entries are lost
  std::map<InodeNumber, FileKept> files;
  bool operator==(const Selection&) const = default;
};

// The three ways a disk may fail, each worse than the one before.
enum class Model { cut, unsynced_lost, any_subset };
constexpr std::size_t kModels = 3;

Image build(const Disk& disk, const Selection& selection);

struct Effort {
  std::size_t all_up_to = 256;  // every combination is tried while there are at most so many
  std::size_t samples = 64;     // random combinations where there are more
};

using Visit = std::function<bool(const Selection&)>;  // false ends the walk

// Visits the states that `model` adds at this moment of the disk; the same state may come more than once. False
// when a visit ended the walk.
bool visit_states(const Disk& disk, std::size_t cut, Model model, const Effort& effort,
                  std::mt19937_64& random, const Visit& visit);

// The steps that make a selection lose less, each one thing fewer.
std::vector<Selection> smaller_losses(const Selection& selection);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_STATES_HPP
