/**
 * @file ussd.h
 * @brief Text of USSD and cell-broadcast messages: septets, the GSM alphabet and coding schemes (3GPP TS
 *        23.038).
 *
 * Text of USSD and cell-broadcast messages, as the network codes it by 3GPP TS 23.038, made into
 * NUL-terminated UTF-8. The functions keep no state, take no lock (unless they log) and do not block, so each
 * may be called from any thread at once on different buffers. Input and output must not overlap.
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
 * @retval 1  every byte is below 128; so is the empty text.
 * @retval 0  it is not; or `text` is null, which is logged as an error, "<function> param NULL".
 */
KELO_API int kelo_util_UssdStringIsAscii(const char* text);

/**
 * Unpacks septets, eight of which are packed into seven octets (3GPP TS 23.038, 6.1.2), into one a byte.
 *
 * When the octets are a multiple of seven, a last septet of 13 (carriage return) is the padding that fills
 * the last octet, and is left out. Every other carriage return is kept.
 *
 * @param out         receives the septets, each 0 to 127, without a terminator; what is behind them stays as
 *                    it was. Null gives 0.
 * @param out_max     bytes of `out`, at most 255 of which are used; 0 gives 0. A negative value promises
 *                    255 bytes.
 * @param packed      packed septets. Null gives 0.
 * @param packed_len  octets in `packed`. Of more than 256 only the first ((`packed_len` - 1) mod 256) + 1 are
 *                    read: 300 reads 44. 0 or less gives 0.
 * @return septets in `out`, 0 to 255.
 */
KELO_API int kelo_util_ussd_unpack(uint8_t* out, int out_max, const uint8_t* packed, int packed_len);

/**
 * Maps septets of the GSM 7 bit default alphabet (3GPP TS 23.038, 6.2.1), one a byte, to UTF-8.
 *
 * There is no extension table: the escape septet, 27, becomes a space and the septet behind it the character
 * that the default alphabet has in its place, so that an escaped e is " e" and not the euro sign. A carriage
 * return is left out and logged at debug level, "ignored CR charecter at index = <index>". A byte above 127
 * is copied as it is, although the result is then not UTF-8.
 *
 * What does not fit is left out silently; a character of two bytes for which only one is left does not keep a
 * one-byte character behind it from taking that place.
 *
 * @param septets   septets. Null is refused.
 * @param count     how many. 0 or less is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes; two for each septet and one more are always enough. 0 is refused,
 *                  1 holds the empty text.
 * @return length of the text in bytes, modulo 65536; 0 when an argument is refused, which is logged as an
 *         error, "Invalid parameters for GSM alphabet to UTF8 conversion, input len = <count>", and leaves
 *         `out` as it was.
 */
KELO_API int kelo_util_convert_gsm8bit_alpha_string_to_utf8(const uint8_t* septets, int count, char* out,
                                                            size_t out_size);

/**
 * Unpacks septets and maps them to UTF-8: kelo_util_ussd_unpack(), of at most 2 * `packed_len` septets, and
 * kelo_util_convert_gsm8bit_alpha_string_to_utf8() in one call, with all their rules.
 *
 * @param packed      packed septets. Null is refused.
 * @param packed_len  octets in `packed`, as for kelo_util_ussd_unpack(): at most 255 septets are unpacked. 0
 *                    or less is refused.
 * @param out         receives the terminated text. Null is refused.
 * @param out_size    size of `out` in bytes; 511 are always enough. 0 is refused, 1 holds the empty text.
 * @return length of the text in bytes; 0 when an argument is refused, logged as by
 *         kelo_util_convert_gsm8bit_alpha_string_to_utf8() with `packed_len`, or when memory runs out, logged
 *         as the error "Fail to allocate buffer for GSM alphabet to UTF8 conversion": both leave `out` as it
 *         was.
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
 * - 8 bit text is copied as it is, whatever it means. It needs `len` + 2 bytes: a smaller `out` is refused as
 *   the error "Destination buffer (sz <out_size>) less than required <len + 1>", though the message names one
 *   byte less.
 * - UCS-2, high byte first, is converted as by kelo_util_convert_ucs2_to_utf8(). A byte left over at its end
 *   lacks its other half and is not converted. The two bytes of a language are converted with the text, as
 *   one character whose low byte comes first. Without memory the error
 *   "USC2 to UTF8 conversion failed due to lack of memory" is logged.
 *
 * Each decoding logs its result at debug level, 8 bit text what `out` held before it, up to the end of `out`.
 *
 * @param dcs       data coding scheme.
 * @param data      coded text. Null is refused.
 * @param len       bytes in `data`; of GSM 7 bit text only `len` modulo 256 are converted, so that 256 is as
 *                  bad as 0. Less than 0 is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes. 0 writes nothing.
 * @return length of the text in bytes, that of UCS-2 text modulo 65536; 0 when the scheme is none of these,
 *         when a step failed, or when an argument is refused: that is logged as the error
 *         "FATAL : CHECK FAILED" and leaves `out` as it was.
 */
KELO_API int kelo_util_convert_ussd_string_to_utf8(uint8_t dcs, const uint8_t* data, int len, char* out,
                                                   size_t out_size);

KELO_END_DECLS

#endif /* KELO_UTILS_USSD_H */
