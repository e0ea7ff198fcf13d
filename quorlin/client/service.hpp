/// @file
/// The service operations: one short conversation per call with the local service on
/// 127.0.0.1:7000 over a Connection of its own: a form line (and, for add_network and set_shares,
/// an XML line), one reply line, then the Connection is closed on every path.
///
/// Results: integer operations give ERR_SERVICE_UNREACHABLE (-400), ERR_NO_RETVAL (-601) or the
/// service's "p2pnet_retval"; operations that want no reply give -1 (not connected) or the close
/// result; record operations give null unless the reply line ended with LF and held the expected
/// document. An operation that cannot allocate fails as one with an unusable reply does: null,
/// or ERR_NO_RETVAL from every integer operation but set_shares (always 0); its Connection is
/// closed all the same. Replies are awaited without a time-out unless ServiceOptions give one;
/// service_last_failure() tells why the last operation failed. Values copied into caller buffers
/// are cut to the buffer and always NUL-terminated. Nothing is printed; calls share no state, so
/// several threads may call at once.
#ifndef QUORLIN_CLIENT_SERVICE_HPP
#define QUORLIN_CLIENT_SERVICE_HPP

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/client/catalogue.hpp"
#include "quorlin/net/connection.hpp"
#include "quorlin/records/records.hpp"

