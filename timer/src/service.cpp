// SPDX-License-Identifier: MIT
// The worker thread, which calls the callbacks of expired timers, and the start of the timer service.
#include "timer/src/service.hpp"

#include <link.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdlib>

#include "base/file.hpp"
#include "base/lock.hpp"
#include "kelo_utils/timer.h"
#include "log/library_log.hpp"
#include "timer/src/expiries.hpp"
#include "timer/src/handler.hpp"
#include "timer/src/record.hpp"

// Some C libraries have only their own name for this field.
#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid
#endif

pthread_mutex_t free_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr std::size_t kStackSize = 32768;
// The C library places more on the stack than the thread-local variables of the loaded objects: the descriptor of the
// thread, and room for the variables of objects that are loaded later.
constexpr std::size_t kThreadOverhead = 8192;

// The process that has a worker, and the process for which the queues of expiries are prepared. A forked child inherits
// neither the worker nor the timers.
std::atomic<pid_t> served{0};
std::atomic<pid_t> prepared{0};

std::atomic<pid_t> worker_id{0};
sem_t worker_runs;

// The id of the timer that wakes the worker. No timer has the first value: C libraries take a negative id for a pointer,
// and the kernel counts from 0.
constexpr std::uintptr_t kNoTimer = INT_MAX;
std::atomic<std::uintptr_t> wake_timer{kNoTimer};

// Returns 0, or -1 when there is no such timer.
int arm_wake_timer() {
  static constexpr itimerspec kAtOnce{{}, {0, 1}};  // zero would disarm it
  const auto timer = reinterpret_cast<timer_t>(wake_timer.load(std::memory_order_relaxed));
  return timer_settime(timer, 0, &kAtOnce, nullptr);
}

// Receives SIGUSR1 in the worker. The signal stays blocked there, so expiries do not interrupt callbacks and do not
// depend on the action that the process has set. Signals pend in the order of their arrival, at most one for each
// timer, until the worker receives them.
class WorkerSignals {
 public:
  WorkerSignals() {
    sigemptyset(&expiry_);
    sigaddset(&expiry_, SIGUSR1);
    sigfillset(&all_);
    pthread_sigmask(SIG_BLOCK, &expiry_, &callback_mask_);
    sigaddset(&callback_mask_, SIGUSR1);
  }

  // Its first signal comes at once: see receive().
  void create_wake_timer() {
    sigevent notification = kelo::timer::expiry_signal(kelo::timer::wake_up_value());
    timer_t timer = nullptr;
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) != 0) return;
    wake_timer.store(reinterpret_cast<std::uintptr_t>(timer), std::memory_order_relaxed);
    arm_wake_timer();
  }

  // Receives one signal, and waits if none is pending. All signals are blocked during the wait: the daemon may have
  // blocked a signal after it started the service, and the worker must not receive that signal instead of the daemon.
  void wait() {
    siginfo_t signal;
    if (receive_pending(signal)) return;
    pthread_sigmask(SIG_SETMASK, &all_, nullptr);
    if (sigwaitinfo(&expiry_, &signal) == SIGUSR1) receive(signal);
    pthread_sigmask(SIG_SETMASK, &callback_mask_, nullptr);
  }

  // Receives all signals that are pending when it is called. A timer may expire faster than its signals are received,
  // so an empty queue is not the only end. A record that is received a second time arrived after all signals that were
  // pending at the start, so those have been received by then. The record to compare with changes after 1, 2, 4 and so
  // on signals, because any record may be the one that comes again.
  void drain() {
    siginfo_t signal;
    const void* compared = nullptr;
    for (unsigned count = 1; receive_pending(signal); ++count) {
      const void* const record = signal.si_value.sival_ptr;
      if (record != nullptr && record == compared) return;
      if ((count & (count - 1)) == 0) compared = record;
    }
  }

 private:
  // Returns false when no signal is pending.
  bool receive_pending(siginfo_t& signal) {
    static constexpr timespec kNow{};
    const unsigned withdrawals = kelo::timer::withdrawals;
    if (sigtimedwait(&expiry_, &signal, &kNow) == SIGUSR1) {
      receive(signal);
      return true;
    }
    withdrawals_drained_ = withdrawals;
    return false;
  }

  static bool timer_exists(const siginfo_t& signal) {
    return syscall(SYS_timer_getoverrun, signal.si_timerid) >= 0;
  }

  // Some kernels deliver a pending signal after its timer was deleted. The record may have been freed by then.
  [[nodiscard]] bool may_be_of_deleted_timer(const siginfo_t& signal) const {
    return signal.si_code == SI_TIMER && withdrawals_drained_ != kelo::timer::withdrawals && timer_ids_valid_;
  }

  // Under some emulators the timer id in a signal is not the one that the kernel accepts. The timer that wakes the worker
  // shows it: it always exists, and its first signal comes before those of all timers that may have been deleted.
  void receive(const siginfo_t& signal) {
    if (signal.si_code == SI_TIMER && signal.si_value.sival_ptr == kelo::timer::wake_up_value()) {
      timer_ids_valid_ = timer_exists(signal);
    }
    const kelo::base::LockGuard lock(kelo::timer::records_mutex);
    if (may_be_of_deleted_timer(signal) && !timer_exists(signal)) return;
    kelo::timer::queue_record_of(signal);
  }

  sigset_t expiry_;
  sigset_t all_;
  sigset_t callback_mask_;
  bool timer_ids_valid_ = true;
  unsigned withdrawals_drained_ = 0;  // no signal is pending of the timers deleted up to this count
};

