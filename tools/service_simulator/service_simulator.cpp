// The simulator's state machine: one answer per operation code, built with the record writers.
#include "tools/service_simulator/service_simulator.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "quorlin/base/strings.hpp"
#include "quorlin/base/url.hpp"
#include "quorlin/client/form.hpp"
#include "quorlin/client/service.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"

namespace quorlin::simulator {
namespace {

constexpr int kRequestTimeoutMs = 5000;
constexpr char kLocalIp[] = "192.168.7.2";

std::unique_ptr<PeerMember> make_member(PeerNetwork& network, const std::string& peer,
                                        const std::string& ip, int status) {
  auto member = peer_member_new(&network);
  member->peer = peer;
  member->peer_ip = ip;
  member->status = status;
  member->connect_status = status == 1 ? MEMBER_CONNECTED : 0;
  return member;
}

std::unique_ptr<PeerNetwork> make_network(long id, int type, const std::string& name,
                                          const std::vector<std::string>& peers) {
  auto network = peer_network_new();
  network->id = id;
  network->type = type;
  network->name = name;
  network->enable_sharing = 1;
  for (std::size_t i = 0; i < peers.size(); ++i) {
    std::string ip = "10.0." + std::to_string(id % 250) + "." + std::to_string(i + 1);
    list_append(network->peer_members, make_member(*network, peers[i], ip, 1));
  }
  return network;
}

std::string retval_line(int retval) {
  return "p2pnet_retval=" + std::to_string(retval) + "\r\n";
}

long field_long(const FormFields& fields, std::string_view name) {
  return decimal_prefix(form_get(fields, name).value_or(""));
}

std::string field_text(const FormFields& fields, std::string_view name) {
  return std::string(form_get(fields, name).value_or(""));
}

void write_all(int connection, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(sent);
  }
}

}  // namespace

std::unique_ptr<PeerNetworkList> seed_networks(int generated_networks) {
  auto networks = list_create<std::unique_ptr<PeerNetwork>>();
  list_append(*networks, make_network(1, 0, "Friends", {"me", "alice", "bob"}));
  list_append(*networks, make_network(2, 0, "Work", {"me", "carol"}));
  list_append(*networks, make_network(3, 3, "Gaming", {"me", "dave", "erin", "frank"}));
  for (int i = 0; i < generated_networks; ++i) {
    std::vector<std::string> peers;
    for (int m = 0; m < 5; ++m)
      peers.push_back("peer-" + std::to_string(i) + "-" + std::to_string(m));
    list_append(*networks, make_network(100000 + i, 0, "net-" + std::to_string(i), peers));
  }
  return networks;
}

struct ServiceSimulator::State {
  std::unique_ptr<PeerNetworkList> networks;
  std::unique_ptr<ServiceState> service_state = service_state_new();
  int connection_type = 0;
  long next_id = 1000;
  std::vector<std::string> requests;
  Misbehaviour misbehaviour = Misbehaviour::kNone;
  int delay_ms = 0;
  std::size_t huge_reply_bytes = 0;
  int refuse_add_network = 0;
  std::optional<std::string> all_networks_text;  // cached, the list can be large

  PeerNetwork* find_network(long id) {
    for (auto* node = networks->first; node != nullptr; node = node->next) {
      if (node->item && node->item->id == id) return node->item.get();
    }
    return nullptr;
  }
  PeerMember* find_member(long id, const std::string& peer) {
    PeerNetwork* network = find_network(id);
    if (network == nullptr) return nullptr;
    for (auto* node = network->peer_members.first; node != nullptr; node = node->next) {
      if (node->item->peer == peer) return node->item.get();
    }
    return nullptr;
  }
  bool name_taken(const Text& name) {
    for (auto* node = networks->first; node != nullptr; node = node->next) {
      if (node->item && node->item->name == name) return true;
    }
    return false;
  }
};

ServiceSimulator::ServiceSimulator(SimulatorOptions options) : options_(std::move(options)) {
  reset();
}

ServiceSimulator::~ServiceSimulator() {
  stop();
}

void ServiceSimulator::reset() {
  std::lock_guard hold(lock_);
  auto fresh = std::make_unique<State>();
  fresh->networks = seed_networks(options_.generated_networks);
  fresh->service_state->username = "me";
  fresh->service_state->type = 1;
  fresh->service_state->started = 1;
  if (state_) fresh->requests = std::move(state_->requests);
  state_ = std::move(fresh);
}

