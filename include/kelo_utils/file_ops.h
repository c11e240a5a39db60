/**
 * @file file_ops.h
 * @brief Files and devices: small files and device nodes served in one call, and directory paths made.
 *
 * For files of the kernel (procfs, sysfs, device nodes) and small state files. What holds for all functions,
 * unless a description says otherwise:
 * - Each call opens, works and closes; nothing is kept between calls, and several threads may call at once.
 * - A call blocks for as long as the file does: a FIFO or a device may make it wait for its other end. A
 *   signal that the caller handles ends no wait and loses no data. A FIFO whose reader leaves is a write that
 *   fails: SIGPIPE is held off from the calling thread while it writes.
 * - Failures are logged as errors, once each. A null pointer is logged, "<function> param NULL", and refused
 *   before anything is opened.
 * - A process without a standard input is refused like one that has no descriptors left, as the file would
 *   take the place of that input.
 */
#ifndef KELO_UTILS_FILE_OPS_H
#define KELO_UTILS_FILE_OPS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Failures of the functions that read, write and ask. Success is 0. */
enum { KELO_FILE_NOT_OPENED = 4, KELO_FILE_NOT_READ = 6, KELO_FILE_NOT_WRITTEN = 7 };

/**
 * @name Reading
 * @{
 */

/**
 * Reads a small file, or the start of a larger one, by a single read.
 *
 * A newline at the end of what was read is replaced by a terminator. Nothing else is terminated, and what is
 * behind stays as it was: for text, pass a zeroed buffer and a `size` one less than it has.
 *
 * @param path    the file. Null gives ::KELO_FILE_NOT_OPENED.
 * @param buffer  receives at most `size` bytes. On failure it is as it was. Null gives ::KELO_FILE_NOT_READ.
 * @param size    bytes to read at most; with 0 none are.
 * @retval 0   read, an empty file included: `buffer` is then as it was.
 * @retval ::KELO_FILE_NOT_OPENED  logged as "open <path> failed."
 * @retval ::KELO_FILE_NOT_READ    logged as "read <path> failed.", as for a directory.
 */
KELO_API int kelo_read_file(const char* path, void* buffer, size_t size);

/**
 * Reads a file as kelo_read_file() does, and tells how much there was.
 * @param path    the file.
 * @param buffer  receives at most `size` bytes, of which a newline at the end is replaced by a terminator. On
 *                failure it is as it was.
 * @param size    bytes to read at most; with 0 none are.
 * @return bytes kept in `buffer`, a replaced newline not counted; 0 for an empty file and for a single
 *         newline.
 * @retval -1  the file could not be opened ("open <path> failed.") or not read ("read <path> failed.", also
 *             for a negative `size`), or a pointer is null. A driver that claims to have given more than
 *             `size` bytes fails with that number as the result.
 */
KELO_API int kelo_read_file_with_reading_length_returned(const char* path, void* buffer, int32_t size);
/** @} */

/**
 * @name Writing
 *
 * The bytes go over the start of the file, and what they do not cover stays: "1" written to a file that holds
 * "100" leaves "100". Nothing is truncated or replaced, which is what files of the kernel need; a state file
 * wants records of one size.
 *
 * What the system takes in several pieces is written to its end. When a piece fails, those before it have
 * been written.
 *
 * With a `length` of 0 the file is opened, or made, and nothing is written.
 * @{
 */

/**
 * Writes bytes over the start of a file that is there.
 * @param path    the file. Null gives ::KELO_FILE_NOT_OPENED.
 * @param data    the bytes. Null gives ::KELO_FILE_NOT_WRITTEN, whatever the `length`.
 * @param length  number of bytes.
 * @retval 0   all are written.
 * @retval ::KELO_FILE_NOT_OPENED   logged as "open <path> failed.", as for a file that is not there.
 * @retval ::KELO_FILE_NOT_WRITTEN  logged as "write <path> failed."; also when the file takes nothing of what
 *                                  is left.
 */
KELO_API int kelo_write_file(const char* path, const void* data, size_t length);

/**
 * Writes as kelo_write_file() does, and waits until the bytes are on the storage (O_DSYNC).
 * @param path    as for kelo_write_file().
 * @param data    as for kelo_write_file().
 * @param length  number of bytes.
 * @return as kelo_write_file().
 */
KELO_API int kelo_write_file_sync(const char* path, const void* data, size_t length);

/**
 * Writes as kelo_write_file_sync() does, and makes the file if there is none.
 *
 * A new file has the permissions 0777, less those that the process's umask takes away. The folder that it is
 * in is not written to the storage: after a power cut a new file may be missing.
 *
 * @param path    as for kelo_write_file().
 * @param data    as for kelo_write_file().
 * @param length  number of bytes.
 * @return as kelo_write_file(); ::KELO_FILE_NOT_OPENED when the file can be neither opened nor made.
 */
KELO_API int kelo_write_file_sync_create(const char* path, const void* data, size_t length);
/** @} */

/**
 * @name Devices
 * @{
 */

enum {
  /** Bytes of the IRIG-B time-code device's configuration record. */
  KELO_IRIG_B_CONFIG_SIZE = 50
};

/**
 * Makes one request, an ioctl(), to a device node.
 *
 * The request is made once, also when a signal interrupts it.
 *
 * @param path      the node, opened for reading and writing. Null gives ::KELO_FILE_NOT_OPENED.
 * @param request   number of the request.
 * @param argument  goes to the driver as it is; may be null.
 * @retval 0   the driver returned 0.
 * @retval ::KELO_FILE_NOT_OPENED  logged as "open <path> failed."
 * @retval -1  the driver returned anything else: logged as "ioctl cmd <request> failed.", with the number as
 *             a signed long.
 */
KELO_API int kelo_ioctl_file(const char* path, unsigned long request, void* argument);

/**
 * Configures the IRIG-B time-code device, "/dev/kelo_irig_b_config", by its request 0x40325A1E.
 *
 * Unlike the other functions this one works without a standard input.
 *
 * @param config  record of ::KELO_IRIG_B_CONFIG_SIZE bytes, whose layout is the driver's. Null is logged as
 *                the debug message "input error.".
 * @return the driver's result, 0 for success; another one is logged as "ioctl cmd fail.".
 * @retval -1  also when the node cannot be opened, the debug message "open /dev/kelo_irig_b_config fail.",
 *             and for a null `config`.
 */
KELO_API int kelo_irig_b_ioctl(const void* config);

/**
 * Tells whether the flash memory is an MTD device: whether "mtd" occurs in /proc/partitions, looked up by a
 * shell command.
 * @retval 1  it is.
 * @retval 0  it is not, or the partitions cannot be read.
 * @retval 4  the shell cannot be started, which is not logged.
 */
KELO_API int get_flash_type(void);
/** @} */

/**
 * @name Directories
 * @{
 */

/**
 * Makes a directory and every missing one on the way to it.
 *
 * Whatever has the name already counts as made: a path that ends at a file succeeds. Directories made before
 * a failure stay.
 *
 * @param path  path of at most 511 bytes in UTF-8, absolute or relative, with or without one "/" at its end.
 *              A longer one, or one whose last character is cut off, is logged as "Directory path
 *              overflowed." and nothing is made.
 * @param mode  permissions of each directory that is made, less those that the process's umask takes away.
 *              Without the owner's right to write and search only the first can be made.
 * @retval 0   every directory is there.
 * @retval -1  a null or too long path; or one that cannot be made, logged as "Could not create directory
 *             '<path>'.": so are the empty path, the path "/", and one that is not UTF-8.
 */
KELO_API int dir_make_path(const char* path, mode_t mode);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_FILE_OPS_H */
