/* SPDX-License-Identifier: MIT
 * The compiler's code that unwinds the stack asks the C library for the table of the code at an address, by a function
 * that musl lacks. The programs of the tests get it from here. */
#define _GNU_SOURCE
#include <link.h>
#include <stdint.h>
#include <string.h>

/* As the unwinder reads it. */
struct dl_find_object {
  unsigned long long flags;
  void* map_start;
  void* map_end;
  struct link_map* link_map;
  void* eh_frame;
  unsigned long long reserved[7];
};

struct search {
  uintptr_t address;
  struct dl_find_object* result;
};

/* One object of the process. The result ends the search when it is not 0. */
static int look_in(struct dl_phdr_info* object, size_t size, void* argument) {
  const struct search* search = argument;
  void* table = NULL;
  int i;
  int found = 0;
  (void)size;
  for (i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)* part = &object->dlpi_phdr[i];
    const uintptr_t start = object->dlpi_addr + part->p_vaddr;
    if (part->p_type == PT_GNU_EH_FRAME) table = (void*)start;
    if (part->p_type != PT_LOAD || search->address - start >= part->p_memsz) continue;
    search->result->map_start = (void*)start;
    search->result->map_end = (void*)(start + part->p_memsz);
    found = 1;
  }
  search->result->eh_frame = table;
  return found && table != NULL;
}

int _dl_find_object(void* address, struct dl_find_object* result) {
  struct search search;
  search.address = (uintptr_t)address;
  search.result = result;
  memset(result, 0, sizeof *result);
  return dl_iterate_phdr(look_in, &search) != 0 ? 0 : -1;
}
