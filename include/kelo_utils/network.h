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
 * Questions to the routing family of netlink (RFC 3549). Each call opens and closes descriptors of its own,
 * all of them close-on-exec; none needs a privilege. A null argument is logged as an error, "<function> param
 * NULL", and gives the function's failure result.
 * @{
 */

struct nlmsghdr; /* of <linux/netlink.h> */
struct rtattr;   /* of <linux/rtnetlink.h> */

/**
 * Indexes a chain of route attributes by type.
 *
 * The walk ends before the first attribute whose length is below that of its own header or beyond what
 * remains, so that every attribute in the table lies within the bytes given; how long its value is remains
 * for the caller to check. Of several attributes of one type the last one is kept. Neither allocates nor
 * blocks.
 *
 * @param table      array of `max` + 1 pointers: entry T receives the attribute of type T, or null. The
 *                   pointers lead into the chain. Null is logged, and nothing is done.
 * @param max        highest type to index; others are passed over. Below 0 nothing is written.
 * @param attribute  first attribute, of any alignment. Null is logged and leaves a table of nulls.
 * @param remaining  bytes of the whole chain; negative counts as 0.
 */
KELO_API void kelo_parse_rtattr(struct rtattr** table, int max, struct rtattr* attribute, int remaining);

/**
 * Tells whether a route message names an IPv6 gateway that is reached through an interface.
 *
 * Any IPv6 route with a gateway serves, not a default route alone: neither its destination nor its table or
 * type is looked at. One without an output interface serves for every interface. A gateway of fewer than 16
 * bytes and an output interface of fewer than 4 count as absent. The next hops of a multipath route are not
 * looked at.
 *
 * Looks the name up in the network namespace of the calling thread, without waiting. May be called by several
 * threads at once.
 *
 * @param message         message of as many bytes as its header says, of any alignment. One of fewer than 28
 *                        is logged and refused.
 * @param interface_name  interface, at most 15 characters. One that does not exist is logged; the line shows
 *                        an empty name.
 * @param gateway         buffer of 46 bytes; receives the address in compressed form (RFC 5952) with its
 *                        terminator.
 * @retval 0   the gateway is in the buffer.
 * @retval -1  none in this message, or a null argument; the buffer is as it was.
 */
KELO_API int kelo_dump_route(const struct nlmsghdr* message, const char* interface_name, char* gateway);

/**
 * Asks the kernel for the IPv6 gateway of an interface.
 *
 * The first route of the kernel's answer that kelo_dump_route() accepts gives the gateway. Only the first
 * datagram of the answer is read: on a router with several dozen IPv6 routes a gateway may lie in a later one
 * and is not seen.
 *
 * Waits for the kernel's answer, which comes at once. A datagram that another process sends to the query's
 * socket in its place, which takes the privilege CAP_NET_ADMIN, keeps the call from ever returning: the
 * calling thread then sleeps for good, and signal handlers run in it as before.
 *
 * May be called by several threads at once. While it runs it may hold the port id that
 * kelo_check_global_ipv6_addr() needs.
 *
 * @param interface_name  interface, at most 15 characters. For one that does not exist, each route logs an
 *                        error and the result is as for none found.
 * @param gateway         buffer of 46 bytes; receives the gateway in compressed form (RFC 5952), or the empty
 *                        text when there is none, the answer is an error or memory runs out.
 * @retval 0   the kernel was asked: the buffer tells whether there is a gateway.
 * @retval -1  socket not opened, bound or written to, or a null argument; the buffer is as it was.
 */
KELO_API int kelo_get_ipv6_default_gw(const char* interface_name, char* gateway);

/**
 * Waits until an interface is given an IPv6 address that is not link-local.
 *
 * Only listens: an address that the interface had before the call is not seen, unless the kernel announces it
 * again, as it does when a router renews its lifetime. Returns with the first address that does not begin
 * with fe80. A link-local address on the way there goes into the buffer too, and stays there when no other
 * follows: a caller looks at the prefix. Other prefixes of fe80::/10 count as found. An address with a peer
 * is announced by the peer's, and that is the one returned. The kernel announces an address when it has found
 * no duplicate of it on the link.
 *
 * Blocks. Gives up 2 seconds after the call when nothing is announced about any interface, and else 3 seconds
 * after the last announcement; it waits as long as they keep coming. No signal makes it wait longer; one that
 * arrives in the second after an announcement may leave 2 of the 3 seconds.
 *
 * The call receives under the process id as its netlink port id. It fails while another socket of the routing
 * family has that port id: a second call in another thread, kelo_get_ipv6_default_gw(), or a socket of the
 * program or the C library, since the kernel gives the process id to the first one that leaves the choice to
 * it.
 *
 * @param interface_name  interface, at most 15 characters.
 * @param address         buffer of 40 bytes; receives 8 groups of 4 lower-case hexadecimal digits, separated
 *                        by ":", without compression: always 39 characters and a terminator.
 * @retval 0  it listened: the buffer holds what was announced last, or is as it was.
 * @retval 1  no such interface, descriptors or port id not to be had, or a null argument; the buffer is as it
 *            was.
 */
KELO_API int kelo_check_global_ipv6_addr(const char* interface_name, char* address);

/** @} */

/**
 * @name Address text
 *
 * None of these blocks, and each may be called from any thread. Texts are those of inet_pton(3) and
 * inet_ntop(3): IPv4 is four decimal numbers of 0 to 255 without leading zeros, IPv6 is RFC 4291.
 * @{
 */

/**
 * Writes an IPv4 address as text.
 * @param ipNum  4 bytes in wire order. Null is logged as the error "input ipNum is NULL now !!!".
 * @param ipStr  buffer of `size` bytes, all of which are written: the text, then zeros. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 16; a smaller one is logged.
 * @return 0; -1 with `ipStr` untouched when an argument was refused.
 */
KELO_API int ConvertIPv4ArrayToStr(const uint8_t* ipNum, char* ipStr, int32_t size);

/**
 * Writes an IPv4 address as text.
 * @param ipNum  the address in host order: 0xC0A80001 is 192.168.0.1.
 * @param ipStr  buffer of `size` bytes for the terminated text. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 16; a smaller one is logged.
 * @return 0; -1 with `ipStr` untouched when an argument was refused.
 */
KELO_API int ConvertIPv4NumToStr(uint32_t ipNum, char* ipStr, int32_t size);

/**
 * Writes an IPv6 address as text in its compressed form (RFC 4291, section 2.2).
 * @param ipNum  16 bytes in wire order. Null is logged.
 * @param ipStr  buffer of `size` bytes, all of which are written: the text, then zeros. Null is logged.
 * @param size   size of `ipStr` in bytes, at least 46; a smaller one is logged.
 * @retval 0   `ipStr` holds the text.
 * @retval -1  an argument was refused and `ipStr` is untouched; or the conversion failed, which is logged:
 *             `ipStr` then holds the bytes as 32 hexadecimal digits.
 */
KELO_API int ConvertIPv6NumToStr(const uint8_t* ipNum, char* ipStr, int32_t size);

/** Tells whether `text` is an IPv4 address: 1 or 0; 0 for null. */
KELO_API int kelo_check_v4_ip(const char* text);

/** The same as kelo_check_v4_ip(). */
KELO_API int is_valid_ip(const char* text);

/** Tells whether `text` is an IPv6 address, without prefix length or zone: 1 or 0; 0 for null. */
KELO_API int is_valid_ipv6(const char* text);

/**
 * Tells whether `text` is an IPv4 subnet mask: its one bits stand together at the top.
 * @return 1 for one of the 33 masks, 0.0.0.0 and 255.255.255.255 included; 0 for any other text and for null.
 */
KELO_API int Is_valid_SubnetMask(const char* text);

/**
 * Tells whether text matches a pattern. Allocates for the time of the call.
 * @param pattern  POSIX extended regular expression; case counts. Null is logged.
 * @param text     text to look in; an unanchored pattern may match any part of it. Null is logged.
 * @return 0 when it matches; 1 when it does not, the pattern is malformed or an argument is null.
 */
KELO_API int ereg(const char* pattern, const char* text);

/**
 * Tells whether `text` is a MAC address: six groups of two hexadecimal digits of either case, with one
 * separator between two groups.
 *
 * The separators are the colon, the backslash and the letter "s", mixed at will; "-" and blank are none.
 *
 * @param text  null is logged.
 * @return 1, logged as "Yes Match!!! " for debugging; 0, logged as the error "No Match!!! ".
 */
KELO_API int Is_valid_Mac(const char* text);

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_NETWORK_H */
