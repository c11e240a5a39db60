// SPDX-License-Identifier: MIT
// Items and values as most histories have them.
#ifndef KELO_TOOLS_CRASH_ITEMS_HPP
#define KELO_TOOLS_CRASH_ITEMS_HPP

#include <memory>
#include <string>
#include <vector>

#include "tools/crash/history.hpp"

namespace kelo::crash {

// The places of the usual items.
enum : std::size_t { kWritten, kNeighbour, kProbe };

// Everything in it lives as long as the histories do.
using Items = std::shared_ptr<std::vector<Item>>;

Items shared(std::vector<Item> items);
// Of every version, each longer than the one before.
std::vector<std::string> values_of(const std::string& stem, std::size_t width);
std::vector<Item> usual_items(std::size_t width = 0);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_ITEMS_HPP
