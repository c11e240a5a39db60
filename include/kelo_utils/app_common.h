/**
 * @file app_common.h
 * @brief What daemons share with the modem and the network: AT commands, the bridge's address, text in the
 *        network's encodings.
 */
#ifndef KELO_UTILS_APP_COMMON_H
#define KELO_UTILS_APP_COMMON_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name AT commands and the bridge
 * @{
 */

/** @} */

/**
 * @name GSM alphabet and USSD
 *
 * Text of USSD and cell-broadcast messages, as the network codes it by 3GPP TS 23.038, made into
 * NUL-terminated UTF-8. The functions keep no state, take no lock (unless they log) and do not block, so each
 * may be called from any thread at once on different buffers. Input and output must not overlap.
 * @{
 */

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

/** @} */

/**
 * @name Unicode
 * @{
 */

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_APP_COMMON_H */
