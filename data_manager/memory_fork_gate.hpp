// SPDX-License-Identifier: MIT
// The fork gate of the data manager: the guard for changes in memory, and the locks of a child made by fork().
#ifndef KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP
#define KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP

namespace kelo::dm {

// A thread holds this guard while it changes a value in memory or the list of registered items. A fork() in another
// thread waits until no guard exists, so that the child gets consistent data. New guards wait for a fork() that has
// begun. Each wait ends after one second, since a fork handler of the program may wait for a thread that waits here.
// Guards must not be nested.
class [[nodiscard]] MemoryChange {
 public:
  MemoryChange();
  ~MemoryChange();
  MemoryChange(const MemoryChange&) = delete;
  MemoryChange& operator=(const MemoryChange&) = delete;
};

// Initialises the locks of the values in memory when this process has inherited them from its parent: they may be
// held by threads that do not exist here. The fork handler calls this. A thread that finds a lock held calls it as
// well, since fork handlers of the program may run before the one of the library.
void initialise_inherited_locks();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP
