// SPDX-License-Identifier: MIT
// Expiries no callback can be called for: records that lost their handler, and what is no record at all.
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/before_sanitizer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/timer_faults.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

// The block whose release is counted; it is kept for another use when asked for.
void* watched_block = nullptr;
int watched_block_freed = 0;
bool watched_block_is_kept = false;

}  // namespace

extern "C" {

void next_free(void* block) KELO_NEXT_ALLOCATOR("free");

// The C library's own declaration has a reserved parameter name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
KELO_BEFORE_SANITIZER void free(void* block) noexcept {
  if (block != nullptr && block == __atomic_load_n(&watched_block, __ATOMIC_RELAXED)) {
    __atomic_add_fetch(&watched_block_freed, 1, __ATOMIC_RELAXED);
    __atomic_store_n(&watched_block, nullptr, __ATOMIC_RELAXED);
    if (watched_block_is_kept) return;
  }
  next_free(block);
}

}  // extern "C"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::Calls;
using kelo::tests::expire;
using kelo::tests::HeldWorker;
using kelo::tests::LogCapture;
using kelo::tests::milliseconds;
using kelo::tests::NamedTimer;
using kelo::tests::pass_worker;
using kelo::tests::record_of;
using kelo::tests::timer_calls;
using kelo::tests::wait_until;

constexpr char kHandler[] = "timer_sigaction_handler";
constexpr char kLost[] = "timer_sigaction_handler cb handler is NULL!!!!!\n";
constexpr char kThread[] = "oem_oem_timer_thread";
constexpr char kLostLater[] = "oem_oem_timer_thread info->cb.handler is NULL!!!\n";

int freed() { return __atomic_load_n(&watched_block_freed, __ATOMIC_RELAXED); }

class TimerRefusal : public testing::Test {
 protected:
  void SetUp() override {
    kelo_timer_init();
    log.clear();
    deletes_before = timer_calls.deletes;
    __atomic_store_n(&watched_block_freed, 0, __ATOMIC_RELAXED);
  }

  // A record of the heap's, whose release is counted.
  static kelo_timer_info* heap_record(void (*handler)(void*) = nullptr) {
    auto* const record = static_cast<kelo_timer_info*>(std::calloc(1, sizeof(kelo_timer_info)));
    if (record == nullptr) std::abort();
    *record = record_of(handler, record);
    __atomic_store_n(&watched_block, static_cast<void*>(record), __ATOMIC_RELAXED);
    return record;
  }

  [[nodiscard]] int deletes() const { return timer_calls.deletes - deletes_before; }

  LogCapture log;
  Calls calls;
  int deletes_before = 0;
};

// --- Records without a handler ---

TEST_F(TimerRefusal, RecordWithoutAHandlerIsLoggedAndFreed) {
  for (const std::uint32_t magic : {KELO_TIMER_MAGIC, 0U}) {
    SetUp();
    kelo_timer_info* const record = heap_record();
    record->magic = magic;
    expire(record);
    pass_worker();
    EXPECT_EQ(freed(), 1);
    EXPECT_EQ(deletes(), 0) << "it has no timer";
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, kHandler, kLost), 1) << log.dump();
  }
}

TEST_F(TimerRefusal, TimerIsDeletedWithItsRecord) {
  kelo_timer_info* const record = heap_record([](void*) { FAIL(); });
  record->value = milliseconds(3'600'000);
  record->interval = milliseconds(1);
  ASSERT_EQ(kelo_timer_create(record), 0);
  ASSERT_EQ(kelo_timer_start(record), 0);
  const timer_t system_timer = record->timer_id;
  record->cb.handler = nullptr;
  record->value = milliseconds(1);
  ASSERT_EQ(kelo_timer_start(record), 0);
  ASSERT_TRUE(wait_until([] { return freed() == 1; }));
  pass_worker();
  EXPECT_EQ(deletes(), 1);
  itimerspec times{};
  EXPECT_EQ(timer_gettime(system_timer, &times), -1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kHandler, kLost), 1) << log.dump();
}

TEST_F(TimerRefusal, TimerOfARecordWithAnotherMagicIsLeft) {
  NamedTimer timer(calls, 1);
  ASSERT_EQ(kelo_timer_create(&timer.info), 0);
  kelo_timer_info* const record = heap_record();
  record->magic = ~KELO_TIMER_MAGIC;
  record->timer_id = timer.info.timer_id;
  record->state = TIMER_STATE_RUNNING;
  expire(record);
  pass_worker();
  EXPECT_EQ(freed(), 1);
  EXPECT_EQ(deletes(), 0);
}

TEST_F(TimerRefusal, RecordThatExpiresAgainIsFreedOnce) {
  kelo_timer_info* const record = heap_record();
  {
    const HeldWorker worker;
    for (int i = 0; i < 3; ++i) expire(record);
  }
  EXPECT_EQ(freed(), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kHandler, kLost), 1) << log.dump();
}

// Memory of a freed record may become the next one, which must not seem to wait.
TEST_F(TimerRefusal, RecordLeavesItsMemoryWithoutAMark) {
  static Calls called;
  watched_block_is_kept = true;
  kelo_timer_info* const record = heap_record();
  expire(record);
  pass_worker();
  ASSERT_EQ(freed(), 1);
  watched_block_is_kept = false;
  record->cb.handler = [](void*) { called.add(0); };
  expire(record);
  pass_worker();
  EXPECT_EQ(called.count(), 1U);
  std::free(record);
}

