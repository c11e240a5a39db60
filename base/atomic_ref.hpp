// SPDX-License-Identifier: MIT
// Atomic access to an object that is not declared as atomic, such as a field of a public record.
#ifndef KELO_BASE_ATOMIC_REF_HPP
#define KELO_BASE_ATOMIC_REF_HPP

#include <atomic>

namespace kelo::base {

// The part of std::atomic_ref that is used here. Some standard libraries for C++20 lack that class.
template <typename T>
class AtomicRef {
 public:
  // Other access would be a call of a library that devices lack: some processors cannot exchange less than a word.
  static_assert(alignof(T) >= alignof(int) && std::atomic<T>::is_always_lock_free);

  explicit AtomicRef(T& object) : object_(object) {}

  [[nodiscard]] T load(std::memory_order order) const {
    return __atomic_load_n(&object_, static_cast<int>(order));
  }
  void store(T value, std::memory_order order) const {
    __atomic_store_n(&object_, value, static_cast<int>(order));
  }
  [[nodiscard]] T exchange(T value, std::memory_order order) const {
    return __atomic_exchange_n(&object_, value, static_cast<int>(order));
  }
  [[nodiscard]] bool compare_exchange_strong(T& expected, T value) const {
    return __atomic_compare_exchange_n(&object_, &expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
  }

 private:
  T& object_;
};

}  // namespace kelo::base

#endif  // KELO_BASE_ATOMIC_REF_HPP
