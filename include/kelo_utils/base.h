/**
 * @file base.h
 * @brief What every public header of kelo_utils needs: linkage, visibility and format checking.
 *
 * Daemons never include this header by name; each public header does.
 */
#ifndef KELO_UTILS_BASE_H
#define KELO_UTILS_BASE_H

#ifdef __cplusplus
#define KELO_BEGIN_DECLS extern "C" {
#define KELO_END_DECLS }
#else
#define KELO_BEGIN_DECLS
#define KELO_END_DECLS
#endif

/** Marks a name as part of the library's binary interface; everything else stays hidden. */
#define KELO_API __attribute__((visibility("default")))

/** Lets the compiler check printf-style arguments: `format_index` and `first_argument` count from 1. */
#define KELO_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))

#endif /* KELO_UTILS_BASE_H */
