/**
 * @file app_os_al.h
 * @brief What daemons need of the operating system: text, hexadecimal and shell helpers, supervised commands.
 */
#ifndef KELO_UTILS_APP_OS_AL_H
#define KELO_UTILS_APP_OS_AL_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Text and hexadecimal
 * @{
 */
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
