/// @file
/// HashTable: string keys to one-word values, open addressing with quadratic probing.
///
/// The bucket count steps through 26 primes, each about double the one before; the table grows
/// to the next prime before an insert when its live count, in single precision, exceeds 0.65 of
/// the bucket count. A key hashes with djb2 (0 becomes 1, so that a hash of 0 marks a slot never
/// used) and probes (hash + i*i) mod buckets in 32-bit arithmetic. Removal keeps the slot's hash
/// and drops its key, so probe sequences through it stay intact and inserts may reuse it.
/// Inserting a key twice stores two entries; lookups see the first on the probe sequence.
/// Probing is bounded by the bucket count: a lookup that meets only used slots reports absence,
/// and an insert that finds no free slot grows the table first.
///
/// Keys are copied into the table (short ones inside the slot itself, so that a lookup touches
/// one cache line); values are stored and returned as given and never freed. A value of 0 can
/// not be told from absence. Every operation after creation holds the table's recursive lock.
#ifndef QUORLIN_BASE_HASH_TABLE_HPP
#define QUORLIN_BASE_HASH_TABLE_HPP

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include "quorlin/base/api.hpp"

namespace quorlin {

using HashValue = std::uintptr_t;

inline constexpr int HASH_TABLE_SIZE_STEPS = 26;
inline constexpr float HASH_TABLE_LOAD_LIMIT = 0.65f;
inline constexpr int HASH_TABLE_NO_ROOM = -1;
inline constexpr int HASH_TABLE_BAD_KEY = -2;

struct HashSlot {
  static constexpr std::uint32_t kNoKey = 0xFFFFFFFF;
  static constexpr std::size_t kInlineKeyBytes = 16;

  std::uint32_t hash;        ///< 0: never used
  std::uint32_t key_length;  ///< kNoKey: empty or removed
  union {
    char inline_key[kInlineKeyBytes];  ///< keys of up to 16 bytes
    char* heap_key;                    ///< longer keys, owned
  };
  HashValue value;

  bool has_key() const { return key_length != kNoKey; }  ///< whether the slot holds an entry
  /// The stored key's bytes; only for a slot that has_key().
  std::string_view key() const {
    return {key_length <= kInlineKeyBytes ? inline_key : heap_key, key_length};
  }
};

struct QUORLIN_API HashTable {
  struct FreeSlots {
    void operator()(HashSlot* slots) const { std::free(slots); }  ///< frees the bucket array
  };
  using Buckets = std::unique_ptr<HashSlot[], FreeSlots>;

  std::recursive_mutex lock;
  Buckets buckets;
  std::uint32_t count = 0;
  int size_step;
  /// Holds left by inserts of a null or empty key, released when the table is destroyed.
  std::uint32_t held_by_bad_keys = 0;

  /// An empty table of size step `step`, before its buckets are made: hash_table_create makes
  /// tables.
  explicit HashTable(int step) : size_step(step) {}
  HashTable(const HashTable&) = delete;
  HashTable& operator=(const HashTable&) = delete;
  /// Frees the stored key copies (values are untouched) and the buckets. The destroying thread
  /// must be the one that inserted any null or empty key, since it still holds the lock for it.
  ~HashTable();

  std::uint32_t bucket_count() const;  ///< hash_table_prime of the size step
};

/// The bucket count of each size step.
QUORLIN_API std::uint32_t hash_table_prime(int size_step);

/// djb2 over the key's bytes, taken unsigned, with 0 replaced by 1.
QUORLIN_API std::uint32_t hash_string(std::string_view key);

/// A table sized for `expected` entries at the load limit; null when the buckets cannot be had.
QUORLIN_API std::unique_ptr<HashTable> hash_table_create(std::uint32_t expected);

/// Stores a copy of `key` with `value`. Returns 0; HASH_TABLE_NO_ROOM when the table must grow
/// and cannot; HASH_TABLE_BAD_KEY for a null or empty key, in which case the lock stays held
/// by the calling thread (it may go on using the table; other threads wait).
QUORLIN_API int hash_table_insert(HashTable& table, const char* key, HashValue value);

/// The value stored for `key`, or 0.
QUORLIN_API HashValue hash_table_lookup(HashTable& table, std::string_view key);

/// Removes the first entry for `key` and returns its value, or 0 when there is none.
QUORLIN_API HashValue hash_table_remove(HashTable& table, std::string_view key);

}  // namespace quorlin

#endif  // QUORLIN_BASE_HASH_TABLE_HPP