TEST_F(TimerRefusal, HandlerLostWhileWaitingIsLoggedAndTheNextIsCalled) {
  NamedTimer first(calls, 1);
  NamedTimer second(calls, 2);
  NamedTimer third(calls, 3);
  for (NamedTimer* timer : {&first, &second, &third}) timer->info.magic = KELO_TIMER_MAGIC;
  const kelo_timer_callback kept = second.info.cb;
  {
    const HeldWorker worker;
    for (NamedTimer* timer : {&first, &second, &third}) expire(&timer->info);
    second.info.cb.handler = nullptr;
  }
  EXPECT_EQ(calls.names(), (std::vector{1, 3}));
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, kThread, kLostLater), 1) << log.dump();
  second.info.cb = kept;
  expire(&second.info);
  EXPECT_TRUE(calls.wait_for(3));
}

// The first expiry still waits for a callback when the second finds none to call.
TEST_F(TimerRefusal, RecordIsNotFreedWhileItWaitsForItsCallback) {
  kelo_timer_info* const record = heap_record([](void*) { FAIL(); });
  {
    const HeldWorker worker;
    expire(record);
    record->cb.handler = nullptr;
    expire(record);
    expire(record);
  }
  EXPECT_EQ(freed(), 0);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, kThread, kLostLater), 1) << log.dump();
  expire(record);
  pass_worker();
  EXPECT_EQ(freed(), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kHandler, kLost), 1) << log.dump();
}

TEST_F(TimerRefusal, IsServedBesideATimerThatNeverStopsExpiring) {
  struct Endless {
    kelo_timer_info* lost = heap_record();
    kelo_timer_info record = record_of([](void* self) { static_cast<Endless*>(self)->run(); }, this);
    int rounds = 0;
    void run() {
      if (++rounds == 1) expire(lost);
      if (freed() == 0 && rounds < 1000) expire(&record);
    }
  } endless;
  expire(&endless.record);
  ASSERT_TRUE(wait_until([] { return freed() == 1; }));
  pass_worker();
  EXPECT_LT(endless.rounds, 1000);
}

// The worker wakes itself then.
TEST_F(TimerRefusal, OneThatTheWorkerTakesInACallbackIsServed) {
  struct Refusing {
    kelo_timer_info* refused;
    kelo_timer_info record =
        record_of([](void* self) { expire(static_cast<Refusing*>(self)->refused); }, this);
  };
  Refusing lost{heap_record()};
  expire(&lost.record);
  EXPECT_TRUE(wait_until([] { return freed() == 1; }));

  kelo_timer_info no_record = record_of([](void*) { FAIL(); }, nullptr);
  no_record.magic = 7;
  Refusing wrong{&no_record};
  expire(&wrong.record);
  EXPECT_TRUE(wait_until([this] {
    return log.count(LOG_LVL_INFO, kHandler, "timer_sigaction_handler oem Q error:0x7\n") == 1;
  }));
}

// --- What is no record ---

TEST_F(TimerRefusal, WrongMagicIsLoggedAndTheRecordLeft) {
  for (const std::uint32_t magic : {0x0U, 0xDEADBEEFU, 0x4A726450U, 0x5164724AU, 0xFFFFFFFFU}) {
    log.clear();
    kelo_timer_info record;
    std::memset(&record, 0x5A, sizeof record);
    record.magic = magic;
    const std::string before = bytes_of(record);
    expire(&record);
    pass_worker();
    EXPECT_EQ(bytes_of(record), before);
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "timer_sigaction_handler oem Q error:0x%x\n", magic);
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_INFO, kHandler, text.data()), 1) << log.dump();
  }
}

TEST_F(TimerRefusal, WrongMagicOfATimerIsLoggedAndNotFreed) {
  kelo_timer_info* const record = heap_record([](void*) { FAIL(); });
  record->value = milliseconds(1);
  ASSERT_EQ(kelo_timer_create(record), 0);
  record->magic = 0xABC;
  ASSERT_EQ(kelo_timer_start(record), 0);
  ASSERT_TRUE(wait_until([this] {
    return log.count(LOG_LVL_INFO, kHandler, "timer_sigaction_handler oem Q error:0xabc\n") == 1;
  })) << log.dump();
  pass_worker();
  EXPECT_EQ(freed(), 0);
  EXPECT_EQ(deletes(), 0);
  EXPECT_EQ(kelo_timer_delete(record), 0);
  std::free(record);
}

TEST_F(TimerRefusal, MoreThanThereIsRoomForDoNoHarm) {
  constexpr std::size_t kRoom = 32;
  std::array<kelo_timer_info, 2 * kRoom> records{};
  for (std::size_t i = 0; i < records.size(); ++i) {
    records[i] = record_of([](void*) { FAIL(); }, nullptr);
    records[i].magic = static_cast<std::uint32_t>(i);
  }
  NamedTimer good(calls, 1);
  good.info.magic = KELO_TIMER_MAGIC;
  for (int round = 0; round < 2; ++round) {
    log.clear();
    {
      const HeldWorker worker;
      for (kelo_timer_info& record : records) expire(&record);
      expire(&good.info);
    }
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), kRoom) << log.dump();
    for (std::size_t i = 0; i < kRoom; ++i) {
      std::array<char, 64> text;
      std::snprintf(text.data(), text.size(), "timer_sigaction_handler oem Q error:0x%zx\n", i);
      EXPECT_EQ(lines[i].text, text.data());
    }
  }
  EXPECT_EQ(calls.names(), (std::vector{1, 1}));
}

}  // namespace
