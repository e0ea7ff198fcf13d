// Records to and from XML: one table per record kind, read and written by the walks of
// record_schema_internal.hpp.
//
// The tables list the children in the order the writer writes them. Where the two directions
// differ, the row says so: a member's PeerIp is written but never read, a connection's Role read
// but never written, a share's Path read from any share and written only for a folder.
#include <cstdio>

#include "quorlin/base/strings.hpp"
#include "quorlin/base/strings_internal.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_schema_internal.hpp"
#include "quorlin/records/record_visit.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin {
namespace {

using schema::Document;
using schema::Field;
using schema::made_by;
using schema::number;
using schema::read_only;
using schema::record_list;
using schema::Root;
using schema::Schema;
using schema::text;
using schema::text_list;
using schema::write_only;

constexpr Field<ServiceState> kServiceStateFields[] = {
    text<&ServiceState::username>("Username"),
    number<&ServiceState::type>("Type"),
    number<&ServiceState::started>("Started"),
};
constexpr Schema<ServiceState> kServiceState{"ServiceState", kServiceStateFields,
                                             made_by<service_state_new>};

constexpr Field<PeerConnectionInfo> kPeerConnectionInfoFields[] = {
    schema::fixed_text<&PeerConnectionInfo::peer>("Peer"),
    schema::fixed_text<&PeerConnectionInfo::peer_ip>("PeerIp"),
    schema::fixed_text<&PeerConnectionInfo::peer_host_ip>("PeerHostIp"),
    number<&PeerConnectionInfo::connection_try>("ConnectionTry"),
    number<&PeerConnectionInfo::connection_protocol>("ConnectionProtocol"),
    number<&PeerConnectionInfo::connection_direction>("ConnectionDirection"),
    number<&PeerConnectionInfo::connection_method>("ConnectionMethod"),
    read_only(number<&PeerConnectionInfo::role>("Role")),
    number<&PeerConnectionInfo::initiator>("Initiator"),
    number<&PeerConnectionInfo::encryption_type>("EncryptionType"),
};
constexpr Schema<PeerConnectionInfo> kPeerConnectionInfo{
    "PeerConnectionInfo", kPeerConnectionInfoFields, made_by<peer_connection_info_new>};

constexpr Field<Accessor> kAccessorFields[] = {
    text<&Accessor::name>("Name"),
    number<&Accessor::type>("Type"),
};
constexpr Schema<Accessor> kAccessor{
    .element = "Accessor",
    .fields = kAccessorFields,
    .make = [](const XmlNode&, void*) { return std::make_unique<Accessor>(); },
};

// A share's element names its type, in both directions; the last row stands for every other
// name and type.
struct ShareElement {
  int type;
  std::string_view element;
};
constexpr ShareElement kShareElements[] = {
    {SHARE_TYPE_FOLDER, "FolderShare"},
    {SHARE_TYPE_CONNECTION, "ConnectionShare"},
    {0, "Share"},
};

template <typename Matches>
const ShareElement& share_element(Matches matches) {
  for (const ShareElement& row : kShareElements) {
    if (matches(row)) return row;
  }
  return std::end(kShareElements)[-1];
}

constexpr Field<Share> kAccessListRow = record_list<&Share::access_list, kAccessor>("AccessList");
constexpr Field<Share> kShareFields[] = {
    text<&Share::name>("Name"),
    number<&Share::type>("Type"),
    kAccessListRow,
    {"Path", text<&Share::path>({}).read,
     [](const Field<Share>& field, const Share& share, schema::RecordOut& out) {
       if (share.type == SHARE_TYPE_FOLDER) text<&Share::path>({}).write(field, share, out);
     }},
};
constexpr Schema<Share> kShare{
    .element = "Share",
    .fields = kShareFields,
    .make =
        [](const XmlNode& element, void*) {
          const std::string_view name = xml_element_name(element);
          return share_new(std::nullopt,
                           share_element([&](auto& row) { return row.element == name; }).type);
        },
    // Any element is a share, typed by its name until a Type child says otherwise.
    .any_element = true,
    .element_of =
        [](const Share& share) {
          return share_element([&](auto& row) { return row.type == share.type; }).element;
        },
};

constexpr Field<Notification> kNotificationFields[] = {
    number<&Notification::type>("Type"),
    text<&Notification::text>("Username"),
    text<&Notification::text2>("Member"),
    text<&Notification::text3>("PrevMember"),
};
constexpr Schema<Notification> kNotification{
    .element = "Notification",
    .fields = kNotificationFields,
    .make = [](const XmlNode&, void*) { return std::make_unique<Notification>(); },
    // The record a reader keeps is made at a Type child of 7 by the kind-7 constructor, before
    // any text has been read: that constructor refuses absent texts, so no element yields a
    // notification, and the texts read have no record to go to.
    .finish = [](std::unique_ptr<Notification> read) -> std::unique_ptr<Notification> {
      if (read->type != NOTIFICATION_TYPE_MEMBER) return nullptr;
      return notification_new_kind7(std::nullopt, std::nullopt, std::nullopt);
    },
    .written =
        [](const Notification& notification) {
          return notification.type == NOTIFICATION_TYPE_MEMBER;
        },
};

constexpr Field<PeerMember> kPeerMemberFields[] = {
    text<&PeerMember::peer>("Peer"),
    number<&PeerMember::status>("Status"),
    write_only(text<&PeerMember::peer_ip>("PeerIp")),
    number<&PeerMember::connect_status>("ConnectStatus"),
    record_list<&PeerMember::remote_shares, kShare>("RemoteShares"),
    text_list<&PeerMember::messages>("Messages", "Message"),
    number<&PeerMember::connect_count>("ConnectCount"),
};
constexpr Schema<PeerMember, PeerNetwork> kPeerMember{
    "PeerMember", kPeerMemberFields,
    [](const XmlNode&, PeerNetwork* network) { return peer_member_new(network); }};

constexpr Field<PeerNetwork> kPeerMembersRow =
    record_list<&PeerNetwork::peer_members, kPeerMember>("PeerMembers");
constexpr Field<PeerNetwork> kPeerNetworkFields[] = {
    number<&PeerNetwork::id>("Id"),
    number<&PeerNetwork::type>("Type"),
    text<&PeerNetwork::name>("Name"),
    kPeerMembersRow,
    record_list<&PeerNetwork::folder_shares, kShare>("FolderShares"),
    record_list<&PeerNetwork::connection_shares, kShare>("ConnectionShares"),
    number<&PeerNetwork::connect_status>("ConnectStatus"),
    number<&PeerNetwork::enable_sharing>("EnableSharing"),
    number<&PeerNetwork::enable_folder_sharing>("EnableFolderSharing"),
    number<&PeerNetwork::enable_connection_sharing>("EnableConnectionSharing"),
};
constexpr Schema<PeerNetwork> kPeerNetwork{"PeerNetwork", kPeerNetworkFields,
                                           made_by<peer_network_new>};

constexpr Field<AddNetworkRequest> kAddNetworkRequestFields[] = {
    text<&AddNetworkRequest::name>("Name"),
    text_list<&AddNetworkRequest::members>("Members", "Member"),
    number<&AddNetworkRequest::type>("Type"),
    number<&AddNetworkRequest::connection_type>("ConnectionType"),
};
constexpr Schema<AddNetworkRequest> kAddNetworkRequest{
    "AddNetworkRequest", kAddNetworkRequestFields, made_by<add_network_request_empty>};

constexpr Document<PeerNetwork> kPeerNetworks{
    .root = "PeerNetworks", .item = kPeerNetwork, .rule = Root::kRequired, .null_items = true};
constexpr Document<Notification> kNotifications{"Notifications", kNotification, Root::kOrEmpty};
constexpr Document<Share> kShares{"Shares", kShare, Root::kAny};

// A record, or a document's List, as a new tree, as text, under a parent element, or to a
// visitor.
template <typename Record, typename Owner>
void write(const Schema<Record, Owner>& schema, const Record& record, schema::RecordOut&& out) {
  schema::write_record(schema, record, out);
}

template <typename Item>
void write(const Document<Item>& document, const List<std::unique_ptr<Item>>& list,
           schema::RecordOut&& out) {
  schema::write_records(document.item, list, document.root, out);
}

std::unique_ptr<XmlNode> tree_of(const auto& kind, const auto& value) {
  XmlOut out;
  write(kind, value, schema::RecordOut(out));
  return out.tree();
}

std::string text_of(const auto& kind, const auto& value) {
  std::string text;
  XmlOut out(text);
  write(kind, value, schema::RecordOut(out));
  return text;
}

void write_under(XmlNode& parent, const auto& kind, const auto& value) {
  XmlOut out(parent);
  write(kind, value, schema::RecordOut(out));
}

// Parses `text`, reads its root as a record of the kind and frees the tree; null when it does
// not parse.
template <const auto& kind>
auto parse_record(std::string_view text) {
  const std::unique_ptr<XmlNode> root = xml_parse(text);
  return root ? schema::read_record<kind>(*root) : nullptr;
}

}  // namespace

