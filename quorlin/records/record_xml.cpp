// Records to and from XML: one table per record kind, read and written by the walks of
// record_schema_internal.hpp.
//
// The tables list the children in the order the writer writes them. Where the two directions
// differ, the row says so: a member's PeerIp is written but never read, a connection's Role read
// but never written, a share's Path read from any share and written only for a folder.
#include <cstdio>

#include "quorlin/base/strings.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_schema_internal.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer_internal.hpp"

namespace quorlin {
namespace {

using schema::Field;
using schema::number;
using schema::read_only;
using schema::Schema;
using schema::share_list;
using schema::text;
using schema::text_list;
using schema::write_only;

void write_access_list(const AccessList& access_list, XmlOut& out);
void write_members(const PeerMemberList& members, XmlOut& out);

constexpr Field<ServiceState> kServiceStateFields[] = {
    text<&ServiceState::username>("Username"),
    number<&ServiceState::type>("Type"),
    number<&ServiceState::started>("Started"),
};
constexpr Schema<ServiceState> kServiceState{"ServiceState", kServiceStateFields};

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
constexpr Schema<PeerConnectionInfo> kPeerConnectionInfo{"PeerConnectionInfo",
                                                         kPeerConnectionInfoFields};

constexpr Field<Accessor> kAccessorFields[] = {
    text<&Accessor::name>("Name"),
    number<&Accessor::type>("Type"),
};
constexpr Schema<Accessor> kAccessor{"Accessor", kAccessorFields};

constexpr Field<Share> kShareFields[] = {
    text<&Share::name>("Name"),
    number<&Share::type>("Type"),
    {"AccessList",
     [](const Field<Share>&, const XmlNode& child, Share& share) {
       access_list_read(child, *share.access_list);
     },
     [](const Field<Share>&, const Share& share, XmlOut& out) {
       write_access_list(*share.access_list, out);
     }},
    {"Path", text<&Share::path>("Path").read,
     [](const Field<Share>& field, const Share& share, XmlOut& out) {
       if (share.type == SHARE_TYPE_FOLDER) text<&Share::path>("Path").write(field, share, out);
     }},
};
// The element's name varies with the share's type; see share_element_name.
constexpr Schema<Share> kShare{"", kShareFields};

constexpr Field<Notification> kNotificationFields[] = {
    number<&Notification::type>("Type"),
    text<&Notification::text>("Username"),
    text<&Notification::text2>("Member"),
    text<&Notification::text3>("PrevMember"),
};
constexpr Schema<Notification> kNotification{"Notification", kNotificationFields};

constexpr Field<PeerMember> kPeerMemberFields[] = {
    text<&PeerMember::peer>("Peer"),
    number<&PeerMember::status>("Status"),
    write_only(text<&PeerMember::peer_ip>("PeerIp")),
    number<&PeerMember::connect_status>("ConnectStatus"),
    share_list<&PeerMember::remote_shares>("RemoteShares"),
    text_list<&PeerMember::messages>("Messages", "Message"),
    number<&PeerMember::connect_count>("ConnectCount"),
};
constexpr Schema<PeerMember> kPeerMember{"PeerMember", kPeerMemberFields};

constexpr Field<PeerNetwork> kPeerNetworkFields[] = {
    number<&PeerNetwork::id>("Id"),
    number<&PeerNetwork::type>("Type"),
    text<&PeerNetwork::name>("Name"),
    {"PeerMembers",
     [](const Field<PeerNetwork>&, const XmlNode& child, PeerNetwork& network) {
       peer_member_list_read(child, network);
     },
     [](const Field<PeerNetwork>&, const PeerNetwork& network, XmlOut& out) {
       write_members(network.peer_members, out);
     }},
    share_list<&PeerNetwork::folder_shares>("FolderShares"),
    share_list<&PeerNetwork::connection_shares>("ConnectionShares"),
    number<&PeerNetwork::connect_status>("ConnectStatus"),
    number<&PeerNetwork::enable_sharing>("EnableSharing"),
    number<&PeerNetwork::enable_folder_sharing>("EnableFolderSharing"),
    number<&PeerNetwork::enable_connection_sharing>("EnableConnectionSharing"),
};
constexpr Schema<PeerNetwork> kPeerNetwork{"PeerNetwork", kPeerNetworkFields};

constexpr Field<AddNetworkRequest> kAddNetworkRequestFields[] = {
    text<&AddNetworkRequest::name>("Name"),
    text_list<&AddNetworkRequest::members>("Members", "Member"),
    number<&AddNetworkRequest::type>("Type"),
    number<&AddNetworkRequest::connection_type>("ConnectionType"),
};
constexpr Schema<AddNetworkRequest> kAddNetworkRequest{"AddNetworkRequest",
                                                       kAddNetworkRequestFields};

std::string_view share_element_name(int type) {
  if (type == SHARE_TYPE_FOLDER) return "FolderShare";
  if (type == SHARE_TYPE_CONNECTION) return "ConnectionShare";
  return "Share";
}

int share_type_of(std::string_view element_name) {
  if (element_name == "FolderShare") return SHARE_TYPE_FOLDER;
  if (element_name == "ConnectionShare") return SHARE_TYPE_CONNECTION;
  return 0;
}

template <typename Item, typename Write>
void write_items(const List<std::unique_ptr<Item>>& list, XmlOut& out, Write write) {
  // A null item (a child the reader did not recognise) has nothing to write.
  for (const auto& item : list) {
    if (item) write(*item, out);
  }
}

template <typename Item, typename Write>
void write_list(const List<std::unique_ptr<Item>>& list, std::string_view name, XmlOut& out,
                Write write) {
  out.open(name);
  write_items(list, out, write);
  out.close(name);
}

void write_accessor(const Accessor& accessor, XmlOut& out) {
  schema::write_record(kAccessor, accessor, kAccessor.element, out);
}

void write_access_list(const AccessList& access_list, XmlOut& out) {
  write_list(access_list.accessors, "AccessList", out, write_accessor);
}

void write_share(const Share& share, XmlOut& out) {
  schema::write_record(kShare, share, share_element_name(share.type), out);
}

void write_notification(const Notification& notification, XmlOut& out) {
  if (notification.type == NOTIFICATION_TYPE_MEMBER) {
    schema::write_record(kNotification, notification, kNotification.element, out);
  }
}

void write_member(const PeerMember& member, XmlOut& out) {
  schema::write_record(kPeerMember, member, kPeerMember.element, out);
}

void write_members(const PeerMemberList& members, XmlOut& out) {
  write_list(members, "PeerMembers", out, write_member);
}

void write_network(const PeerNetwork& network, XmlOut& out) {
  schema::write_record(kPeerNetwork, network, kPeerNetwork.element, out);
}

// Writers that append under a parent element.
template <typename Value, typename Write>
void write_under(XmlNode& parent, const Value& value, Write write) {
  XmlOut out(parent);
  write(value, out);
}

// A record as a new tree, and as text.
template <typename Record>
std::unique_ptr<XmlNode> record_tree(const Schema<Record>& schema, const Record& record) {
  std::unique_ptr<XmlNode> root = xml_node_new(schema.element);
  XmlOut out(*root);
  schema::write_fields(schema, record, out);
  return root;
}

template <typename Record>
std::string record_text(const Schema<Record>& schema, const Record& record) {
  std::string text;
  XmlOut out(text);
  schema::write_record(schema, record, schema.element, out);
  return text;
}

// A List of records as a new tree whose root is named `name`, and as text.
template <typename Item, typename Write>
std::unique_ptr<XmlNode> list_tree(const List<std::unique_ptr<Item>>& list, std::string_view name,
                                   Write write) {
  std::unique_ptr<XmlNode> root = xml_node_new(name);
  XmlOut out(*root);
  write_items(list, out, write);
  return root;
}

template <typename Item, typename Write>
std::string list_text(const List<std::unique_ptr<Item>>& list, std::string_view name, Write write) {
  std::string text;
  XmlOut out(text);
  write_list(list, name, out, write);
  return text;
}

// Parses `text`, reads its root with `read` and frees the tree; null when it does not parse.
template <typename Read>
auto parse_with(std::string_view text, Read read) -> decltype(read(std::declval<XmlNode&>())) {
  std::unique_ptr<XmlNode> root = xml_parse(text);
  if (!root) return nullptr;
  return read(*root);
}

// Reads the children of the root of `text` into `list` with `read` as the parser completes
// them, so that a long list never exists as a tree; only a root named `root_name` (any root
// when empty) has its children read. Returns the root's name, or std::nullopt, with `list`
// emptied, when the text does not parse.
template <typename Item, typename Read>
std::optional<std::string_view> read_children(std::string_view text, std::string_view root_name,
                                              List<Item>& list, Read read) {
  const auto root = xml_parse_children(text, [&](const XmlNode& parsed, const XmlNode& child) {
    if (root_name.empty() || xml_node_name(parsed) == root_name) read(child, list);
  });
  if (!root) list_clear(list);
  return root;
}

}  // namespace

// --- reading ---

int xml_text_int(const XmlNode& element) {
  // atoi is strtol narrowed; the narrowing keeps the low bits, as the C library does.
  return static_cast<int>(xml_text_long(element));
}

long xml_text_long(const XmlNode& element) {
  const auto text = xml_node_text(element);
  return text ? decimal_prefix(*text) : -1;
}

Text xml_text_dup(const XmlNode& element) {
  const auto text = xml_node_text(element);
  return text ? Text(*text) : std::nullopt;
}

std::unique_ptr<ServiceState> service_state_from_xml(const XmlNode& element) {
  return schema::read_record(kServiceState, element, service_state_new);
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_from_xml(const XmlNode& element) {
  return schema::read_record(kPeerConnectionInfo, element, peer_connection_info_new);
}

void accessor_read(const XmlNode& element, AccessorList& list) {
  auto make = [] { return std::make_unique<Accessor>(); };
  if (auto accessor = schema::read_record(kAccessor, element, make)) {
    list_append(list, std::move(accessor));
  }
}

void access_list_read(const XmlNode& element, AccessList& access_list) {
  for (const XmlNode& child : xml_node_children(element)) {
    accessor_read(child, access_list.accessors);
  }
}

void share_read(const XmlNode& element, ShareList& list) {
  auto share = share_new(std::nullopt, share_type_of(xml_node_name(element)));
  schema::read_fields(kShare, element, *share);
  list_append(list, std::move(share));
}

void share_list_read(const XmlNode& element, ShareList& list) {
  for (const XmlNode& child : xml_node_children(element)) share_read(child, list);
}

// A Notification element is read only from a Type child of 7 on, into the kind-7 record made
// without texts, which that constructor refuses: no element ever adds a notification, so every
// list read is empty. Only a text that does not parse gives no list.
void notification_read(const XmlNode&, NotificationList&) {}

std::unique_ptr<NotificationList> notification_list_from_xml(const XmlNode&) {
  return list_create<std::unique_ptr<Notification>>();
}

void string_list_read(const XmlNode& element, std::string_view list_name,
                      std::string_view item_name, TextList& list) {
  if (!same_bytes(xml_node_name(element), list_name)) return;
  for (const XmlNode& child : xml_node_children(element)) {
    if (same_bytes(xml_node_name(child), item_name)) list_append(list, xml_text_dup(child));
  }
}

std::unique_ptr<PeerMember> peer_member_from_xml(const XmlNode& element, PeerNetwork* network) {
  return schema::read_record(kPeerMember, element, [&] { return peer_member_new(network); });
}

void peer_member_list_read(const XmlNode& element, PeerNetwork& network) {
  if (!same_bytes(xml_node_name(element), "PeerMembers")) return;
  for (const XmlNode& child : xml_node_children(element)) {
    if (same_bytes(xml_node_name(child), kPeerMember.element)) {
      // The network is still being read: no other thread can reach its List yet.
      list_append_unlocked(network.peer_members, peer_member_from_xml(child, &network));
    }
  }
}

std::unique_ptr<PeerNetwork> peer_network_from_xml(const XmlNode& element) {
  return schema::read_record(kPeerNetwork, element, peer_network_new);
}

std::unique_ptr<PeerNetworkList> peer_network_list_from_xml(const XmlNode& element) {
  if (xml_node_name(element) != "PeerNetworks") return nullptr;
  auto list = list_create<std::unique_ptr<PeerNetwork>>();
  for (const XmlNode& child : xml_node_children(element)) {
    list_append(*list, peer_network_from_xml(child));
  }
  return list;
}

std::unique_ptr<AddNetworkRequest> add_network_request_from_xml(const XmlNode& element) {
  return schema::read_record(kAddNetworkRequest, element, add_network_request_empty);
}

std::unique_ptr<ServiceState> service_state_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return service_state_from_xml(root); });
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_connection_info_from_xml(root); });
}

