// The request cycle. A ServiceCall owns the Connection and the Form of one operation: it builds
// the request from the catalogue's fields for the code, and its destructor closes the Connection
// last, after the reply, the request document and the Form are gone, so every path keeps the
// clean-up order. Each operation records why it failed in the calling thread's last failure.
#include "quorlin/client/service.hpp"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <initializer_list>
#include <new>
#include <optional>
#include <string>

#include "quorlin/base/strings.hpp"
#include "quorlin/base/strings_internal.hpp"
#include "quorlin/client/form.hpp"
#include "quorlin/client/line_internal.hpp"
#include "quorlin/net/owned_descriptor_internal.hpp"
#include "quorlin/net/wait_internal.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"

namespace quorlin {
namespace {

thread_local ServiceFailure last_failure = ServiceFailure::kNone;

const ServiceOptions kDefaultOptions;

// The value of one request field: a number, written in decimal, or a text.
struct FieldValue {
  FieldValue(long number) : text(str_from_long(number)) {}  // NOLINT: a value, as written
  FieldValue(std::string_view value) : text(value) {}       // NOLINT
  std::string text;
};

// A Connection to the service as `options` place it: the plain connect (through the proxy when
// one is set) without a time-out, a direct connect that gives up after it with one.
Connection connect_for(const ServiceOptions& options) {
  if (options.timeout_ms == NO_TIMEOUT) {
    const Connection connection = connection_open(0, options.host.c_str(), options.port);
    if (connection < 0) last_failure = ServiceFailure::kUnreachable;
    return connection < 0 ? -1 : connection;
  }
  OwnedDescriptor descriptor(socket_open_any(0, false));
  const int connected = descriptor.get() < 0
                            ? -1
                            : connect_within(descriptor.get(), options.host.c_str(), options.port,
                                             options.timeout_ms);
  if (connected == 0) return descriptor.release();
  last_failure =
      connected == RECV_TIMED_OUT ? ServiceFailure::kTimedOut : ServiceFailure::kUnreachable;
  return -1;
}

// The call connects on construction and builds its form only when it is connected; each kind of
// call below returns its not-connected result itself. The Connection is owned from the moment it
// exists: whatever throws while the form is built or the reply read, it is closed.
class ServiceCall {
 public:
  ServiceCall(const ServiceOptions& options, ServiceCode code,
              std::initializer_list<FieldValue> values = {})
      : options_(options), connection_(connect_for(options), close_service_connection) {
    if (!connected()) return;
    const ServiceOperation& operation = *service_operation(code);
    assert(values.size() == operation.field_count);
    form_ = form_create(SERVICE_FORM_CAPACITY);
    form_add_int(*form_, COMMAND_FIELD, code);
    const FieldValue* value = values.begin();
    for (std::size_t i = 0; i < operation.field_count; ++i, ++value) {
      form_add_field(*form_, request_field_name(operation.fields[i]), value->text);
    }
  }

  bool connected() const { return connection_.get() >= 0; }

  // Sends the form line, then `document` as a second line when given, and reads the reply. A
  // send that fails shows up as a reply that is missing or cut short.
  ReceivedLine exchange(int& status, const std::string* document = nullptr) {
    form_send(connection_.get(), form_->text);
    if (document != nullptr) form_send(connection_.get(), *document);
    return next_line(status);
  }

  // The next line of the reply; a silence past the time-out is recorded as such.
  ReceivedLine next_line(int& status) {
    ReceivedLine line = receive_line(connection_.get(), options_.timeout_ms, status);
    if (status == RECV_TIMED_OUT) last_failure = ServiceFailure::kTimedOut;
    return line;
  }

  // Ends the call now and returns the close result (for the operations that report it).
  int close() { return connection_.close(); }

