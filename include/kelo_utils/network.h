/* SPDX-License-Identifier: MIT */
/**
 * @file network.h
 * @brief Routes and addresses of the kernel, and addresses as text.
 */
#ifndef KELO_UTILS_NETWORK_H
#define KELO_UTILS_NETWORK_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Routes and addresses of the kernel
 *
 * These functions ask the routing family of netlink (RFC 3549). Each call opens and closes descriptors of its
 * own, which are all close-on-exec. None of them needs a privilege. A null argument is logged as an error,
 * "<function> param NULL", and gives the failure result of the function.
 * @{
 */

struct nlmsghdr; /* of <linux/netlink.h> */
struct rtattr;   /* of <linux/rtnetlink.h> */

/**
 * Indexes a chain of route attributes by type.
 *
 * The walk ends before the first attribute whose length is less than its own header or more than the bytes
 * that remain. Every attribute in the table therefore lies within the given bytes. The caller still has to
 * check the length of each value. When there are several attributes of one type, the last one is kept. No
 * memory is allocated.
 *
 * @param table      array of `max` + 1 pointers. Entry T receives the attribute of type T, or null. The
 *                   pointers point into the chain. Null is logged, and nothing is done.
 * @param max        highest type to index. Higher types are skipped. Below 0 nothing is written.
 * @param attribute  first attribute, of any alignment. Null is logged, and all entries of the table become
 *                   null.
 * @param remaining  bytes of the whole chain. A negative number counts as 0.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API void kelo_parse_rtattr(struct rtattr** table, int max, struct rtattr* attribute, int remaining);

/**
 * Tells whether a route message names an IPv6 gateway that is reached through an interface.
 *
 * Any IPv6 route with a gateway is accepted, not only a default route: its destination, table and type are
 * not examined. A route without an output interface is accepted for every interface. A gateway of fewer than
 * 16 bytes and an output interface of fewer than 4 bytes count as absent. The next hops of a multipath route
 * are not examined.
 *
 * The name of the interface is looked up in the network namespace of the calling thread.
 *
 * @param message         message of as many bytes as its header says, of any alignment. A message of fewer
 *                        than 28 bytes is logged and refused.
 * @param interface_name  interface, at most 15 characters. An interface that does not exist is logged; the
 *                        line shows an empty name.
 * @param gateway         buffer of 46 bytes. Receives the address in compressed form (RFC 5952) with its
 *                        terminator.
 * @retval 0   the gateway is in the buffer.
 * @retval -1  there is none in this message, or an argument is null. The buffer is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_dump_route(const struct nlmsghdr* message, const char* interface_name, char* gateway);

/**
 * Asks the kernel for the IPv6 gateway of an interface.
 *
 * The first route in the answer of the kernel that kelo_dump_route() accepts gives the gateway. Only the
 * first datagram of the answer is read: on a router with several dozen IPv6 routes the gateway may be in a
 * later datagram and is then not found.
 *
 * While the call runs it may hold the port id that kelo_check_global_ipv6_addr() needs.
 *
 * @param interface_name  interface, at most 15 characters. For an interface that does not exist, each route
 *                        logs an error, and the result is the same as when no gateway is found.
 * @param gateway         buffer of 46 bytes. Receives the gateway in compressed form (RFC 5952), or the empty
 *                        text when there is none, when the answer is an error or when memory runs out.
 * @retval 0   the kernel was asked. The buffer tells whether there is a gateway.
 * @retval -1  the socket could not be opened, bound or written to, or an argument is null. The buffer is
 *             unchanged.
 * @par Blocking
 * It blocks for the answer of the kernel, which comes at once. A process with the privilege CAP_NET_ADMIN may
 * send a datagram to the socket of the query in place of the answer. The call then never returns; signal
 * handlers still run in the calling thread.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_get_ipv6_default_gw(const char* interface_name, char* gateway);

/**
 * Waits until an interface gets an IPv6 address that is not link-local.
 *
 * The call only listens. It does not find an address that the interface had before the call, unless the
 * kernel announces it again, as it does when a router renews the lifetime of the address. The kernel
 * announces an address when it has found no duplicate of it on the link. The announcement of an address with
 * a peer names the address of the peer, and that address is returned.
 *
 * The call returns with the first address that does not begin with fe80. A link-local address that arrives
 * before it is written into the buffer, too, and stays there when no other address follows: callers examine
 * the prefix. Other prefixes of fe80::/10 (RFC 4291) count as found.
 *
 * The netlink port id of the call is the process id. The call fails while another socket of the routing
 * family has this port id: that of a second call in another thread, of kelo_get_ipv6_default_gw(), or of the
 * program or the C library, because the kernel gives the process id to the first socket that leaves the
 * choice to it.
 *
 * @param interface_name  interface, at most 15 characters.
 * @param address         buffer of 40 bytes. Receives 8 groups of 4 lower-case hexadecimal digits, separated
 *                        by ":", without compression: always 39 characters and a terminator.
 * @retval 0  the call listened. The buffer holds the address that was announced last, or is unchanged.
 * @retval 1  there is no such interface, descriptors or the port id were not available, or an argument is
 *            null. The buffer is unchanged.
 * @par Blocking
 * It blocks for 2 seconds when nothing is announced about any interface. Otherwise until 3 seconds after the
 * last announcement, without a limit while announcements keep coming. No signal makes the wait longer. A
 * signal in the second after an announcement may shorten the 3 seconds to 2.
 * @par Threads
 * Any thread may call it, but of two calls at the same time one fails. It is not for signal handlers.
 */
KELO_API int kelo_check_global_ipv6_addr(const char* interface_name, char* address);

/** @} */

/**
 * @name Address text
 *
 * Texts have the form of inet_pton(3) and inet_ntop(3). An IPv4 address is four decimal numbers of 0 to 255
 * without leading zeros, separated by points. An IPv6 address has the text form of RFC 4291, section 2.2.
 * @{
 */

/**
 * Writes an IPv4 address as text.
 * @param ipNum  4 bytes in network byte order. Null is logged as the error "input ipNum is NULL now !!!".
 * @param ipStr  buffer of `size` bytes, all of which are written: the text, then zeros. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 16. A smaller size is logged.
 * @retval 0   `ipStr` holds the text.
 * @retval -1  an argument was refused. `ipStr` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int ConvertIPv4ArrayToStr(const uint8_t* ipNum, char* ipStr, int32_t size);

/**
 * Writes an IPv4 address as text.
 * @param ipNum  the address in host byte order: 0xC0A80001 is 192.168.0.1.
 * @param ipStr  buffer of `size` bytes for the terminated text. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 16. A smaller size is logged.
 * @retval 0   `ipStr` holds the text.
 * @retval -1  an argument was refused. `ipStr` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int ConvertIPv4NumToStr(uint32_t ipNum, char* ipStr, int32_t size);

/**
 * Writes an IPv6 address as text in its compressed form (RFC 4291, section 2.2).
 * @param ipNum  16 bytes in network byte order. Null is logged.
 * @param ipStr  buffer of `size` bytes, all of which are written: the text, then zeros. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 46. A smaller size is logged.
 * @retval 0   `ipStr` holds the text.
 * @retval -1  an argument was refused, and `ipStr` is unchanged. Or the conversion failed, which is logged:
 *             `ipStr` then holds the bytes as 32 hexadecimal digits.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int ConvertIPv6NumToStr(const uint8_t* ipNum, char* ipStr, int32_t size);

/**
 * Tells whether a text is an IPv4 address.
 * @param text  text, or null.
 * @return 1 for an IPv4 address; 0 for any other text and for null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_check_v4_ip(const char* text);

/**
 * Tells whether a text is an IPv4 address, as kelo_check_v4_ip() does.
 * @param text  text, or null.
 * @return 1 for an IPv4 address; 0 for any other text and for null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int is_valid_ip(const char* text);

/**
 * Tells whether a text is an IPv6 address (RFC 4291, section 2.2), without prefix length and without zone.
 * @param text  text, or null.
 * @return 1 for an IPv6 address; 0 for any other text and for null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int is_valid_ipv6(const char* text);

/**
 * Tells whether a text is an IPv4 subnet mask, whose one bits are all at the high end.
 * @param text  text, or null.
 * @return 1 for one of the 33 masks, 0.0.0.0 and 255.255.255.255 included; 0 for any other text and for null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int Is_valid_SubnetMask(const char* text);

/**
 * Tells whether a text matches a pattern. The call allocates memory while it runs.
 * @param pattern  POSIX extended regular expression; letter case matters. Null is logged.
 * @param text     text to search. Without anchors the pattern may match any part of it. Null is logged.
 * @return 0 when the text matches; 1 when it does not match, when the pattern is malformed and when an
 *         argument is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int ereg(const char* pattern, const char* text);

/**
 * Tells whether a text is a MAC address: six groups of two hexadecimal digits of either case, with one
 * separator between two groups.
 *
 * The separators are the colon, the backslash and the letter "s", in any mixture. "-" and a blank are not
 * separators.
 *
 * @param text  text. Null is logged.
 * @return 1, logged as the debug message "Yes Match!!! "; or 0, logged as the error "No Match!!! ".
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int Is_valid_Mac(const char* text);

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_NETWORK_H */
