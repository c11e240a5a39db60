/* SPDX-License-Identifier: MIT */
/**
 * @file file_ops.h
 * @brief Small files and device nodes served in one call, and directory paths made.
 *
 * The functions are for files of the kernel (procfs, sysfs, device nodes) and for small state files. What
 * holds for all of them, unless a description says otherwise:
 * - Each call opens, works and closes; nothing is kept between calls.
 * - A call blocks for as long as the file does: a FIFO or a device may make it wait for its other end. A
 *   signal that the caller handles ends no wait and loses no data. When the reader of a FIFO leaves, a write
 *   fails: the calling thread gets no SIGPIPE while it writes.
 * - Each failure is logged once, as an error. A null pointer is logged, "<function> param NULL", and refused
 *   before anything is opened.
 * - A process without a standard input is refused like one that has no descriptors left, because the file
 *   would take the place of that input.
 */
#ifndef KELO_UTILS_FILE_OPS_H
#define KELO_UTILS_FILE_OPS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Failures of the functions that read, write and ask. Success is 0. */
enum {
  KELO_FILE_NOT_OPENED = 4, /**< the file could not be opened */
  KELO_FILE_NOT_READ = 6,   /**< the file could not be read */
  KELO_FILE_NOT_WRITTEN = 7 /**< the file could not be written */
};

/**
 * @name Reading
 * @{
 */

/**
 * Reads a small file, or the start of a larger one, by a single read.
 *
 * A newline at the end of what was read is replaced by a terminator. Nothing else is terminated, and bytes
 * after it are unchanged: for text, pass a zeroed buffer and a `size` that is one less than its size.
 *
 * @param path    the file. Null gives ::KELO_FILE_NOT_OPENED.
 * @param buffer  receives at most `size` bytes. On failure it is unchanged. Null gives ::KELO_FILE_NOT_READ.
 * @param size    greatest number of bytes to read; with 0 none are read.
 * @retval 0   read; also for an empty file, which leaves `buffer` unchanged.
 * @retval 4   ::KELO_FILE_NOT_OPENED, logged as "open <path> failed."
 * @retval 6   ::KELO_FILE_NOT_READ, logged as "read <path> failed.", for example for a directory.
 * @par Blocking
 * It blocks for as long as the file does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_read_file(const char* path, void* buffer, size_t size);

/**
 * Reads a file as kelo_read_file() does, and reports the number of bytes.
 * @param path    the file.
 * @param buffer  receives at most `size` bytes. A newline at their end is replaced by a terminator. On
 *                failure it is unchanged.
 * @param size    greatest number of bytes to read; with 0 none are read.
 * @return number of bytes in `buffer`, without a replaced newline; 0 for an empty file and for a single
 *         newline.
 * @retval -1  the file could not be opened ("open <path> failed.") or not read ("read <path> failed.", also
 *             for a negative `size`), or a pointer is null. When a driver reports more than `size` bytes, the
 *             call fails with that number as its result.
 * @par Blocking
 * It blocks for as long as the file does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_read_file_with_reading_length_returned(const char* path, void* buffer, int32_t size);
/** @} */

/**
 * @name Writing
 *
 * The bytes overwrite the start of the file, and the rest of the file does not change: "1" written to a file
 * that holds "100" leaves "100". The file is neither truncated nor replaced, as files of the kernel need it.
 * A state file therefore needs records of one size.
 *
 * When the system takes the bytes in several pieces, all of them are written. When a piece fails, the pieces
 * before it have been written.
 *
 * With a `length` of 0 the file is opened, or made, and nothing is written.
 * @{
 */

