// Record readers: one loop per record over the element's children, dispatching on the name.
// Overwritten texts are freed by assignment; fixed connection-fact fields are cut to their size.
#include "quorlin/records/record_reader.hpp"

#include <cstdlib>

#include "quorlin/base/strings.hpp"
#include "quorlin/xml/xml_parser.hpp"

namespace quorlin {
namespace {

template <typename Visit>
void for_each_child(const XmlNode& element, Visit visit) {
  for (const XmlChild* child = xml_node_children(element).first; child != nullptr;
       child = child->next) {
    visit(child->item);
  }
}

// Parses `text`, reads its root with `read` and frees the tree; null when it does not parse.
template <typename Read>
auto parse_with(std::string_view text, Read read) -> decltype(read(std::declval<XmlNode&>())) {
  std::unique_ptr<XmlNode> root = xml_parse(text);
  if (!root) return nullptr;
  return read(*root);
}

}  // namespace

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
  if (xml_node_name(element) != "ServiceState") return nullptr;
  auto state = service_state_new();
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "Username") {
      state->username = xml_text_dup(child);
    } else if (xml_node_name(child) == "Type") {
      state->type = xml_text_int(child);
    } else if (xml_node_name(child) == "Started") {
      state->started = xml_text_int(child);
    }
  });
  return state;
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_from_xml(const XmlNode& element) {
  if (xml_node_name(element) != "PeerConnectionInfo") return nullptr;
  auto info = peer_connection_info_new();
  auto text_of = [](const XmlNode& child) { return xml_node_text(child); };
  for_each_child(element, [&](const XmlNode& child) {
    const std::string_view name = xml_node_name(child);
    if (name == "Peer") {
      copy_fixed_text(info->peer, text_of(child));
    } else if (name == "PeerIp") {
      copy_fixed_text(info->peer_ip, text_of(child));
    } else if (name == "PeerHostIp") {
      copy_fixed_text(info->peer_host_ip, text_of(child));
    } else if (name == "ConnectionTry") {
      info->connection_try = xml_text_int(child);
    } else if (name == "ConnectionProtocol") {
      info->connection_protocol = xml_text_int(child);
    } else if (name == "ConnectionDirection") {
      info->connection_direction = xml_text_int(child);
    } else if (name == "ConnectionMethod") {
      info->connection_method = xml_text_int(child);
    } else if (name == "Role") {
      info->role = xml_text_int(child);
    } else if (name == "Initiator") {
      info->initiator = xml_text_int(child);
    } else if (name == "EncryptionType") {
      info->encryption_type = xml_text_int(child);
    }
  });
  return info;
}

void accessor_read(const XmlNode& element, AccessorList& list) {
  if (xml_node_name(element) != "Accessor") return;
  auto accessor = std::make_unique<Accessor>();
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "Name") {
      accessor->name = xml_text_dup(child);
    } else if (xml_node_name(child) == "Type") {
      accessor->type = xml_text_int(child);
    }
  });
  list_append(list, std::move(accessor));
}

void access_list_read(const XmlNode& element, AccessList& access_list) {
  for_each_child(element,
                 [&](const XmlNode& child) { accessor_read(child, access_list.accessors); });
}

static int share_type_of(std::string_view element_name) {
  if (element_name == "FolderShare") return SHARE_TYPE_FOLDER;
  if (element_name == "ConnectionShare") return SHARE_TYPE_CONNECTION;
  return 0;
}

void share_read(const XmlNode& element, ShareList& list) {
  auto share = share_new(std::nullopt, share_type_of(xml_node_name(element)));
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "Name") {
      share->name = xml_text_dup(child);
    } else if (xml_node_name(child) == "Type") {
      share->type = xml_text_int(child);
    } else if (xml_node_name(child) == "AccessList") {
      access_list_read(child, *share->access_list);
    } else if (xml_node_name(child) == "Path") {
      share->path = xml_text_dup(child);  // kept for any type; only type 1 writes it back
    }
  });
  list_append(list, std::move(share));
}

void share_list_read(const XmlNode& element, ShareList& list) {
  for_each_child(element, [&](const XmlNode& child) { share_read(child, list); });
}

void notification_read(const XmlNode& element, NotificationList& list) {
  if (xml_node_name(element) != "Notification") return;
  int type = -1;
  std::unique_ptr<Notification> current;
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "Type") {
      type = xml_text_int(child);
      // Built from no texts, as the service's reader does: always null, so nothing is added.
      if (type == NOTIFICATION_TYPE_MEMBER) {
        current = notification_new_kind7(std::nullopt, std::nullopt, std::nullopt);
      }
    } else if (current && type == NOTIFICATION_TYPE_MEMBER) {
      if (xml_node_name(child) == "Username") current->text = xml_text_dup(child);
      if (xml_node_name(child) == "Member") current->text2 = xml_text_dup(child);
      if (xml_node_name(child) == "PrevMember") current->text3 = xml_text_dup(child);
    }
  });
  if (current) list_append(list, std::move(current));
}

