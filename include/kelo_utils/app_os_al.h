/**
 * @file app_os_al.h
 * @brief What daemons need of the operating system: text, hexadecimal and shell helpers, supervised commands.
 */
#ifndef KELO_UTILS_APP_OS_AL_H
#define KELO_UTILS_APP_OS_AL_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Text and hexadecimal
 *
 * Helpers on NUL-terminated text in buffers of the caller. None of them allocates, blocks or takes a lock
 * (unless it logs), so each may be called from any thread at once on different texts. Source and destination
 * must not overlap. Bytes above 127 are treated alike whether `char` is signed or not. A null argument for
 * which no result is given below is logged as an error, "<function> param NULL", and gives the function's
 * failure result.
 * @{
 */

/**
 * Copies text into a buffer, cut to its size and always terminated.
 * @param destination  buffer of `size` bytes.
 * @param source       text.
 * @param size         size of the buffer in bytes; 0 writes nothing, 1 only the terminator.
 * @return length of `source`: `size` or more means that the copy was cut; 0 when a pointer is null.
 */
KELO_API size_t kelo_strlcpy(char* destination, const char* source, size_t size);

/**
 * Appends text to the text in a buffer, cut to its size and terminated.
 * @param destination  buffer of `size` bytes that holds text; without a terminator in them it is left alone.
 * @param source       text to append.
 * @param size         size of the whole buffer in bytes, not of the room left.
 * @return length of the text in `destination` before the call (at most `size`) plus that of `source`: `size`
 *         or more means that the result was cut; 0 when a pointer is null.
 */
KELO_API size_t kelo_strlcat(char* destination, const char* source, size_t size);

/**
 * Fills a field of fixed width: text, then zeros up to the width.
 *
 * Text of `n` or more characters fills the field and leaves it without a terminator.
 *
 * @param destination  field of `n` bytes. Null logs the error "Invalid string parameter." and does nothing.
 * @param source       text, of which at most `n` bytes are read. Null as for `destination`.
 * @param n            width of the field in bytes.
 */
KELO_API void kelo_string_memcpy(char* destination, const char* source, size_t n);

/**
 * Copies UTF-8 text into a buffer without ever cutting a character in two.
 *
 * Characters are told apart by their first byte alone: the bytes after it are taken as they are. A character
 * that the end of the text cuts off is left out, as one that does not fit.
 *
 * A null `destination` or `source` and a `size` of 0 are fatal programming errors: the process prints the
 * source path and line, and aborts.
 *
 * @param destination  buffer of `size` bytes; always terminated.
 * @param source       UTF-8 text.
 * @param size         size of the buffer in bytes, not 0.
 * @param copied       receives the bytes copied, terminator not counted; may be null.
 * @retval 0   the whole text was copied; or it holds a byte that starts no character before anything had to
 *             be left out: `destination` is then the empty text and `*copied` is 0.
 * @retval -1  a character did not fit or was cut off: `destination` holds the whole characters before it.
 */
KELO_API int kelo_utf8_Copy(char* destination, const char* source, size_t size, size_t* copied);

/**
 * Tells how long a UTF-8 character is.
 * @param lead  its first byte.
 * @return 1 to 4 bytes; 0 for a byte that starts no character (0x80 to 0xBF and 0xF8 to 0xFF).
 */
KELO_API int kelo_utf8_NumBytesInChar(char lead);
/** @} */

/**
 * @name Shell commands
 * @{
 */
/** @} */

/**
 * @name Supervised commands
 * @{
 */
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_APP_OS_AL_H */