bool ServiceSimulator::start() {
  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  int on = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(options_.port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0 ||
      listen(listener_, 64) < 0) {
    close(listener_);
    listener_ = -1;
    return false;
  }
  stopping_ = false;
  thread_ = std::thread([this] { serve(); });
  return true;
}

void ServiceSimulator::stop() {
  if (listener_ < 0) return;
  stopping_ = true;
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  listener_ = -1;
}

std::vector<std::string> ServiceSimulator::requests() {
  std::lock_guard hold(lock_);
  return state_->requests;
}

void ServiceSimulator::clear_requests() {
  std::lock_guard hold(lock_);
  state_->requests.clear();
}

void ServiceSimulator::misbehave(Misbehaviour misbehaviour, int delay_ms,
                                 std::size_t huge_reply_bytes) {
  std::lock_guard hold(lock_);
  state_->misbehaviour = misbehaviour;
  state_->delay_ms = delay_ms;
  state_->huge_reply_bytes = huge_reply_bytes;
}

void ServiceSimulator::refuse_add_network(int count) {
  std::lock_guard hold(lock_);
  state_->refuse_add_network = count;
}

void ServiceSimulator::serve() {
  while (!stopping_) {
    pollfd watched{listener_, POLLIN, 0};
    if (poll(&watched, 1, 50) <= 0) continue;
    int connection = accept(listener_, nullptr, nullptr);
    if (connection < 0) continue;
    handle(connection);
    close(connection);
  }
}

void ServiceSimulator::handle(int connection) {
  int status = 0;
  std::string request = read_line(connection, kRequestTimeoutMs, status);
  if (status <= 0 && request.empty()) return;
  FormFields fields;
  form_parse(fields, request);
  const auto command = form_get(fields, "p2pnet_command");
  int code = command ? static_cast<int>(decimal_prefix(*command)) : -1;
  std::string document;
  bool has_document = code == CODE_ADD_NETWORK || code == CODE_SET_SHARES;
  if (has_document) document = read_line(connection, kRequestTimeoutMs, status);

  Misbehaviour misbehaviour;
  int delay_ms;
  std::size_t huge_reply_bytes;
  {
    std::lock_guard hold(lock_);
    state_->requests.push_back(request);
    if (has_document) state_->requests.push_back(document);
    if (!options_.request_log_path.empty()) {
      std::ofstream log(options_.request_log_path, std::ios::app);
      log << request << '\n';
      if (has_document) log << document << '\n';
    }
    misbehaviour = state_->misbehaviour;
    delay_ms = state_->delay_ms;
    huge_reply_bytes = state_->huge_reply_bytes;
  }

  switch (misbehaviour) {
    case Misbehaviour::kCloseWithoutReply:
      return;
    case Misbehaviour::kGarbage:
      write_all(connection, "\x01\xff<<<&&==%%zz</PeerNetworks>\x7f\r\n");
      return;
    case Misbehaviour::kHugeReply: {
      const std::string block(1 << 20, 'x');
      for (std::size_t sent = 0; sent < huge_reply_bytes; sent += block.size()) {
        write_all(connection, std::string_view(block).substr(
                                  0, std::min(block.size(), huge_reply_bytes - sent)));
      }
      return;
    }
    case Misbehaviour::kDelay:
      std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
      break;
    default:
      break;
  }
  std::string reply;
  {
    std::lock_guard hold(lock_);
    reply = answer(fields, document, code);
  }
  if (misbehaviour == Misbehaviour::kNoFinalLineEnd && reply.ends_with('\n')) reply.pop_back();
  write_all(connection, reply);
}

