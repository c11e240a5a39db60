/* SPDX-License-Identifier: MIT */
/**
 * @file ini.h
 * @brief INI files: small text settings files of sections and keys, read and rewritten.
 *
 * The format of a file:
 * - A line has at most 511 bytes, its newline included. The rest of a longer line is read as a line of its
 *   own. A zero byte ends the text of its line. White space is every byte from 1 to 32. White space at the
 *   start of a line has no meaning, and files with CRLF line ends are read as well.
 * - "[name]" begins a section. The name is everything between the "[" with which the line begins and its last
 *   "]", white space included. Keys before the first section belong to the nameless section. For it a null or
 *   an empty name is passed to the functions.
 * - A line that begins with "#" or ";" is a comment.
 * - "key = value" and "key: value" set a key. The first "=" of the line is the separator, or the first ":"
 *   when there is no "=". White space around key and value has no meaning. A "#" or ";" in the value begins a
 *   comment, unless it is between double quotes.
 * - When a value begins and ends with a double quote, the text between these two is the value. In it \" or ""
 *   is a double quote.
 * - Every other line is ignored.
 *
 * Names match in their full length. The case of ASCII letters does not matter. When a file has a section
 * twice, or a section has a key twice, the first one counts.
 *
 * What holds for all functions, unless a description says otherwise:
 * - The name of the file is the last argument. When a file is read, a null name counts as a file that does
 *   not exist.
 * - Each call opens, works and closes; nothing is kept between calls. Nothing is logged and no memory is
 *   allocated. A read needs 3 KiB of the stack, and a change 9 KiB.
 * - Nothing is locked. Calls on different files do not disturb each other. Callers make sure that a file is
 *   not read or written while it is written.
 * - Text that does not fit into its buffer is cut, and it is always terminated.
 * - Programming errors end the process by a failed assertion of the C library, which names the operation on
 *   standard error, in every build. These are the errors that a description names, and texts that overlap a
 *   buffer.
 */
#ifndef KELO_UTILS_INI_H
#define KELO_UTILS_INI_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Bytes of a line buffer, terminator included: a line is at most one byte less. */
#define INI_BUFFERSIZE 512

/**
 * @name Values
 *
 * For all of them:
 * - `section` is the name of the section; null or empty for the nameless one.
 * - `key` is the name of the key. No file has a null key.
 * - `filename` is the file. A file that cannot be opened or read any further has no more keys.
 * @{
 */

/**
 * Reads a value as text.
 * @param section      the section, or null.
 * @param key          the key. With null nothing is done.
 * @param def_value    the default, for a key that is missing; null is the empty text. It must not be in
 *                     `buffer`: this is a programming error when the default is needed.
 * @param buffer       receives the text. With null nothing is done.
 * @param buffer_size  bytes in `buffer`. With 0 or less nothing is done. A size of ::INI_BUFFERSIZE holds
 *                     every value.
 * @param filename     the file.
 * @return length of the text in `buffer`, also of the default; 0 also when nothing is done.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_gets(const char* section, const char* key, const char* def_value, char* buffer,
                      int buffer_size, const char* filename);

/**
 * Reads a value as a whole number.
 *
 * A value whose second character is "x" or "X" is hexadecimal: "0x1F" is 31. Any other value is decimal:
 * "010" is 10, and "-0x10" is 0. Text after the number is ignored, a value without a number is 0, and a
 * number outside the range gives the nearest number in it. Of a longer value the first 63 bytes are read.
 *
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is missing or has an empty value.
 * @param filename   the file.
 * @return the number, or `def_value`.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int32_t ini_getl(const char* section, const char* key, int32_t def_value, const char* filename);

/**
 * Reads a value as a decimal number, with or without a fraction and an exponent, or as "inf" or "nan".
 *
 * The decimal point is ".", whatever the locale is. Text after the number is ignored, a value without a
 * number is 0, and a number outside the range is infinite. Of a longer value the first 63 bytes are read.
 *
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is missing or has an empty value.
 * @param filename   the file.
 * @return the number, or `def_value`.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API float ini_getf(const char* section, const char* key, float def_value, const char* filename);

/**
 * Reads a value as a truth value. Only its first character counts.
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is missing or whose value begins with another character. It is
 *                   returned unchanged.
 * @param filename   the file.
 * @return 1 for a value that begins with T, Y or 1, and 0 for one that begins with F, N or 0, in either case;
 *         otherwise `def_value`.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_getbool(const char* section, const char* key, int def_value, const char* filename);
/** @} */

/**
 * @name Names
 * @{
 */

/**
 * Reads the name of a section by its position.
 * @param index        position in the file from 0, counting all section headers. The nameless section has no
 *                     position.
 * @param buffer       receives the name; empty when there is no such section. With null nothing is done.
 * @param buffer_size  bytes in `buffer`. With 0 or less nothing is done.
 * @param filename     the file.
 * @return length of the text in `buffer`; 0 also for a section whose name is empty.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_getsection(int index, char* buffer, int buffer_size, const char* filename);

/**
 * Reads the name of a key by its position.
 * @param section      name of the section; null or empty for the nameless one.
 * @param index        position in the section from 0, counting all key lines.
 * @param buffer       receives the name; empty when there is no such key. With null nothing is done.
 * @param buffer_size  bytes in `buffer`. With 0 or less nothing is done.
 * @param filename     the file.
 * @return length of the text in `buffer`; 0 also for a key whose name is empty.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_getkey(const char* section, int index, char* buffer, int buffer_size, const char* filename);

/**
 * Receives each key of a file from ini_browse().
 *
 * The texts are valid until it returns. It may read the file with the functions of this header. When it
 * writes to the file, the walk may or may not see the change.
 *
 * @param section    name of the section; empty for the nameless one.
 * @param key        name of the key.
 * @param value      the value as ini_gets() reads it.
 * @param user_data  what was given to ini_browse().
 * @return 0 to end the walk; any other value to continue.
 */
