// SPDX-License-Identifier: MIT
// The blocks of a file: writing, cutting, tearing and hashing them.
#include "tools/crash/content.hpp"

#include <algorithm>
#include <cstring>

namespace kelo::crash {
namespace {

std::uint64_t mixed(std::uint64_t value) {
  value ^= value >> 32;
  value *= 0xD6E8FEB86659FD93U;
  value ^= value >> 32;
  value *= 0xD6E8FEB86659FD93U;
  return value ^ (value >> 32);
}

BlockRef finished(Block block) {
  const auto used = [](char byte) { return byte != 0; };
  if (std::none_of(block.bytes.begin(), block.bytes.end(), used)) return nullptr;
  block.hash = hash_bytes({block.bytes.data(), kBlockSize}, 1);
  return std::make_shared<const Block>(block);
}

Block copy_of(const BlockRef& block) { return block ? *block : Block{}; }

std::size_t blocks_for(std::size_t size) { return (size + kBlockSize - 1) / kBlockSize; }

}  // namespace

std::uint64_t hash_number(std::uint64_t number, std::uint64_t seed) {
  return mixed(seed * 0x9E3779B97F4A7C15U + number + 0x1234567);
}

std::uint64_t hash_bytes(std::string_view bytes, std::uint64_t seed) {
  std::uint64_t hash = hash_number(bytes.size(), seed);
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, std::min(sizeof word, bytes.size() - at));
    hash = hash_number(word, hash);
  }
  return hash;
}

BlockRef torn_block(const BlockRef& before, const BlockRef& after, unsigned mask) {
  Block mixture = copy_of(before);
  const Block newer = copy_of(after);
  for (std::size_t sector = 0; sector < kSectorsOfBlock; ++sector) {
    if ((mask >> sector & 1U) == 0) continue;
    std::memcpy(&mixture.bytes[sector * kSectorSize], &newer.bytes[sector * kSectorSize], kSectorSize);
  }
  return finished(mixture);
}

void Content::write(std::size_t offset, std::string_view bytes) {
  if (bytes.empty()) return;
  size_ = std::max(size_, offset + bytes.size());
  blocks_.resize(std::max(blocks_.size(), blocks_for(size_)));
  while (!bytes.empty()) {
    const std::size_t start = offset % kBlockSize;
    const std::size_t count = std::min(bytes.size(), kBlockSize - start);
    BlockRef& place = blocks_[offset / kBlockSize];
    Block changed = copy_of(place);
    std::memcpy(&changed.bytes[start], bytes.data(), count);
    place = finished(changed);
    offset += count;
    bytes.remove_prefix(count);
  }
}

void Content::resize(std::size_t size) {
  size_ = size;
  blocks_.resize(blocks_for(size));
  if (size % kBlockSize == 0 || !blocks_.back()) return;
  const auto used = [](char byte) { return byte != 0; };
  const auto beyond = static_cast<std::ptrdiff_t>(size % kBlockSize);
  const Block& last = *blocks_.back();
  if (std::none_of(last.bytes.begin() + beyond, last.bytes.end(), used)) return;
  Block cut_off = last;
  std::fill(cut_off.bytes.begin() + beyond, cut_off.bytes.end(), char(0));
  blocks_.back() = finished(cut_off);
}

void Content::set_block(std::size_t index, BlockRef block) {
  if (index >= blocks_.size()) blocks_.resize(index + 1);
  blocks_[index] = std::move(block);
}

std::string Content::bytes() const {
  std::string all(size_, '\0');
  for (std::size_t index = 0; index < blocks_.size() && index * kBlockSize < size_; ++index) {
    if (!blocks_[index]) continue;
    const std::size_t start = index * kBlockSize;
    std::memcpy(&all[start], blocks_[index]->bytes.data(), std::min(kBlockSize, size_ - start));
  }
  return all;
}

std::uint64_t Content::hash() const {
  std::uint64_t hash = hash_number(size_, 2);
  for (const BlockRef& block : blocks_) hash = hash_number(block ? block->hash : 0, hash);
  return hash;
}

}  // namespace kelo::crash
