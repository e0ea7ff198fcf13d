// Record schemas: each record kind is one table of its child elements, walked by one reader and
// one writer; a List of records is a field kind of its own, and a document that is a List of
// records is a root name over the kind of its items.
//
// A row names a child element and says how it is read into the record and written from it. The
// row's order is the order the writer follows; the reader takes children in any order and looks
// each one up by its exact name. A row without a reader is skipped when read (a member's PeerIp);
// a row without a writer is never written (a connection's Role). A field with behaviour of its
// own (a folder's Path) carries its own functions in its row; a kind whose element or reading
// depends on the record (a share, a notification) carries them in its schema.
//
// Not installed: the tables belong to the record readers and writers.
#ifndef QUORLIN_RECORDS_RECORD_SCHEMA_INTERNAL_HPP
#define QUORLIN_RECORDS_RECORD_SCHEMA_INTERNAL_HPP

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "quorlin/base/same_bytes_internal.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_visit.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/records/records.hpp"
#include "quorlin/xml/xml_element_internal.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin::schema {

// Where the writers' walk goes: into XML through XmlOut, or to a RecordVisitor, which is told
// numbers from texts and lists from records. One walk of the tables serves both.
class RecordOut {
 public:
  explicit RecordOut(XmlOut& xml) : xml_(&xml) {}
  explicit RecordOut(RecordVisitor& visitor) : visitor_(&visitor) {}

  // A text element; std::nullopt writes it without text.
  void text(std::string_view name, OptionalText value) {
    if (xml_ != nullptr) return xml_->element(name, value);
    visitor_->text(name, value);
  }
  // A number element, written in decimal.
  void number(std::string_view name, long value) {
    if (xml_ == nullptr) return visitor_->number(name, value);
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    xml_->element(name, std::string_view(digits, end - digits));
  }
  // A record's element and, with `list`, a List's; each open is closed by the same `list`.
  void open(std::string_view name, bool list) {
    if (xml_ != nullptr) return xml_->open(name);
    list ? visitor_->begin_list(name) : visitor_->begin_record(name);
  }
  void close(std::string_view name, bool list) {
    if (xml_ != nullptr) return xml_->close(name);
    list ? visitor_->end_list() : visitor_->end_record();
  }

 private:
  XmlOut* xml_ = nullptr;
  RecordVisitor* visitor_ = nullptr;
};

template <typename Record>
struct Field {
  using Read = void (*)(const Field& field, const XmlNode& child, Record& record);
  using Write = void (*)(const Field& field, const Record& record, RecordOut& out);

  std::string_view element;
  Read read = nullptr;         // null: the child is skipped
  Write write = nullptr;       // null: the field is never written
  std::string_view item = {};  // a text list's item element
  std::size_t levels = 1;      // levels of elements the row reads, its own element the first
};

// A record kind. Owner is what a record of the kind points up to (a member's network), given
// when the record is made.
template <typename Record_, typename Owner_ = void>
struct Schema {
  using Record = Record_;
  using Owner = Owner_;

  std::string_view element;  // read only from elements of this name, unless any_element
  std::span<const Field<Record>> fields;
  // The record that reading an element starts from.
  std::unique_ptr<Record> (*make)(const XmlNode& element, Owner* owner);
  bool any_element = false;
  // What reading leaves becomes this; null keeps it.
  std::unique_ptr<Record> (*finish)(std::unique_ptr<Record> read) = nullptr;
  // The element a record is written as; null writes every record as `element`.
  std::string_view (*element_of)(const Record& record) = nullptr;
  bool (*written)(const Record& record) = nullptr;  // null writes every record
};

// Levels of elements a record of the kind is read from, its own element the first.
template <typename Record, typename Owner>
constexpr std::size_t levels_of(const Schema<Record, Owner>& schema) {
  std::size_t deepest_field = 0;
  for (const Field<Record>& field : schema.fields)
    deepest_field = std::max(deepest_field, field.levels);
  return 1 + deepest_field;
}

// A record made by `make` from nothing but itself.
template <auto make>
auto made_by(const XmlNode&, void*) {
  return make();
}

// A document whose root holds a List of records.
enum class Root {
  kRequired,  // another root, or a text that does not parse, gives no List
  kOrEmpty,   // another root gives an empty List; a text that does not parse gives none
  kAny,       // any root holds the records; a text that does not parse gives an empty List
};

template <typename Record_>
struct Document {
  using Record = Record_;

  std::string_view root;  // the root written, and read unless Root::kAny
  const Schema<Record>& item;
  Root rule;
  bool null_items = false;  // a child that is not an item adds a null item instead of nothing
};

// The readers take the kind, a Schema or a Document, as a template argument: each kind's walk is
// then compiled with its table's constants (the length of the element's name, the hooks it does
// not have), which a List of thousands of records reads once per record.
template <const auto& kind>
using KindOf = std::remove_cvref_t<decltype(kind)>;
template <const auto& kind>
using RecordsOf = List<std::unique_ptr<typename KindOf<kind>::Record>>;

