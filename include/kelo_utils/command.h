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
 * Command lines for the shell, "/bin/sh -c", as they stand: quoting of file names and arguments is the
 * caller's business, and text from outside belongs into kelo_ds_system_call3() instead. The command inherits
 * the caller's environment, its streams but for the one that is captured or closed, and every descriptor that
 * is not close-on-exec; the library adds none. It starts with no signal blocked and with the default action of
 * SIGPIPE and SIGCHLD, whatever the caller has set; it ignores what other signals the caller ignores.
 *
 * All functions block until the shell has ended, however long that takes, may be called by several threads at
 * once, and leave neither a descriptor nor a zombie behind. A signal that the caller handles shortens no wait
 * and loses no output. Failures are logged as errors, the steps of a command and what it printed as debug
 * messages. A process that ignores SIGCHLD sees no exit status: kelo_system_call() and kelo_system_call_ex()
 * return -1 in it, although the command has run.
 *
 * The calling thread blocks SIGCHLD during the call, so that a handler which waits for every child of the process
 * does not take the command's status. In a program with several threads such a handler may run in another one,
 * and the result is -1 then as above: block SIGCHLD in the other threads, or let the handler wait for the
 * children that the program itself has started.
 * @{
 */

/**
 * Runs a shell command and reports its raw wait status.
 *
 * While the command runs the calling process ignores SIGINT and SIGQUIT, as with the C library's system(); of
 * calls in several threads at once the one that began first ends that. A program that has system() itself run in
 * another thread at the same time may be left with the two signals ignored.
 *
 * @param command  the command. Null is logged, "kelo_system_call param NULL", and refused.
 * @param length   its length in bytes, terminator not counted, as the caller counted it: a guard against text
 *                 that was cut or not terminated. Another length than the text has is logged and refused.
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or no process was to be had or waited for.
 * @return otherwise the raw status: 256 times the exit code (1 gives 256; 32512 is the shell's word for a
 *         command that it did not find), or the number of the signal that ended the shell, plus 128 with a
 *         core dump.
 */
KELO_API int kelo_system_call(const char* command, uint32_t length);

/**
 * Formats a shell command and runs it as kelo_system_call() does, under whose name the run is logged.
 *
 * A command that does not fit is cut, and run as what is left of it: have room for the longest.
 *
 * @param buffer  receives the command, NUL-terminated. The command must not be formatted from it.
 * @param size    bytes of `buffer`: at most `size` - 1 characters of the command are kept.
 * @param format  printf-style format of the command, with its arguments behind it.
 * @return what kelo_system_call() returns for the text in `buffer`; -1, with an error logged and without
 *         running anything, for a null `buffer` or `format`, a `size` of 0 or less and arguments that cannot
 *         be formatted.
 */
KELO_API int kelo_system_call_var_arg(char* buffer, int32_t size, const char* format, ...) KELO_PRINTF(3, 4);

/**
 * Runs a shell command that has nothing to read and reports its exit code.
 *
 * The command's standard input is a pipe that ends at once. Unlike kelo_system_call() it leaves SIGINT and
 * SIGQUIT alone.
 *
 * @param command  the command. Null is logged, "kelo_system_call_ex param NULL", and refused.
 * @param length   its length in bytes, as for kelo_system_call().
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or the end of the command could not be waited for. Where no process was to be had
 *              the result is logged after that failure, "system command failed, rc=-1 errno: ...".
 * @return otherwise the exit code itself, 1 to 255; or, when a signal ended the shell, the raw status: the
 *         number of the signal, plus 128 with a core dump.
 */
KELO_API int kelo_system_call_ex(const char* command, uint32_t length);

/**
 * Runs a shell command and captures the lines that it prints on its standard output.
 *
 * Lines are appended to the result, with their newlines, for as long as they fit: the first that does not is
 * dropped whole, logged, and ends the reading. A line of more than `size` - 2 bytes is taken in pieces of
 * that many bytes, each of which counts as a line. Of a line, or such a piece, with a NUL byte only what
 * stands before that is kept.
 *
 * As soon as nothing more is read (at once without a result) the pipe is closed: a command that prints more
 * may be ended by SIGPIPE before its work is done. Redirect what is not wanted. Output is read until everyone
 * who holds it has closed it, a process that the command leaves in the background included.
 *
 * @param command  the command. Null is logged and refused.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that it is always
 *                 terminated. Null: nothing is read. On failure it is as it was.
 * @param size     bytes of `result`. With 1 or 2 no line fits and the result is empty; with 0 or less
 *                 `result` is left alone. Memory of that size is allocated for the time of the call.
 * @retval 0   the command ran. Its exit status is not examined: a command that fails and prints nothing gives
 *             an empty result.
 * @retval -1  null command, no memory, descriptor or process to be had.
 */
KELO_API int kelo_popen_call(const char* command, char* result, int32_t size);

/**
 * Runs a shell command, waits a second, and captures what it prints on its standard output.
 *
 * The call never takes less than that second, which callers count on for a command that takes effect in the
 * background. All output is read to its end, as for kelo_popen_call(), and what does not fit is lost. It is
 * read in lines of at most 510 bytes, longer ones in pieces: of each with a NUL byte only what stands before
 * that is kept.
 *
 * @param command  the command.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that it is always
 *                 terminated. On failure it is as it was.
 * @param size     bytes of `result`, of which at most `size` - 2 are filled with text. With 1 the reading
 *                 ends behind the first line; with 0 or less `result` is left alone.
 * @retval 0   the command ran. Its exit status is not examined.
 * @retval -1  null command or result, no memory, descriptor or process to be had; the second is not waited
 *             for then.
 */
KELO_API int kelo_popen_call_ex(const char* command, char* result, int32_t size);

/**
 * Counts the processes whose line in the output of `ps` holds a name, by "ps | grep -v grep | grep -c" and
 * the name.
 *
 * Whatever `ps` shows without options counts: which processes, and whether their arguments are searched too.
 * The name is a basic regular expression that matches anywhere in a line, so that a part of another name
 * counts, and it is a piece of shell text: one with blanks or quotes is split by the shell. A process with
 * "grep" in its line is never counted.
 *
 * @param name  the name, at most 99 bytes. A longer one is a fatal programming error: the process prints the
 *              source path and line, and aborts. Null is logged, "kelo_check_process_exist param NULL".
 * @retval -1  the count could not be read, as nothing was printed; or `name` is null.
 * @return otherwise how many; 0 too when the command could not be started, which is not logged.
 */
KELO_API int kelo_check_process_exist(const char* name);
/** @} */

/**
 * @name Supervised commands
 * @{
 */

/**
 * Runs one of a fixed set of system tools without a shell, captures what it prints, and kills it when it
 * falls silent.
 *
 * The first word of the command names the program: iptables, ip6tables, ip, ifconfig, tc, rm, echo, ls and
 * sleep stand for the system's own tools at their fixed places, ndc is found through the process's search
 * path, and a word that contains "/bin" or "/sbin" anywhere is started as the path that it is. Any other
 * first word, one in other letter case included, is refused without a log line. No shell interprets the text:
 * quotes, wildcards and redirections reach the program as they stand, and only spaces separate words.
 *
 * The program inherits the caller's standard input and environment, and starts with the signals that a shell
 * command starts with. Its standard output and standard error
 * are captured together, in the order in which it wrote them. What it leaves running in the background counts
 * as part of it, unless that closes all descriptors it inherited.
 *
 * Blocks until the command has ended, or has been silent for 2 seconds: neither a byte nor the end of its
 * output. A command that keeps printing may run for ever; one that is silent longer gets SIGKILL. A killed
 * command is not waited for: the calling process reaps it, with waitpid() or by ignoring SIGCHLD. One that has been
 * reaped by then, because it left a silent background, is not killed: no other process gets the signal, although it
 * may have the number by then. On a kernel before 5.3 that holds as long as no other thread reaps at that very moment
 * and starts a child that is given the number. A signal that interrupts the wait starts the 2 seconds anew. A process
 * that ignores SIGCHLD never sees an exit code, so that every command counts as failed; of a handler that waits for
 * every child the same holds as for shell commands.
 *
 * May be called by several threads at once. Every line logged about a running command carries the function
 * name "kelo_ds_exec_internal" and the calling thread, those about a program that could not be started
 * included.
 *
 * @param command     the command line, at most 511 characters and 31 words, the program included. Runs of
 *                    spaces count as one, leading and trailing ones as none. A 32nd word makes the child exit
 *                    with 255 instead of starting the program. Null is logged and refused.
 * @param reserved    ignored.
 * @param output      receives the output, NUL-terminated; null discards it. Nothing is written before the
 *                    first byte arrives: after a command that prints nothing the buffer is as it was.
 * @param output_size bytes of `output`: `output_size` - 1 bytes are kept and what is beyond them is dropped.
 *                    With 1, 0 or less the buffer is left alone.
 * @param verbose     non-zero logs the command before it is run.
 * @retval 0          the program ran and exited with code 0.
 * @retval -1         anything else: refused, too long, no memory, descriptor or process to be had, not
 *                    startable, silent for too long, exit code other than 0, death by a signal. What was
 *                    captured until then, error messages included, is in `output`.
 */
KELO_API int kelo_ds_system_call3(const char* command, int32_t reserved, char* output, int32_t output_size,
                                  int verbose);

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_COMMAND_H */
