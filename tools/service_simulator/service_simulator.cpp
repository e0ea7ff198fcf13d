// The simulator's state machine: a table of operations keyed by their code, each answer built
// with the record writers, served by the shared loopback server.
#include "tools/service_simulator/service_simulator.hpp"

#include <sys/socket.h>
#include <algorithm>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>

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

struct SimulatorState {
  std::unique_ptr<PeerNetworkList> networks;
  std::unique_ptr<ServiceState> service_state = service_state_new();
  int connection_type = 0;
  long next_id = 1000;
  std::vector<std::string> requests;
  Misbehaviour misbehaviour = Misbehaviour::kNone;
  int delay_ms = 0;
  std::size_t huge_reply_bytes = 0;
  std::shared_ptr<const std::string> fixed_reply;  // shared: a reply may be large
  int refuse_add_network = 0;
  std::optional<std::string> all_networks_text;  // cached, the list can be large

  PeerNetwork* find_network(long id) {
    for (const auto& network : *networks) {
      if (network && network->id == id) return network.get();
    }
    return nullptr;
  }
  PeerMember* find_member(long id, const std::string& peer) {
    PeerNetwork* network = find_network(id);
    if (network == nullptr) return nullptr;
    for (const auto& member : network->peer_members) {
      if (member->peer == peer) return member.get();
    }
    return nullptr;
  }
  bool name_taken(const Text& name) {
    return std::ranges::any_of(
        *networks, [&](const auto& network) { return network && network->name == name; });
  }
};

namespace {

// A parsed request: its form fields and, for the operations that send one, its document.
struct Request {
  const FormFields& fields;
  const std::string& document;

  long number(std::string_view name) const { return field_long(fields, name); }
  std::string text(std::string_view name) const { return field_text(fields, name); }
  long network_id() const { return number("p2pnet_network"); }
  int type() const { return static_cast<int>(number("p2pnet_type")); }
  std::string peer() const { return text("p2pnet_peer"); }
};

std::string get_service_state(SimulatorState& state, const Request&) {
  return service_state_to_text(*state.service_state) + "\n";
}

std::string set_service_type(SimulatorState& state, const Request& request) {
  state.service_state->type = request.type();
  return retval_line(0);
}

std::string get_networks(SimulatorState& state, const Request& request) {
  if (request.type() != 0) {
    PeerNetworkList matching;
    for (const auto& network : *state.networks) {
      if (network && network->type == request.type()) {
        list_append(matching, peer_network_parse(peer_network_to_text(*network)));
      }
    }
    return peer_network_list_to_text(matching) + "\n";
  }
  if (!state.all_networks_text) {
    state.all_networks_text = peer_network_list_to_text(*state.networks) + "\n";
  }
  return *state.all_networks_text;
}

std::string add_network(SimulatorState& state, const Request& request) {
  auto request_record = add_network_request_parse(request.document);
  if (!request_record || state.refuse_add_network > 0 || state.name_taken(request_record->name)) {
    if (state.refuse_add_network > 0) --state.refuse_add_network;
    return retval_line(-2);
  }
  auto network =
      make_network(state.next_id++, request_record->type, request_record->name.value_or(""), {});
  for (const Text& member : *request_record->members) {
    list_append(network->peer_members, make_member(*network, member.value_or(""), "10.9.0.1", 0));
  }
  std::string text = peer_network_to_text(*network) + "\n";
  list_append(*state.networks, std::move(network));
  state.all_networks_text.reset();
  return text;
}

std::string invite_member(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return retval_line(-1);
  auto invited = make_member(*network, request.text("p2pnet_email"), "0.0.0.0", 0);
  std::string text = peer_member_to_text(*invited) + "\n";
  list_append(network->peer_members, std::move(invited));
  state.all_networks_text.reset();
  return text;
}

std::string drop_network(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return retval_line(-1);
  list_remove(*state.networks, network);
  state.all_networks_text.reset();
  return retval_line(0);
}

std::string get_connection_info(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return retval_line(-1);
  auto info = peer_connection_info_new();
  copy_fixed_text(info->peer, request.peer());
  copy_fixed_text(info->peer_ip, member->peer_ip);
  copy_fixed_text(info->peer_host_ip, "203.0.113.7");
  info->connection_protocol = 1;
  info->initiator = 1;
  return retval_line(0) + peer_connection_info_to_text(*info) + "\n";
}

std::string post_network_peer(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return retval_line(-1);
  list_append(network->peer_members, make_member(*network, request.peer(), "10.9.0.2", 0));
  state.all_networks_text.reset();
  return retval_line(0);
}

std::string get_local_ip(SimulatorState&, const Request&) {
  return "p2pnet_retval=0&p2pnet_local_ip=" + std::string(kLocalIp) + "\r\n";
}

std::string get_peer_ip(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return retval_line(-1);
  return "p2pnet_retval=0&p2pnet_peer_ip=" + url_encode(member->peer_ip.value_or("")) + "\r\n";
}

std::string send_chat_message(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return retval_line(-1);
  peer_member_push_message(*member, request.text("p2pnet_chat_mesg"));
  return retval_line(0);
}

std::string receive_chat_message(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  Text message = member != nullptr ? peer_member_pop_message(*member) : std::nullopt;
  if (!message) return retval_line(-1);
  return "p2pnet_retval=0&p2pnet_chat_mesg=" + url_encode(*message) + "\r\n";
}

std::string get_notifications(SimulatorState&, const Request&) {
  NotificationList notifications;
  list_append(notifications, notification_new_kind7("me", "alice", "bob"));
  return notification_list_to_text(notifications) + "\n";
}

std::string set_shares(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return retval_line(-1);
  auto shares = share_list_parse(request.document);
  const bool connection_shares = request.number("p2pnet_share_type") == SHARE_TYPE_CONNECTION;
  ShareList& target = connection_shares ? network->connection_shares : network->folder_shares;
  share_list_clear(&target);
  while (shares->first != nullptr) {
    list_append(target, std::move(shares->first->item));
    list_remove_node(*shares, shares->first);
  }
  state.all_networks_text.reset();
  return retval_line(0);
}

std::string set_connection_type(SimulatorState& state, const Request& request) {
  state.connection_type = static_cast<int>(request.number("p2pnet_conn_type"));
  return retval_line(0);
}

struct Operation {
  std::string (*answer)(SimulatorState&, const Request&);
  bool reads_document;  // a second request line follows the form
};

const std::map<int, Operation> kOperations = {
    {CODE_GET_SERVICE_STATE, {get_service_state, false}},
    {CODE_SET_SERVICE_TYPE, {set_service_type, false}},
    {CODE_GET_NETWORKS, {get_networks, false}},
    {CODE_ADD_NETWORK, {add_network, true}},
    {CODE_INVITE_MEMBER, {invite_member, false}},
    {CODE_DROP_NETWORK, {drop_network, false}},
    {CODE_GET_CONNECTION_INFO, {get_connection_info, false}},
    {CODE_POST_NETWORK_PEER, {post_network_peer, false}},
    {CODE_GET_LOCAL_IP, {get_local_ip, false}},
    {CODE_GET_PEER_IP, {get_peer_ip, false}},
    {CODE_SEND_CHAT_MESSAGE, {send_chat_message, false}},
    {CODE_RECEIVE_CHAT_MESSAGE, {receive_chat_message, false}},
    {CODE_GET_NOTIFICATIONS, {get_notifications, false}},
    {CODE_SET_SHARES, {set_shares, true}},
    {CODE_SET_CONNECTION_TYPE, {set_connection_type, false}},
};

// The operation of `code`, or null for an unknown code (answered with -1).
const Operation* operation_of(int code) {
  const auto found = kOperations.find(code);
  return found == kOperations.end() ? nullptr : &found->second;
}

}  // namespace

