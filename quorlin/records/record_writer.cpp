// Record writers: each adds its children in the record's fixed order.
#include "quorlin/records/record_writer.hpp"

#include <cstdio>

#include "quorlin/base/strings.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace quorlin {
namespace {

void add_text(XmlNode& parent, std::string_view name, const Text& text) {
  xml_node_set_text(xml_add_element(parent, name), text ? OptionalText(*text) : std::nullopt);
}

void add_int(XmlNode& parent, std::string_view name, int number) {
  xml_set_text_int(xml_add_element(parent, name), number);
}

void add_fixed(XmlNode& parent, std::string_view name, const char* field) {
  xml_node_set_text(xml_add_element(parent, name), std::string_view(field));
}

template <typename Record, typename Build>
std::string to_text(const Record& record, Build build) {
  std::unique_ptr<XmlNode> tree = build(record);
  return xml_to_string(*tree);
}

const char* share_element_name(int type) {
  if (type == SHARE_TYPE_FOLDER) return "FolderShare";
  if (type == SHARE_TYPE_CONNECTION) return "ConnectionShare";
  return "Share";
}

}  // namespace

void xml_set_text_int(XmlNode& element, int number) {
  xml_node_set_text(element, str_from_long(number));
}

void xml_set_text_long(XmlNode& element, long number) {
  xml_node_set_text(element, str_from_long(number));
}

void accessor_write(const Accessor& accessor, XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, "Accessor");
  add_text(element, "Name", accessor.name);
  add_int(element, "Type", accessor.type);
}

void access_list_write(const AccessList& access_list, XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, "AccessList");
  for (auto* node = access_list.accessors.first; node != nullptr; node = node->next) {
    if (node->item) accessor_write(*node->item, element);
  }
}

void share_write(const Share& share, XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, share_element_name(share.type));
  add_text(element, "Name", share.name);
  add_int(element, "Type", share.type);
  access_list_write(*share.access_list, element);
  if (share.type == SHARE_TYPE_FOLDER) add_text(element, "Path", share.path);
}

void share_list_write(const ShareList& list, std::string_view element_name, XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, element_name);
  for (auto* node = list.first; node != nullptr; node = node->next) {
    if (node->item) share_write(*node->item, element);
  }
}

std::unique_ptr<XmlNode> share_list_to_xml(const ShareList& list, std::string_view element_name) {
  auto root = xml_node_new(element_name);
  for (auto* node = list.first; node != nullptr; node = node->next) {
    if (node->item) share_write(*node->item, *root);
  }
  return root;
}

void notification_write(const Notification& notification, XmlNode& parent) {
  if (notification.type != NOTIFICATION_TYPE_MEMBER) return;
  XmlNode& element = xml_add_element(parent, "Notification");
  add_int(element, "Type", notification.type);
  add_text(element, "Username", notification.text);
  add_text(element, "Member", notification.text2);
  add_text(element, "PrevMember", notification.text3);
}

std::unique_ptr<XmlNode> notification_list_to_xml(const NotificationList& list) {
  auto root = xml_node_new("Notifications");
  for (auto* node = list.first; node != nullptr; node = node->next) {
    if (node->item) notification_write(*node->item, *root);
  }
  return root;
}

void string_list_write(const TextList& list, std::string_view list_name, std::string_view item_name,
                       XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, list_name);
  for (auto* node = list.first; node != nullptr; node = node->next) {
    add_text(element, item_name, node->item);
  }
}

// Fills `element` with the member's children; shared by the builder and the writer.
static void peer_member_fill(const PeerMember& member, XmlNode& element) {
  add_text(element, "Peer", member.peer);
  add_int(element, "Status", member.status);
  add_text(element, "PeerIp", member.peer_ip);
  add_int(element, "ConnectStatus", member.connect_status);
  share_list_write(member.remote_shares, "RemoteShares", element);
  string_list_write(member.messages, "Messages", "Message", element);
  add_int(element, "ConnectCount", member.connect_count);
}

void peer_member_write(const PeerMember& member, XmlNode& parent) {
  peer_member_fill(member, xml_add_element(parent, "PeerMember"));
}

std::unique_ptr<XmlNode> peer_member_to_xml(const PeerMember& member) {
  auto root = xml_node_new("PeerMember");
  peer_member_fill(member, *root);
  return root;
}

void peer_member_list_write(const PeerMemberList& list, XmlNode& parent) {
  XmlNode& element = xml_add_element(parent, "PeerMembers");
  for (auto* node = list.first; node != nullptr; node = node->next) {
    if (node->item) peer_member_write(*node->item, element);
  }
}

