#include "timer/src/expiries.hpp"

#include <array>
#include <atomic>
#include <cstddef>

namespace kelo::timer {
namespace {

// Waiting records form a stack, the latest on top, linked by `next_ptr`.
using Stack = std::atomic<q_link_type*>;

Stack expired{nullptr};
Stack lost{nullptr};

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

static_assert(Stack::is_always_lock_free && Place::is_always_lock_free);

bool start_waiting(q_link_type& link) {
  q_link_type* const mark = mark_of(link);
  return std::atomic_ref(link.prev_ptr).exchange(mark, std::memory_order_acq_rel) != mark;
}

bool put(Stack& stack, q_link_type& link) {
  if (!start_waiting(link)) return false;
  q_link_type* below = stack.load(std::memory_order_relaxed);
  do {
    link.next_ptr = below;
  } while (!stack.compare_exchange_weak(below, &link));
  return below == nullptr;
}

q_link_type* oldest_first(q_link_type* link) {
  q_link_type* oldest = nullptr;
  while (link != nullptr) {
    q_link_type* const older = link->next_ptr;
    link->next_ptr = oldest;
    oldest = link;
    link = older;
  }
  return oldest;
}

q_link_type* take(Stack& stack) { return oldest_first(stack.exchange(nullptr, std::memory_order_acquire)); }

}  // namespace

void prepare_expiries(pid_t process) {
  seal = static_cast<std::uintptr_t>(process);
  expired = nullptr;
  lost = nullptr;
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

// In one order with what is put and with the worker's id, each seen by all: a handler that finds no worker
// yet has put what the worker, once there is one, finds here.
bool nothing_waits() { return expired == nullptr && lost == nullptr && !wrong_magic_waits; }

q_link_type* take_expiries() { return take(expired); }

q_link_type* take_lost() { return take(lost); }

void take_wrong_magics(void (*take)(std::uint32_t magic)) {
  if (!wrong_magic_waits.exchange(false, std::memory_order_acquire)) return;
  for (Place& place : wrong_magics) {
    const std::uint64_t value = place.exchange(0, std::memory_order_relaxed);
    if (value != 0) take(static_cast<std::uint32_t>(value));
  }
}

kelo_timer_info& record_of(q_link_type& link) {
  auto* const bytes = reinterpret_cast<std::byte*>(&link);
  return *reinterpret_cast<kelo_timer_info*>(bytes - offsetof(kelo_timer_info, link));
}

kelo_timer_info& release(q_link_type& link) {
  std::atomic_ref(link.prev_ptr).store(nullptr, std::memory_order_release);
  return record_of(link);
}

}  // namespace kelo::timer