 private:
  const ServiceOptions& options_;
  // Declared before the form, so that it is closed after the form is gone.
  OwnedDescriptor connection_;
  std::unique_ptr<Form> form_;
};

// Runs one operation: the last failure starts as none, and running out of memory fails the
// operation the way an unusable reply does: the call's Connection is closed as the exception
// leaves it, and the operation gives `failure`.
template <typename Result, typename Operation>
Result run_operation(Result failure, Operation operation) {
  last_failure = ServiceFailure::kNone;
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    last_failure = ServiceFailure::kUnusableReply;
    return failure;
  }
}

// The "p2pnet_retval" of a parsed reply, converted as atoi does, or ERR_NO_RETVAL.
int retval_of(const FormFields& fields) {
  const auto retval = form_get(fields, RETVAL_FIELD);
  return retval ? static_cast<int>(decimal_prefix(*retval)) : ERR_NO_RETVAL;  // as atoi reads it
}

// Copies `value` into `buffer`, cut to fit, NUL-terminated.
void copy_bounded(std::span<char> buffer, std::string_view value) {
  if (buffer.empty()) return;
  std::size_t length = std::min(value.size(), buffer.size() - 1);
  std::copy_n(value.data(), length, buffer.data());
  buffer[length] = '\0';
}

// Why a record operation got no record from a reply line that `read` could not use: a form
// with a negative retval is the service's refusal; anything else is unusable.
void record_unusable(std::string_view reply) {
  FormFields fields;
  form_parse(fields, reply);
  const int retval = retval_of(fields);
  form_fields_clear(fields);
  last_failure = retval < 0 && retval != ERR_NO_RETVAL ? ServiceFailure::kRefused
                                                       : ServiceFailure::kUnusableReply;
}

// A record operation: the reply line goes to `read` only when it ended with LF.
template <typename Read>
auto document_call(ServiceCall& call, Read read, const std::string* document = nullptr)
    -> decltype(read(std::string_view())) {
  if (!call.connected()) return nullptr;
  int status = 0;
  const ReceivedLine reply = call.exchange(status, document);
  if (status <= 0) {
    if (status != RECV_TIMED_OUT) last_failure = ServiceFailure::kUnusableReply;
    return nullptr;
  }
  auto record = read(reply.text());
  if (!record) record_unusable(reply.text());
  return record;
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
  if (result == ERR_NO_RETVAL && last_failure == ServiceFailure::kNone) {
    last_failure = ServiceFailure::kUnusableReply;
  }
  on_fields(fields, result);
  form_fields_clear(fields);
  return result;
}

int form_call(ServiceCall& call) {
  return form_call(call, [](const FormFields&, int) {});
}

}  // namespace

ServiceFailure service_last_failure() {
  return last_failure;
}

Connection connect_to_service() {
  Connection connection = connection_open(0, SERVICE_HOST, SERVICE_PORT);
  return connection < 0 ? -1 : connection;
}

int close_service_connection(Connection connection) {
  return connection_close(connection);
}

std::unique_ptr<ServiceState> get_service_state(const ServiceOptions& options, int type) {
  return run_operation<std::unique_ptr<ServiceState>>(nullptr, [&] {
    ServiceCall call(options, CODE_GET_SERVICE_STATE, {type});
    return document_call(call, service_state_parse);
  });
}

int set_service_type(const ServiceOptions& options, int type) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_SET_SERVICE_TYPE, {type});
    return no_reply_call(call);
  });
}

std::unique_ptr<PeerNetworkList> get_networks(const ServiceOptions& options, int type) {
  return run_operation<std::unique_ptr<PeerNetworkList>>(nullptr, [&] {
    ServiceCall call(options, CODE_GET_NETWORKS, {type});
    return document_call(call, peer_network_list_parse);
  });
}

bool get_networks_each(const ServiceOptions& options, int type,
                       const std::function<void(std::unique_ptr<PeerNetwork> network)>& each) {
  return run_operation(false, [&] {
    ServiceCall call(options, CODE_GET_NETWORKS, {type});
    if (!call.connected()) return false;
    int status = 0;
    const ReceivedLine reply = call.exchange(status);
    if (status > 0 && peer_network_list_each(reply.text(), each)) return true;
    if (status > 0) {
      record_unusable(reply.text());
    } else if (status != RECV_TIMED_OUT) {
      last_failure = ServiceFailure::kUnusableReply;
    }
    return false;
  });
}

std::unique_ptr<PeerNetwork> add_network(const ServiceOptions& options, OptionalText name,
                                         const TextList& members, int type, int connection_type) {
  return run_operation<std::unique_ptr<PeerNetwork>>(nullptr, [&] {
    ServiceCall call(options, CODE_ADD_NETWORK);
    const std::string document = add_network_request_to_text(name, members, type, connection_type);
    return document_call(call, peer_network_parse, &document);
  });
}

std::unique_ptr<PeerMember> invite_member(const ServiceOptions& options, long network,
                                          std::string_view email) {
  return run_operation<std::unique_ptr<PeerMember>>(nullptr, [&] {
    ServiceCall call(options, CODE_INVITE_MEMBER, {network, email});
    return document_call(call, peer_member_parse);
  });
}

int drop_network(const ServiceOptions& options, long network) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_DROP_NETWORK, {network});
    return no_reply_call(call);
  });
}

int get_connection_info(const ServiceOptions& options, long network, std::string_view peer,
                        PeerConnectionInfo& info) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_GET_CONNECTION_INFO, {network, peer});
    return form_call(call, [&](const FormFields&, int result) {
      if (result < 0) return;
      int status = 0;
      const ReceivedLine second_line = call.next_line(status);
      if (status <= 0) return;
      if (auto parsed = peer_connection_info_parse(second_line.text())) info = *parsed;
    });
  });
}