ServiceSimulator::ServiceSimulator(SimulatorOptions options) : options_(std::move(options)) {
  reset();
}

ServiceSimulator::~ServiceSimulator() {
  stop();
}

void ServiceSimulator::reset() {
  std::lock_guard hold(lock_);
  auto fresh = std::make_unique<SimulatorState>();
  fresh->networks = seed_networks(options_.generated_networks);
  fresh->service_state->username = "me";
  fresh->service_state->type = 1;
  fresh->service_state->started = 1;
  if (state_) fresh->requests = std::move(state_->requests);
  state_ = std::move(fresh);
}

bool ServiceSimulator::start() {
  server_ = std::make_unique<tools::LoopbackServer>([this](int connection) { handle(connection); },
                                                    options_.port);
  if (server_->listening()) return true;
  server_.reset();
  return false;
}

void ServiceSimulator::stop() {
  server_.reset();
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

void ServiceSimulator::answer_with(std::string reply) {
  std::lock_guard hold(lock_);
  state_->misbehaviour = Misbehaviour::kFixedReply;
  state_->fixed_reply = std::make_shared<const std::string>(std::move(reply));
}

void ServiceSimulator::refuse_add_network(int count) {
  std::lock_guard hold(lock_);
  state_->refuse_add_network = count;
}

void ServiceSimulator::handle(int connection) {
  int status = 0;
  std::string request = read_line(connection, kRequestTimeoutMs, status);
  if (status <= 0 && request.empty()) return;
  FormFields fields;
  form_parse(fields, request);
  const auto command = form_get(fields, "p2pnet_command");
  int code = command ? static_cast<int>(decimal_prefix(*command)) : -1;
  const Operation* operation = operation_of(code);
  std::string document;
  const bool has_document = operation != nullptr && operation->reads_document;
  if (has_document) document = read_line(connection, kRequestTimeoutMs, status);

  Misbehaviour misbehaviour;
  int delay_ms;
  std::size_t huge_reply_bytes;
  std::shared_ptr<const std::string> fixed_reply;
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
    fixed_reply = state_->fixed_reply;
  }

  switch (misbehaviour) {
    case Misbehaviour::kCloseWithoutReply:
      return;
    case Misbehaviour::kGarbage:
      tools::write_all(connection, "\x01\xff<<<&&==%%zz</PeerNetworks>\x7f\r\n");
      return;
    case Misbehaviour::kHugeReply: {
      const std::string block(1 << 20, 'x');
      for (std::size_t sent = 0; sent < huge_reply_bytes; sent += block.size()) {
        tools::write_all(connection, std::string_view(block).substr(
                                         0, std::min(block.size(), huge_reply_bytes - sent)));
      }
      return;
    }
    case Misbehaviour::kFixedReply:
      tools::write_all(connection, *fixed_reply);
      return;
    case Misbehaviour::kDelay:
      std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
      break;
    default:
      break;
  }
  std::string reply;
  {
    std::lock_guard hold(lock_);
    reply = operation != nullptr ? operation->answer(*state_, Request{fields, document})
                                 : retval_line(-1);
  }
  if (misbehaviour == Misbehaviour::kNoFinalLineEnd && reply.ends_with('\n')) reply.pop_back();
  tools::write_all(connection, reply);
}

}  // namespace quorlin::simulator
