/// @file
/// A record's fields walked in the order its XML writer writes them, under the same element
/// names, for writers of other formats (quorlinctl's JSON). The walk is the writer's own: a
/// field the writer leaves out is not visited.
#ifndef QUORLIN_RECORDS_RECORD_VISIT_HPP
#define QUORLIN_RECORDS_RECORD_VISIT_HPP

#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/records/records.hpp"

namespace quorlin {

/// Receives the fields of one record: numbers and texts (null: absent) by their element names,
/// and lists and records nested between their begin and end. A list's items come as records
/// (a network's members, shares, accessors) or as texts (a member's messages).
class QUORLIN_API RecordVisitor {
 public:
  virtual ~RecordVisitor();
  /// A number field.
  virtual void number(std::string_view name, long value) = 0;
  /// A text field; std::nullopt when absent.
  virtual void text(std::string_view name, OptionalText value) = 0;
  /// A list field: its items follow, up to end_list.
  virtual void begin_list(std::string_view name) = 0;
  /// The end of the innermost list.
  virtual void end_list() = 0;
  /// A record, named by its element: its fields follow, up to end_record.
  virtual void begin_record(std::string_view name) = 0;
  /// The end of the innermost record.
  virtual void end_record() = 0;
};

/// Walks the record, starting with begin_record of its own element name.
///@{
QUORLIN_API void visit_record(const PeerNetwork& network, RecordVisitor& visitor);
QUORLIN_API void visit_record(const PeerMember& member, RecordVisitor& visitor);
QUORLIN_API void visit_record(const Share& share, RecordVisitor& visitor);
QUORLIN_API void visit_record(const Notification& notification, RecordVisitor& visitor);
QUORLIN_API void visit_record(const ServiceState& state, RecordVisitor& visitor);
QUORLIN_API void visit_record(const PeerConnectionInfo& info, RecordVisitor& visitor);
///@}

}  // namespace quorlin

#endif  // QUORLIN_RECORDS_RECORD_VISIT_HPP
