/**
 * @file log.h
 * @brief One log line format for every daemon: levels, a threshold, and a switch between the platform's
 *        diagnostic channel and local printing.
 *
 * A daemon logs with KELO_LOG(). While the log tool is enabled (the state at start) a message that passes
 * the threshold goes to the diagnostic channel; while it is disabled the message becomes a local line
 *
 *     2026-03-01 12:34:56.789 : =ERR= | [812 | 815-modem_rx] | oem_dm_write 97 | symLookup failed: 1203
 *
 * (UTC time stamp : level tag | [process | thread-thread name] | function, source line | message), printed
 * on standard output or handed to the function installed with set_print_interface(). No line end is added:
 * formats carry their own. The function name is shown with every "kelo" replaced by "oem". A line ends at
 * 4095 characters, cut there.
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
  LOG_LVL_EMR = 5   /**< named for completeness: lines of this level carry the null-string text as tag */
};

enum {
  /** Bytes of scratch buffer that kelo_log_printf() formats a message into, terminator included. */
  KELO_LOG_BUFFER_SIZE = 4220,
  /** Size of ::log_msg in bytes. */
  KELO_LOG_LINE_SIZE = 4096,
  /** Size of ::str_t in bytes. */
  KELO_LOG_STAMP_SIZE = 128,
  /** Subsystem id of every record that this library and its macro send to the diagnostic channel. */
  KELO_LOG_DIAG_SUBSYSTEM = 65
};

/**
 * Describes one call site to the diagnostic channel. One constant of this type exists per KELO_LOG(); the
 * channel may keep the pointer for the life of the process.
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

/** The last local line, NUL-terminated, with zeros up to its end. Written under the log lock: a reader
 * elsewhere may see a half-made line. Where a program defines an object of this name itself, that is left alone
 * and the line is composed elsewhere. */
extern KELO_API char log_msg[KELO_LOG_LINE_SIZE];

/** The time stamp of the last local line, NUL-terminated; the same caution as for ::log_msg. */
extern KELO_API char str_t[KELO_LOG_STAMP_SIZE];

/**
 * Receives one finished local line, ::log_msg, valid during the call. Runs under the log lock: a message that
 * it logs is dropped, and it must not wait for another thread that logs. It may call every other function of
 * this file, and fork().
 */
typedef void (*kelo_print_fn)(const char* line);

/**
 * Filters, formats and, in local mode, prints one message. KELO_LOG() is the usual way to call it.
 *
 * Preserves errno. Waits while another thread writes a line. Safe from any thread; not for use in a signal
 * handler. A fork() never waits for a message, and the child may log at once, whatever another thread of the
 * parent was doing. A thread cancelled during the call ends after the line is written.
 *
 * @param level  0 to 5; -1 passes every threshold.
 * @param buf    scratch buffer of at least ::KELO_LOG_BUFFER_SIZE bytes; receives the formatted message, cut
 *               at that size, when the message passes. Null drops the message.
 * @param func   function name to show; null shows the C library's null-string text.
 * @param line   source line to show.
 * @param fmt    printf-style format of the message.
 * @retval 1     the message is in `buf` and the caller must hand it to the diagnostic channel.
 * @retval 0     nothing more to do: filtered out (`buf` untouched) or already printed locally.
 */
KELO_API int kelo_log_printf(int level, char* buf, const char* func, int line, const char* fmt, ...)
    KELO_PRINTF(5, 6);

/**
 * Sets the threshold: messages below it are dropped. Starts the diagnostic channel first if that is still
 * due (see kelo_set_log_tool_enable()). Safe from any thread.
 * @param level  1 to 4 are taken as they are; every other value sets 0.
 */
KELO_API void kelo_set_log_level(int level);

/** Returns the threshold, 0 to 4. Lock-free. */
KELO_API int kelo_get_log_level(void);