std::string ServiceSimulator::answer(const FormFields& fields, const std::string& document,
                                     int code) {
  State& state = *state_;
  const long network_id = field_long(fields, "p2pnet_network");
  const int type = static_cast<int>(field_long(fields, "p2pnet_type"));
  const std::string peer = field_text(fields, "p2pnet_peer");

  switch (code) {
    case CODE_GET_SERVICE_STATE:
      return service_state_to_text(*state.service_state) + "\n";
    case CODE_SET_SERVICE_TYPE:
      state.service_state->type = type;
      return retval_line(0);
    case CODE_GET_NETWORKS: {
      if (type != 0) {
        PeerNetworkList matching;
        for (auto* node = state.networks->first; node != nullptr; node = node->next) {
          if (node->item && node->item->type == type) {
            list_append(matching, peer_network_parse(peer_network_to_text(*node->item)));
          }
        }
        return peer_network_list_to_text(matching) + "\n";
      }
      if (!state.all_networks_text) {
        state.all_networks_text = peer_network_list_to_text(*state.networks) + "\n";
      }
      return *state.all_networks_text;
    }
    case CODE_ADD_NETWORK: {
      auto request_record = add_network_request_parse(document);
      if (!request_record || state.refuse_add_network > 0 ||
          state.name_taken(request_record->name)) {
        if (state.refuse_add_network > 0) --state.refuse_add_network;
        return retval_line(-2);
      }
      auto network = make_network(state.next_id++, request_record->type,
                                  request_record->name.value_or(""), {});
      for (auto* node = request_record->members->first; node != nullptr; node = node->next) {
        list_append(network->peer_members,
                    make_member(*network, node->item.value_or(""), "10.9.0.1", 0));
      }
      std::string text = peer_network_to_text(*network) + "\n";
      list_append(*state.networks, std::move(network));
      state.all_networks_text.reset();
      return text;
    }
    case CODE_INVITE_MEMBER: {
      PeerNetwork* network = state.find_network(network_id);
      if (network == nullptr) return retval_line(-1);
      auto invited = make_member(*network, field_text(fields, "p2pnet_email"), "0.0.0.0", 0);
      std::string text = peer_member_to_text(*invited) + "\n";
      list_append(network->peer_members, std::move(invited));
      state.all_networks_text.reset();
      return text;
    }
    case CODE_DROP_NETWORK: {
      PeerNetwork* network = state.find_network(network_id);
      if (network == nullptr) return retval_line(-1);
      list_remove(*state.networks, network);
      state.all_networks_text.reset();
      return retval_line(0);
    }
    case CODE_GET_CONNECTION_INFO: {
      PeerMember* member = state.find_member(network_id, peer);
      if (member == nullptr) return retval_line(-1);
      auto info = peer_connection_info_new();
      copy_fixed_text(info->peer, peer);
      copy_fixed_text(info->peer_ip, member->peer_ip);
      copy_fixed_text(info->peer_host_ip, "203.0.113.7");
      info->connection_protocol = 1;
      info->initiator = 1;
      return retval_line(0) + peer_connection_info_to_text(*info) + "\n";
    }
    case CODE_POST_NETWORK_PEER: {
      PeerNetwork* network = state.find_network(network_id);
      if (network == nullptr) return retval_line(-1);
      list_append(network->peer_members, make_member(*network, peer, "10.9.0.2", 0));
      state.all_networks_text.reset();
      return retval_line(0);
    }
    case CODE_GET_LOCAL_IP:
      return "p2pnet_retval=0&p2pnet_local_ip=" + std::string(kLocalIp) + "\r\n";
    case CODE_GET_PEER_IP: {
      PeerMember* member = state.find_member(network_id, peer);
      if (member == nullptr) return retval_line(-1);
      return "p2pnet_retval=0&p2pnet_peer_ip=" + url_encode(member->peer_ip.value_or("")) + "\r\n";
    }
    case CODE_SEND_CHAT_MESSAGE: {
      PeerMember* member = state.find_member(network_id, peer);
      if (member == nullptr) return retval_line(-1);
      peer_member_push_message(*member, field_text(fields, "p2pnet_chat_mesg"));
      return retval_line(0);
    }
    case CODE_RECEIVE_CHAT_MESSAGE: {
      PeerMember* member = state.find_member(network_id, peer);
      Text message = member != nullptr ? peer_member_pop_message(*member) : std::nullopt;
      if (!message) return retval_line(-1);
      return "p2pnet_retval=0&p2pnet_chat_mesg=" + url_encode(*message) + "\r\n";
    }
    case CODE_GET_NOTIFICATIONS: {
      NotificationList notifications;
      list_append(notifications, notification_new_kind7("me", "alice", "bob"));
      return notification_list_to_text(notifications) + "\n";
    }
    case CODE_SET_SHARES: {
      PeerNetwork* network = state.find_network(network_id);
      if (network == nullptr) return retval_line(-1);
      auto shares = share_list_parse(document);
      int share_type = static_cast<int>(field_long(fields, "p2pnet_share_type"));
      ShareList& target =
          share_type == SHARE_TYPE_CONNECTION ? network->connection_shares : network->folder_shares;
      share_list_clear(&target);
      while (shares->first != nullptr) {
        list_append(target, std::move(shares->first->item));
        list_remove_node(*shares, shares->first);
      }
      state.all_networks_text.reset();
      return retval_line(0);
    }
    case CODE_SET_CONNECTION_TYPE:
      state.connection_type = static_cast<int>(field_long(fields, "p2pnet_conn_type"));
      return retval_line(0);
    default:
      return retval_line(-1);
  }
}

}  // namespace quorlin::simulator
