#include "quorlin/xml/xml_document.hpp"

#include <algorithm>
#include <cstring>

namespace quorlin {
namespace {

constexpr std::size_t kLargestBlock = 256 * 1024;

}  // namespace

void* XmlDocument::allocate_in_new_block(std::size_t size, std::size_t alignment) {
  // A request larger than half a block gets a block of its own, so that the current block's
  // remaining room is not given up for it.
  if (next_ != nullptr && size + alignment > block_size_ / 2) return add_block(size + alignment);
  left_ = std::max(block_size_, size + alignment);
  next_ = add_block(left_);
  block_size_ = std::min(block_size_ * 2, kLargestBlock);
  return allocate(size, alignment);
}

std::byte* XmlDocument::add_block(std::size_t size) {
  blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
  return blocks_.back().get();
}

char* XmlDocument::copy(std::string_view bytes) {
  char* target = static_cast<char*>(allocate(bytes.size(), 1));
  if (!bytes.empty()) std::memcpy(target, bytes.data(), bytes.size());
  return target;
}

}  // namespace quorlin
