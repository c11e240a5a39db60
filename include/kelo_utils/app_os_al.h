/**
 * @file app_os_al.h
 * @brief What daemons need of the operating system: text, hexadecimal and shell helpers, supervised commands,
 *        the routes and addresses of the kernel.
 */
#ifndef KELO_UTILS_APP_OS_AL_H
#define KELO_UTILS_APP_OS_AL_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Text and hexadecimal
 *
 * Helpers on NUL-terminated text in buffers of the caller. None of them allocates, blocks or takes a lock
 * (unless it logs), so each may be called from any thread at once on different texts. Source and destination
 * must not overlap. Bytes above 127 are treated alike whether `char` is signed or not. A null argument for
 * which no result is given below is logged as an error, "<function> param NULL", and gives the function's
 * failure result.
 * @{
 */

/**
 * Copies text into a buffer, cut to its size and always terminated.
 * @param destination  buffer of `size` bytes.
 * @param source       text.
 * @param size         size of the buffer in bytes; 0 writes nothing, 1 only the terminator.
 * @return length of `source`: `size` or more means that the copy was cut; 0 when a pointer is null.
 */
KELO_API size_t kelo_strlcpy(char* destination, const char* source, size_t size);

/**
 * Appends text to the text in a buffer, cut to its size and terminated.
 * @param destination  buffer of `size` bytes that holds text; without a terminator in them it is left alone.
 * @param source       text to append.
 * @param size         size of the whole buffer in bytes, not of the room left.
 * @return length of the text in `destination` before the call (at most `size`) plus that of `source`: `size`
 *         or more means that the result was cut; 0 when a pointer is null.
 */
KELO_API size_t kelo_strlcat(char* destination, const char* source, size_t size);

/**
 * Fills a field of fixed width: text, then zeros up to the width.
 *
 * Text of `n` or more characters fills the field and leaves it without a terminator.
 *
 * @param destination  field of `n` bytes. Null logs the error "Invalid string parameter." and does nothing.
 * @param source       text, of which at most `n` bytes are read. Null as for `destination`.
 * @param n            width of the field in bytes.
 */
KELO_API void kelo_string_memcpy(char* destination, const char* source, size_t n);

/**
 * Copies UTF-8 text into a buffer without ever cutting a character in two.
 *
 * Characters are told apart by their first byte alone: the bytes after it are taken as they are. A character
 * that the end of the text cuts off is left out, as one that does not fit.
 *
 * A null `destination` or `source` and a `size` of 0 are fatal programming errors: the process prints the
 * source path and line, and aborts.
 *
 * @param destination  buffer of `size` bytes; always terminated.
 * @param source       UTF-8 text.
 * @param size         size of the buffer in bytes, not 0.
 * @param copied       receives the bytes copied, terminator not counted; may be null.
 * @retval 0   the whole text was copied; or it holds a byte that starts no character before anything had to
 *             be left out: `destination` is then the empty text and `*copied` is 0.
 * @retval -1  a character did not fit or was cut off: `destination` holds the whole characters before it.
 */
KELO_API int kelo_utf8_Copy(char* destination, const char* source, size_t size, size_t* copied);

/**
 * Tells how long a UTF-8 character is.
 * @param lead  its first byte.
 * @return 1 to 4 bytes; 0 for a byte that starts no character (0x80 to 0xBF and 0xF8 to 0xFF).
 */
KELO_API int kelo_utf8_NumBytesInChar(char lead);

/**
 * Removes the white space around a text, in place: what isspace() says is such, in the process's locale.
 * @param text  text in writable memory; what is left of it moves to its start.
 * @return `text`; null when it is null.
 */
KELO_API char* kelo_trim_string(char* text);

/**
 * Strips the characters of a set from both ends of a text, in place: quotes and blanks around a parameter of
 * an AT command.
 *
 * Nothing moves: the leading ones are skipped and the trailing ones overwritten with terminators.
 *
 * @param text  text in writable memory. Null is logged.
 * @param set   the characters to strip, in any order; the empty text strips none. Null is logged.
 * @return the first character kept, inside `text`; its terminator when nothing is kept; null on a null
 *         argument.
 */
KELO_API char* kelo_at_param_strip(char* text, const char* set);

/**
 * Copies what stands between the double quotes around a text. There are no escapes: the first quote after the
 * opening one closes the text and must be its last character.
 *
 * @param input   the quoted text. Null is logged.
 * @param output  buffer of `size` bytes, which must not overlap `input`. Null is logged.
 * @param size    size of `output` in bytes: `size` - 1 characters fit.
 * @retval 1      the text between the quotes is in `output`, terminated.
 * @retval 0      refused with an error in the log: `input` does not begin with a quote ("The in_str must be
 *                quoted"; `output` is as it was), it has no closing quote or does not fit ("The in_str has
 *                opened quotes, or out_str is small: ..."), or something follows its closing quote ("String
 *                is not terminated after end quote found"). In the last two cases `output` holds the
 *                characters after the opening quote, at most `size` of them, without a terminator.
 */
KELO_API int kelo_strip_quotes_out(const char* input, char* output, size_t size);

/**
 * Tells whether a text starts with another.
 * @param text         text.
 * @param prefix       what it should start with; every text starts with the empty one.
 * @param ignore_case  non-zero: letters match in either case, as strcasecmp() has it.
 * @return 1 or 0; 0 when a pointer is null.
 */
KELO_API int starts_with(const char* text, const char* prefix, int ignore_case);

/**
 * Tells whether a text ends with another.
 * @param text         text.
 * @param suffix       what it should end with; every text ends with the empty one.
 * @param ignore_case  non-zero: letters match in either case, as strcasecmp() has it.
 * @return 1 or 0; 0 when a pointer is null.
 */
KELO_API int ends_with(const char* text, const char* suffix, int ignore_case);

/**
 * Makes an ASCII letter a small one, in every locale.
 * @param character  any value.
 * @return `character` + 32 for A to Z, `character` for everything else.
 */
KELO_API int tolowercase(int character);

/**
 * Makes the letters of a text capital ones, in place: byte by byte as toupper() does, in the process's
 * locale.
 * @param text  text in writable memory. Null is logged.
 * @return `text`; null when it is null.
 */
KELO_API char* kelo_string_toupper(char* text);

/**
 * Gives the hexadecimal digit of a value.
 * @param value  0 to 15.
 * @return '0' to '9' or 'A' to 'F'; the terminator 0 for any other value.
 */
KELO_API char DecToHex(int value);

/**
 * Writes bytes as hexadecimal text: two capital digits for each, the high half first.
 *
 * More than 0x3FFFFFFF bytes, whose digits an `int` cannot count, never fit.
 *
 * @param bytes  the bytes. Null is logged.
 * @param count  number of bytes.
 * @param text   buffer of `size` bytes, which must not overlap `bytes`. Null is logged.
 * @param size   size of `text` in bytes: 2 x `count` + 1 are needed.
 * @return number of digits written, 2 x `count`, the terminator not counted.
 * @retval -1    they do not fit, or a pointer is null: `text` is as it was. Only the null is logged.
 */
KELO_API int hex_BinaryToString(const uint8_t* bytes, uint32_t count, char* text, uint32_t size);

/**
 * The same as hex_BinaryToString(), but a `text` that is too small is logged as the error "Hex string array
 * (<size>) is too small to convert (<count>) bytes".
 */
KELO_API int kelo_hex_BinaryToString(const uint8_t* bytes, uint32_t count, char* text, uint32_t size);

/**
 * Reads bytes from hexadecimal text: two digits of either case for each, the high half first.
 * @param text    the digits; nothing behind `length` is read, and no terminator needed. Null is logged.
 * @param length  number of digits.
 * @param bytes   buffer of `size` bytes. Null is logged.
 * @param size    size of `bytes`: `length` / 2 are needed.
 * @return number of bytes written, `length` / 2; 0 for no digits.
 * @retval -1     refused, and logged at the debug level: an odd `length`, a `bytes` that is too small (in
 *                both cases `bytes` is as it was), or a character that is no digit (the bytes before its pair
 *                are written); a null pointer, logged as an error.
 */
KELO_API int kelo_hex_StringToBinary(const char* text, uint32_t length, uint8_t* bytes, uint32_t size);

/**
 * Reads a hexadecimal number, strictly: digits of either case and nothing else, no "0x" and no sign.
 * @param text  the digits; leading zeros do not matter. Null is logged.
 * @return the number, 0 to 0x7FFFFFFF; 0 for the empty text.
 * @retval -1   a larger number, a character that is no digit, or a null pointer.
 */
KELO_API int kelo_hex_HexaToInteger(const char* text);

/**
 * Reads a hexadecimal number, leniently.
 *
 * Every letter counts as a digit: "g" or "G" as 16 up to "z" or "Z" as 35, so that "1g" is 32. The number
 * ends at the first character that is neither a letter nor a decimal digit. Only the low 32 bits of a larger
 * number are kept, as a signed number.
 *
 * @param text  the digits, after "0x", "0X" or neither. Null is logged.
 * @return the number; 0 without digits and when `text` is null.
 */
KELO_API int htoi(const char* text);

/**
 * Reads bytes from hexadecimal text, all of it or none.
 * @param text   the digits, two of either case for each byte, the high half first.
 * @param bytes  receives half as many bytes as `text` has digits; no terminator follows them.
 * @retval 0     all bytes are written; none for the empty text.
 * @retval -1    an odd number of characters, one that is no digit, or a null pointer: nothing is written.
 */
KELO_API int kelo_change_hexstr_to_str(const char* text, uint8_t* bytes);

/**
 * Replaces the first occurrence of a pattern in a text, in place and without a terminator.
 *
 * The result, cut to 1023 characters, is written over the start of the text, and what it does not cover
 * stays. A shorter replacement thus leaves the last characters of the old text behind the new one ("abcdef"
 * with "cd" replaced by "X" becomes "abXeff"), and a longer one overwrites the terminator: callers replace by
 * the same length, put zeros behind the text, or terminate it themselves.
 *
 * @param text         text in writable memory with room for the result. Null is logged.
 * @param pattern      what to replace; the empty text is found at the start.
 * @param replacement  what to put in its place.
 * @retval 0           replaced.
 * @retval -1          `pattern` does not occur, or a pointer is null: `text` is as it was.
 */
KELO_API int replace_str(char* text, const char* pattern, const char* replacement);

/* The C library may have a function of this name: <string.h>, included above, then declares it first, with a
 * promise not to throw that C++ wants repeated. Some libraries have a macro as well. */
#undef strsep
#ifdef __THROW
#define KELO_STRSEP_NOTHROW __THROW
#else
#define KELO_STRSEP_NOTHROW
#endif
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wredundant-decls"

/**
 * Cuts the next token off a text, as the C library's strsep() does. A program linked with this library gets
 * this function, whichever header declares it.
 *
 * Each delimiter ends a token, so that two in a row have the empty token between them, and a text that ends
 * with one has the empty token last.
 *
 * @param text        points to the rest of the text, which the call moves behind the token and its delimiter,
 *                    or sets to null after the last token. A null `text` is logged.
 * @param delimiters  the characters that end a token; the empty text leaves the rest whole. Null is logged.
 * @return the token, inside the text, with its delimiter overwritten by a terminator; null when the rest is
 *         null, or a pointer is.
 */
KELO_API char* strsep(char** text, const char* delimiters) KELO_STRSEP_NOTHROW;

#pragma GCC diagnostic pop
#undef KELO_STRSEP_NOTHROW

enum {
  /** Flag of split_string_to_array(): empty tokens are not stored. */
  KELO_SPLIT_SKIP_EMPTY = 1
};

/**
 * Cuts a text into tokens, in place, as strsep() does.
 * @param text        text in writable memory: its delimiters become terminators. The empty text is one empty
 *                    token.
 * @param delimiters  the characters that end a token. Null is logged.
 * @param array       receives the tokens, pointers into `text`, in their order. It is not bounded: it needs
 *                    room for one more than `text` has delimiters.
 * @param flags       ::KELO_SPLIT_SKIP_EMPTY or 0; other bits are ignored.
 * @return number of tokens stored; -1 when a pointer is null: nothing is then cut or stored.
 */
KELO_API int split_string_to_array(char* text, const char* delimiters, char** array, uint32_t flags);
/** @} */

/**
 * @name Shell commands
 *
 * Command lines for the shell, "/bin/sh -c", as they stand: quoting of file names and arguments is the
 * caller's business, and text from outside belongs into kelo_ds_system_call3() instead. The command inherits
 * the caller's environment, its streams but for the one that is captured or closed, and every descriptor that
 * is not close-on-exec; the library adds none. It starts with no signal blocked and with the default action of
 * SIGPIPE and SIGCHLD, whatever the caller has set; it ignores what other signals the caller ignores.
 *
 * All functions block until the shell has ended, however long that takes, may be called by several threads at
 * once, and leave neither a descriptor nor a zombie behind. A signal that the caller handles shortens no wait
 * and loses no output. Failures are logged as errors, the steps of a command and what it printed as debug
 * messages. A process that ignores SIGCHLD sees no exit status: kelo_system_call() and kelo_system_call_ex()
 * return -1 in it, although the command has run.
 *
 * The calling thread blocks SIGCHLD during the call, so that a handler which waits for every child of the process
 * does not take the command's status. In a program with several threads such a handler may run in another one,
 * and the result is -1 then as above: block SIGCHLD in the other threads, or let the handler wait for the
 * children that the program itself has started.
 * @{
 */

/**
 * Runs a shell command and reports its raw wait status.
 *
 * While the command runs the calling process ignores SIGINT and SIGQUIT, as with the C library's system(); of
 * calls in several threads at once the one that began first ends that. A program that has system() itself run in
 * another thread at the same time may be left with the two signals ignored.
 *
 * @param command  the command. Null is logged, "kelo_system_call param NULL", and refused.
 * @param length   its length in bytes, terminator not counted, as the caller counted it: a guard against text
 *                 that was cut or not terminated. Another length than the text has is logged and refused.
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or no process was to be had or waited for.
 * @return otherwise the raw status: 256 times the exit code (1 gives 256; 32512 is the shell's word for a
 *         command that it did not find), or the number of the signal that ended the shell, plus 128 with a
 *         core dump.
 */
KELO_API int kelo_system_call(const char* command, uint32_t length);

/**
 * Formats a shell command and runs it as kelo_system_call() does, under whose name the run is logged.
 *
 * A command that does not fit is cut, and run as what is left of it: have room for the longest.
 *
 * @param buffer  receives the command, NUL-terminated. The command must not be formatted from it.
 * @param size    bytes of `buffer`: at most `size` - 1 characters of the command are kept.
 * @param format  printf-style format of the command, with its arguments behind it.
 * @return what kelo_system_call() returns for the text in `buffer`; -1, with an error logged and without
 *         running anything, for a null `buffer` or `format`, a `size` of 0 or less and arguments that cannot
 *         be formatted.
 */
KELO_API int kelo_system_call_var_arg(char* buffer, int32_t size, const char* format, ...) KELO_PRINTF(3, 4);

/**
 * Runs a shell command that has nothing to read and reports its exit code.
 *
 * The command's standard input is a pipe that ends at once. Unlike kelo_system_call() it leaves SIGINT and
 * SIGQUIT alone.
 *
 * @param command  the command. Null is logged, "kelo_system_call_ex param NULL", and refused.
 * @param length   its length in bytes, as for kelo_system_call().
 * @retval 0    the command exited with code 0.
 * @retval -1   nothing was run, or the end of the command could not be waited for. Where no process was to be had
 *              the result is logged after that failure, "system command failed, rc=-1 errno: ...".
 * @return otherwise the exit code itself, 1 to 255; or, when a signal ended the shell, the raw status: the
 *         number of the signal, plus 128 with a core dump.
 */
KELO_API int kelo_system_call_ex(const char* command, uint32_t length);

/**
 * Runs a shell command and captures the lines that it prints on its standard output.
 *
 * Lines are appended to the result, with their newlines, for as long as they fit: the first that does not is
 * dropped whole, logged, and ends the reading. A line of more than `size` - 2 bytes is taken in pieces of
 * that many bytes, each of which counts as a line. Of a line, or such a piece, with a NUL byte only what
 * stands before that is kept.
 *
 * As soon as nothing more is read (at once without a result) the pipe is closed: a command that prints more
 * may be ended by SIGPIPE before its work is done. Redirect what is not wanted. Output is read until everyone
 * who holds it has closed it, a process that the command leaves in the background included.
 *
 * @param command  the command. Null is logged and refused.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that it is always
 *                 terminated. Null: nothing is read. On failure it is as it was.
 * @param size     bytes of `result`. With 1 or 2 no line fits and the result is empty; with 0 or less
 *                 `result` is left alone. Memory of that size is allocated for the time of the call.
 * @retval 0   the command ran. Its exit status is not examined: a command that fails and prints nothing gives
 *             an empty result.
 * @retval -1  null command, no memory, descriptor or process to be had.
 */
KELO_API int kelo_popen_call(const char* command, char* result, int32_t size);

/**
 * Runs a shell command, waits a second, and captures what it prints on its standard output.
 *
 * The call never takes less than that second, which callers count on for a command that takes effect in the
 * background. All output is read to its end, as for kelo_popen_call(), and what does not fit is lost. It is
 * read in lines of at most 510 bytes, longer ones in pieces: of each with a NUL byte only what stands before
 * that is kept.
 *
 * @param command  the command.
 * @param result   receives the text. All `size` bytes are zeroed before the first line, so that it is always
 *                 terminated. On failure it is as it was.
 * @param size     bytes of `result`, of which at most `size` - 2 are filled with text. With 1 the reading
 *                 ends behind the first line; with 0 or less `result` is left alone.
 * @retval 0   the command ran. Its exit status is not examined.
 * @retval -1  null command or result, no memory, descriptor or process to be had; the second is not waited
 *             for then.
 */
KELO_API int kelo_popen_call_ex(const char* command, char* result, int32_t size);

/**
 * Counts the processes whose line in the output of `ps` holds a name, by "ps | grep -v grep | grep -c" and
 * the name.
 *
 * Whatever `ps` shows without options counts: which processes, and whether their arguments are searched too.
 * The name is a basic regular expression that matches anywhere in a line, so that a part of another name
 * counts, and it is a piece of shell text: one with blanks or quotes is split by the shell. A process with
 * "grep" in its line is never counted.
 *
 * @param name  the name, at most 99 bytes. A longer one is a fatal programming error: the process prints the
 *              source path and line, and aborts. Null is logged, "kelo_check_process_exist param NULL".
 * @retval -1  the count could not be read, as nothing was printed; or `name` is null.
 * @return otherwise how many; 0 too when the command could not be started, which is not logged.
 */
KELO_API int kelo_check_process_exist(const char* name);
/** @} */

/**
 * @name Supervised commands
 * @{
 */

/**
 * Runs one of a fixed set of system tools without a shell, captures what it prints, and kills it when it
 * falls silent.
 *
 * The first word of the command names the program: iptables, ip6tables, ip, ifconfig, tc, rm, echo, ls and
 * sleep stand for the system's own tools at their fixed places, ndc is found through the process's search
 * path, and a word that contains "/bin" or "/sbin" anywhere is started as the path that it is. Any other
 * first word, one in other letter case included, is refused without a log line. No shell interprets the text:
 * quotes, wildcards and redirections reach the program as they stand, and only spaces separate words.
 *
 * The program inherits the caller's standard input and environment, and starts with the signals that a shell
 * command starts with. Its standard output and standard error
 * are captured together, in the order in which it wrote them. What it leaves running in the background counts
 * as part of it, unless that closes all descriptors it inherited.
 *
 * Blocks until the command has ended, or has been silent for 2 seconds: neither a byte nor the end of its
 * output. A command that keeps printing may run for ever; one that is silent longer gets SIGKILL. A killed
 * command is not waited for: the calling process reaps it, with waitpid() or by ignoring SIGCHLD. One that has been
 * reaped by then, because it left a silent background, is not killed: no other process gets the signal, although it
 * may have the number by then. On a kernel before 5.3 that holds as long as no other thread reaps at that very moment
 * and starts a child that is given the number. A signal that interrupts the wait starts the 2 seconds anew. A process
 * that ignores SIGCHLD never sees an exit code, so that every command counts as failed; of a handler that waits for
 * every child the same holds as for shell commands.
 *
 * May be called by several threads at once. Every line logged about a running command carries the function
 * name "kelo_ds_exec_internal" and the calling thread, those about a program that could not be started
 * included.
 *
 * @param command     the command line, at most 511 characters and 31 words, the program included. Runs of
 *                    spaces count as one, leading and trailing ones as none. A 32nd word makes the child exit
 *                    with 255 instead of starting the program. Null is logged and refused.
 * @param reserved    ignored.
 * @param output      receives the output, NUL-terminated; null discards it. Nothing is written before the
 *                    first byte arrives: after a command that prints nothing the buffer is as it was.
 * @param output_size bytes of `output`: `output_size` - 1 bytes are kept and what is beyond them is dropped.
 *                    With 1, 0 or less the buffer is left alone.
 * @param verbose     non-zero logs the command before it is run.
 * @retval 0          the program ran and exited with code 0.
 * @retval -1         anything else: refused, too long, no memory, descriptor or process to be had, not
 *                    startable, silent for too long, exit code other than 0, death by a signal. What was
 *                    captured until then, error messages included, is in `output`.
 */
KELO_API int kelo_ds_system_call3(const char* command, int32_t reserved, char* output, int32_t output_size,
                                  int verbose);

/** @} */

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

#endif /* KELO_UTILS_APP_OS_AL_H */
