// Record constructors and the small operations that belong to records. Destruction is the
// types' own: unique_ptr items free themselves with their List nodes.
#include "quorlin/records/records.hpp"

#include "quorlin/base/pool_internal.hpp"

namespace quorlin {

// The records of a list are many and small (a few hundred bytes), made together and freed
// together: each kind's new and delete carve them from the pool.
#define QUORLIN_POOLED_STORAGE(Record)           \
  void* Record::operator new(std::size_t size) { \
    return pool_allocate(size);                  \
  }                                              \
  void Record::operator delete(void* memory) {   \
    pool_free(memory);                           \
  }
QUORLIN_POOLED_STORAGE(Accessor)
QUORLIN_POOLED_STORAGE(AccessList)
QUORLIN_POOLED_STORAGE(Share)
QUORLIN_POOLED_STORAGE(PeerMember)
QUORLIN_POOLED_STORAGE(PeerNetwork)
#undef QUORLIN_POOLED_STORAGE

// Default-initialised rather than value-initialised: the member initialisers are all there is to
// set, and a list of thousands of records does not pay for zeroing each one first.
std::unique_ptr<PeerNetwork> peer_network_new() {
  return std::unique_ptr<PeerNetwork>(new PeerNetwork);
}

std::unique_ptr<PeerMember> peer_member_new(PeerNetwork* network) {
  auto member = std::unique_ptr<PeerMember>(new PeerMember);
  member->network = network;
  return member;
}

bool peer_member_is_connected(const PeerMember& member) {
  return member.connect_status == MEMBER_CONNECTED;
}

void peer_member_push_message(PeerMember& member, OptionalText text) {
  std::lock_guard hold(member.messages.lock);
  if (list_count(member.messages) >= MAX_QUEUED_MESSAGES) peer_member_pop_message(member);
  list_append(member.messages, text_copy(text));
}

Text peer_member_pop_message(PeerMember& member) {
  std::lock_guard hold(member.messages.lock);
  TextList::Node* oldest = member.messages.first;
  if (oldest == nullptr) return std::nullopt;
  Text text = std::move(oldest->item);
  list_remove_node(member.messages, oldest);
  return text;
}

void peer_member_clear_messages(PeerMember& member) {
  list_clear(member.messages);
}

AccessorList& share_init(Share& share, OptionalText name, int type) {
  share.name = text_copy(name);
  share.type = type;
  share.access_list = access_list_new();
  return share.access_list->accessors;
}

std::unique_ptr<Share> share_new(OptionalText name, int type) {
  auto share = std::make_unique<Share>();
  share_init(*share, name, type);
  return share;
}

std::unique_ptr<Share> folder_share_new(OptionalText name, OptionalText path) {
  auto share = share_new(name, SHARE_TYPE_FOLDER);
  share->path = text_copy(path);
  return share;
}

std::unique_ptr<Share> connection_share_new() {
  return share_new(CONNECTION_SHARE_NAME, SHARE_TYPE_CONNECTION);
}

void share_add_accessor(Share& share, std::unique_ptr<Accessor> accessor) {
  list_append(share.access_list->accessors, std::move(accessor));
}

void share_list_clear(ShareList* list) {
  if (list != nullptr) list_clear(*list);
}

std::unique_ptr<AccessList> access_list_new() {
  return std::make_unique<AccessList>();
}

void notification_set_kind(Notification& notification, int type, OptionalText text) {
  notification.type = type;
  notification.text = text_copy(text);
}

std::unique_ptr<Notification> notification_new_kind7(OptionalText username, OptionalText member,
                                                     OptionalText prev_member) {
  if (!username || !member || !prev_member) return nullptr;
  auto notification = std::make_unique<Notification>();
  notification_set_kind(*notification, NOTIFICATION_TYPE_MEMBER, username);
  notification->text2 = text_copy(member);
  notification->text3 = text_copy(prev_member);
  return notification;
}

std::unique_ptr<Notification> notification_new_kind4(OptionalText text, int number) {
  if (!text) return nullptr;
  auto notification = std::make_unique<Notification>();
  notification_set_kind(*notification, 4, text);
  notification->number = number;
  return notification;
}

std::unique_ptr<Notification> notification_new_kind2(OptionalText text, OptionalText text2,
                                                     int number) {
  if (!text || !text2) return nullptr;
  auto notification = std::make_unique<Notification>();
  notification_set_kind(*notification, 2, text);
  notification->text2 = text_copy(text2);
  notification->number = number;
  return notification;
}

std::unique_ptr<ServiceState> service_state_new() {
  return std::make_unique<ServiceState>();
}

std::unique_ptr<PeerConnectionInfo> peer_connection_info_new() {
  return std::make_unique<PeerConnectionInfo>(PeerConnectionInfo{});
}

std::unique_ptr<AddNetworkRequest> add_network_request_empty() {
  auto request = std::make_unique<AddNetworkRequest>();
  request->members = list_create<Text>();
  return request;
}

std::unique_ptr<AddNetworkRequest> add_network_request_new(Text name,
                                                           std::unique_ptr<TextList> members,
                                                           int type, int connection_type) {
  auto request = std::make_unique<AddNetworkRequest>();
  request->name = std::move(name);
  request->members = std::move(members);
  request->type = type;
  request->connection_type = connection_type;
  return request;
}

}  // namespace quorlin
