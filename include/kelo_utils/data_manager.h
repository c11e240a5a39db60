/**
 * @file data_manager.h
 * @brief Configuration items by number: registered from tables of defaults, written and read through a
 * handle.
 */
#ifndef KELO_UTILS_DATA_MANAGER_H
#define KELO_UTILS_DATA_MANAGER_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Value types of an item. */
enum kelo_dm_type {
  KELO_DM_TYPE_SCALAR1 = 1, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_SCALAR2 = 2, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_SCALAR3 = 3, /**< fixed-size value, stored as its bytes; the version record has this type */
  KELO_DM_TYPE_SCALAR4 = 4, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_STRING = 5,  /**< text, stored without its terminator */
  KELO_DM_TYPE_BUFFER = 6   /**< bytes, stored as given */
};

/** What the storage back-end knows of an item. */
typedef struct kelo_dm_item_desc {
  char item_table[32]; /**< NUL-terminated name of the storage table */
  char item_key[32];   /**< NUL-terminated key within that table */
  int32_t type;        /**< value type as the back-end reads it; registration copies `def_type` into it */
  intptr_t
      def_value; /**< types 1 to 4: the default itself; type 5: address of the text; type 6: of the bytes */
  int32_t def_type; /**< declared type, ::kelo_dm_type */
  int32_t len;      /**< length of the default in bytes */
} kelo_dm_item_desc;

/** One row of a daemon's table of default items. */
typedef struct kelo_dm_item {
  int32_t id;             /**< item id; -1 ends the table */
  kelo_dm_item_desc desc; /**< table, key, type and default */
} kelo_dm_item;

/** The functions a storage back-end puts into a handle, in slot order. */
typedef struct kelo_dm_operations {
  int (*write)(uint32_t id, kelo_dm_item_desc* item, const void* data, int len);
  int (*read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  int (*clean)(const char* backup, int one, int32_t* clean_flag);
  int (*def_db_const)(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);
  int (*def_db_read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  int (*read_cfg_db_version)(uint32_t* version);
  int (*read_def_items_db_version)(uint32_t* version);
} kelo_dm_operations;

KELO_END_DECLS

#endif /* KELO_UTILS_DATA_MANAGER_H */