static void peer_network_fill(const PeerNetwork& network, XmlNode& element) {
  xml_set_text_long(xml_add_element(element, "Id"), network.id);
  add_int(element, "Type", network.type);
  add_text(element, "Name", network.name);
  peer_member_list_write(network.peer_members, element);
  share_list_write(network.folder_shares, "FolderShares", element);
  share_list_write(network.connection_shares, "ConnectionShares", element);
  add_int(element, "ConnectStatus", network.connect_status);
  add_int(element, "EnableSharing", network.enable_sharing);
  add_int(element, "EnableFolderSharing", network.enable_folder_sharing);
  add_int(element, "EnableConnectionSharing", network.enable_connection_sharing);
}

void peer_network_write(const PeerNetwork& network, XmlNode& parent) {
  peer_network_fill(network, xml_add_element(parent, "PeerNetwork"));
}

std::unique_ptr<XmlNode> peer_network_to_xml(const PeerNetwork& network) {
  auto root = xml_node_new("PeerNetwork");
  peer_network_fill(network, *root);
  return root;
}

std::unique_ptr<XmlNode> peer_network_list_to_xml(const PeerNetworkList& list) {
  auto root = xml_node_new("PeerNetworks");
  // A null item (a child the reader did not recognise) has nothing to write.
  for (auto* node = list.first; node != nullptr; node = node->next) {
    if (node->item) peer_network_write(*node->item, *root);
  }
  return root;
}

std::unique_ptr<XmlNode> service_state_to_xml(const ServiceState& state) {
  auto root = xml_node_new("ServiceState");
  add_text(*root, "Username", state.username);
  add_int(*root, "Type", state.type);
  add_int(*root, "Started", state.started);
  return root;
}

std::unique_ptr<XmlNode> peer_connection_info_to_xml(const PeerConnectionInfo& info) {
  auto root = xml_node_new("PeerConnectionInfo");
  add_fixed(*root, "Peer", info.peer);
  add_fixed(*root, "PeerIp", info.peer_ip);
  add_fixed(*root, "PeerHostIp", info.peer_host_ip);
  add_int(*root, "ConnectionTry", info.connection_try);
  add_int(*root, "ConnectionProtocol", info.connection_protocol);
  add_int(*root, "ConnectionDirection", info.connection_direction);
  add_int(*root, "ConnectionMethod", info.connection_method);
  add_int(*root, "Initiator", info.initiator);  // Role is read but never written
  add_int(*root, "EncryptionType", info.encryption_type);
  return root;
}

static std::unique_ptr<XmlNode> add_network_request_tree(const Text& name, const TextList* members,
                                                         int type, int connection_type) {
  auto root = xml_node_new("AddNetworkRequest");
  add_text(*root, "Name", name);
  if (members != nullptr) {
    string_list_write(*members, "Members", "Member", *root);
  } else {
    xml_add_element(*root, "Members");
  }
  add_int(*root, "Type", type);
  add_int(*root, "ConnectionType", connection_type);
  return root;
}

std::unique_ptr<XmlNode> add_network_request_to_xml(const AddNetworkRequest& request) {
  return add_network_request_tree(request.name, request.members.get(), request.type,
                                  request.connection_type);
}

std::string add_network_request_to_text(OptionalText name, const TextList& members, int type,
                                        int connection_type) {
  return xml_to_string(*add_network_request_tree(text_copy(name), &members, type, connection_type));
}

std::string add_network_request_to_text(const AddNetworkRequest& request) {
  return to_text(request, add_network_request_to_xml);
}

std::string share_list_to_text(const ShareList& list) {
  return xml_to_string(*share_list_to_xml(list, "Shares"));
}

std::string service_state_to_text(const ServiceState& state) {
  return to_text(state, service_state_to_xml);
}

std::string peer_connection_info_to_text(const PeerConnectionInfo& info) {
  return to_text(info, peer_connection_info_to_xml);
}

std::string notification_list_to_text(const NotificationList& list) {
  return to_text(list, notification_list_to_xml);
}

std::string peer_network_list_to_text(const PeerNetworkList& list) {
  return to_text(list, peer_network_list_to_xml);
}

std::string peer_network_to_text(const PeerNetwork& network) {
  return to_text(network, peer_network_to_xml);
}

std::string peer_member_to_text(const PeerMember& member) {
  return to_text(member, peer_member_to_xml);
}

std::string access_list_allow_text(const AccessList& access_list) {
  std::size_t allowed = 0;
  std::size_t name_bytes = 0;
  for (auto* node = access_list.accessors.first; node != nullptr; node = node->next) {
    if (node->item && node->item->type == 0) {
      ++allowed;
      name_bytes += node->item->name ? node->item->name->size() : 0;
    }
  }
  std::string text;
  text.reserve((allowed + 1) * 20 + name_bytes);
  text += "<Access>";
  for (auto* node = access_list.accessors.first; node != nullptr; node = node->next) {
    if (!node->item || node->item->type != 0) continue;
    text += "<Allow>";
    if (node->item->name) text += *node->item->name;
    text += "</Allow>";
  }
  text += "</Access>";
  std::printf("acxml %s\n", text.c_str());
  return text;
}

}  // namespace quorlin
