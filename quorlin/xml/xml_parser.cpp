// The parser reads the text once, front to back, with an explicit stack of open ranges (frames):
// the element whose content each range is. Only the innermost range is read, so one position
// serves them all.
//
// An element's content ends at the first "</name>" after its opening tag. Rather than search
// for that tag when the element opens, the parse goes on into the content and closes the
// element when the tag turns up. That is exact because every "</" of the text is looked at
// in order while elements are open: at a range's position, inside a tag, inside a closing tag,
// and in the part of a range that could not be read (where only closing tags are looked for).
// Two open elements never share a name: the first "</name>" after an element opens would
// close the outer one of that name, so the inner one has no closing tag and is not made. When
// a "</name>" closes an element that is not the innermost, the elements above it had no
// closing tag inside its content, and its child that holds them is dropped, as the grammar
// drops an element whose closing tag is missing; elements still open at the end of the range
// are dropped the same way. An element whose next tag is its own closing tag holds only text
// and is completed at once.
//
// The open names are found through a table keyed by a seeded hash of the name read backwards,
// so that the names of every "</" that ends at one ">" are hashed in one backward sweep. Each
// byte of the text is therefore read a bounded number of times, however the document nests or
// breaks. The tree copies the names and texts it holds, one copy per repeated name, or views
// the text itself when it was handed over. When the caller takes the root's children one by
// one, each goes as soon as it is complete and the arena is rewound to where it began.
#include "quorlin/xml/xml_parser.hpp"

#include <string.h>  // memrchr
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "quorlin/base/same_bytes_internal.hpp"
#include "quorlin/base/strings.hpp"
#include "quorlin/xml/xml_scan_internal.hpp"
#include "quorlin/xml/xml_tree_internal.hpp"

namespace quorlin {
namespace {

// An open range: the element whose content it is (see receiver()), and its link in the table of
// open names. 16 bytes, since a deeply nested document holds one per level: the name is the
// node's, and a text is given to the node as soon as it is read (the last one read stays).
struct Frame {
  XmlNode* node;
  std::uint32_t hash = 0;  // the low half of the name's hash
  std::int32_t next = -1;  // the frame below with a name in the same bucket, or -1
};

// The open ranges, in chunks that never move: growing copies no frame, and a deeply nested
// document holds no second array of them while the stack grows.
class FrameStack {
 public:
  Frame& at(std::size_t index) { return chunks_[index >> kShift][index & kMask]; }
  const Frame& at(std::size_t index) const { return chunks_[index >> kShift][index & kMask]; }
  XmlNode*& operator[](std::size_t index) { return at(index).node; }
  XmlNode* operator[](std::size_t index) const { return at(index).node; }
  XmlNode*& back() { return top_->node; }
  XmlNode* back() const { return top_->node; }
  std::size_t size() const { return size_; }

  void push_back(XmlNode* node) {
    if ((size_ >> kShift) == chunks_.size()) {
      chunks_.push_back(std::make_unique_for_overwrite<Frame[]>(kChunk));
    }
    top_ = &at(size_++);
    *top_ = Frame{node};
  }
  void pop_back() {
    --size_;
    top_ = size_ > 0 ? &at(size_ - 1) : nullptr;
  }

 private:
  static constexpr std::size_t kShift = 8;
  static constexpr std::size_t kChunk = std::size_t{1} << kShift;
  static constexpr std::size_t kMask = kChunk - 1;
  std::vector<std::unique_ptr<Frame[]>> chunks_;
  std::size_t size_ = 0;
  Frame* top_ = nullptr;
};

// A hash of a name's bytes taken from the last to the first, so that extending a name at its
// front extends its hash. Seeded per process, so that a document cannot be written to collide.
class BackwardHash {
 public:
  static std::uint64_t start() { return seed(); }
  static std::uint64_t step(std::uint64_t hash, char byte) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x9E3779B97F4A7C15ull;
    return hash ^ (hash >> 29);
  }
  static std::uint64_t of(std::string_view name) {
    std::uint64_t hash = start();
    for (auto at = name.rbegin(); at != name.rend(); ++at) hash = step(hash, *at);
    return hash;
  }

