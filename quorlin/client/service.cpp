// The request cycle and the operation catalogue. A ServiceCall owns the Connection and the Form
// for one operation; its destructor closes the Connection last, after the reply, the request
// document and the Form are gone, so every path keeps the clean-up order.
#include "quorlin/client/service.hpp"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <optional>
#include <string>

#include "quorlin/base/strings.hpp"
#include "quorlin/client/form.hpp"
#include "quorlin/net/owned_descriptor_internal.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"

namespace quorlin {
namespace {

// One field of the request form: a number, written in decimal, or a text.
struct FormArgument {
  FormArgument(std::string_view name, long number) : name(name), value(str_from_long(number)) {}
  FormArgument(std::string_view name, std::string_view text) : name(name), value(text) {}
  std::string_view name;
  std::string value;
};

// The call connects on construction and builds its form only when it is connected; each kind of
// call below returns its not-connected result itself, so that no operation needs to ask. The
// Connection is owned from the moment it exists: whatever throws while the form is built or the
// reply read, it is closed.
class ServiceCall {
 public:
  ServiceCall(ServiceCode code, std::initializer_list<FormArgument> arguments = {})
      : connection_(connect_to_service(), close_service_connection) {
    if (!connected()) return;
    form_ = form_create(SERVICE_FORM_CAPACITY);
    form_add_int(*form_, "p2pnet_command", code);
    for (const FormArgument& argument : arguments) {
      form_add_field(*form_, argument.name, argument.value);
    }
  }

  bool connected() const { return connection_.get() >= 0; }
  Connection connection() const { return connection_.get(); }

  // Sends the form line, then `document` as a second line when given, and reads the reply. A
  // send that fails shows up as a reply that is missing or cut short.
  ReceivedLine exchange(int& status, const std::string* document = nullptr) {
    form_send(connection(), form_->text);
    if (document != nullptr) form_send(connection(), *document);
    return receive_line(connection(), NO_TIMEOUT, status);
  }

  // Ends the call now and returns the close result (for the operations that report it).
  int close() { return connection_.close(); }

 private:
  // Declared before the form, so that it is closed after the form is gone.
  OwnedDescriptor connection_;
  std::unique_ptr<Form> form_;
};

// Running out of memory fails an operation the way an unusable reply does: the call's Connection
// is closed as the exception leaves it, and the operation gives `failure`.
template <typename Result, typename Operation>
Result or_if_out_of_memory(Result failure, Operation operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return failure;
  }
}

// The "p2pnet_retval" of a parsed reply, converted as atoi does, or ERR_NO_RETVAL.
int retval_of(const FormFields& fields) {
  const auto retval = form_get(fields, "p2pnet_retval");
  return retval ? static_cast<int>(decimal_prefix(*retval)) : ERR_NO_RETVAL;  // as atoi reads it
}

// Copies `value` into `buffer`, cut to fit, NUL-terminated.
void copy_bounded(std::span<char> buffer, std::string_view value) {
  if (buffer.empty()) return;
  std::size_t length = std::min(value.size(), buffer.size() - 1);
  std::copy_n(value.data(), length, buffer.data());
  buffer[length] = '\0';
}

// A record operation: the reply line goes to `read` only when it ended with LF.
template <typename Read>
auto document_call(ServiceCall& call, Read read, const std::string* document = nullptr)
    -> decltype(read(std::string_view())) {
  if (!call.connected()) return nullptr;
  int status = 0;
  const ReceivedLine reply = call.exchange(status, document);
  if (status <= 0) return nullptr;
  return read(reply.text());
}

// An operation that wants no reply: it still waits for the reply line, then closes.
int no_reply_call(ServiceCall& call, const std::string* document = nullptr) {
  if (!call.connected()) return -1;
  int status = 0;
  call.exchange(status, document);
  return call.close();
}

// An integer operation; `on_fields` sees the parsed reply and the result before it is cleared.
template <typename OnFields>
int form_call(ServiceCall& call, OnFields on_fields) {
  if (!call.connected()) return ERR_SERVICE_UNREACHABLE;
  int status = 0;
  const ReceivedLine reply = call.exchange(status);
  FormFields fields;
  form_parse(fields, reply.text());
  int result = retval_of(fields);
  on_fields(fields, result);
  form_fields_clear(fields);
  return result;
}

int form_call(ServiceCall& call) {
  return form_call(call, [](const FormFields&, int) {});
}

}  // namespace

Connection connect_to_service() {
  Connection connection = connection_open(0, SERVICE_HOST, SERVICE_PORT);
  return connection < 0 ? -1 : connection;
}

int close_service_connection(Connection connection) {
  return connection_close(connection);
}

std::unique_ptr<ServiceState> get_service_state(int type) {
  return or_if_out_of_memory<std::unique_ptr<ServiceState>>(nullptr, [&] {
    ServiceCall call(CODE_GET_SERVICE_STATE, {{"p2pnet_type", type}});
    return document_call(call, service_state_parse);
  });
}

int set_service_type(int type) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_SET_SERVICE_TYPE, {{"p2pnet_type", type}});
    return no_reply_call(call);
  });
}

