/* SPDX-License-Identifier: MIT */
/* Objects of another library that are called log_msg and str_t. */
char log_msg[SIZE] = "the program's own";
char str_t[SIZE] = "also its own";
