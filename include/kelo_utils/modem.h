/* SPDX-License-Identifier: MIT */
/**
 * @file modem.h
 * @brief AT commands to the modem, and the address of the LAN bridge.
 */
#ifndef KELO_UTILS_MODEM_H
#define KELO_UTILS_MODEM_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Bytes of the buffer that kelo_util_send_at() returns, terminator included. */
#define KELO_AT_REPLY_SIZE 2048

/**
 * Sends an AT command to the service of the modem and waits for the whole reply.
 *
 * The command is sent as one datagram to UDP port 5555 of 127.0.0.1. A line feed at its end is removed, then
 * a carriage return at its end. The rest is converted to upper case (only ASCII letters, but also those of
 * parameters and quoted texts), and one carriage return is added.
 *
 * Datagrams from this host (from 127.0.0.0/8, from any port) are put together. Datagrams from other hosts are
 * dropped: they do not count as an attempt and do not change its time. The reply is complete when a final
 * result is at the start of the reply or at the start of a line, which is after a carriage return or a line
 * feed. Final results are ERROR, OK with its line end, +CME ERROR: (with anything after it), NO CARRIER, and
 * the numeric results 0, 3 and 4 with a carriage return and a 3 without one. An information line that begins
 * with a 3 therefore ends the reply, and what arrives later is lost. A result that did not count because of
 * the character before it makes an equal result directly after it count: "33" in the middle of a line ends a
 * reply. Other results, such as BUSY, do not end it.
 *
 * The call waits for at most three attempts of 20 seconds. Each datagram from this host ends an attempt.
 * Signals neither end nor lengthen one. Only a datagram that arrives in the first attempt is searched for the
 * echo of the command: everything up to the end of the echo is dropped, and so are the spaces, then the
 * carriage returns, then the line feeds after it. Of a reply of more than 2047 bytes the first 2047 are kept.
 * A datagram that arrives when the buffer is full still counts as an attempt. A reply is text: bytes after a
 * NUL are ignored.
 *
 * The command and each datagram are logged at the level of information, with the passwords and PINs in them.
 *
 * @param command  the command with its AT, with or without its line end. It may be as long as a datagram
 *                 allows (65506 characters). Null is logged as the error "kelo_util_send_at param NULL" and
 *                 fails.
 * @return the reply without the echo, NUL-terminated, in a buffer of ::KELO_AT_REPLY_SIZE bytes that the
 *         caller frees with free(). It is never null. A call that fails, or whose reply is not complete in
 *         time, returns "\r\nERROR\r\n"; the modem may send the same text itself. After the terminator, the
 *         buffer of such a call may hold more of what arrived. When memory runs out, the source path and line
 *         are printed on standard output and the process aborts.
 * @par Blocking
 * It blocks for up to 60 seconds.
 * @par Threads
 * Any thread may call it. Several calls may run at once, as each has a port of its own. It is not for signal
 * handlers.
 */
KELO_API char* kelo_util_send_at(const char* command);

/**
 * Finds the IPv4 address of the main LAN bridge of the router.
 *
 * The kernel is asked about the interfaces "bridge0", "br-lan", "brlan0" and "br0", in this order. The first
 * of them that has an IPv4 address is taken, and of several addresses the first. The interface may be down,
 * and need not be a bridge.
 *
 * @param if_addr  receives the address in network byte order, as `in_addr::s_addr` holds it: 192.168.8.1 is
 *                 the bytes 192, 168, 8, 1 in memory. It is written only on success. Null is logged as the
 *                 error "if_addr is NULL".
 * @retval 0       found.
 * @retval -1      `if_addr` is null, or none of the interfaces has an IPv4 address, which is not logged. A
 *                 socket that cannot be opened is logged as the error "sfd is invalid" and counts as an
 *                 interface without an address.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_util_get_main_bridge_addr(uint32_t* if_addr);

KELO_END_DECLS

#endif /* KELO_UTILS_MODEM_H */
