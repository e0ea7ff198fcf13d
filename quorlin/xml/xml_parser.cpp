// The forgiving XML parser: one loop over the text in three parts.
//
// The grammar is the plain recursive algorithm of fuzz/reference_parser.hpp, where every search
// runs to the end of the text and each element's content is parsed by recursion once its
// closing tag has been found; the xml fuzzer checks that this parser builds the same tree for
// every text. This one reads the text once, front to back, in time linear in the text and
// with no recursion, from three parts:
//   - the tag scanner (xml_tag_scanner_internal.hpp) finds a tag's name, blank and ">", closing
//     tags and attributes, as pure functions of the text;
//   - the open names (xml_open_names_internal.hpp) tell which open element a closing tag closes;
//   - ParseLoop, below, reads the text and tells a builder what it finds: TreeBuilder makes
//     the whole tree, SinkBuilder hands the root's children over one by one.
//
// Where the recursion finds an element's closing tag before reading its content, the loop reads
// on into the content and closes the element when its closing tag turns up. That is exact
// because every "</" after an element opens is looked at in order: at the position where a range
// is read, inside a tag, and in the part of a range that could not be read (where only closing
// tags are looked for). An element that cannot be closed is not kept: no "</" follows its tag,
// or an open element has its name (the first "</name>" would close that one). When a closing
// tag closes an element that is not the innermost, the elements above it had no closing tag in
// its content, and its child that holds them is dropped, as the recursion drops an element
// whose closing tag is missing, with the rest of the range; at the end of the text the
// outermost element still open is dropped the same way.
#include "quorlin/xml/xml_parser.hpp"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "quorlin/base/strings.hpp"
#include "quorlin/xml/xml_open_names_internal.hpp"
#include "quorlin/xml/xml_tag_scanner_internal.hpp"
#include "quorlin/xml/xml_tree_internal.hpp"

namespace quorlin {
namespace {

using xml_open::OpenNames;
using xml_scan::Tag;

// The attribute bytes of a tag, text[start, end), none when the name did not end at a blank.
struct AttributeRange {
  std::string_view bytes;
  bool present;
};

// Reads text[start, end) and tells `builder` what it finds, in document order:
//   leaf(name, attributes, text)  an element complete at once: self-closing, closed inside its
//                                 own tag, or holding only text (std::nullopt for none);
//   open(name, attributes)        an element whose content is read next, its range innermost;
//   text(bytes)                   a text segment of the innermost range, or of the top level;
//   close(index)                  the open element at `index` (0 outermost) is complete; the
//                                 ones above it are dropped, with its last child;
//   abandon(index)                the open element at `index` is dropped with those above it:
//                                 it was the last child of the one below;
//   drop_open()                   the text ended with elements open: the outermost goes.
// Names, texts and attributes are views of the text.
//
// An element is opened before the open names say whether its name is open, while their table
// is fetched (see OpenNames::push). The check comes before anything that depends on it, and at
// the latest after a few more tags; when an element had an open name after all, it and what was
// read inside it are abandoned, and the range stops at its tag.
template <typename Builder>
class ParseLoop {
 public:
  ParseLoop(std::string_view text, long start, long end, Builder& builder)
      : text_(text), end_(end), position_(start), builder_(builder) {
    last_closing_ = xml_scan::last_closing_start(text, start, end);
    // A declaration at the very first byte is passed over, up to its first ">".
    if (start == 0 && text.size() > 1 && text[0] == '<' && text[1] == '?') {
      const long gt = xml_scan::find_byte(text, '>', 0, end);
      if (gt >= 0) position_ = gt + 1;
    }
  }

  void run() {
    while (step()) {
    }
  }

 private:
  // Reads what stands at the position; false when the parse is over.
  bool step() {
    const long at = position_;
    if (at >= end_) return reopened() ? go_on_ : end_of_text();
    if (text_[static_cast<std::size_t>(at)] != '<') {
      if (reopened()) return go_on_;
      const long lt = next_lt(at);
      position_ = lt < 0 ? end_ : lt;
      builder_.text(piece(at, position_));
      return true;
    }
    if (xml_scan::closing_start_at(text_, at)) {
      if (reopened()) return go_on_;
      if (close_at(at)) return true;
    }
    return read_tag(at);
  }

  bool read_tag(long lt) {
    Tag tag;
    const bool ends = xml_scan::scan_tag(text_, lt, end_, tag);
    if (!ends || xml_scan::holds_lt(tag)) [[unlikely]]
      return read_unusual_tag(lt, tag, ends);
    return read_plain_tag(lt, tag);
  }

  // A tag that does not end in the range, or that holds a "<": a closing tag that begins inside
  // it ends the range before it does, and its own closing tag may end it.
  [[gnu::noinline]] bool read_unusual_tag(long lt, Tag tag, bool ends) {
    if (reopened()) return go_on_;
    if (!ends) return stop(lt);
    if (close_group(lt + 1, tag.gt)) return true;
    const std::string_view name = xml_scan::tag_name(text_, tag);
    const long own_closing = tag.gt - static_cast<long>(name.size()) - 2;
    if (!xml_scan::self_closing(text_, tag) && own_closing > lt &&
        xml_scan::closing_tag_at(text_, own_closing, name)) {
      builder_.leaf(name, attributes(tag, tag.gt), std::nullopt);
      position_ = tag.gt + 1;
      return true;
    }
    return read_plain_tag(lt, tag);
  }

  [[gnu::always_inline]] bool read_plain_tag(long lt, const Tag& tag) {
    const std::string_view name = xml_scan::tag_name(text_, tag);
    if (xml_scan::self_closing(text_, tag)) {
      if (read_unchecked()) return go_on_;
      builder_.leaf(name, attributes(tag, tag.gt - 1), std::nullopt);
      position_ = tag.gt + 1;
      return true;
    }
    if (last_closing_ < tag.gt) return reopened() ? go_on_ : stop(lt);  // no closing tag follows
    // Most elements hold only text: the next "<" begins their closing tag, unless an open
    // element has their name and takes it.
    const long next = next_lt(tag.gt + 1);
    if (next >= 0 && xml_scan::closing_tag_at(text_, next, name)) {
      if (reopened()) return go_on_;
      if (open_.find(name) >= 0) return stop(lt);
      builder_.leaf(name, attributes(tag, tag.gt),
                    next > tag.gt + 1 ? std::optional(piece(tag.gt + 1, next)) : std::nullopt);
      position_ = next + static_cast<long>(name.size()) + 3;
      return true;
    }
    if (open_.unchecked() == OpenNames::kMostUnchecked && reopened()) return go_on_;
    if (read_unchecked()) return go_on_;
    if (!open_.push(name, tag.inner_lt >= 0 && tag.inner_lt < tag.name_end)) {
      return reopened() ? go_on_ : stop(lt);
    }
    builder_.open(name, attributes(tag, tag.gt));
    position_ = tag.gt + 1;
    return true;
  }

  // Checks the elements opened unchecked. True when one had the name of an element open below
  // it: it is abandoned with what was read inside it, the range stops at its tag, and go_on_
  // says whether the parse goes on.
  bool reopened() { return open_.unchecked() > 0 && check_reopened(); }
  [[gnu::noinline]] bool check_reopened() {
    unchecked_reads_ = 0;
    const long index = open_.check();
    if (index < 0) return false;
    const long lt = open_.name(static_cast<std::size_t>(index)).data() - text_.data() - 1;
    builder_.abandon(static_cast<std::size_t>(index));
    while (static_cast<long>(open_.size()) > index) open_.pop();
    go_on_ = stop(lt);
    return true;
  }

  // Counts a tag read while elements are unchecked; after a few, checks them, so that little
  // is built inside an element that may be abandoned.
  bool read_unchecked() {
    return open_.unchecked() > 0 && ++unchecked_reads_ >= OpenNames::kMostUnchecked && reopened();
  }

  // "</" stands at `lt`, where a range is read: closes the open elements that it, or a "</"
  // inside its tag, names. False when it closes none.
  bool close_at(long lt) {
    if (open_.size() > 0) {
      const std::string_view innermost = open_.name(open_.size() - 1);
      if (xml_scan::closing_tag_at(text_, lt, innermost)) {
        const long gt = lt + static_cast<long>(innermost.size()) + 2;
        const bool group = open_.name_holds_lt(open_.size() - 1);
        close(open_.size() - 1, gt);
        if (group) close_group(lt + 1, gt);
        return true;
      }
    }
    const long gt = xml_scan::find_byte(text_, '>', lt + 2, length());
    return gt >= 0 && close_group(lt, gt);
  }

  // Closes the open elements named by the "</" that begin in text[from, gt), in document order.
  // False when it closes none.
  [[gnu::noinline]] bool close_group(long from, long gt) {
    open_.closings(text_, from, gt, end_, closings_);
    bool closed = false;
    for (const OpenNames::Closing& closing : closings_) {
      if (closing.index >= open_.size()) continue;  // gone with an outer one closed just before
      close(closing.index, gt);
      closed = true;
    }
    return closed;
  }