int post_network_peer(const ServiceOptions& options, long network, std::string_view peer) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_POST_NETWORK_PEER, {network, peer});
    return no_reply_call(call);
  });
}

int get_local_ip(const ServiceOptions& options, std::span<char> buffer) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_GET_LOCAL_IP);
    return form_call(call, [&](const FormFields& fields, int result) {
      const auto ip = form_get(fields, LOCAL_IP_FIELD);
      if (result >= 0 && ip) copy_bounded(buffer, *ip);
    });
  });
}

int get_peer_ip(const ServiceOptions& options, long network, std::string_view peer,
                std::span<char> buffer) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_GET_PEER_IP, {network, peer});
    return form_call(call, [&](const FormFields& fields, int result) {
      const auto ip = form_get(fields, PEER_IP_FIELD);
      if (result >= 0 && ip) copy_bounded(buffer, *ip);
    });
  });
}

int send_chat_message(const ServiceOptions& options, long network, std::string_view peer,
                      std::string_view message) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_SEND_CHAT_MESSAGE, {network, peer, message});
    return form_call(call);
  });
}

int receive_chat_message(const ServiceOptions& options, long network, std::string_view peer,
                         std::span<char> buffer) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_RECEIVE_CHAT_MESSAGE, {network, peer});
    return form_call(call, [&](const FormFields& fields, int) {
      const auto message = form_get(fields, CHAT_MESSAGE_FIELD);
      if (form_get(fields, RETVAL_FIELD) && message) copy_bounded(buffer, *message);
    });
  });
}

std::unique_ptr<NotificationList> get_notifications(const ServiceOptions& options, int type) {
  return run_operation<std::unique_ptr<NotificationList>>(nullptr, [&] {
    ServiceCall call(options, CODE_GET_NOTIFICATIONS, {type});
    return document_call(call, notification_list_parse);
  });
}

int set_shares(const ServiceOptions& options, long network, int share_type,
               const ShareList& shares) {
  run_operation(0, [&] {
    ServiceCall call(options, CODE_SET_SHARES, {network, share_type});
    const std::string document = share_list_to_text(shares);
    return no_reply_call(call, &document);
  });
  return 0;  // whether or not the service was reached
}

int set_connection_type(const ServiceOptions& options, int type, int connection_type) {
  return run_operation(ERR_NO_RETVAL, [&] {
    ServiceCall call(options, CODE_SET_CONNECTION_TYPE, {type, connection_type});
    return no_reply_call(call);
  });
}

// The operations at the default options: 127.0.0.1:7000, no time-out.

std::unique_ptr<ServiceState> get_service_state(int type) {
  return get_service_state(kDefaultOptions, type);
}

int set_service_type(int type) {
  return set_service_type(kDefaultOptions, type);
}

std::unique_ptr<PeerNetworkList> get_networks(int type) {
  return get_networks(kDefaultOptions, type);
}

bool get_networks_each(int type,
                       const std::function<void(std::unique_ptr<PeerNetwork> network)>& each) {
  return get_networks_each(kDefaultOptions, type, each);
}

std::unique_ptr<PeerNetwork> add_network(OptionalText name, const TextList& members, int type,
                                         int connection_type) {
  return add_network(kDefaultOptions, name, members, type, connection_type);
}

std::unique_ptr<PeerMember> invite_member(long network, std::string_view email) {
  return invite_member(kDefaultOptions, network, email);
}

int drop_network(long network) {
  return drop_network(kDefaultOptions, network);
}

int get_connection_info(long network, std::string_view peer, PeerConnectionInfo& info) {
  return get_connection_info(kDefaultOptions, network, peer, info);
}

int post_network_peer(long network, std::string_view peer) {
  return post_network_peer(kDefaultOptions, network, peer);
}

int get_local_ip(std::span<char> buffer) {
  return get_local_ip(kDefaultOptions, buffer);
}

int get_peer_ip(long network, std::string_view peer, std::span<char> buffer) {
  return get_peer_ip(kDefaultOptions, network, peer, buffer);
}

int send_chat_message(long network, std::string_view peer, std::string_view message) {
  return send_chat_message(kDefaultOptions, network, peer, message);
}

int receive_chat_message(long network, std::string_view peer, std::span<char> buffer) {
  return receive_chat_message(kDefaultOptions, network, peer, buffer);
}

std::unique_ptr<NotificationList> get_notifications(int type) {
  return get_notifications(kDefaultOptions, type);
}

int set_shares(long network, int share_type, const ShareList& shares) {
  return set_shares(kDefaultOptions, network, share_type, shares);
}

int set_connection_type(int type, int connection_type) {
  return set_connection_type(kDefaultOptions, type, connection_type);
}

}  // namespace quorlin
