/* SPDX-License-Identifier: MIT */
/**
 * @file settings.h
 * @brief More about items: the SQLite back-end chosen at run time.
 *
 * These functions are optional additions to data_manager.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_SETTINGS_H
#define KELO_UTILS_SETTINGS_H

#include <stdint.h>

#include "kelo_utils/base.h"
#include "kelo_utils/data_manager.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/**
 * Lets the hooks of the library use the SQLite back-end (sqlite.h) from now on.
 *
 * It is for programs that load the shared library and cannot link the target `kelo::utils_sqlite`, such as
 * programs in other languages. dm_pal_reg() of the library then calls sqlite_reg(), dm_pal_reg_store_area()
 * calls sqlite_reg_store_area(), dm_pal_check_db_version_match() calls sqlite_chk_db_ver_match(), and
 * dm_pal_check_db_health() calls check_database_health() for ::DB_CONFIG. Handles that exist already do not
 * change.
 *
 * A hook that the program defines itself is called as before, and so are those of `kelo::utils_sqlite`: this
 * function does not change them. More calls change nothing. The choice lasts until the process ends.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it at start-up, before kelo_dm_reg_store_area() and kelo_dm_reg(). It is not for signal
 * handlers.
 */
KELO_API void kelo_dm_use_sqlite(void);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_SETTINGS_H */
