// A point in monotonic time until which something is waited for.
#ifndef KELO_BASE_DEADLINE_HPP
#define KELO_BASE_DEADLINE_HPP

#include <time.h>

namespace kelo::base {

class Deadline {
 public:
  // Over already.
  constexpr Deadline() = default;
  explicit Deadline(unsigned milliseconds);

  // Sleeps for `microseconds`, however many signals arrive meanwhile. False, without a sleep, when the time is
  // over.
  [[nodiscard]] bool pause(unsigned microseconds) const;

  // How long it is until then, rounded up; 0 when the time is over.
  [[nodiscard]] int milliseconds_left() const;

 private:
  timespec end_{};
};

}  // namespace kelo::base

#endif  // KELO_BASE_DEADLINE_HPP