 private:
  static std::uint64_t seed() {
    static const std::uint64_t value =
        (std::uint64_t{std::random_device{}()} << 32) | std::random_device{}();
    return value;
  }
};

// The open element of each name, by frame index, in a table of buckets whose chains run through
// the frames; and, to answer "is this name open?" mostly without hashing it, a count of open
// names per key of length and outer bytes.
//
// A deeply nested document keeps a million names open, so the table holds one index per bucket
// and at most as many buckets as twice the open names. Names enter and leave in stack order (a
// frame leaves only when the frames above it have), so the leaving frame heads its bucket's chain
// and leaves by a single store.
//
// Most elements open and close without their name ever being looked up: a frame is counted when
// it opens, but hashed and linked only when a lookup needs the table (enter_open_frames). The
// frames that wait are the top ones, so they still enter in stack order.
class OpenNames {
 public:
  static std::size_t quick_key(std::string_view name) {
    if (name.empty()) return 0;
    const std::size_t front = static_cast<unsigned char>(name.front());
    const std::size_t back = static_cast<unsigned char>(name.back());
    return (name.size() << 7 ^ front << 3 ^ back) & (kQuickKeys - 1);
  }
  // Whether a name of quick key `key` may be open.
  bool maybe_open(std::size_t key) const { return counts_[key] != 0; }

  // Counts an opening frame whose name has quick key `key`; it enters the table with the next
  // lookup.
  void open(std::size_t key) { ++counts_[key]; }

  // Links the frames opened since the last lookup; each frame's node is made and named by then.
  void enter_open_frames(FrameStack& frames) {
    while (entered_ < frames.size()) {
      link(frames, BackwardHash::of(XmlTree::name(*frames.at(entered_).node)));
    }
  }

  // Links the top frame, the only one not linked, whose name's hash the caller has taken.
  void enter_top(FrameStack& frames, std::uint64_t hash) { link(frames, hash); }

  // The open frame named `name`, or -1; enter_open_frames has linked every open frame.
  long find(std::string_view name, std::uint64_t hash, const FrameStack& frames) const {
    const auto low = static_cast<std::uint32_t>(hash);
    for (std::int32_t frame = heads_[low & mask()]; frame != kNone;) {
      const Frame& candidate = frames.at(static_cast<std::size_t>(frame));
      if (candidate.hash == low && XmlTree::name(*candidate.node) == name) return frame;
      frame = candidate.next;
    }
    return -1;
  }

  // Takes out the top frame, whose index is `index`.
  void close(const Frame& frame, std::size_t index) {
    if (index < entered_) {
      heads_[frame.hash & mask()] = frame.next;
      entered_ = index;
    }
    --counts_[quick_key(XmlTree::name(*frame.node))];
  }

 private:
  static constexpr std::size_t kQuickKeys = 4096;
  static constexpr std::int32_t kNone = -1;

  std::uint32_t mask() const { return static_cast<std::uint32_t>(heads_.size() - 1); }

  // Links the first frame not linked yet, whose name has hash `hash`.
  void link(FrameStack& frames, std::uint64_t hash) {
    if (entered_ > heads_.size()) grow(frames);
    Frame& entering = frames.at(entered_);
    entering.hash = static_cast<std::uint32_t>(hash);
    std::int32_t& head = heads_[entering.hash & mask()];
    entering.next = head;
    head = static_cast<std::int32_t>(entered_++);
  }

  // Twice the buckets, and the frames entered so far linked again in their order.
  void grow(FrameStack& frames) {
    const std::size_t size = heads_.size() * 2;
    std::vector<std::int32_t>().swap(heads_);  // the old table goes before the new one grows
    heads_.assign(size, kNone);
    for (std::size_t index = 1; index < entered_; ++index) {
      Frame& frame = frames.at(index);
      std::int32_t& head = heads_[frame.hash & mask()];
      frame.next = head;
      head = static_cast<std::int32_t>(index);
    }
  }

