/**
 * @file command_record.h
 * @brief Command records: what daemons put into the queues of the worker threads of each other.
 *
 * What daemons put into the queues of each other's worker threads: a record on the heap with a command's type
 * and its payload, both made of words of the machine's pointer size. The daemons define what the types mean
 * and what the words hold. The library knows which of the words own memory, which is memory from malloc() or
 * calloc() wherever it comes from. The functions keep no state, and may be called by several threads at once
 * on different records.
 */
#ifndef KELO_UTILS_COMMAND_RECORD_H
#define KELO_UTILS_COMMAND_RECORD_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

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

KELO_END_DECLS

#endif /* KELO_UTILS_COMMAND_RECORD_H */
