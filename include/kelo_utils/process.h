/**
 * @file process.h
 * @brief Processes, directories, files that hold one integer, and ping.
 *
 * Looks at the system and small changes to it. The functions keep no state and may be called by several
 * threads at once. They block for as long as the shell commands and the files that they use.
 */
#ifndef KELO_UTILS_PROCESS_H
#define KELO_UTILS_PROCESS_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Finds a process by its name: the number at the start of the first line that the shell prints for
 * "ps -e | grep <name> | grep -v grep".
 *
 * The name is a basic regular expression that matches anywhere in a line of `ps -e`, so that a part of
 * another name counts, as do digits of an id or of a time. It is a piece of shell text: one with blanks or
 * quotes is split by the shell. One with a line end or one of ; & | < > $ \ ` ( ) is not found, and nothing is
 * run for it. A process with "grep" in its line is
 * not found. `ps -e` must print the process id first in each line; names that it cuts cannot match behind the
 * cut. Of the first line only 255 bytes are looked at.
 *
 * @param name  the name, at most 227 bytes, with which the command and its terminator fill 256. Null is
 *              logged as the error "oem_get_pid_by_name param NULL".
 * @return the process id. A number beyond the range of an int gives the end of that range.
 * @retval -1  no line has the name, or the first such line does not begin with a number (white space before
 *             it is skipped); `name` is null; or the command is too long or cannot be started, which is
 *             logged as the error "command popen error!!!": a longer command is not run at all.
 */
KELO_API int32_t oem_get_pid_by_name(const char* name);

/**
 * Makes a directory, and every missing one on the way to it, unless the path is there already.
 *
 * Says in the log what became of it, with the path as it was passed: the debug message "Directory <path>
 * already exists." for a file of any kind, "Directory <path> created.", or the error "Directory <path>
 * creation error.". Directories on the way that were made before a failure stay.
 *
 * What counts is the last step. Where another process makes the directory at the same moment, or the path
 * ends in two slashes, that step finds the directory there and is logged as an error.
 *
 * @param path  path of at most 255 bytes, absolute or relative, with or without one "/" at its end, which
 *              counts. A longer one that is not there is an error and nothing is made; so is the empty one.
 *              Each directory gets the permissions 0777, less those that the process's umask takes away. Null
 *              is logged as the error "oem_create_and_check_directory param NULL".
 */
KELO_API void oem_create_and_check_directory(const char* path);

/**
 * Reads a file that holds one decimal integer, such as a switch of the kernel.
 *
 * The number stands at the start of the file, behind any white space, with a sign or without, and ends at the
 * first other character. It is looked for in the first 256 bytes, and not behind a NUL byte. A number beyond
 * the range of 32 bits gives INT32_MAX or INT32_MIN. The text is logged as the debug message "read
 * content:<text>".
 *
 * @param path  the file. A pipe is waited for.
 * @return the number; 0 when the file does not begin with one, is empty, or cannot be read, as a directory.
 * @retval 0  `path` is null, logged as the error "Not exist file"; or the file cannot be opened, "Not exist
 *            file=<path>". This cannot be told from a file that holds 0.
 */
KELO_API int32_t kelo_util_get_file_int_value(const char* path);

/**
 * Makes a file hold one decimal integer and nothing else, without a line end.
 *
 * The file is truncated or made (permissions 0666, less those that the process's umask takes away), written,
 * and forced to the storage; the folder that it is in is not. A power cut in between may leave it empty,
 * which reads as 0. What has no storage, as a pipe, a device or a file of /proc, need not be forced there.
 *
 * @param path   the file. A pipe waits for its reader; one whose reader leaves is a write that fails.
 * @param value  the number.
 * @retval 0  the file holds the number.
 * @retval 7  `path` is null, logged as the error "Not exist file"; the file cannot be opened, "Not exist
 *            file=<path>"; or a write, the forcing or the closing failed, "fwrite() failed, only [<bytes
 *            written>] written, total_len=[<bytes>], reason=[<error text>]<error number>", without a line
 *            end.
 */
KELO_API int kelo_util_set_file_int_value(const char* path, int32_t value);

/**
 * Asks whether a host answers ping.
 *
 * Runs "ping -c 2 -W 3 <host> > /dev/null 2>&1" by kelo_system_call_ex(), at most three times until it
 * succeeds, and logs the debug message ">>>ping status:success>>>" or ">>>ping status:fail>>>" behind each
 * try. What counts as an answer is the `ping` program's to say: usually one reply to two requests. Blocks for
 * as long as that takes, some 12 seconds for a host that is silent.
 *
 * @param host  address or name. It is a piece of shell text: options may stand before it, and one from outside is
 *              to be checked first, for example with is_valid_ip(). Each try with a line end or one of
 *              ; & | < > $ \ ` ( ) in it fails without running anything. At most 223 bytes, with which the command and its terminator fill
 *              256; each try with a longer one fails without running anything, as
 *              kelo_system_call_ex() refuses a command of another length.
 * @retval 0   the host answered.
 * @retval -1  three tries failed, also because there is no `ping`, or no process was to be had.
 * @retval 3   `host` is null; nothing is logged.
 */
KELO_API int kelo_ping_state(const char* host);

KELO_END_DECLS

#endif /* KELO_UTILS_PROCESS_H */
