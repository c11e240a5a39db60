/**
 * @file file_ops.h
 * @brief Files and devices.
 */
#ifndef KELO_UTILS_FILE_OPS_H
#define KELO_UTILS_FILE_OPS_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

KELO_END_DECLS

#endif /* KELO_UTILS_FILE_OPS_H */
