// Record schemas: each record kind is one table of its child elements, walked by one reader and
// one writer.
//
// A row names a child element and says how it is read into the record and written from it. The
// row's order is the order the writer follows; the reader takes children in any order and looks
// each one up by its exact name. A row without a reader is skipped when read (a member's PeerIp);
// a row without a writer is never written (a connection's Role). Fields with behaviour of their
// own (a network's members, a folder's Path) carry their own functions in their row.
//
// Not installed: the tables belong to the record readers and writers.
#ifndef QUORLIN_RECORDS_RECORD_SCHEMA_INTERNAL_HPP
#define QUORLIN_RECORDS_RECORD_SCHEMA_INTERNAL_HPP

#include <charconv>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "quorlin/base/same_bytes_internal.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/records/records.hpp"
#include "quorlin/xml/xml_node.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin::schema {

template <typename Record>
struct Field {
  using Read = void (*)(const Field& field, const XmlNode& child, Record& record);
  using Write = void (*)(const Field& field, const Record& record, XmlOut& out);

  std::string_view element;
  Read read = nullptr;         // null: the child is skipped
  Write write = nullptr;       // null: the field is never written
  std::string_view item = {};  // a text list's item element
};

template <typename Record>
struct Schema {
  std::string_view element;
  std::span<const Field<Record>> fields;
};

// Reads one child with the row of its name, looking from row `from` on and wrapping around;
// returns the row after the one found (children mostly come in the table's order), or `from`
// when no row has the name. A child whose row has no reader, or no row, is skipped.
template <typename Record>
std::size_t read_child(const Schema<Record>& schema, const XmlNode& child, Record& record,
                       std::size_t from = 0) {
  const std::string_view name = xml_node_name(child);
  const std::size_t rows = schema.fields.size();
  for (std::size_t step = 0, row = from; step < rows; ++step, ++row) {
    if (row == rows) row = 0;
    const Field<Record>& field = schema.fields[row];
    if (!same_bytes(field.element, name)) continue;
    if (field.read != nullptr) field.read(field, child, record);
    return row + 1;  // a name has one row
  }
  return from;
}

// Fills `record` from the children of `element`; a repeated child overwrites the earlier value.
template <typename Record>
void read_fields(const Schema<Record>& schema, const XmlNode& element, Record& record) {
  std::size_t next_row = 0;
  for (const XmlNode& child : xml_node_children(element)) {
    next_row = read_child(schema, child, record, next_row);
  }
}

// Writes the record's children in the table's order.
template <typename Record>
void write_fields(const Schema<Record>& schema, const Record& record, XmlOut& out) {
  for (const Field<Record>& field : schema.fields) {
    if (field.write != nullptr) field.write(field, record, out);
  }
}

// Writes the record as an element named `name`.
template <typename Record>
void write_record(const Schema<Record>& schema, const Record& record, std::string_view name,
                  XmlOut& out) {
  out.open(name);
  write_fields(schema, record, out);
  out.close(name);
}

// The record read from `element`, made by `make`; null when the element has another name.
template <typename Record, typename Make>
std::unique_ptr<Record> read_record(const Schema<Record>& schema, const XmlNode& element,
                                    Make make) {
  if (!same_bytes(xml_node_name(element), schema.element)) return nullptr;
  std::unique_ptr<Record> record = make();
  read_fields(schema, element, *record);
  return record;
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
            if (const auto text = xml_node_text(child)) {
              value.emplace(*text);
            } else {
              value.reset();
            }
          },
          [](const Field<Record>& field, const Record& record, XmlOut& out) {
            const Text& value = record.*Member;
            out.element(field.element, value ? OptionalText(*value) : std::nullopt);
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
          [](const Field<Record>& field, const Record& record, XmlOut& out) {
            char digits[24];
            const auto end = std::to_chars(digits, digits + sizeof digits, record.*Member).ptr;
            out.element(field.element, std::string_view(digits, end - digits));
          }};
}

// A fixed text field, cut to leave room for its NUL; always written.
template <auto Member>
constexpr Field<RecordOf<Member>> fixed_text(std::string_view element) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            copy_fixed_text(record.*Member, xml_node_text(child));
          },
          [](const Field<Record>& field, const Record& record, XmlOut& out) {
            out.element(field.element, std::string_view(record.*Member));
          }};
}

// Writes a List of shares as an element named `name`; defined with the share table.
void write_shares(const ShareList& list, std::string_view name, XmlOut& out);

// Writes a List of texts as an element named `name` holding one `item` element per text; a
// missing List writes the element empty.
void write_texts(const TextList* list, std::string_view name, std::string_view item, XmlOut& out);

// Every child element becomes a Share of the List; written as one element per share.
template <auto Member>
constexpr Field<RecordOf<Member>> share_list(std::string_view element) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>&, const XmlNode& child, Record& record) {
            share_list_read(child, record.*Member);
          },
          [](const Field<Record>& field, const Record& record, XmlOut& out) {
            write_shares(record.*Member, field.element, out);
          }};
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

// Texts of the children named `item`; a missing List writes an empty element.
template <auto Member>
constexpr Field<RecordOf<Member>> text_list(std::string_view element, std::string_view item) {
  using Record = RecordOf<Member>;
  return {element,
          [](const Field<Record>& field, const XmlNode& child, Record& record) {
            // An empty list, the usual one, adds nothing: no call for it.
            if (xml_node_children(child).first == nullptr) return;
            string_list_read(child, field.element, field.item, *text_list_of(record.*Member));
          },
          [](const Field<Record>& field, const Record& record, XmlOut& out) {
            write_texts(text_list_of(record.*Member), field.element, field.item, out);
          },
          item};
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
