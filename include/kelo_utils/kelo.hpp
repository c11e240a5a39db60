/* SPDX-License-Identifier: MIT */
/**
 * @file kelo.hpp
 * @brief The C++ face of the library: the store, timers, programs, INI files, text and AT commands in C++17.
 *
 * It is made of headers alone, on top of the C functions. It needs neither exceptions nor RTTI, and works with
 * them. What a program does not use costs nothing. A program includes this header or only those that it needs.
 *
 * What holds for all of it:
 * - A call that may fail returns a Result, whose code is that of the C function. Nothing is thrown.
 * - Functions that a program gives to the face must not throw: an exception that leaves one ends the process.
 * - Memory that runs out for a std::string or a std::vector is handled by these.
 * - The conventions of kelo_utils.h hold here, too.
 * - With KELO_NO_ADDITIONS, which a library without the additions defines, the face lacks run(), at_exchange(),
 *   subscriptions, default_value(), use_sqlite, and the encoding of texts as septets and USSD messages.
 */
#ifndef KELO_UTILS_KELO_HPP
#define KELO_UTILS_KELO_HPP

#include "kelo_utils/kelo/at.hpp"
#include "kelo_utils/kelo/ini.hpp"
#include "kelo_utils/kelo/item_values.hpp"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/kelo/run.hpp"
#include "kelo_utils/kelo/store.hpp"
#include "kelo_utils/kelo/subscription.hpp"
#include "kelo_utils/kelo/text.hpp"
#include "kelo_utils/kelo/timer.hpp"

#endif /* KELO_UTILS_KELO_HPP */
