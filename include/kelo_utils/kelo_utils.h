/* SPDX-License-Identifier: MIT */
/**
 * @file kelo_utils.h
 * @brief Everything of kelo_utils: the helpers that every application daemon of the router shares.
 *
 * A program includes this header or only the ones that it needs. Each header can be included alone, in C (C99
 * and later) and in C++ (C++17 and later).
 *
 * The following holds for every function, unless its own description says otherwise:
 *
 * - Results. 0, or a positive number of bytes, is success. Failures are codes of the group of functions. Most
 *   are negative, and a few are positive: compare with the codes that are listed, not with "below 0". A
 *   function that returns a pointer returns null on failure. Most failures are also logged.
 * - Fatal errors. Nothing is thrown and no signal is raised. There is one exception: a programming error that
 *   no result can express, and memory that runs out where a function says so. Then "<source path>, line:
 *   <line>" is printed on standard output and the process aborts.
 * - Ownership. What a caller passes still belongs to the caller, and an input is not kept after the call.
 *   Containers link the elements that are given to them, and never copy, allocate or free one.
 * - Buffers. Outputs go into buffers of the caller. Their size is an argument, in bytes, and nothing is
 *   written after it.
 * - Text is NUL-terminated bytes. A "length" does not count the terminator; the "size" of a text buffer
 *   counts it.
 * - Null. A null pointer is refused with a result when one is listed for it, and otherwise must not be
 *   passed. An argument that "may be null" has a meaning when it is null.
 * - Blocking. The heading "Blocking" of a function says for what it waits. A function that "does not block"
 *   returns without waiting, except that a log line may wait while another thread writes one. Programs must
 *   not rely on a function as a cancellation point.
 * - Threads. The heading "Threads" of a function says which threads may call it. Calls on different objects
 *   never disturb each other. Two calls on the same object exclude each other only where the description says
 *   so. Settings of the whole process (levels, callbacks, storage places, registered items) are made at
 *   start-up, in one thread.
 * - Signals. No function is for use in a signal handler. Signals neither shorten nor lengthen the waits of
 *   the store and of the parameters.
 * - fork(). Descriptors are closed on exec; only the `cp` that copies a database inherits a lock, on purpose.
 *   A child made by fork() without exec inherits no lock of the log, the store, the parameters and the values
 *   in memory, and may use these at once. For this a fork() waits for other threads that are inside SQLite,
 *   five seconds at most, and for writes of values in memory, one second at most. Timers do not run in the
 *   child. Lists and queues belong to the program: their locks may be held in the child.
 * - `errno` is not part of any result. Logging preserves it.
 * - Names. When a program has a function of its own with the name of one of these functions, the shared
 *   library still calls its own function. A program may replace only the hooks (dm_pal_reg() and the others
 *   in its group) and the diagnostic channel (Diag_LSM_Init(), msg_sprintf()). In a link with the archive
 *   each name exists once: do not define one of these functions there. The exported writable data has plain
 *   names, too. The library uses the data of the program when the program defines it: do not define
 *   DB_CONFIG, DB_CONFIGBAK, DB_DEF_ITEMS, DB_EXPORT_CSV, DB_STATE, db_area, db_rst_bak or free_mutex, not
 *   even without these headers. A log_msg or str_t of the program does no harm beside the shared library: it
 *   is neither read nor written.
 * - Addresses. In a program that is not position-independent the address of a function of the shared library
 *   differs from the address that the library itself uses, for example in the operations of a handle. Call
 *   through function pointers, and do not compare them.
 * - dlclose(). The shared library stays loaded until the process ends.
 * - Layout. Public records are fixed on 32-bit ARM, where other programs of the router rely on them. Fields
 *   that hold a pointer or an address have the pointer size of the machine, so a record may be larger on
 *   other machines.
 */
#ifndef KELO_UTILS_KELO_UTILS_H
#define KELO_UTILS_KELO_UTILS_H

#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/at_exchange.h"
#include "kelo_utils/base.h"
#include "kelo_utils/clock.h"
#include "kelo_utils/command.h"
#include "kelo_utils/command_record.h"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/file_ops.h"
#include "kelo_utils/gsm_encode.h"
#include "kelo_utils/ini.h"
#include "kelo_utils/list.h"
#include "kelo_utils/log.h"
#include "kelo_utils/log_line.h"
#include "kelo_utils/log_rate.h"
#include "kelo_utils/modem.h"
#include "kelo_utils/network.h"
#include "kelo_utils/parameters.h"
#include "kelo_utils/process.h"
#include "kelo_utils/project.h"
#include "kelo_utils/queue.h"
#include "kelo_utils/run.h"
#include "kelo_utils/settings.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/symtab.h"
#include "kelo_utils/text.h"
#include "kelo_utils/timer.h"
#include "kelo_utils/unicode.h"
#include "kelo_utils/ussd.h"
#include "kelo_utils/watch.h"

#endif /* KELO_UTILS_KELO_UTILS_H */
