// The names of the open elements, for the XML parser (internal: not installed).
//
// An element's content ends at the first "</name>" after its opening tag, wherever that stands.
// While the parser reads on into the content, OpenNames answers which open element a closing
// tag closes. Two open elements never share a name (the parser does not keep an element whose
// name is open: the first "</name>" to come would close the outer one), so a closing tag closes
// at most one, found by its name alone. A "</" names the bytes up to the next ">", which a name
// never holds; the "</" that end at one ">" ("</x</a>" names "x</a" and "a") form a group whose
// names are found in one backward sweep.
//
// Elements open and close in stack order. Most lookups end at a count of the open names by size
// and outer bytes, where a document's names mostly differ. The others go to a table keyed by a
// hash seeded per process, so that a document cannot be written to make names collide: open
// addressing with linear probing, where names enter in stack order, only when a lookup first
// needs them, and leave last in first out, so that the table is always the one that inserting
// the open names in order would give. A name whose count shows another open name like it is
// checked a little later, while the table's memory for it is fetched, so that the misses of a
// deep document's table overlap. Each lookup costs one probe, mostly one cache line, and a name
// is hashed a bounded number of times per opening tag or "</", so that time stays linear in the
// text however it nests or repeats.
#ifndef QUORLIN_XML_XML_OPEN_NAMES_INTERNAL_HPP
#define QUORLIN_XML_XML_OPEN_NAMES_INTERNAL_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string_view>
#include <utility>
#include <vector>

#include "quorlin/base/same_bytes_internal.hpp"
#include "quorlin/xml/xml_tag_scanner_internal.hpp"

namespace quorlin::xml_open {

// A seeded 64-bit hash of a name. A name of up to 16 bytes is hashed from two words that cover
// it; a longer one byte by byte from its end, so that names that end at the same byte extend
// one another's hashes.
class NameHash {
 public:
  NameHash() : seeds_(process_seeds()) {}

  std::uint64_t of(std::string_view name) const {
    const std::size_t size = name.size();
    if (size > kShort) return of_long(size, backward(name));
    const char* bytes = name.data();
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    if (size >= 8) {
      first = word_at<std::uint64_t>(bytes);
      last = word_at<std::uint64_t>(bytes + size - 8);
    } else if (size >= 4) {
      first = word_at<std::uint32_t>(bytes);
      last = word_at<std::uint32_t>(bytes + size - 4);
    } else if (size > 0) {
      first = std::uint64_t{static_cast<unsigned char>(bytes[0])} << 16 |
              std::uint64_t{static_cast<unsigned char>(bytes[size / 2])} << 8 |
              static_cast<unsigned char>(bytes[size - 1]);
    }
    return mix(first ^ seeds_.first, last ^ seeds_.last ^ size);
  }

  // The hash of a name of more than 16 bytes from `backward`, the hash of its bytes taken from
  // the last to the first (start(), then step() for each).
  std::uint64_t of_long(std::size_t size, std::uint64_t backward) const {
    return mix(backward ^ seeds_.first, size ^ seeds_.last);
  }
  static constexpr std::size_t kShort = 16;
  std::uint64_t start() const { return seeds_.backward; }
  static std::uint64_t step(std::uint64_t hash, char byte) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x9E3779B97F4A7C15ull;
    return hash ^ (hash >> 29);
  }

 private:
  struct Seeds {
    std::uint64_t first, last, backward;
  };
  static Seeds process_seeds() {
    static const Seeds seeds = [] {
      std::random_device device;
      const auto draw = [&] { return std::uint64_t{device()} << 32 | device(); };
      return Seeds{draw(), draw(), draw()};
    }();
    return seeds;
  }
  std::uint64_t backward(std::string_view name) const {
    std::uint64_t hash = start();
    for (auto at = name.rbegin(); at != name.rend(); ++at) hash = step(hash, *at);
    return hash;
  }
  static std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }

  Seeds seeds_;
};