namespace quorlin {

inline constexpr char SERVICE_HOST[] = "127.0.0.1";
inline constexpr int SERVICE_PORT = 7000;
inline constexpr int ERR_SERVICE_UNREACHABLE = -400;
inline constexpr int ERR_NO_RETVAL = -601;
inline constexpr std::size_t SERVICE_FORM_CAPACITY = 1024;

/// Where the service is and how long to wait for it. The operations that take no options use
/// these defaults.
struct ServiceOptions {
  std::string host = SERVICE_HOST;  ///< a dotted IPv4 address
  int port = SERVICE_PORT;
  /// Milliseconds for the connect and for each reply line; NO_TIMEOUT waits without limit. With a
  /// time-out the connect is made directly, never through the process-wide proxy.
  int timeout_ms = NO_TIMEOUT;
};

/// Why the calling thread's last operation did not get what it asked for.
enum class ServiceFailure {
  kNone,           ///< the service answered (an integer result may still be its refusal)
  kUnreachable,    ///< no connection could be made
  kRefused,        ///< a record was asked for and the service answered a negative retval
  kUnusableReply,  ///< the reply was cut short, had no retval, or was not the record's document
  kTimedOut,       ///< the connect or a reply line took longer than the time-out
};

/// The failure of the last operation this thread called (kNone after one that succeeded).
QUORLIN_API ServiceFailure service_last_failure();

/// A Connection to the service, or -1.
QUORLIN_API Connection connect_to_service();
/// Closes a Connection from connect_to_service; close's result.
QUORLIN_API int close_service_connection(Connection connection);

/// The service's state (code 0), or null.
QUORLIN_API std::unique_ptr<ServiceState> get_service_state(int type);
/// Sets the service type (code 1); the retval.
QUORLIN_API int set_service_type(int type);
/// The networks of `type` (code 2), or null; an entry that is not a network is a null item.
QUORLIN_API std::unique_ptr<PeerNetworkList> get_networks(int type);

/// The same call without the List: each network goes to `each` as soon as it is read from the
/// reply (null for an entry that is not a network), and none is kept. Returns false where
/// get_networks returns null; networks handed over before that belonged to no list.
QUORLIN_API bool get_networks_each(
    int type, const std::function<void(std::unique_ptr<PeerNetwork> network)>& each);
/// The service's new network (its id and name), or null. The name and members are only read.
QUORLIN_API std::unique_ptr<PeerNetwork> add_network(OptionalText name, const TextList& members,
                                                     int type, int connection_type);
/// Invites `email` into the network (code 5): the new member, or null.
QUORLIN_API std::unique_ptr<PeerMember> invite_member(long network, std::string_view email);
/// Drops the network (code 6); the retval.
QUORLIN_API int drop_network(long network);
/// On a retval of 0 or more whose second line holds a PeerConnectionInfo, that record is copied
/// into `info`; otherwise `info` is untouched.
QUORLIN_API int get_connection_info(long network, std::string_view peer, PeerConnectionInfo& info);
/// Posts `peer` to the network (code 8); the retval.
QUORLIN_API int post_network_peer(long network, std::string_view peer);
/// "p2pnet_local_ip" copied into `buffer` only for a retval of 0 or more.
QUORLIN_API int get_local_ip(std::span<char> buffer);
/// "p2pnet_peer_ip" copied into `buffer` only for a retval of 0 or more.
QUORLIN_API int get_peer_ip(long network, std::string_view peer, std::span<char> buffer);
/// Sends `message` to `peer` in the network (code 11); the retval.
QUORLIN_API int send_chat_message(long network, std::string_view peer, std::string_view message);
/// "p2pnet_chat_mesg" copied into `buffer` whenever the reply has a retval, whatever its sign.
QUORLIN_API int receive_chat_message(long network, std::string_view peer, std::span<char> buffer);
/// The notifications of `type` (code 13), or null.
QUORLIN_API std::unique_ptr<NotificationList> get_notifications(int type);
/// Always 0, also when the service cannot be reached.
QUORLIN_API int set_shares(long network, int share_type, const ShareList& shares);
/// Sets the connection type for `type` (code 15); the retval.
QUORLIN_API int set_connection_type(int type, int connection_type);

// The operations at given options: each does what the operation of the same name above does,
// with the service at options.host:options.port and options.timeout_ms for the connect and each
// reply line.
/// get_service_state with the service where `options` say.
QUORLIN_API std::unique_ptr<ServiceState> get_service_state(const ServiceOptions& options,
                                                            int type);
/// set_service_type with the service where `options` say.
QUORLIN_API int set_service_type(const ServiceOptions& options, int type);
/// get_networks with the service where `options` say.
QUORLIN_API std::unique_ptr<PeerNetworkList> get_networks(const ServiceOptions& options, int type);
/// get_networks_each with the service where `options` say.
QUORLIN_API bool get_networks_each(
    const ServiceOptions& options, int type,
    const std::function<void(std::unique_ptr<PeerNetwork> network)>& each);
/// add_network with the service where `options` say.
QUORLIN_API std::unique_ptr<PeerNetwork> add_network(const ServiceOptions& options,
                                                     OptionalText name, const TextList& members,
                                                     int type, int connection_type);
/// invite_member with the service where `options` say.
QUORLIN_API std::unique_ptr<PeerMember> invite_member(const ServiceOptions& options, long network,
                                                      std::string_view email);
/// drop_network with the service where `options` say.
QUORLIN_API int drop_network(const ServiceOptions& options, long network);
/// get_connection_info with the service where `options` say.
QUORLIN_API int get_connection_info(const ServiceOptions& options, long network,
                                    std::string_view peer, PeerConnectionInfo& info);
/// post_network_peer with the service where `options` say.
QUORLIN_API int post_network_peer(const ServiceOptions& options, long network,
                                  std::string_view peer);
/// get_local_ip with the service where `options` say.
QUORLIN_API int get_local_ip(const ServiceOptions& options, std::span<char> buffer);
/// get_peer_ip with the service where `options` say.
QUORLIN_API int get_peer_ip(const ServiceOptions& options, long network, std::string_view peer,
                            std::span<char> buffer);
/// send_chat_message with the service where `options` say.
QUORLIN_API int send_chat_message(const ServiceOptions& options, long network,
                                  std::string_view peer, std::string_view message);
/// receive_chat_message with the service where `options` say.
QUORLIN_API int receive_chat_message(const ServiceOptions& options, long network,
                                     std::string_view peer, std::span<char> buffer);
/// get_notifications with the service where `options` say.
QUORLIN_API std::unique_ptr<NotificationList> get_notifications(const ServiceOptions& options,
                                                                int type);
/// set_shares with the service where `options` say.
QUORLIN_API int set_shares(const ServiceOptions& options, long network, int share_type,
                           const ShareList& shares);
/// set_connection_type with the service where `options` say.
QUORLIN_API int set_connection_type(const ServiceOptions& options, int type, int connection_type);

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_SERVICE_HPP
