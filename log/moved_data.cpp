// SPDX-License-Identifier: MIT
// Distinguishes objects that the loader has moved into the program from objects that the program defines.
#include "log/moved_data.hpp"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

#include <cstdint>
#include <span>

namespace kelo::log {
namespace {

using Header = ElfW(Phdr);
using Symbol = ElfW(Sym);

// The relocations of the program and the symbols they refer to.
struct Relocations {
  std::uintptr_t base = 0;  // what the loader added to the program's addresses
  const Symbol* symbols = nullptr;
  std::span<const ElfW(Rel)> plain;
  std::span<const ElfW(Rela)> with_addend;
};

// Returns the address in memory. Some loaders have stored it in the dynamic entry, others leave the linker's value
// there.
template <typename T>
const T* loaded(std::uintptr_t address, std::uintptr_t base) {
  return reinterpret_cast<const T*>(address < base ? address + base : address);
}

void read_entry(const ElfW(Dyn) & entry, Relocations& found) {
  const std::uintptr_t value = entry.d_un.d_ptr;
  switch (entry.d_tag) {
    case DT_SYMTAB:
      found.symbols = loaded<Symbol>(value, found.base);
      break;
    case DT_REL:
      found.plain = {loaded<ElfW(Rel)>(value, found.base), found.plain.size()};
      break;
    case DT_RELSZ:
      found.plain = {found.plain.data(), value / sizeof(ElfW(Rel))};
      break;
    case DT_RELA:
      found.with_addend = {loaded<ElfW(Rela)>(value, found.base), found.with_addend.size()};
      break;
    case DT_RELASZ:
      found.with_addend = {found.with_addend.data(), value / sizeof(ElfW(Rela))};
      break;
    default:
      break;
  }
}

// Reads the program's headers at the address that the kernel reports. The loader's functions take a lock, which a
// forked child may have inherited held.
Relocations relocations_of_program() {
  const std::span headers(reinterpret_cast<const Header*>(getauxval(AT_PHDR)), getauxval(AT_PHNUM));
  Relocations found;
  const Header* dynamic = nullptr;
  bool base_known = false;
  if (headers.data() == nullptr) return {};
  for (const Header& header : headers) {
    if (header.p_type == PT_DYNAMIC) dynamic = &header;
    if (header.p_type != PT_PHDR) continue;
    found.base = reinterpret_cast<std::uintptr_t>(headers.data()) - header.p_vaddr;
    base_known = true;
  }
  if (dynamic == nullptr || !base_known) return {};
  const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(found.base + dynamic->p_vaddr);
  for (; entry->d_tag != DT_NULL; ++entry) read_entry(*entry, found);
  return found;
}

// Whether a copy relocation has moved the object. Such a relocation is recognised by a symbol that has the address of
// the relocation itself, so its type, which differs between processors, need not be known.
template <typename Relocation>
bool has_copy_relocation(std::span<const Relocation> relocations, const Relocations& program,
                         std::uintptr_t object, std::size_t size) {
  constexpr unsigned kSymbolShift = sizeof(void*) == 8 ? 32 : 8;
  for (const Relocation& relocation : relocations) {
    if (program.base + relocation.r_offset != object) continue;
    const Symbol& symbol = program.symbols[relocation.r_info >> kSymbolShift];
    if (program.base + symbol.st_value == object && symbol.st_size >= size) return true;
  }
  return false;
}

bool is_moved(std::uintptr_t object, std::size_t size) {
#if defined(__mips64)
  // Relocations have another format on this processor.
  return object == 0 && size == 0;
#else
  const Relocations program = relocations_of_program();
  return program.symbols != nullptr && (has_copy_relocation(program.plain, program, object, size) ||
                                        has_copy_relocation(program.with_addend, program, object, size));
#endif
}

}  // namespace

bool is_librarys(const void* found, const void* own, std::size_t size) {
  return found == own || is_moved(reinterpret_cast<std::uintptr_t>(found), size);
}

}  // namespace kelo::log
