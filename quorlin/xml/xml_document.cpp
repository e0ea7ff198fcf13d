#include <algorithm>
#include <bit>
#include <cstring>

#include "quorlin/xml/xml_tree_internal.hpp"

namespace quorlin {
namespace {

constexpr std::size_t kLargestBlock = 256 * 1024;
constexpr std::size_t kSmallestTextBlock = 16;  // room for the free list's link

// A text block is its capacity's log2 in the word before its bytes, then the bytes.
struct TextBlockHeader {
  std::size_t size_class;
};

}  // namespace

XmlDocument::~XmlDocument() {
  // The members of a chain are freed one after another, never by recursion.
  for (XmlDocument* member = chain_next_; member != nullptr;) {
    XmlDocument* next = member->chain_next_;
    member->chain_next_ = nullptr;
    delete member;
    member = next;
  }
}

// A piece larger than half a block gets a block of its own, which is returned, so that the
// current block's remaining room is not given up for it; for a smaller one a new block is
// started, and null returned.
std::byte* XmlDocument::own_block_or_start_one(std::size_t size) {
  if (next_ != nullptr && size > block_size_ / 2) return add_block(size);
  start_block(size);
  return nullptr;
}

void* XmlDocument::allocate_in_new_block(std::size_t size) {
  if (std::byte* own = own_block_or_start_one(size)) return own;
  return allocate(size);
}

// The block being filled becomes a new one of at least `size` bytes; the room left in the one
// before is given up.
void XmlDocument::start_block(std::size_t size) {
  left_ = current_block_size_ = std::max(block_size_, size);
  next_ = current_block_ = add_block(left_);
  block_size_ = std::min(block_size_ * 2, kLargestBlock);
}

void XmlDocument::rewind(const Mark& mark) {
  if (blocks_.size() > mark.blocks && blocks_.back().get() == current_block_) {
    // The block being filled stays, emptied, so that the next pieces do not ask for a new one.
    std::swap(blocks_[mark.blocks], blocks_.back());
    blocks_.resize(mark.blocks + 1);
    next_ = current_block_;
    left_ = current_block_size_;
    return;
  }
  blocks_.resize(mark.blocks);
  next_ = mark.next;
  left_ = mark.left;
  current_block_ = mark.current_block;
  current_block_size_ = mark.current_block_size;
}

std::byte* XmlDocument::add_block(std::size_t size) {
  blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
  return blocks_.back().get();
}

char* XmlDocument::copy_in_new_block(std::string_view bytes) {
  if (std::byte* own = own_block_or_start_one(bytes.size())) {
    auto* target = reinterpret_cast<char*>(own);
    std::memcpy(target, bytes.data(), bytes.size());
    return target;
  }
  return copy(bytes);
}

char* XmlDocument::allocate_text(std::size_t size) {
  const std::size_t size_class =
      std::bit_width(std::max(size, kSmallestTextBlock) - 1);  // capacity 2^size_class
  if (char* reused = free_texts_[size_class]) {
    std::memcpy(&free_texts_[size_class], reused, sizeof(char*));
    return reused;
  }
  // A whole number of words: the header is one, and the smallest capacity is two.
  auto* header = static_cast<TextBlockHeader*>(
      allocate(sizeof(TextBlockHeader) + (std::size_t{1} << size_class)));
  header->size_class = size_class;
  return reinterpret_cast<char*>(header + 1);
}

void XmlDocument::release_text(char* block) {
  const std::size_t size_class = reinterpret_cast<const TextBlockHeader*>(block)[-1].size_class;
  std::memcpy(block, &free_texts_[size_class], sizeof(char*));
  free_texts_[size_class] = block;
}

std::size_t XmlDocument::block_capacity(const char* block) {
  return std::size_t{1} << reinterpret_cast<const TextBlockHeader*>(block)[-1].size_class;
}

XmlDocument* XmlDocument::head() {
  XmlDocument* found = head_;
  while (found->head_ != found) found = found->head_;
  for (XmlDocument* step = this; step != found;) {
    XmlDocument* next = step->head_;
    step->head_ = found;
    step = next;
  }
  return found;
}

void XmlDocument::adopt(XmlDocument* other) {
  XmlDocument* const chain = head();
  chain->chain_last_->chain_next_ = other;
  chain->chain_last_ = other->chain_last_;
  other->head_ = chain;
}

}  // namespace quorlin
