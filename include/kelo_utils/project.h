/* SPDX-License-Identifier: MIT */
/**
 * @file project.h
 * @brief The name of the hardware project and the features that the build of the library supports.
 */
#ifndef KELO_UTILS_PROJECT_H
#define KELO_UTILS_PROJECT_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Finds the name of the hardware project (the variant of the board).
 *
 * The name follows the key "kelo.project" in the command line of the kernel. Without it, the file
 * "/tmp/non_signal_info", which is written at boot, is searched.
 *
 * Each call reads the command line, "/proc/cmdline", again: its first 2047 bytes up to a NUL, without one
 * line feed at their end. The first occurrence of the key counts, also in the middle of a longer word. All
 * equals signs, spaces and tabs after it are skipped, and the name ends at the next space or tab or at the
 * end. It is logged as the debug message "Project Name: <name>".
 *
 * Without the key the error "Could not find oem.project in <command line>" is logged, which names this key
 * for both functions. With nothing after the key the error "Only containe space in <command line>" is logged.
 * After either of them, and after a `max_len` of 0 or less, the error "get project name from cmdline failed"
 * is logged, and the file is searched:
 *
 * - The file is read in chunks of 2048 bytes. The first chunk that holds "project" is taken and logged as the
 *   debug message "Project Name: <chunk>". Each chunk before it logs the error "can't not match project". A
 *   chunk counts up to its first NUL. A word on the border of two chunks is not found.
 * - A last chunk of less than 2048 bytes overwrites only the start of the chunk before it, and the rest of
 *   that chunk is searched together with it.
 * - The name is the word after the first equals sign of the chunk, up to white space, whatever is before the
 *   sign: of "model=A project=B" the name is "A". White space before the name is skipped.
 * - A chunk without an equals sign, with one as its first character, or without a word after it gives success
 *   and leaves `name` unchanged: fill `name` before the call.
 *
 * @param name     receives the name. It is not terminated when the name fills the buffer or is cut. Bytes
 *                 after the terminator are unchanged, and so are all bytes after a failure. Null is refused
 *                 without a message.
 * @param max_len  bytes of `name` that may be written. A zeroed buffer with one byte more is always
 *                 terminated. With 0 or less nothing is written, and the result is that of the file.
 * @retval 0   `name` holds the name, except in the cases above.
 * @retval -1  `name` is null, or neither the command line nor the file has a name. A missing file is not
 *             logged.
 * @par Blocking
 * It blocks for the reads of the two files.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_get_project_name_cmdline(char* name, int32_t max_len);

/**
 * Finds the name of the hardware project as kelo_get_project_name_cmdline() does, by the key "oem.project".
 * @param name     as for kelo_get_project_name_cmdline().
 * @param max_len  as for kelo_get_project_name_cmdline().
 * @return as for kelo_get_project_name_cmdline().
 * @par Blocking
 * It blocks for the reads of the two files.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_get_project_name_cmdline_oem_version(char* name, int32_t max_len);

/**
 * Tells whether the build of the library is for device model A.
 * @return 0 for no. The build for a product that is this model returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_MODEL_A(void);

/**
 * Tells whether the build of the library is for device model B.
 * @return 0 for no. The build for a product that is this model returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_MODEL_B(void);

/**
 * Tells whether the build of the library is for device model C.
 * @return 0 for no. The build for a product that is this model returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_MODEL_C(void);

/**
 * Tells whether the build of the library supports a status LED.
 * @return 0 for no. The build for a product that has it returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_STATUS_LED(void);

/**
 * Tells whether the build of the library supports a main network link.
 * @return 0 for no. The build for a product that has it returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_LINK_MAIN(void);

/**
 * Tells whether the build of the library supports an auxiliary network link.
 * @return 0 for no. The build for a product that has it returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_LINK_AUX(void);

/**
 * Tells whether the build of the library senses the presence of USB.
 * @return 0 for no. The build for a product that does so returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_USB_SENSE(void);

/**
 * Tells whether the build of the library controls a fan.
 * @return 0 for no. The build for a product that does so returns another value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_support_FAN_CTRL(void);

KELO_END_DECLS

#endif /* KELO_UTILS_PROJECT_H */
