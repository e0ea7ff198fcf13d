// Writing records as XML element trees and texts.
//
// Every field becomes a child element whose text is the value, in a fixed order per record; no
// attributes, no escaping (texts holding "<", "&" or quotes do not read back). A null text gives
// an empty element; a List element is written even when its List is empty. Writers walk Lists
// without locking, so a member's queue is written without being emptied.
#ifndef QUORLIN_RECORDS_RECORD_WRITER_HPP
#define QUORLIN_RECORDS_RECORD_WRITER_HPP

#include <memory>
#include <string>
#include <string_view>

#include "quorlin/records/records.hpp"
#include "quorlin/xml/xml_node.hpp"

namespace quorlin {

void xml_set_text_int(XmlNode& element, int number);    // "%d"
void xml_set_text_long(XmlNode& element, long number);  // "%ld"

// Builders of a new tree.
std::unique_ptr<XmlNode> service_state_to_xml(const ServiceState& state);
std::unique_ptr<XmlNode> peer_connection_info_to_xml(const PeerConnectionInfo& info);
std::unique_ptr<XmlNode> peer_member_to_xml(const PeerMember& member);
std::unique_ptr<XmlNode> peer_network_to_xml(const PeerNetwork& network);
std::unique_ptr<XmlNode> peer_network_list_to_xml(const PeerNetworkList& list);
std::unique_ptr<XmlNode> notification_list_to_xml(const NotificationList& list);
std::unique_ptr<XmlNode> add_network_request_to_xml(const AddNetworkRequest& request);
std::unique_ptr<XmlNode> share_list_to_xml(const ShareList& list, std::string_view element_name);

// Writers that append under `parent`.
void accessor_write(const Accessor& accessor, XmlNode& parent);
void access_list_write(const AccessList& access_list, XmlNode& parent);
void share_write(const Share& share, XmlNode& parent);
void share_list_write(const ShareList& list, std::string_view element_name, XmlNode& parent);
void notification_write(const Notification& notification, XmlNode& parent);  // type 7 only
void string_list_write(const TextList& list, std::string_view list_name, std::string_view item_name,
                       XmlNode& parent);
void peer_member_write(const PeerMember& member, XmlNode& parent);
void peer_member_list_write(const PeerMemberList& list, XmlNode& parent);
void peer_network_write(const PeerNetwork& network, XmlNode& parent);

// Text entry points: the builder's tree written compactly.
std::string add_network_request_to_text(const AddNetworkRequest& request);
// The same document from the request's parts, for callers that keep their own name and List.
std::string add_network_request_to_text(OptionalText name, const TextList& members, int type,
                                        int connection_type);
std::string share_list_to_text(const ShareList& list);  // root "Shares"
std::string service_state_to_text(const ServiceState& state);
std::string peer_connection_info_to_text(const PeerConnectionInfo& info);
std::string notification_list_to_text(const NotificationList& list);
std::string peer_network_list_to_text(const PeerNetworkList& list);
std::string peer_network_to_text(const PeerNetwork& network);
std::string peer_member_to_text(const PeerMember& member);

// "<Access>" then "<Allow>name</Allow>" for every accessor of type 0, then "</Access>"; the text
// is also printed on standard output as "acxml %s\n".
std::string access_list_allow_text(const AccessList& access_list);

}  // namespace quorlin

#endif  // QUORLIN_RECORDS_RECORD_WRITER_HPP
