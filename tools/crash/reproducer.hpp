// SPDX-License-Identifier: MIT
// A violation that can be shown again: the history, the cut and what was lost, as a short text.
#ifndef KELO_TOOLS_CRASH_REPRODUCER_HPP
#define KELO_TOOLS_CRASH_REPRODUCER_HPP

#include <optional>
#include <string>

#include "tools/crash/states.hpp"
#include "tools/crash/verdict.hpp"

namespace kelo::crash {

struct Reproducer {
  std::string history;
  std::string violation;
  std::string model;
  std::size_t events = 0;  // of the recording, to tell whether it is still the same
  Selection selection;
  std::optional<Selection> in_recovery;  // of a second failure, during the restart after the first
};

std::string text_of(const Reproducer& reproducer);
// Nothing when the text is not one of a reproducer.
std::optional<Reproducer> reproducer_from(const std::string& text);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_REPRODUCER_HPP