  // The range of the open element at `index` ends at a closing tag whose ">" is at `gt`.
  void close(std::size_t index, long gt) {
    builder_.close(index);
    while (open_.size() > index) open_.pop();
    position_ = gt + 1;
  }

  // The innermost range cannot be read on from `lt`: the rest of it is passed over, looking only
  // for closing tags of open elements. False when the parse is over.
  [[gnu::noinline]] bool stop(long lt) {
    if (open_.size() == 0) return false;
    for (long from = lt + 1;;) {
      const long closing = xml_scan::find_closing_start(text_, from, end_);
      if (closing < 0) break;
      const long gt = xml_scan::find_byte(text_, '>', closing + 2, length());
      if (gt < 0) break;
      // Mostly one "</" ends at the ">", and the count of open names rules its name out.
      const bool alone = xml_scan::find_byte(text_, '<', closing + 2, gt) < 0;
      if ((!alone || open_.may_be_open(piece(closing + 2, gt))) && close_group(closing, gt)) {
        return true;
      }
      from = gt + 1;
    }
    return end_of_text();
  }

  // The parse is over; the elements still open are dropped. The open names go first: they view
  // the text, which may go with the root.
  [[gnu::noinline]] bool end_of_text() {
    if (open_.size() == 0) return false;
    while (open_.size() > 0) open_.pop();
    builder_.drop_open();
    return false;
  }

  // The first "<" in text[from, end_), or -1. The search after an opening tag, for a closing tag
  // that would make a text element, is not repeated when its text is read as a segment.
  long next_lt(long from) {
    if (from == searched_from_) return found_lt_;
    // The common case of no text at all costs no search.
    if (from < end_ && text_[static_cast<std::size_t>(from)] == '<') return from;
    searched_from_ = from;
    found_lt_ = xml_scan::find_lt(text_, from, end_);
    return found_lt_;
  }

  AttributeRange attributes(const Tag& tag, long end) const {
    if (tag.space < 0) return {{}, false};
    return {piece(tag.space + 1, std::max(end, tag.space + 1)), true};
  }

  long length() const { return static_cast<long>(text_.size()); }

  // text[start, end), which the caller knows to lie in the text.
  std::string_view piece(long start, long end) const {
    return {text_.data() + start, static_cast<std::size_t>(end - start)};
  }

  std::string_view text_;
  long end_;
  long position_;  // where the innermost range is read
  long last_closing_;
  long searched_from_ = -1;  // where the last search for "<" began, and what it found
  long found_lt_ = -1;
  std::size_t unchecked_reads_ = 0;  // tags read since the last check
  bool go_on_ = true;                // after a reopened element: whether the parse goes on
  Builder& builder_;
  OpenNames open_;
  std::vector<OpenNames::Closing> closings_;
};

// Adds the attributes to a node the parser made, which no other thread can reach yet; the
// bytes are already the tree's.
void add_attributes(XmlNode& node, std::string_view bytes) {
  XmlDocument& document = XmlTree::document(node);
  xml_scan::for_each_attribute(
      bytes, 0, static_cast<long>(bytes.size()),
      [&](std::string_view name, std::string_view value) {
        list_link_at_end_unlocked(
            XmlTree::attributes(node),
            XmlTree::new_list_node<XmlAttribute>(document, XmlAttribute{name, value}));
      });
}

// Builds the whole tree, whose nodes view the text they were parsed from: a copy of the caller's
// text made in the tree's storage (as pugixml parses a copy of its buffer), or the text given to
// xml_parse_buffer, which the tree keeps, so that no name, text or attribute is copied on its
// own. Elements go to the caller's parent, when there is one, through the public operations,
// since other code may reach it.
class TreeBuilder {
 public:
  // With no parent, the root is made in `document`, which holds the text, and takes it then.
  TreeBuilder(XmlNode* parent, std::unique_ptr<XmlDocument> document)
      : parent_(parent), document_(std::move(document)) {}

  std::unique_ptr<XmlNode> take_root() { return std::move(root_); }

  void leaf(std::string_view name, AttributeRange attributes,
            std::optional<std::string_view> text) {
    XmlNode& node = add(name, attributes);
    if (text) XmlTree::set_text_view(node, *text, /*first_text=*/true);
  }
  void open(std::string_view name, AttributeRange attributes) {
    receiver_ = &add(name, attributes);
    open_.push_back(receiver_);
  }
  void text(std::string_view bytes) {
    if (!open_.empty()) {
      XmlTree::set_text_view(*open_.back(), bytes);
    } else if (parent_ != nullptr) {
      xml_node_set_text(*parent_, bytes);
    }
  }
  void close(std::size_t index) {
    if (open_.size() > index + 1) XmlTree::drop_last_child(*open_[index]);
    open_.resize(index);
    receive_on_top();
  }
  void abandon(std::size_t index) {
    XmlTree::drop_last_child(*open_[index - 1]);
    open_.resize(index);
    receive_on_top();
  }
  void drop_open() {
    if (open_.front() == root_.get()) {
      root_.reset();
    } else {
      XmlTree::drop_last_child(parent_ != nullptr ? *parent_ : *root_);
    }
    open_.clear();
    receiver_ = nullptr;
  }

