/* SPDX-License-Identifier: MIT */
/**
 * @file run.h
 * @brief More about commands: one program without a shell, with its own limit of time and its exit code.
 *
 * These functions are optional additions to command.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_RUN_H
#define KELO_UTILS_RUN_H

#include <stdint.h>

#include "kelo_utils/base.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/** Results of kelo_run(). */
enum kelo_run_result {
  KELO_RUN_EXITED = 0,        /**< the program has ended; the code is its exit code, 0 to 255 */
  KELO_RUN_KILLED = 1,        /**< a signal has ended the program; the code is the number of the signal */
  KELO_RUN_NOT_STARTED = -1,  /**< the program may not be run, or there is no memory, process or descriptor */
  KELO_RUN_TIMED_OUT = -2,    /**< the time was over, and the program and its group were killed */
  KELO_RUN_BAD_ARGUMENT = -3, /**< null vector, empty program or a limit below 1 */
  KELO_RUN_NOT_FOUND = -4,    /**< there is no such program, or not the interpreter that its script names */
  KELO_RUN_UNKNOWN_END = -5   /**< the program has ended, but another part of the process took its status */
};

/**
 * Runs a program without a shell, captures what it prints, and waits until it has ended or the time is over.
 *
 * The program is the first process of a process group of its own. When the time is over the whole group is
 * killed with SIGKILL, and so is the program if it has left the group. When the program ends in time, what it
 * has printed until then is captured, and processes that it leaves behind are neither waited for nor killed.
 *
 * The program reads an empty standard input. Its signals are as for kelo_system_call(): none is blocked, and
 * SIGPIPE and SIGCHLD have their default actions. The function keeps no state and logs nothing.
 *
 * @param arguments    the words of the command, with a null pointer after the last one. The first is the path
 *                     of the program, or a name without a slash, which is searched for in PATH. The words are
 *                     not interpreted.
 * @param timeout_ms   limit of time for the whole run in milliseconds, 1 or more.
 * @param output       receives standard output and standard error together, in the order of printing, and
 *                     terminated. Null: nothing is captured. It holds the empty text when nothing was printed
 *                     or nothing was started.
 * @param output_size  size of `output` in bytes. What does not fit is read and dropped. With less than 2
 *                     nothing is captured.
 * @param code         receives the exit code or the number of the signal; unchanged with every other result
 *                     than 0 and 1. It may be null.
 * @retval 0   ::KELO_RUN_EXITED: the program has ended, with the exit code in `*code`.
 * @retval 1   ::KELO_RUN_KILLED: a signal has ended the program.
 * @retval -1  ::KELO_RUN_NOT_STARTED. A file that is no program, and a script without "#!", is not started.
 * @retval -2  ::KELO_RUN_TIMED_OUT. What was printed before is in `output`.
 * @retval -3  ::KELO_RUN_BAD_ARGUMENT: null `arguments`, no first word or an empty one, or `timeout_ms` below
 *             1.
 * @retval -4  ::KELO_RUN_NOT_FOUND.
 * @retval -5  ::KELO_RUN_UNKNOWN_END: the process ignores SIGCHLD, or another thread has waited for every
 *             child.
 * @par Blocking
 * It blocks until the program has ended, for `timeout_ms` at most, and after a kill until the kernel has ended
 * the program.
 * @par Threads
 * Any thread may call it at any time. SIGCHLD is blocked in the calling thread meanwhile. It is not for signal
 * handlers.
 */
KELO_API int32_t kelo_run(const char* const* arguments, int32_t timeout_ms, char* output, int32_t output_size,
                          int32_t* code);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_RUN_H */