std::unique_ptr<NotificationList> notification_list_from_xml(const XmlNode& element) {
  auto list = list_create<std::unique_ptr<Notification>>();
  if (xml_node_name(element) != "Notifications") return list;
  for_each_child(element, [&](const XmlNode& child) { notification_read(child, *list); });
  return list;
}

void string_list_read(const XmlNode& element, std::string_view list_name,
                      std::string_view item_name, TextList& list) {
  if (xml_node_name(element) != list_name) return;
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == item_name) list_append(list, xml_text_dup(child));
  });
}

std::unique_ptr<PeerMember> peer_member_from_xml(const XmlNode& element, PeerNetwork* network) {
  if (xml_node_name(element) != "PeerMember") return nullptr;
  auto member = peer_member_new(network);
  for_each_child(element, [&](const XmlNode& child) {
    const std::string_view name = xml_node_name(child);
    if (name == "Peer") {
      member->peer = xml_text_dup(child);
    } else if (name == "Status") {
      member->status = xml_text_int(child);
    } else if (name == "ConnectStatus") {
      member->connect_status = xml_text_int(child);
    } else if (name == "RemoteShares") {
      share_list_read(child, member->remote_shares);
    } else if (name == "Messages") {
      string_list_read(child, "Messages", "Message", member->messages);
    } else if (name == "ConnectCount") {
      member->connect_count = xml_text_int(child);
    }
  });
  return member;
}

void peer_member_list_read(const XmlNode& element, PeerNetwork& network) {
  if (xml_node_name(element) != "PeerMembers") return;
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "PeerMember") {
      list_append(network.peer_members, peer_member_from_xml(child, &network));
    }
  });
}

std::unique_ptr<PeerNetwork> peer_network_from_xml(const XmlNode& element) {
  if (xml_node_name(element) != "PeerNetwork") return nullptr;
  auto network = peer_network_new();
  for_each_child(element, [&](const XmlNode& child) {
    const std::string_view name = xml_node_name(child);
    if (name == "Id") {
      network->id = xml_text_long(child);
    } else if (name == "Type") {
      network->type = xml_text_int(child);
    } else if (name == "Name") {
      network->name = xml_text_dup(child);
    } else if (name == "PeerMembers") {
      peer_member_list_read(child, *network);
    } else if (name == "FolderShares") {
      share_list_read(child, network->folder_shares);
    } else if (name == "ConnectionShares") {
      share_list_read(child, network->connection_shares);
    } else if (name == "ConnectStatus") {
      network->connect_status = xml_text_int(child);
    } else if (name == "EnableSharing") {
      network->enable_sharing = xml_text_int(child);
    } else if (name == "EnableFolderSharing") {
      network->enable_folder_sharing = xml_text_int(child);
    } else if (name == "EnableConnectionSharing") {
      network->enable_connection_sharing = xml_text_int(child);
    }
  });
  return network;
}

std::unique_ptr<PeerNetworkList> peer_network_list_from_xml(const XmlNode& element) {
  if (xml_node_name(element) != "PeerNetworks") return nullptr;
  auto list = list_create<std::unique_ptr<PeerNetwork>>();
  for_each_child(element,
                 [&](const XmlNode& child) { list_append(*list, peer_network_from_xml(child)); });
  return list;
}

std::unique_ptr<AddNetworkRequest> add_network_request_from_xml(const XmlNode& element) {
  if (xml_node_name(element) != "AddNetworkRequest") return nullptr;
  auto request = add_network_request_empty();
  for_each_child(element, [&](const XmlNode& child) {
    if (xml_node_name(child) == "Name") {
      request->name = xml_text_dup(child);
    } else if (xml_node_name(child) == "Members") {
      string_list_read(child, "Members", "Member", *request->members);
    } else if (xml_node_name(child) == "Type") {
      request->type = xml_text_int(child);
    } else if (xml_node_name(child) == "ConnectionType") {
      request->connection_type = xml_text_int(child);
    }
  });
  return request;
}

std::unique_ptr<ServiceState> service_state_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return service_state_from_xml(root); });
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_connection_info_from_xml(root); });
}

std::unique_ptr<PeerNetworkList> peer_network_list_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_network_list_from_xml(root); });
}

std::unique_ptr<PeerNetwork> peer_network_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_network_from_xml(root); });
}

std::unique_ptr<PeerMember> peer_member_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return peer_member_from_xml(root, nullptr); });
}

std::unique_ptr<NotificationList> notification_list_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return notification_list_from_xml(root); });
}

std::unique_ptr<AddNetworkRequest> add_network_request_parse(std::string_view text) {
  return parse_with(text, [](const XmlNode& root) { return add_network_request_from_xml(root); });
}

std::unique_ptr<ShareList> share_list_parse(std::string_view text) {
  auto list = list_create<std::unique_ptr<Share>>();
  if (std::unique_ptr<XmlNode> root = xml_parse(text)) share_list_read(*root, *list);
  return list;
}

}  // namespace quorlin
