/**
 * @file text.h
 * @brief Helpers on text: bounded copies, trimming, quotes, case, splitting and hexadecimal.
 *
 * Helpers on NUL-terminated text in buffers of the caller. None of them allocates, blocks or takes a lock
 * (unless it logs), so each may be called from any thread at once on different texts. Source and destination
 * must not overlap. Bytes above 127 are treated alike whether `char` is signed or not. A null argument for
 * which no result is given below is logged as an error, "<function> param NULL", and gives the function's
 * failure result.
 */
#ifndef KELO_UTILS_TEXT_H
#define KELO_UTILS_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

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

KELO_END_DECLS

#endif /* KELO_UTILS_TEXT_H */
