/* SPDX-License-Identifier: MIT */
/**
 * @file subscription.hpp
 * @brief The C++ face: subscriptions to changes of items. store.hpp includes it.
 */
#ifndef KELO_UTILS_KELO_SUBSCRIPTION_HPP
#define KELO_UTILS_KELO_SUBSCRIPTION_HPP

#include <atomic>
#include <cstdint>
#include <utility>

#include "kelo_utils/kelo/closure.hpp"
#include "kelo_utils/kelo/item_values.hpp"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/settings.h"

#ifndef KELO_NO_ADDITIONS

namespace kelo {

/** A change of an item, as the function of a Subscription receives it. */
struct Change {
  std::int32_t id;  /**< id of the item */
  const void* data; /**< the bytes that were stored, valid during the call and not null */
  std::int32_t len; /**< number of bytes; 0 when the item was emptied */
};

/** @cond */
namespace face_detail {

// Where the callable of a subscription is. A subscription that ends within a callback does not wait for calls in other
// threads, of which some have yet to enter hear(). A call therefore carries the number of the place and of its use, and
// no pointer. The word holds the use, whether the subscription lasts, and the number of its users.
struct ChangePlace {
  std::atomic<std::uint32_t> word{0};
  Closure* closure = nullptr;
};

inline constexpr std::uint32_t kPlaces =
    32;  // the library has 16 subscriptions at a time; others may be ending
inline constexpr std::uint32_t kUsersMask = 0xFFF;
inline constexpr std::uint32_t kLasts = 0x1000;
inline constexpr std::uint32_t kOneUse = 0x2000;
inline constexpr std::uint32_t kStateMask = kUsersMask | kLasts;

inline ChangePlace change_places[kPlaces];

inline void leave(ChangePlace& place) {
  Closure* const closure = place.closure;
  if ((place.word.fetch_sub(1, std::memory_order_acq_rel) & kUsersMask) == 1) destroy(closure);
}

inline void hear(std::int32_t id, const void* data, std::int32_t len, void* user) noexcept {
  const auto ticket = reinterpret_cast<std::uintptr_t>(user);
  ChangePlace& place = change_places[ticket % kPlaces];
  const auto use = static_cast<std::uint32_t>(ticket / kPlaces) * kOneUse;
  std::uint32_t word = place.word.load(std::memory_order_acquire);
  do {
    if ((word & ~kUsersMask) != (use | kLasts) || (word & kUsersMask) == kUsersMask) return;
  } while (!place.word.compare_exchange_weak(word, word + 1, std::memory_order_acq_rel));
  const Change change = {id, data, len};
  place.closure->act(place.closure, &change);
  leave(place);
}

// Takes over the closure, which is destroyed when there is no place. The number of the subscription, or the code.
inline std::int32_t subscribe(Closure* closure, ChangePlace*& taken) {
  for (ChangePlace& place : change_places) {
    std::uint32_t word = place.word.load(std::memory_order_relaxed);
    if ((word & kStateMask) != 0) continue;
    const std::uint32_t use = word + kOneUse;
    if (!place.word.compare_exchange_strong(word, use | 1, std::memory_order_acq_rel)) continue;
    place.closure = closure;
    place.word.store(use | kLasts | 1, std::memory_order_release);
    const std::uintptr_t ticket =
        std::uintptr_t{use / kOneUse} * kPlaces + static_cast<std::uintptr_t>(&place - &change_places[0]);
    const std::int32_t number = kelo_dm_subscribe(&hear, reinterpret_cast<void*>(ticket));
    if (number > 0) {
      taken = &place;
    } else {
      place.word.fetch_and(~kLasts, std::memory_order_acq_rel);
      leave(place);
    }
    return number;
  }
  destroy(closure);
  return ItemCode::none;
}

inline void unsubscribe(std::int32_t number, ChangePlace& place) {
  kelo_dm_unsubscribe(number);
  place.word.fetch_and(~kLasts, std::memory_order_acq_rel);
  leave(place);
}

}  // namespace face_detail
/** @endcond */

/**
 * A subscription to changes of items. It ends when the object is destroyed.
 *
 * The function runs in the thread that writes, after the storage has accepted the value. It may use the store,
 * subscribe, and end any subscription, its own included. It must not throw.
 *
 * @par Blocking
 * The end of a subscription blocks while another thread is in its function, unless it is in the function of
 * another subscription or its own: then it does not wait, and the function is destroyed after its last call.
 * The thread that ends it must not hold a lock for which the function may wait.
 * @par Threads
 * Any thread may subscribe and end a subscription, but one thread at a time uses an object. It is not for
 * signal handlers.
 */
class [[nodiscard]] Subscription {
 public:
  /** A subscription to nothing. */
  Subscription() noexcept = default;
  /**
   * Takes a subscription over.
   * @param other  it is a subscription to nothing after this.
   */
  Subscription(Subscription&& other) noexcept
      : place_(other.place_), number_(std::exchange(other.number_, 0)) {}
  /**
   * Ends this subscription and takes another one over.
   * @param other  it is a subscription to nothing after this.
   * @return this object.
   */
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      end();
      place_ = other.place_;
      number_ = std::exchange(other.number_, 0);
    }
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() { end(); }

  /**
   * Subscribes to the changes of all items.
   * @tparam Function  type of `function`.
   * @param function   is copied or moved to the heap, and called with a Change.
   * @return the subscription; the code -1 when a process has all its subscriptions
   *         (`KELO_DM_MOST_SUBSCRIPTIONS`) or memory runs out.
   */
  template <class Function>
  static Result<Subscription> to_all(Function&& function) {
    face_detail::Closure* const closure = face_detail::make_closure<Change>(std::forward<Function>(function));
    if (closure == nullptr) return Result<Subscription>::failed(ItemCode::none);
    return started(closure);
  }

  /** Ends the subscription. Nothing is done when it has ended already. */
  void end() noexcept {
    if (number_ != 0) face_detail::unsubscribe(std::exchange(number_, 0), *place_);
  }

  /** @return whether the subscription lasts. */
  explicit operator bool() const noexcept { return number_ != 0; }

 private:
  static Result<Subscription> started(face_detail::Closure* closure) {
    Subscription subscription;
    const std::int32_t number = face_detail::subscribe(closure, subscription.place_);
    if (number < 1) return Result<Subscription>::failed(number);
    subscription.number_ = number;
    return Result<Subscription>(std::move(subscription));
  }

  face_detail::ChangePlace* place_ = nullptr;
  std::int32_t number_ = 0;
};

}  // namespace kelo

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_KELO_SUBSCRIPTION_HPP */
