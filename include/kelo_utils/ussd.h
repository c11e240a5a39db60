/* SPDX-License-Identifier: MIT */
/**
 * @file ussd.h
 * @brief Text of USSD and cell-broadcast messages: septets, the GSM alphabet and coding schemes.
 *
 * These functions convert text that the network codes by 3GPP TS 23.038 into NUL-terminated UTF-8. They keep
 * no state. Input and output must not overlap.
 */
#ifndef KELO_UTILS_USSD_H
#define KELO_UTILS_USSD_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Tells whether text is plain ASCII.
 * @param text  text.
 * @retval 1  every byte is below 128; this includes the empty text.
 * @retval 0  a byte is 128 or more; or `text` is null, which is logged as an error, "<function> param NULL".
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_UssdStringIsAscii(const char* text);

/**
 * Unpacks septets, of which eight are packed into seven octets (3GPP TS 23.038, 6.1.2), into one septet per
 * byte.
 *
 * When the number of octets is a multiple of seven, a last septet of 13 (carriage return) is the padding that
 * fills the last octet, and is left out. Every other carriage return is kept.
 *
 * @param out         receives the septets, each 0 to 127, without a terminator. Bytes after them are
 *                    unchanged. Null gives 0.
 * @param out_max     bytes of `out`, of which at most 255 are used. 0 gives 0. With a negative value `out`
 *                    must have 255 bytes.
 * @param packed      packed septets. Null gives 0.
 * @param packed_len  octets in `packed`. Of more than 256 octets only the first ((`packed_len` - 1) mod 256)
 *                    + 1 are read: of 300 octets 44. 0 or less gives 0.
 * @return septets in `out`, 0 to 255.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_ussd_unpack(uint8_t* out, int out_max, const uint8_t* packed, int packed_len);

/**
 * Maps septets of the GSM 7 bit default alphabet (3GPP TS 23.038, 6.2.1), one per byte, to UTF-8.
 *
 * There is no extension table: the escape septet, 27, becomes a space, and the septet after it becomes the
 * character that the default alphabet has for it. So an escaped e is " e" and not the euro sign. A carriage
 * return is left out and logged at debug level, "ignored CR charecter at index = <index>". A byte above 127
 * is copied unchanged, although the result is then not UTF-8.
 *
 * Characters that do not fit are left out without a message. When one byte is left, a character of two bytes
 * is left out, and a later character of one byte still takes that byte.
 *
 * @param septets   septets. Null is refused.
 * @param count     number of septets. 0 or less is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes. Two for each septet and one more are always enough. 0 is refused;
 *                  1 holds the empty text.
 * @return length of the text in bytes, modulo 65536. 0 when an argument is refused: the error "Invalid
 *         parameters for GSM alphabet to UTF8 conversion, input len = <count>" is logged, and `out` is
 *         unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_convert_gsm8bit_alpha_string_to_utf8(const uint8_t* septets, int count, char* out,
                                                            size_t out_size);

/**
 * Unpacks septets and maps them to UTF-8 in one call.
 *
 * The call unpacks at most 2 * `packed_len` septets as kelo_util_ussd_unpack() does and maps them as
 * kelo_util_convert_gsm8bit_alpha_string_to_utf8() does. All rules of both functions hold.
 *
 * @param packed      packed septets. Null is refused.
 * @param packed_len  octets in `packed`, as for kelo_util_ussd_unpack(): at most 255 septets are unpacked. 0
 *                    or less is refused.
 * @param out         receives the terminated text. Null is refused.
 * @param out_size    size of `out` in bytes; 511 are always enough. 0 is refused; 1 holds the empty text.
 * @return length of the text in bytes. 0 when an argument is refused, which is logged as by
 *         kelo_util_convert_gsm8bit_alpha_string_to_utf8() with `packed_len`; also 0 when memory runs out,
 *         which is logged as the error "Fail to allocate buffer for GSM alphabet to UTF8 conversion". In both
 *         cases `out` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_convert_gsm_def_alpha_string_to_utf8(const uint8_t* packed, int packed_len, char* out,
                                                            size_t out_size);

/**
 * Decodes the text of a USSD or cell-broadcast message by its data coding scheme (3GPP TS 23.038, 5).
 *
 * | `dcs`                                     | text                                          |
 * |-------------------------------------------|-----------------------------------------------|
 * | 0x00-0x0F, 0x10, 0x20-0x3F                | GSM 7 bit                                     |
 * | 0x11                                      | a language of two bytes, then UCS-2           |
 * | 0x40-0x7F, 0x90-0x9F, by `dcs` & 0x0C     | 0: GSM 7 bit; 4: 8 bit; 8: UCS-2; 12: none    |
 * | 0xF0-0xFF, by `dcs` & 0x04                | 0: GSM 7 bit; 4: 8 bit                        |
 * | all others                                | none: 0 is returned, and nothing is written   |
 *
 * - GSM 7 bit is converted as by kelo_util_convert_gsm_def_alpha_string_to_utf8().
 * - 8 bit text is copied unchanged, whatever it means. It needs `len` + 2 bytes. A smaller `out` is refused
 *   with the error "Destination buffer (sz <out_size>) less than required <len + 1>", which names one byte
 *   less.
 * - UCS-2, high byte first, is converted as by kelo_util_convert_ucs2_to_utf8(). A single byte at its end
 *   lacks its other half and is not converted. The two bytes of a language are converted together with the
 *   text, as one character whose low byte comes first. When memory runs out the error "USC2 to UTF8
 *   conversion failed due to lack of memory" is logged.
 *
 * Each decoding logs its result at debug level. For 8 bit text it logs what `out` held before the call, up to
 * the end of `out`.
 *
 * @param dcs       data coding scheme.
 * @param data      coded text. Null is refused.
 * @param len       bytes in `data`. Of GSM 7 bit text only `len` modulo 256 bytes are converted, so that 256
 *                  fails like 0. Less than 0 is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes. With 0 nothing is written.
 * @return length of the text in bytes, for UCS-2 text modulo 65536. 0 when the scheme is none of these, when
 *         a step failed, or when an argument is refused. A refused argument is logged as the error "FATAL :
 *         CHECK FAILED", and `out` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_convert_ussd_string_to_utf8(uint8_t dcs, const uint8_t* data, int len, char* out,
                                                   size_t out_size);

KELO_END_DECLS

#endif /* KELO_UTILS_USSD_H */
