/* SPDX-License-Identifier: MIT */
/**
 * @file log.h
 * @brief One log line format for every daemon: levels, a threshold, and a switch between two outputs.
 *
 * A daemon logs with KELO_LOG(). While the log tool is enabled, as it is at process start, a message that
 * passes the threshold goes to the diagnostic channel of the platform. While it is disabled the message
 * becomes a local line
 *
 *     2026-03-01 12:34:56.789 : =ERR= | [812 | 815-modem_rx] | oem_dm_write 97 | symLookup failed: 1203
 *
 * (UTC time stamp : level tag | [process | thread-thread name] | function, source line | message). The line
 * is printed on standard output or handed to the function installed with set_print_interface(). No line end
 * is added: formats contain their own. Every "kelo" in the function name is shown as "oem". A line is cut at
 * 4095 characters.
 */
#ifndef KELO_UTILS_LOG_H
#define KELO_UTILS_LOG_H

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Message levels, in rising severity. */
enum kelo_log_level {
  LOG_LVL_DBUG = 0, /**< tag " DBUG" */
  LOG_LVL_INFO = 1, /**< tag " INFO"; the threshold at process start */
  LOG_LVL_WRN = 2,  /**< tag "-WRN-" */
  LOG_LVL_ERR = 3,  /**< tag "=ERR=" */
  LOG_LVL_CRT = 4,  /**< tag "*CRT*" */
  LOG_LVL_EMR = 5   /**< has a name for completeness: lines of this level carry the null-string text as tag */
};

enum {
  /** Bytes of the scratch buffer into which kelo_log_printf() formats a message, terminator included. */
  KELO_LOG_BUFFER_SIZE = 4220,
  /** Size of ::log_msg in bytes. */
  KELO_LOG_LINE_SIZE = 4096,
  /** Size of ::str_t in bytes. */
  KELO_LOG_STAMP_SIZE = 128,
  /** Subsystem id of every record that this library and its macro send to the diagnostic channel. */
  KELO_LOG_DIAG_SUBSYSTEM = 65
};

/**
 * Describes one call site to the diagnostic channel. There is one constant of this type for each KELO_LOG().
 * The channel may keep the pointer until the process ends.
 */
typedef struct LogDiagDescriptor {
  uint16_t line;      /**< source line of the call site (modulo 65536) */
  uint16_t subsystem; /**< always ::KELO_LOG_DIAG_SUBSYSTEM */
  uint32_t mask;      /**< 1 shifted left by the level; 0 for a level outside 0 to 5 */
  const char* format; /**< ::KELO_LOG_DIAG_FORMAT: process id, function name, message */
  const char* file;   /**< source path of the call site */
} LogDiagDescriptor;

/** Format of every diagnostic record; its arguments are the process id, the function name and the message. */
#define KELO_LOG_DIAG_FORMAT "KELO-FWA[%d] %s(): %s"

/** The last local line, NUL-terminated, with zeros up to its end. It is written under the log lock: other
 * code may read a line that is not complete. When a program defines an object of this name itself, that
 * object is not used, and the line is composed elsewhere. */
extern KELO_API char log_msg[KELO_LOG_LINE_SIZE];

/** The time stamp of the last local line, NUL-terminated; the same caution as for ::log_msg. */
extern KELO_API char str_t[KELO_LOG_STAMP_SIZE];

/**
 * Receives one finished local line.
 *
 * It runs under the log lock: a message that it logs is dropped, and it must not wait for another thread that
 * logs. It may call every other function of this file, and fork().
 *
 * @param line  the line, ::log_msg, valid during the call.
 */
typedef void (*kelo_print_fn)(const char* line);

