// SPDX-License-Identifier: MIT
// Ends a process after a programming error that the library cannot report with a result.
#ifndef KELO_BASE_FATAL_HPP
#define KELO_BASE_FATAL_HPP

#include <cstddef>

#include "base/heap.hpp"

namespace kelo::base {

// Field engineers search crash logs for these fixed names. They are not the names of the files that contain the calls.
inline constexpr const char* kDataManagerCode = "data_manager/kelo_app_dm.c";
inline constexpr const char* kMemoryItemsCode = "data_manager/kelo_dm_sync_mem.c";
inline constexpr const char* kStoreCode = "sqlite3/src/kelo_dm_sqlite.c";
inline constexpr const char* kCommonCode = "kelo-app-common/src/kelo_common_def.c";
inline constexpr const char* kSystemCode = "kelo-app-os-al/kelo_app_os_al.c";

// Prints "<source path>, line: <line>" on standard output and aborts. `line` is the line of the call by default.
[[noreturn]] void fatal(const char* source_path, int line = __builtin_LINE());

// Returns `size` zero-filled bytes. A failed allocation is fatal.
HeapPtr<char[]> zeroed_or_fatal(std::size_t size, const char* source_path, int line = __builtin_LINE());

}  // namespace kelo::base

#endif  // KELO_BASE_FATAL_HPP