std::unique_ptr<PeerNetworkList> peer_network_list_parse(std::string_view text) {
  auto list = list_create<std::unique_ptr<PeerNetwork>>();
  const bool read = peer_network_list_each(text, [&](std::unique_ptr<PeerNetwork> network) {
    list_append_unlocked(*list, std::move(network));
  });
  return read ? std::move(list) : nullptr;
}

bool peer_network_list_each(std::string_view text,
                            const std::function<void(std::unique_ptr<PeerNetwork>)>& each) {
  const auto root = xml_parse_children(text, [&](const XmlNode& parsed, const XmlNode& child) {
    if (xml_node_name(parsed) == "PeerNetworks") each(peer_network_from_xml(child));
  });
  return root == "PeerNetworks";
}

std::unique_ptr<PeerNetwork> peer_network_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_network_from_xml(root); });
}

std::unique_ptr<PeerMember> peer_member_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_member_from_xml(root, nullptr); });
}

std::unique_ptr<NotificationList> notification_list_parse(std::string_view text) {
  auto list = list_create<std::unique_ptr<Notification>>();
  if (!read_children(text, "Notifications", *list, notification_read)) return nullptr;
  return list;
}

std::unique_ptr<AddNetworkRequest> add_network_request_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return add_network_request_from_xml(root); });
}

std::unique_ptr<ShareList> share_list_parse(std::string_view text) {
  auto list = list_create<std::unique_ptr<Share>>();
  read_children(text, {}, *list, share_read);
  return list;
}

// --- writing ---

void xml_set_text_int(XmlNode& element, int number) {
  xml_node_set_text(element, str_from_long(number));
}

void xml_set_text_long(XmlNode& element, long number) {
  xml_node_set_text(element, str_from_long(number));
}

void schema::write_shares(const ShareList& list, std::string_view name, XmlOut& out) {
  write_list(list, name, out, write_share);
}

void schema::write_texts(const TextList* list, std::string_view name, std::string_view item,
                         XmlOut& out) {
  out.open(name);
  if (list != nullptr) {
    for (const Text& text : *list) out.element(item, text ? OptionalText(*text) : std::nullopt);
  }
  out.close(name);
}

void accessor_write(const Accessor& accessor, XmlNode& parent) {
  write_under(parent, accessor, write_accessor);
}

void access_list_write(const AccessList& access_list, XmlNode& parent) {
  write_under(parent, access_list, write_access_list);
}

void share_write(const Share& share, XmlNode& parent) {
  write_under(parent, share, write_share);
}

void share_list_write(const ShareList& list, std::string_view element_name, XmlNode& parent) {
  XmlOut out(parent);
  schema::write_shares(list, element_name, out);
}

