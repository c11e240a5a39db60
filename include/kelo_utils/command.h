/* SPDX-License-Identifier: MIT */
/**
 * @file command.h
 * @brief Commands for the shell, and supervised system tools that run without a shell.
 */
#ifndef KELO_UTILS_COMMAND_H
#define KELO_UTILS_COMMAND_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Shell commands
 *
 * These functions hand a command line to the shell, "/bin/sh -c", without a change. The caller quotes file
 * names and arguments. Text from outside must not be part of a shell command: use kelo_ds_system_call3() for
 * it.
 *
 * The command inherits the environment of the caller, its streams (except the one that is captured or closed)
 * and every descriptor that is not close-on-exec. The library adds no descriptor. The command starts with no
 * signal blocked and with the default action of SIGPIPE and SIGCHLD, whatever the caller has set. Other
 * signals that the caller ignores are ignored by the command, too.
 *
 * No function leaves a descriptor or a zombie process after it returns. A signal that the caller handles does
 * not shorten a wait and loses no output. Failures are logged as errors. The steps of a command and what it
 * printed are logged as debug messages.
 *
 * A process that ignores SIGCHLD gets no exit status: kelo_system_call() and kelo_system_call_ex() return -1
 * in such a process, although the command has run.
 *
 * The calling thread blocks SIGCHLD during the call, so that a handler that waits for every child of the
 * process does not take the status of the command. In a program with several threads such a handler may run
 * in another thread, and the result is then -1 as well. To prevent this, block SIGCHLD in the other threads,
 * or let the handler wait only for the children that the program itself has started.
 * @{
 */

/**
 * Runs a shell command and reports its raw wait status.
 *
 * While the command runs, the calling process ignores SIGINT and SIGQUIT, as with system() of the C library.
 * When several threads call at once, the call that began first ends this. A program whose other thread runs
 * system() at the same time may be left with the two signals ignored.
 *
 * @param command  the command. Null is logged, "kelo_system_call param NULL", and refused.
 * @param length   length of the command in bytes, without the terminator, as the caller counted it. It
 *                 protects against text that was cut or is not terminated: a length that is not that of the
 *                 text is logged and refused.
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or a process could not be created or waited for.
 * @return otherwise the raw status: 256 times the exit code, or the number of the signal that ended the
 *         shell, plus 128 with a core dump. For example exit code 1 gives 256; 32512 means that the shell did
 *         not find the command.
 * @par Blocking
 * It blocks until the shell has ended, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_system_call(const char* command, uint32_t length);

/**
 * Formats a shell command and runs it as kelo_system_call() does. The run is logged under the name of that
 * function.
 *
 * A command that does not fit is cut, and the part that is left is run. The buffer must be large enough for
 * the longest command.
 *
 * @param buffer  receives the command, NUL-terminated. The arguments must not point into it.
 * @param size    bytes of `buffer`: at most `size` - 1 characters of the command are kept.
 * @param format  printf-style format of the command; its arguments follow.
 * @return what kelo_system_call() returns for the text in `buffer`.
 * @retval -1  also for a null `buffer` or `format`, a `size` of 0 or less and arguments that cannot be
 *             formatted. An error is then logged and nothing is run.
 * @par Blocking
 * It blocks until the shell has ended, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_system_call_var_arg(char* buffer, int32_t size, const char* format, ...) KELO_PRINTF(3, 4);

/**
 * Runs a shell command that has nothing to read and reports its exit code.
 *
 * The standard input of the command is a pipe that is at its end at once. Unlike kelo_system_call() this
 * function does not change SIGINT and SIGQUIT.
 *
 * @param command  the command. Null is logged, "kelo_system_call_ex param NULL", and refused.
 * @param length   length of the command in bytes, as for kelo_system_call().
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or the end of the command could not be waited for. When no process could be
 *              created, the line "system command failed, rc=-1 errno: ..." is logged after that failure.
 * @return otherwise the exit code itself, 1 to 255; or, when a signal ended the shell, the raw status: the
 *         number of the signal, plus 128 with a core dump.
 * @par Blocking
 * It blocks until the shell has ended, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_system_call_ex(const char* command, uint32_t length);

/**
 * Runs a shell command and captures the lines that it prints on its standard output.
 *
 * Lines are appended to the result, with their newlines, as long as they fit. The first line that does not
 * fit is left out as a whole, is logged, and ends the reading. A line of more than `size` - 2 bytes is read
 * in pieces of that many bytes, and each piece counts as a line. When a line or a piece holds a NUL byte,
 * only the part before it is kept.
 *
 * The pipe is closed as soon as nothing more is read, which without a result is at once. A command that
 * prints more may then be ended by SIGPIPE before its work is done: redirect output that is not wanted.
 * Output is read until every process that holds the pipe has closed it, also a process that the command
 * leaves in the background.
 *
 * @param command  the command. Null is logged and refused.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that the text is
 *                 always terminated. Null: nothing is read. On failure it is unchanged.
 * @param size     bytes of `result`. With 1 or 2 no line fits and the result is empty. With 0 or less
 *                 `result` is unchanged. The call allocates memory of this size while it runs.
 * @retval 0   the command ran. Its exit status is not examined: a command that fails and prints nothing gives
 *             an empty result.
 * @retval -1  a null command, or no memory, descriptor or process was available.
 * @par Blocking
 * It blocks until the command has ended and its output is closed, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_popen_call(const char* command, char* result, int32_t size);

/**
 * Runs a shell command, waits one second, and captures what the command prints on its standard output.
 *
 * The call never takes less than this second. Callers rely on it for a command that takes effect in the
 * background. All output is read to its end, as for kelo_popen_call(), and what does not fit is lost. It is
 * read in lines of at most 510 bytes, and longer lines in pieces. When a line or a piece holds a NUL byte,
 * only the part before it is kept.
 *
 * @param command  the command. Null is logged and refused.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that the text is
 *                 always terminated. On failure it is unchanged. Null is logged and refused.
 * @param size     bytes of `result`, of which at most `size` - 2 are filled with text. With 1 the reading
 *                 ends after the first line. With 0 or less `result` is unchanged.
 * @retval 0   the command ran. Its exit status is not examined.
 * @retval -1  a null command or result, or no memory, descriptor or process was available. The second is then
 *             not waited for.
 * @par Blocking
 * It blocks at least one second, and until the command has ended and its output is closed, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_popen_call_ex(const char* command, char* result, int32_t size);

/**
 * Counts the processes whose line in the output of `ps` holds a name.
 *
 * The shell command is "ps | grep -v grep | grep -c" and the name. What `ps` shows without options is what
 * counts: it decides which processes are listed, and whether their arguments are searched, too. The name is a
 * basic regular expression that matches anywhere in a line, so that a part of another name counts. It is also
 * a piece of shell text: the shell splits a name with blanks or quotes. A process with "grep" in its line is
 * never counted.
 *
 * @param name  the name, at most 99 bytes. A longer name is a fatal programming error: the source path and
 *              line are printed on standard output and the process aborts. Null is logged,
 *              "kelo_check_process_exist param NULL".
 * @retval -1  the count could not be read because nothing was printed, or `name` is null.
 * @return otherwise the number of processes. It is also 0 when the command could not be started, which is not
 *         logged.
 * @par Blocking
 * It blocks until the shell command has ended.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_check_process_exist(const char* name);
/** @} */

/**
 * @name Supervised commands
 * @{
 */

/**
 * Runs one of a fixed set of system tools without a shell, captures what it prints, and kills it when it is
 * silent for too long.
 *
 * The first word of the command names the program. The words iptables, ip6tables, ip, ifconfig, tc, rm, echo,
 * ls and sleep mean the tools of the system at their fixed places. The word ndc is looked up in the search
 * path of the process. A word that contains "/bin" or "/sbin" anywhere is the path of the program. Any other
 * first word, also one in another letter case, is refused without a log line. No shell interprets the text:
 * quotes, wildcards and redirections reach the program unchanged, and only spaces separate words.
 *
 * The program inherits the standard input and the environment of the caller, and starts with the same signals
 * as a shell command. Its standard output and standard error are captured together, in the order in which the
 * program wrote them. A process that it leaves in the background counts as part of it, unless this process
 * closes all descriptors that it inherited.
 *
 * A command that is silent for 2 seconds, with neither a byte nor the end of its output, gets SIGKILL. A
 * killed command is not waited for: the calling process reaps it, with waitpid() or by ignoring SIGCHLD. A
 * command that left a silent process in the background and has been reaped by then is not killed: no other
 * process gets the signal, although it may have the same process id by then. On a kernel before 5.3 this
 * holds unless another thread reaps the command at that very moment and starts a child that gets the same
 * process id. A signal that interrupts the wait starts the 2 seconds again.
 *
 * In a process that ignores SIGCHLD every command counts as failed, because no exit code is seen. For a
 * handler that waits for every child, the description of the shell commands holds here, too.
 *
 * Every line that is logged about a running command carries the function name "kelo_ds_exec_internal" and the
 * calling thread; so do the lines about a program that could not be started.
 *
 * @param command     the command line: at most 511 characters and 31 words, the program included. Several
 *                    spaces count as one, and spaces at the start and the end are ignored. With a 32nd word
 *                    the child exits with code 255 and does not start the program. Null is logged and
 *                    refused.
 * @param reserved    ignored.
 * @param output      receives the output, NUL-terminated. Null discards it. Nothing is written before the
 *                    first byte arrives: after a command that prints nothing the buffer is unchanged.
 * @param output_size bytes of `output`: `output_size` - 1 bytes are kept, and the rest is dropped. With 1, 0
 *                    or less the buffer is unchanged.
 * @param verbose     0: the command is not logged. Any other value: the command is logged before it is run.
 * @retval 0          the program ran and exited with code 0.
 * @retval -1         any failure: the command was refused or too long; no memory, descriptor or process was
 *                    available; the program could not be started, was silent for too long, exited with
 *                    another code than 0 or was ended by a signal. `output` holds what was captured until
 *                    then, error messages included.
 * @par Blocking
 * It blocks until the command has ended or has been silent for 2 seconds. A command that keeps printing may
 * run without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_ds_system_call3(const char* command, int32_t reserved, char* output, int32_t output_size,
                                  int verbose);

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_COMMAND_H */
