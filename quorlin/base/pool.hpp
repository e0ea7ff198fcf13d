/// @file
/// Pool: storage for the many small objects that are made together and freed together, such as
/// the records and List nodes of a list read from the service.
///
/// Objects are carved one after the other from 64 KiB chunks, and a chunk goes back to the heap
/// when the last object carved from it is freed: reading 80,000 records costs a few hundred chunk
/// allocations instead of a malloc and a free per record and per List node, and freeing them
/// returns the memory. The bytes of a freed object are reused only once its whole chunk is free,
/// so one long-lived object keeps its chunk.
///
/// Each thread carves from a chunk of its own; an object may be freed by any thread. Under the
/// address sanitizer every object is a heap block of its own, so that use after free is caught.
#ifndef QUORLIN_BASE_POOL_HPP
#define QUORLIN_BASE_POOL_HPP

#include <cstddef>
#include "quorlin/base/api.hpp"

namespace quorlin {

/// The largest object the pool carves; larger sizes are refused by pool_allocate's callers at
/// compile time (see QUORLIN_POOLED).
inline constexpr std::size_t kPoolLargest = 1024;

/// Storage for an object of `size` bytes (at most kPoolLargest), aligned for any type; throws
/// std::bad_alloc when the heap has no chunk to give.
QUORLIN_API void* pool_allocate(std::size_t size);

/// Frees an object from pool_allocate; null does nothing. Safe from any thread.
QUORLIN_API void pool_free(void* memory) noexcept;

}  // namespace quorlin

// Inside a class: `new` and `delete` of the class use the pool.
#define QUORLIN_POOLED(Class)                                \
  static void* operator new(std::size_t size) {              \
    static_assert(sizeof(Class) <= ::quorlin::kPoolLargest); \
    return ::quorlin::pool_allocate(size);                   \
  }                                                          \
  static void operator delete(void* memory) {                \
    ::quorlin::pool_free(memory);                            \
  }

#endif  // QUORLIN_BASE_POOL_HPP
