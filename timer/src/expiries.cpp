#include "timer/src/expiries.hpp"

#include <array>
#include <atomic>
#include <cstddef>

namespace kelo::timer {
namespace {

// Expired records form a stack, the latest on top, linked by `next_ptr`.
std::atomic<q_link_type*> latest{nullptr};

// A record waits while its `prev_ptr` holds this mark of its link. Memory of any content holds none, so that
// a record needs no preparation, and neither does a record that waited in the parent of this process.
std::atomic<std::uintptr_t> seal{0};

q_link_type* mark_of(q_link_type& link) {
  const auto address = reinterpret_cast<std::uintptr_t>(&link);
  return reinterpret_cast<q_link_type*>(address ^ seal.load(std::memory_order_relaxed));
}

enum class Slot : int { empty, filling, full };

struct RefusalSlot {
  std::atomic<Slot> state{Slot::empty};
  std::atomic<kelo_timer_info*> record{nullptr};
  Refusal refusal{};
};

std::array<RefusalSlot, 32> refusals;
std::atomic<int> refusals_waiting{0};  // lets every other expiry pass the slots by

static_assert(std::atomic<q_link_type*>::is_always_lock_free && std::atomic<Slot>::is_always_lock_free);

bool start_waiting(q_link_type& link) {
  q_link_type* const mark = mark_of(link);
  return std::atomic_ref(link.prev_ptr).exchange(mark, std::memory_order_acq_rel) != mark;
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

}  // namespace

void prepare_expiries(pid_t process) {
  seal = static_cast<std::uintptr_t>(process);
  latest = nullptr;
  for (RefusalSlot& slot : refusals) {
    slot.record = nullptr;
    slot.state = Slot::empty;
  }
  refusals_waiting = 0;
}

bool put_expiry(kelo_timer_info& record) {
  q_link_type& link = record.link;
  if (!start_waiting(link)) return false;
  q_link_type* below = latest.load(std::memory_order_relaxed);
  do {
    link.next_ptr = below;
  } while (!latest.compare_exchange_weak(below, &link, std::memory_order_release, std::memory_order_relaxed));
  return below == nullptr;
}

bool refusal_waits(const kelo_timer_info* record) {
  if (refusals_waiting.load(std::memory_order_acquire) == 0) return false;
  for (const RefusalSlot& slot : refusals) {
    if (slot.record.load(std::memory_order_relaxed) == record) return true;
  }
  return false;
}

void put_refusal(const Refusal& refusal) {
  for (RefusalSlot& slot : refusals) {
    Slot expected = Slot::empty;
    if (!slot.state.compare_exchange_strong(expected, Slot::filling, std::memory_order_acquire)) continue;
    slot.record.store(refusal.record, std::memory_order_relaxed);
    slot.refusal = refusal;
    refusals_waiting.fetch_add(1, std::memory_order_release);
    slot.state.store(Slot::full, std::memory_order_release);
    return;
  }
}

bool nothing_waits() {
  return latest.load(std::memory_order_relaxed) == nullptr &&
         refusals_waiting.load(std::memory_order_relaxed) == 0;
}

q_link_type* take_expiries() { return oldest_first(latest.exchange(nullptr, std::memory_order_acquire)); }

kelo_timer_info& release_expiry(q_link_type& link) {
  std::atomic_ref(link.prev_ptr).store(nullptr, std::memory_order_release);
  auto* const bytes = reinterpret_cast<std::byte*>(&link);
  return *reinterpret_cast<kelo_timer_info*>(bytes - offsetof(kelo_timer_info, link));
}

void dispose_of_refusals(void (*dispose)(const Refusal& refusal)) {
  for (RefusalSlot& slot : refusals) {
    if (slot.state.load(std::memory_order_acquire) != Slot::full) continue;
    dispose(slot.refusal);
    slot.record.store(nullptr, std::memory_order_relaxed);
    refusals_waiting.fetch_sub(1, std::memory_order_relaxed);
    slot.state.store(Slot::empty, std::memory_order_release);
  }
}

}  // namespace kelo::timer