/**
 * Switches between the diagnostic channel and local printing, and records the choice in "/data/log_enable".
 *
 * The first message that passes the threshold, or the first setter call, settles whether the channel is ever
 * started: if the switch is not exactly 1 at that moment, the channel stays unstarted for the life of the
 * process, even if the switch becomes 1. A start that fails is tried again with the next such message or
 * setter call. Blocks for the file write and a sync() of all storage. Safe from any thread.
 *
 * @param enable  non-zero: diagnostic channel (the file then holds "0"); 0: local lines (the file holds "1").
 *                When the file cannot be opened the switch changes all the same and nothing is reported.
 */
KELO_API void kelo_set_log_tool_enable(int enable);

/** Returns the switch as last set; 1 at process start. Lock-free. */
KELO_API int kelo_get_log_tool_enable(void);

/** Returns the kernel's id of the calling thread. */
KELO_API int get_tid(void);

/**
 * Installs the receiver of local lines. Lock-free: another thread may still be inside the earlier receiver on
 * return.
 * @param fn  the receiver; null restores printing on standard output.
 */
KELO_API void set_print_interface(kelo_print_fn fn);

/**
 * @name Diagnostic channel
 * The platform's diagnostic library provides these two when the build names one; otherwise the library
 * carries stand-ins that hand each record to syslog(3). A program that defines them itself receives the
 * calls.
 * @{
 */
/**
 * Opens the channel. Called under the log lock: a message that it logs is dropped.
 * @param environment  always null here.
 * @return non-zero on success, 0 to be asked again.
 */
KELO_API int Diag_LSM_Init(char* environment);

/**
 * Sends one record. Called without the log lock, by several threads at once.
 * @param descriptor  the call site, a constant of the program. That of a message of the library itself is valid during
 *                    the call only, so a replacement copies what it keeps. The further arguments are those of its
 *                    `format`: int process id, function name, message.
 */
KELO_API void msg_sprintf(const LogDiagDescriptor* descriptor, ...);
/** @} */

/** Source path stored in the diagnostic records of this file; define it before the include to change it. */
#ifndef KELO_LOG_FILE
#define KELO_LOG_FILE __FILE__
#endif

/** Initialiser of a ::LogDiagDescriptor for a message of the constant `level` logged on this line. */
#define KELO_LOG_DESCRIPTOR(level)                                                                     \
  {                                                                                                    \
    __LINE__ & 0xffff, KELO_LOG_DIAG_SUBSYSTEM, (level) >= 0 && (level) <= 5 ? 1u << ((level)&7) : 0u, \
        KELO_LOG_DIAG_FORMAT, KELO_LOG_FILE                                                            \
  }

/** Whether a message of `level` passes the threshold now. */
static inline int kelo_log_passes(int level) { return level == -1 || kelo_get_log_level() <= level; }

/** The zero-filled scratch buffer of one KELO_LOG(), for its caller to free(); null without memory. */
static inline char* kelo_log_scratch(void) {
#ifdef __cplusplus
  return static_cast<char*>(calloc(1, KELO_LOG_BUFFER_SIZE));
#else
  return calloc(1, KELO_LOG_BUFFER_SIZE);
#endif
}

/**
 * KELO_LOG(level, format, ...): logs one message under the calling function's name and line.
 *
 * `level` is an integer constant expression, -1 or ::kelo_log_level. The remaining arguments are evaluated
 * only when the message passes the threshold; a suppressed message costs one call and one comparison. A
 * passing one takes ::KELO_LOG_BUFFER_SIZE bytes from the heap for its duration; without memory it is
 * dropped. Preserves errno.
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
 * Plain text records straight into files, whatever the threshold and the log tool are.
 * @{
 */
