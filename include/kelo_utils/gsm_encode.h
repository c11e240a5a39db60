/* SPDX-License-Identifier: MIT */
/**
 * @file gsm_encode.h
 * @brief More about USSD: text encoded for the network, as septets of the GSM alphabet or as UCS-2.
 *
 * These functions convert UTF-8 text into what 3GPP TS 23.038 defines; ussd.h has the other direction. They
 * keep no state, allocate no memory and log nothing. Input and output must not overlap.
 *
 * These functions are optional additions to ussd.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_GSM_ENCODE_H
#define KELO_UTILS_GSM_ENCODE_H

#include <stdint.h>

#include "kelo_utils/base.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/** Failures of the functions that encode. After a failure the content of the output buffer means nothing. */
enum kelo_gsm_result {
  KELO_GSM_NOT_ENCODABLE = -1, /**< a character is not in the alphabet; or a septet is above 127 */
  KELO_GSM_TOO_LONG = -2,      /**< the result does not fit into the buffer */
  KELO_GSM_BAD_ARGUMENT = -3,  /**< null argument, or a number outside its range */
  KELO_GSM_ILL_FORMED = -4     /**< the text is not UTF-8 */
};

/** How kelo_ussd_encode() encodes a text. */
enum kelo_ussd_coding {
  KELO_USSD_SEPTETS = 0, /**< packed septets; a text with a character that has no septet fails */
  KELO_USSD_CHOOSE = 1,  /**< packed septets when every character has one, and otherwise UCS-2 */
  KELO_USSD_UCS2 = 2     /**< UCS-2, whatever the characters are */
};

/**
 * Encodes text as septets, one per byte: the GSM 7 bit default alphabet (3GPP TS 23.038, 6.2.1) with its
 * extension table (6.2.1.1).
 *
 * The form feed and the characters ^ { } \ [ ~ ] | and the euro sign take two septets, the escape (27) and
 * the one of the table. There is no septet for other characters, also not for similar ones.
 *
 * @param text     UTF-8 text.
 * @param septets  receives the septets, without a terminator.
 * @param size     size of `septets` in bytes, 0 or more. Two for each byte of the text are always enough.
 * @return number of septets, 0 for the empty text.
 * @retval -1  ::KELO_GSM_NOT_ENCODABLE.
 * @retval -2  ::KELO_GSM_TOO_LONG.
 * @retval -3  ::KELO_GSM_BAD_ARGUMENT: a null argument or a negative `size`.
 * @retval -4  ::KELO_GSM_ILL_FORMED. Of a text that fails in several ways the first character that fails
 *             decides; a text that fails in another way, too, is not reported as too long.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int32_t kelo_gsm_encode(const char* text, uint8_t* septets, int32_t size);

/**
 * Packs eight septets into seven octets (3GPP TS 23.038, 6.1.2). kelo_util_ussd_unpack() is the other
 * direction.
 *
 * A USSD message ends as 6.1.2.3.1 demands: when seven bits of the last octet are unused they hold a carriage
 * return, so that no @ is read there. When the message ends with a carriage return that fills its last octet,
 * which a receiver would drop, a second one is added, in an octet of its own. Unused bits are 0 otherwise, and
 * always in a message that is not USSD.
 *
 * @param septets  `count` septets, one per byte.
 * @param count    number of septets, 0 or more.
 * @param ussd     0 for short messages and cell broadcast, any other value for USSD.
 * @param packed   receives the octets.
 * @param size     size of `packed` in bytes, 0 or more.
 * @return number of octets, 0 for no septets.
 * @retval -1  ::KELO_GSM_NOT_ENCODABLE: a septet is above 127.
 * @retval -2  ::KELO_GSM_TOO_LONG.
 * @retval -3  ::KELO_GSM_BAD_ARGUMENT: a null argument, or a negative `count` or `size`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int32_t kelo_gsm_pack(const uint8_t* septets, int32_t count, int32_t ussd, uint8_t* packed,
                               int32_t size);

/**
 * Encodes text as a USSD message and gives its data coding scheme.
 *
 * Packed septets have the scheme 0x0F (default alphabet, language not specified), UCS-2 has 0x48. UCS-2 has
 * the high byte of each unit first. A character above U+FFFF is a pair of surrogates there.
 * kelo_util_convert_ussd_string_to_utf8() is the other direction, but has no extension table.
 *
 * @param text    UTF-8 text.
 * @param coding  a ::kelo_ussd_coding.
 * @param dcs     receives the data coding scheme; unchanged after a failure.
 * @param data    receives the message.
 * @param size    size of `data` in bytes, 0 or more. A USSD message has at most 160.
 * @return number of octets, 0 for the empty text.
 * @retval -1  ::KELO_GSM_NOT_ENCODABLE, only with ::KELO_USSD_SEPTETS.
 * @retval -2  ::KELO_GSM_TOO_LONG.
 * @retval -3  ::KELO_GSM_BAD_ARGUMENT: a null argument, an unknown `coding` or a negative `size`.
 * @retval -4  ::KELO_GSM_ILL_FORMED.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int32_t kelo_ussd_encode(const char* text, int32_t coding, uint8_t* dcs, uint8_t* data,
                                  int32_t size);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_GSM_ENCODE_H */