class OpenNames {
 public:
  std::size_t size() const { return size_; }
  // The name of the element opened at `index`; a closed one keeps it until another opens there.
  std::string_view name(std::size_t index) const {
    const Frame& frame = frames_.at(index);
    return {frame.name, frame.size};
  }
  // Whether that name holds "<": a closing tag of it may hide another one.
  bool name_holds_lt(std::size_t index) const { return frames_.at(index).holds_lt; }

  // Opens an element named `name`. Most names show at once that they are not open (no open
  // name has their size and outer bytes); another one is left unchecked until check(), while
  // the table's memory for it is fetched. At most kMostUnchecked wait: the caller checks
  // before it opens one more. False, with nothing opened, for a name or a depth beyond what a
  // frame holds (2^31 bytes or elements: texts of gigabytes).
  static constexpr std::size_t kMostUnchecked = 16;
  bool push(std::string_view name, bool holds_lt) {
    if (name.size() > kMostFrames || size_ >= kMostFrames) return false;
    leave_table();  // the closed frames' places are about to be reused
    frames_.put(size_, Frame{name.data(), static_cast<std::uint32_t>(name.size()), holds_lt, 0});
    if (counts_[quick_key(name)]++ != 0) leave_unchecked();
    ++size_;
    return true;
  }
  std::size_t unchecked() const { return unchecked_count_; }

  // Looks up the names left unchecked, outermost first. Returns the index of the first one that
  // an element below it has (the caller closes it with those above it), or -1.
  long check() {
    const std::size_t count = std::exchange(unchecked_count_, 0);
    for (std::size_t at = 0; at < count; ++at) {
      const std::size_t index = unchecked_[at];
      if (index >= size_) break;  // closed since
      enter_table(index);
      if (!enter_if_new()) return static_cast<long>(index);
    }
    return -1;
  }

  // The index of the open element named `name`, or -1; check() has found every name unique.
  long find(std::string_view name) { return may_be_open(name) ? look_up(name) : -1; }

  // False when no open element is named `name`; true when one may be.
  bool may_be_open(std::string_view name) const { return counts_[quick_key(name)] != 0; }

  // Closes the innermost open element. Its slot, when it has one, is emptied later, with those
  // of the elements closed after it, before an element opens in its place: a document that
  // closes a million elements in a row writes nothing to the table for them.
  void pop() {
    --size_;
    --counts_[quick_key(name(size_))];
  }

  // A "</" of a group and the open element it closes.
  struct Closing {
    long lt;
    std::size_t index;
  };
  // The open elements named by the "</" that begin in text[from, gt) before `limit`, whose
  // names all end at the ">" at `gt`, in document order; check() has found every name unique.
  // Only open names are kept, so that a group of a million "</" costs no more memory than the
  // open elements.
  void closings(std::string_view text, long from, long gt, long limit,
                std::vector<Closing>& found) {
    found.clear();
    if (size_ == 0) return;
    std::uint64_t backward = hash_.start();
    long hashed = gt;  // the backward hash covers text[hashed, gt), as far as a long name needs
    for (long lt = std::min(gt - 2, limit - 1); lt >= from; --lt) {
      if (!xml_scan::closing_start_at(text, lt)) continue;
      const std::string_view name =
          text.substr(static_cast<std::size_t>(lt + 2), static_cast<std::size_t>(gt - lt - 2));
      if (!may_be_open(name)) continue;
      enter_table(size_);
      std::uint64_t hash;
      if (name.size() <= NameHash::kShort) {
        hash = hash_.of(name);
      } else {
        for (; hashed > lt + 2; --hashed) {
          backward = NameHash::step(backward, text[static_cast<std::size_t>(hashed - 1)]);
        }
        hash = hash_.of_long(name.size(), backward);
      }
      const long index = find_entered(name, static_cast<std::uint32_t>(hash));
      if (index >= 0) found.push_back({lt, static_cast<std::size_t>(index)});
    }
    std::reverse(found.begin(), found.end());
  }

