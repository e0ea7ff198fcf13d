/// @file
/// The catalogue of the service's operations: for each code, the request fields that follow
/// "p2pnet_command" in order, whether an XML document follows the form as a second line, and the
/// shape of the reply. The client's operations build their requests from it, the service
/// simulator reads requests by it, and quorlinctl names its commands after it.
#ifndef QUORLIN_CLIENT_CATALOGUE_HPP
#define QUORLIN_CLIENT_CATALOGUE_HPP

#include <array>
#include <cstddef>
#include <string_view>
#include "quorlin/base/api.hpp"

namespace quorlin {

enum ServiceCode : int {
  CODE_GET_SERVICE_STATE = 0,
  CODE_SET_SERVICE_TYPE = 1,
  CODE_GET_NETWORKS = 2,
  CODE_ADD_NETWORK = 3,
  CODE_INVITE_MEMBER = 5,
  CODE_DROP_NETWORK = 6,
  CODE_GET_CONNECTION_INFO = 7,
  CODE_POST_NETWORK_PEER = 8,
  CODE_GET_LOCAL_IP = 9,
  CODE_GET_PEER_IP = 10,
  CODE_SEND_CHAT_MESSAGE = 11,
  CODE_RECEIVE_CHAT_MESSAGE = 12,
  CODE_GET_NOTIFICATIONS = 13,
  CODE_SET_SHARES = 14,
  CODE_SET_CONNECTION_TYPE = 15,
};

/// The field that carries the operation code, first in every request.
inline constexpr std::string_view COMMAND_FIELD = "p2pnet_command";

/// The fields a request may carry after the code; numbers are written in decimal.
enum class RequestField {
  kNetwork,         ///< a network identifier
  kPeer,            ///< a peer name
  kEmail,           ///< the e-mail address of an invited person
  kChatMessage,     ///< a chat message's text
  kType,            ///< a type number (a network type; the service type)
  kConnectionType,  ///< a connection type number
  kShareType,       ///< a share type number
};

/// The name of each request field on the wire, in the order of RequestField.
inline constexpr std::array<std::string_view, 7> REQUEST_FIELD_NAMES = {
    "p2pnet_network", "p2pnet_peer",      "p2pnet_email",      "p2pnet_chat_mesg",
    "p2pnet_type",    "p2pnet_conn_type", "p2pnet_share_type",
};

/// The name of `field` on the wire.
constexpr std::string_view request_field_name(RequestField field) {
  return REQUEST_FIELD_NAMES[static_cast<std::size_t>(field)];
}

/// Whether a request field carries a number (else a text).
constexpr bool request_field_is_number(RequestField field) {
  return field == RequestField::kNetwork || field == RequestField::kType ||
         field == RequestField::kConnectionType || field == RequestField::kShareType;
}

/// The fields of a form reply.
inline constexpr std::string_view RETVAL_FIELD = "p2pnet_retval";
inline constexpr std::string_view CHAT_MESSAGE_FIELD = "p2pnet_chat_mesg";
inline constexpr std::string_view PEER_IP_FIELD = "p2pnet_peer_ip";
inline constexpr std::string_view LOCAL_IP_FIELD = "p2pnet_local_ip";

/// What the service answers.
enum class ReplyShape {
  kForm,      ///< a form line with "p2pnet_retval" (and, for get_connection_info, a document)
  kDocument,  ///< one XML document
  kNone,      ///< a line that is read and dropped
};

struct ServiceOperation {
  ServiceCode code;
  std::string_view name;  ///< the library function's name
  std::array<RequestField, 3> fields;
  std::size_t field_count;
  bool document_follows;  ///< an XML document goes out as a second line
  ReplyShape reply;
  std::string_view summary;  ///< one line for people
};

inline constexpr std::array<ServiceOperation, 15> SERVICE_OPERATIONS = {{
    {CODE_GET_SERVICE_STATE,
     "get_service_state",
     {RequestField::kType},
     1,
     false,
     ReplyShape::kDocument,
     "the service's state: user name, type and whether it has started"},
    {CODE_SET_SERVICE_TYPE,
     "set_service_type",
     {RequestField::kType},
     1,
     false,
     ReplyShape::kNone,
     "set the service's type"},
    {CODE_GET_NETWORKS,
     "get_networks",
     {RequestField::kType},
     1,
     false,
     ReplyShape::kDocument,
     "the networks of a type (0: all) and their members"},
    {CODE_ADD_NETWORK,
     "add_network",
     {},
     0,
     true,
     ReplyShape::kDocument,
     "create a network between members"},
    {CODE_INVITE_MEMBER,
     "invite_member",
     {RequestField::kNetwork, RequestField::kEmail},
     2,
     false,
     ReplyShape::kDocument,
     "invite a person into a network by e-mail address"},
    {CODE_DROP_NETWORK,
     "drop_network",
     {RequestField::kNetwork},
     1,
     false,
     ReplyShape::kNone,
     "drop a network"},
    {CODE_GET_CONNECTION_INFO,
     "get_connection_info",
     {RequestField::kNetwork, RequestField::kPeer},
     2,
     false,
     ReplyShape::kForm,
     "the facts of the connection to a peer of a network"},
    {CODE_POST_NETWORK_PEER,
     "post_network_peer",
     {RequestField::kNetwork, RequestField::kPeer},
     2,
     false,
     ReplyShape::kNone,
     "post a peer to a network"},
    {CODE_GET_LOCAL_IP,
     "get_local_ip",
     {},
     0,
     false,
     ReplyShape::kForm,
     "the local address in the virtual network"},
    {CODE_GET_PEER_IP,
     "get_peer_ip",
     {RequestField::kNetwork, RequestField::kPeer},
     2,
     false,
     ReplyShape::kForm,
     "a peer's address in a network"},
    {CODE_SEND_CHAT_MESSAGE,
     "send_chat_message",
     {RequestField::kNetwork, RequestField::kPeer, RequestField::kChatMessage},
     3,
     false,
     ReplyShape::kForm,
     "send a chat message to a peer"},
    {CODE_RECEIVE_CHAT_MESSAGE,
     "receive_chat_message",
     {RequestField::kNetwork, RequestField::kPeer},
     2,
     false,
     ReplyShape::kForm,
     "receive the oldest chat message from a peer"},
    {CODE_GET_NOTIFICATIONS,
     "get_notifications",
     {RequestField::kType},
     1,
     false,
     ReplyShape::kDocument,
     "the service's notifications of a type"},
    {CODE_SET_SHARES,
     "set_shares",
     {RequestField::kNetwork, RequestField::kShareType},
     2,
     true,
     ReplyShape::kNone,
     "set a network's folder or connection shares"},
    {CODE_SET_CONNECTION_TYPE,
     "set_connection_type",
     {RequestField::kType, RequestField::kConnectionType},
     2,
     false,
     ReplyShape::kNone,
     "set the connection type for a type"},
}};

/// The operation of `code`, or null for a code that names none (4 among them).
constexpr const ServiceOperation* service_operation(int code) {
  for (const ServiceOperation& operation : SERVICE_OPERATIONS) {
    if (operation.code == code) return &operation;
  }
  return nullptr;
}

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_CATALOGUE_HPP
