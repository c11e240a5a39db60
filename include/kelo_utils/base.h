/* SPDX-License-Identifier: MIT */
/**
 * @file base.h
 * @brief What every public header of kelo_utils needs: linkage, visibility and format checking.
 *
 * Each public header includes this one. Daemons do not include it themselves.
 */
#ifndef KELO_UTILS_BASE_H
#define KELO_UTILS_BASE_H

#ifdef __cplusplus
/** Begins declarations with C linkage. */
#define KELO_BEGIN_DECLS extern "C" {
/** Ends declarations with C linkage. */
#define KELO_END_DECLS }
#else
/** Begins declarations with C linkage. */
#define KELO_BEGIN_DECLS
/** Ends declarations with C linkage. */
#define KELO_END_DECLS
#endif

/** Marks a name as part of the binary interface of the library. All other names are hidden. */
#define KELO_API __attribute__((visibility("default")))

/** Lets the compiler check printf-style arguments: `format_index` and `first_argument` count from 1. */
#define KELO_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))

#endif /* KELO_UTILS_BASE_H */