// Reads one child with the row of its name, looking from row `from` on and wrapping around;
// returns the row after the one found (children mostly come in the table's order), or `from`
// when no row has the name. A child whose row has no reader, or no row, is skipped.
template <typename Record>
std::size_t read_child(std::span<const Field<Record>> fields, const XmlNode& child, Record& record,
                       std::size_t from) {
  const std::string_view name = xml_element_name(child);
  const std::size_t rows = fields.size();
  for (std::size_t step = 0, row = from; step < rows; ++step, ++row) {
    if (row == rows) row = 0;
    const Field<Record>& field = fields[row];
    if (!same_bytes(field.element, name)) continue;
    if (field.read != nullptr) field.read(field, child, record);
    return row + 1;  // a name has one row
  }
  return from;
}

// The record read from `element`; null when the kind does not read that element. A repeated
// child overwrites the earlier value.
template <const auto& schema>
auto read_record(const XmlNode& element, typename KindOf<schema>::Owner* owner = nullptr) {
  using Record = typename KindOf<schema>::Record;
  if (!schema.any_element && !same_bytes(xml_element_name(element), schema.element)) {
    return std::unique_ptr<Record>();
  }
  std::unique_ptr<Record> record = schema.make(element, owner);
  std::size_t next_row = 0;
  for (const XmlNode& child : xml_element_children(element)) {
    next_row = read_child(schema.fields, child, *record, next_row);
  }
  if constexpr (schema.finish != nullptr) return schema.finish(std::move(record));
  return record;
}

// Appends the record read from `element` to `list`, unless the kind does not read it. Locked
// appends are for a List that a caller gave; the Lists of a record being read are reached by no
// other thread yet.
template <const auto& item, bool locked>
void read_item(const XmlNode& element, typename KindOf<item>::Owner* owner, RecordsOf<item>& list) {
  auto record = read_record<item>(element, owner);
  if (!record) return;
  if constexpr (locked) {
    list_append(list, std::move(record));
  } else {
    list_append_unlocked(list, std::move(record));
  }
}

// Appends the records read from the children of `element`, in document order.
template <const auto& item, bool locked>
void read_items(const XmlNode& element, typename KindOf<item>::Owner* owner,
                RecordsOf<item>& list) {
  for (const XmlNode& child : xml_element_children(element)) {
    read_item<item, locked>(child, owner, list);
  }
}

// Hands `each` the record read from one child of a document's root, if the root holds records.
template <const auto& document, typename Each>
void read_document_child(const XmlNode& root, const XmlNode& child, Each& each) {
  if (document.rule != Root::kAny && !same_bytes(xml_element_name(root), document.root)) return;
  auto record = read_record<document.item>(child);
  if (record || document.null_items) each(std::move(record));
}

// Reads the records of the document `text` one by one, as the parser completes them, so that a
// long List never exists as a tree. Returns whether the document gives a List (see Root); the
// records handed over belong to no List when it does not. Elements deeper than the items'
// tables read are parsed but not built: a reply nested deeper costs no tree.
template <const auto& document, typename Each>
bool read_document(std::string_view text, Each each) {
  constexpr std::size_t kItemLevels = levels_of(document.item);
  const auto root = xml_parse_children(
      text,
      [&](const XmlNode& parsed, const XmlNode& child) {
        read_document_child<document>(parsed, child, each);
      },
      kItemLevels);
  if (!root) return false;
  return document.rule != Root::kRequired || *root == document.root;
}

// The List of the document `text`, or null where the document gives none.
template <const auto& document>
std::unique_ptr<RecordsOf<document>> parse_document(std::string_view text) {
  auto list = std::make_unique<RecordsOf<document>>();
  const bool listed = read_document<document>(
      text, [&](auto record) { list_append_unlocked(*list, std::move(record)); });
  if (listed) return list;
  if (document.rule == Root::kAny) return std::make_unique<RecordsOf<document>>();
  return nullptr;
}

// The List under `root`, a parsed document's root, or null where the document gives none.
template <const auto& document>
std::unique_ptr<RecordsOf<document>> document_from_xml(const XmlNode& root) {
  if (document.rule == Root::kRequired && xml_element_name(root) != document.root) return nullptr;
  auto list = std::make_unique<RecordsOf<document>>();
  auto append = [&](auto record) { list_append(*list, std::move(record)); };
  for (const XmlNode& child : xml_element_children(root)) {
    read_document_child<document>(root, child, append);
  }
  return list;
}