 private:
  XmlNode& add(std::string_view name, AttributeRange attributes) {
    if (receiver_ == nullptr) return add_on_top(name, attributes);
    XmlNode& node = XmlTree::add_element_unshared(*receiver_, name);
    if (attributes.present) add_attributes(node, attributes.bytes);
    return node;
  }

  // Elements go to the innermost open element, else to the root; to the caller's parent, or to
  // make the root, through add_on_top.
  void receive_on_top() {
    receiver_ = !open_.empty() ? open_.back() : parent_ != nullptr ? nullptr : root_.get();
  }

  // The root, or an element of the caller's parent.
  [[gnu::noinline]] XmlNode& add_on_top(std::string_view name, AttributeRange attributes) {
    if (parent_ != nullptr) {
      XmlNode& node = xml_add_element(*parent_, name);
      if (attributes.present) {
        xml_parse_attributes(node, attributes.bytes, 0, static_cast<long>(attributes.bytes.size()));
      }
      return node;
    }
    root_.reset(&XmlTree::new_element(*document_, name)->item);
    document_.release();  // the root owns its document from here on
    receiver_ = root_.get();
    if (attributes.present) add_attributes(*root_, attributes.bytes);
    return *root_;
  }

  XmlNode* parent_;
  std::unique_ptr<XmlDocument> document_;  // until the root takes it
  std::unique_ptr<XmlNode> root_;
  std::vector<XmlNode*> open_;   // the node of each open element
  XmlNode* receiver_ = nullptr;  // where add puts an element; null for add_on_top
};

// Where xml_parse_children hands each child, and how deep each is built.
struct XmlChildSink {
  void* context;
  XmlChildCallback deliver;
  std::size_t depth;
};

// Hands each child of the root to the sink as soon as it is complete, then lets it go and
// gives its memory back, so that a long list costs the memory of one item. The root keeps its
// name only, elements deeper than the sink asks are not built, and every node views the text,
// which outlives the hand-over.
class SinkBuilder {
 public:
  explicit SinkBuilder(const XmlChildSink& sink) : sink_(sink) {}

  std::optional<std::string_view> root_name() const {
    if (!root_) return std::nullopt;
    return root_name_;
  }

  void leaf(std::string_view name, AttributeRange attributes,
            std::optional<std::string_view> text) {
    if (!root_) return make_root(name);
    if (!builds_next()) return;
    XmlNode* receiver = open_.empty() ? root_.get() : open_.back();
    XmlNode& node = add(*receiver, name, attributes);
    if (text) XmlTree::set_text_view(node, *text, /*first_text=*/true);
    if (receiver == root_.get()) deliver(node);
  }
  void open(std::string_view name, AttributeRange attributes) {
    if (!root_) {
      make_root(name);
      open_.push_back(root_.get());
    } else if (!builds_next()) {
      ++unbuilt_;
    } else {
      open_.push_back(&add(open_.empty() ? *root_ : *open_.back(), name, attributes));
    }
  }
  void text(std::string_view bytes) {
    if (unbuilt_ == 0 && !open_.empty() && open_.back() != root_.get()) {
      XmlTree::set_text_view(*open_.back(), bytes);
    }
  }
  void close(std::size_t index) {
    if (index >= open_.size()) {
      unbuilt_ = index - open_.size();
      return;
    }
    unbuilt_ = 0;
    if (open_.size() > index + 1) XmlTree::drop_last_child(*open_[index]);
    XmlNode* const closed = open_[index];
    open_.resize(index);
    if (closed != root_.get() && (open_.empty() || open_.back() == root_.get())) {
      deliver(*closed);
    }
  }
  void abandon(std::size_t index) {
    if (index >= open_.size()) {
      unbuilt_ = index - open_.size();
      return;
    }
    unbuilt_ = 0;
    XmlTree::drop_last_child(*open_[index - 1]);
    open_.resize(index);
  }
  void drop_open() {
    if (open_.front() == root_.get()) {
      root_.reset();
    } else {
      XmlTree::drop_last_child(*root_);
    }
    open_.clear();
    unbuilt_ = 0;
  }

