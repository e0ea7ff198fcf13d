#include "quorlin/base/hash_table.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace quorlin {
namespace {

// prefix + decimal number; built with snprintf, which g++ 12 does not misjudge at -O3.
std::string numbered(const char* prefix, int number, int second = -1) {
  char key[64];
  if (second < 0) {
    std::snprintf(key, sizeof key, "%s%d", prefix, number);
  } else {
    std::snprintf(key, sizeof key, "%s%d-%d", prefix, number, second);
  }
  return key;
}

// Keys "k0", "k1", ... whose home bucket in a table of `buckets` is `bucket`.
std::vector<std::string> keys_homed_at(std::uint32_t bucket, std::uint32_t buckets, int how_many) {
  std::vector<std::string> keys;
  for (int i = 0; static_cast<int>(keys.size()) < how_many; ++i) {
    std::string key = numbered("k", i);
    if (hash_string(key) % buckets == bucket) keys.push_back(key);
  }
  return keys;
}

TEST(HashString, IsDjb2) {
  EXPECT_EQ(hash_string(""), 5381u);
  EXPECT_EQ(hash_string("a"), 5381u * 33 + 'a');
  EXPECT_EQ(hash_string("\xff"), 5381u * 33 + 0xff);  // bytes are taken unsigned
}

TEST(HashTable, SizesForTheExpectedCountAndGrowsAtTheLoadLimit) {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes = {
      {0, 53}, {34, 53}, {35, 97}, {1000, 1543}, {4000000000u, 1610612741}};
  for (const auto& [expected, buckets] : sizes) {
    if (buckets > 100000) continue;  // the largest step is checked by its prime alone
    EXPECT_EQ(hash_table_create(expected)->bucket_count(), buckets) << expected;
  }
  EXPECT_EQ(hash_table_prime(25), 1610612741u);

  auto table = hash_table_create(0);
  for (int i = 1; i <= 35; ++i) {
    ASSERT_EQ(hash_table_insert(*table, numbered("key", i).c_str(), i), 0);
  }
  EXPECT_EQ(table->bucket_count(), 53u);  // 35 entries: 35 > 34.45 only counts at the next insert
  ASSERT_EQ(hash_table_insert(*table, "key36", 36), 0);
  EXPECT_EQ(table->bucket_count(), 97u);
  EXPECT_EQ(table->count, 36u);
  for (int i = 1; i <= 36; ++i) {
    EXPECT_EQ(hash_table_lookup(*table, numbered("key", i)), static_cast<HashValue>(i));
  }
}

// Removal leaves a marker that keeps its hash: lookups probe past it, an insert takes it again,
// and a lookup of an absent key ends even when every slot is a marker. Duplicate keys are
// stored twice and found and removed oldest first, inline and long keys alike.
TEST(HashTable, RemovedSlotsAndDuplicateKeys) {
  auto table = hash_table_create(0);
  const std::vector<std::string> keys = keys_homed_at(7, 53, 4);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(hash_table_insert(*table, keys[i].c_str(), 10 + i), 0);
  EXPECT_EQ(hash_table_remove(*table, keys[0]), 10u);
  EXPECT_EQ(hash_table_remove(*table, keys[0]), 0u);
  EXPECT_EQ(hash_table_lookup(*table, keys[0]), 0u);
  EXPECT_EQ(hash_table_lookup(*table, keys[1]), 11u);  // found past the removed home slot
  EXPECT_EQ(hash_table_lookup(*table, keys[2]), 12u);
  EXPECT_EQ(table->buckets[7].hash, hash_string(keys[0]));
  ASSERT_EQ(hash_table_insert(*table, keys[3].c_str(), 13), 0);
  EXPECT_EQ(table->buckets[7].key(), keys[3]);
  EXPECT_EQ(table->count, 3u);

  auto markers = hash_table_create(0);
  for (std::uint32_t bucket = 0; bucket < 53; ++bucket) {
    const std::string key = keys_homed_at(bucket, 53, 1)[0];
    ASSERT_EQ(hash_table_insert(*markers, key.c_str(), 1), 0);
    ASSERT_EQ(hash_table_remove(*markers, key), 1u);
  }
  EXPECT_EQ(hash_table_lookup(*markers, "absent"), 0u);
  EXPECT_EQ(hash_table_remove(*markers, "absent"), 0u);
  ASSERT_EQ(hash_table_insert(*markers, "present", 5), 0);
  EXPECT_EQ(hash_table_lookup(*markers, "present"), 5u);

  for (const std::string& key : {std::string("dup"), std::string(40, 'x')}) {
    ASSERT_EQ(hash_table_insert(*table, key.c_str(), 1), 0);
    ASSERT_EQ(hash_table_insert(*table, key.c_str(), 2), 0);
    EXPECT_EQ(hash_table_remove(*table, key), 1u);
    EXPECT_EQ(hash_table_lookup(*table, key), 2u);
    EXPECT_EQ(hash_table_remove(*table, key), 2u);
    EXPECT_EQ(hash_table_lookup(*table, key), 0u);
  }
}

TEST(HashTable, BadKeysStoreNothingAndKeepTheLockHeld) {
  auto table = hash_table_create(0);
  EXPECT_EQ(hash_table_insert(*table, nullptr, 1), -2);
  EXPECT_EQ(hash_table_insert(*table, "", 1), -2);
  EXPECT_EQ(table->count, 0u);
  bool other_thread_got_lock = true;
  std::thread([&] { other_thread_got_lock = table->lock.try_lock(); }).join();
  EXPECT_FALSE(other_thread_got_lock);
  // The same thread goes on using the table; destroying it releases the holds.
  EXPECT_EQ(hash_table_insert(*table, "a", 1), 0);
  EXPECT_EQ(hash_table_lookup(*table, "a"), 1u);
}

TEST(HashTableConcurrency, EightThreadsInsertLookUpAndRemove) {
  constexpr int kThreads = 8;
  constexpr int kKeys = 3000;
  auto table = hash_table_create(0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kKeys; ++i) {
        const std::string key = numbered("host-", t, i);
        ASSERT_EQ(hash_table_insert(*table, key.c_str(), i + 1), 0);
        ASSERT_EQ(hash_table_lookup(*table, key), static_cast<HashValue>(i + 1));
        if (i % 3 == 0) {
          ASSERT_EQ(hash_table_remove(*table, key), static_cast<HashValue>(i + 1));
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(table->count, static_cast<std::uint32_t>(kThreads * (kKeys - kKeys / 3)));
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kKeys; ++i) {
      const std::string key = numbered("host-", t, i);
      EXPECT_EQ(hash_table_lookup(*table, key), i % 3 == 0 ? 0u : static_cast<HashValue>(i + 1));
    }
  }
}

}  // namespace
}  // namespace quorlin
