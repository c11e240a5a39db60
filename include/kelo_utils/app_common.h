/**
 * @file app_common.h
 * @brief What daemons share with the modem, the network and the system: the project and its features, AT
 *        commands, the bridge's address, text in the network's encodings, command records, clocks and
 *        dates, processes, directories and switch files.
 */
#ifndef KELO_UTILS_APP_COMMON_H
#define KELO_UTILS_APP_COMMON_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Project and features
 *
 * Which hardware this is and what the build of the library supports. May be called by several threads at
 * once, on different buffers.
 * @{
 */

/**
 * Finds the name of the hardware project (board variant): in the kernel's command line behind the key
 * "kelo.project", or else in the file "/tmp/non_signal_info", which is written at boot.
 *
 * The command line, "/proc/cmdline", is read anew in each call: its first 2047 bytes up to a NUL, without one
 * line feed at their end. The key counts wherever it occurs first, in the middle of a longer word too. All
 * equals signs, spaces and tabs behind it are skipped, and the name goes on to the next space or tab, or to
 * the end. It is logged as the debug message "Project Name: <name>".
 *
 * Without the key the error "Could not find oem.project in <command line>" is logged, which names that key
 * in either function; with nothing behind it the error "Only containe space in <command line>". Both are
 * followed by the error "get project name from cmdline failed", as is a `max_len` of 0 or less, and by a look
 * at the file:
 *
 * - The file is read in chunks of 2048 bytes, and the first that holds "project" is taken and logged as the
 *   debug message "Project Name: <chunk>". Each one before it logs the error "can't not match project". A
 *   chunk counts up to its first NUL, and what falls on the border of two chunks is not found.
 * - A last chunk of less than 2048 bytes overwrites the start of the one before it only, and is looked at
 *   together with the rest of that.
 * - The name is the word behind the first equals sign of the chunk, whatever stands before that, up to white
 *   space: of "model=A project=B" the name is "A". White space in front of it is skipped.
 * - A chunk without an equals sign, with one as its first character or without a word behind it is a success
 *   that leaves `name` as it was: give it a content of your own before the call.
 *
 * Reads files, and so may block for a moment.
 *
 * @param name     receives the name; not terminated when it fills the buffer, whether it just fits or is cut
 *                 off. What is behind the terminator stays as it was, and a failure leaves all of it. Null
 *                 is refused without a message.
 * @param max_len  bytes of `name` that may be written; a zeroed buffer of one more is always terminated. With
 *                 0 or less nothing is written, and the result is that of the file.
 * @retval 0   `name` holds the name, but for the exceptions above.
 * @retval -1  a null `name`, or neither the command line nor the file has one; no file is not logged.
 */
KELO_API int kelo_get_project_name_cmdline(char* name, int32_t max_len);

/**
 * Finds the name of the hardware project as kelo_get_project_name_cmdline() does, by the key "oem.project".
 *
 * @param name     as for kelo_get_project_name_cmdline().
 * @param max_len  as for kelo_get_project_name_cmdline().
 * @return as for kelo_get_project_name_cmdline().
 */
KELO_API int kelo_get_project_name_cmdline_oem_version(char* name, int32_t max_len);

/**
 * Tells whether the build of the library is for device model A.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_A(void);

/**
 * Tells whether the build of the library is for device model B.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_B(void);

/**
 * Tells whether the build of the library is for device model C.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_MODEL_C(void);

/**
 * Tells whether the build of the library supports a status LED.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_STATUS_LED(void);

/**
 * Tells whether the build of the library supports a main network link.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_LINK_MAIN(void);

/**
 * Tells whether the build of the library supports an auxiliary network link.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_LINK_AUX(void);

/**
 * Tells whether the build of the library senses the presence of USB.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_USB_SENSE(void);

/**
 * Tells whether the build of the library controls a fan.
 * @return 0 for no; another value in a product's build for one that does.
 */
KELO_API int32_t kelo_support_FAN_CTRL(void);

/** @} */

/**
 * @name AT commands and the bridge
 * @{
 */

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

/** @} */

/**
 * @name GSM alphabet and USSD
 *
 * Text of USSD and cell-broadcast messages, as the network codes it by 3GPP TS 23.038, made into
 * NUL-terminated UTF-8. The functions keep no state, take no lock (unless they log) and do not block, so each
 * may be called from any thread at once on different buffers. Input and output must not overlap.
 * @{
 */

/**
 * Tells whether text is plain ASCII.
 * @param text  text.
 * @retval 1  every byte is below 128; so is the empty text.
 * @retval 0  it is not; or `text` is null, which is logged as an error, "<function> param NULL".
 */
KELO_API int kelo_util_UssdStringIsAscii(const char* text);

/**
 * Unpacks septets, eight of which are packed into seven octets (3GPP TS 23.038, 6.1.2), into one a byte.
 *
 * When the octets are a multiple of seven, a last septet of 13 (carriage return) is the padding that fills
 * the last octet, and is left out. Every other carriage return is kept.
 *
 * @param out         receives the septets, each 0 to 127, without a terminator; what is behind them stays as
 *                    it was. Null gives 0.
 * @param out_max     bytes of `out`, at most 255 of which are used; 0 gives 0. A negative value promises
 *                    255 bytes.
 * @param packed      packed septets. Null gives 0.
 * @param packed_len  octets in `packed`. Of more than 256 only the first ((`packed_len` - 1) mod 256) + 1 are
 *                    read: 300 reads 44. 0 or less gives 0.
 * @return septets in `out`, 0 to 255.
 */
KELO_API int kelo_util_ussd_unpack(uint8_t* out, int out_max, const uint8_t* packed, int packed_len);

/**
 * Maps septets of the GSM 7 bit default alphabet (3GPP TS 23.038, 6.2.1), one a byte, to UTF-8.
 *
 * There is no extension table: the escape septet, 27, becomes a space and the septet behind it the character
 * that the default alphabet has in its place, so that an escaped e is " e" and not the euro sign. A carriage
 * return is left out and logged at debug level, "ignored CR charecter at index = <index>". A byte above 127
 * is copied as it is, although the result is then not UTF-8.
 *
 * What does not fit is left out silently; a character of two bytes for which only one is left does not keep a
 * one-byte character behind it from taking that place.
 *
 * @param septets   septets. Null is refused.
 * @param count     how many. 0 or less is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes; two for each septet and one more are always enough. 0 is refused,
 *                  1 holds the empty text.
 * @return length of the text in bytes, modulo 65536; 0 when an argument is refused, which is logged as an
 *         error, "Invalid parameters for GSM alphabet to UTF8 conversion, input len = <count>", and leaves
 *         `out` as it was.
 */
KELO_API int kelo_util_convert_gsm8bit_alpha_string_to_utf8(const uint8_t* septets, int count, char* out,
                                                            size_t out_size);

/**
 * Unpacks septets and maps them to UTF-8: kelo_util_ussd_unpack(), of at most 2 * `packed_len` septets, and
 * kelo_util_convert_gsm8bit_alpha_string_to_utf8() in one call, with all their rules.
 *
 * @param packed      packed septets. Null is refused.
 * @param packed_len  octets in `packed`, as for kelo_util_ussd_unpack(): at most 255 septets are unpacked. 0
 *                    or less is refused.
 * @param out         receives the terminated text. Null is refused.
 * @param out_size    size of `out` in bytes; 511 are always enough. 0 is refused, 1 holds the empty text.
 * @return length of the text in bytes; 0 when an argument is refused, logged as by
 *         kelo_util_convert_gsm8bit_alpha_string_to_utf8() with `packed_len`, or when memory runs out, logged
 *         as the error "Fail to allocate buffer for GSM alphabet to UTF8 conversion": both leave `out` as it
 *         was.
 */
KELO_API int kelo_util_convert_gsm_def_alpha_string_to_utf8(const uint8_t* packed, int packed_len, char* out,
                                                            size_t out_size);

/**
 * Decodes the text of a USSD or cell-broadcast message by its data coding scheme (3GPP TS 23.038, 5).
 *
 * | `dcs`                                     | text                                          |
 * |-------------------------------------------|-----------------------------------------------|
 * | 0x00-0x0F, 0x10, 0x20-0x3F                | GSM 7 bit                                     |
 * | 0x11                                      | a language of two bytes, then UCS-2           |
 * | 0x40-0x7F, 0x90-0x9F, by `dcs` & 0x0C     | 0: GSM 7 bit; 4: 8 bit; 8: UCS-2; 12: none    |
 * | 0xF0-0xFF, by `dcs` & 0x04                | 0: GSM 7 bit; 4: 8 bit                        |
 * | all others                                | none: 0 is returned, and nothing is written   |
 *
 * - GSM 7 bit is converted as by kelo_util_convert_gsm_def_alpha_string_to_utf8().
 * - 8 bit text is copied as it is, whatever it means. It needs `len` + 2 bytes: a smaller `out` is refused as
 *   the error "Destination buffer (sz <out_size>) less than required <len + 1>", though the message names one
 *   byte less.
 * - UCS-2, high byte first, is converted as by kelo_util_convert_ucs2_to_utf8(). A byte left over at its end
 *   lacks its other half and is not converted. The two bytes of a language are converted with the text, as
 *   one character whose low byte comes first. Without memory the error
 *   "USC2 to UTF8 conversion failed due to lack of memory" is logged.
 *
 * Each decoding logs its result at debug level, 8 bit text what `out` held before it, up to the end of `out`.
 *
 * @param dcs       data coding scheme.
 * @param data      coded text. Null is refused.
 * @param len       bytes in `data`; of GSM 7 bit text only `len` modulo 256 are converted, so that 256 is as
 *                  bad as 0. Less than 0 is refused.
 * @param out       receives the terminated text. Null is refused.
 * @param out_size  size of `out` in bytes. 0 writes nothing.
 * @return length of the text in bytes, that of UCS-2 text modulo 65536; 0 when the scheme is none of these,
 *         when a step failed, or when an argument is refused: that is logged as the error
 *         "FATAL : CHECK FAILED" and leaves `out` as it was.
 */
KELO_API int kelo_util_convert_ussd_string_to_utf8(uint8_t dcs, const uint8_t* data, int len, char* out,
                                                   size_t out_size);

/** @} */

/**
 * @name Unicode
 *
 * Conversions between UTF-8 and 16-bit text. They keep no state and take no lock (unless they log), never
 * block or allocate, and may be called from any thread at once on different buffers. Source and target must
 * not overlap.
 *
 * 16-bit text is in the machine's byte order, and its units may stand at any address, odd ones included: a
 * byte array may be passed as it is, its pointer cast.
 *
 * No size is trusted. One that no array can have (above PTRDIFF_MAX, as a negative number becomes) counts as
 * 0, and nothing is read or written outside of what the arguments describe.
 * @{
 */

/** What a conversion came to. In every case what stood before the end of the conversion is in the target. */
enum kelo_unicode_result {
  KELO_UNICODE_COMPLETE = 0,         /**< all of the source is converted */
  KELO_UNICODE_SOURCE_EXHAUSTED = 1, /**< the source ends within a character */
  KELO_UNICODE_TARGET_EXHAUSTED = 2, /**< the next character does not fit into the target */
  KELO_UNICODE_SOURCE_ILLEGAL = 3    /**< the source is ill-formed */
};

/** How a conversion from UTF-16 takes an unpaired surrogate. */
enum kelo_unicode_mode {
  KELO_UNICODE_STRICT = 0, /**< refuses it */
  KELO_UNICODE_LENIENT = 1 /**< converts it; every other value than 0 means the same */
};

/**
 * Converts UTF-16 to UTF-8 (RFC 3629), whole characters at a time, and adds no terminator.
 *
 * Zero units are characters like any other. A byte order mark is converted as the character U+FEFF.
 *
 * Both start pointers are advanced past what was converted. After a failure the source pointer stands at the
 * first unit of the character that failed, the target pointer behind the last character written. Where a
 * character fails in two ways the source counts first: result 1 or 3, not 2.
 *
 * An end that lies before its start is taken for an empty text or buffer.
 *
 * @param source_start  points to the start of the source; any address will do. `*source_start` may be null
 *                      when `source_end` is. Null otherwise logs the error "<function> param NULL", as a null
 *                      `target_start` or `*target_start` does, and nothing is changed.
 * @param source_end    end of the source. Half a unit before it is never read.
 * @param target_start  points to the start of the target. `*target_start` may be null when `target_end` is.
 * @param target_end    end of the target, to which nothing is written.
 * @param flags         a ::kelo_unicode_mode. Lenient converts an unpaired surrogate to the three bytes ED A0
 *                      80 to ED BF BF, so that UCS-2 text survives; strict refuses it.
 * @retval 0  ::KELO_UNICODE_COMPLETE.
 * @retval 1  ::KELO_UNICODE_SOURCE_EXHAUSTED: the source ends behind a high surrogate, in lenient mode too,
 *            or in the middle of a unit.
 * @retval 2  ::KELO_UNICODE_TARGET_EXHAUSTED.
 * @retval 3  ::KELO_UNICODE_SOURCE_ILLEGAL: an unpaired surrogate in strict mode, or a null pointer.
 */
KELO_API int kelo_util_ConvertUTF16toUTF8(const uint16_t** source_start, const uint16_t* source_end,
                                          uint8_t** target_start, uint8_t* target_end, int flags);

/**
 * Converts UTF-8 (RFC 3629) to UTF-16, whole characters at a time, and adds no terminator.
 *
 * Zero bytes are characters like any other. A byte order mark is converted as the character U+FEFF.
 *
 * Both start pointers are advanced past what was converted. After a failure the source pointer stands at the
 * first byte of the sequence that failed, the target pointer behind the last unit written; a pair of
 * surrogates is written as a whole or not at all. Where a sequence fails in two ways the source counts first:
 * result 1 or 3, not 2.
 *
 * How long a sequence is follows from its first byte alone: C0 to DF start two bytes, E0 to EF three, F0 to
 * F7 four, F8 to FB five and FC to FF six, although some of these are always ill-formed. A source that ends
 * within that length is exhausted, whatever its bytes are; only what is there in full is looked at.
 *
 * An end that lies before its start is taken for an empty text or buffer.
 *
 * @param source_start  points to the start of the source. `*source_start` may be null when `source_end` is.
 *                      Null otherwise logs the error "<function> param NULL", as a null `target_start` or
 *                      `*target_start` does, and nothing is changed.
 * @param source_end    end of the source.
 * @param target_start  points to the start of the target; any address will do. `*target_start` may be null
 *                      when `target_end` is.
 * @param target_end    end of the target, to which nothing is written; of half a unit before it neither.
 * @param flags         a ::kelo_unicode_mode, which makes no difference here. Both refuse a first byte of 80
 *                      to C1 or of F8 to FF, a following byte outside 80 to BF, a character in a longer form
 *                      than it needs, surrogates (ED A0 80 to ED BF BF) and values above U+10FFFF (F4 90 80
 *                      80 to F7 BF BF BF).
 * @retval 0  ::KELO_UNICODE_COMPLETE.
 * @retval 1  ::KELO_UNICODE_SOURCE_EXHAUSTED: the source ends within a sequence.
 * @retval 2  ::KELO_UNICODE_TARGET_EXHAUSTED.
 * @retval 3  ::KELO_UNICODE_SOURCE_ILLEGAL: an ill-formed sequence, or a null pointer.
 */
KELO_API int kelo_util_ConvertUTF8toUTF16(const uint8_t** source_start, const uint8_t* source_end,
                                          uint16_t** target_start, uint16_t* target_end, int flags);

/**
 * Converts UCS-2 text to UTF-8, cut to the buffer's size without cutting a character in two.
 *
 * Surrogate pairs become one character of four bytes; an unpaired surrogate becomes three bytes. Zero units
 * become zero bytes within the text.
 *
 * Each of these ends the conversion, is logged, and leaves what was converted before it:
 * - a null `ucs2`, a `byte_len` of 0, half a unit or a high surrogate at the end of the source: the error
 *   "Error in converting ucs2 string to utf8";
 * - a character that does not fit, a null `out` or an `out_size` of 0: the debug message "String has been
 *   truncated. Buffer size of <out_size> not large enough".
 *
 * A null `out` is also logged as the error "utf8str or utf8Start is NULL".
 *
 * @param ucs2      UCS-2 text in the machine's byte order, at any address.
 * @param byte_len  its length in bytes. Of an odd length the last byte is not converted.
 * @param out       buffer of `out_size` bytes; always terminated unless `out_size` is 0.
 * @param out_size  size of the buffer in bytes. With 0 nothing is written, not even the terminator. Of a
 *                  buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UTF-8 in `out`, terminator not counted; 0 when nothing was converted.
 */
KELO_API int kelo_util_convert_ucs2_to_utf8(const uint8_t* ucs2, size_t byte_len, char* out, size_t out_size);

/**
 * Converts UTF-8 text to UCS-2, cut to the buffer's size and ended by a zero unit.
 *
 * Characters above U+FFFF become a pair of surrogates, which is never cut in two. Zero bytes become zero
 * units within the text.
 *
 * Each of these ends the conversion, is logged as an error, and leaves what was converted before it:
 * - an ill-formed sequence, a surrogate or one cut off by the end of the text: "Error in converting utf8
 *   string to ucs2";
 * - a character that does not fit: "String has been truncated. Buffer size of <out_size> not large enough".
 *
 * @param utf8      UTF-8 text. Null logs the error "Invalid parameters. utf8str: <utf8>, ucs2str:
 *                  <ucs2_out>", and nothing is written.
 * @param len       its length in bytes; 0 gives an empty text and is no error.
 * @param ucs2_out  buffer of `out_size` bytes at any address, for units in the machine's byte order. Null as
 *                  for `utf8`.
 * @param out_size  size of the buffer in bytes, of which two are for the terminator; of an odd size the last
 *                  byte stays as it is when the text fills the buffer. With 0 nothing is written, with 1 one
 *                  zero byte. Of a buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UCS-2 in `ucs2_out`, terminator not counted.
 */
KELO_API int kelo_util_convert_utf8_to_ucs2(const char* utf8, size_t len, uint8_t* ucs2_out, size_t out_size);

/**
 * Converts 8-bit text of supplementary services (ISO 8859-1) to UTF-8.
 *
 * Carriage returns are left out, each logged as the information "ignored charecter at index = <index> ". Zero
 * bytes are characters like any other.
 *
 * Text that is all characters above 127 fills a buffer of twice its length before its last character, for the
 * terminator needs room too: that character is left out, logged as the information "ignored extended
 * character at index = <index> not enough bytes. al: <len>ui: <bytes written> us: <out_size>".
 *
 * @param text      the text. Null, as a null `out`, a `len` of 0 and an `out_size` of 0, logs the error
 *                  "Invalid parameters; ascii_str = <text>, utf8_str = <out>", and nothing is written.
 * @param len       its length in bytes.
 * @param out       buffer of `out_size` bytes; terminated unless the call is refused.
 * @param out_size  size of the buffer in bytes. Below twice `len` the call is refused, whatever the text,
 *                  with the error "the utf8 str buffer length is not enough", and nothing is written. Of a
 *                  buffer above INT_MAX bytes no more than INT_MAX are used.
 * @return bytes of UTF-8 in `out`, terminator not counted; 0 when the call is refused.
 */
KELO_API int kelo_util_ss_ascii_to_utf8(const char* text, size_t len, char* out, size_t out_size);

/** @} */

/**
 * @name Command records
 *
 * What daemons put into the queues of each other's worker threads: a record on the heap with a command's type
 * and its payload, both made of words of the machine's pointer size. The daemons define what the types mean
 * and what the words hold. The library knows which of the words own memory, which is memory from malloc() or
 * calloc() wherever it comes from. The functions keep no state, and may be called by several threads at once
 * on different records.
 * @{
 */

/**
 * A command. One byte more belongs to it, behind the struct: ::KELO_CMD_Q_DATA_SIZE bytes in all. The words
 * without a meaning here are the daemons' own; the first two have room for the ::q_link_type of a queue.
 */
typedef struct kelo_cmd_q_data {
  uintptr_t words_1_to_2[2];
  int32_t cmd_type; /**< type of the command; with the machine's padding a word */
  uintptr_t words_4_to_8[5];
  void* payload; /**< ninth word; null for none */
  uintptr_t words_10_to_11[2];
} kelo_cmd_q_data;

/** Bytes of a command record: 45 where pointers have 4 bytes, 89 where they have 8. */
#define KELO_CMD_Q_DATA_SIZE (sizeof(kelo_cmd_q_data) + 1)

/** One entry of a ::kelo_cmd_table. */
typedef struct kelo_cmd_table_entry {
  uintptr_t words_1_to_2[2];
  void* owned_3; /**< freed with the command, and null then */
} kelo_cmd_table_entry;

/** A counted table, which a payload of type 0 or 4 may lead to. Its memory is the daemons' to free. */
typedef struct kelo_cmd_table {
  int32_t count;                   /**< number of entries; 0 or less for none */
  kelo_cmd_table_entry entries[1]; /**< as many as `count` says, one behind the other */
} kelo_cmd_table;

/** Payload of types 0 and 4: ::KELO_CMD_PAYLOAD_0_SIZE bytes, of which one is behind the struct. */
typedef struct kelo_cmd_payload_0 {
  uintptr_t words_1_to_4[4];
  void* owned_5; /**< freed with the command; may be null */
  uintptr_t word_6;
  void* owned_7; /**< freed with the command; may be null */
  uintptr_t words_8_to_10[3];
  kelo_cmd_table* table_11; /**< not freed, unlike its entries' memory; may be null */
} kelo_cmd_payload_0;

/** Bytes of a payload of type 0 or 4: 45 where pointers have 4 bytes, 89 where they have 8. */
#define KELO_CMD_PAYLOAD_0_SIZE (sizeof(kelo_cmd_payload_0) + 1)

/** Payload of type 5: ::KELO_CMD_PAYLOAD_5_SIZE bytes, of which one is behind the struct. */
typedef struct kelo_cmd_payload_5 {
  uintptr_t words_1_to_2[2];
  void* owned_3; /**< freed with the command; may be null */
  uintptr_t word_4;
} kelo_cmd_payload_5;

/** Bytes of a payload of type 5: 17 where pointers have 4 bytes, 33 where they have 8. */
#define KELO_CMD_PAYLOAD_5_SIZE (sizeof(kelo_cmd_payload_5) + 1)

/** Start of a payload of type 13, as far as the library looks at it. */
typedef struct kelo_cmd_payload_13 {
  uintptr_t words_1_to_4[4];
  void* owned_5; /**< freed with the command; may be null */
} kelo_cmd_payload_13;

/** Start of a payload of type 15, as far as the library looks at it. */
typedef struct kelo_cmd_payload_15 {
  void* owned_1; /**< freed with the command; may be null */
} kelo_cmd_payload_15;

/**
 * Makes a command of type 0, 4 or 5 with its payload: zeroes but for the type and the pointer to the payload.
 * Logs the debug message "cmd_type = <cmd_type>".
 *
 * A command of another type is made by the daemon: ::KELO_CMD_Q_DATA_SIZE bytes from calloc().
 *
 * @param cmd_type  0, 4 or 5. Any other is a fatal programming error, logged as the error "Invalid CMD type:
 *                  <cmd_type>" before the source path and line are printed on standard output and the process
 *                  aborts. So, without the log line, is memory that runs out.
 * @return the command, never null; ended by kelo_free_cmd_q_data().
 */
KELO_API kelo_cmd_q_data* kelo_malloc_cmd_q_data(int cmd_type);

/**
 * Frees a command and what belongs to it, the command itself last. Whatever was freed must not be named by a
 * second pointer in it.
 *
 * | type                  | freed besides the command                                                     |
 * |-----------------------|-------------------------------------------------------------------------------|
 * | 0, 4                  | `owned_5`, `owned_7` and each table entry's `owned_3`, which is set to null;  |
 * |                       | the payload                                                                   |
 * | 5                     | `owned_3`, the payload                                                        |
 * | 7, 8, 10, 11, 12, 14  | the payload                                                                   |
 * | 13                    | `owned_5`, the payload                                                        |
 * | 15                    | `owned_1`, the payload                                                        |
 * | 6, 9                  | nothing                                                                       |
 * | any other             | nothing; logged as the error "Invalid CMD type: <type>"                       |
 *
 * So this stays allocated, and leaks unless the daemon keeps a pointer of its own and frees it afterwards:
 * the counted table of types 0 and 4; the payload of types 6 and 9 and of every type that is not in the
 * table; and all memory that payloads hold in other words than these.
 *
 * A null payload is fine with every type. Logs the debug message "oem_free_cmd_q_data:cmd_type=<type>,
 * <payload>" with the address of the payload.
 *
 * @param record  command in a block of its own, whoever made it; in no queue any more. Null is logged as the
 *                error "oem_free_cmd_q_data invalid queue data".
 */
KELO_API void kelo_free_cmd_q_data(kelo_cmd_q_data* record);

/** @} */

/**
 * @name Clock and time
 *
 * Clock readings, their sums, and dates. The functions keep no state, do not block but for a log line, and
 * may be called from any thread at once on different records.
 * @{
 */

/**
 * A point in time, or a length of time. `microseconds` is 0 to 999999 in every reading of a clock.
 *
 * `seconds` is kept modulo 2^32, here and in sums. A wall clock behind 2038-01-19 03:14:07 UTC therefore
 * reads as negative seconds, from INT32_MIN up, and passes 0 again in 2106; `(uint32_t)seconds` is right
 * until then. Differences taken modulo 2^32 are right at any date.
 */
typedef struct kelo_clk_time {
  int32_t seconds;
  int32_t microseconds;
} kelo_clk_time;

/** A date and time of day in the Gregorian calendar. */
typedef struct mytime {
  uint16_t year;        /**< for example 2024; modulo 65536 */
  uint8_t month;        /**< 1 to 12 */
  uint8_t day;          /**< 1 to 31 */
  uint8_t hour;         /**< 0 to 23 */
  uint8_t minute;       /**< 0 to 59 */
  uint8_t second;       /**< 0 to 59: leap seconds are not counted */
  uint16_t millisecond; /**< 0 to 999 */
  uint8_t weekday;      /**< 1 (Monday) to 6 (Saturday); Sunday is 0 on some dates and 7 on others */
} mytime;

/** Days of each month of a common year, January first. */
extern KELO_API const uint8_t g_day_per_mon[12];

/**
 * Reads the monotonic clock, which no setting of the date touches. It counts from an unspecified moment,
 * usually the boot, and only while the system is not suspended.
 *
 * @param out  receives the reading; zero when the clock cannot be read, which prints "clock_gettime()
 *             failed. errno = <number> (<its text>)" on standard output. Null is logged as the error
 *             "kelo_clk_GetRelativeTime param NULL".
 * @return `out`.
 */
KELO_API kelo_clk_time* kelo_clk_GetRelativeTime(kelo_clk_time* out);

/**
 * Reads the wall clock: seconds and microseconds since 1970-01-01 00:00:00 UTC.
 *
 * From 2038-01-19 03:14:08 UTC on the seconds are negative, see ::kelo_clk_time. With a C library whose own
 * time has 32 bits, reading the clock may fail from that moment on.
 *
 * @param out  receives the reading; zero when the clock cannot be read, which is logged as critical,
 *             "CLOCK_REALTIME is not supported for Absolute time". Null is logged as the error
 *             "kelo_clk_GetAbsoluteTime param NULL".
 * @return `out`.
 */
KELO_API kelo_clk_time* kelo_clk_GetAbsoluteTime(kelo_clk_time* out);

/**
 * Adds two times that have 0 to 999999 microseconds each, as the clocks give them.
 *
 * One second is carried when the microseconds come to 1000000 or more, never more than one, and none is
 * borrowed for negative ones: of other microseconds the result is exact but not in that range. The seconds,
 * and the microseconds behind the carry, are kept modulo 2^32: INT32_MAX seconds and 1 give INT32_MIN.
 *
 * @param out  receives the sum. Null is logged as the error "kelo_clk_Add param NULL".
 * @param a    a time.
 * @param b    a time.
 * @return `out`.
 */
KELO_API kelo_clk_time* kelo_clk_Add(kelo_clk_time* out, kelo_clk_time a, kelo_clk_time b);

/**
 * Tells how long the system runs. Logs the information "info.uptime is <seconds>".
 *
 * @return seconds since boot, suspended ones included; a part of a second counts as a whole one. Modulo 2^32:
 *         negative after 68 years. 0 when the kernel does not tell.
 */
KELO_API int32_t get_linuxuptime(void);

/**
 * Counts the days from one date to another.
 *
 * Both dates are taken as midnight of the zone's standard time (`TZ`), in summer too, so changes to and from
 * daylight-saving time do not count. The time between the two is divided by 24 hours and truncated toward 0:
 * where a zone changed its standard time in between, a day may be missing. So it may before 1970, for which
 * the C library may lack the zone's rules.
 *
 * A date is a year, a month and a day in decimal, a hyphen between them, such as "2024-1-31" or "2024-01-31".
 * White space and a sign may stand before each number, and anything behind the day. A month or day beyond the
 * calendar counts on from it: "2024-13-1" is 2025-01-01, "2024-3-0" is 2024-02-29. Numbers that are missing
 * or that follow something unexpected are 0: "2024" is 2023-11-30. Numbers beyond -2147481748 and 2147483647
 * count as these.
 *
 * Takes the C library's lock of the time zone: not for the child of a fork() by a program with threads.
 *
 * @param from  the first date. Null is logged as the error "get_days param NULL".
 * @param to    the other date. Null as for `from`.
 * @return days from `from` to `to`, negative when `to` is the earlier, at most INT32_MAX and at least
 *         INT32_MIN; 0 when an argument is null. A date that the C library cannot represent, such as one
 *         behind 2038-01-19 where its time has 32 bits, counts as the last second of 1969 in UTC.
 */
KELO_API int32_t get_days(const char* from, const char* to);

/**
 * Converts milliseconds since 1970-01-01 00:00:00 UTC to a date and time of day in UTC.
 *
 * The day of the week follows Zeller's congruence with the signs of its division: Sunday is 7 when the sum
 * comes out below 1 and 0 otherwise. 2000-01-02 is 0 and 2000-03-05 is 7, and both are Sundays; take
 * `weekday % 7`. Years beyond 65535 are stored modulo 65536; the other fields are right for them too.
 *
 * @param milliseconds  milliseconds since 1970, not seconds; every value is valid.
 * @param out           receives the date and time. Null is logged as the error
 *                      "kelo_util_utc_sec_2_mytime param NULL".
 * @param add_hour      1 or any other value but 0: one hour is added first, modulo 2^64 milliseconds.
 */
KELO_API void kelo_util_utc_sec_2_mytime(uint64_t milliseconds, mytime* out, int add_hour);

/** @} */

/**
 * @name Processes, directories and integer files
 *
 * Looks at the system and small changes to it. The functions keep no state and may be called by several
 * threads at once. They block for as long as the shell commands and the files that they use.
 * @{
 */

/**
 * Finds a process by its name: the number at the start of the first line that the shell prints for
 * "ps -e | grep <name> | grep -v grep".
 *
 * The name is a basic regular expression that matches anywhere in a line of `ps -e`, so that a part of
 * another name counts, as do digits of an id or of a time. It is a piece of shell text: one with blanks or
 * quotes is split by the shell. One with a line end or one of ; & | < > $ \ ` ( ) is not found, and nothing is
 * run for it. A process with "grep" in its line is
 * not found. `ps -e` must print the process id first in each line; names that it cuts cannot match behind the
 * cut. Of the first line only 255 bytes are looked at.
 *
 * @param name  the name, at most 227 bytes, with which the command and its terminator fill 256. Null is
 *              logged as the error "oem_get_pid_by_name param NULL".
 * @return the process id. A number beyond the range of an int gives the end of that range.
 * @retval -1  no line has the name, or the first such line does not begin with a number (white space before
 *             it is skipped); `name` is null; or the command is too long or cannot be started, which is
 *             logged as the error "command popen error!!!": a longer command is not run at all.
 */
KELO_API int32_t oem_get_pid_by_name(const char* name);

/**
 * Makes a directory, and every missing one on the way to it, unless the path is there already.
 *
 * Says in the log what became of it, with the path as it was passed: the debug message "Directory <path>
 * already exists." for a file of any kind, "Directory <path> created.", or the error "Directory <path>
 * creation error.". Directories on the way that were made before a failure stay.
 *
 * What counts is the last step. Where another process makes the directory at the same moment, or the path
 * ends in two slashes, that step finds the directory there and is logged as an error.
 *
 * @param path  path of at most 255 bytes, absolute or relative, with or without one "/" at its end, which
 *              counts. A longer one that is not there is an error and nothing is made; so is the empty one.
 *              Each directory gets the permissions 0777, less those that the process's umask takes away. Null
 *              is logged as the error "oem_create_and_check_directory param NULL".
 */
KELO_API void oem_create_and_check_directory(const char* path);

/**
 * Reads a file that holds one decimal integer, such as a switch of the kernel.
 *
 * The number stands at the start of the file, behind any white space, with a sign or without, and ends at the
 * first other character. It is looked for in the first 256 bytes, and not behind a NUL byte. A number beyond
 * the range of 32 bits gives INT32_MAX or INT32_MIN. The text is logged as the debug message "read
 * content:<text>".
 *
 * @param path  the file. A pipe is waited for.
 * @return the number; 0 when the file does not begin with one, is empty, or cannot be read, as a directory.
 * @retval 0  `path` is null, logged as the error "Not exist file"; or the file cannot be opened, "Not exist
 *            file=<path>". This cannot be told from a file that holds 0.
 */
KELO_API int32_t kelo_util_get_file_int_value(const char* path);

/**
 * Makes a file hold one decimal integer and nothing else, without a line end.
 *
 * The file is truncated or made (permissions 0666, less those that the process's umask takes away), written,
 * and forced to the storage; the folder that it is in is not. A power cut in between may leave it empty,
 * which reads as 0. What has no storage, as a pipe, a device or a file of /proc, need not be forced there.
 *
 * @param path   the file. A pipe waits for its reader; one whose reader leaves is a write that fails.
 * @param value  the number.
 * @retval 0  the file holds the number.
 * @retval 7  `path` is null, logged as the error "Not exist file"; the file cannot be opened, "Not exist
 *            file=<path>"; or a write, the forcing or the closing failed, "fwrite() failed, only [<bytes
 *            written>] written, total_len=[<bytes>], reason=[<error text>]<error number>", without a line
 *            end.
 */
KELO_API int kelo_util_set_file_int_value(const char* path, int32_t value);

/**
 * Asks whether a host answers ping.
 *
 * Runs "ping -c 2 -W 3 <host> > /dev/null 2>&1" by kelo_system_call_ex(), at most three times until it
 * succeeds, and logs the debug message ">>>ping status:success>>>" or ">>>ping status:fail>>>" behind each
 * try. What counts as an answer is the `ping` program's to say: usually one reply to two requests. Blocks for
 * as long as that takes, some 12 seconds for a host that is silent.
 *
 * @param host  address or name. It is a piece of shell text: options may stand before it, and one from outside is
 *              to be checked first, for example with is_valid_ip(). Each try with a line end or one of
 *              ; & | < > $ \ ` ( ) in it fails without running anything. At most 223 bytes, with which the command and its terminator fill
 *              256; each try with a longer one fails without running anything, as
 *              kelo_system_call_ex() refuses a command of another length.
 * @retval 0   the host answered.
 * @retval -1  three tries failed, also because there is no `ping`, or no process was to be had.
 * @retval 3   `host` is null; nothing is logged.
 */
KELO_API int kelo_ping_state(const char* host);

/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_APP_COMMON_H */
