#include "quorlin/base/hash_table.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

// prefix + decimal number; built with snprintf, which g++ 12 does not misjudge at -O3.
std::string numbered(const char* prefix, int number) {
  char key[64];
  std::snprintf(key, sizeof key, "%s%d", prefix, number);
  return key;
}

// Keys `prefix`0, `prefix`1, ... whose home bucket in a table of 53 is `bucket`.
std::vector<std::string> keys_homed_at(std::uint32_t bucket, int how_many,
                                       const std::string& prefix = "k") {
  std::vector<std::string> keys;
  for (int i = 0; static_cast<int>(keys.size()) < how_many; ++i) {
    const std::string key = numbered(prefix.c_str(), i);
    if (hash_string(key) % 53 == bucket) keys.push_back(key);
  }
  return keys;
}

TEST(HashTable, SizesForTheExpectedCountAndGrowsAtTheLoadLimit) {
  EXPECT_EQ(hash_string("\xff"), 5381u * 33 + 0xff);  // bytes are taken unsigned
  EXPECT_EQ(hash_string("glidphc"), 1u);              // its sum is 0, which marks unused slots
  for (const auto& [expected, buckets] :
       {std::pair{0u, 53u}, {34u, 53u}, {35u, 97u}, {1000u, 1543u}})
    EXPECT_EQ(hash_table_create(expected)->bucket_count(), buckets) << expected;
  const std::uint32_t primes[] = {
      53,       97,       193,      389,       769,       1543,      3079,      6151,      12289,
      24593,    49157,    98317,    196613,    393241,    786433,    1572869,   3145739,   6291469,
      12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741};
  for (int step = 0; step < 26; ++step) EXPECT_EQ(hash_table_prime(step), primes[step]) << step;

  auto table = hash_table_create(0);
  for (int i = 1; i <= 35; ++i)
    ASSERT_EQ(hash_table_insert(*table, numbered("key", i).c_str(), i), 0);
  EXPECT_EQ(table->bucket_count(), 53u);  // 35 entries: 35 > 34.45 only counts at the next insert
  ASSERT_EQ(hash_table_insert(*table, "key36", 36), 0);
  EXPECT_EQ(table->bucket_count(), 97u);
  for (int i = 1; i <= 36; ++i)
    EXPECT_EQ(hash_table_lookup(*table, numbered("key", i)), HashValue(i));
  // A bad key stores nothing and leaves the lock held by the calling thread.
  EXPECT_EQ(hash_table_insert(*table, nullptr, 1), -2);
  EXPECT_EQ(hash_table_insert(*table, "", 1), -2);
  EXPECT_EQ(table->count, 36u);
  std::thread([&] { EXPECT_FALSE(table->lock.try_lock()); }).join();
  // A table at the last step has no room beyond its load limit.
  HashTable last_step(25);
  last_step.count = 1'100'000'000;
  EXPECT_EQ(hash_table_insert(last_step, "k", 1), -1);
}

// Removal leaves a marker that keeps its hash: lookups probe past it, an insert takes it again,
// and a lookup of an absent key ends even when every slot is a marker. Duplicate keys are
// stored twice and found and removed oldest first, inline and long keys alike.
TEST(HashTable, RemovedSlotsAndDuplicateKeys) {
  auto table = hash_table_create(0);
  const std::vector<std::string> keys = keys_homed_at(7, 3);
  for (int i = 0; i < 2; ++i) ASSERT_EQ(hash_table_insert(*table, keys[i].c_str(), 10 + i), 0);
  EXPECT_EQ(hash_table_remove(*table, keys[0]), 10u);
  EXPECT_EQ(hash_table_remove(*table, keys[0]), 0u);
  EXPECT_EQ(hash_table_lookup(*table, keys[1]), 11u);  // found past the removed home slot
  ASSERT_EQ(hash_table_insert(*table, keys[2].c_str(), 12), 0);
  EXPECT_EQ(table->buckets[7].key(), keys[2]);
  EXPECT_EQ(table->count, 2u);

  auto markers = hash_table_create(0);
  for (std::uint32_t bucket = 0; bucket < 53; ++bucket) {
    const std::string key = keys_homed_at(bucket, 1)[0];
    ASSERT_EQ(hash_table_insert(*markers, key.c_str(), 1), 0);
    ASSERT_EQ(hash_table_remove(*markers, key), 1u);
  }
  EXPECT_EQ(hash_table_lookup(*markers, "absent"), 0u);
  ASSERT_EQ(hash_table_insert(*markers, "present", 5), 0);
  EXPECT_EQ(hash_table_lookup(*markers, "present"), 5u);

  for (const std::string& key :
       {std::string("dup"), std::string("glidphc"), std::string(16, 'k'), std::string(40, 'x')}) {
    ASSERT_EQ(hash_table_insert(*table, key.c_str(), 1), 0);
    ASSERT_EQ(hash_table_insert(*table, key.c_str(), 2), 0);
    EXPECT_EQ(hash_table_remove(*table, key), 1u);
    EXPECT_EQ(hash_table_lookup(*table, key), 2u);
  }

  // A table frees the long keys it copied when it goes, in its first and last buckets too: two
  // thousand tables leave nothing.
  const std::string first = keys_homed_at(0, 1, std::string(56, 'k'))[0];
  const std::string last = keys_homed_at(52, 1, std::string(56, 'k'))[0];
  const std::size_t before = testing::heap_in_use();
  for (int round = 0; round < 2000; ++round) {
    auto short_lived = hash_table_create(0);
    ASSERT_EQ(hash_table_insert(*short_lived, first.c_str(), 1), 0);
    ASSERT_EQ(hash_table_insert(*short_lived, last.c_str(), 1), 0);
  }
  EXPECT_LT(testing::heap_in_use(), before + (64u << 10));
}

}  // namespace
}  // namespace quorlin
