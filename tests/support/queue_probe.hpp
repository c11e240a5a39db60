// Looks at a queue from outside: its circle, and who holds its lock.
#ifndef KELO_TESTS_QUEUE_PROBE_HPP
#define KELO_TESTS_QUEUE_PROBE_HPP

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <thread>
#include <vector>

#include "kelo_utils/queue.h"

namespace kelo::tests {

using Links = std::vector<q_link_type*>;

inline constexpr const char* kQueueAssertion = "...in file queue/queue.cAssertion failed...";

// The links from the head on, or from the tail on, up to the header, a null or `limit` links.
inline Links links_forward(const q_type& q, std::size_t limit = 1000) {
  Links links;
  for (q_link_type* link = q.link.next_ptr; link != &q.link && link != nullptr && links.size() < limit;
       link = link->next_ptr)
    links.push_back(link);
  return links;
}

inline Links links_backward(const q_type& q, std::size_t limit = 1000) {
  Links links;
  for (q_link_type* link = q.link.prev_ptr; link != &q.link && link != nullptr && links.size() < limit;
       link = link->prev_ptr)
    links.push_back(link);
  return links;
}

// The queue holds exactly these links, in both directions, and counts them right.
inline void expect_sound(const q_type& q, Links links) {
  EXPECT_EQ(static_cast<int>(links.size()), q_cnt(&q));
  EXPECT_EQ(links, links_forward(q, links.size() + 1));
  std::reverse(links.begin(), links.end());
  EXPECT_EQ(links, links_backward(q, links.size() + 1));
}

// Makes `q` a queue of these links, which were in none.
inline void init_with(q_type& q, const Links& links) {
  q_init(&q);
  for (q_link_type* link : links) q_put(&q, q_link(nullptr, link));
}

// A queue of three links, and two links outside it.
class QueueOfThree : public testing::Test {
 protected:
  QueueOfThree() {
    init_with(q, {&a, &b, &c});
    for (q_link_type* link : {&x, &y}) q_link(nullptr, link);
  }

  q_type q;
  q_link_type a, b, c, x, y;
};

// Whether a thread other than the caller would have to wait for the lock.
inline bool shut_to_others(pthread_mutex_t& lock) {
  int result = 0;
  std::thread([&] {
    result = pthread_mutex_trylock(&lock);
    if (result == 0) pthread_mutex_unlock(&lock);
  }).join();
  return result == EBUSY;
}

// Runs `operation` in a thread of its own while the caller holds `lock`, then `meanwhile` in the calling
// thread as soon as the operation waits for the lock or has ended. Returns whether it had to wait.
template <typename Operation, typename Meanwhile>
bool waits_for_lock(pthread_mutex_t& lock, Operation operation, Meanwhile meanwhile) {
  std::atomic<bool> ended = false;
  pthread_mutex_lock(&lock);
  std::thread other([&] {
    operation();
    ended = true;
  });
  // The C library keeps 2 in the first word of a mutex that somebody waits for.
  const auto* const word = reinterpret_cast<const int*>(&lock);
  while (!ended && __atomic_load_n(word, __ATOMIC_RELAXED) != 2) std::this_thread::yield();
  const bool waited = !ended;
  meanwhile();
  pthread_mutex_unlock(&lock);
  other.join();
  return waited;
}

template <typename Operation>
bool waits_for_lock(pthread_mutex_t& lock, Operation operation) {
  return waits_for_lock(lock, operation, [] {});
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_QUEUE_PROBE_HPP
