// SPDX-License-Identifier: MIT
// What a file holds, as blocks that copies of it share.
#ifndef KELO_TOOLS_CRASH_CONTENT_HPP
#define KELO_TOOLS_CRASH_CONTENT_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kelo::crash {

constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kSectorSize = 512;
constexpr std::size_t kSectorsOfBlock = kBlockSize / kSectorSize;

struct Block {
  std::array<char, kBlockSize> bytes;
  std::uint64_t hash;
};

// A null pointer is a block of zeros.
using BlockRef = std::shared_ptr<const Block>;

std::uint64_t hash_bytes(std::string_view bytes, std::uint64_t seed);
std::uint64_t hash_number(std::uint64_t number, std::uint64_t seed);

// A block whose sectors are those of `after` where the bit of the sector is set in `mask`, and else of `before`.
BlockRef torn_block(const BlockRef& before, const BlockRef& after, unsigned mask);

class Content {
 public:
  Content() = default;
  explicit Content(std::string_view bytes) { write(0, bytes); }

  void write(std::size_t offset, std::string_view bytes);
  // Bytes beyond a smaller size are dropped; those up to a greater one are zeros.
  void resize(std::size_t size);
  // Puts a whole block into its place without a change of the size.
  void set_block(std::size_t index, BlockRef block);

  BlockRef block(std::size_t index) const { return index < blocks_.size() ? blocks_[index] : nullptr; }
  std::size_t size() const { return size_; }
  std::string bytes() const;
  std::uint64_t hash() const;

 private:
  std::vector<BlockRef> blocks_;
  std::size_t size_ = 0;
};

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_CONTENT_HPP