/**
 * Appends a record to the watch log, stamped with the uptime in seconds:
 *
 *     [123.46] main:42 text
 *
 * The log is two files of a little more than 1 MiB each, "/data/oem/logs/fwawatchA.log" and "fwawatchB.log"
 * beside it, in a folder that must exist. A file is full when it holds MORE than 1048576 bytes. Records go to
 * A until it is full, then to B; when both are, A is emptied and written, the next time both are B, and so on
 * alternately. This turn begins anew with each process. A file that cannot be opened for emptying is written
 * all the same, and "trunk <path> file failed!!!" and a line end are printed on standard output. Nothing else
 * that fails is reported.
 *
 * The file "/kelonv/data/fwawatch_option" switches the watch off while the number that it begins with is 0,
 * as strtol() reads it in base 10 from the first 128 bytes: "0", " -00" and a text without a number are 0.
 * Without the file, or when it is empty or cannot be read, the watch is on. It is read for each record.
 *
 * Preserves errno. Blocks for the file access. May be called by several threads and processes at once: a
 * record of up to 4096 bytes stands in one piece, but where the files are full at that moment, one may empty
 * what another has just written. Not for use in a signal handler.
 *
 * @param name  what the record is to be found by, usually the calling function's name; null is shown as
 *              "(null)".
 * @param line  source line to show.
 * @param fmt   printf-style format of the text, of any length; a line end is added. Null is logged as an
 *              error, "oem_watch param NULL", and nothing is written.
 * @retval 0    written; or the watch is off, the uptime cannot be read or the file cannot be opened, and
 *              nothing was written.
 * @retval -1   the file could not be closed, or did not take the whole record (EOF, as fclose() returns it).
 */
KELO_API int oem_watch(const char* name, int line, const char* fmt, ...) KELO_PRINTF(3, 4);

/**
 * Appends "[<local time>]<msg>" and a line end to a file, by the shell command
 *
 *     echo "[2026-03-01 13:34:56.789]text" >> path
 *
 * The time is that of the zone in force (TZ), with the milliseconds cut. NOTHING IS QUOTED: quotes, dollar
 * signs, back-quotes and backslashes in `msg`, and every character that means something to the shell in
 * `path`, are interpreted by it. Give plain text, never text from outside.
 *
 * The command is cut at 2047 characters and run as what is left of it: whole are `msg` and `path` of 2011
 * characters together. Where `path` is cut, a file of the shorter name is written; where `msg` is, the shell
 * finds no closing quote, complains on standard error and writes nothing.
 *
 * Runs and logs the command as kelo_system_call() does, and blocks until it has ended. Safe from any thread.
 *
 * @param path  file to append to, made when it is not there. Null is logged as an error,
 *              "kelo_write_msg2file param NULL".
 * @param msg   text of the record. Null is logged likewise.
 * @return what kelo_system_call() returns: 0, or the shell's raw wait status (512 is usual for a file that
 *         cannot be opened and for a missing quote); -1 for a null argument, without running anything.
 */
KELO_API int kelo_write_msg2file(const char* path, const char* msg);

/**
 * Appends "[<local time>]<func>: <message>" and a line end to a file, as kelo_write_msg2file() does, the
 * warning about the shell included.
 *
 * The text between the quotes is cut at 8439 characters and the command at 12659, with what then follows as
 * for kelo_write_msg2file(). Takes 21100 bytes from the heap for its duration; without them nothing is run.
 * Whether the command succeeded is told by the log only.
 *
 * @param buf   scratch buffer of at least ::KELO_LOG_BUFFER_SIZE bytes; receives the message,
 *              NUL-terminated and cut at 4219 characters. `path`, `func` and the arguments must not lie in it.
 * @param path  file to append to.
 * @param func  name of the calling function, shown with every "kelo" replaced by "oem"; null appends an
 *              empty line instead of the record.
 * @param fmt   printf-style format of the message. A null `buf`, `path` or `fmt` is logged as an error,
 *              "kelo_write_msg2file_ex param NULL", and nothing is run.
 */
KELO_API void kelo_write_msg2file_ex(char* buf, const char* path, const char* func, const char* fmt, ...)
    KELO_PRINTF(4, 5);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_LOG_H */