  std::vector<std::int32_t> heads_ = std::vector<std::int32_t>(64, kNone);
  std::array<std::uint32_t, kQuickKeys> counts_{};
  std::size_t entered_ = 1;  // frames [1, entered_) are linked; frame 0 never is
};

class Parser {
 public:
  Parser(std::string_view text, long start, long end, XmlNode* parent,
         const XmlChildSink* sink = nullptr)
      : text_(text), start_(start), end_(end), parent_(parent), sink_(sink) {}

  // Has the tree keep `text`, which is the text being parsed, instead of copying it.
  void keep_text(std::unique_ptr<std::string> text) {
    kept_text_ = std::move(text);
    views_text_ = true;
  }

  // The root's name as it stands in the text; empty before there is a root.
  std::string_view root_name() const { return root_name_; }

  std::unique_ptr<XmlNode> run() {
    frames_.push_back(parent_);
    last_closing_ = find_last_closing_start();
    skip_declaration();
    while (!done_) step();
    // The open frames view the text until here, even when the root has been dropped.
    if (root_ != nullptr && kept_text_ != nullptr) {
      XmlTree::document(*root_).keep(std::move(kept_text_));
    }
    return std::move(root_);
  }

 private:
  long length() const { return static_cast<long>(text_.size()); }

  void step() {
    const long lt = position_;
    if (lt >= end_) {
      if (frames_.size() > 1) return drop_open_elements();
      done_ = true;
      return;
    }
    if (text_[lt] != '<') {
      const long next_tag = scan::find_byte(text_, '<', lt, end_);
      position_ = next_tag < 0 ? end_ : next_tag;
      return set_text(frames_.back(), lt, position_);
    }
    if (lt + 1 < length() && text_[lt + 1] == '/' && close_at(lt)) return;
    read_tag(lt);
  }

  // Where the parts of the tag that begins at `lt` end: its name (at its first blank or ">"),
  // its blank or -1, and its ">"; and the first "<" after the "<" at `lt`. False when the tag
  // does not end in the text. A "<" is looked for in the same pass as the name's end: most
  // names hold none, and the next "<" is then looked for only after the name.
  struct TagEnds {
    long name_end;
    long space;
    long gt;
    long next_tag;
  };
  bool find_tag_ends(long lt, TagEnds& tag) const {
    tag.name_end = scan::find_any(text_, ' ', '>', '<', lt + 1, end_);
    tag.next_tag = -1;
    if (tag.name_end >= 0 && text_[tag.name_end] == '<') {
      tag.next_tag = tag.name_end;
      tag.name_end = scan::find_either(text_, ' ', '>', tag.name_end + 1, end_);
    }
    if (tag.name_end < 0) return false;
    tag.space = text_[tag.name_end] == ' ' ? tag.name_end : -1;
    tag.gt = tag.space < 0 ? tag.name_end : scan::find_byte(text_, '>', tag.space + 1, end_);
    if (tag.gt < 0) return false;
    if (tag.next_tag == -1) tag.next_tag = scan::find_byte(text_, '<', tag.name_end + 1, end_);
    return true;
  }

  // A declaration at the very start of the text is passed over.
  void skip_declaration() {
    TagEnds tag;
    if (start_ == 0 && length() > 1 && text_[0] == '<' && text_[1] == '?' &&
        find_tag_ends(0, tag)) {
      position_ = tag.gt + 1;
    }
  }

  // The tag that begins at `lt`, at the position of the innermost range.
  void read_tag(long lt) {
    TagEnds tag;
    if (!find_tag_ends(lt, tag)) return stop(lt);
    const auto [name_end, space, gt, next_tag] = tag;
    const std::string_view name = piece(lt + 1, name_end);
    // Most elements hold only text: the next tag is their closing tag, the first "<" after the
    // opening tag; no closing tag can then begin inside the tag.
    if (next_tag > gt && text_[gt - 1] != '/' && closes(next_tag, name) && !is_open(name)) {
      return add_text_element(name, space, gt, next_tag);
    }
    // A "<" inside the tag may begin the closing tag of an open element, which then ends
    // before this tag does.
    if (next_tag >= 0 && next_tag < gt && close_in_group(lt + 1, gt)) return;
    open_element(lt, name, space, gt, next_tag);
  }

