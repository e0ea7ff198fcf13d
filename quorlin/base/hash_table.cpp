// Open-addressing hash table; see hash_table.hpp for its rules.
//
// The modulo by the prime bucket count is the hot spot of every probe, so it is computed with
// a precomputed 64-bit reciprocal (exact for every 32-bit dividend) instead of a division.
#include "quorlin/base/hash_table.hpp"

#include <array>
#include <cstring>
#include <memory>

namespace quorlin {
namespace {

constexpr std::array<std::uint32_t, HASH_TABLE_SIZE_STEPS> kPrimes = {
    53,       97,       193,      389,       769,       1543,      3079,      6151,      12289,
    24593,    49157,    98317,    196613,    393241,    786433,    1572869,   3145739,   6291469,
    12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741};

__extension__ using Uint128 = unsigned __int128;

// a mod d through the reciprocal m = floor((2^64 - 1) / d) + 1.
struct FastModulo {
  std::uint32_t divisor;
  std::uint64_t reciprocal;

  explicit FastModulo(std::uint32_t d) : divisor(d), reciprocal(~std::uint64_t{0} / d + 1) {}
  std::uint32_t operator()(std::uint32_t a) const {
    std::uint64_t low_bits = reciprocal * a;
    return static_cast<std::uint32_t>((static_cast<Uint128>(low_bits) * divisor) >> 64);
  }
};

HashTable::Buckets allocate_buckets(std::uint32_t count) {
  auto* slots = static_cast<HashSlot*>(std::malloc(count * sizeof(HashSlot)));
  HashSlot never_used{};
  never_used.key_length = HashSlot::kNoKey;
  if (slots != nullptr) std::uninitialized_fill_n(slots, count, never_used);
  return HashTable::Buckets(slots);
}

void store_key(HashSlot& slot, std::string_view key) {
  slot.key_length = static_cast<std::uint32_t>(key.size());
  char* target = slot.inline_key;
  if (key.size() > HashSlot::kInlineKeyBytes) {
    slot.heap_key = static_cast<char*>(std::malloc(key.size()));
    target = slot.heap_key;
  }
  if (!key.empty()) std::memcpy(target, key.data(), key.size());  // an empty key may have no bytes
}

void drop_key(HashSlot& slot) {
  if (slot.has_key() && slot.key_length > HashSlot::kInlineKeyBytes) std::free(slot.heap_key);
  slot.key_length = HashSlot::kNoKey;
}

// The slot holding `key`, or null. Stops at a never-used slot or after one probe per bucket.
HashSlot* find_slot(HashTable& table, std::string_view key, std::uint32_t hash) {
  const std::uint32_t buckets = table.bucket_count();
  const FastModulo modulo(buckets);
  for (std::uint32_t i = 0; i < buckets; ++i) {
    HashSlot& slot = table.buckets[modulo(hash + i * i)];
    if (slot.hash == 0) return nullptr;
    if (slot.hash == hash && slot.has_key() && slot.key() == key) return &slot;
  }
  return nullptr;
}

// The first slot without a key (never used or removed) on the probe sequence, or null.
HashSlot* free_slot(HashTable& table, std::uint32_t hash) {
  const std::uint32_t buckets = table.bucket_count();
  const FastModulo modulo(buckets);
  for (std::uint32_t i = 0; i < buckets; ++i) {
    HashSlot& slot = table.buckets[modulo(hash + i * i)];
    if (!slot.has_key()) return &slot;
  }
  return nullptr;
}

bool grow(HashTable& table);

// Places an entry whose key bytes are already owned by `moved` (rehashing) or copied from
// `key` (a new insert). Returns false when the table had to grow and could not.
bool place(HashTable& table, std::uint32_t hash, const HashSlot* moved, std::string_view key,
           HashValue value) {
  HashSlot* slot = free_slot(table, hash);
  while (slot == nullptr) {
    if (!grow(table)) return false;
    slot = free_slot(table, hash);
  }
  if (moved != nullptr) {
    *slot = *moved;  // the key copy (inline or on the heap) moves with the slot
  } else {
    slot->hash = hash;
    store_key(*slot, key);
    slot->value = value;
  }
  ++table.count;
  return true;
}

// Moves every live entry into the next prime's buckets. When they cannot be had the table stays
// as it was: its step keeps describing the buckets it really has.
bool grow(HashTable& table) {
  if (table.size_step + 1 >= HASH_TABLE_SIZE_STEPS) return false;
  const std::uint32_t old_count = table.bucket_count();
  HashTable::Buckets fresh = allocate_buckets(kPrimes[table.size_step + 1]);
  if (!fresh) return false;
  ++table.size_step;
  HashTable::Buckets old = std::move(table.buckets);
  table.buckets = std::move(fresh);
  table.count = 0;
  for (std::uint32_t i = 0; i < old_count; ++i) {
    const HashSlot& slot = old[i];
    if (slot.hash != 0 && slot.has_key()) place(table, slot.hash, &slot, {}, slot.value);
  }
  return true;
}

bool over_load_limit(const HashTable& table) {
  return static_cast<float>(table.count) >
         static_cast<float>(table.bucket_count()) * HASH_TABLE_LOAD_LIMIT;
}

}  // namespace

HashTable::~HashTable() {
  for (; held_by_bad_keys > 0; --held_by_bad_keys) lock.unlock();
  if (!buckets) return;
  const std::uint32_t buckets_in_use = bucket_count();
  for (std::uint32_t i = 0; i < buckets_in_use; ++i) drop_key(buckets[i]);
}

std::uint32_t HashTable::bucket_count() const {
  return kPrimes[size_step];
}

std::uint32_t hash_table_prime(int size_step) {
  return kPrimes[size_step];
}

std::uint32_t hash_string(std::string_view key) {
  std::uint32_t hash = 5381;
  for (char byte : key) hash = hash * 33 + static_cast<unsigned char>(byte);
  return hash == 0 ? 1 : hash;
}

std::unique_ptr<HashTable> hash_table_create(std::uint32_t expected) {
  const auto needed = static_cast<std::uint32_t>(static_cast<float>(expected) / 0.65f);
  int step = HASH_TABLE_SIZE_STEPS - 1;  // beyond the last prime: the last step
  for (int candidate = 0; candidate < HASH_TABLE_SIZE_STEPS; ++candidate) {
    if (kPrimes[candidate] > needed) {
      step = candidate;
      break;
    }
  }
  auto table = std::make_unique<HashTable>(step);
  table->buckets = allocate_buckets(kPrimes[step]);
  if (!table->buckets) return nullptr;
  return table;
}

int hash_table_insert(HashTable& table, const char* key, HashValue value) {
  table.lock.lock();
  if (key == nullptr || key[0] == '\0') {
    ++table.held_by_bad_keys;  // the lock is deliberately kept, as callers of this table expect
    return HASH_TABLE_BAD_KEY;
  }
  std::lock_guard release(table.lock, std::adopt_lock);
  if (over_load_limit(table) && !grow(table)) return HASH_TABLE_NO_ROOM;
  const std::string_view text(key);
  return place(table, hash_string(text), nullptr, text, value) ? 0 : HASH_TABLE_NO_ROOM;
}

HashValue hash_table_lookup(HashTable& table, std::string_view key) {
  const std::uint32_t hash = hash_string(key);
  std::lock_guard hold(table.lock);
  const HashSlot* slot = find_slot(table, key, hash);
  return slot != nullptr ? slot->value : 0;
}

HashValue hash_table_remove(HashTable& table, std::string_view key) {
  const std::uint32_t hash = hash_string(key);
  std::lock_guard hold(table.lock);
  HashSlot* slot = find_slot(table, key, hash);
  if (slot == nullptr) return 0;
  const HashValue value = slot->value;
  drop_key(*slot);
  slot->value = 0;
  --table.count;
  return value;
}

}  // namespace quorlin
