/**
 * @file list.h
 * @brief Intrusive linked and ordered lists.
 */
#ifndef KELO_UTILS_LIST_H
#define KELO_UTILS_LIST_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

KELO_END_DECLS

#endif /* KELO_UTILS_LIST_H */
