/// @file
/// List: a doubly linked list with its own recursive lock.
///
/// Every collection of the library is a List. It is deliberately transparent: callers walk it
/// by reading `first` and following `next` themselves, without the lock, or with range-for and
/// the standard algorithms, which walk it the same way (a List is a forward range). Each locked
/// operation takes `lock` on entry and releases it on return; the lock is recursive so that
/// list_remove and list_clear can call list_find and list_remove_node, and so that a caller may
/// hold it around a sequence of operations.
///
/// The List stores what it is given and compares items by identity. With a raw pointer item it
/// never touches the pointee, so users free their items before clearing or destroying the
/// List. With `std::unique_ptr<U>` items the item is freed together with its node, which is how
/// owning collections are written. A null item is stored like any other.
///
/// There is no stored count: counting, finding and positional insertion walk the nodes.
/// Destroying a List (its destructor) frees the nodes without taking the lock, so the
/// destroying thread must be its last user. The lock's constructor plays the part of
/// recursive_mutex_init; a List on the heap uses a RecursiveLock, which is recursive as
/// std::recursive_mutex is but takes 16 bytes and no allocation.
///
/// Nodes come from the library's pool, so that a List built and freed whole costs no
/// malloc per node, unless the List is given other node storage: a tree that is freed as a whole
/// (an XML document) places its Lists' nodes in its own arena.
#ifndef QUORLIN_BASE_LIST_HPP
#define QUORLIN_BASE_LIST_HPP

#include <concepts>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#include "quorlin/base/api.hpp"
#include "quorlin/base/recursive_lock.hpp"

namespace quorlin {

template <typename T>
struct ListNode {
  ListNode* previous = nullptr;
  T item;
  ListNode* next = nullptr;
};

/// Iteration over the items, first to last. Like a walk along `first` and `next`, it takes no
/// lock: iterate a List that no other thread changes meanwhile, or hold its lock around the loop.
template <typename T, bool Const>
class ListIterator {
  using NodePointer = std::conditional_t<Const, const ListNode<T>*, ListNode<T>*>;

 public:
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using reference = std::conditional_t<Const, const T&, T&>;
  using pointer = std::conditional_t<Const, const T*, T*>;
  using iterator_category = std::forward_iterator_tag;

  ListIterator() = default;
  /// The position of `node`; null is the end.
  explicit ListIterator(NodePointer node) : node_(node) {}
  /// A mutable position converts to a read-only one.
  operator ListIterator<T, true>() const { return ListIterator<T, true>(node_); }

  ///@{
  /// The forward-iterator operations: the item at this position, the next position, equality.
  reference operator*() const { return node_->item; }
  pointer operator->() const { return &node_->item; }
  ListIterator& operator++() {
    node_ = node_->next;
    return *this;
  }
  ListIterator operator++(int) {
    ListIterator before = *this;
    node_ = node_->next;
    return before;
  }
  bool operator==(const ListIterator&) const = default;
  ///@}

 private:
  NodePointer node_ = nullptr;
};

/// Memory for a List node of `size` bytes, from the library's pool (operator new above 1 KiB);
/// throws std::bad_alloc.
QUORLIN_API void* list_node_allocate(std::size_t size);
/// Gives back a node from list_node_allocate of the same size; from any thread.
QUORLIN_API void list_node_free(void* memory, std::size_t size) noexcept;

/// Node storage: where a List's nodes live, and the kind of lock that goes with them. The
/// default takes nodes from the library's pool.
struct PoolNodes {
  using Lock = RecursiveLock;

  /// Memory for one Node.
  template <typename Node>
  void* allocate() {
    return list_node_allocate(sizeof(Node));
  }
  /// Gives back memory that allocate<Node> returned.
  template <typename Node>
  void deallocate(void* memory) {
    list_node_free(memory, sizeof(Node));
  }
};

template <typename T, typename Nodes = PoolNodes>
struct List {
  using Node = ListNode<T>;
  using iterator = ListIterator<T, false>;
  using const_iterator = ListIterator<T, true>;

  typename Nodes::Lock lock;
  Node* first = nullptr;
  Node* last = nullptr;
  [[no_unique_address]] Nodes nodes;

  List() = default;
  /// An empty List whose nodes come from `node_storage`.
  explicit List(Nodes node_storage) : nodes(node_storage) {}
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  ///@{
  /// The items first to last, for range-for and the standard algorithms; see ListIterator for
  /// the lock.
  iterator begin() { return iterator(first); }
  iterator end() { return iterator(); }
  const_iterator begin() const { return const_iterator(first); }
  const_iterator end() const { return const_iterator(); }
  ///@}