  // The element `name` whose opening tag ends at `gt` holds text up to its closing tag, which
  // begins at `closing`.
  void add_text_element(std::string_view name, long space, long gt, long closing) {
    XmlNode* const parent = top_receiver();
    XmlNode& element = append(parent, name);
    if (space >= 0) xml_parse_attributes(element, text_, space + 1, gt);
    if (closing > gt + 1) {
      XmlTree::set_text_view(element, kept(element, gt + 1, closing), /*first_text=*/true);
    }
    position_ = closing + static_cast<long>(name.size()) + 3;
    if (parent == root_.get()) completed_root_child(element);
  }

  void open_element(long lt, std::string_view name, long space, long gt, long next_tag) {
    const bool self_closing = text_[gt - 1] == '/';
    bool complete = self_closing;
    // The element's own closing tag may stand inside its opening tag, ending at its ">": then
    // the element has no content.
    const long own_closing = gt - static_cast<long>(name.size()) - 2;
    if (complete || (next_tag < gt && own_closing > lt && closes(own_closing, name))) {
      complete = true;
    } else if (gt >= last_closing_) {
      return stop(lt);  // no closing tag follows
    }
    // The first "</name>" to come would close an open element of the same name first, and
    // leave none for this one: such an element is not made, and the range stops before it.
    const bool name_holds_lt = next_tag > lt && next_tag < lt + 1 + static_cast<long>(name.size());
    if (!complete && !push(name, gt + 1, name_holds_lt)) return stop(lt);
    XmlNode* const parent = complete ? top_receiver() : receiver(frames_.size() - 2);
    XmlNode& element = append(parent, name);
    if (space >= 0) {
      xml_parse_attributes(element, text_, space + 1, self_closing ? gt - 1 : gt);
    }
    if (!complete) {
      frames_.back() = &element;
      return;
    }
    position_ = gt + 1;
    if (parent == root_.get()) completed_root_child(element);
  }

  // Opens the range of an element named `name`, whose node the caller appends; false, with
  // nothing opened, when an element of that name is open.
  bool push(std::string_view name, long content_start, bool name_holds_lt) {
    // Frame indexes and slots take 32 bits: a document with more than 2^30 open elements (over
    // 3 GB of text) stops there.
    if (frames_.size() >= (std::size_t{1} << 30)) return false;
    const std::size_t key = OpenNames::quick_key(name);
    if (!open_names_.maybe_open(key)) {
      frames_.push_back(nullptr);
    } else if (!push_if_not_open(name)) {
      return false;
    }
    open_names_.open(key);
    if (name_holds_lt) ++open_names_holding_lt_;
    position_ = content_start;
    return true;
  }

  void pop() {
    const std::size_t top = frames_.size() - 1;
    if (may_hold_lt(*frames_.back())) --open_names_holding_lt_;
    open_names_.close(frames_.at(top), top);
    frames_.pop_back();
  }

  // Whether the name of `open`, an open element, holds "<"; mostly answered by the count alone.
  bool may_hold_lt(const XmlNode& open) const {
    return open_names_holding_lt_ > 0 && XmlTree::name(open).find('<') != std::string_view::npos;
  }

  // push for a name that may be open: looks it up, and pushes its frame only when it is not
  // open, linked at once with the hash just taken.
  [[gnu::noinline]] bool push_if_not_open(std::string_view name) {
    open_names_.enter_open_frames(frames_);
    const std::uint64_t hash = BackwardHash::of(name);
    if (open_names_.find(name, hash, frames_) >= 0) return false;
    frames_.push_back(nullptr);
    open_names_.enter_top(frames_, hash);
    return true;
  }