typedef int (*ini_callback)(const char* section, const char* key, const char* value, void* user_data);

/**
 * Calls a function for all keys of a file, in their order.
 *
 * Section name, key and value, each with its terminator, have ::INI_BUFFERSIZE bytes together. What does not
 * fit is cut, the value first.
 *
 * @param callback   is called for each key line, in the calling thread.
 * @param user_data  handed to `callback` unchanged; may be null.
 * @param filename   the file.
 * @retval 1  the walk is over; also when `callback` ended it.
 * @retval 0  `callback` is null, or the file cannot be opened.
 * @par Blocking
 * It blocks for the reads of the file.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_browse(ini_callback callback, void* user_data, const char* filename);
/** @} */

/**
 * @name Changing a file
 *
 * A change keeps every byte of the file that does not belong to it. It is made in one of three ways:
 * - A file that does not exist is made. It gets the header of the section, unless this is the nameless
 *   section, and the key line. Its permissions are 0666 without those that the umask of the process removes.
 * - A key line whose length does not change, its newline included, is overwritten in place.
 * - Otherwise a changed copy replaces the file. The name of the copy is that of the file with "~" for the
 *   last character: "settings.in~" for "settings.ini". An existing file with this name is removed. The copy
 *   has the permissions of the file and, where the process may set them, its owner and group. A symbolic link
 *   is replaced by the copy. A file whose own name ends with "~" cannot be changed in this way.
 *
 * When a function returns 1 the change is on the storage. After a power cut during a call the file is either
 * as it was or as it is to be, and an unfinished copy may be beside it, which the next change removes. Only a
 * line that is overwritten, or a file that is made, may be incomplete.
 *
 * Written lines have no white space around the "=". A section name keeps at most 507 bytes, a key 508, and
 * key and value together 508. Longer names are cut, and a name that was cut is not found again. Names are
 * written unchanged: a name with a separator, a bracket, a newline or white space at its ends reads as
 * something else. So does a value with a newline, or with white space at its ends other than a space at its
 * end.
 *
 * For all of them:
 * - `section` is the name of the section; null or empty for the nameless one.
 * - `filename` is the file. Null is a programming error.
 * @{
 */

/**
 * Sets or deletes a key, or deletes a section.
 *
 * A key that exists is changed on its line, and the line is written again without its comment. A new key is
 * added after the last line of its section, where blank lines and comments count. A new section is added at
 * the end of the file. Text that is added after a last line without a newline begins on a line of its own. In
 * an empty file an empty line is written before a new section. The same happens after an empty last line that
 * is alone in the last chunk of the copy; the copy is made in chunks of as many whole lines as 512 bytes
 * hold.
 *
 * @param section   the section, or null.
 * @param key       the key. Null deletes the section: its header and everything up to the next header. For
 *                  the nameless section this is everything before the first header.
 * @param value     the value, which may be empty. It is written between double quotes, with \" for a double
 *                  quote, when it holds a double quote, "#" or ";" or ends with a space. Null deletes the
 *                  key.
 * @param filename  the file.
 * @retval 1  done, or nothing to do: the key has this value already, or the key to delete is missing; the
 *            file is then not changed. When the section to delete is missing, an equal copy replaces the
 *            file.
 * @retval 0  the file cannot be opened, read or made, is not a regular file, or may not be written where a
 *            line is to be overwritten; or the copy cannot be made, for example because the storage is full.
 *            The file is as it was, unless the storage failed while a line was overwritten.
 * @par Blocking
 * It blocks until the change is on the storage.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_puts(const char* section, const char* key, const char* value, const char* filename);

/**
 * Sets a key to a whole number, in decimal.
 * @param section   the section, or null.
 * @param key       the key, as for ini_puts().
 * @param value     the number.
 * @param filename  the file.
 * @return as ini_puts().
 * @par Blocking
 * It blocks until the change is on the storage.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_putl(const char* section, const char* key, int32_t value, const char* filename);

/**
 * Sets a key to a number with six digits after the decimal point, which is "." whatever the locale is.
 * Infinity and NaN are written as "inf" and "nan", with a "-" before them when their sign is negative.
 * @param section   the section, or null.
 * @param key       the key, as for ini_puts().
 * @param value     the number. Digits after the sixth are lost: 1e-7 is written as "0.000000".
 * @param filename  the file.
 * @return as ini_puts().
 * @par Blocking
 * It blocks until the change is on the storage.
 * @par Threads
 * Any thread may call it, but no thread may use a file while another one changes it. It is not for signal
 * handlers.
 */
KELO_API int ini_putf(const char* section, const char* key, float value, const char* filename);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_INI_H */
