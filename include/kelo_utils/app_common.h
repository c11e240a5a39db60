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
 * @{
 */

/** @} */

/**
 * @name Unicode
 * @{
 */

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_APP_COMMON_H */
