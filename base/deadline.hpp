// SPDX-License-Identifier: MIT
// A point in monotonic time at which a wait ends.
#ifndef KELO_BASE_DEADLINE_HPP
#define KELO_BASE_DEADLINE_HPP

#include <time.h>

namespace kelo::base {

class Deadline {
 public:
  // A deadline that has already passed.
  constexpr Deadline() = default;
  explicit Deadline(unsigned milliseconds);

  // Sleeps for `microseconds`, even when signals arrive. Returns false without a sleep when the deadline has passed.
  [[nodiscard]] bool pause(unsigned microseconds) const;

  // The time until the deadline, rounded up. It is 0 when the deadline has passed.
  [[nodiscard]] int milliseconds_left() const;

 private:
  timespec end_{};
};

}  // namespace kelo::base

#endif  // KELO_BASE_DEADLINE_HPP