/**
 * Filters, formats and, in local mode, prints one message. Programs usually call it through KELO_LOG().
 *
 * `errno` is preserved. A fork() never waits for a message, and the child may log at once, whatever another
 * thread of the parent was doing. A thread that is cancelled during the call ends after the line is written.
 *
 * @param level  0 to 5; -1 passes every threshold.
 * @param buf    scratch buffer of at least ::KELO_LOG_BUFFER_SIZE bytes. When the message passes, it receives
 *               the formatted message, cut at that size. Null drops the message.
 * @param func   function name to show; null shows the null-string text of the C library.
 * @param line   source line to show.
 * @param fmt    printf-style format of the message.
 * @retval 1     the message is in `buf`, and the caller must hand it to the diagnostic channel.
 * @retval 0     nothing more to do: the message was filtered out (`buf` is unchanged) or is already printed.
 * @par Blocking
 * It blocks while another thread writes a line.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_log_printf(int level, char* buf, const char* func, int line, const char* fmt, ...)
    KELO_PRINTF(5, 6);

/**
 * Sets the threshold: messages of a lower level are dropped.
 *
 * When the start of the diagnostic channel is still due (see kelo_set_log_tool_enable()), it is started
 * first.
 *
 * @param level  1 to 4 are used unchanged. Every other value sets 0.
 * @par Blocking
 * It blocks only while the diagnostic channel is not started: for the line of another thread, and for the
 * start.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_set_log_level(int level);

/**
 * Returns the threshold. It takes no lock.
 * @return 0 to 4.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_get_log_level(void);

/**
 * Switches between the diagnostic channel and local printing, and records the choice in "/data/log_enable".
 *
 * The first message that passes the threshold, or the first call of a setter, decides whether the channel is
 * ever started. If the switch is not exactly 1 at that moment, the channel is never started in this process,
 * even if the switch becomes 1. A start that fails is tried again with the next such message or setter call.
 *
 * @param enable  0: local lines (the file then holds "1"). Any other value: diagnostic channel (the file then
 *                holds "0"). When the file cannot be opened the switch still changes, and nothing is
 *                reported.
 * @par Blocking
 * It blocks for the write of the file and a sync() of all storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_set_log_tool_enable(int enable);

/**
 * Returns the switch of kelo_set_log_tool_enable(). It takes no lock.
 * @return the value that was set last; 1 at process start.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_get_log_tool_enable(void);

/**
 * Returns the id of the calling thread.
 * @return the id that the kernel uses.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int get_tid(void);

/**
 * Installs the receiver of local lines. It takes no lock: when it returns, another thread may still be in the
 * earlier receiver.
 * @param fn  the receiver. Null restores printing on standard output.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void set_print_interface(kelo_print_fn fn);

/**
 * @name Diagnostic channel
 * The diagnostic library of the platform provides these two functions when the build names one. Otherwise the
 * library has functions of its own that hand each record to syslog(3). A program that defines the two itself
 * receives the calls.
 *
 * The library's own msg_sprintf() copies records to standard error in two cases. The environment variable
 * KELO_LOG_STDERR names the lowest level that is copied, as "DBUG", "INFO", "WRN", "ERR", "CRT", "EMR" or as a
 * number from 0 to 5; another text is logged once as an error, and counts as "WRN". Without the variable all
 * records are copied when standard error is a terminal and there is no "/dev/log". The variable is read with the
 * first record of the process. It does not change the threshold, and set-user-id programs do not see it.
 * @{
 */
/**
 * Opens the channel. It is called under the log lock: a message that it logs is dropped.
 * @param environment  always null here.
 * @return 0 when the channel could not be opened, and is to be tried again; any other value on success.
 * @par Blocking
 * It blocks for as long as the channel does. The function of the library does not block.
 * @par Threads
 * The library calls it in one thread at a time. It is not for signal handlers.
 */
KELO_API int Diag_LSM_Init(char* environment);

/**
 * Sends one record. It is called without the log lock.
 * @param descriptor  the call site, a constant of the program. The descriptor of a message of the library
 *                    itself is valid only during the call, so a replacement copies what it keeps. The further
 *                    arguments are those of its `format`: int process id, function name, message.
 * @par Blocking
 * It blocks for as long as the channel does.
 * @par Threads
 * Several threads call it at once. It is not for signal handlers.
 */
KELO_API void msg_sprintf(const LogDiagDescriptor* descriptor, ...);
/** @} */

/** Source path stored in the diagnostic records of this file. Define it before the include to change it. */
#ifndef KELO_LOG_FILE
#define KELO_LOG_FILE __FILE__
#endif

/** Initialiser of a ::LogDiagDescriptor for a message of the constant `level` that is logged on this line. */
#define KELO_LOG_DESCRIPTOR(level)                                                                     \
  {                                                                                                    \
    __LINE__ & 0xffff, KELO_LOG_DIAG_SUBSYSTEM, (level) >= 0 && (level) <= 5 ? 1u << ((level)&7) : 0u, \
        KELO_LOG_DIAG_FORMAT, KELO_LOG_FILE                                                            \
  }

/**
 * Tells whether a message passes the threshold now.
 * @param level  level of the message; -1 passes every threshold.
 * @return 1 when it passes, and 0 when it does not.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
static inline int kelo_log_passes(int level) { return level == -1 || kelo_get_log_level() <= level; }

/**
 * Makes the scratch buffer of one KELO_LOG().
 * @return ::KELO_LOG_BUFFER_SIZE bytes of zeros, which the caller frees with free(); null when memory runs
 *         out.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
static inline char* kelo_log_scratch(void) {
#ifdef __cplusplus
  return static_cast<char*>(calloc(1, KELO_LOG_BUFFER_SIZE));
#else
  return calloc(1, KELO_LOG_BUFFER_SIZE);
#endif
}

/**
 * KELO_LOG(level, format, ...): logs one message under the name and line of the calling function.
 *
 * `level` is an integer constant expression, -1 or ::kelo_log_level. The remaining arguments are evaluated
 * only when the message passes the threshold. A message that does not pass costs one call and one comparison.
 * A message that passes takes ::KELO_LOG_BUFFER_SIZE bytes from the heap while it is logged; without memory
 * it is dropped. `errno` is preserved.
 * @par Blocking
 * It blocks while another thread writes a line.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
#define KELO_LOG(level, ...)                                                              \
  do {                                                                                    \
    if (kelo_log_passes(level)) {                                                         \
      static const LogDiagDescriptor kelo_log_site_ = KELO_LOG_DESCRIPTOR(level);         \
      const int kelo_log_errno_ = errno;                                                  \
      char* kelo_log_text_ = kelo_log_scratch();                                          \
      if (kelo_log_printf((level), kelo_log_text_, __func__, __LINE__, __VA_ARGS__) != 0) \
        msg_sprintf(&kelo_log_site_, getpid(), __func__, kelo_log_text_);                 \
      free(kelo_log_text_);                                                               \
      errno = kelo_log_errno_;                                                            \
    }                                                                                     \
  } while (0)

/**
 * @name Watch log and message files
 * These functions write plain text records directly into files, whatever the threshold and the log tool are.
 * @{
 */
