# SPDX-License-Identifier: MIT
"""Timers.

The worker of the library has a small stack, on which no Python code can run. It only posts a semaphore there; a thread of
Python waits for this and calls the function.
"""
import atexit
import ctypes
import os
import threading
import time

from . import _abi, _callbacks, _checks
from ._errors import Error
from ._library import c

MOST_SECONDS = _checks.INT32_MAX
NANOSECONDS = 10**9

_libc = ctypes.CDLL(None)
_SEM_POST = ctypes.cast(_libc.sem_post, ctypes.c_void_p).value
for _name, _arguments in (("sem_init", [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint]), ("sem_wait", [ctypes.c_void_p]),
                          ("sem_trywait", [ctypes.c_void_p]), ("sem_post", [ctypes.c_void_p])):
    getattr(_libc, _name).argtypes = _arguments


class _Semaphore:
    """A semaphore of the C library, in memory that is larger than any C library's."""

    def __init__(self):
        self._memory = (ctypes.c_uint64 * 16)()
        self.address = ctypes.addressof(self._memory)
        _libc.sem_init(self.address, 0, 0)

    def post(self):
        _libc.sem_post(self.address)

    def wait(self):
        while _libc.sem_wait(self.address) != 0:
            pass  # a signal has interrupted it

    def drain(self):
        while _libc.sem_trywait(self.address) == 0:
            pass


class _Service:
    """What all timers of the process share."""

    def __init__(self):
        self.lock = threading.RLock()
        self.callbacks = threading.Lock()
        self.started = False
        self.timers = set()
        # The worker may be about to post the semaphore of a deleted timer: the memory is kept until it cannot be.
        self.deleted = []

    def start(self):
        with self.lock:
            if not self.started:
                c.kelo_timer_init()
                self.started = True


_service = _Service()


def _span(span, length):
    nanoseconds = max(1, round(length * NANOSECONDS)) if length else 0
    span.tv_sec, span.tv_nsec = divmod(min(nanoseconds, MOST_SECONDS * NANOSECONDS), NANOSECONDS)


class Timer(_callbacks.NotCopied):
    """Calls a function after some time, once or again and again.

    `seconds` is the time until the first call, and `interval` the period after it, or None for a single call. start() begins
    it, also again; in a `with` it is begun, and closed at the end. The functions of all timers are called one after the
    other, in threads of their own; those that come at the same time have no order. A call that comes while one is waiting is
    dropped. What a function raises goes to sys.unraisablehook. A timer and its function live until it is closed. The library
    uses SIGUSR1 for timers.
    """

    _record = None
    _function = None

    def __init__(self, function, seconds, interval=None):
        _checks.function(function, "function")
        first = _checks.seconds(seconds, "seconds", MOST_SECONDS)
        period = 0.0 if interval is None else _checks.seconds(interval, "interval", MOST_SECONDS)
        semaphore, record = _Semaphore(), _abi.kelo_timer_info()
        record.cb.handler, record.cb.arg = _SEM_POST, semaphore.address
        # The library keeps the address of the record: no second call may put another one in its place.
        if self.__dict__.setdefault("_record", record) is not record:
            raise RuntimeError("the timer exists already")
        self._seconds, self._interval = first, period
        self._lock, self._semaphore = threading.RLock(), semaphore
        _service.start()
        self._checked("create a timer", c.kelo_timer_create)
        try:
            self._thread = threading.Thread(target=self._serve, args=(_service,), daemon=True, name="kelo timer")
            self._thread.start()
        except RuntimeError:
            c.kelo_timer_delete(ctypes.byref(self._record))
            raise
        self._function = _callbacks.guarded(function)
        _service.timers.add(self)

    def _checked(self, what, function):
        code = function(ctypes.byref(self._record))
        if code != 0:
            raise Error(what, code)

    def _live(self):
        if self._function is None:
            raise ValueError("the timer is closed")

    def _serve(self, service):
        """Calls the function for each expiry. Those that came before it is called are one."""
        while True:
            self._semaphore.wait()
            with service.callbacks:
                self._semaphore.drain()
                function = self._function
                if function is None:
                    return
                function()
                function = None
            if self._function is None:
                return  # it was closed, or this is a child that the function has forked

    def start(self):
        """Begins the time, or begins it again."""
        with self._lock:
            self._live()
            _span(self._record.value, self._seconds)
            _span(self._record.interval, self._interval)
            self._checked("start a timer", c.kelo_timer_start)

    def stop(self):
        """Stops a timer that was started; otherwise nothing happens. An expiry that waits for its call still gets it."""
        with self._lock:
            self._live()
            if self.running:
                self._checked("stop a timer", c.kelo_timer_stop)

    @property
    def running(self):
        """Whether the timer was started and not stopped, also when its single call is over."""
        with self._lock:
            return self._function is not None and c.kelo_timer_is_already_start(ctypes.byref(self._record)) == 1

    @property
    def remaining(self):
        """The seconds until the next call; 0.0 when none is to come."""
        with self._lock:
            self._live()
            self._checked("read a timer", c.kelo_timer_gettime)
            return self._record.value.tv_sec + self._record.value.tv_nsec / NANOSECONDS

    def close(self):
        """Deletes the timer: no call begins any more. A call that is running continues. A closed timer can be closed again."""
        with self._lock:
            if self._function is None:
                return
            self._function = None
            c.kelo_timer_delete(ctypes.byref(self._record))
            _service.timers.discard(self)
            self._semaphore.post()
            _forget(self._record, self._semaphore)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.close()


def _forget(record, semaphore):
    """Keeps the memory of a deleted timer until the callback that may be running has returned.

    It has when that of a later timer is called. The callback of such a timer is the release of what was kept before.
    """
    with _service.lock:
        _service.deleted.append((record, semaphore))
        if len(_service.deleted) < 64:
            return
        kept, _service.deleted = _service.deleted, []
    done = _Semaphore()
    last = _abi.kelo_timer_info()
    last.cb.handler, last.cb.arg = _SEM_POST, done.address
    last.value.tv_nsec = 1
    if c.kelo_timer_create(ctypes.byref(last)) == 0 and c.kelo_timer_start(ctypes.byref(last)) == 0:
        threading.Thread(target=_release, args=(done, last, kept), daemon=True, name="kelo timer end").start()
    else:
        with _service.lock:
            _service.deleted += kept


def _release(done, last, kept):
    done.wait()
    c.kelo_timer_delete(ctypes.byref(last))
    kept.clear()
    # The worker may not have returned yet from the post that was waited for.
    with _service.lock:
        _service.deleted.append((last, done))


@atexit.register
def _end():
    """Deletes all timers, and gives their threads a moment to end: they cannot when Python is gone."""
    timers, last = list(_service.timers), time.monotonic() + 1
    for timer in timers:
        timer.close()
    for timer in timers:
        timer._thread.join(max(0.0, last - time.monotonic()))


def _after_fork():
    """In a child there are neither timers nor threads: those of the parent count as closed."""
    global _service  # pylint: disable=global-statement
    for timer in list(_service.timers):
        timer._function = None
        timer._lock = threading.RLock()
    _kept.append(_service)
    _service = _Service()


_kept = []
os.register_at_fork(after_in_child=_after_fork)