  // Mostly answered by the count alone; the lookup stays out of the parser's inline path.
  bool is_open(std::string_view name) {
    return open_names_.maybe_open(OpenNames::quick_key(name)) && looked_up_open(name);
  }
  [[gnu::noinline]] bool looked_up_open(std::string_view name) {
    open_names_.enter_open_frames(frames_);
    return open_names_.find(name, BackwardHash::of(name), frames_) >= 0;
  }

  // Whether "</name>" begins at `at`; it may run past the range being parsed.
  bool closes(long at, std::string_view name) const {
    const std::size_t size = name.size() + 3;
    if (static_cast<std::size_t>(at) + size > text_.size()) return false;
    const char* tag = text_.data() + at;
    return tag[0] == '<' && tag[1] == '/' && tag[size - 1] == '>' &&
           same_bytes(std::string_view(tag + 2, name.size()), name);
  }

  // "</" stands at `lt`, a range's position: closes the open elements whose closing tags begin
  // there or inside that tag. False when it closes none.
  bool close_at(long lt) {
    if (frames_.size() > 1) {
      const std::string_view name = XmlTree::name(*frames_.back());
      if (closes(lt, name)) {
        const long gt = lt + static_cast<long>(name.size()) + 2;
        // Only a name that holds "<" can hide the closing tag of an outer element in this one.
        const bool may_close_more = may_hold_lt(*frames_.back());
        close(static_cast<long>(frames_.size()) - 1, gt);
        if (may_close_more) close_in_group(lt + 1, gt);
        return true;
      }
    }
    const long gt = first_gt_from(lt + 2);
    return gt >= 0 && close_in_group(lt, gt);
  }

  // Closes the open elements named by the "</" that begin in [from, gt), whose names all end
  // at the ">" at `gt`, in document order. False when it closes none.
  bool close_in_group(long from, long gt) {
    // One backward sweep hashes every name that ends at gt. Only open names are kept, so that
    // a group of a million "</" costs no more memory than the open elements.
    found_.clear();
    open_names_.enter_open_frames(frames_);
    std::uint64_t hash = BackwardHash::start();
    for (long at = gt;; --at) {
      const long lt = at - 2;
      if (lt < from) break;
      if (text_[lt] == '<' && text_[lt + 1] == '/' && lt < end_) {
        const long frame = open_names_.find(text_.substr(at, gt - at), hash, frames_);
        if (frame >= 0) found_.push_back({lt, hash});
      }
      hash = BackwardHash::step(hash, text_[at - 1]);
    }
    bool closed = false;
    for (auto found = found_.rbegin(); found != found_.rend(); ++found) {
      const std::string_view name = text_.substr(found->lt + 2, gt - found->lt - 2);
      const long frame = open_names_.find(name, found->hash, frames_);
      if (frame < 0) continue;  // gone with an outer element closed just before
      close(frame, gt);
      closed = true;
    }
    return closed;
  }

  // The range of frame `index` ends at a closing tag whose ">" is at `gt`.
  void close(long index, long gt) {
    if (static_cast<long>(frames_.size()) > index + 1) {
      XmlTree::drop_last_child(*receiver(static_cast<std::size_t>(index)));
      while (static_cast<long>(frames_.size()) > index + 1) pop();
    }
    XmlNode* const closed = frames_.back();
    pop();
    position_ = gt + 1;
    if (top_receiver() == root_.get()) completed_root_child(*closed);
  }

  // A child of the root is final once complete, as long as the root completes too. When the
  // caller takes children one by one, it gets this one now, and the tree lets it go and takes
  // back its memory.
  [[gnu::noinline]] void completed_root_child(XmlNode& child) {
    if (sink_ == nullptr || &child == root_.get()) return;
    sink_->deliver(sink_->context, *root_, child);
    XmlTree::drop_last_child(*root_);
    XmlTree::document(*root_).rewind(child_mark_);
  }

