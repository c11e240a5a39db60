// What keeps fork() apart from changes of what the data manager holds in memory.
#ifndef KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP
#define KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP

namespace kelo::dm {

// While one lives, its thread may change values in memory and the list of registered items. A fork() of
// another thread waits until none lives, so that the child finds all of them whole; those that come meanwhile
// wait for the fork. Nobody waits longer than a second: the program's own fork handlers may wait for a thread
// that waits here. Not to be nested.
class [[nodiscard]] MemoryChange {
 public:
  MemoryChange();
  ~MemoryChange();
  MemoryChange(const MemoryChange&) = delete;
  MemoryChange& operator=(const MemoryChange&) = delete;
};

// Makes all locks of what is held in memory anew when this process has inherited them from its parent, where
// threads that do not exist here may have held them. The fork handlers do so; whoever finds a lock held asks
// for it too, since handlers of the program may run before them.
void renew_inherited_locks();

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_MEMORY_FORK_GATE_HPP
