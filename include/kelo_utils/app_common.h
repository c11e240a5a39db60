/* SPDX-License-Identifier: MIT */
/**
 * @file app_common.h
 * @brief What daemons share with the modem, the network and the system, in seven headers.
 *
 * A program may include this header, or only those of the parts that it needs.
 */
#ifndef KELO_UTILS_APP_COMMON_H
#define KELO_UTILS_APP_COMMON_H

#include "kelo_utils/clock.h"
#include "kelo_utils/command_record.h"
#include "kelo_utils/modem.h"
#include "kelo_utils/process.h"
#include "kelo_utils/project.h"
#include "kelo_utils/unicode.h"
#include "kelo_utils/ussd.h"

#endif /* KELO_UTILS_APP_COMMON_H */