/**
 * Appends a record to the watch log, with the uptime in seconds as its stamp:
 *
 *     [123.46] main:42 text
 *
 * The log is two files of a little more than 1 MiB each, "/data/oem/logs/fwawatchA.log" and "fwawatchB.log"
 * beside it. Their folder must exist. A file is full when it holds MORE than 1048576 bytes. Records go to A
 * until it is full, then to B. When both are full, A is emptied and written; the next time both are full it
 * is B, and so on by turns. The turns begin with A in each process. A file that cannot be opened for emptying
 * is still written, and "trunk <path> file failed!!!" and a line end are printed on standard output. No other
 * failure is reported.
 *
 * The file "/kelonv/data/fwawatch_option" switches the watch off while it begins with the number 0. strtol()
 * reads this number in base 10 from the first 128 bytes: "0", " -00" and a text without a number are 0. When
 * the file is missing, empty or unreadable, the watch is on. The file is read for each record.
 *
 * `errno` is preserved. A record of up to 4096 bytes (1024 with musl, whose streams hold no more) is written in
 * one piece, also when other processes write at the same time. But when the files are full at that moment, one process may empty what another has just
 * written.
 *
 * @param name  a name by which the record can be found, usually that of the calling function. Null is shown
 *              as "(null)".
 * @param line  source line to show.
 * @param fmt   printf-style format of the text, of any length; a line end is added. Null is logged as an
 *              error, "oem_watch param NULL", and nothing is written.
 * @retval 0    written. Also when the watch is off, the uptime cannot be read or the file cannot be opened,
 *              and nothing was written.
 * @retval -1   the file could not be closed, or did not take the whole record (EOF, as fclose() returns it).
 * @par Blocking
 * It blocks for the accesses to the files.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int oem_watch(const char* name, int line, const char* fmt, ...) KELO_PRINTF(3, 4);

/**
 * Appends "[<local time>]<msg>" and a line end to a file, by the shell command
 *
 *     echo "[2026-03-01 13:34:56.789]text" >> path
 *
 * The time is that of the time zone in force (TZ); its milliseconds are truncated. NOTHING IS QUOTED: the
 * shell interprets quotes, dollar signs, back-quotes and backslashes in `msg`, and every character of `path`
 * that has a meaning for it. Pass plain text, never text from outside.
 *
 * The command is cut at 2047 characters, and the part that is left is run. A `msg` and a `path` of at most
 * 2011 characters together are complete. When `path` is cut, a file of the shorter name is written. When
 * `msg` is cut, the shell finds no closing quote, complains on standard error and writes nothing.
 *
 * The command is run and logged as by kelo_system_call().
 *
 * @param path  file to append to; it is made when it does not exist. Null is logged as an error,
 *              "kelo_write_msg2file param NULL".
 * @param msg   text of the record. Null is logged in the same way.
 * @return what kelo_system_call() returns: 0, or the raw wait status of the shell (512 is usual for a file
 *         that cannot be opened and for a missing quote); -1 for a null argument, without running anything.
 * @par Blocking
 * It blocks until the shell command has ended.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_write_msg2file(const char* path, const char* msg);

/**
 * Appends "[<local time>]<func>: <message>" and a line end to a file, as kelo_write_msg2file() does.
 *
 * The warning about the shell holds here, too. The text between the quotes is cut at 8439 characters and the
 * command at 12659, with the same consequences as for kelo_write_msg2file(). The call takes 21100 bytes from
 * the heap while it runs; without them nothing is run. Only the log tells whether the command succeeded.
 *
 * @param buf   scratch buffer of at least ::KELO_LOG_BUFFER_SIZE bytes. It receives the message,
 *              NUL-terminated and cut at 4219 characters. `path`, `func` and the arguments must not be in it.
 * @param path  file to append to.
 * @param func  name of the calling function, with every "kelo" shown as "oem". Null appends an empty line
 *              instead of the record.
 * @param fmt   printf-style format of the message. A null `buf`, `path` or `fmt` is logged as an error,
 *              "kelo_write_msg2file_ex param NULL", and nothing is run.
 * @par Blocking
 * It blocks until the shell command has ended.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_write_msg2file_ex(char* buf, const char* path, const char* func, const char* fmt, ...)
    KELO_PRINTF(4, 5);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_LOG_H */
