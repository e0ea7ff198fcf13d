// Each chunk starts with its count of holds. A chunk being carved holds kCarving plus one per
// object it will still hand out: the carving thread counts its objects without atomics, and a
// free only ever subtracts one. When the thread moves on, it gives back the holds of the objects
// it did not carve; whoever brings the count to zero frees the chunk.
#include "quorlin/base/list.hpp"
#include "quorlin/base/pool_internal.hpp"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define QUORLIN_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUORLIN_POOL_BYPASS 1
#endif
#endif

namespace quorlin {

#ifdef QUORLIN_POOL_BYPASS

void* pool_allocate(std::size_t size) {
  return ::operator new(size);
}

void pool_free(void* memory) noexcept {
  ::operator delete(memory);
}

#else

namespace {

constexpr std::size_t kChunkSize = 64 * 1024;
constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::int64_t kCarving = std::int64_t{1} << 40;

struct alignas(kAlignment) Chunk {
  std::atomic<std::int64_t> holds{kCarving};
};

Chunk* chunk_of(void* memory) {
  return reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(memory) & ~(kChunkSize - 1));
}

void free_chunk(Chunk* chunk) {
  chunk->~Chunk();
  std::free(chunk);
}

struct Carver {
  Chunk* chunk = nullptr;
  std::size_t used = 0;
  std::int64_t carved = 0;

  void leave() {
    if (chunk == nullptr) return;
    if (chunk->holds.fetch_sub(kCarving - carved, std::memory_order_acq_rel) == kCarving - carved) {
      free_chunk(chunk);
    }
    chunk = nullptr;
  }

  void start() {
    void* memory = std::aligned_alloc(kChunkSize, kChunkSize);
    if (memory == nullptr) throw std::bad_alloc();
    chunk = ::new (memory) Chunk;
    used = sizeof(Chunk);
    carved = 0;
  }

  // Every object carved so far is free: carve the chunk again from its start.
  void restart() {
    chunk->holds.store(kCarving, std::memory_order_relaxed);
    used = sizeof(Chunk);
    carved = 0;
  }
};

// Trivially destructible and initial-exec, so that a carve or a free reads it from the thread
// pointer, with no guard and no __tls_get_addr call in the shared library.
[[gnu::tls_model("initial-exec")]] constinit thread_local Carver carver;

// A thread's chunk is let go at the thread's end through a thread-specific key, set when a chunk
// starts. Setting a key needs no memory; registering a thread_local object's destructor does,
// and the C library ends the process when that registration cannot allocate.
void leave_at_thread_end(void*) {
  carver.leave();
}

pthread_key_t thread_end_key() {
  static const pthread_key_t key = [] {
    pthread_key_t created{};
    pthread_key_create(&created, leave_at_thread_end);
    return created;
  }();
  return key;
}

}  // namespace

void* pool_allocate(std::size_t size) {
  size = (size + kAlignment - 1) & ~(kAlignment - 1);
  if (carver.chunk == nullptr || carver.used + size > kChunkSize) {
    carver.leave();
    carver.start();
    pthread_setspecific(thread_end_key(), &carver);
  }
  void* object = reinterpret_cast<char*>(carver.chunk) + carver.used;
  carver.used += size;
  ++carver.carved;
  return object;
}

void pool_free(void* memory) noexcept {
  if (memory == nullptr) return;
  Chunk* chunk = chunk_of(memory);
  const std::int64_t left = chunk->holds.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (left == 0) {
    free_chunk(chunk);
  } else if (chunk == carver.chunk && left == kCarving - carver.carved) {
    carver.restart();
  }
}

#endif

namespace {

// The largest List node the pool carves; larger ones would waste the rest of a chunk.
constexpr std::size_t kPoolLargest = 1024;

}  // namespace

void* list_node_allocate(std::size_t size) {
  return size <= kPoolLargest ? pool_allocate(size) : ::operator new(size);
}

void list_node_free(void* memory, std::size_t size) noexcept {
  if (size <= kPoolLargest) return pool_free(memory);
  ::operator delete(memory);
}

}  // namespace quorlin
