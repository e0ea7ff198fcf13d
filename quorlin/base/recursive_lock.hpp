/// @file
/// RecursiveLock: a recursive mutex in 16 bytes that never allocates.
///
/// Every List carries a lock, and most are built by one thread and never contended, so the lock
/// is an owner word and a depth: taking a free lock, or one the thread already holds, and letting
/// it go are one atomic operation each. It meets the standard Lockable requirements, so
/// std::lock_guard and std::unique_lock work with it, and it is recursive as std::recursive_mutex
/// is.
#ifndef QUORLIN_BASE_RECURSIVE_LOCK_HPP
#define QUORLIN_BASE_RECURSIVE_LOCK_HPP

#include <atomic>
#include <cstdint>
#include "quorlin/base/api.hpp"

namespace quorlin {

class RecursiveLock {
 public:
  RecursiveLock() = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  /// Takes the lock, or one more level of it for its holder; sleeps while another thread holds
  /// it.
  QUORLIN_API void lock();
  /// Takes the lock, or one more level of it for its holder, without waiting; false when another
  /// thread holds it.
  QUORLIN_API bool try_lock();
  /// Only by the thread that holds the lock.
  QUORLIN_API void unlock();

 private:
  std::atomic<std::uintptr_t> owner_{0};  ///< the holder's mark, and whether it is awaited
  unsigned depth_{};  ///< the holder's levels: read and written by it only, set to 1 as it takes
                      ///< the lock
};

}  // namespace quorlin

#endif  // QUORLIN_BASE_RECURSIVE_LOCK_HPP
