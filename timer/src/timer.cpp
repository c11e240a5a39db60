// SPDX-License-Identifier: MIT
// The calls that create, start, stop and delete a timer.
#include <signal.h>
#include <time.h>

#include <type_traits>

#include "kelo_utils/timer.h"
#include "log/library_log.hpp"
#include "timer/src/expiries.hpp"
#include "timer/src/record.hpp"
#include "timer/src/service.hpp"

namespace {

using kelo::timer::set_magic;
using kelo::timer::set_state;
using kelo::timer::state_of;

static_assert(std::is_same_v<timer_t, decltype(kelo_timer_info::timer_id)>);

timespec as_timespec(const kelo_timer_span& span) {
  timespec time{};
  time.tv_sec = span.tv_sec;
  time.tv_nsec = span.tv_nsec;
  return time;
}

kelo_timer_span as_span(const timespec& time) {
  return {static_cast<std::int32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_nsec)};
}

itimerspec times_of(const kelo_timer_info& info) {
  return {as_timespec(info.interval), as_timespec(info.value)};
}

// Returns the result of the system call.
int arm(timer_t timer, const itimerspec& times) {
  kelo::timer::take_expiries_of_worker();
  return timer_settime(timer, 0, &times, nullptr);
}

// Arms the timer of a record and sets its state to running. `state` is the current state, which is restored on
// failure. The record must not be accessed after the timer runs: the callback may change it, delete the timer and
// free the record.
int arm_running(const char* caller, kelo_timer_info& info, std::int32_t state) {
  const timer_t timer = info.timer_id;
  const itimerspec times = times_of(info);
  set_state(info, TIMER_STATE_RUNNING);
  const int result = arm(timer, times);
  if (result < 0) {
    set_state(info, static_cast<kelo_timer_state>(state));
    KELO_LOG_AS(caller, LOG_LVL_ERR, "failed to set time, rc=%d\n", result);
  }
  return result;
}

bool is_created(std::int32_t state) { return state >= TIMER_STATE_CREATED && state <= TIMER_STATE_STOPPED; }
bool is_running(std::int32_t state) { return state == TIMER_STATE_RUNNING; }

// Arms the timer of a record whose state is allowed.
int arm_in_state(const char* caller, kelo_timer_info* info, bool (*allowed)(std::int32_t state)) {
  if (info == nullptr) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "invalid info %p\n", static_cast<void*>(info));
    return -1;
  }
  const std::int32_t state = state_of(*info);
  if (!allowed(state)) {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "invalid state:%d\n", state);
    return -1;
  }
  return arm_running(caller, *info, state);
}

}  // namespace

int kelo_timer_create(kelo_timer_info* info) {
  if (info == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "invalid info %p\n", static_cast<void*>(info));
    return -1;
  }
  if (info->cb.handler == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "handler is NULL!!");
    return -1;
  }
  set_magic(*info);
  if (const std::int32_t state = state_of(*info); state != TIMER_STATE_IDLE) {
    KELO_LOG(LOG_LVL_ERR, "invalid state:%d\n", state);
    return -1;
  }
  sigevent notification = kelo::timer::expiry_signal(info);
  const int result = timer_create(CLOCK_MONOTONIC, &notification, &info->timer_id);
  if (result < 0) {
    KELO_LOG(LOG_LVL_ERR, "failed to create timer, rc=%d\n", result);
    return result;
  }
  set_state(*info, TIMER_STATE_CREATED);
  return result;
}

int kelo_timer_start(kelo_timer_info* info) { return arm_in_state(__func__, info, is_created); }

int kelo_timer_settime(kelo_timer_info* info) { return arm_in_state(__func__, info, is_running); }

int kelo_timer_stop(kelo_timer_info* info) {
  if (info == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "info is null\n");
    return -1;
  }
  if (const std::int32_t state = state_of(*info); state != TIMER_STATE_RUNNING) {
    KELO_LOG(LOG_LVL_ERR, "not valid state:%d!\n", state);
    return -1;
  }
  const int result = arm(info->timer_id, {});
  if (result < 0) KELO_LOG(LOG_LVL_ERR, "failed to set time, rc=%d\n", result);
  set_state(*info, TIMER_STATE_STOPPED);
  return 0;
}

int kelo_timer_gettime(kelo_timer_info* info) {
  itimerspec times{};
  // An idle record has no timer, and its `timer_id` may be the id of another record's timer.
  const int result = state_of(*info) == TIMER_STATE_IDLE ? -1 : timer_gettime(info->timer_id, &times);
  if (result < 0) {
    KELO_LOG(LOG_LVL_ERR, "failed to get time, rc=%d\n", result);
    return -1;
  }
  info->value = as_span(times.it_value);
  info->interval = as_span(times.it_interval);
  return 0;
}

int kelo_timer_delete(kelo_timer_info* info) {
  if (info == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "invalid info %p\n", static_cast<void*>(info));
    return -1;
  }
  if (const std::int32_t state = state_of(*info); state == TIMER_STATE_IDLE) {
    KELO_LOG(LOG_LVL_ERR, "invalid state:%d\n", state);
    return -1;
  }
  const int result = timer_delete(info->timer_id);
  if (result < 0) {
    KELO_LOG(LOG_LVL_ERR, "failed to delete timer, rc=%d\n", result);
    return -1;
  }
  kelo::timer::withdraw(*info);
  set_state(*info, TIMER_STATE_IDLE);
  return result;
}

int kelo_timer_is_already_start(kelo_timer_info* info) {
  if (info == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "NULL time handler\n");
    return 0;
  }
  return state_of(*info) == TIMER_STATE_RUNNING ? 1 : 0;
}
