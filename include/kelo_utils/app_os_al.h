/* SPDX-License-Identifier: MIT */
/**
 * @file app_os_al.h
 * @brief What daemons need of the operating system, in three headers.
 *
 * A program may include this header, or only those of the parts that it needs.
 */
#ifndef KELO_UTILS_APP_OS_AL_H
#define KELO_UTILS_APP_OS_AL_H

#include "kelo_utils/command.h"
#include "kelo_utils/network.h"
#include "kelo_utils/text.h"

#endif /* KELO_UTILS_APP_OS_AL_H */
