/* SPDX-License-Identifier: MIT */
/**
 * @file process.h
 * @brief Processes, directories, files that hold one integer, and ping.
 *
 * These functions ask the system and make small changes to it. They keep no state.
 */
#ifndef KELO_UTILS_PROCESS_H
#define KELO_UTILS_PROCESS_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Finds a process by its name.
 *
 * The result is the number at the start of the first line that the shell prints for "ps -e | grep <name> |
 * grep -v grep". `ps -e` must print the process id first in each line. Only 255 bytes of the first line are
 * examined.
 *
 * The name is a basic regular expression that matches anywhere in a line of `ps -e`. A part of another name
 * therefore counts, and so do digits of a process id or of a time. Where `ps` cuts a name, the part after the
 * cut cannot match. A process with "grep" in its line is not found. The name is also a piece of shell text:
 * the shell splits a name with blanks or quotes. A name with a line end or one of ; & | < > $ \ ` ( ) is not
 * found, and nothing is run for it.
 *
 * @param name  the name, at most 227 bytes: the command with its terminator then has 256 bytes. Null is
 *              logged as the error "oem_get_pid_by_name param NULL".
 * @return the process id. For a number outside the range of an int it is the nearest number in that range.
 * @retval -1  no line has the name, or the first such line does not begin with a number (white space before
 *             it is skipped); `name` is null; or the command is too long, and is then not run, or cannot be
 *             started. The last two are logged as the error "command popen error!!!".
 * @par Blocking
 * It blocks until the shell command has ended.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t oem_get_pid_by_name(const char* name);

/**
 * Makes a directory and every missing directory on its path, unless the path already exists.
 *
 * The result is only logged, with the path as it was passed: the debug message "Directory <path> already
 * exists." for a file of any kind, the debug message "Directory <path> created.", or the error "Directory
 * <path> creation error.". Directories on the path that were made before a failure stay.
 *
 * The last step decides. When another process makes the directory at the same moment, or when the path ends
 * in two slashes, this step finds an existing directory, and the error is logged.
 *
 * @param path  path of at most 255 bytes, absolute or relative, with or without one "/" at its end, which
 *              counts. A longer path that does not exist is an error, and nothing is made; so is the empty
 *              path. Each directory gets the permissions 0777 without those that the umask of the process
 *              removes. Null is logged as the error "oem_create_and_check_directory param NULL".
 * @par Blocking
 * It blocks for the accesses to the file system.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void oem_create_and_check_directory(const char* path);

/**
 * Reads a file that holds one decimal integer, such as a switch of the kernel.
 *
 * The number is at the start of the file, after any white space. It may have a sign, and ends at the first
 * other character. Only the first 256 bytes are examined, and only those before a NUL byte. A number outside
 * the range of 32 bits gives INT32_MAX or INT32_MIN. The text is logged as the debug message "read
 * content:<text>".
 *
 * @param path  the file.
 * @return the number; 0 when the file does not begin with a number, is empty, or cannot be read, as a
 *         directory.
 * @retval 0  also when `path` is null, logged as the error "Not exist file", and when the file cannot be
 *            opened, logged as the error "Not exist file=<path>". The caller cannot tell this from a file
 *            that holds 0.
 * @par Blocking
 * It blocks for the read of the file. A pipe is waited for.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_util_get_file_int_value(const char* path);

/**
 * Makes a file hold one decimal integer and nothing else, not even a line end.
 *
 * The file is truncated, or made with the permissions 0666 without those that the umask of the process
 * removes. It is then written and forced to the storage. The folder of the file is not forced to the storage.
 * After a power cut during the call the file may be empty, which reads as 0. A pipe, a device and a file of
 * /proc have no storage and are not forced.
 *
 * @param path   the file. When the reader of a pipe leaves, the write fails.
 * @param value  the number.
 * @retval 0  the file holds the number.
 * @retval 7  `path` is null, logged as the error "Not exist file"; or the file cannot be opened, logged as
 *            the error "Not exist file=<path>"; or the file could not be written, forced or closed, logged as
 *            the error "fwrite() failed, only [<bytes written>] written, total_len=[<bytes>], reason=[<error
 *            text>]<number>" without a line end.
 * @par Blocking
 * It blocks until the file is on the storage. A pipe waits for its reader.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_util_set_file_int_value(const char* path, int32_t value);

/**
 * Asks whether a host answers ping.
 *
 * The command "ping -c 2 -W 3 <host> > /dev/null 2>&1" is run by kelo_system_call_ex(), at most three times
 * until it succeeds. After each try the debug message ">>>ping status:success>>>" or ">>>ping status:fail>>>"
 * is logged. The `ping` program decides what counts as an answer: usually one reply to two requests.
 *
 * @param host  address or name, at most 223 bytes: the command with its terminator then has 256 bytes. It is
 *              a piece of shell text, and options may be before the host. Check a host from outside first,
 *              for example with is_valid_ip(). A host that is too long, or holds a line end or one of ; & | <
 *              > $ \ ` ( ), makes each try fail, and nothing is run.
 * @retval 0   the host answered.
 * @retval -1  three tries failed; also when there is no `ping`, or no process could be created.
 * @retval 3   `host` is null. Nothing is logged.
 * @par Blocking
 * It blocks for as long as the tries take: some 12 seconds for a host that does not answer.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_ping_state(const char* host);

KELO_END_DECLS

#endif /* KELO_UTILS_PROCESS_H */