 private:
  // Whether the next element is built: it is a child of the root, or lies no deeper than the
  // sink asks. Elements are not built below one that is not.
  bool builds_next() const {
    if (unbuilt_ > 0) return false;
    const bool in_root = !open_.empty() && open_.front() == root_.get();
    const std::size_t depth = in_root ? open_.size() : open_.size() + 1;
    return depth <= std::max<std::size_t>(sink_.depth, 1);
  }

  void make_root(std::string_view name) {
    root_ = xml_node_new(name);
    root_name_ = name;
    XmlTree::children(*root_);  // made now, before the children's memory is marked
    mark_ = XmlTree::document(*root_).mark();
  }

  static XmlNode& add(XmlNode& receiver, std::string_view name, AttributeRange attributes) {
    XmlNode& node = XmlTree::add_element_unshared(receiver, name);
    if (attributes.present) add_attributes(node, attributes.bytes);
    return node;
  }

  void deliver(XmlNode& child) {
    sink_.deliver(sink_.context, *root_, child);
    XmlTree::drop_last_child(*root_);
    XmlTree::document(*root_).rewind(mark_);
  }

  const XmlChildSink& sink_;
  std::unique_ptr<XmlNode> root_;
  std::string_view root_name_;
  XmlDocument::Mark mark_{};
  std::vector<XmlNode*> open_;  // the node of each open element that is built, the root first
  std::size_t unbuilt_ = 0;     // the open elements above those, which are not built
};

}  // namespace

std::unique_ptr<XmlNode> xml_parse(std::string_view text) {
  // The end passed on is the whole view's; xml_parse_element cuts the text at its first NUL.
  return xml_parse_element(nullptr, text, 0, static_cast<long>(text.size()));
}

std::unique_ptr<XmlNode> xml_parse_buffer(std::string&& text) {
  auto document = std::make_unique<XmlDocument>();
  // On the heap, so that its bytes stay where they are when the document takes it.
  auto kept = std::make_unique<std::string>(std::move(text));
  const std::string_view parsed = c_text(*kept);
  document->keep(std::move(kept));
  if (parsed.empty()) return nullptr;
  TreeBuilder builder(nullptr, std::move(document));
  ParseLoop(parsed, 0, static_cast<long>(parsed.size()), builder).run();
  return builder.take_root();
}

std::unique_ptr<XmlNode> xml_parse_element(XmlNode* parent, std::string_view text, long start,
                                           long end) {
  start = std::max(start, 0L);
  if (start >= std::min(end, static_cast<long>(text.size()))) return nullptr;
  // The text up to its first NUL is copied where the tree's nodes are made, in the same pass
  // that finds the NUL; closing tags may run past `end`, not past the NUL.
  std::unique_ptr<XmlDocument> document;
  XmlDocument& storage = parent != nullptr ? XmlTree::document(*parent)
                                           : *(document = std::make_unique<XmlDocument>());
  constexpr std::size_t kWord = XmlDocument::kWord;
  auto* copy = static_cast<char*>(storage.allocate((text.size() + kWord - 1) / kWord * kWord));
  const std::string_view parsed(copy, xml_scan::copy_before_nul(copy, text));
  end = std::min(end, static_cast<long>(parsed.size()));
  if (start >= end) return nullptr;
  TreeBuilder builder(parent, std::move(document));
  ParseLoop(parsed, start, end, builder).run();
  return builder.take_root();
}

std::optional<std::string_view> xml_parse_children(std::string_view text, XmlChildCallback deliver,
                                                   void* context, std::size_t depth) {
  text = c_text(text);
  const XmlChildSink sink{context, deliver, depth};
  SinkBuilder builder(sink);
  ParseLoop(text, 0, static_cast<long>(text.size()), builder).run();
  return builder.root_name();
}

void xml_parse_attributes(XmlNode& node, std::string_view text, long start, long end) {
  end = std::min(end, static_cast<long>(text.size()));
  xml_scan::for_each_attribute(text, std::max(start, 0L), end,
                               [&](std::string_view name, std::string_view value) {
                                 xml_node_add_attribute(node, name, value);
                               });
}

void xml_parse_attribute(XmlNode& node, std::string_view text, long start, long end) {
  const long equals = xml_scan::find_byte(text, '=', start, end);
  if (equals < 0) return;
  long value_start = equals + 1;
  if (equals != end - 1 && text[value_start] == '"') ++value_start;
  const long value_end = text[end - 1] == '"' ? end - 1 : end;
  const std::string_view value =
      value_end > value_start ? text.substr(value_start, value_end - value_start) : "";
  xml_node_add_attribute(node, text.substr(start, equals - start), value);
}

}  // namespace quorlin
