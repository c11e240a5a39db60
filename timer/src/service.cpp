// The handler of SIGUSR1, the worker thread, and what starts them.
#include <link.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "base/file.hpp"
#include "base/lock.hpp"
#include "kelo_utils/timer.h"
#include "log/library_log.hpp"
#include "timer/src/expiries.hpp"
#include "timer/src/record.hpp"
#include "timer/src/service.hpp"

pthread_mutex_t free_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr std::size_t kStackSize = 32768;
// What the C library keeps beside the variables of the loaded objects: the thread's descriptor, and room for
// those of objects loaded later.
constexpr std::size_t kThreadOverhead = 8192;

// The process that has a worker, and the one whose expiries have a place to wait. A forked child has
// inherited neither worker nor timers.
std::atomic<pid_t> served{0};
std::atomic<pid_t> prepared{0};

std::atomic<pid_t> worker_id{0};
sem_t worker_runs;

// The worker's thread id; 0 while this process has none.
pid_t worker_thread() { return served == getpid() ? worker_id.load() : 0; }

// Whether the signal carries a record of this process. A value that another process sent is no pointer of
// ours.
bool is_ours(const siginfo_t& signal) {
  return signal.si_code == SI_TIMER || (signal.si_code == SI_QUEUE && signal.si_pid == getpid());
}

// Makes the record of a signal wait for the worker. True when the worker may have to be woken.
bool accept(const siginfo_t& signal) {
  if (!is_ours(signal)) return false;
  auto* const record = static_cast<kelo_timer_info*>(signal.si_value.sival_ptr);
  if (record == nullptr) return false;
  kelo::timer::state_of(*record);  // all that was written before the timer was armed is seen from here on
  if (record->cb.handler == nullptr) return kelo::timer::put_lost(*record);
  const std::uint32_t magic = kelo::timer::magic_of(*record);
  if (magic == KELO_TIMER_MAGIC) return kelo::timer::put_expiry(*record);
  kelo::timer::put_wrong_magic(magic);
  return true;
}

// By its number: C libraries of devices lack a function for it.
void wake(pid_t worker) { syscall(SYS_tgkill, getpid(), worker, SIGUSR1); }

// Runs between any two instructions of a thread that takes a signal the process sent itself, or that of a timer
// made before there was a worker. A wake-up that finds one pending is dropped by the kernel, which does no
// harm: the worker looks at all that waits after each.
void timer_sigaction_handler(int number, siginfo_t* signal, void* /*context*/) {
  const kelo::base::ErrnoKeeper keep;
  if (number != SIGUSR1 || !accept(*signal)) return;
  const pid_t worker = worker_thread();
  if (worker != 0 && worker != get_tid()) wake(worker);
}

// The worker's signals. SIGUSR1 stays blocked, so that expiries interrupt no callback and do not depend on the
// action that the process has for it. They pend in the order in which they came, each timer's at most once, until
// the worker takes them.
class WorkerSignals {
 public:
  WorkerSignals() {
    sigemptyset(&expiry_);
    sigaddset(&expiry_, SIGUSR1);
    sigfillset(&all_);
    pthread_sigmask(SIG_BLOCK, &expiry_, &in_callbacks_);
    sigaddset(&in_callbacks_, SIGUSR1);
  }