// It is null in all threads except the worker.
thread_local WorkerSignals* worker_signals = nullptr;

constexpr const char* kHandler = "timer_sigaction_handler";

void log_wrong_magic(std::uint32_t magic) {
  KELO_LOG_AS(kHandler, LOG_LVL_INFO, "timer_sigaction_handler oem Q error:0x%x\n", magic);
}

// Daemons rely on the service to free a record whose handler has become null. The timer must be deleted as well,
// because its next expiry would read freed memory.
void free_records_without_handler() {
  while (kelo_timer_info* const record = kelo::timer::take_without_handler()) {
    KELO_LOG_AS(kHandler, LOG_LVL_ERR, "timer_sigaction_handler cb handler is NULL!!!!!\n");
    if (kelo::timer::magic_of(*record) == KELO_TIMER_MAGIC &&
        kelo::timer::state_of(*record) != TIMER_STATE_IDLE) {
      timer_delete(record->timer_id);
    }
    std::free(record);
  }
}

void call(const kelo_timer_callback& callback) {
  if (callback.handler != nullptr) {
    callback.handler(callback.arg);
  } else {
    KELO_LOG_AS("kelo_oem_timer_thread", LOG_LVL_INFO, "oem_oem_timer_thread info->cb.handler is NULL!!!\n");
  }
}

// An expiry of a record that is already queued is dropped. All pending signals must therefore be received before a
// queued record is removed. Usually no record is queued, and each signal leads to one callback.
void* kelo_oem_timer_thread(void* /*unused*/) {
  WorkerSignals signals;
  worker_signals = &signals;
  worker_id = get_tid();
  signals.create_wake_timer();
  sem_post(&worker_runs);
  while (true) {
    kelo::timer::take_wrong_magics(log_wrong_magic);
    free_records_without_handler();
    if (kelo::timer::any_expired()) {
      signals.drain();
    } else {
      signals.wait();
    }
    kelo_timer_callback callback;
    if (kelo::timer::take_callback(callback)) call(callback);
  }
}

int add_thread_local_size(dl_phdr_info* object, std::size_t /*size*/, void* sum) {
  for (std::size_t i = 0; i < object->dlpi_phnum; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type == PT_TLS) *static_cast<std::size_t*>(sum) += segment.p_memsz + segment.p_align;
  }
  return 0;
}

// The C library places the thread-local variables of a thread on its stack.
std::size_t stack_size_with_thread_locals() {
  std::size_t size = kStackSize + kThreadOverhead;
  dl_iterate_phdr(add_thread_local_size, &size);
  return size;
}