  // The innermost range cannot go on at `lt`: the rest of it is passed over, looking only for
  // the closing tags of open elements.
  [[gnu::noinline]] void stop(long lt) {
    if (frames_.size() == 1) {
      done_ = true;
      return;
    }
    for (long from = lt + 1; from < end_;) {
      const long gt = first_gt_from(from);
      if (gt < 0) break;
      if (close_in_group(from, gt)) return;
      from = gt + 1;
    }
    drop_open_elements();
  }

  // Where the last "</" that begins in the range stands, or -1.
  long find_last_closing_start() const {
    const char* data = text_.data();
    for (std::size_t left = static_cast<std::size_t>(end_ - start_); left > 0;) {
      const void* found = memrchr(data + start_, '<', left);
      if (found == nullptr) break;
      const long at = static_cast<const char*>(found) - data;
      if (at + 1 < length() && data[at + 1] == '/') return at;
      left = static_cast<std::size_t>(at - start_);
    }
    return -1;
  }

  // The first ">" at or after `from` in the whole text, or -1. Searches move forward: one goes
  // over the bytes of the one before again only when a "</" that closed nothing is read again
  // as a tag, so no byte is searched more than twice.
  long first_gt_from(long from) const { return scan::find_byte(text_, '>', from, length()); }

  // No closing tag comes for the open elements: the lowest of them is dropped, and the
  // top-level range ends there.
  [[gnu::noinline]] void drop_open_elements() {
    const bool root_dropped = frames_[1] == root_.get();
    while (frames_.size() > 1) pop();  // before the root goes: leaving reads the names
    if (root_dropped) {
      root_.reset();
    } else {
      XmlTree::drop_last_child(*top_receiver_);
    }
    done_ = true;
  }

  // Appends an element to a range's receiver; the element is the root when there is none.
  XmlNode& append(XmlNode* receiver, std::string_view name) {
    if (receiver == nullptr) {
      root_ = xml_node_new(name);
      root_name_ = name;
      top_receiver_ = root_.get();
      // Children handed over one by one live only during the hand-over: the root's List is
      // made now, before the first child's memory is marked.
      if (sink_ != nullptr) XmlTree::children(*root_);
      return *root_;
    }
    // One mark, before the first child and after the root's attributes, for every child: a
    // mark per child would keep the block each child began in whenever it filled another.
    if (receiver == root_.get() && sink_ != nullptr && !child_marked_) {
      child_mark_ = XmlTree::document(*root_).mark();
      child_marked_ = true;
    }
    // The caller's parent may be shared; the elements made here are not, until returned.
    if (receiver == parent_) return xml_add_element(*parent_, name);
    return XmlTree::add_element_unshared(*receiver, kept_name(*receiver, name));
  }

  // Where the elements of a range go: its element's node, and at the top level the caller's
  // parent, or the root once there is one (null before).
  XmlNode* receiver(std::size_t frame) const { return frame == 0 ? top_receiver_ : frames_[frame]; }
  XmlNode* top_receiver() const { return frames_.size() == 1 ? top_receiver_ : frames_.back(); }

  // The tree views the text it keeps (or lends for a hand-over) in place, and copies the
  // pieces of any other text.
  bool views_text() const { return views_text_; }

  // The bytes text[start, end), which the caller knows to lie in the text.
  std::string_view piece(long start, long end) const {
    return {text_.data() + start, static_cast<std::size_t>(end - start)};
  }

  // The bytes text[start, end) as the tree of `node` holds them.
  std::string_view kept(const XmlNode& node, long start, long end) const {
    const std::string_view bytes = piece(start, end);
    return views_text() ? bytes : XmlTree::document(node).copy_text(bytes);
  }

  // An element name as the tree of `node` holds it. A document repeats a few names many times,
  // so each copy serves the later elements of the same name: a name is looked for in one
  // entry of a small table, keyed by its size and outer bytes, and copied again on a miss.
  std::string_view kept_name(const XmlNode& node, std::string_view name) {
    if (views_text()) return name;
    std::string_view& copied = copied_names_[OpenNames::quick_key(name) % copied_names_.size()];
    if (copied.data() == nullptr || !same_bytes(copied, name)) {
      copied = XmlTree::document(node).copy_text(name);
    }
    return copied;
  }

