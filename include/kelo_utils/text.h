/* SPDX-License-Identifier: MIT */
/**
 * @file text.h
 * @brief Helpers on text: bounded copies, trimming, quotes, case, splitting and hexadecimal.
 *
 * All functions work on NUL-terminated text in buffers of the caller. None of them allocates memory. Source
 * and destination must not overlap. Bytes above 127 are treated in the same way whether `char` is signed or
 * not.
 *
 * Where no result is given for a null argument, the argument is logged as an error, "<function> param NULL",
 * and the function returns its failure result.
 */
#ifndef KELO_UTILS_TEXT_H
#define KELO_UTILS_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * Copies text into a buffer. The copy is cut to the size of the buffer and is always terminated.
 * @param destination  buffer of `size` bytes.
 * @param source       text.
 * @param size         size of the buffer in bytes. With 0 nothing is written, with 1 only the terminator.
 * @return length of `source`. A result of `size` or more means that the copy was cut. 0 when a pointer is
 *         null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API size_t kelo_strlcpy(char* destination, const char* source, size_t size);

/**
 * Appends text to the text in a buffer. The result is cut to the size of the buffer and is terminated.
 * @param destination  buffer of `size` bytes that holds text. A buffer without a terminator in these bytes is
 *                     not changed.
 * @param source       text to append.
 * @param size         size of the whole buffer in bytes, not of the bytes that are free.
 * @return length of the text in `destination` before the call (at most `size`) plus the length of `source`. A
 *         result of `size` or more means that the text was cut. 0 when a pointer is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API size_t kelo_strlcat(char* destination, const char* source, size_t size);

/**
 * Fills a field of fixed width with text, and with zeros after the text up to the width.
 *
 * Text of `n` or more characters fills the field and leaves it without a terminator.
 *
 * @param destination  field of `n` bytes. When it is null, the error "Invalid string parameter." is logged
 *                     and nothing is done.
 * @param source       text, of which at most `n` bytes are read. Null as for `destination`.
 * @param n            width of the field in bytes. With 0 nothing is written.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API void kelo_string_memcpy(char* destination, const char* source, size_t n);

/**
 * Copies UTF-8 text into a buffer and never cuts a character in two.
 *
 * The first byte alone decides how long a character is. The bytes after it are copied without a check. A
 * character that the end of the text cuts off is left out, in the same way as a character that does not fit.
 *
 * A null `destination` or `source` and a `size` of 0 are fatal programming errors: the source path and line
 * are printed on standard output and the process aborts.
 *
 * @param destination  buffer of `size` bytes; it is always terminated.
 * @param source       UTF-8 text.
 * @param size         size of the buffer in bytes, not 0.
 * @param copied       receives the number of bytes copied, without the terminator; may be null.
 * @retval 0   the whole text was copied. 0 is also the result when the text holds a byte that starts no
 *             character and nothing had to be left out before it: `destination` is then the empty text and
 *             `*copied` is 0.
 * @retval -1  a character did not fit or was cut off: `destination` holds the whole characters before it.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_utf8_Copy(char* destination, const char* source, size_t size, size_t* copied);

/**
 * Tells how long a UTF-8 character is.
 * @param lead  first byte of the character.
 * @return 1 to 4 bytes; 0 for a byte that starts no character (0x80 to 0xBF and 0xF8 to 0xFF).
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_utf8_NumBytesInChar(char lead);

/**
 * Removes the white space at both ends of a text, in place.
 *
 * White space is what isspace() accepts in the locale of the process.
 *
 * @param text  text in writable memory. What is left of it moves to its start.
 * @return `text`; null when it is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API char* kelo_trim_string(char* text);

/**
 * Strips the characters of a set from both ends of a text, in place.
 *
 * It is meant for the quotes and blanks around a parameter of an AT command. The text does not move: leading
 * characters of the set are skipped, and trailing ones are overwritten with terminators.
 *
 * @param text  text in writable memory. Null is logged.
 * @param set   the characters to strip, in any order. The empty text strips nothing. Null is logged.
 * @return the first character that is kept, inside `text`; the terminator of the text when nothing is kept;
 *         null for a null argument.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API char* kelo_at_param_strip(char* text, const char* set);

/**
 * Copies the text between the double quotes that enclose it.
 *
 * There are no escapes. The first quote after the opening one closes the text and must be the last character
 * of `input`.
 *
 * @param input   the quoted text. Null is logged.
 * @param output  buffer of `size` bytes, which must not overlap `input`. Null is logged.
 * @param size    size of `output` in bytes: `size` - 1 characters fit.
 * @retval 1      the text between the quotes is in `output`, terminated.
 * @retval 0      refused, and logged as an error. Either `input` does not begin with a quote ("The in_str
 *                must be quoted"), and `output` is unchanged. Or `input` has no closing quote or does not fit
 *                ("The in_str has opened quotes, or out_str is small: ..."), or something follows the closing
 *                quote ("String is not terminated after end quote found"). In these two cases `output` holds
 *                the characters after the opening quote, at most `size` of them, without a terminator. For a
 *                null argument nothing is written.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_strip_quotes_out(const char* input, char* output, size_t size);

/**
 * Tells whether a text starts with another text.
 * @param text         text.
 * @param prefix       the expected start. Every text starts with the empty text.
 * @param ignore_case  0: letters must be equal. Any other value: letters match in either case, as in
 *                     strcasecmp().
 * @return 1 or 0; 0 when a pointer is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int starts_with(const char* text, const char* prefix, int ignore_case);

/**
 * Tells whether a text ends with another text.
 * @param text         text.
 * @param suffix       the expected end. Every text ends with the empty text.
 * @param ignore_case  0: letters must be equal. Any other value: letters match in either case, as in
 *                     strcasecmp().
 * @return 1 or 0; 0 when a pointer is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int ends_with(const char* text, const char* suffix, int ignore_case);

/**
 * Converts an ASCII letter to lower case, in every locale.
 * @param character  any value.
 * @return `character` + 32 for A to Z, and `character` for every other value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int tolowercase(int character);

/**
 * Converts the letters of a text to upper case, in place.
 *
 * Each byte is converted as toupper() does in the locale of the process.
 *
 * @param text  text in writable memory. Null is logged.
 * @return `text`; null when it is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API char* kelo_string_toupper(char* text);

/**
 * Returns the hexadecimal digit of a value.
 * @param value  0 to 15.
 * @return '0' to '9' or 'A' to 'F'; the terminator 0 for any other value.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API char DecToHex(int value);

/**
 * Writes bytes as hexadecimal text: two upper-case digits for each byte, the high half first.
 *
 * More than 0x3FFFFFFF bytes never fit, because an `int` cannot count their digits.
 *
 * @param bytes  the bytes. Null is logged.
 * @param count  number of bytes.
 * @param text   buffer of `size` bytes, which must not overlap `bytes`. Null is logged.
 * @param size   size of `text` in bytes: 2 x `count` + 1 are needed.
 * @return number of digits written, 2 x `count`, without the terminator.
 * @retval -1    the digits do not fit, which is not logged, or a pointer is null. `text` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int hex_BinaryToString(const uint8_t* bytes, uint32_t count, char* text, uint32_t size);

/**
 * Writes bytes as hexadecimal text as hex_BinaryToString() does, and logs a `text` that is too small.
 * @param bytes  as for hex_BinaryToString().
 * @param count  as for hex_BinaryToString().
 * @param text   as for hex_BinaryToString().
 * @param size   as for hex_BinaryToString(). A size that is too small is logged as the error "Hex string
 *               array (<size>) is too small to convert (<count>) bytes".
 * @return as hex_BinaryToString().
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_hex_BinaryToString(const uint8_t* bytes, uint32_t count, char* text, uint32_t size);

/**
 * Reads bytes from hexadecimal text: two digits of either case for each byte, the high half first.
 * @param text    the digits. Nothing after `length` characters is read, and no terminator is needed. Null is
 *                logged.
 * @param length  number of digits.
 * @param bytes   buffer of `size` bytes. Null is logged.
 * @param size    size of `bytes`: `length` / 2 are needed.
 * @return number of bytes written, `length` / 2; 0 for no digits.
 * @retval -1     refused. An odd `length`, and a `bytes` that is too small, are logged at debug level, and
 *                `bytes` is unchanged. A character that is no digit is logged at debug level, and the bytes
 *                before its pair are written. A null pointer is logged as an error.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_hex_StringToBinary(const char* text, uint32_t length, uint8_t* bytes, uint32_t size);

/**
 * Reads a hexadecimal number strictly: only digits of either case, without "0x" and without a sign.
 * @param text  the digits. Leading zeros do not matter. Null is logged.
 * @return the number, 0 to 0x7FFFFFFF; 0 for the empty text.
 * @retval -1   a larger number, a character that is no digit, or a null pointer.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_hex_HexaToInteger(const char* text);

/**
 * Reads a hexadecimal number leniently.
 *
 * Every letter counts as a digit: "g" or "G" is 16, and so on up to "z" or "Z", which is 35. So "1g" is 32.
 * The number ends at the first character that is neither a letter nor a decimal digit. Of a larger number
 * only the low 32 bits are kept, as a signed number.
 *
 * @param text  the digits, with or without "0x" or "0X" before them. Null is logged.
 * @return the number; 0 when there are no digits and when `text` is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int htoi(const char* text);

/**
 * Reads bytes from hexadecimal text: either all of them or none.
 * @param text   the digits, two of either case for each byte, the high half first.
 * @param bytes  receives half as many bytes as `text` has digits, without a terminator.
 * @retval 0     all bytes are written; none for the empty text.
 * @retval -1    an odd number of characters, a character that is no digit, or a null pointer. Nothing is
 *               written.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int kelo_change_hexstr_to_str(const char* text, uint8_t* bytes);

/**
 * Replaces the first occurrence of a pattern in a text, in place and without a terminator.
 *
 * The result is cut to 1023 characters and written over the start of the text. Bytes that it does not cover
 * do not change. After a shorter replacement the last characters of the old text therefore follow the new
 * text: "abcdef" with "cd" replaced by "X" becomes "abXeff". A longer replacement overwrites the terminator.
 * Callers use a replacement of the same length, put zeros after the text, or terminate the text themselves.
 *
 * @param text         text in writable memory that is large enough for the result. Null is logged.
 * @param pattern      what to replace. The empty text is found at the start.
 * @param replacement  what to put in its place.
 * @retval 0           replaced.
 * @retval -1          `pattern` does not occur, or a pointer is null. `text` is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
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
 * Cuts the next token off a text, as strsep() of the C library does.
 *
 * A program that is linked with this library gets this function, whichever header declares it.
 *
 * Each delimiter ends a token. Two delimiters in a row have the empty token between them, and a text that
 * ends with a delimiter has the empty token as its last one.
 *
 * @param text        points to the rest of the text. The call moves it to the character after the token and
 *                    its delimiter, or sets it to null after the last token. A null `text` is logged.
 * @param delimiters  the characters that end a token. With the empty text the whole rest is one token. Null
 *                    is logged.
 * @return the token, inside the text, with its delimiter overwritten by a terminator; null when the rest or a
 *         pointer is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
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
 * @param array       receives pointers to the tokens in `text`, in their order. It has no limit: it needs one
 *                    entry more than `text` has delimiters.
 * @param flags       ::KELO_SPLIT_SKIP_EMPTY or 0. Other bits are ignored.
 * @return number of tokens stored.
 * @retval -1  a pointer is null. Nothing is cut or stored.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int split_string_to_array(char* text, const char* delimiters, char** array, uint32_t flags);

KELO_END_DECLS

#endif /* KELO_UTILS_TEXT_H */
