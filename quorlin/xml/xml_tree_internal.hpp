// The storage of XML trees and the access to a node's fields, for the XML subsystem only: this
// header is not installed.
//
// XmlDocument is an arena: it hands out memory from blocks that grow from 256 bytes to 256 KiB and
// are freed together when the root goes, so building a tree costs a bump of a pointer per
// piece and freeing it a few block frees however large or deep the tree is. Texts that a
// setter replaces are the exception: they live in blocks of power-of-two sizes that go back to
// a free list per size, so a text replaced any number of times costs no more than its largest
// block. A tree that adopts another tree takes that tree's documents into its own chain, in
// constant time; a node keeps allocating from the document it was made in. A document belongs
// to one thread at a time, like its tree.
#ifndef QUORLIN_XML_XML_TREE_INTERNAL_HPP
#define QUORLIN_XML_XML_TREE_INTERNAL_HPP

#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "quorlin/xml/xml_element_internal.hpp"

namespace quorlin {

class XmlDocument {
 public:
  XmlDocument() = default;
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  ~XmlDocument();  // the head of a chain frees every document in it

  // Every piece of a tree is a whole number of words, so that pieces taken one after another
  // from a block's start stay aligned.
  static constexpr std::size_t kWord = alignof(void*);

  // Uninitialised memory for a T, valid until the document is freed.
  template <typename T>
  void* allocate_for() {
    static_assert(alignof(T) <= kWord && sizeof(T) % kWord == 0);
    return allocate(sizeof(T));
  }
  // The same for `size` bytes, a whole number of words.
  void* allocate(std::size_t size) {
    if (size > left_) return allocate_in_new_block(size);
    std::byte* result = next_;
    next_ += size;
    left_ -= size;
    return result;
  }

  // A copy of `bytes` in the arena; never null, even for an empty view. Bytes are taken from
  // the top of the block, while aligned pieces grow from its bottom, so that short names and
  // texts between nodes cost no padding.
  char* copy(std::string_view bytes) {
    if (next_ == nullptr || bytes.size() > left_) return copy_in_new_block(bytes);
    left_ -= bytes.size();
    char* target = reinterpret_cast<char*>(next_ + left_);
    if (!bytes.empty()) std::memcpy(target, bytes.data(), bytes.size());
    return target;
  }
  std::string_view copy_text(std::string_view bytes) { return {copy(bytes), bytes.size()}; }

  // A reusable block of at least `size` bytes for a text, and its return. block_capacity
  // tells how many bytes a block holds.
  char* allocate_text(std::size_t size);
  void release_text(char* block);
  static std::size_t block_capacity(const char* block);

  // A point of the allocation sequence, and the return to it: everything allocated after the
  // mark is given back at once. Nothing made after the mark may still be reachable, and no
  // text block may have been released after it.
  struct Mark {
    std::size_t blocks;
    std::byte* next;
    std::size_t left;
    std::byte* current_block;
    std::size_t current_block_size;
  };
  Mark mark() const { return {blocks_.size(), next_, left_, current_block_, current_block_size_}; }
  void rewind(const Mark& mark);

  // Keeps `text` for as long as the document lives (a parsed text the tree views in place).
  void keep(std::unique_ptr<std::string> text) { kept_text_ = std::move(text); }

  // Takes the chain headed by `other` (a root's document) into this document's chain.
  void adopt(XmlDocument* other);

 private:
  void* allocate_in_new_block(std::size_t size);
  char* copy_in_new_block(std::string_view bytes);
  std::byte* own_block_or_start_one(std::size_t size);
  void start_block(std::size_t size);
  std::byte* add_block(std::size_t size);
  XmlDocument* head();

  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::unique_ptr<std::string> kept_text_;
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;
  std::byte* current_block_ = nullptr;  // the block next_ points into
  std::size_t current_block_size_ = 0;
  std::size_t block_size_ = 256;
  std::array<char*, std::numeric_limits<std::size_t>::digits> free_texts_{};  // by log2 of capacity
  // The chain of documents that one tree uses: the head owns the others.
  XmlDocument* head_ = this;  // may point to a former head; head() follows and shortens the path
  XmlDocument* chain_next_ = nullptr;
  XmlDocument* chain_last_ = this;  // meaningful in a head
};

// What the XML subsystem may do to an element beyond the public operations.
struct XmlTree {
  static constexpr std::uint16_t kLongSize = XmlElement::kLong;  // see XmlLongBytes

  static XmlDocument& document(const XmlNode& node) { return *XmlElement::of(node).document_; }
  static XmlChildren& children(XmlNode& node) {
    XmlElement& element = XmlElement::of(node);
    return element.children_ != nullptr ? *element.children_ : make_children(element);
  }
  static XmlAttributes& attributes(XmlNode& node);
  // Points the text at bytes of the element's document that belong to this element alone; a
  // later setter may overwrite them but does not reuse them for another text. For the elements
  // the parser makes, whose texts are always such views and never blocks the tree owns; the
  // record of a long view before serves the new text. A first text has no record to look for.
  static void set_text_view(XmlNode& node, std::string_view bytes, bool first_text = false) {
    XmlElement& element = XmlElement::of(node);
    auto* reused = !first_text && element.text_size_ == kLongSize
                       ? reinterpret_cast<XmlLongBytes*>(element.text_)
                       : nullptr;
    const char* data = nullptr;
    view(*element.document_, bytes, data, element.text_size_, reused);
    element.text_ = const_cast<char*>(data);
  }
  static void set_text(XmlNode& node, std::optional<std::string_view> text);

  // The List node that holds `node`: a root is made inside one, so that adoption can link it.
  static XmlChild* holder(const XmlNode* node);

  // Appends an element whose name already lives in the parent's document, without copying the
  // name and without the children List's lock: for a tree no other thread can reach yet.
  static XmlElement& add_element_unshared(XmlNode& parent, std::string_view name_in_document) {
    XmlChild* child = new_element(document(parent), name_in_document);
    return list_link_at_end_unlocked(children(parent), child)->item;
  }
  // A List node that holds a new element of `document`, in no List yet.
  static XmlChild* new_element(XmlDocument& document, std::string_view name_in_document) {
    XmlChild* holder = new_list_node<XmlElement>(document, &document);
    view(document, name_in_document, holder->item.name_, holder->item.name_size_);
    return holder;
  }
  // A List node made in `document` around an item made from `item`, in no List yet.
  template <typename T, typename U>
  static ListNode<T>* new_list_node(XmlDocument& document, U&& item) {
    return ::new (document.allocate_for<ListNode<T>>())
        ListNode<T>{nullptr, T(std::forward<U>(item)), nullptr};
  }
  // Unlinks the last child, which then stays unused in the document until the tree is freed.
  static void drop_last_child(XmlNode& parent);

 private:
  static XmlChildren& make_children(XmlElement& element);  // the List of a first child
  // Points `data` and `size` at `bytes`, which live in `document`: in the element when short,
  // else through an XmlLongBytes made in the document, or `reused`, one no longer needed.
  static void view(XmlDocument& document, std::string_view bytes, const char*& data,
                   std::uint16_t& size, XmlLongBytes* reused = nullptr) {
    if (bytes.size() >= kLongSize) return view_long(document, bytes, data, size, reused);
    data = bytes.data();
    size = static_cast<std::uint16_t>(bytes.size());
  }
  static void view_long(XmlDocument& document, std::string_view bytes, const char*& data,
                        std::uint16_t& size, XmlLongBytes* reused);
};

}  // namespace quorlin

#endif  // QUORLIN_XML_XML_TREE_INTERNAL_HPP
