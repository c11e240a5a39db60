// The end of a process that made a programming error the library cannot answer with a result.
#ifndef KELO_BASE_FATAL_HPP
#define KELO_BASE_FATAL_HPP

#include <cstddef>

#include "base/heap.hpp"

namespace kelo::base {

// The fixed names that field engineers search for in crash logs. They are not those of the files that hold
// the calls.
inline constexpr const char* kDataManagerCode = "data_manager/kelo_app_dm.c";
inline constexpr const char* kMemoryItemsCode = "data_manager/kelo_dm_sync_mem.c";
inline constexpr const char* kStoreCode = "sqlite3/src/kelo_dm_sqlite.c";
inline constexpr const char* kCommonCode = "kelo-app-common/src/kelo_common_def.c";
inline constexpr const char* kSystemCode = "kelo-app-os-al/kelo_app_os_al.c";

// Prints "<source path>, line: <line>" on standard output and aborts. The default is the line of the call.
[[noreturn]] void fatal(const char* source_path, int line = __builtin_LINE());

// `size` zero-filled bytes. Memory that runs out is fatal.
HeapPtr<char[]> zeroed_or_fatal(std::size_t size, const char* source_path, int line = __builtin_LINE());

}  // namespace kelo::base

#endif  // KELO_BASE_FATAL_HPP