std::unique_ptr<XmlNode> share_list_to_xml(const ShareList& list, std::string_view element_name) {
  return list_tree(list, element_name, write_share);
}

void notification_write(const Notification& notification, XmlNode& parent) {
  write_under(parent, notification, write_notification);
}

std::unique_ptr<XmlNode> notification_list_to_xml(const NotificationList& list) {
  return list_tree(list, "Notifications", write_notification);
}

void string_list_write(const TextList& list, std::string_view list_name, std::string_view item_name,
                       XmlNode& parent) {
  XmlOut out(parent);
  schema::write_texts(&list, list_name, item_name, out);
}

void peer_member_write(const PeerMember& member, XmlNode& parent) {
  write_under(parent, member, write_member);
}

std::unique_ptr<XmlNode> peer_member_to_xml(const PeerMember& member) {
  return record_tree(kPeerMember, member);
}

void peer_member_list_write(const PeerMemberList& list, XmlNode& parent) {
  write_under(parent, list, write_members);
}

void peer_network_write(const PeerNetwork& network, XmlNode& parent) {
  write_under(parent, network, write_network);
}

std::unique_ptr<XmlNode> peer_network_to_xml(const PeerNetwork& network) {
  return record_tree(kPeerNetwork, network);
}

std::unique_ptr<XmlNode> peer_network_list_to_xml(const PeerNetworkList& list) {
  return list_tree(list, "PeerNetworks", write_network);
}

std::unique_ptr<XmlNode> service_state_to_xml(const ServiceState& state) {
  return record_tree(kServiceState, state);
}

std::unique_ptr<XmlNode> peer_connection_info_to_xml(const PeerConnectionInfo& info) {
  return record_tree(kPeerConnectionInfo, info);
}

std::unique_ptr<XmlNode> add_network_request_to_xml(const AddNetworkRequest& request) {
  return record_tree(kAddNetworkRequest, request);
}

std::string add_network_request_to_text(OptionalText name, const TextList& members, int type,
                                        int connection_type) {
  AddNetworkRequest request{text_copy(name), list_create<Text>(), type, connection_type};
  for (const Text& member : members) list_append(*request.members, member);
  return add_network_request_to_text(request);
}

std::string add_network_request_to_text(const AddNetworkRequest& request) {
  return record_text(kAddNetworkRequest, request);
}

std::string share_list_to_text(const ShareList& list) {
  return list_text(list, "Shares", write_share);
}

std::string service_state_to_text(const ServiceState& state) {
  return record_text(kServiceState, state);
}

std::string peer_connection_info_to_text(const PeerConnectionInfo& info) {
  return record_text(kPeerConnectionInfo, info);
}

std::string notification_list_to_text(const NotificationList& list) {
  return list_text(list, "Notifications", write_notification);
}

std::string peer_network_list_to_text(const PeerNetworkList& list) {
  return list_text(list, "PeerNetworks", write_network);
}

std::string peer_network_to_text(const PeerNetwork& network) {
  return record_text(kPeerNetwork, network);
}

std::string peer_member_to_text(const PeerMember& member) {
  return record_text(kPeerMember, member);
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
