/* SPDX-License-Identifier: MIT */
/**
 * @file command_record.h
 * @brief Command records: what daemons put into the queues of the worker threads of each other.
 *
 * A record is on the heap. It holds the type of a command and its payload, both made of words of the
 * machine's pointer size. The daemons define what the types mean and what the words hold. The library knows
 * which of the words own memory; this must be memory from malloc() or calloc(). The functions keep no state.
 */
#ifndef KELO_UTILS_COMMAND_RECORD_H
#define KELO_UTILS_COMMAND_RECORD_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * A command. One more byte belongs to it after the struct: ::KELO_CMD_Q_DATA_SIZE bytes in all. Words without
 * a meaning here belong to the daemons. The first two are large enough for the ::q_link_type of a queue.
 */
typedef struct kelo_cmd_q_data {
  uintptr_t words_1_to_2[2];   /**< of the daemons */
  int32_t cmd_type;            /**< type of the command; with the padding of the machine it is one word */
  uintptr_t words_4_to_8[5];   /**< of the daemons */
  void* payload;               /**< ninth word; null when there is no payload */
  uintptr_t words_10_to_11[2]; /**< of the daemons */
} kelo_cmd_q_data;

/** Bytes of a command record: 45 where pointers have 4 bytes, 89 where they have 8. */
#define KELO_CMD_Q_DATA_SIZE (sizeof(kelo_cmd_q_data) + 1)

/** One entry of a ::kelo_cmd_table. */
typedef struct kelo_cmd_table_entry {
  uintptr_t words_1_to_2[2]; /**< of the daemons */
  void* owned_3;             /**< freed with the command, and set to null */
} kelo_cmd_table_entry;

/** A counted table, to which a payload of type 0 or 4 may point. The daemons free its memory. */
typedef struct kelo_cmd_table {
  int32_t count;                   /**< number of entries; 0 or less for none */
  kelo_cmd_table_entry entries[1]; /**< as many entries as `count` says, one after the other */
} kelo_cmd_table;

/** Payload of types 0 and 4: ::KELO_CMD_PAYLOAD_0_SIZE bytes, of which one is after the struct. */
typedef struct kelo_cmd_payload_0 {
  uintptr_t words_1_to_4[4];  /**< of the daemons */
  void* owned_5;              /**< freed with the command; may be null */
  uintptr_t word_6;           /**< of the daemons */
  void* owned_7;              /**< freed with the command; may be null */
  uintptr_t words_8_to_10[3]; /**< of the daemons */
  kelo_cmd_table* table_11;   /**< not freed, but the memory of its entries is; may be null */
} kelo_cmd_payload_0;

/** Bytes of a payload of type 0 or 4: 45 where pointers have 4 bytes, 89 where they have 8. */
#define KELO_CMD_PAYLOAD_0_SIZE (sizeof(kelo_cmd_payload_0) + 1)

/** Payload of type 5: ::KELO_CMD_PAYLOAD_5_SIZE bytes, of which one is after the struct. */
typedef struct kelo_cmd_payload_5 {
  uintptr_t words_1_to_2[2]; /**< of the daemons */
  void* owned_3;             /**< freed with the command; may be null */
  uintptr_t word_4;          /**< of the daemons */
} kelo_cmd_payload_5;

/** Bytes of a payload of type 5: 17 where pointers have 4 bytes, 33 where they have 8. */
#define KELO_CMD_PAYLOAD_5_SIZE (sizeof(kelo_cmd_payload_5) + 1)

/** Start of a payload of type 13: the part that the library uses. */
typedef struct kelo_cmd_payload_13 {
  uintptr_t words_1_to_4[4]; /**< of the daemons */
  void* owned_5;             /**< freed with the command; may be null */
} kelo_cmd_payload_13;

/** Start of a payload of type 15: the part that the library uses. */
typedef struct kelo_cmd_payload_15 {
  void* owned_1; /**< freed with the command; may be null */
} kelo_cmd_payload_15;

/**
 * Makes a command of type 0, 4 or 5 with its payload. All bytes are zero except the type and the pointer to
 * the payload.
 *
 * The debug message "cmd_type = <cmd_type>" is logged. A daemon makes a command of another type itself, in
 * ::KELO_CMD_Q_DATA_SIZE bytes from calloc().
 *
 * @param cmd_type  0, 4 or 5. Any other type is a fatal programming error: the error "Invalid CMD type:
 *                  <cmd_type>" is logged, the source path and line are printed on standard output, and the
 *                  process aborts. When memory runs out the same happens without the log line.
 * @return the command, never null. The caller owns it until it calls kelo_free_cmd_q_data().
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API kelo_cmd_q_data* kelo_malloc_cmd_q_data(int cmd_type);

/**
 * Frees a command and the memory that belongs to it; the command itself is freed last.
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
 * Two pointers of the command must not point to the same memory that is freed.
 *
 * The following memory is not freed and leaks, unless the daemon keeps a pointer of its own and frees it
 * afterwards: the counted table of types 0 and 4; the payload of types 6 and 9 and of every type that is not
 * in the table; and all memory that other words of payloads point to.
 *
 * The payload may be null with every type. The debug message "oem_free_cmd_q_data:cmd_type=<type>, <payload>"
 * is logged with the address of the payload.
 *
 * @param record  command in a memory block of its own, made by the library or a daemon, which is in no queue
 *                any more. Null is logged as the error "oem_free_cmd_q_data invalid queue data".
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different records. It is not for signal handlers.
 */
KELO_API void kelo_free_cmd_q_data(kelo_cmd_q_data* record);

KELO_END_DECLS

#endif /* KELO_UTILS_COMMAND_RECORD_H */
