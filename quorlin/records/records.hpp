/// @file
/// The records the service exchanges: networks, members, shares with their access lists,
/// notifications, the service state, connection facts and the request that creates a network.
///
/// Ownership follows the tree: a PeerNetwork owns its members and shares, a PeerMember its remote
/// shares and queued messages, a Share its AccessList and Accessors; destroying the top frees
/// everything below it once. A member's `network` points up to its owner and is never owned.
/// Texts are std::optional: null and empty are different values on the wire. The records that
/// come in lists take their storage from the library's pool (their own operator new), so that
/// reading a long list costs no malloc per record; `new`, `delete` and unique_ptr work on them
/// as on any object.
///
/// Locking: only the member message queue locks (the Messages List's own recursive lock), so
/// that push, pop and clear keep the bound when several threads use one member. Everything else
/// belongs to one thread at a time.
#ifndef QUORLIN_RECORDS_RECORDS_HPP
#define QUORLIN_RECORDS_RECORDS_HPP

#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/base/list.hpp"
#include "quorlin/base/recursive_lock.hpp"

namespace quorlin {

inline constexpr int SHARE_TYPE_FOLDER = 1;
inline constexpr int SHARE_TYPE_CONNECTION = 3;
inline constexpr int MAX_QUEUED_MESSAGES = 100;
inline constexpr char CONNECTION_SHARE_NAME[] = "Connection";
inline constexpr int MEMBER_CONNECTED = 1;
inline constexpr int NOTIFICATION_TYPE_MEMBER = 7;

using Text = std::optional<std::string>;
using OptionalText = std::optional<std::string_view>;
using TextList = List<Text>;  ///< a null item is a text that was absent

struct Accessor {
  QUORLIN_API static void* operator new(std::size_t size);  ///< from the library's pool
  QUORLIN_API static void operator delete(void* memory);    ///< back to the pool

  Text name;
  int type = 0;  ///< 0: allowed
};
using AccessorList = List<std::unique_ptr<Accessor>>;

struct AccessList {
  QUORLIN_API static void* operator new(std::size_t size);  ///< from the library's pool
  QUORLIN_API static void operator delete(void* memory);    ///< back to the pool

  AccessorList accessors;
};

struct Share {
  QUORLIN_API static void* operator new(std::size_t size);  ///< from the library's pool
  QUORLIN_API static void operator delete(void* memory);    ///< back to the pool

  Text name;
  int type = 0;
  std::unique_ptr<AccessList> access_list;
  Text path;  ///< written only for SHARE_TYPE_FOLDER
};
using ShareList = List<std::unique_ptr<Share>>;

struct PeerNetwork;

struct PeerMember {
  QUORLIN_API static void* operator new(std::size_t size);  ///< from the library's pool
  QUORLIN_API static void operator delete(void* memory);    ///< back to the pool

  PeerNetwork* network = nullptr;  ///< the owner, not owned
  Text peer;
  int status = 0;  ///< set by readers only when the document has it
  Text peer_ip;
  int connect_status = 0;
  ShareList remote_shares;
  TextList messages;          ///< oldest first
  RecursiveLock first_lock;   ///< kept for callers; the library never takes it
  RecursiveLock second_lock;  ///< likewise
  int connect_count = 0;
  int spare_count = 0;
};
using PeerMemberList = List<std::unique_ptr<PeerMember>>;

struct PeerNetwork {
  QUORLIN_API static void* operator new(std::size_t size);  ///< from the library's pool
  QUORLIN_API static void operator delete(void* memory);    ///< back to the pool

