/* SPDX-License-Identifier: MIT */
#ifndef KELO_TESTS_SMOKE_TIMER_SIGNALS_H
#define KELO_TESTS_SMOKE_TIMER_SIGNALS_H

/* The library takes a record only from a signal with the code SI_TIMER. On MIPS this number differs from that of all other
 * processors, and an emulator may report the number of the machine on which it runs. From this call on, the program
 * receives signals with `reported` as signals with SI_TIMER. It is not called where the two are equal. */
void take_for_timers(int reported);

#endif /* KELO_TESTS_SMOKE_TIMER_SIGNALS_H */
