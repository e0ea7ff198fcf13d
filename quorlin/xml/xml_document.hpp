// XmlDocument: the storage of one XML tree.
//
// Every node, List node, attribute, name and text of a tree lives in its document's arena,
// which hands out memory from blocks that grow from 1 KiB to 256 KiB and are freed together
// when the root goes. Building a tree therefore costs a bump of a pointer per piece, and
// freeing it costs a few block frees however large or deep the tree is. Nothing is freed
// piece by piece: a replaced text that no longer fits its old bytes leaves them unused until
// the document is freed. A document belongs to one thread at a time, like its tree.
#ifndef QUORLIN_XML_XML_DOCUMENT_HPP
#define QUORLIN_XML_XML_DOCUMENT_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace quorlin {

struct XmlNode;

class XmlDocument {
 public:
  explicit XmlDocument(const XmlNode* owner) : owner_(owner) {}
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;

  // Uninitialised memory for `size` bytes at `alignment` (a power of two), valid until the
  // document is freed.
  void* allocate(std::size_t size, std::size_t alignment) {
    const std::size_t padding = -reinterpret_cast<std::uintptr_t>(next_) & (alignment - 1);
    if (padding + size > left_) return allocate_in_new_block(size, alignment);
    std::byte* result = next_ + padding;
    next_ += padding + size;
    left_ -= padding + size;
    return result;
  }

  // A copy of `bytes` in the arena; never null, even for an empty view.
  char* copy(std::string_view bytes);
  std::string_view copy_text(std::string_view bytes) { return {copy(bytes), bytes.size()}; }

  // The root whose destruction frees this document.
  const XmlNode* owner() const { return owner_; }
  void set_owner(const XmlNode* owner) { owner_ = owner; }

 private:
  void* allocate_in_new_block(std::size_t size, std::size_t alignment);
  std::byte* add_block(std::size_t size);

  const XmlNode* owner_;
  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;
  std::size_t block_size_ = 1024;
};

// Node storage for the Lists of a tree: their nodes come from the document and are given
// back only with it.
struct XmlArenaNodes {
  XmlDocument* document = nullptr;

  template <typename Node>
  void* allocate() {
    return document->allocate(sizeof(Node), alignof(Node));
  }
  void deallocate(void*) {}
};

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_DOCUMENT_HPP
