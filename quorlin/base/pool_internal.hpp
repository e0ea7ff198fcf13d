// Pool: storage for the many small objects that are made together and freed together, such as
// the records and List nodes of a list read from the service.
//
// Objects are carved one after the other from 64 KiB chunks, and a chunk goes back to the heap
// when the last object carved from it is freed: reading 80,000 records costs a few hundred chunk
// allocations instead of a malloc and a free per record and per List node, and freeing them
// returns the memory. The bytes of a freed object are reused only once its whole chunk is free,
// so one long-lived object keeps its chunk.
//
// Each thread carves from a chunk of its own; an object may be freed by any thread. Under the
// address sanitizer every object is a heap block of its own, so that use after free is caught.
#ifndef QUORLIN_BASE_POOL_INTERNAL_HPP
#define QUORLIN_BASE_POOL_INTERNAL_HPP

#include <cstddef>

namespace quorlin {

// Storage for an object of `size` bytes, aligned for any type: a small object such as a record
// of a few hundred bytes, which the pool carves from a chunk whatever its size (List nodes are
// sorted by list_node_allocate, which sends large ones to operator new). Throws std::bad_alloc
// when the heap has no chunk to give.
void* pool_allocate(std::size_t size);

// Frees an object from pool_allocate; null does nothing. Safe from any thread.
void pool_free(void* memory) noexcept;

}  // namespace quorlin

#endif  // QUORLIN_BASE_POOL_INTERNAL_HPP
