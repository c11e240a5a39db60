/* SPDX-License-Identifier: MIT */
/**
 * @file closure.hpp
 * @brief The C++ face: how a callable is kept for a C callback. Programs do not include it themselves.
 */
#ifndef KELO_UTILS_KELO_CLOSURE_HPP
#define KELO_UTILS_KELO_CLOSURE_HPP

#include <new>
#include <type_traits>
#include <utility>

/** @cond */
namespace kelo::face_detail {

// A callable on the heap. One function calls it with an argument, or destroys it when there is none: this takes less
// code than a virtual call and a virtual destructor.
struct Closure {
  void (*act)(Closure* self, const void* argument);
};

template <class Argument, class Callable>
struct ClosureOf final : Closure {
  explicit ClosureOf(Callable kept) : Closure{&ClosureOf::call_or_destroy}, callable(std::move(kept)) {}

  static void call_or_destroy(Closure* self, const void* argument) {
    auto* const own = static_cast<ClosureOf*>(self);
    if (argument == nullptr) {
      delete own;
    } else {
      own->callable(*static_cast<const Argument*>(argument));
    }
  }

  Callable callable;
};

// Returns null when memory runs out.
template <class Argument, class Callable>
Closure* make_closure(Callable&& callable) {
  using Kept = ClosureOf<Argument, std::decay_t<Callable>>;
  return new (std::nothrow) Kept(std::forward<Callable>(callable));
}

inline void destroy(Closure* closure) {
  if (closure != nullptr) closure->act(closure, nullptr);
}

}  // namespace kelo::face_detail
/** @endcond */

#endif /* KELO_UTILS_KELO_CLOSURE_HPP */