std::unique_ptr<PeerNetworkList> get_networks(int type) {
  return or_if_out_of_memory<std::unique_ptr<PeerNetworkList>>(nullptr, [&] {
    ServiceCall call(CODE_GET_NETWORKS, {{"p2pnet_type", type}});
    return document_call(call, peer_network_list_parse);
  });
}

bool get_networks_each(int type,
                       const std::function<void(std::unique_ptr<PeerNetwork> network)>& each) {
  return or_if_out_of_memory(false, [&] {
    ServiceCall call(CODE_GET_NETWORKS, {{"p2pnet_type", type}});
    if (!call.connected()) return false;
    int status = 0;
    const ReceivedLine reply = call.exchange(status);
    return status > 0 && peer_network_list_each(reply.text(), each);
  });
}

std::unique_ptr<PeerNetwork> add_network(OptionalText name, const TextList& members, int type,
                                         int connection_type) {
  return or_if_out_of_memory<std::unique_ptr<PeerNetwork>>(nullptr, [&] {
    ServiceCall call(CODE_ADD_NETWORK);
    const std::string document = add_network_request_to_text(name, members, type, connection_type);
    return document_call(call, peer_network_parse, &document);
  });
}

std::unique_ptr<PeerMember> invite_member(long network, std::string_view email) {
  return or_if_out_of_memory<std::unique_ptr<PeerMember>>(nullptr, [&] {
    ServiceCall call(CODE_INVITE_MEMBER, {{"p2pnet_network", network}, {"p2pnet_email", email}});
    return document_call(call, peer_member_parse);
  });
}

int drop_network(long network) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_DROP_NETWORK, {{"p2pnet_network", network}});
    return no_reply_call(call);
  });
}

int get_connection_info(long network, std::string_view peer, PeerConnectionInfo& info) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_GET_CONNECTION_INFO,
                     {{"p2pnet_network", network}, {"p2pnet_peer", peer}});
    return form_call(call, [&](const FormFields&, int result) {
      if (result < 0) return;
      int status = 0;
      const ReceivedLine second_line = receive_line(call.connection(), NO_TIMEOUT, status);
      if (status <= 0) return;
      if (auto parsed = peer_connection_info_parse(second_line.text())) info = *parsed;
    });
  });
}

int post_network_peer(long network, std::string_view peer) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_POST_NETWORK_PEER, {{"p2pnet_network", network}, {"p2pnet_peer", peer}});
    return no_reply_call(call);
  });
}

int get_local_ip(std::span<char> buffer) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_GET_LOCAL_IP);
    return form_call(call, [&](const FormFields& fields, int result) {
      const auto ip = form_get(fields, "p2pnet_local_ip");
      if (result >= 0 && ip) copy_bounded(buffer, *ip);
    });
  });
}

int get_peer_ip(long network, std::string_view peer, std::span<char> buffer) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_GET_PEER_IP, {{"p2pnet_network", network}, {"p2pnet_peer", peer}});
    return form_call(call, [&](const FormFields& fields, int result) {
      const auto ip = form_get(fields, "p2pnet_peer_ip");
      if (result >= 0 && ip) copy_bounded(buffer, *ip);
    });
  });
}

int send_chat_message(long network, std::string_view peer, std::string_view message) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(
        CODE_SEND_CHAT_MESSAGE,
        {{"p2pnet_network", network}, {"p2pnet_peer", peer}, {"p2pnet_chat_mesg", message}});
    return form_call(call);
  });
}

int receive_chat_message(long network, std::string_view peer, std::span<char> buffer) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_RECEIVE_CHAT_MESSAGE,
                     {{"p2pnet_network", network}, {"p2pnet_peer", peer}});
    return form_call(call, [&](const FormFields& fields, int) {
      const auto message = form_get(fields, "p2pnet_chat_mesg");
      if (form_get(fields, "p2pnet_retval") && message) copy_bounded(buffer, *message);
    });
  });
}

std::unique_ptr<NotificationList> get_notifications(int type) {
  return or_if_out_of_memory<std::unique_ptr<NotificationList>>(nullptr, [&] {
    ServiceCall call(CODE_GET_NOTIFICATIONS, {{"p2pnet_type", type}});
    return document_call(call, notification_list_parse);
  });
}

int set_shares(long network, int share_type, const ShareList& shares) {
  or_if_out_of_memory(0, [&] {
    ServiceCall call(CODE_SET_SHARES,
                     {{"p2pnet_network", network}, {"p2pnet_share_type", share_type}});
    const std::string document = share_list_to_text(shares);
    return no_reply_call(call, &document);
  });
  return 0;  // whether or not the service was reached
}

int set_connection_type(int type, int connection_type) {
  return or_if_out_of_memory(ERR_NO_RETVAL, [&] {
    ServiceCall call(CODE_SET_CONNECTION_TYPE,
                     {{"p2pnet_type", type}, {"p2pnet_conn_type", connection_type}});
    return no_reply_call(call);
  });
}

}  // namespace quorlin