  // A text segment read directly in the range of `frame`: it replaces the one before.
  void set_text(XmlNode* node, long start, long end) {
    if (node == nullptr) return;
    if (node == parent_) {
      xml_node_set_text(*parent_, text_.substr(start, end - start));
    } else {
      XmlTree::set_text_view(*node, kept(*node, start, end));
    }
  }

  std::string_view text_;
  long start_;
  long end_;
  XmlNode* parent_;
  const XmlChildSink* sink_;
  std::unique_ptr<std::string> kept_text_;  // the parsed text, until the tree takes it
  bool views_text_ = sink_ != nullptr;
  XmlDocument::Mark child_mark_{};
  bool child_marked_ = false;
  std::string_view root_name_;
  FrameStack frames_;
  long position_ = start_;  // where the innermost range is read
  XmlNode* top_receiver_ = parent_;
  OpenNames open_names_;
  std::size_t open_names_holding_lt_ = 0;  // how many open elements have a "<" in their name
  struct FoundClosing {
    long lt;
    std::uint64_t hash;  // of the name it closes
  };
  std::vector<FoundClosing> found_;
  long last_closing_ = -1;
  std::array<std::string_view, 256> copied_names_{};
  std::unique_ptr<XmlNode> root_;
  bool done_ = false;
};

}  // namespace

std::unique_ptr<XmlNode> xml_parse(std::string_view text) {
  // The end passed on is the whole view's; xml_parse_element cuts the text at its first NUL.
  return xml_parse_element(nullptr, text, 0, static_cast<long>(text.size()));
}

std::unique_ptr<XmlNode> xml_parse_buffer(std::string&& text) {
  // On the heap, so that its bytes stay where they are when the tree takes it.
  auto kept = std::make_unique<std::string>(std::move(text));
  const std::string_view parsed = c_text(*kept);
  if (parsed.empty()) return nullptr;
  Parser parser(parsed, 0, static_cast<long>(parsed.size()), nullptr);
  parser.keep_text(std::move(kept));
  return parser.run();
}

std::unique_ptr<XmlNode> xml_parse_element(XmlNode* parent, std::string_view text, long start,
                                           long end) {
  text = c_text(text);
  start = std::max(start, 0L);
  end = std::min(end, static_cast<long>(text.size()));
  if (start >= end) return nullptr;
  return Parser(text, start, end, parent).run();
}

std::optional<std::string_view> xml_parse_children(std::string_view text, XmlChildSink sink) {
  text = c_text(text);
  if (text.empty()) return std::nullopt;
  Parser parser(text, 0, static_cast<long>(text.size()), nullptr, &sink);
  if (!parser.run()) return std::nullopt;
  return parser.root_name();
}

void xml_parse_attributes(XmlNode& node, std::string_view text, long start, long end) {
  end = std::min(end, static_cast<long>(text.size()));
  for (long position = std::max(start, 0L); position < end;) {
    long stop = end;
    const long open_quote = scan::find_byte(text, '"', position, end);
    if (open_quote >= 0) {
      const long close_quote = scan::find_byte(text, '"', open_quote + 1, end);
      if (close_quote != -1) stop = close_quote + 1;
    }
    xml_parse_attribute(node, text, position, stop);
    position = stop + 1;  // exactly one separating byte is skipped
  }
}

void xml_parse_attribute(XmlNode& node, std::string_view text, long start, long end) {
  const long equals = scan::find_byte(text, '=', start, end);
  if (equals < 0) return;
  long value_start = equals + 1;
  if (equals != end - 1 && text[value_start] == '"') ++value_start;
  const long value_end = text[end - 1] == '"' ? end - 1 : end;
  const std::string_view value =
      value_end > value_start ? text.substr(value_start, value_end - value_start) : "";
  xml_node_add_attribute(node, text.substr(start, equals - start), value);
}

}  // namespace quorlin