  long id = 0;
  int type = 0;
  Text name;
  PeerMemberList peer_members;
  ShareList folder_shares;
  ShareList connection_shares;
  int connect_status = 0;
  int enable_sharing = 0;
  int enable_folder_sharing = 0;
  int enable_connection_sharing = 0;
};
/// A network list read from a document holds a null item for every child that is not a network.
using PeerNetworkList = List<std::unique_ptr<PeerNetwork>>;

/// Type 7: text = Username, text2 = Member, text3 = PrevMember.
/// Type 2: text, text2 and number.  Type 4: text and number.
struct Notification {
  int type = 0;
  Text text;
  Text text2;
  Text text3;
  int number = 0;
};
using NotificationList = List<std::unique_ptr<Notification>>;

struct ServiceState {
  int type = -1;  ///< -1: not known yet
  Text username;
  int started = 0;
};

/// A flat value: copied whole. Each text field keeps a terminating NUL inside its size.
struct PeerConnectionInfo {
  char peer[255];
  char peer_ip[48];
  char peer_host_ip[48];
  int connection_try;
  int connection_protocol;
  int connection_direction;
  int connection_method;
  int role;
  int initiator;
  int encryption_type;
};

struct AddNetworkRequest {
  Text name;
  std::unique_ptr<TextList> members;
  int type = 0;
  int connection_type = 0;
};

// --- networks and members ---

/// A network with every field empty, zero or absent and no members.
QUORLIN_API std::unique_ptr<PeerNetwork> peer_network_new();

/// `network` may be null; the member never frees it.
QUORLIN_API std::unique_ptr<PeerMember> peer_member_new(PeerNetwork* network);

/// Whether the member's connect_status is MEMBER_CONNECTED.
QUORLIN_API bool peer_member_is_connected(const PeerMember& member);

/// Appends a copy of `text`; when MAX_QUEUED_MESSAGES or more are queued the oldest is dropped
/// first, all under the Messages List's lock. Safe from several threads.
QUORLIN_API void peer_member_push_message(PeerMember& member, OptionalText text);

/// Removes and returns the oldest text; null when the queue is empty (or the item was null).
QUORLIN_API Text peer_member_pop_message(PeerMember& member);

/// Empties the queue under its lock.
QUORLIN_API void peer_member_clear_messages(PeerMember& member);

// --- shares ---

/// Sets name (copied, null stays null) and type and gives the share a new empty AccessList;
/// returns that List. The path is not touched.
QUORLIN_API AccessorList& share_init(Share& share, OptionalText name, int type);

/// A share as share_init leaves it.
QUORLIN_API std::unique_ptr<Share> share_new(OptionalText name, int type);
/// A folder share (type SHARE_TYPE_FOLDER) with a copy of `path`.
QUORLIN_API std::unique_ptr<Share> folder_share_new(OptionalText name, OptionalText path);
/// The share named CONNECTION_SHARE_NAME of type SHARE_TYPE_CONNECTION.
QUORLIN_API std::unique_ptr<Share> connection_share_new();

/// The share takes the accessor.
QUORLIN_API void share_add_accessor(Share& share, std::unique_ptr<Accessor> accessor);

/// Frees every share and empties the List; null does nothing.
QUORLIN_API void share_list_clear(ShareList* list);

/// An AccessList without accessors.
QUORLIN_API std::unique_ptr<AccessList> access_list_new();

// --- notifications ---

/// Sets the type and replaces the text with a copy of `text` (null stays null).
QUORLIN_API void notification_set_kind(Notification& notification, int type, OptionalText text);

///@{
/// Each returns null, allocating nothing, when a text it needs is null.
QUORLIN_API std::unique_ptr<Notification> notification_new_kind7(OptionalText username,
                                                                 OptionalText member,
                                                                 OptionalText prev_member);
QUORLIN_API std::unique_ptr<Notification> notification_new_kind4(OptionalText text, int number);
QUORLIN_API std::unique_ptr<Notification> notification_new_kind2(OptionalText text,
                                                                 OptionalText text2, int number);
///@}

// --- service state, connection facts, network requests ---

/// A state with every field zero or absent.
QUORLIN_API std::unique_ptr<ServiceState> service_state_new();
QUORLIN_API std::unique_ptr<PeerConnectionInfo> peer_connection_info_new();  ///< zero-filled

/// Copies `text` into a fixed field, cut to leave room for the NUL; null leaves it empty.
template <std::size_t N>
void copy_fixed_text(char (&field)[N], OptionalText text) {
  std::size_t length = text ? std::min(text->size(), N - 1) : 0;
  if (length > 0) text->copy(field, length);
  field[length] = '\0';
}

/// A request without name, with an empty members List, type and connection type 0.
QUORLIN_API std::unique_ptr<AddNetworkRequest> add_network_request_empty();

/// Stores `name` and `members` as given, without copying.
QUORLIN_API std::unique_ptr<AddNetworkRequest> add_network_request_new(
    Text name, std::unique_ptr<TextList> members, int type, int connection_type);

/// A copy of `text`; null stays null.
inline Text text_copy(OptionalText text) {
  return text ? Text(std::in_place, *text) : std::nullopt;
}

}  // namespace quorlin

#endif  // QUORLIN_RECORDS_RECORDS_HPP
