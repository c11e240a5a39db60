// SPDX-License-Identifier: MIT
// The queues by which the signal handler passes expired records to the worker.
#include "timer/src/expiries.hpp"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

#include "base/atomic_ref.hpp"
#include "base/lock.hpp"

namespace kelo::timer {

pthread_mutex_t records_mutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<unsigned> withdrawals{0};

namespace {

// A queue of records that are linked by `next_ptr`. The handler may interrupt a thread that holds the mutex, so it
// pushes records on a stack without a lock. The worker moves them to a list with the oldest record first.
struct RecordQueue {
  std::atomic<q_link_type*> arrived{nullptr};  // the stack, the latest record first
  q_link_type* oldest = nullptr;               // the list; guarded by records_mutex
};

RecordQueue expired;
RecordQueue without_handler;

// A record is queued while `prev_ptr` of its link has the value that queued_mark() returns. The value depends on the
// address and on the process, so it does not occur by chance in a new record or in one that was queued in the parent
// process.
std::atomic<std::uintptr_t> queue_process{0};

q_link_type* queued_mark(q_link_type& link) {
  const auto address = reinterpret_cast<std::uintptr_t>(&link);
  return reinterpret_cast<q_link_type*>(address ^ queue_process.load(std::memory_order_relaxed));
}

// A slot is empty when it is 0, and otherwise holds in which bits a magic differs from the right one. It has 32 bits,
// since many processors have no atomic access to 64 bits.
using Slot = std::atomic<std::uint32_t>;

std::array<Slot, 32> wrong_magics;
// A word, since compilers have no instruction that exchanges a byte on every processor.
std::atomic<std::uint32_t> wrong_magic_stored{0};

static_assert(std::atomic<q_link_type*>::is_always_lock_free && Slot::is_always_lock_free);

bool is_queued(q_link_type& link) {
  return base::AtomicRef(link.prev_ptr).load(std::memory_order_relaxed) == queued_mark(link);
}

// Returns false when the record was queued already.
bool mark_queued(q_link_type& link) {
  q_link_type* const mark = queued_mark(link);
  return base::AtomicRef(link.prev_ptr).exchange(mark, std::memory_order_acq_rel) != mark;
}

// The record must have been removed from its queue. After this call the handler may queue it again.
void mark_removed(q_link_type& link) {
  base::AtomicRef(link.prev_ptr).store(nullptr, std::memory_order_release);
}

bool push(RecordQueue& queue, q_link_type& link) {
  if (!mark_queued(link)) return false;
  q_link_type* below = queue.arrived.load(std::memory_order_relaxed);
  do {
    link.next_ptr = below;
  } while (!queue.arrived.compare_exchange_weak(below, &link));
  return below == nullptr;
}

// Empties the stack and returns its records as a list, the oldest first. These accesses, push() and the id of the
// worker are sequentially consistent: if a handler does not find a worker yet, the worker finds the record of that
// handler here.
q_link_type* take_arrived(RecordQueue& queue) {
  if (queue.arrived == nullptr) return nullptr;
  q_link_type* oldest = nullptr;
  q_link_type* link = queue.arrived.exchange(nullptr);
  while (link != nullptr) {
    q_link_type* const older = std::exchange(link->next_ptr, oldest);
    oldest = std::exchange(link, older);
  }
  return oldest;
}

kelo_timer_info* pop(RecordQueue& queue) {
  if (queue.oldest == nullptr) queue.oldest = take_arrived(queue);
  if (queue.oldest == nullptr) return nullptr;
  q_link_type& link = *std::exchange(queue.oldest, queue.oldest->next_ptr);
  mark_removed(link);
  auto* const bytes = reinterpret_cast<std::byte*>(&link);
  return reinterpret_cast<kelo_timer_info*>(bytes - offsetof(kelo_timer_info, link));
}

void remove(RecordQueue& queue, q_link_type& link) {
  q_link_type** next = &queue.oldest;
  while (*next != nullptr && *next != &link) next = &(*next)->next_ptr;
  if (*next == nullptr) *next = take_arrived(queue);
  while (*next != nullptr && *next != &link) next = &(*next)->next_ptr;
  if (*next != nullptr) *next = link.next_ptr;
}

}  // namespace

void prepare_expiries(pid_t process) {
  pthread_mutex_init(&records_mutex, nullptr);
  queue_process = static_cast<std::uintptr_t>(process);
  for (RecordQueue* const queue : {&expired, &without_handler}) {
    queue->arrived = nullptr;
    queue->oldest = nullptr;
  }
  for (Slot& slot : wrong_magics) slot = 0;
  wrong_magic_stored = 0;
}

bool queue_expired(kelo_timer_info& record) { return push(expired, record.link); }

bool queue_without_handler(kelo_timer_info& record) { return push(without_handler, record.link); }

void store_wrong_magic(std::uint32_t magic) {
  for (Slot& slot : wrong_magics) {
    std::uint32_t empty = 0;
    if (!slot.compare_exchange_strong(empty, magic ^ KELO_TIMER_MAGIC, std::memory_order_relaxed)) continue;
    wrong_magic_stored = 1;
    return;
  }
}

bool any_expired() {
  const base::LockGuard lock(records_mutex);
  return expired.oldest != nullptr || expired.arrived != nullptr;
}

bool take_callback(kelo_timer_callback& callback) {
  const base::LockGuard lock(records_mutex);
  const kelo_timer_info* const record = pop(expired);
  if (record != nullptr) callback = record->cb;
  return record != nullptr;
}

kelo_timer_info* take_without_handler() {
  const base::LockGuard lock(records_mutex);
  return pop(without_handler);
}

void take_wrong_magics(void (*take)(std::uint32_t magic)) {
  if (wrong_magic_stored == 0 || wrong_magic_stored.exchange(0) == 0) return;
  for (Slot& slot : wrong_magics) {
    const std::uint32_t difference = slot.exchange(0, std::memory_order_relaxed);
    if (difference != 0) take(difference ^ KELO_TIMER_MAGIC);
  }
}

void withdraw(kelo_timer_info& record) {
  // In a forked child that has not started the service, the mutex may be held forever.
  if (queue_process.load(std::memory_order_relaxed) != static_cast<std::uintptr_t>(getpid())) return;
  const base::LockGuard lock(records_mutex);
  ++withdrawals;
  if (!is_queued(record.link)) return;
  remove(expired, record.link);
  remove(without_handler, record.link);
  mark_removed(record.link);
}

}  // namespace kelo::timer