  // Finds out, with a timer of its own, whether the number in a timer's signal names the timer to the system. That is
  // not so under some emulators.
  void try_numbers() {
    sigevent notification = kelo::timer::expiry_signal(this);
    timer_t timer = nullptr;
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer) != 0) return;
    itimerspec times{};
    times.it_value.tv_nsec = 1;
    timer_settime(timer, 0, &times, nullptr);
    siginfo_t signal{};
    while (sigwaitinfo(&expiry_, &signal) == SIGUSR1 && signal.si_value.sival_ptr != this) take(signal);
    numbers_name_timers_ = timer_exists(signal);
    timer_delete(timer);
  }

  // Takes one, waiting for it if none pends. A signal that the daemon has blocked since it started the service,
  // to read it elsewhere, must not find one thread asleep that lets it in.
  void wait() {
    siginfo_t signal;
    if (take_pending(signal)) return;
    pthread_sigmask(SIG_SETMASK, &all_, nullptr);
    if (sigwaitinfo(&expiry_, &signal) == SIGUSR1) take(signal);
    pthread_sigmask(SIG_SETMASK, &in_callbacks_, nullptr);
  }

  // Takes all that pend by now. A timer may expire faster than its signals are taken. A record that comes a second
  // time came after all that pended at the start, which are taken then. Which record that will be is not known, so
  // that the one to compare with changes after 1, 2, 4 and so on signals.
  void drain() {
    siginfo_t signal;
    const void* compared = nullptr;
    for (unsigned count = 1; take_pending(signal); ++count) {
      const void* const record = signal.si_value.sival_ptr;
      if (record != nullptr && record == compared) return;
      if ((count & (count - 1)) == 0) compared = record;
    }
  }

 private:
  // False when none pends.
  bool take_pending(siginfo_t& signal) {
    static constexpr timespec kNow{};
    const unsigned withdrawals = kelo::timer::withdrawals;
    if (sigtimedwait(&expiry_, &signal, &kNow) == SIGUSR1) {
      take(signal);
      return true;
    }
    withdrawals_settled_ = withdrawals;
    return false;
  }

  static bool timer_exists(const siginfo_t& signal) {
    return syscall(SYS_timer_getoverrun, signal.si_timerid) >= 0;
  }

  // Some kernels deliver what pended for a timer after its delete, when the record may be gone.
  [[nodiscard]] bool may_be_of_deleted_timer(const siginfo_t& signal) const {
    return signal.si_code == SI_TIMER && withdrawals_settled_ != kelo::timer::withdrawals &&
           numbers_name_timers_;
  }

  void take(const siginfo_t& signal) const {
    const kelo::base::LockGuard lock(kelo::timer::records_mutex);
    if (may_be_of_deleted_timer(signal) && !timer_exists(signal)) return;
    accept(signal);
  }

  sigset_t expiry_;
  sigset_t all_;
  sigset_t in_callbacks_;
  bool numbers_name_timers_ = true;
  unsigned withdrawals_settled_ = 0;  // nothing pends of the timers deleted before this many
};

// Null in all threads but the worker.
thread_local WorkerSignals* worker_signals = nullptr;

constexpr const char* kHandler = "timer_sigaction_handler";

void log_wrong_magic(std::uint32_t magic) {
  KELO_LOG_AS(kHandler, LOG_LVL_INFO, "timer_sigaction_handler oem Q error:0x%x\n", magic);
}

// Daemons rely on the service to free a record that lost its handler. Its timer goes with it: the next expiry
// would look into freed memory.
void free_lost() {
  while (kelo_timer_info* const record = kelo::timer::take_lost()) {
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

// An expiry of a record that waits already counts for nothing, so that all that pends is taken before the wait of
// such a record ends. As a rule none waits, and expiries are called one by one as they pend.
void* kelo_oem_timer_thread(void* /*unused*/) {
  WorkerSignals signals;
  worker_signals = &signals;
  worker_id = get_tid();
  signals.try_numbers();
  sem_post(&worker_runs);
  while (true) {
    kelo::timer::take_wrong_magics(log_wrong_magic);
    free_lost();
    if (kelo::timer::any_waits()) {
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

// The C library takes a thread's thread-local variables from its stack.
std::size_t stack_size_with_thread_locals() {
  std::size_t size = kStackSize + kThreadOverhead;
  dl_iterate_phdr(add_thread_local_size, &size);
  return size;
}

class ThreadAttributes {
 public:
  ThreadAttributes() : made_(pthread_attr_init(&attributes_) == 0) {}
  ~ThreadAttributes() {
    if (made_) pthread_attr_destroy(&attributes_);
  }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;

  explicit operator bool() const { return made_; }
  pthread_attr_t* get() { return &attributes_; }

 private:
  pthread_attr_t attributes_;
  bool made_;
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
  action.sa_sigaction = timer_sigaction_handler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGUSR1, &action, nullptr) != 0) KELO_LOG(LOG_LVL_ERR, "failed to sigaction SIGUSR1\n");
}

}  // namespace

sigevent kelo::timer::expiry_signal(void* record) {
  sigevent notification{};
  notification.sigev_signo = SIGUSR1;
  notification.sigev_value.sival_ptr = record;
  notification.sigev_notify = SIGEV_SIGNAL;
  if (const pid_t worker = worker_thread(); worker != 0) {
    notification.sigev_notify = SIGEV_THREAD_ID;
    notification._sigev_un._tid = worker;  // the C library has no other name for it
  }
  return notification;
}

void kelo::timer::take_expiries_of_worker() {
  // In the child of a callback that forked this thread is not the worker any more.
  if (worker_signals != nullptr && worker_thread() == get_tid()) worker_signals->drain();
}

void kelo_timer_init(void) {
  const pid_t process = getpid();
  if (served.exchange(process) == process) {
    KELO_LOG(LOG_LVL_WRN, "oem_timer_init is already done\n");
    return;
  }
  worker_id = 0;
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