/**
 * Writes bytes over the start of an existing file.
 * @param path    the file. Null gives ::KELO_FILE_NOT_OPENED.
 * @param data    the bytes. Null gives ::KELO_FILE_NOT_WRITTEN, whatever `length` is.
 * @param length  number of bytes.
 * @retval 0   all bytes are written.
 * @retval 4   ::KELO_FILE_NOT_OPENED, logged as "open <path> failed.", also for a file that does not exist.
 * @retval 7   ::KELO_FILE_NOT_WRITTEN, logged as "write <path> failed."; also when the file accepts none of
 *             the bytes that are left.
 * @par Blocking
 * It blocks for as long as the file does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_write_file(const char* path, const void* data, size_t length);

/**
 * Writes as kelo_write_file() does, and waits until the bytes are on the storage (O_DSYNC).
 * @param path    as for kelo_write_file().
 * @param data    as for kelo_write_file().
 * @param length  number of bytes.
 * @return as kelo_write_file().
 * @par Blocking
 * It blocks until the bytes are on the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_write_file_sync(const char* path, const void* data, size_t length);

/**
 * Writes as kelo_write_file_sync() does, and makes the file if there is none.
 *
 * A new file has the permissions 0777 without those that the umask of the process removes. Its folder is not
 * forced to the storage: after a power cut a new file may be missing.
 *
 * @param path    as for kelo_write_file().
 * @param data    as for kelo_write_file().
 * @param length  number of bytes.
 * @return as kelo_write_file(); ::KELO_FILE_NOT_OPENED when the file can be neither opened nor made.
 * @par Blocking
 * It blocks until the bytes are on the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_write_file_sync_create(const char* path, const void* data, size_t length);
/** @} */

/**
 * @name Devices
 * @{
 */

enum {
  /** Bytes of the configuration record of the IRIG-B time-code device. */
  KELO_IRIG_B_CONFIG_SIZE = 50
};

/**
 * Makes one request, an ioctl(), to a device node. The request is made once, also when a signal interrupts
 * it.
 * @param path      the node, which is opened for reading and writing. Null gives ::KELO_FILE_NOT_OPENED.
 * @param request   number of the request.
 * @param argument  handed to the driver unchanged; may be null.
 * @retval 0   the driver returned 0.
 * @retval 4   ::KELO_FILE_NOT_OPENED, logged as "open <path> failed."
 * @retval -1  the driver returned any other value. It is logged as "ioctl cmd <request> failed.", with the
 *             number as a signed long.
 * @par Blocking
 * It blocks for as long as the file does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_ioctl_file(const char* path, unsigned long request, void* argument);

/**
 * Configures the IRIG-B time-code device, "/dev/kelo_irig_b_config", by its request 0x40325A1E.
 *
 * Unlike the other functions this one works without a standard input.
 *
 * @param config  record of ::KELO_IRIG_B_CONFIG_SIZE bytes, whose layout the driver defines. Null is logged
 *                as the debug message "input error.".
 * @return the result of the driver, 0 for success. Any other result is logged as "ioctl cmd fail.".
 * @retval -1  also when the node cannot be opened, which is logged as the debug message "open
 *             /dev/kelo_irig_b_config fail.", and for a null `config`.
 * @par Blocking
 * It blocks for as long as the file does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_irig_b_ioctl(const void* config);

/**
 * Tells whether the flash memory is an MTD device. A shell command looks for "mtd" in /proc/partitions.
 * @retval 1  it is one.
 * @retval 0  it is none, or the partitions cannot be read.
 * @retval 4  the shell cannot be started, which is not logged.
 * @par Blocking
 * It blocks until the shell command has ended.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int get_flash_type(void);
/** @} */

/**
 * @name Directories
 * @{
 */

/**
 * Makes a directory and every missing directory on its path.
 *
 * Any file that already has the name counts as made: a path that ends at a file succeeds. Directories that
 * were made before a failure stay.
 *
 * @param path  path of at most 511 bytes in UTF-8, absolute or relative, with or without one "/" at its end.
 *              A longer path, or one whose last character is cut off, is logged as "Directory path
 *              overflowed.", and nothing is made.
 * @param mode  permissions of each directory that is made, without those that the umask of the process
 *              removes. When the owner may not write and search, only the first directory can be made.
 * @retval 0   every directory is there.
 * @retval -1  the path is null or too long, or a directory cannot be made, which is logged as "Could not
 *             create directory '<path>'.". This includes the empty path, the path "/", and a path that is not
 *             UTF-8.
 * @par Blocking
 * It blocks for the accesses to the file system.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dir_make_path(const char* path, mode_t mode);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_FILE_OPS_H */
