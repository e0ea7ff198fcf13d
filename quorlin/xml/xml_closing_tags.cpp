#include "quorlin/xml/xml_closing_tags.hpp"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>

namespace quorlin {
namespace {

// A seeded hash of a tag name, so that a document cannot be written to make names collide.
std::uint64_t name_hash(std::string_view name) {
  static const std::uint64_t seed = std::random_device{}() | 1;
  constexpr std::uint64_t kMultiplier = 0xFF51AFD7ED558CCDull;
  std::uint64_t hash = seed ^ name.size();
  const char* bytes = name.data();
  std::size_t left = name.size();
  for (; left >= 8; bytes += 8, left -= 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes, 8);
    hash = (hash ^ word) * kMultiplier;
    hash ^= hash >> 32;
  }
  std::uint64_t tail = 0;
  for (std::size_t i = 0; i < left; ++i) {
    tail |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  }
  hash = (hash ^ tail) * kMultiplier;
  return hash ^ (hash >> 29);
}

}  // namespace

ClosingTags::ClosingTags(std::string_view text) : text_(text) {}

long ClosingTags::find(std::string_view name, long from, long end) {
  if (!indexed_) index();
  const long found = first_from(name, from);
  return found >= 0 && found < end ? found : -1;
}

// The entry of `name` in names_, made if it is new. Documents repeat a few names many times,
// so a small table keyed by length and outer bytes answers most lookups with one compare.
inline long ClosingTags::entry_of(std::string_view name) {
  const std::size_t key = name.empty()
                              ? 0
                              : (name.size() * 29 + static_cast<unsigned char>(name.front()) * 7 +
                                 static_cast<unsigned char>(name.back()) * 13) %
                                    std::size(recent_);
  Recent& recent = recent_[key];
  if (recent.entry >= 0 && scan::same_bytes(recent.name, name)) return recent.entry;
  const std::uint64_t hash = name_hash(name);
  long* slot = find_slot(name, hash);
  if (*slot < 0) {
    *slot = static_cast<long>(names_.size());
    names_.push_back(Name{name, hash, {}, 0, 0});
    if (names_.size() * 2 > slots_.size()) grow();
    slot = find_slot(name, hash);
  }
  recent = Recent{name, *slot};
  return recent.entry;
}

void ClosingTags::index() {
  indexed_ = true;
  slots_.assign(64, -1);
  const long length = static_cast<long>(text_.size());
  for (long p = scan::find_closing_start(text_, 0); p >= 0;
       p = scan::find_closing_start(text_, p + 1)) {
    const long gt = scan::find_byte(text_, '>', p + 2, length);
    if (gt < 0) break;  // no later "</" has a ">" after it either
    const std::string_view name = text_.substr(p + 2, gt - p - 2);
    names_[entry_of(name)].starts.push_back(p);
  }
}

// The slot that holds the entry of `name`, or the free slot where it belongs.
long* ClosingTags::find_slot(std::string_view name, std::uint64_t hash) {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    const long entry = slots_[slot];
    if (entry < 0 || (names_[entry].hash == hash && scan::same_bytes(names_[entry].name, name))) {
      return &slots_[slot];
    }
  }
}

void ClosingTags::grow() {
  slots_.assign(slots_.size() * 2, -1);
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t entry = 0; entry < names_.size(); ++entry) {
    std::size_t slot = names_[entry].hash & mask;
    while (slots_[slot] >= 0) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<long>(entry);
  }
}

long ClosingTags::first_from(std::string_view name, long from) {
  const long entry = *find_slot(name, name_hash(name));
  if (entry < 0) return -1;
  Name& tags = names_[entry];
  // The parser's searches only go forward; one that goes back starts the list over.
  if (from < tags.last_from) tags.cursor = 0;
  tags.last_from = from;
  while (tags.cursor < tags.starts.size() && tags.starts[tags.cursor] < from) ++tags.cursor;
  return tags.cursor < tags.starts.size() ? tags.starts[tags.cursor] : -1;
}

}  // namespace quorlin