  ~List() {
    for (Node* node = first; node != nullptr;) {
      Node* next = node->next;
      node->~Node();
      nodes.template deallocate<Node>(node);
      node = next;
    }
  }
};

/// Builds a node from the List's storage; the storage gets its memory back if the item throws.
template <typename T, typename Nodes, typename U>
ListNode<T>* list_new_node(List<T, Nodes>& list, std::type_identity_t<ListNode<T>*> previous,
                           U&& item, std::type_identity_t<ListNode<T>*> next) {
  void* memory = list.nodes.template allocate<ListNode<T>>();
  try {
    return ::new (memory) ListNode<T>{previous, T(std::forward<U>(item)), next};
  } catch (...) {
    list.nodes.template deallocate<ListNode<T>>(memory);
    throw;
  }
}

/// The identity by which list_find and list_remove compare items: the pointer itself, or the
/// owned pointer of a unique_ptr item.
template <typename T>
struct ListItemIdentity {
  using Key = T;
  static const T& of(const T& item) { return item; }  ///< the item itself
};
template <typename U, typename D>
struct ListItemIdentity<std::unique_ptr<U, D>> {
  using Key = const U*;
  static const U* of(const std::unique_ptr<U, D>& item) { return item.get(); }  ///< the pointer
};
template <typename T>
using ListKey = typename ListItemIdentity<T>::Key;

/// A new empty List with pool storage.
template <typename T>
std::unique_ptr<List<T>> list_create() {
  return std::make_unique<List<T>>();
}

/// Links `node`, made elsewhere and in no List, at the end without taking the lock (see
/// list_append_unlocked); returns it.
template <typename T, typename Nodes>
ListNode<T>* list_link_at_end_unlocked(List<T, Nodes>& list, ListNode<T>* node) {
  node->previous = list.last;
  node->next = nullptr;
  if (list.last != nullptr) list.last->next = node;
  list.last = node;
  if (list.first == nullptr) list.first = node;
  return node;
}

/// Appends at the end without taking the lock, for a List that no other thread can reach yet
/// (one being built before it is handed out); returns the new node.
template <typename T, typename Nodes, typename U>
requires std::constructible_from<T, U&&> ListNode<T>
*list_append_unlocked(List<T, Nodes>& list, U&& item) {
  return list_link_at_end_unlocked(list,
                                   list_new_node(list, nullptr, std::forward<U>(item), nullptr));
}

/// Appends at the end in constant time; returns the new node.
template <typename T, typename Nodes, typename U>
requires std::constructible_from<T, U&&> ListNode<T>
*list_append(List<T, Nodes>& list, U&& item) {
  std::lock_guard hold(list.lock);
  return list_append_unlocked(list, std::forward<U>(item));
}

/// Links `node`, made elsewhere and in no List, at the end in constant time; returns it. The
/// List never frees it on its own (its storage must free nothing, as a tree's does not).
template <typename T, typename Nodes>
ListNode<T>* list_link_at_end(List<T, Nodes>& list, ListNode<T>* node) {
  std::lock_guard hold(list.lock);
  return list_link_at_end_unlocked(list, node);
}

/// Inserts so that the new node stands at `position` (0 = front, count = end). A position that
/// is negative or beyond the count inserts nothing and returns null; the item is then left with
/// the caller (a unique_ptr passed with std::move is not consumed).
template <typename T, typename Nodes, typename U>
requires std::constructible_from<T, U&&> ListNode<T>
*list_insert_at(List<T, Nodes>& list, U&& item, int position) {
  std::lock_guard hold(list.lock);
  int budget = position > 0 ? position : 0;
  int steps = 0;
  ListNode<T>* predecessor = nullptr;
  ListNode<T>* current = list.first;
  while (current != nullptr && budget > 0) {
    predecessor = current;
    current = current->next;
    ++steps;
    --budget;
  }
  if (steps != position) return nullptr;

  ListNode<T>* node = list_new_node(list, predecessor, std::forward<U>(item), current);
  if (predecessor != nullptr) predecessor->next = node;
  if (current != nullptr) current->previous = node;
  if (node->previous == nullptr) list.first = node;
  if (node->next == nullptr) list.last = node;
  return node;
}

/// Inserts `item` before the first item under the lock; returns the new node.
template <typename T, typename Nodes, typename U>
requires std::constructible_from<T, U&&> ListNode<T>
*list_prepend(List<T, Nodes>& list, U&& item) {
  return list_insert_at(list, std::forward<U>(item), 0);
}

/// The first node whose item is `item` (identity, not content), or null.
template <typename T, typename Nodes>
ListNode<T>* list_find(List<T, Nodes>& list, std::type_identity_t<ListKey<T>> item) {
  std::lock_guard hold(list.lock);
  for (ListNode<T>* node = list.first; node != nullptr; node = node->next) {
    if (ListItemIdentity<T>::of(node->item) == item) return node;
  }
  return nullptr;
}

/// Unlinks and frees `node`, which must belong to `list` (not checked).
template <typename T, typename Nodes>
void list_remove_node(List<T, Nodes>& list, ListNode<T>* node) {
  std::lock_guard hold(list.lock);
  if (node->previous != nullptr) node->previous->next = node->next;
  if (node->next != nullptr) node->next->previous = node->previous;
  if (list.first == node) list.first = node->next;
  if (list.last == node) list.last = node->previous;
  node->~ListNode<T>();
  list.nodes.template deallocate<ListNode<T>>(node);
}

/// Removes the first node holding `item`; an absent item changes nothing.
template <typename T, typename Nodes>
void list_remove(List<T, Nodes>& list, std::type_identity_t<ListKey<T>> item) {
  std::lock_guard hold(list.lock);
  if (ListNode<T>* node = list_find(list, item)) list_remove_node(list, node);
}

/// Removes every node; the List stays usable.
template <typename T, typename Nodes>
void list_clear(List<T, Nodes>& list) {
  std::lock_guard hold(list.lock);
  for (ListNode<T>* node = list.first; node != nullptr;) {
    ListNode<T>* next = node->next;
    list_remove_node(list, node);
    node = next;
  }
}

/// The number of items, counted under the lock.
template <typename T, typename Nodes>
int list_count(List<T, Nodes>& list) {
  std::lock_guard hold(list.lock);
  int count = 0;
  for (ListNode<T>* node = list.first; node != nullptr; node = node->next) ++count;
  return count;
}

static_assert(std::forward_iterator<ListIterator<int*, false>>);
static_assert(std::forward_iterator<ListIterator<int*, true>>);

}  // namespace quorlin

#endif  // QUORLIN_BASE_LIST_HPP
