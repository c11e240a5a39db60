// SPDX-License-Identifier: MIT
// The combinations of lost and kept changes that are tried at one moment of a disk.
#include <algorithm>

#include "tools/crash/states.hpp"

namespace kelo::crash {
namespace {

// Something that may be kept in part: 0 is nothing, `most` is all.
struct Axis {
  enum class Of { name, name_tail, file, cuts, sizes, block } of;
  std::size_t most;
  std::vector<std::size_t> events = {};  // of changes to names, in order
  InodeNumber inode = 0;
  std::size_t block = 0;
};

using Amounts = std::vector<std::size_t>;

std::vector<Axis> axes_of_prefixes(const Disk& disk) {
  std::vector<Axis> axes;
  for (const auto& [inode, changes] : disk.file_changes()) {
    axes.push_back({.of = Axis::Of::file, .most = changes.size(), .inode = inode});
  }
  std::map<std::string, std::vector<std::size_t>> directories;
  for (const NameChange& change : disk.name_changes()) directories[change.directory].push_back(change.event);
  for (const auto& [directory, events] : directories) {
    axes.push_back({.of = Axis::Of::name_tail, .most = events.size(), .events = events});
  }
  return axes;
}

void add_axes_of_file(const Disk& disk, InodeNumber inode, const std::vector<FileChange>& changes,
                      std::vector<Axis>& axes) {
  std::size_t cuts = 0;
  std::size_t sizes = 0;
  std::map<std::size_t, std::size_t> versions;
  std::size_t size = disk.durable().files.at(inode).content.size();
  for (const FileChange& change : changes) {
    if (change.shrinks) {
      ++cuts;
    } else if (change.size != size) {
      ++sizes;
    }
    size = change.size;
    for (const auto& [block, after] : change.blocks) ++versions[block];
  }
  if (cuts > 0) axes.push_back({.of = Axis::Of::cuts, .most = cuts, .inode = inode});
  if (sizes > 0) axes.push_back({.of = Axis::Of::sizes, .most = sizes, .inode = inode});
  for (const auto& [block, count] : versions) {
    axes.push_back({.of = Axis::Of::block, .most = count, .inode = inode, .block = block});
  }
}

std::vector<Axis> axes_of_everything(const Disk& disk) {
  std::vector<Axis> axes;
  for (const NameChange& change : disk.name_changes()) {
    axes.push_back({.of = Axis::Of::name, .most = 1, .events = {change.event}});
  }
  for (const auto& [inode, changes] : disk.file_changes()) add_axes_of_file(disk, inode, changes, axes);
  return axes;
}

void lose(const Axis& axis, std::size_t kept, Selection& selection) {
  if (kept == axis.most) return;
  switch (axis.of) {
    case Axis::Of::name:
    case Axis::Of::name_tail:
      for (std::size_t at = kept; at < axis.events.size(); ++at) selection.lost_names.insert(axis.events[at]);
      return;
    case Axis::Of::file:
      selection.files[axis.inode].changes = kept;
      return;
    case Axis::Of::cuts:
      selection.files[axis.inode].cuts = kept;
      return;
    case Axis::Of::sizes:
      selection.files[axis.inode].sizes = kept;
      return;
    case Axis::Of::block:
      selection.files[axis.inode].blocks[axis.block].versions = kept;
      return;
  }
}

class Walk {
 public:
  Walk(std::vector<Axis> axes, std::size_t cut, std::mt19937_64& random, const Visit& visit)
      : axes_(std::move(axes)), cut_(cut), random_(random), visit_(visit) {}

  std::size_t combinations(std::size_t limit) const {
    std::size_t count = 1;
    for (const Axis& axis : axes_) {
      count *= axis.most + 1;
      if (count > limit) return limit + 1;
    }
    return count;
  }

  bool every() {
    Amounts amounts(axes_.size(), 0);
    for (;;) {
      if (!visit_(selection(amounts))) return false;
      std::size_t at = 0;
      while (at < amounts.size() && amounts[at] == axes_[at].most) amounts[at++] = 0;
      if (at == amounts.size()) return true;
      ++amounts[at];
    }
  }

  // Everything lost, one thing lost in each degree, and one thing kept alone.
  bool extremes() {
    const Amounts nothing(axes_.size(), 0);
    Amounts all;
    for (const Axis& axis : axes_) all.push_back(axis.most);
    if (!visit_(selection(nothing))) return false;
    for (std::size_t at = 0; at < axes_.size(); ++at) {
      Amounts alone = nothing;
      alone[at] = axes_[at].most;
      if (!visit_(selection(alone))) return false;
      Amounts without = all;
      for (without[at] = 0; without[at] < axes_[at].most; ++without[at]) {
        if (!visit_(selection(without))) return false;
      }
    }
    return true;
  }

  bool random_ones(std::size_t count, bool tear) {
    for (std::size_t turn = 0; turn < count; ++turn) {
      // How much is kept differs from turn to turn: few losses among much that is kept, and the other way round.
      const std::size_t kept_of_8 = 1 + below(7);
      Amounts amounts;
      for (const Axis& axis : axes_)
        amounts.push_back(below(8) < kept_of_8 ? axis.most : below(axis.most + 1));
      Selection chosen = selection(amounts);
      if (tear) tear_blocks(amounts, chosen);
      if (!visit_(chosen)) return false;
    }
    return true;
  }

 private:
  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

  Selection selection(const Amounts& amounts) const {
    Selection made = {cut_, {}, {}};
    for (std::size_t at = 0; at < axes_.size(); ++at) lose(axes_[at], amounts[at], made);
    return made;
  }

  // Half of the torn blocks were written from the start up to some sector, the others in any sectors.
  void tear_blocks(const Amounts& amounts, Selection& selection) {
    for (std::size_t at = 0; at < axes_.size(); ++at) {
      if (axes_[at].of != Axis::Of::block || amounts[at] == 0 || below(3) != 0) continue;
      const unsigned sectors = below(2) == 0 ? (1U << (1 + below(kSectorsOfBlock - 1))) - 1
                                             : static_cast<unsigned>(below(kWholeBlock + 1));
      selection.files[axes_[at].inode].blocks[axes_[at].block] = {amounts[at], sectors};
    }
  }

  std::vector<Axis> axes_;
  std::size_t cut_;
  std::mt19937_64& random_;
  const Visit& visit_;
};

}  // namespace

bool visit_states(const Disk& disk, std::size_t cut, Model model, const Effort& effort,
                  std::mt19937_64& random, const Visit& visit) {
  if (model == Model::cut) return visit({cut, {}, {}});
  const bool any = model == Model::any_subset;
  Walk walk(any ? axes_of_everything(disk) : axes_of_prefixes(disk), cut, random, visit);
  if (walk.combinations(effort.all_up_to) > effort.all_up_to) {
    if (!walk.extremes() || !walk.random_ones(effort.samples, false)) return false;
  } else if (!walk.every()) {
    return false;
  }
  return !any || disk.file_changes().empty() || walk.random_ones(effort.samples, true);
}

}  // namespace kelo::crash
