/* SPDX-License-Identifier: MIT */
// What a C program answers to the test of the layout.
#ifndef KELO_TESTS_LAYOUT_C99_H
#define KELO_TESTS_LAYOUT_C99_H

#ifdef __cplusplus
extern "C" {
#endif

// Whether a plain char can be negative.
int layout_char_has_sign(void);

#ifdef __cplusplus
}
#endif

#endif  // KELO_TESTS_LAYOUT_C99_H
