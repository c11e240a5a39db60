/* SPDX-License-Identifier: MIT */
/**
 * @file unicode.h
 * @brief Conversions between UTF-8, UTF-16, UCS-2 and 8-bit text.
 *
 * The conversions keep no state and allocate no memory. Source and target must not overlap.
 *
 * 16-bit text is in the byte order of the machine. Its units may be at any address, also at an odd one: the
 * pointer to a byte array may be cast and passed.
 *
 * No size is trusted. A size that no array can have (above PTRDIFF_MAX, as a negative number becomes) counts
 * as 0. Nothing outside of what the arguments describe is read or written.
 */
#ifndef KELO_UTILS_UNICODE_H
#define KELO_UTILS_UNICODE_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Results of a conversion. In every case the target holds what was converted before the conversion ended. */
enum kelo_unicode_result {
  KELO_UNICODE_COMPLETE = 0,         /**< all of the source is converted */
  KELO_UNICODE_SOURCE_EXHAUSTED = 1, /**< the source ends within a character */
  KELO_UNICODE_TARGET_EXHAUSTED = 2, /**< the next character does not fit into the target */
  KELO_UNICODE_SOURCE_ILLEGAL = 3    /**< the source is ill-formed */
};

/** What a conversion from UTF-16 does with an unpaired surrogate. */
enum kelo_unicode_mode {
  KELO_UNICODE_STRICT = 0, /**< refuses it */
  KELO_UNICODE_LENIENT = 1 /**< converts it; every other value than 0 means the same */
};

