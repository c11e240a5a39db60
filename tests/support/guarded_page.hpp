// SPDX-License-Identifier: MIT
// A page of memory between two that cannot be accessed: a read or write outside of it ends the test program.
#ifndef KELO_TESTS_SUPPORT_GUARDED_PAGE_HPP
#define KELO_TESTS_SUPPORT_GUARDED_PAGE_HPP

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::tests {

class GuardedPage {
 public:
  GuardedPage() : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    void* const mapped = mmap(nullptr, 3 * size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) std::abort();
    page_ = static_cast<char*>(mapped) + size_;
    if (mprotect(page_, size_, PROT_READ | PROT_WRITE) != 0) std::abort();
  }
  ~GuardedPage() { munmap(page_ - size_, 3 * size_); }
  GuardedPage(const GuardedPage&) = delete;
  GuardedPage& operator=(const GuardedPage&) = delete;

  // Places for `size` bytes: at the page's start and end, and at each of the addresses next to these that
  // differ in their alignment.
  [[nodiscard]] std::vector<char*> places(std::size_t size) const {
    std::vector<char*> all;
    for (std::size_t offset = 0; offset < 2 * sizeof(void*); ++offset) {
      all.push_back(page_ + offset);
      all.push_back(page_ + size_ - size - offset);
    }
    return all;
  }

  // The whole page holds `byte`, and the text is at `place`.
  void put(char* place, std::string_view text, char byte) const {
    std::memset(page_, byte, size_);
    if (!text.empty()) std::memcpy(place, text.data(), text.size());
  }

  [[nodiscard]] std::string bytes() const { return {page_, size_}; }

 private:
  const std::size_t size_;
  char* page_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_GUARDED_PAGE_HPP
