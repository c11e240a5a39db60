/**
 * @file ini.h
 * @brief INI files: small text settings files of sections and keys, read and rewritten.
 *
 * What a file looks like:
 * - A line has at most 511 bytes, its newline included; what a longer one has beyond them is read as a line of
 *   its own. A zero byte ends the text of its line. White space is every byte from 1 to 32; a line's leading
 *   white space means nothing, and files with CRLF line ends read as well.
 * - "[name]" begins a section. The name is all that stands between the "[" that the line begins with and its
 *   last "]", white space included. Keys in front of the first section belong to the nameless section, which
 *   the functions take a null or an empty name for.
 * - A line that begins with "#" or ";" is a comment.
 * - "key = value" and "key: value" set a key. The first "=" of the line separates, and where it has none the
 *   first ":". White space around key and value means nothing. A "#" or ";" in the value begins a comment,
 *   unless it stands between double quotes.
 * - A value that begins and ends with a double quote is what stands between these two, with \" or "" for a
 *   double quote.
 * - Every other line is ignored.
 *
 * Names match in their full length, whatever the case of their ASCII letters. Where a file has a section or,
 * within a section, a key twice, the first one counts.
 *
 * What holds for all functions, unless a description says otherwise:
 * - The name of the file comes last. To read, a null name is that of a file that is not there.
 * - Each call opens, works and closes; nothing is kept between calls. A call blocks for as long as the file
 *   does. Nothing is logged and no memory is allocated: to read takes 3 KiB of the stack, to change a file 9.
 * - Nothing is locked. Calls on different files never disturb each other; callers see to it that a file is not
 *   read or written while it is written.
 * - Text that does not fit its buffer is cut, and always terminated.
 * - Programming errors end the process by a failed assertion of the C library, which names the operation on
 *   standard error, in every build: those that a description tells of, and texts that overlap a buffer.
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
 * - `key` is the name of the key; null is a key that no file has.
 * - `filename` is the file; one that cannot be opened or read on has no more keys.
 * @{
 */

/**
 * Reads a value as text.
 * @param section      the section, or null.
 * @param key          the key. With null nothing is done.
 * @param def_value    the default, for a key that is not there; null is the empty text. Must not stand in
 *                     `buffer`, which is a programming error where the default is needed.
 * @param buffer       receives the text. With null nothing is done.
 * @param buffer_size  bytes in `buffer`; with 0 or less nothing is done. A size of ::INI_BUFFERSIZE holds every
 *                     value.
 * @param filename     the file.
 * @return length of the text in `buffer`, of the default too; 0 also where nothing is done.
 */
KELO_API int ini_gets(const char* section, const char* key, const char* def_value, char* buffer,
                      int buffer_size, const char* filename);

/**
 * Reads a value as a whole number.
 *
 * A value whose second character is "x" or "X" is hexadecimal: "0x1F" is 31. Any other is decimal: "010" is
 * 10, and "-0x10" is 0. What follows the number is ignored, a value without a number is 0, and one beyond the
 * range is the nearest number in it. Of a longer value the first 63 bytes are read.
 *
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is not there or whose value is empty.
 * @param filename   the file.
 * @return the number, or `def_value`.
 */
KELO_API int32_t ini_getl(const char* section, const char* key, int32_t def_value, const char* filename);

/**
 * Reads a value as a decimal number, with or without a fraction and an exponent, or as "inf" or "nan".
 *
 * The decimal point is ".", whatever the locale. What follows the number is ignored, a value without a number
 * is 0, and one beyond the range is infinite. Of a longer value the first 63 bytes are read.
 *
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is not there or whose value is empty.
 * @param filename   the file.
 * @return the number, or `def_value`.
 */
KELO_API float ini_getf(const char* section, const char* key, float def_value, const char* filename);

/**
 * Reads a value as a truth value, by its first character alone.
 * @param section    the section, or null.
 * @param key        the key.
 * @param def_value  the result for a key that is not there or whose value begins with anything else; it is
 *                   returned as it is.
 * @param filename   the file.
 * @return 1 for a value that begins with T, Y or 1, 0 for one with F, N or 0, in either case; else
 *         `def_value`.
 */
KELO_API int ini_getbool(const char* section, const char* key, int def_value, const char* filename);
/** @} */

/**
 * @name Names
 * @{
 */

/**
 * Reads the name of a section by its position.
 * @param index        position in the file from 0, of all headers; the nameless section has none.
 * @param buffer       receives the name; empty when there is no such section. With null nothing is done.
 * @param buffer_size  bytes in `buffer`; with 0 or less nothing is done.
 * @param filename     the file.
 * @return length of the text in `buffer`: 0 for a section whose name is empty, too.
 */
KELO_API int ini_getsection(int index, char* buffer, int buffer_size, const char* filename);

