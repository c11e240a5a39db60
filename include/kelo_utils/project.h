/**
 * @file project.h
 * @brief The name of the hardware project and the features that the build of the library supports.
 *
 * Which hardware this is and what the build of the library supports. May be called by several threads at
 * once, on different buffers.
 */
#ifndef KELO_UTILS_PROJECT_H
#define KELO_UTILS_PROJECT_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Finds the name of the hardware project (board variant): in the kernel's command line behind the key
 * "kelo.project", or else in the file "/tmp/non_signal_info", which is written at boot.
 *
 * The command line, "/proc/cmdline", is read anew in each call: its first 2047 bytes up to a NUL, without one
 * line feed at their end. The key counts wherever it occurs first, in the middle of a longer word too. All
 * equals signs, spaces and tabs behind it are skipped, and the name goes on to the next space or tab, or to
 * the end. It is logged as the debug message "Project Name: <name>".
 *
 * Without the key the error "Could not find oem.project in <command line>" is logged, which names that key
 * in either function; with nothing behind it the error "Only containe space in <command line>". Both are
 * followed by the error "get project name from cmdline failed", as is a `max_len` of 0 or less, and by a look
 * at the file:
 *
 * - The file is read in chunks of 2048 bytes, and the first that holds "project" is taken and logged as the
 *   debug message "Project Name: <chunk>". Each one before it logs the error "can't not match project". A
 *   chunk counts up to its first NUL, and what falls on the border of two chunks is not found.
 * - A last chunk of less than 2048 bytes overwrites the start of the one before it only, and is looked at
 *   together with the rest of that.
 * - The name is the word behind the first equals sign of the chunk, whatever stands before that, up to white
 *   space: of "model=A project=B" the name is "A". White space in front of it is skipped.
 * - A chunk without an equals sign, with one as its first character or without a word behind it is a success
 *   that leaves `name` as it was: give it a content of your own before the call.
 *
 * Reads files, and so may block for a moment.
 *
 * @param name     receives the name; not terminated when it fills the buffer, whether it just fits or is cut
 *                 off. What is behind the terminator stays as it was, and a failure leaves all of it. Null
 *                 is refused without a message.
 * @param max_len  bytes of `name` that may be written; a zeroed buffer of one more is always terminated. With
 *                 0 or less nothing is written, and the result is that of the file.
 * @retval 0   `name` holds the name, but for the exceptions above.
 * @retval -1  a null `name`, or neither the command line nor the file has one; no file is not logged.
 */
KELO_API int kelo_get_project_name_cmdline(char* name, int32_t max_len);

/**
 * Finds the name of the hardware project as kelo_get_project_name_cmdline() does, by the key "oem.project".
 *
 * @param name     as for kelo_get_project_name_cmdline().
 * @param max_len  as for kelo_get_project_name_cmdline().
 * @return as for kelo_get_project_name_cmdline().
 */
KELO_API int kelo_get_project_name_cmdline_oem_version(char* name, int32_t max_len);

/**
 * Tells whether the build of the library is for device model A.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_A(void);

/**
 * Tells whether the build of the library is for device model B.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_B(void);

/**
 * Tells whether the build of the library is for device model C.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_C(void);

/**
 * Tells whether the build of the library supports a status LED.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_STATUS_LED(void);

/**
 * Tells whether the build of the library supports a main network link.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_LINK_MAIN(void);

/**
 * Tells whether the build of the library supports an auxiliary network link.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_LINK_AUX(void);

/**
 * Tells whether the build of the library senses the presence of USB.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_USB_SENSE(void);

/**
 * Tells whether the build of the library controls a fan.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_FAN_CTRL(void);

KELO_END_DECLS

#endif /* KELO_UTILS_PROJECT_H */
