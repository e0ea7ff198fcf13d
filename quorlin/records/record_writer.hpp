/// @file
/// Writing records as XML element trees and texts.
///
/// Every field becomes a child element whose text is the value, in a fixed order per record; no
/// attributes, no escaping (texts holding "<", "&" or quotes do not read back). A null text gives
/// an empty element; a List element is written even when its List is empty. Writers walk Lists
/// without locking, so a member's queue is written without being emptied.
#ifndef QUORLIN_RECORDS_RECORD_WRITER_HPP
#define QUORLIN_RECORDS_RECORD_WRITER_HPP

#include <memory>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/records/records.hpp"
#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

QUORLIN_API void xml_set_text_int(XmlNode& element, int number);    ///< "%d"
QUORLIN_API void xml_set_text_long(XmlNode& element, long number);  ///< "%ld"

///@{
/// Builders of a new tree.
QUORLIN_API std::unique_ptr<XmlNode> service_state_to_xml(const ServiceState& state);
QUORLIN_API std::unique_ptr<XmlNode> peer_connection_info_to_xml(const PeerConnectionInfo& info);
QUORLIN_API std::unique_ptr<XmlNode> peer_member_to_xml(const PeerMember& member);
QUORLIN_API std::unique_ptr<XmlNode> peer_network_to_xml(const PeerNetwork& network);
QUORLIN_API std::unique_ptr<XmlNode> peer_network_list_to_xml(const PeerNetworkList& list);
QUORLIN_API std::unique_ptr<XmlNode> notification_list_to_xml(const NotificationList& list);
QUORLIN_API std::unique_ptr<XmlNode> add_network_request_to_xml(const AddNetworkRequest& request);
QUORLIN_API std::unique_ptr<XmlNode> share_list_to_xml(const ShareList& list,
                                                       std::string_view element_name);
///@}

///@{
/// Writers that append under `parent`.
QUORLIN_API void accessor_write(const Accessor& accessor, XmlNode& parent);
QUORLIN_API void access_list_write(const AccessList& access_list, XmlNode& parent);
QUORLIN_API void share_write(const Share& share, XmlNode& parent);
QUORLIN_API void share_list_write(const ShareList& list, std::string_view element_name,
                                  XmlNode& parent);
QUORLIN_API void notification_write(const Notification& notification,
                                    XmlNode& parent);  ///< type 7 only
QUORLIN_API void string_list_write(const TextList& list, std::string_view list_name,
                                   std::string_view item_name, XmlNode& parent);
QUORLIN_API void peer_member_write(const PeerMember& member, XmlNode& parent);
QUORLIN_API void peer_member_list_write(const PeerMemberList& list, XmlNode& parent);
QUORLIN_API void peer_network_write(const PeerNetwork& network, XmlNode& parent);
///@}

///@{
/// Text entry points: the builder's tree written compactly.
QUORLIN_API std::string add_network_request_to_text(const AddNetworkRequest& request);
/// The same document from the request's parts, for callers that keep their own name and List.
QUORLIN_API std::string add_network_request_to_text(OptionalText name, const TextList& members,
                                                    int type, int connection_type);
QUORLIN_API std::string share_list_to_text(const ShareList& list);  ///< root "Shares"
QUORLIN_API std::string service_state_to_text(const ServiceState& state);
QUORLIN_API std::string peer_connection_info_to_text(const PeerConnectionInfo& info);
QUORLIN_API std::string notification_list_to_text(const NotificationList& list);
QUORLIN_API std::string peer_network_list_to_text(const PeerNetworkList& list);
QUORLIN_API std::string peer_network_to_text(const PeerNetwork& network);
QUORLIN_API std::string peer_member_to_text(const PeerMember& member);
///@}

/// "<Access>" then "<Allow>name</Allow>" for every accessor of type 0, then "</Access>"; the text
/// is also printed on standard output as "acxml %s\n".
QUORLIN_API std::string access_list_allow_text(const AccessList& access_list);

}  // namespace quorlin

#endif  // QUORLIN_RECORDS_RECORD_WRITER_HPP
