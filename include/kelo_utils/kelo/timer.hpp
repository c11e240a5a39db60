/* SPDX-License-Identifier: MIT */
/**
 * @file timer.hpp
 * @brief The C++ face: timers that call any callable and end with their object.
 *
 *     kelo_timer_init();
 *     kelo::Timer heartbeat;
 *     heartbeat.every(std::chrono::seconds(1), [&led] { led.toggle(); });
 *
 * What timer.h says of all timers holds here: callbacks run one after the other on one worker thread with a
 * stack of 32 KiB, and SIGUSR1 is used.
 */
#ifndef KELO_UTILS_KELO_TIMER_HPP
#define KELO_UTILS_KELO_TIMER_HPP

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <new>
#include <utility>

#include "kelo_utils/kelo/closure.hpp"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/timer.h"

namespace kelo {

/** @cond */
namespace face_detail {

inline constexpr std::int32_t kTimerRefused = -1;

enum class TimerStage : std::uint8_t {
  open,    // its callable is called
  ending,  // a thread ends it: its callable is not called any more
  ended,  // its callable is gone: the next expiry shows that no call is on its way, and makes the record free
  abandoned  // its callable has ended it: it is free when the callable has returned
};

// The record of a timer. An expiry that the worker has already taken calls timer_expired() even after the timer was
// deleted. So the memory of a record stays a record's. It serves another timer after the worker was seen to have no
// call of this one on its way. All records are linked, which leak detectors understand.
struct TimerRecord {
  kelo_timer_info info{};
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;  // guards the rest up to `runner`
  pthread_cond_t returned = PTHREAD_COND_INITIALIZER;
  Closure* closure = nullptr;
  TimerStage stage = TimerStage::open;
  bool running = false;
  pthread_t runner{};
  pid_t process = 0;
  std::atomic<bool> used{true};
  TimerRecord* next = nullptr;
};

inline std::atomic<TimerRecord*> timer_records{nullptr};

// Returns null when memory runs out.
inline TimerRecord* take_timer_record() {
  for (TimerRecord* record = timer_records.load(std::memory_order_acquire); record != nullptr;
       record = record->next)
    if (!record->used.load(std::memory_order_relaxed) &&
        !record->used.exchange(true, std::memory_order_acquire))
      return record;
  auto* const record = new (std::nothrow) TimerRecord;
  if (record == nullptr) return nullptr;
  record->next = timer_records.load(std::memory_order_relaxed);
  while (!timer_records.compare_exchange_weak(record->next, record, std::memory_order_release)) {
  }
  return record;
}

inline void free_timer_record(TimerRecord& record) {
  kelo_timer_delete(&record.info);
  record.used.store(false, std::memory_order_release);
}

inline void timer_expired(void* argument) noexcept {
  auto& record = *static_cast<TimerRecord*>(argument);
  pthread_mutex_lock(&record.mutex);
  TimerStage stage = record.stage;
  if (stage == TimerStage::open) {
    record.running = true;
    record.runner = pthread_self();
    pthread_mutex_unlock(&record.mutex);
    record.closure->act(record.closure, &record);
    pthread_mutex_lock(&record.mutex);
    record.running = false;
    pthread_cond_signal(&record.returned);
    if (record.stage == TimerStage::abandoned) stage = TimerStage::abandoned;
  }
  pthread_mutex_unlock(&record.mutex);
  if (stage == TimerStage::abandoned) destroy(record.closure);
  if (stage == TimerStage::abandoned || stage == TimerStage::ended) free_timer_record(record);
}

inline kelo_timer_span timer_span(std::chrono::nanoseconds time) {
  constexpr std::int64_t kSecond = 1000000000;
  return {static_cast<std::int32_t>(time.count() / kSecond),
          static_cast<std::int32_t>(time.count() % kSecond)};
}

inline bool is_timer_span(std::chrono::nanoseconds time) {
  return time.count() >= 1 && time < std::chrono::seconds(INT32_MAX);
}

// Takes over the closure, which is destroyed when the timer cannot be made.
inline TimerRecord* make_timer(Closure* closure) {
  TimerRecord* const record = closure != nullptr ? take_timer_record() : nullptr;
  if (record == nullptr) {
    destroy(closure);
    return nullptr;
  }
  record->info.cb = {&timer_expired, record};
  record->closure = closure;
  record->stage = TimerStage::open;
  record->process = getpid();
  if (kelo_timer_create(&record->info) == 0) return record;
  destroy(closure);
  record->used.store(false, std::memory_order_release);
  return nullptr;
}

inline void end_timer(TimerRecord& record) {
  // A child made by fork() has no such timer, and the mutex may be held there forever.
  if (record.process != getpid()) {
    destroy(record.closure);
    return;
  }
  pthread_mutex_lock(&record.mutex);
  if (record.running && pthread_equal(record.runner, pthread_self()) != 0) {
    record.stage = TimerStage::abandoned;
    pthread_mutex_unlock(&record.mutex);
    return;
  }
  record.stage = TimerStage::ending;
  while (record.running) pthread_cond_wait(&record.returned, &record.mutex);
  // The callable may use its timers and end others. No lock is held while it is destroyed.
  pthread_mutex_unlock(&record.mutex);
  destroy(record.closure);
  pthread_mutex_lock(&record.mutex);
  record.stage = TimerStage::ended;
  record.info.value = {0, 1};
  record.info.interval = {0, 0};
  kelo_timer_start(&record.info);
  pthread_mutex_unlock(&record.mutex);
}

inline std::int32_t start_timer(TimerRecord& record) {
  pthread_mutex_lock(&record.mutex);
  const std::int32_t code = kelo_timer_start(&record.info);
  pthread_mutex_unlock(&record.mutex);
  return code;
}

}  // namespace face_detail
/** @endcond */

/**
 * A timer that calls a callable on the worker thread. It ends with the object.
 *
 * The object may be moved, and be destroyed anywhere: in its own callable, in the callable of another timer
 * and in any other thread. After that its callable is not called any more, and no call of it is running, except
 * the one in which it was destroyed. That callable is destroyed when it has returned.
 *
 * A program calls kelo_timer_init() before it uses timers. The code of every failure is -1, as in timer.h. A
 * child made by fork() only destroys the timers of its parent.
 *
 * An ended timer takes one of the system's timers until the worker thread has passed it, a moment later. The
 * memory of a timer is used again for later timers, and is not given back to the heap.
 *
 * @par Blocking
 * The end of a timer waits until its callable has returned, when this runs in another thread. That thread must
 * not need a lock that the waiting one holds. The other functions do not block.
 * @par Threads
 * One thread at a time uses a timer, its callable included. Different timers are independent. It is not for
 * signal handlers.
 */
class [[nodiscard]] Timer {
 public:
  /** No timer. */
  Timer() noexcept = default;
  /**
   * Takes a timer over.
   * @param other  it is no timer after this.
   */
  Timer(Timer&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  /**
   * Ends this timer and takes another one over.
   * @param other  it is no timer after this.
   * @return this object.
   */
  Timer& operator=(Timer&& other) noexcept {
    if (this != &other) {
      end();
      record_ = std::exchange(other.record_, nullptr);
    }
    return *this;
  }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() { end(); }

  /**
   * Ends what the timer was before, and calls a callable once.
   * @tparam Callable  type of `callable`.
   * @param delay      time until then, less than 2^31 - 1 seconds. 0 is at once.
   * @param callable   is copied or moved to the heap, and called without an argument. It must not throw.
   * @return success; the code -1 for a delay that is negative or too long, or when the system refuses the timer
   *         or memory runs out. Then there is no timer.
   */
  template <class Callable>
  Result<void> once(std::chrono::nanoseconds delay, Callable&& callable) {
    const std::chrono::nanoseconds soon(1);
    return begin(delay.count() == 0 ? soon : delay, std::chrono::nanoseconds(0),
                 std::forward<Callable>(callable));
  }

  /**
   * Ends what the timer was before, and calls a callable again and again.
   * @tparam Callable  type of `callable`.
   * @param period     time until the first call and between two calls, 1 ns or more and less than 2^31 - 1
   *                   seconds.
   * @param callable   as for once().
   * @return as once(); the code -1 also for a period of 0.
   */
  template <class Callable>
  Result<void> every(std::chrono::nanoseconds period, Callable&& callable) {
    return every(period, period, std::forward<Callable>(callable));
  }

  /**
   * Ends what the timer was before, and calls a callable again and again.
   * @tparam Callable  type of `callable`.
   * @param first      time until the first call, as `period`.
   * @param period     time between two calls, 1 ns or more and less than 2^31 - 1 seconds.
   * @param callable   as for once().
   * @return as once(); the code -1 also for a time of 0.
   */
  template <class Callable>
  Result<void> every(std::chrono::nanoseconds first, std::chrono::nanoseconds period, Callable&& callable) {
    if (!face_detail::is_timer_span(period)) {
      end();
      return Result<void>::of(face_detail::kTimerRefused);
    }
    return begin(first, period, std::forward<Callable>(callable));
  }

  /**
   * Starts the timer again with its times, whether it is running or not.
   * @return success; the code -1 when there is no timer.
   */
  Result<void> start() noexcept {
    return Result<void>::of(record_ != nullptr ? face_detail::start_timer(*record_)
                                               : face_detail::kTimerRefused);
  }

  /**
   * Stops the timer, which can be started again. An expiry that waits for its call still gets it.
   * @return success; the code -1 when there is no timer, or it is not running.
   */
  Result<void> stop() noexcept {
    return Result<void>::of(record_ != nullptr ? kelo_timer_stop(&record_->info)
                                               : face_detail::kTimerRefused);
  }

  /** Ends the timer. There is none after this. */
  void end() noexcept {
    if (record_ != nullptr) face_detail::end_timer(*std::exchange(record_, nullptr));
  }

  /** @return whether it was started and has not been stopped; also true for one that has expired once. */
  [[nodiscard]] bool running() const noexcept {
    return record_ != nullptr && kelo_timer_is_already_start(&record_->info) != 0;
  }

  /**
   * Tells when the timer expires.
   * @return the time until the next expiry, 0 when there will be none; the code -1 when there is no timer.
   */
  Result<std::chrono::nanoseconds> remaining() const noexcept {
    using Time = Result<std::chrono::nanoseconds>;
    if (record_ == nullptr) return Time::failed(face_detail::kTimerRefused);
    kelo_timer_info& info = record_->info;
    const kelo_timer_span value = info.value;
    const kelo_timer_span interval = info.interval;
    if (kelo_timer_gettime(&info) != 0) return Time::failed(face_detail::kTimerRefused);
    const std::chrono::nanoseconds left =
        std::chrono::seconds(info.value.tv_sec) + std::chrono::nanoseconds(info.value.tv_nsec);
    info.value = value;  // a later start uses them
    info.interval = interval;
    return Time(left);
  }

  /** @return whether there is a timer. */
  explicit operator bool() const noexcept { return record_ != nullptr; }

 private:
  template <class Callable>
  Result<void> begin(std::chrono::nanoseconds first, std::chrono::nanoseconds period, Callable&& callable) {
    auto call = [kept = std::decay_t<Callable>(std::forward<Callable>(callable))](
                    const face_detail::TimerRecord& /*record*/) mutable { kept(); };
    end();
    if (!face_detail::is_timer_span(first)) return Result<void>::of(face_detail::kTimerRefused);
    return arm(first, period, face_detail::make_closure<face_detail::TimerRecord>(std::move(call)));
  }

  // The timer is this object's before it is started: its callable may then end it.
  Result<void> arm(std::chrono::nanoseconds first, std::chrono::nanoseconds period,
                   face_detail::Closure* closure) {
    record_ = face_detail::make_timer(closure);
    if (record_ == nullptr) return Result<void>::of(face_detail::kTimerRefused);
    record_->info.value = face_detail::timer_span(first);
    record_->info.interval = face_detail::timer_span(period);
    return Result<void>::of(face_detail::start_timer(*record_));
  }

  face_detail::TimerRecord* record_ = nullptr;
};

}  // namespace kelo

#endif /* KELO_UTILS_KELO_TIMER_HPP */