/**
 * Converts UTF-16 to UTF-8 (RFC 3629), only whole characters, and adds no terminator.
 *
 * Zero units are characters like any other. A byte order mark is converted as the character U+FEFF.
 *
 * Both start pointers are moved to the end of what was converted. After a failure the source pointer points
 * to the first unit of the character that failed, and the target pointer to the byte after the last character
 * that was written. When a character fails in two ways, the failure of the source is reported: result 1 or 3,
 * not 2.
 *
 * An end that is before its start means an empty text or buffer.
 *
 * @param source_start  points to the start of the source, at any address. `*source_start` may be null when
 *                      `source_end` is null. Otherwise null logs the error "<function> param NULL", as a null
 *                      `target_start` or `*target_start` does, and nothing is changed.
 * @param source_end    end of the source. Half a unit before it is never read.
 * @param target_start  points to the start of the target. `*target_start` may be null when `target_end` is
 *                      null.
 * @param target_end    end of the target. Nothing is written at or after it.
 * @param flags         a ::kelo_unicode_mode. Lenient converts an unpaired surrogate to the three bytes ED A0
 *                      80 to ED BF BF, so that UCS-2 text is kept; strict refuses it.
 * @retval 0  ::KELO_UNICODE_COMPLETE.
 * @retval 1  ::KELO_UNICODE_SOURCE_EXHAUSTED: the source ends after a high surrogate, also in lenient mode,
 *            or in the middle of a unit.
 * @retval 2  ::KELO_UNICODE_TARGET_EXHAUSTED.
 * @retval 3  ::KELO_UNICODE_SOURCE_ILLEGAL: an unpaired surrogate in strict mode, or a null pointer.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_ConvertUTF16toUTF8(const uint16_t** source_start, const uint16_t* source_end,
                                          uint8_t** target_start, uint8_t* target_end, int flags);

/**
 * Converts UTF-8 (RFC 3629) to UTF-16, only whole characters, and adds no terminator.
 *
 * Zero bytes are characters like any other. A byte order mark is converted as the character U+FEFF.
 *
 * Both start pointers are moved to the end of what was converted. After a failure the source pointer points
 * to the first byte of the sequence that failed, and the target pointer to the unit after the last one that
 * was written. A pair of surrogates is written as a whole or not at all. When a sequence fails in two ways,
 * the failure of the source is reported: result 1 or 3, not 2.
 *
 * The first byte alone decides how long a sequence is: C0 to DF start two bytes, E0 to EF three, F0 to F7
 * four, F8 to FB five and FC to FF six, although some of these are always ill-formed. A source that ends
 * within this length is exhausted, whatever its bytes are. Only a complete sequence is examined.
 *
 * An end that is before its start means an empty text or buffer.
 *
 * @param source_start  points to the start of the source. `*source_start` may be null when `source_end` is
 *                      null. Otherwise null logs the error "<function> param NULL", as a null `target_start`
 *                      or `*target_start` does, and nothing is changed.
 * @param source_end    end of the source.
 * @param target_start  points to the start of the target, at any address. `*target_start` may be null when
 *                      `target_end` is null.
 * @param target_end    end of the target. Nothing is written at or after it, nor to half a unit before it.
 * @param flags         a ::kelo_unicode_mode, which makes no difference here. Both modes refuse a first byte
 *                      of 80 to C1 or of F8 to FF, a following byte outside 80 to BF, a character in a longer
 *                      form than it needs, surrogates (ED A0 80 to ED BF BF) and values above U+10FFFF (F4 90
 *                      80 80 to F7 BF BF BF).
 * @retval 0  ::KELO_UNICODE_COMPLETE.
 * @retval 1  ::KELO_UNICODE_SOURCE_EXHAUSTED: the source ends within a sequence.
 * @retval 2  ::KELO_UNICODE_TARGET_EXHAUSTED.
 * @retval 3  ::KELO_UNICODE_SOURCE_ILLEGAL: an ill-formed sequence, or a null pointer.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_ConvertUTF8toUTF16(const uint8_t** source_start, const uint8_t* source_end,
                                          uint16_t** target_start, uint16_t* target_end, int flags);

/**
 * Converts UCS-2 text to UTF-8. The result is cut to the size of the buffer without cutting a character in
 * two.
 *
 * A pair of surrogates becomes one character of four bytes; an unpaired surrogate becomes three bytes. Zero
 * units become zero bytes within the text.
 *
 * Each of the following ends the conversion and is logged. What was converted before it is kept:
 * - a null `ucs2`, a `byte_len` of 0, half a unit or a high surrogate at the end of the source: the error
 *   "Error in converting ucs2 string to utf8";
 * - a character that does not fit, a null `out` or an `out_size` of 0: the debug message "String has been
 *   truncated. Buffer size of <out_size> not large enough".
 *
 * A null `out` is also logged as the error "utf8str or utf8Start is NULL".
 *
 * @param ucs2      UCS-2 text in the byte order of the machine, at any address.
 * @param byte_len  its length in bytes. Of an odd length the last byte is not converted.
 * @param out       buffer of `out_size` bytes. It is always terminated unless `out_size` is 0.
 * @param out_size  size of the buffer in bytes. With 0 nothing is written, not even the terminator. Of a
 *                  buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UTF-8 in `out`, without the terminator; 0 when nothing was converted.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_convert_ucs2_to_utf8(const uint8_t* ucs2, size_t byte_len, char* out, size_t out_size);

/**
 * Converts UTF-8 text to UCS-2. The result is cut to the size of the buffer and ends with a zero unit.
 *
 * A character above U+FFFF becomes a pair of surrogates, which is never cut in two. Zero bytes become zero
 * units within the text.
 *
 * Each of the following ends the conversion and is logged as an error. What was converted before it is kept:
 * - an ill-formed sequence, a surrogate or a sequence that the end of the text cuts off: "Error in converting
 *   utf8 string to ucs2";
 * - a character that does not fit: "String has been truncated. Buffer size of <out_size> not large enough".
 *
 * @param utf8      UTF-8 text. Null logs the error "Invalid parameters. utf8str: <utf8>, ucs2str:
 *                  <ucs2_out>", and nothing is written.
 * @param len       its length in bytes. 0 gives an empty text and is no error.
 * @param ucs2_out  buffer of `out_size` bytes at any address, for units in the byte order of the machine.
 *                  Null as for `utf8`.
 * @param out_size  size of the buffer in bytes, of which two are for the terminator. Of an odd size the last
 *                  byte is unchanged when the text fills the buffer. With 0 nothing is written; with 1 one
 *                  zero byte is written. Of a buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UCS-2 in `ucs2_out`, without the terminator.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_convert_utf8_to_ucs2(const char* utf8, size_t len, uint8_t* ucs2_out, size_t out_size);

/**
 * Converts 8-bit text of supplementary services (ISO 8859-1) to UTF-8.
 *
 * Carriage returns are left out, and each is logged as the information "ignored charecter at index = <index>
 * ". Zero bytes are characters like any other.
 *
 * When all characters of the text are above 127, a buffer of twice its length is full before the last
 * character, because the terminator needs a byte, too. The last character is then left out and logged as the
 * information "ignored extended character at index = <index> not enough bytes. al: <len>ui: <bytes written>
 * us: <out_size>".
 *
 * @param text      the text. A null `text` or `out`, a `len` of 0 and an `out_size` of 0 log the error
 *                  "Invalid parameters; ascii_str = <text>, utf8_str = <out>", and nothing is written.
 * @param len       its length in bytes.
 * @param out       buffer of `out_size` bytes. It is terminated unless the call is refused.
 * @param out_size  size of the buffer in bytes. With less than twice `len` the call is refused, whatever the
 *                  text is: the error "the utf8 str buffer length is not enough" is logged, and nothing is
 *                  written. Of a buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UTF-8 in `out`, without the terminator; 0 when the call is refused.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_ss_ascii_to_utf8(const char* text, size_t len, char* out, size_t out_size);

KELO_END_DECLS

#endif /* KELO_UTILS_UNICODE_H */