class ThreadAttributes {
 public:
  ThreadAttributes() : initialised_(pthread_attr_init(&attributes_) == 0) {}
  ~ThreadAttributes() {
    if (initialised_) pthread_attr_destroy(&attributes_);
  }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;

  explicit operator bool() const { return initialised_; }
  pthread_attr_t* get() { return &attributes_; }

 private:
  pthread_attr_t attributes_;
  bool initialised_;
};

bool start_worker(ThreadAttributes& attributes) {
  static constexpr const char* kInit = "kelo_timer_init";
  if (pthread_attr_setstacksize(attributes.get(), stack_size_with_thread_locals()) != 0) {
    KELO_LOG_AS(kInit, LOG_LVL_ERR, "oem_timer_init set stack size failed\n");
  }
  if (pthread_attr_setdetachstate(attributes.get(), PTHREAD_CREATE_DETACHED) != 0) {
    KELO_LOG_AS(kInit, LOG_LVL_ERR, "oem_timer_init set setdetachstate failed\n");
  }
  pthread_t worker{};
  if (pthread_create(&worker, attributes.get(), kelo_oem_timer_thread, nullptr) != 0) {
    KELO_LOG_AS(kInit, LOG_LVL_ERR, "oem_timer_init create thread failed\n");
    return false;
  }
  kelo::base::retry_interrupted([] { return sem_wait(&worker_runs); });
  return true;
}

void timer_sigaction_init() {
  KELO_LOG(LOG_LVL_DBUG, "timer handler init!\n");
  struct sigaction action {};
  action.sa_sigaction = kelo::timer::timer_sigaction_handler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGUSR1, &action, nullptr) != 0) KELO_LOG(LOG_LVL_ERR, "failed to sigaction SIGUSR1\n");
}

}  // namespace

pid_t kelo::timer::worker_thread() { return served == getpid() ? worker_id.load() : 0; }

sigevent kelo::timer::expiry_signal(void* value) {
  sigevent notification{};
  notification.sigev_signo = SIGUSR1;
  notification.sigev_value.sival_ptr = value;
  notification.sigev_notify = SIGEV_SIGNAL;
  if (const pid_t worker = worker_thread(); worker != 0) {
    notification.sigev_notify = SIGEV_THREAD_ID;
    notification.sigev_notify_thread_id = worker;
  }
  return notification;
}

// A signal that is sent to a thread is dropped while another one of that number is pending there, and some kernels drop
// that other one too, when the worker is about to receive it, if its timer was stopped or deleted meanwhile. The signal
// of a timer of its own does not get lost. Only where that timer could not be created a signal is sent.
void kelo::timer::wake_worker() {
  const pid_t worker = worker_thread();
  if (worker == 0 || arm_wake_timer() == 0) return;
  // C libraries of devices have no function for it.
  syscall(SYS_tgkill, getpid(), worker, SIGUSR1);
}

void kelo::timer::take_expiries_of_worker() {
  // If a callback has called fork(), this thread is not the worker in the child.
  if (worker_signals != nullptr && worker_thread() == get_tid()) worker_signals->drain();
}

void kelo_timer_init(void) {
  const pid_t process = getpid();
  if (served.exchange(process) == process) {
    KELO_LOG(LOG_LVL_WRN, "oem_timer_init is already done\n");
    return;
  }
  worker_id.store(0, std::memory_order_relaxed);
  wake_timer.store(kNoTimer, std::memory_order_relaxed);
  sem_init(&worker_runs, 0, 0);
  if (prepared.exchange(process) != process) {
    kelo::timer::prepare_expiries(process);
    pthread_mutex_init(&free_mutex, nullptr);
  }
  ThreadAttributes attributes;
  if (!attributes) {
    KELO_LOG(LOG_LVL_ERR, "oem_timer_init init thread attribute failed\n");
    served = 0;
    return;
  }
  const bool started = start_worker(attributes);
  timer_sigaction_init();
  if (!started) served = 0;
}