/**
 * Reads the name of a key by its position.
 * @param section      name of the section; null or empty for the nameless one.
 * @param index        position in the section from 0, of all key lines.
 * @param buffer       receives the name; empty when there is no such key. With null nothing is done.
 * @param buffer_size  bytes in `buffer`; with 0 or less nothing is done.
 * @param filename     the file.
 * @return length of the text in `buffer`: 0 for a key whose name is empty, too.
 */
KELO_API int ini_getkey(const char* section, int index, char* buffer, int buffer_size, const char* filename);

/**
 * Is given each key of a file by ini_browse(). The texts are valid until it returns. It may read the file with
 * the functions of this header; what it writes to the file the walk may see or not.
 * @param section    name of the section; empty for the nameless one.
 * @param key        name of the key.
 * @param value      the value as ini_gets() reads it.
 * @param user_data  what was given to ini_browse().
 * @return not 0 to go on, 0 to end the walk.
 */
typedef int (*ini_callback)(const char* section, const char* key, const char* value, void* user_data);

/**
 * Walks through all keys of a file in their order.
 *
 * Section name, key and value, each with its terminator, have ::INI_BUFFERSIZE bytes together. What does not
 * fit is cut, the value first.
 *
 * @param callback   is called for each key line, in the calling thread.
 * @param user_data  goes to `callback` as it is; may be null.
 * @param filename   the file.
 * @retval 1  the walk is over, also when `callback` ended it.
 * @retval 0  `callback` is null, or the file cannot be opened.
 */
KELO_API int ini_browse(ini_callback callback, void* user_data, const char* filename);
/** @} */

/**
 * @name Changing a file
 *
 * A change leaves every byte of the file as it was that it does not concern. It is made in one of three ways:
 * - A file that is not there is made, with the section's header, unless that is the nameless section, and the
 *   key line. Its permissions are 0666, less those that the process's umask takes away.
 * - A key line that is to have exactly the length that it has, its newline included, is written over.
 * - Otherwise a changed copy takes the place of the file: its name is that of the file with "~" for the last
 *   character, "settings.in~" for "settings.ini". A file that has this name is removed. The copy has the
 *   file's permissions and, where the process may give them, its owner and group. A symbolic link is replaced
 *   by the copy. A file whose own name ends with "~" cannot be changed in this way.
 *
 * When a function returns 1 the change is on the storage: the calls wait for it. A power cut during a call
 * leaves the file as it was or as it is to be, and may leave an unfinished copy beside it, which the next
 * change removes. Only a line that is written over, or a file that is made, may be left half written.
 *
 * Written lines have no white space around the "=". A section name keeps at most 507 bytes, a key 508, and key
 * and value together 508; what is longer is cut, and a name that was cut is not found again. Names are written
 * as they are: one with a separator, a bracket, a newline or white space at its ends reads as something else.
 * So does a value with a newline, or with white space at its ends other than a space at its end.
 *
 * For all of them:
 * - `section` is the name of the section; null or empty for the nameless one.
 * - `filename` is the file. Null is a programming error.
 * @{
 */

/**
 * Sets or deletes a key, or deletes a section.
 *
 * A key that is there already is changed on its line, and the line written anew, without its comment. A new
 * key goes behind the last line of its section, blank lines and comments included; a new section goes to the
 * end of the file. What is added behind a last line without a newline begins on a line of its own. A new
 * section in an empty file has an empty line in front; so has one behind an empty last line that is alone in
 * the last chunk of the copy, which is made in chunks of as many whole lines as 512 bytes hold.
 *
 * @param section   the section, or null.
 * @param key       the key. Null deletes the section: its header and all up to the next header. Of the nameless
 *                  section that is all in front of the first header.
 * @param value     the value, which may be empty. It is written between double quotes, with \" for a double
 *                  quote, when it holds a double quote, "#" or ";" or ends with a space. Null deletes the key.
 * @param filename  the file.
 * @retval 1  done, or nothing to do: the key has this value already, or is not there to be deleted, and the
 *            file is left alone. A section that is not there is deleted by a copy that is no different.
 * @retval 0  the file cannot be opened, read or made, is not a regular file, or may not be written where a
 *            line is written over; or the copy cannot be made, as where the storage is full. The file is as it
 *            was, unless it was the storage that failed while a line was written over.
 */
KELO_API int ini_puts(const char* section, const char* key, const char* value, const char* filename);

/**
 * Sets a key to a whole number, in decimal.
 * @param section   the section, or null.
 * @param key       the key, as for ini_puts().
 * @param value     the number.
 * @param filename  the file.
 * @return as ini_puts().
 */
KELO_API int ini_putl(const char* section, const char* key, int32_t value, const char* filename);

/**
 * Sets a key to a number with six digits behind the decimal point, which is "." whatever the locale; or to
 * "inf" or "nan", with a "-" in front where they have one.
 * @param section   the section, or null.
 * @param key       the key, as for ini_puts().
 * @param value     the number. What is below the sixth digit is lost: 1e-7 is written as "0.000000".
 * @param filename  the file.
 * @return as ini_puts().
 */
KELO_API int ini_putf(const char* section, const char* key, float value, const char* filename);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_INI_H */
