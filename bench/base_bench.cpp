// Foundation benchmarks, each beside the peer a user would otherwise pick:
//   hash table   vs std::unordered_map<std::string, HashValue> under a std::recursive_mutex
//   url encoding vs a straightforward std::string += encoder and decoder
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "quorlin/base/hash_table.hpp"
#include "quorlin/base/url.hpp"

namespace {

using quorlin::HashValue;

constexpr int kKeyCount = 1'000'000;

const std::vector<std::string>& host_keys() {
  static const std::vector<std::string> keys = [] {
    std::vector<std::string> made;
    made.reserve(kKeyCount);
    char key[32];
    for (int i = 0; i < kKeyCount; ++i) {
      std::snprintf(key, sizeof key, "host-%06d", i);
      made.emplace_back(key);
    }
    return made;
  }();
  return keys;
}

// The same keys in a fixed random order, so that lookups do not walk memory in insert order.
const std::vector<std::string>& shuffled_keys() {
  static const std::vector<std::string> keys = [] {
    std::vector<std::string> made = host_keys();
    std::shuffle(made.begin(), made.end(), std::mt19937(42));
    return made;
  }();
  return keys;
}

class LockedMap {
 public:
  void insert(const std::string& key, HashValue value) {
    std::lock_guard hold(lock_);
    map_.emplace(key, value);
  }
  HashValue lookup(const std::string& key) {
    std::lock_guard hold(lock_);
    auto found = map_.find(key);
    return found == map_.end() ? 0 : found->second;
  }

 private:
  std::recursive_mutex lock_;
  std::unordered_map<std::string, HashValue> map_;
};

void BM_hash_table_insert(benchmark::State& state) {
  for (auto _ : state) {
    auto table = quorlin::hash_table_create(0);
    HashValue value = 1;
    for (const std::string& key : host_keys())
      quorlin::hash_table_insert(*table, key.c_str(), value++);
    benchmark::DoNotOptimize(table->count);
  }
  state.SetItemsProcessed(state.iterations() * kKeyCount);
}

void BM_unordered_map_insert(benchmark::State& state) {
  for (auto _ : state) {
    LockedMap map;
    HashValue value = 1;
    for (const std::string& key : host_keys()) map.insert(key, value++);
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * kKeyCount);
}

void BM_hash_table_lookup(benchmark::State& state) {
  auto table = quorlin::hash_table_create(0);
  HashValue value = 1;
  for (const std::string& key : host_keys())
    quorlin::hash_table_insert(*table, key.c_str(), value++);
  for (auto _ : state) {
    HashValue sum = 0;
    for (const std::string& key : shuffled_keys()) sum += quorlin::hash_table_lookup(*table, key);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kKeyCount);
}

void BM_unordered_map_lookup(benchmark::State& state) {
  LockedMap map;
  HashValue value = 1;
  for (const std::string& key : host_keys()) map.insert(key, value++);
  for (auto _ : state) {
    HashValue sum = 0;
    for (const std::string& key : shuffled_keys()) sum += map.lookup(key);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kKeyCount);
}

BENCHMARK(BM_hash_table_insert)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_unordered_map_insert)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_hash_table_lookup)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_unordered_map_lookup)->Unit(benchmark::kMillisecond);

// ---- URL encoding -------------------------------------------------------------------------

enum Corpus { kRandomBytes = 0, kTextLike = 1 };

// Random bytes 1..255 (a NUL would end the text), or words and punctuation of a form value.
std::string corpus(Corpus kind, std::size_t size) {
  std::mt19937 random(7);
  std::string text(size, ' ');
  static const char kText[] = "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJ 0123456789 .-_@/&=:";
  for (char& byte : text) {
    byte = kind == kRandomBytes ? static_cast<char>(1 + random() % 255)
                                : kText[random() % (sizeof kText - 1)];
  }
  return text;
}

std::string naive_url_encode(const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char byte : text) {
    if (quorlin::url_is_unreserved(byte)) {
      out += static_cast<char>(byte);
    } else if (byte == ' ') {
      out += '+';
    } else {
      out += '%';
      out += byte < 0x10 ? ' ' : kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
  }
  return out;
}

int naive_hex_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return 0;
}

std::string naive_url_decode(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      out += ' ';
    } else if (text[i] == '%' && i + 2 < text.size()) {
      int high = text[i + 1] == ' ' ? 0 : naive_hex_value(text[i + 1]);
      out += static_cast<char>(high * 16 + naive_hex_value(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

template <typename Encoder>
void run_encode(benchmark::State& state, Encoder encode) {
  const std::string text = corpus(static_cast<Corpus>(state.range(0)), state.range(1));
  for (auto _ : state) {
    std::string encoded = encode(text);
    benchmark::DoNotOptimize(encoded.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

template <typename Decoder>
void run_decode(benchmark::State& state, Decoder decode) {
  const std::string text =
      quorlin::url_encode(corpus(static_cast<Corpus>(state.range(0)), state.range(1)));
  for (auto _ : state) {
    std::string decoded = decode(text);
    benchmark::DoNotOptimize(decoded.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void BM_url_encode(benchmark::State& state) {
  run_encode(state, [](const std::string& text) { return quorlin::url_encode(text); });
}
void BM_naive_url_encode(benchmark::State& state) {
  run_encode(state, naive_url_encode);
}
void BM_url_decode(benchmark::State& state) {
  run_decode(state, [](const std::string& text) { return quorlin::url_decode(text); });
}
void BM_naive_url_decode(benchmark::State& state) {
  run_decode(state, naive_url_decode);
}

void url_sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"text_like", "bytes"});
  for (int kind : {kRandomBytes, kTextLike}) {
    for (int size : {1 << 20, 16 << 20}) bench->Args({kind, size});
  }
  bench->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_url_encode)->Apply(url_sizes);
BENCHMARK(BM_naive_url_encode)->Apply(url_sizes);
BENCHMARK(BM_url_decode)->Apply(url_sizes);
BENCHMARK(BM_naive_url_decode)->Apply(url_sizes);

}  // namespace

BENCHMARK_MAIN();