 private:
  static constexpr std::size_t kMostFrames = std::numeric_limits<std::int32_t>::max();
  static constexpr std::size_t kQuickKeys = 4096;

  // The key of a count of open names by size and outer bytes, which most lookups of a name that
  // is not open end at: a document's names mostly differ there.
  static std::size_t quick_key(std::string_view name) {
    if (name.empty()) return 0;
    const std::size_t front = static_cast<unsigned char>(name.front());
    const std::size_t back = static_cast<unsigned char>(name.back());
    return (name.size() << 7 ^ front << 3 ^ back) & (kQuickKeys - 1);
  }

  // An open element: its name, and the low half of the name's hash once it is needed, which
  // places it in the table (a table never has more than 2^32 slots).
  struct Frame {
    const char* name;
    std::uint32_t size : 31;
    std::uint32_t holds_lt : 1;
    std::uint32_t hash;
  };
  // A slot is one word: 0 when free, as made; else the frame's index + 1 in as many low bits as
  // the table has slots (see full()), under the bits of the frame's hash above those. A probe
  // then tells names apart by the hash without reading their frames.
  using Slot = std::uint32_t;
  Slot slot_for(std::size_t frame, std::uint32_t hash) const {
    return static_cast<Slot>((hash & ~mask_) | (frame + 1));
  }
  std::size_t frame_after(Slot slot) const { return slot & mask_; }
  bool same_hash(Slot slot, std::uint32_t hash) const { return ((slot ^ hash) & ~mask_) == 0; }

  // The frames, in chunks that never move: growing copies no frame, and a deeply nested
  // document never holds a second array of them.
  class Frames {
   public:
    Frame& at(std::size_t index) { return chunks_[index >> kShift][index & kMask]; }
    const Frame& at(std::size_t index) const { return chunks_[index >> kShift][index & kMask]; }
    // Places `frame` at `index`, one past the open frames.
    void put(std::size_t index, const Frame& frame) {
      if ((index >> kShift) == chunks_.size()) {
        chunks_.push_back(std::make_unique_for_overwrite<Frame[]>(kChunk));
      }
      at(index) = frame;
    }

   private:
    static constexpr std::size_t kShift = 8;
    static constexpr std::size_t kChunk = std::size_t{1} << kShift;
    static constexpr std::size_t kMask = kChunk - 1;
    std::vector<std::unique_ptr<Frame[]>> chunks_;
  };

  [[gnu::noinline]] long look_up(std::string_view name) {
    enter_table(size_);
    return find_entered(name, static_cast<std::uint32_t>(hash_.of(name)));
  }

  // Leaves the frame being opened for check(), and fetches the table's memory for it.
  [[gnu::noinline]] void leave_unchecked() {
    Frame& frame = frames_.at(size_);
    frame.hash = static_cast<std::uint32_t>(hash_.of({frame.name, frame.size}));
    __builtin_prefetch(&slots_[frame.hash & mask_]);
    unchecked_[unchecked_count_++] = size_;
  }

  // The index of the element named `name` among those in the table, or -1. A closed element
  // found there has left it: its name is not open (two open elements never share one, so no
  // other slot holds it).
  long find_entered(std::string_view name, std::uint32_t hash) const {
    for (std::size_t slot = hash & mask_;; slot = (slot + 1) & mask_) {
      const Slot entry = slots_[slot];
      if (entry == 0) return -1;
      if (!same_hash(entry, hash)) continue;
      const std::size_t frame = frame_after(entry) - 1;
      if (frames_.at(frame).hash == hash && same_bytes(this->name(frame), name)) {
        return frame < size_ ? static_cast<long>(frame) : -1;
      }
    }
  }

