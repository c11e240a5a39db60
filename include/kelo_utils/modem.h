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
 * Sends an AT command to the modem's service and waits for the whole reply.
 *
 * The command goes as one datagram to UDP port 5555 of 127.0.0.1: without a line feed at its end and then
 * without a carriage return there, in upper case (ASCII letters only, those of parameters and quoted texts
 * included), and with one carriage return after it.
 *
 * Datagrams that come back from this host (from 127.0.0.0/8, whatever the port) are put together; those of
 * other hosts are dropped, and neither take an attempt nor change its time. The reply is complete when a final
 * result is at the start of the reply or at the start of a line, which is after a carriage return or a
 * line feed: ERROR, OK with its line end, +CME ERROR: (whatever follows), NO CARRIER, or a numeric result: 0, 3
 * or 4 with its carriage return, or a mere 3. An information line that begins with a 3 therefore ends the
 * reply, and what arrives later is lost. A result that did not count because of the character before it makes
 * an equal one right after it count: "33" in mid-line ends a reply. Other results, such as BUSY, end none.
 *
 * The wait is at most three attempts of 20 seconds, an attempt ends with each such datagram, and signals neither
 * end nor lengthen one. Only a datagram that arrives in the first attempt is searched for the echo of the
 * command: everything up to its end is dropped, and so are the spaces, then the carriage returns, then the
 * line feeds behind it. Of a reply of more than 2047 bytes the first 2047 are kept, and a datagram that finds
 * the buffer full still takes its attempt. A reply is text: what stands behind a NUL in it is not looked at.
 *
 * Blocks for up to 60 seconds. Logs the command and each datagram at the level of information, passwords and
 * PINs in them included. May be called by several threads at once: each call has a port of its own.
 *
 * @param command  the command with its AT, of any length that a datagram holds (65506 characters), with or
 *                 without its line end. Null is logged as the error "kelo_util_send_at param NULL" and fails.
 * @return the reply without the echo, NUL-terminated, in a buffer of ::KELO_AT_REPLY_SIZE bytes that the
 *         caller frees with free(). Never null. A call that fails, or whose reply does not end in time,
 *         returns "\r\nERROR\r\n", and a modem may send just that itself. Behind its terminator the buffer of
 *         such a call may hold more of what arrived. Memory that runs out is fatal: the source path and line
 *         are printed on standard output and the process aborts.
 */
KELO_API char* kelo_util_send_at(const char* command);

/**
 * Finds the IPv4 address of the router's main LAN bridge.
 *
 * Asks the kernel about the interfaces "bridge0", "br-lan", "brlan0" and "br0", in this order, and takes the
 * first that has an IPv4 address: of several addresses its first. The interface need be neither up nor, but
 * for its name, a bridge. Does not block. May be called by several threads at once.
 *
 * @param if_addr  receives the address in network byte order, as `in_addr::s_addr` holds it: 192.168.8.1 is
 *                 the bytes 192, 168, 8, 1 in memory. Written on success only. Null is logged as the error
 *                 "if_addr is NULL".
 * @retval 0       found.
 * @retval -1      `if_addr` is null, or none of the interfaces has an IPv4 address; nothing is logged about
 *                 that. A socket that cannot be opened is logged as the error "sfd is invalid" and counts as
 *                 an interface without an address.
 */
KELO_API int kelo_util_get_main_bridge_addr(uint32_t* if_addr);

KELO_END_DECLS

#endif /* KELO_UTILS_MODEM_H */
