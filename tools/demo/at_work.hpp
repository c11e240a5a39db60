// SPDX-License-Identifier: MIT
// A daemon at work: what runs beside its settings.
#ifndef KELO_DEMO_AT_WORK_HPP
#define KELO_DEMO_AT_WORK_HPP

namespace kelo::demo {

// A heartbeat timer, a value in memory that it keeps up to date, and supervised commands meanwhile.
void at_work();

}  // namespace kelo::demo

#endif  // KELO_DEMO_AT_WORK_HPP