// Writes the record as its element, unless the kind leaves it out.
template <typename Record, typename Owner>
void write_record(const Schema<Record, Owner>& schema, const Record& record, RecordOut& out) {
  if (schema.written != nullptr && !schema.written(record)) return;
  const std::string_view name =
      schema.element_of != nullptr ? schema.element_of(record) : schema.element;
  out.open(name, false);
  for (const Field<Record>& field : schema.fields) {
    if (field.write != nullptr) field.write(field, record, out);
  }
  out.close(name, false);
}

// Writes the List as an element named `name` holding its records in List order. A null item (a
// child the reader did not recognise) has nothing to write.
template <typename Item, typename Owner>
void write_records(const Schema<Item, Owner>& item, const List<std::unique_ptr<Item>>& list,
                   std::string_view name, RecordOut& out) {
  out.open(name, true);
  for (const auto& record : list) {
    if (record) write_record(item, *record, out);
  }
  out.close(name, true);
}

// --- the kinds of field ---

template <typename>
struct MemberPointer;
template <typename Record_, typename Value_>
struct MemberPointer<Value_ Record_::*> {
  using Record = Record_;
  using Value = Value_;
};
template <auto Member>
using RecordOf = typename MemberPointer<decltype(Member)>::Record;

// An owned text: null when the child has no text, and a null text writes an empty element.
template <auto Member>
constexpr Field<RecordOf<Member>> text(std::string_view element) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            // Built in place: a temporary Text would copy the bytes twice.
            Text& value = record.*Member;
            if (const auto text = xml_element_text(child)) {
              value.emplace(*text);
            } else {
              value.reset();
            }
          },
          [](const Field<Record>& field, const Record& record, RecordOut& out) {
            const Text& value = record.*Member;
            out.text(field.element, value ? OptionalText(*value) : std::nullopt);
          }};
}

// An int or a long: read as atoi/atol read it, -1 without text; written in decimal.
template <auto Member>
constexpr Field<RecordOf<Member>> number(std::string_view element) {
  using Record = RecordOf<Member>;
  using Value = typename MemberPointer<decltype(Member)>::Value;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            // The int narrowing keeps the low bits, as atoi's does.
            record.*Member = static_cast<Value>(xml_text_long(child));
          },
          [](const Field<Record>& field, const Record& record, RecordOut& out) {
            out.number(field.element, record.*Member);
          }};
}

// A fixed text field, cut to leave room for its NUL; always written.
template <auto Member>
constexpr Field<RecordOf<Member>> fixed_text(std::string_view element) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            copy_fixed_text(record.*Member, xml_element_text(child));
          },
          [](const Field<Record>& field, const Record& record, RecordOut& out) {
            out.text(field.element, std::string_view(record.*Member));
          }};
}

// The List a field holds: the field itself, or the List of the holder it owns (a share's
// AccessList).
template <typename Item>
List<Item>& list_of(List<Item>& list) {
  return list;
}
template <typename Item>
const List<Item>& list_of(const List<Item>& list) {
  return list;
}
inline AccessorList& list_of(const std::unique_ptr<AccessList>& access_list) {
  return access_list->accessors;
}

inline TextList* text_list_of(TextList& list) {
  return &list;
}
inline const TextList* text_list_of(const TextList& list) {
  return &list;
}
inline TextList* text_list_of(const std::unique_ptr<TextList>& list) {
  return list.get();
}

// A List of records of the kind `item`, from the children that the kind reads; written as one
// element per record.
template <auto Member, const auto& item>
constexpr Field<RecordOf<Member>> record_list(std::string_view element) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            read_items<item, false>(child, &record, list_of(record.*Member));
          },
          [](const Field<Record>& field, const Record& record, RecordOut& out) {
            write_records(item, list_of(record.*Member), field.element, out);
          },
          {},
          1 + levels_of(item)};
}

// Writes a List of texts as an element named `name` holding one `item` element per text; a
// missing List writes the element empty.
void write_texts(const TextList* list, std::string_view name, std::string_view item,
                 RecordOut& out);

// Texts of the children named `item`; a missing List writes an empty element.
template <auto Member>
constexpr Field<RecordOf<Member>> text_list(std::string_view element, std::string_view item) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>& field, const XmlNode& child, Record& record) {
            // An empty list, the usual one, adds nothing: no call for it.
            if (xml_element_children(child).first == nullptr) return;
            string_list_read(child, field.element, field.item, *text_list_of(record.*Member));
          },
          [](const Field<Record>& field, const Record& record, RecordOut& out) {
            write_texts(text_list_of(record.*Member), field.element, field.item, out);
          },
          item, 2};
}

template <typename Record>
constexpr Field<Record> read_only(Field<Record> field) {
  field.write = nullptr;
  return field;
}

template <typename Record>
constexpr Field<Record> write_only(Field<Record> field) {
  field.read = nullptr;
  return field;
}

}  // namespace quorlin::schema

#endif  // QUORLIN_RECORDS_RECORD_SCHEMA_INTERNAL_HPP
