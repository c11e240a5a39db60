// SPDX-License-Identifier: MIT
// Takes a fuzzer's bytes apart into arguments.
#ifndef KELO_FUZZ_INPUT_HPP
#define KELO_FUZZ_INPUT_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

namespace kelo::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

  // The next byte; 0 at the end.
  std::uint8_t byte() {
    if (left_.empty()) return 0;
    const std::uint8_t first = left_.front();
    left_ = left_.subspan(1);
    return first;
  }

  // A number from 0 to `most`, at most 65535.
  std::size_t number(std::size_t most) {
    const std::size_t high = byte();
    return (high * 256 + byte()) % (most + 1);
  }

  // The next `count` bytes, or what is left, in a block of exactly that size: a read after its end is found.
  std::vector<std::uint8_t> bytes(std::size_t count) {
    const auto taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

  std::vector<std::uint8_t> rest() { return bytes(left_.size()); }

  // What is left as text: it ends at its first NUL.
  std::string text() {
    const std::vector<std::uint8_t> all = rest();
    return {all.begin(), std::find(all.begin(), all.end(), 0)};
  }

 private:
  std::span<const std::uint8_t> left_;
};

// A property that every input must keep.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace kelo::fuzz

#endif  // KELO_FUZZ_INPUT_HPP
