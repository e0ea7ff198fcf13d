/// @file
/// Reading records from XML element trees and texts.
///
/// Readers walk an element's children in document order and dispatch on each child's name,
/// matched exactly. They are lenient: unknown children, attributes and stray text are ignored,
/// a missing child leaves the constructor's value, a repeated child overwrites the earlier value,
/// and a root of another name yields no record. The format's asymmetries are kept: a member's
/// PeerIp is never read, a share's Path is read from any share element, and a Notifications
/// document always reads as an empty List. Nothing is logged.
#ifndef QUORLIN_RECORDS_RECORD_READER_HPP
#define QUORLIN_RECORDS_RECORD_READER_HPP

#include <functional>
#include <memory>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/records/records.hpp"
#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

///@{
/// The element's text as atoi/atol convert it ("12x" gives 12, "abc" 0); -1 without text.
QUORLIN_API int xml_text_int(const XmlNode& element);
QUORLIN_API long xml_text_long(const XmlNode& element);
///@}
/// A copy of the element's text, or null without text.
QUORLIN_API Text xml_text_dup(const XmlNode& element);

///@{
/// Each returns null when the element's name is not the record's.
QUORLIN_API std::unique_ptr<ServiceState> service_state_from_xml(const XmlNode& element);
QUORLIN_API std::unique_ptr<PeerConnectionInfo> peer_connection_info_from_xml(
    const XmlNode& element);
QUORLIN_API std::unique_ptr<PeerMember> peer_member_from_xml(const XmlNode& element,
                                                             PeerNetwork* network);
QUORLIN_API std::unique_ptr<PeerNetwork> peer_network_from_xml(const XmlNode& element);
QUORLIN_API std::unique_ptr<AddNetworkRequest> add_network_request_from_xml(const XmlNode& element);
///@}
/// Null unless "PeerNetworks"; a child that is not a network adds a null item.
QUORLIN_API std::unique_ptr<PeerNetworkList> peer_network_list_from_xml(const XmlNode& element);
/// Never null: a root of another name gives an empty List.
QUORLIN_API std::unique_ptr<NotificationList> notification_list_from_xml(const XmlNode& element);

///@{
/// Readers that add to a List they are given.
QUORLIN_API void accessor_read(const XmlNode& element, AccessorList& list);
QUORLIN_API void access_list_read(const XmlNode& element, AccessList& access_list);
QUORLIN_API void share_read(const XmlNode& element, ShareList& list);
QUORLIN_API void share_list_read(const XmlNode& element, ShareList& list);
QUORLIN_API void notification_read(const XmlNode& element, NotificationList& list);
QUORLIN_API void string_list_read(const XmlNode& element, std::string_view list_name,
                                  std::string_view item_name, TextList& list);
QUORLIN_API void peer_member_list_read(const XmlNode& element, PeerNetwork& network);
///@}

///@{
/// Text entry points: null when the text does not parse or its root is not the record's.
QUORLIN_API std::unique_ptr<ServiceState> service_state_parse(std::string_view text);
QUORLIN_API std::unique_ptr<PeerConnectionInfo> peer_connection_info_parse(std::string_view text);
QUORLIN_API std::unique_ptr<PeerNetworkList> peer_network_list_parse(std::string_view text);
/// Reads a network list network by network: each goes to `each` as soon as it is read (null for a
/// child that is not a network), and nothing of the document is kept. Returns false where
/// peer_network_list_parse returns null; networks handed over before that belonged to no list.
QUORLIN_API bool peer_network_list_each(
    std::string_view text, const std::function<void(std::unique_ptr<PeerNetwork>)>& each);
QUORLIN_API std::unique_ptr<PeerNetwork> peer_network_parse(std::string_view text);
QUORLIN_API std::unique_ptr<PeerMember> peer_member_parse(std::string_view text);  ///< network null
QUORLIN_API std::unique_ptr<NotificationList> notification_list_parse(std::string_view text);
QUORLIN_API std::unique_ptr<AddNetworkRequest> add_network_request_parse(std::string_view text);
///@}
/// Never null: a text that does not parse gives an empty List.
QUORLIN_API std::unique_ptr<ShareList> share_list_parse(std::string_view text);

}  // namespace quorlin

#endif  // QUORLIN_RECORDS_RECORD_READER_HPP
