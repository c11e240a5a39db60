#include "timer/src/expiries.hpp"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <utility>

#include "base/lock.hpp"

namespace kelo::timer {

pthread_mutex_t records_mutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<unsigned> withdrawals{0};

namespace {

// Records that wait, linked by `next_ptr`. A handler may interrupt whoever holds the mutex, so that it puts
// them on a stack, the latest on top.
struct Waiting {
  std::atomic<q_link_type*> arrived{nullptr};
  q_link_type* oldest = nullptr;  // those taken off the stack; guarded by records_mutex
};

Waiting expired;
Waiting lost;

// A record waits while its `prev_ptr` holds this mark of its link. Memory of any content holds none, so that
// a record needs no preparation, and neither does a record that waited in the parent of this process.
std::atomic<std::uintptr_t> seal{0};

q_link_type* mark_of(q_link_type& link) {
  const auto address = reinterpret_cast<std::uintptr_t>(&link);
  return reinterpret_cast<q_link_type*>(address ^ seal.load(std::memory_order_relaxed));
}

// A magic, told from an empty place by a bit above it.
using Place = std::atomic<std::uint64_t>;
constexpr std::uint64_t kTaken = std::uint64_t{1} << 32;

std::array<Place, 32> wrong_magics;
std::atomic<bool> wrong_magic_waits{false};

static_assert(std::atomic<q_link_type*>::is_always_lock_free && Place::is_always_lock_free);

bool waits(q_link_type& link) {
  return std::atomic_ref(link.prev_ptr).load(std::memory_order_relaxed) == mark_of(link);
}

bool start_waiting(q_link_type& link) {
  q_link_type* const mark = mark_of(link);
  return std::atomic_ref(link.prev_ptr).exchange(mark, std::memory_order_acq_rel) != mark;
}

// For a record that is on neither list any more. Its link may change from here on.
void stop_waiting(q_link_type& link) {
  std::atomic_ref(link.prev_ptr).store(nullptr, std::memory_order_release);
}

bool put(Waiting& waiting, q_link_type& link) {
  if (!start_waiting(link)) return false;
  q_link_type* below = waiting.arrived.load(std::memory_order_relaxed);
  do {
    link.next_ptr = below;
  } while (!waiting.arrived.compare_exchange_weak(below, &link));
  return below == nullptr;
}

// The records of the stack, the oldest first. In one order with what is put and with the worker's id, each
// seen by all: a handler that finds no worker yet has put what the worker, once there is one, finds here.
q_link_type* take_arrived(Waiting& waiting) {
  if (waiting.arrived == nullptr) return nullptr;
  q_link_type* oldest = nullptr;
  q_link_type* link = waiting.arrived.exchange(nullptr);
  while (link != nullptr) {
    q_link_type* const older = std::exchange(link->next_ptr, oldest);
    oldest = std::exchange(link, older);
  }
  return oldest;
}

kelo_timer_info* next(Waiting& waiting) {
  if (waiting.oldest == nullptr) waiting.oldest = take_arrived(waiting);
  if (waiting.oldest == nullptr) return nullptr;
  q_link_type& link = *std::exchange(waiting.oldest, waiting.oldest->next_ptr);
  stop_waiting(link);
  auto* const bytes = reinterpret_cast<std::byte*>(&link);
  return reinterpret_cast<kelo_timer_info*>(bytes - offsetof(kelo_timer_info, link));
}

void remove(Waiting& waiting, q_link_type& link) {
  q_link_type** place = &waiting.oldest;
  while (*place != nullptr && *place != &link) place = &(*place)->next_ptr;
  if (*place == nullptr) *place = take_arrived(waiting);
  while (*place != nullptr && *place != &link) place = &(*place)->next_ptr;
  if (*place != nullptr) *place = link.next_ptr;
}

}  // namespace

void prepare_expiries(pid_t process) {
  pthread_mutex_init(&records_mutex, nullptr);
  seal = static_cast<std::uintptr_t>(process);
  for (Waiting* const waiting : {&expired, &lost}) {
    waiting->arrived = nullptr;
    waiting->oldest = nullptr;
  }
  for (Place& place : wrong_magics) place = 0;
  wrong_magic_waits = false;
}

bool put_expiry(kelo_timer_info& record) { return put(expired, record.link); }

bool put_lost(kelo_timer_info& record) { return put(lost, record.link); }

void put_wrong_magic(std::uint32_t magic) {
  for (Place& place : wrong_magics) {
    std::uint64_t empty = 0;
    if (!place.compare_exchange_strong(empty, kTaken | magic, std::memory_order_relaxed)) continue;
    wrong_magic_waits = true;
    return;
  }
}

bool any_waits() {
  const base::LockGuard lock(records_mutex);
  return expired.oldest != nullptr || expired.arrived != nullptr;
}

bool take_callback(kelo_timer_callback& callback) {
  const base::LockGuard lock(records_mutex);
  const kelo_timer_info* const record = next(expired);
  if (record != nullptr) callback = record->cb;
  return record != nullptr;
}

kelo_timer_info* take_lost() {
  const base::LockGuard lock(records_mutex);
  return next(lost);
}

void take_wrong_magics(void (*take)(std::uint32_t magic)) {
  if (!wrong_magic_waits || !wrong_magic_waits.exchange(false)) return;
  for (Place& place : wrong_magics) {
    const std::uint64_t value = place.exchange(0, std::memory_order_relaxed);
    if (value != 0) take(static_cast<std::uint32_t>(value));
  }
}

void withdraw(kelo_timer_info& record) {
  // In a forked child that has not started the service the mutex may be one that nobody gives back.
  if (seal.load(std::memory_order_relaxed) != static_cast<std::uintptr_t>(getpid())) return;
  const base::LockGuard lock(records_mutex);
  ++withdrawals;
  if (!waits(record.link)) return;
  remove(expired, record.link);
  remove(lost, record.link);
  stop_waiting(record.link);
}

}  // namespace kelo::timer