// --- reading ---

int xml_text_int(const XmlNode& element) {
  // atoi is strtol narrowed; the narrowing keeps the low bits, as the C library does.
  return static_cast<int>(xml_text_long(element));
}

long xml_text_long(const XmlNode& element) {
  const auto text = xml_element_text(element);
  return text ? decimal_prefix(*text) : -1;
}

Text xml_text_dup(const XmlNode& element) {
  const auto text = xml_element_text(element);
  return text ? Text(*text) : std::nullopt;
}

std::unique_ptr<ServiceState> service_state_from_xml(const XmlNode& element) {
  return schema::read_record<kServiceState>(element);
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_from_xml(const XmlNode& element) {
  return schema::read_record<kPeerConnectionInfo>(element);
}

void accessor_read(const XmlNode& element, AccessorList& list) {
  schema::read_item<kAccessor, true>(element, nullptr, list);
}

void access_list_read(const XmlNode& element, AccessList& access_list) {
  schema::read_items<kAccessor, true>(element, nullptr, access_list.accessors);
}

void share_read(const XmlNode& element, ShareList& list) {
  schema::read_item<kShare, true>(element, nullptr, list);
}

void share_list_read(const XmlNode& element, ShareList& list) {
  schema::read_items<kShare, true>(element, nullptr, list);
}

void notification_read(const XmlNode& element, NotificationList& list) {
  schema::read_item<kNotification, true>(element, nullptr, list);
}

std::unique_ptr<NotificationList> notification_list_from_xml(const XmlNode& element) {
  return schema::document_from_xml<kNotifications>(element);
}

void string_list_read(const XmlNode& element, std::string_view list_name,
                      std::string_view item_name, TextList& list) {
  if (!same_bytes(xml_element_name(element), list_name)) return;
  for (const XmlNode& child : xml_element_children(element)) {
    if (same_bytes(xml_element_name(child), item_name)) list_append(list, xml_text_dup(child));
  }
}

std::unique_ptr<PeerMember> peer_member_from_xml(const XmlNode& element, PeerNetwork* network) {
  return schema::read_record<kPeerMember>(element, network);
}

void peer_member_list_read(const XmlNode& element, PeerNetwork& network) {
  if (same_bytes(xml_element_name(element), kPeerMembersRow.element)) {
    kPeerMembersRow.read(kPeerMembersRow, element, network);
  }
}

std::unique_ptr<PeerNetwork> peer_network_from_xml(const XmlNode& element) {
  return schema::read_record<kPeerNetwork>(element);
}

std::unique_ptr<PeerNetworkList> peer_network_list_from_xml(const XmlNode& element) {
  return schema::document_from_xml<kPeerNetworks>(element);
}

std::unique_ptr<AddNetworkRequest> add_network_request_from_xml(const XmlNode& element) {
  return schema::read_record<kAddNetworkRequest>(element);
}

std::unique_ptr<ServiceState> service_state_parse(std::string_view text) {
  return parse_record<kServiceState>(text);
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_parse(std::string_view text) {
  return parse_record<kPeerConnectionInfo>(text);
}

std::unique_ptr<PeerNetworkList> peer_network_list_parse(std::string_view text) {
  return schema::parse_document<kPeerNetworks>(text);
}

bool peer_network_list_each(std::string_view text,
                            const std::function<void(std::unique_ptr<PeerNetwork>)>& each) {
  return schema::read_document<kPeerNetworks>(text, each);
}

std::unique_ptr<PeerNetwork> peer_network_parse(std::string_view text) {
  return parse_record<kPeerNetwork>(text);
}

std::unique_ptr<PeerMember> peer_member_parse(std::string_view text) {
  return parse_record<kPeerMember>(text);
}

std::unique_ptr<NotificationList> notification_list_parse(std::string_view text) {
  return schema::parse_document<kNotifications>(text);
}

std::unique_ptr<AddNetworkRequest> add_network_request_parse(std::string_view text) {
  return parse_record<kAddNetworkRequest>(text);
}

std::unique_ptr<ShareList> share_list_parse(std::string_view text) {
  return schema::parse_document<kShares>(text);
}

// --- writing ---

void xml_set_text_int(XmlNode& element, int number) {
  xml_node_set_text(element, str_from_long(number));
}

void xml_set_text_long(XmlNode& element, long number) {
  xml_node_set_text(element, str_from_long(number));
}

void schema::write_texts(const TextList* list, std::string_view name, std::string_view item,
                         RecordOut& out) {
  out.open(name, true);
  if (list != nullptr) {
    for (const Text& text : *list) out.text(item, text ? OptionalText(*text) : std::nullopt);
  }
  out.close(name, true);
}

RecordVisitor::~RecordVisitor() = default;

void visit_record(const PeerNetwork& network, RecordVisitor& visitor) {
  write(kPeerNetwork, network, schema::RecordOut(visitor));
}

void visit_record(const PeerMember& member, RecordVisitor& visitor) {
  write(kPeerMember, member, schema::RecordOut(visitor));
}

void visit_record(const Share& share, RecordVisitor& visitor) {
  write(kShare, share, schema::RecordOut(visitor));
}

void visit_record(const Notification& notification, RecordVisitor& visitor) {
  write(kNotification, notification, schema::RecordOut(visitor));
}

void visit_record(const ServiceState& state, RecordVisitor& visitor) {
  write(kServiceState, state, schema::RecordOut(visitor));
}

void visit_record(const PeerConnectionInfo& info, RecordVisitor& visitor) {
  write(kPeerConnectionInfo, info, schema::RecordOut(visitor));
}

void accessor_write(const Accessor& accessor, XmlNode& parent) {
  write_under(parent, kAccessor, accessor);
}

void access_list_write(const AccessList& access_list, XmlNode& parent) {
  XmlOut xml(parent);
  schema::RecordOut out(xml);
  schema::write_records(kAccessor, access_list.accessors, kAccessListRow.element, out);
}

void share_write(const Share& share, XmlNode& parent) {
  write_under(parent, kShare, share);
}

void share_list_write(const ShareList& list, std::string_view element_name, XmlNode& parent) {
  XmlOut xml(parent);
  schema::RecordOut out(xml);
  schema::write_records(kShare, list, element_name, out);
}

std::unique_ptr<XmlNode> share_list_to_xml(const ShareList& list, std::string_view element_name) {
  XmlOut xml;
  schema::RecordOut out(xml);
  schema::write_records(kShare, list, element_name, out);
  return xml.tree();
}

void notification_write(const Notification& notification, XmlNode& parent) {
  write_under(parent, kNotification, notification);
}

std::unique_ptr<XmlNode> notification_list_to_xml(const NotificationList& list) {
  return tree_of(kNotifications, list);
}

void string_list_write(const TextList& list, std::string_view list_name, std::string_view item_name,
                       XmlNode& parent) {
  XmlOut xml(parent);
  schema::RecordOut out(xml);
  schema::write_texts(&list, list_name, item_name, out);
}

void peer_member_write(const PeerMember& member, XmlNode& parent) {
  write_under(parent, kPeerMember, member);
}

std::unique_ptr<XmlNode> peer_member_to_xml(const PeerMember& member) {
  return tree_of(kPeerMember, member);
}

void peer_member_list_write(const PeerMemberList& list, XmlNode& parent) {
  XmlOut xml(parent);
  schema::RecordOut out(xml);
  schema::write_records(kPeerMember, list, kPeerMembersRow.element, out);
}

void peer_network_write(const PeerNetwork& network, XmlNode& parent) {
  write_under(parent, kPeerNetwork, network);
}

std::unique_ptr<XmlNode> peer_network_to_xml(const PeerNetwork& network) {
  return tree_of(kPeerNetwork, network);
}

std::unique_ptr<XmlNode> peer_network_list_to_xml(const PeerNetworkList& list) {
  return tree_of(kPeerNetworks, list);
}

std::unique_ptr<XmlNode> service_state_to_xml(const ServiceState& state) {
  return tree_of(kServiceState, state);
}

std::unique_ptr<XmlNode> peer_connection_info_to_xml(const PeerConnectionInfo& info) {
  return tree_of(kPeerConnectionInfo, info);
}

std::unique_ptr<XmlNode> add_network_request_to_xml(const AddNetworkRequest& request) {
  return tree_of(kAddNetworkRequest, request);
}

std::string add_network_request_to_text(OptionalText name, const TextList& members, int type,
                                        int connection_type) {
  AddNetworkRequest request{text_copy(name), list_create<Text>(), type, connection_type};
  for (const Text& member : members) list_append(*request.members, member);
  return add_network_request_to_text(request);
}

std::string add_network_request_to_text(const AddNetworkRequest& request) {
  return text_of(kAddNetworkRequest, request);
}

std::string share_list_to_text(const ShareList& list) {
  return text_of(kShares, list);
}

std::string service_state_to_text(const ServiceState& state) {
  return text_of(kServiceState, state);
}

std::string peer_connection_info_to_text(const PeerConnectionInfo& info) {
  return text_of(kPeerConnectionInfo, info);
}

std::string notification_list_to_text(const NotificationList& list) {
  return text_of(kNotifications, list);
}

std::string peer_network_list_to_text(const PeerNetworkList& list) {
  return text_of(kPeerNetworks, list);
}

std::string peer_network_to_text(const PeerNetwork& network) {
  return text_of(kPeerNetwork, network);
}

std::string peer_member_to_text(const PeerMember& member) {
  return text_of(kPeerMember, member);
}

std::string access_list_allow_text(const AccessList& access_list) {
  std::string text;
  text += "<Access>";
  for (const auto& accessor : access_list.accessors) {
    if (!accessor || accessor->type != 0) continue;
    text += "<Allow>";
    if (accessor->name) text += *accessor->name;
    text += "</Allow>";
  }
  text += "</Access>";
  std::printf("acxml %s\n", text.c_str());
  return text;
}

}  // namespace quorlin
