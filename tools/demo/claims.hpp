// SPDX-License-Identifier: MIT
// What the demo prints: what happened, and claims that were checked.
#ifndef KELO_DEMO_CLAIMS_HPP
#define KELO_DEMO_CLAIMS_HPP

#include <functional>
#include <string>

#include "kelo_utils/base.h"

namespace kelo::demo {

void chapter(const char* title);

// One line about something that happened.
void tell(const char* format, ...) KELO_PRINTF(1, 2);

// One line that holds only if `holds`; a claim that does not is counted and makes the demo fail.
void claim(bool holds, const char* format, ...) KELO_PRINTF(2, 3);

// Runs one life of the daemon in a process of its own: the library's state starts fresh, as after a boot.
// Claims that failed in it count here.
void life(const std::function<void()>& body);

// How many claims were made and how many of them failed, in all processes so far.
int claims_made();
int claims_failed();

}  // namespace kelo::demo

#endif  // KELO_DEMO_CLAIMS_HPP