  // Enters the open frames below `end` in the table, in stack order; the names of most documents
  // never need it.
  void enter_table(std::size_t end) {
    leave_table();
    for (; entered_ < end; enter()) {
      frames_.at(entered_).hash = static_cast<std::uint32_t>(hash_.of(name(entered_)));
    }
  }

  // Whether the table must grow before one more frame enters. It is kept at most a quarter full:
  // with 100,000 to a million open names of a deep document, the shorter runs of slots save an
  // eighth to a quarter of the table's time over a table half full (in the same memory, since a
  // slot is one word), while an eighth full is slower again. Past 2^30 names (a text of
  // gigabytes) it stays at the 2^32 slots that a frame's hash can place and fills up to half.
  bool full() const {
    return 4 * (entered_ + 1) > mask_ + 1 && mask_ < std::numeric_limits<std::uint32_t>::max();
  }

  // Enters the first frame not in the table, whose hash it holds.
  void enter() {
    if (full()) grow();
    insert(entered_, frames_.at(entered_).hash);
    ++entered_;
  }

  // The same for a frame whose name may be in the table: false, with nothing entered, when it
  // is. One probe both looks for the name and finds the slot for it.
  bool enter_if_new() {
    if (full()) grow();
    const Frame& frame = frames_.at(entered_);
    const std::string_view entering{frame.name, frame.size};
    std::size_t slot = frame.hash & mask_;
    for (; slots_[slot] != 0; slot = (slot + 1) & mask_) {
      const Slot entry = slots_[slot];
      if (!same_hash(entry, frame.hash)) continue;
      const Frame& other = frames_.at(frame_after(entry) - 1);
      if (other.hash == frame.hash && same_bytes({other.name, other.size}, entering)) {
        return false;
      }
    }
    slots_[slot] = slot_for(entered_, frame.hash);
    ++entered_;
    return true;
  }

  // Empties the slots of the closed elements still in the table. In stack order or not, this
  // leaves the table that entering the open ones alone would give.
  void leave_table() {
    for (; entered_ > size_; --entered_) {
      std::size_t slot = frames_.at(entered_ - 1).hash & mask_;
      while (frame_after(slots_[slot]) != entered_) slot = (slot + 1) & mask_;
      slots_[slot] = 0;
    }
  }

  void insert(std::size_t frame, std::uint32_t hash) {
    std::size_t slot = hash & mask_;
    while (slots_[slot] != 0) slot = (slot + 1) & mask_;
    slots_[slot] = slot_for(frame, hash);
  }

  // Twice the slots, refilled in stack order: the table that inserting them in order gives.
  // Each slot is fetched a few frames before it is filled, so that the misses of a table
  // larger than the caches overlap.
  void grow() {
    const std::size_t size = 2 * (mask_ + 1);
    slots_.reset();  // the old table goes before the new one is made
    slots_ = std::make_unique<Slot[]>(size);
    mask_ = size - 1;
    constexpr std::size_t kAhead = 16;
    for (std::size_t index = 0; index < entered_; ++index) {
      if (index + kAhead < entered_) {
        __builtin_prefetch(&slots_[frames_.at(index + kAhead).hash & mask_]);
      }
      insert(index, frames_.at(index).hash);
    }
  }

  NameHash hash_;
  Frames frames_;
  std::size_t size_ = 0;
  // Frames [0, entered_) are in the table: open ones, and ones closed since, until leave_table.
  std::size_t entered_ = 0;
  std::array<std::size_t, kMostUnchecked> unchecked_;  // the unchecked frames, outermost first
  std::size_t unchecked_count_ = 0;
  std::array<std::uint32_t, kQuickKeys> counts_{};                // open names by quick key
  std::unique_ptr<Slot[]> slots_ = std::make_unique<Slot[]>(64);  // zeroed: every slot free
  std::size_t mask_ = 63;
};

}  // namespace quorlin::xml_open

#endif  // QUORLIN_XML_XML_OPEN_NAMES_INTERNAL_HPP
