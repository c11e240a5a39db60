/**
 * @file kelo_utils.h
 * @brief Everything of kelo_utils: the helpers that every application daemon of the router shares.
 *
 * Include this header or only the ones needed; each stands alone, in C (C99 and later) and in C++ (C++17 and
 * later).
 *
 * What holds for every function, unless its own description says otherwise:
 *
 * - Results. 0, or a positive number of bytes, is success; failures are codes of the function's family. Most
 *   are negative, a few are positive: compare with the codes listed, not with "below 0". A function that
 *   returns a pointer returns null on failure. Most failures are also logged.
 * - Nothing is thrown and no signal is raised. The one exception is a programming error that no result can
 *   express, or memory that runs out where a function says so: "<source path>, line: <line>" is printed on
 *   standard output and the process aborts.
 * - Ownership. What a caller passes stays the caller's, and an input is not kept after the call. Outputs go
 *   into buffers of the caller with an explicit size in bytes, beyond which nothing is written. Containers
 *   link the elements given to them and never copy, allocate or free one.
 * - Text is NUL-terminated bytes. "Length" leaves the terminator out, "size" of a text buffer counts it.
 * - Null. A null pointer is refused with a result where one is listed for it, and must not be passed
 *   otherwise. An argument described as "may be null" has a meaning when it is.
 * - Blocking. Functions return without waiting, except those that use files, the shell or a lock for longer
 *   than a moment; these say so. They are not cancellation points to rely on.
 * - Threads. A function may be called from any thread. Two calls on the same object exclude each other only
 *   where that is said; calls on different objects never disturb each other. Settings of the whole process
 *   (levels, callbacks, storage places, registered items) are made at start-up, in one thread.
 * - fork() and signals. Descriptors are closed on exec; only the `cp` that copies a database inherits a lock,
 *   on purpose. A child made by fork() without exec inherits no held lock of log, store, parameters and
 *   values in memory, and may use these at once. For that a fork() waits for other threads that are inside
 *   SQLite, five seconds at most, and for writes of values in memory, one second at most. Timers do not run
 *   in the child. Lists and queues are the program's own: in the child their locks may be held. Signals
 *   neither shorten nor lengthen the waits of store and parameters. No function is for use in a signal
 *   handler.
 * - `errno` is not part of any result. Logging preserves it.
 * - Names. A program that has a function of its own with the name of one of these functions changes nothing in
 *   the shared library, which calls its own. What a program may replace are the hooks (dm_pal_reg() and its
 *   siblings) and the diagnostic channel (Diag_LSM_Init(), msg_sprintf()). In a link with the archive each name
 *   exists once: do not define one of these functions there.
 *   The exported writable data has plain names, too, and is found in the program where the program defines it:
 *   define no DB_CONFIG, DB_CONFIGBAK, DB_DEF_ITEMS, DB_EXPORT_CSV, DB_STATE, db_area, db_rst_bak or free_mutex
 *   of your own, not even without these headers. A log_msg or str_t of the program's own does no harm beside the
 *   shared library: it is neither read nor written.
 * - Addresses. In a program that is not position-independent the address of a function of the shared library
 *   differs from the one that the library itself uses, in the operations of a handle for example: call
 *   through function pointers, do not compare them.
 * - dlclose(). The shared library stays loaded until the process ends.
 * - Layout. Public records are fixed on 32-bit ARM, where other programs of the router rely on them. Fields
 *   that hold a pointer or an address have the machine's pointer size, so a record may be larger elsewhere.
 */
#ifndef KELO_UTILS_KELO_UTILS_H
#define KELO_UTILS_KELO_UTILS_H

#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/base.h"
#include "kelo_utils/clock.h"
#include "kelo_utils/command.h"
#include "kelo_utils/command_record.h"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/file_ops.h"
#include "kelo_utils/ini.h"
#include "kelo_utils/list.h"
#include "kelo_utils/log.h"
#include "kelo_utils/modem.h"
#include "kelo_utils/network.h"
#include "kelo_utils/parameters.h"
#include "kelo_utils/process.h"
#include "kelo_utils/project.h"
#include "kelo_utils/queue.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/symtab.h"
#include "kelo_utils/text.h"
#include "kelo_utils/timer.h"
#include "kelo_utils/unicode.h"
#include "kelo_utils/ussd.h"

#endif /* KELO_UTILS_KELO_UTILS_H */
