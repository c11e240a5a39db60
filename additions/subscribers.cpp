// SPDX-License-Identifier: MIT
// Several subscribers to the changes of items, each with a pointer of its own.
#include "data_manager/subscribers.hpp"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "base/atomic_ref.hpp"
#include "data_manager/registry.hpp"
#include "kelo_utils/settings.h"

namespace {

constexpr std::int32_t kNoPlace = -1;
constexpr std::int32_t kNoSuchSubscription = -1;
constexpr useconds_t kPauseMicroseconds = 200;

struct Subscription {
  std::int32_t number;  // rises with every subscription; 0 when there is none here
  int calls;            // that are running. While there are any, the place is not used again
  kelo_dm_change_fn callback;
  void* user;
};

// A running call of a callback in this thread.
struct Call {
  Subscription* subscription;
  Call* outer;  // the call whose callback has made this change
};

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;                   // guards the two below
std::array<Subscription, KELO_DM_MOST_SUBSCRIPTIONS> subscriptions;  // in any order
std::int32_t newest;                                                 // number of the last subscription
thread_local Call* innermost_call = nullptr;
// The process that the mutex and the counts of calls belong to. It is zero before the first use. While a thread of a
// child takes them over from the parent, it is the negative number of the child.
std::atomic<pid_t> owner{0};

// In a child only the calls of the thread that called fork() go on. No other thread holds the mutex there. What it
// guards is usable at any moment: the number of a subscription is stored last.
void take_over() {
  pthread_mutex_init(&mutex, nullptr);
  for (Subscription& subscription : subscriptions) subscription.calls = 0;
  for (const Call* call = innermost_call; call != nullptr; call = call->outer) ++call->subscription->calls;
}

// A fork() does not wait for the lock, and a child finds it free.
class [[nodiscard]] Lock {
 public:
  Lock() {
    adopt(getpid());
    pthread_mutex_lock(&mutex);
  }
  ~Lock() { pthread_mutex_unlock(&mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  static void adopt(pid_t process) {
    pid_t before = owner.load(std::memory_order_acquire);
    if (before == process) return;
    if (before != -process && owner.compare_exchange_strong(before, -process)) {
      if (before != 0) take_over();
      owner.store(process, std::memory_order_release);
    }
    while (owner.load(std::memory_order_acquire) != process) sched_yield();
  }
};

// Returns the subscription with the lowest number from `first` to `last`, or null. The lock must be held.
Subscription* find(std::int32_t first, std::int32_t last) {
  Subscription* found = nullptr;
  for (Subscription& subscription : subscriptions) {
    if (subscription.number >= first && subscription.number <= last) {
      last = subscription.number;
      found = &subscription;
    }
  }
  return found;
}

}  // namespace

// The lock is not held during a callback, which may therefore subscribe, unsubscribe and write items.
void kelo::dm::announce_to_subscribers(std::int32_t id, const void* data, std::int32_t len) {
  std::int32_t next = 1;
  std::int32_t last = INT32_MAX;
  for (;;) {
    Call call = {nullptr, innermost_call};
    Subscription subscription;
    {
      const Lock lock;
      if (next == 1) last = newest;
      call.subscription = find(next, last);
      if (call.subscription == nullptr) return;
      ++call.subscription->calls;
      subscription = *call.subscription;
    }
    next = subscription.number + 1;
    innermost_call = &call;
    subscription.callback(id, data, len, subscription.user);
    innermost_call = call.outer;
    const Lock lock;
    --call.subscription->calls;
  }
}

std::int32_t kelo_dm_subscribe(kelo_dm_change_fn callback, void* user) {
  if (callback == nullptr) return kelo::dm::kBadArgument;
  const Lock lock;
  if (newest == INT32_MAX - 1) return kNoPlace;
  for (Subscription& subscription : subscriptions) {
    if (subscription.number != 0 || subscription.calls != 0) continue;
    subscription.callback = callback;
    subscription.user = user;
    kelo::base::AtomicRef(subscription.number).store(++newest, std::memory_order_release);
    return newest;
  }
  return kNoPlace;
}

std::int32_t kelo_dm_unsubscribe(std::int32_t number) {
  Subscription* subscription = nullptr;
  {
    const Lock lock;
    if (number > 0) subscription = find(number, number);
    if (subscription == nullptr) return kNoSuchSubscription;
    subscription->number = 0;
  }
  // Two callbacks that end each other's subscription must not wait for each other.
  if (innermost_call != nullptr) return 0;
  for (;;) {
    {
      const Lock lock;
      // A place that is used again had no calls in between.
      if (subscription->calls == 0 || subscription->number != 0) return 0;
    }
    usleep(kPauseMicroseconds);
  }
}
