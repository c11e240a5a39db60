// SPDX-License-Identifier: MIT
// The queue against the plainest code that does the same: an intrusive circle with a count under a recursive
// mutex, without checks of any kind. Its functions are kept out of line, as calls into a library are.
#include "kelo_utils/queue.h"

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <cstddef>
#include <vector>

namespace {

#define OUT_OF_LINE __attribute__((noinline))

struct PlainLink {
  PlainLink* next;
  PlainLink* previous;
};

struct PlainQueue {
  PlainLink circle = {&circle, &circle};
  int count = 0;
  pthread_mutex_t lock;

  PlainQueue() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&lock, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }

  OUT_OF_LINE void put(PlainLink* link) {
    pthread_mutex_lock(&lock);
    link->next = &circle;
    link->previous = circle.previous;
    circle.previous->next = link;
    circle.previous = link;
    ++count;
    pthread_mutex_unlock(&lock);
  }

  OUT_OF_LINE PlainLink* get() {
    PlainLink* first = nullptr;
    pthread_mutex_lock(&lock);
    if (count > 0) {
      first = circle.next;
      circle.next = first->next;
      first->next->previous = &circle;
      first->next = nullptr;
      --count;
    }
    pthread_mutex_unlock(&lock);
    return first;
  }

  // The lock is taken for each step, as in the library's search.
  OUT_OF_LINE PlainLink* search(int (*compare)(PlainLink*, const void*), const void* param) {
    PlainLink* link = &circle;
    while (true) {
      pthread_mutex_lock(&lock);
      link = link->next;
      const bool ended = link == &circle;
      const bool found = !ended && compare(link, param) != 0;
      pthread_mutex_unlock(&lock);
      if (ended) return nullptr;
      if (found) return link;
    }
  }
};

struct LibraryQueue {
  q_type q;
  LibraryQueue() { q_init(&q); }
  void put(q_link_type* link) { q_put(&q, link); }
  q_link_type* get() { return q_get(&q); }
  q_link_type* search(q_compare_fn compare, const void* param) { return q_linear_search(&q, compare, param); }
};

template <typename Link>
int is_same(Link* link, const void* other) {
  return link == other ? 1 : 0;
}

// One element goes round through a queue that holds `range(0)` others.
template <typename Queue, typename Link>
void put_and_get(benchmark::State& state) {
  static Queue queue;
  std::vector<Link> links(static_cast<std::size_t>(state.range(0)) + 1);
  for (std::size_t i = 1; i < links.size(); ++i) queue.put(&links[i]);
  Link* link = links.data();
  for (auto _ : state) {
    queue.put(link);
    link = queue.get();
    benchmark::DoNotOptimize(link);
  }
  for (std::size_t i = 1; i < links.size(); ++i) queue.get();
}

// The same by several threads on one queue, which each put back what they got.
template <typename Queue, typename Link>
void put_and_get_contended(benchmark::State& state) {
  static Queue queue;
  Link own;
  Link* link = &own;
  for (auto _ : state) {
    queue.put(link);
    while ((link = queue.get()) == nullptr) continue;
  }
}

// The search for the last of `range(0)` elements.
template <typename Queue, typename Link>
void search_last(benchmark::State& state) {
  Queue queue;
  std::vector<Link> links(static_cast<std::size_t>(state.range(0)));
  for (Link& link : links) queue.put(&link);
  for (auto _ : state) benchmark::DoNotOptimize(queue.search(is_same<Link>, &links.back()));
}

BENCHMARK_TEMPLATE(put_and_get, PlainQueue, PlainLink)->Arg(0)->Arg(1000);
BENCHMARK_TEMPLATE(put_and_get, LibraryQueue, q_link_type)->Arg(0)->Arg(1000);
BENCHMARK_TEMPLATE(put_and_get_contended, PlainQueue, PlainLink)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(put_and_get_contended, LibraryQueue, q_link_type)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(search_last, PlainQueue, PlainLink)->Arg(10)->Arg(1000);
BENCHMARK_TEMPLATE(search_last, LibraryQueue, q_link_type)->Arg(10)->Arg(1000);

}  // namespace
