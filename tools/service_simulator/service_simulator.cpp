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
#include "quorlin/base/strings_internal.hpp"
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

// A form reply line, written by the library's form code: the retval, then one more field when
// a name is given.
std::string form_reply(int retval, std::string_view name = {}, std::string_view value = {}) {
  Form form;
  form_add_int(form, RETVAL_FIELD, retval);
  if (!name.empty()) form_add_field(form, name, value);
  return form.text + "\r\n";
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

// A request as read: its lines, its parsed form fields, its operation (null for a code that
// names none) and, for the operations that send one, its document.
struct Request {
  std::string line;
  FormFields fields;
  const ServiceOperation* operation = nullptr;
  std::string document;

  long number(RequestField field) const {
    return decimal_prefix(form_get(fields, request_field_name(field)).value_or(""));
  }
  std::string text(RequestField field) const {
    return std::string(form_get(fields, request_field_name(field)).value_or(""));
  }
  long network_id() const { return number(RequestField::kNetwork); }
  int type() const { return static_cast<int>(number(RequestField::kType)); }
  std::string peer() const { return text(RequestField::kPeer); }
};

struct SimulatorState {
  std::unique_ptr<PeerNetworkList> networks;
  std::unique_ptr<ServiceState> service_state = service_state_new();
  int connection_type = 0;
  long next_id = 1000;
  std::vector<std::string> requests;
  Mischief mischief;
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

std::string get_service_state(SimulatorState& state, const Request&) {
  return service_state_to_text(*state.service_state) + "\n";
}

std::string set_service_type(SimulatorState& state, const Request& request) {
  state.service_state->type = request.type();
  return form_reply(0);
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
    return form_reply(-2);
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
  if (network == nullptr) return form_reply(-1);
  auto invited = make_member(*network, request.text(RequestField::kEmail), "0.0.0.0", 0);
  std::string text = peer_member_to_text(*invited) + "\n";
  list_append(network->peer_members, std::move(invited));
  state.all_networks_text.reset();
  return text;
}

std::string drop_network(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return form_reply(-1);
  list_remove(*state.networks, network);
  state.all_networks_text.reset();
  return form_reply(0);
}

std::string get_connection_info(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return form_reply(-1);
  auto info = peer_connection_info_new();
  copy_fixed_text(info->peer, request.peer());
  copy_fixed_text(info->peer_ip, member->peer_ip);
  copy_fixed_text(info->peer_host_ip, "203.0.113.7");
  info->connection_protocol = 1;
  info->initiator = 1;
  return form_reply(0) + peer_connection_info_to_text(*info) + "\n";
}

std::string post_network_peer(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return form_reply(-1);
  list_append(network->peer_members, make_member(*network, request.peer(), "10.9.0.2", 0));
  state.all_networks_text.reset();
  return form_reply(0);
}

std::string get_local_ip(SimulatorState&, const Request&) {
  return form_reply(0, LOCAL_IP_FIELD, kLocalIp);
}

std::string get_peer_ip(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return form_reply(-1);
  return form_reply(0, PEER_IP_FIELD, member->peer_ip.value_or(""));
}

std::string send_chat_message(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  if (member == nullptr) return form_reply(-1);
  peer_member_push_message(*member, request.text(RequestField::kChatMessage));
  return form_reply(0);
}

std::string receive_chat_message(SimulatorState& state, const Request& request) {
  PeerMember* member = state.find_member(request.network_id(), request.peer());
  Text message = member != nullptr ? peer_member_pop_message(*member) : std::nullopt;
  if (!message) return form_reply(-1);
  return form_reply(0, CHAT_MESSAGE_FIELD, *message);
}

std::string get_notifications(SimulatorState&, const Request&) {
  NotificationList notifications;
  list_append(notifications, notification_new_kind7("me", "alice", "bob"));
  return notification_list_to_text(notifications) + "\n";
}

std::string set_shares(SimulatorState& state, const Request& request) {
  PeerNetwork* network = state.find_network(request.network_id());
  if (network == nullptr) return form_reply(-1);
  auto shares = share_list_parse(request.document);
  const bool connection_shares = request.number(RequestField::kShareType) == SHARE_TYPE_CONNECTION;
  ShareList& target = connection_shares ? network->connection_shares : network->folder_shares;
  share_list_clear(&target);
  while (shares->first != nullptr) {
    list_append(target, std::move(shares->first->item));
    list_remove_node(*shares, shares->first);
  }
  state.all_networks_text.reset();
  return form_reply(0);
}

std::string set_connection_type(SimulatorState& state, const Request& request) {
  state.connection_type = static_cast<int>(request.number(RequestField::kConnectionType));
  return form_reply(0);
}

using Answer = std::string (*)(SimulatorState&, const Request&);

// The answer to each operation of the catalogue, by code.
const std::map<int, Answer> kAnswers = {
    {CODE_GET_SERVICE_STATE, get_service_state},
    {CODE_SET_SERVICE_TYPE, set_service_type},
    {CODE_GET_NETWORKS, get_networks},
    {CODE_ADD_NETWORK, add_network},
    {CODE_INVITE_MEMBER, invite_member},
    {CODE_DROP_NETWORK, drop_network},
    {CODE_GET_CONNECTION_INFO, get_connection_info},
    {CODE_POST_NETWORK_PEER, post_network_peer},
    {CODE_GET_LOCAL_IP, get_local_ip},
    {CODE_GET_PEER_IP, get_peer_ip},
    {CODE_SEND_CHAT_MESSAGE, send_chat_message},
    {CODE_RECEIVE_CHAT_MESSAGE, receive_chat_message},
    {CODE_GET_NOTIFICATIONS, get_notifications},
    {CODE_SET_SHARES, set_shares},
    {CODE_SET_CONNECTION_TYPE, set_connection_type},
};

// Reads the request line and, when the catalogue says one follows, the document; false when
// nothing came.
bool read_request(int connection, Request& request) {
  int status = 0;
  request.line = read_line(connection, kRequestTimeoutMs, status);
  if (status <= 0 && request.line.empty()) return false;
  form_parse(request.fields, request.line);
  const auto command = form_get(request.fields, COMMAND_FIELD);
  request.operation =
      command ? service_operation(static_cast<int>(decimal_prefix(*command))) : nullptr;
  if (request.operation != nullptr && request.operation->document_follows) {
    request.document = read_line(connection, kRequestTimeoutMs, status);
  }
  return true;
}

// Sends what the misbehaviour sends instead of an answer; false when the answer is still due
// (after a delay, or without its last line end).
bool misbehave_instead(int connection, const Mischief& mischief) {
  switch (mischief.misbehaviour) {
    case Misbehaviour::kCloseWithoutReply:
      return true;
    case Misbehaviour::kGarbage:
      tools::write_all(connection, "\x01\xff<<<&&==%%zz</PeerNetworks>\x7f\r\n");
      return true;
    case Misbehaviour::kHugeReply: {
      const std::string block(1 << 20, 'x');
      for (std::size_t sent = 0; sent < mischief.huge_reply_bytes; sent += block.size()) {
        const std::size_t size = std::min(block.size(), mischief.huge_reply_bytes - sent);
        tools::write_all(connection, std::string_view(block).substr(0, size));
      }
      return true;
    }
    case Misbehaviour::kFixedReply:
      tools::write_all(connection, *mischief.fixed_reply);
      return true;
    case Misbehaviour::kDelay:
      std::this_thread::sleep_for(std::chrono::milliseconds(mischief.delay_ms));
      return false;
    default:
      return false;
  }
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
  state_->mischief = {misbehaviour, delay_ms, huge_reply_bytes, nullptr};
}

void ServiceSimulator::answer_with(std::string reply) {
  std::lock_guard hold(lock_);
  state_->mischief = {Misbehaviour::kFixedReply, 0, 0,
                      std::make_shared<const std::string>(std::move(reply))};
}

void ServiceSimulator::refuse_add_network(int count) {
  std::lock_guard hold(lock_);
  state_->refuse_add_network = count;
}

void ServiceSimulator::handle(int connection) {
  Request request;
  if (!read_request(connection, request)) return;
  const Mischief mischief = record(request.line, request.document);
  if (misbehave_instead(connection, mischief)) return;
  std::string reply = answer(request);
  if (mischief.misbehaviour == Misbehaviour::kNoFinalLineEnd && reply.ends_with('\n')) {
    reply.pop_back();
  }
  tools::write_all(connection, reply);
}

Mischief ServiceSimulator::record(const std::string& line, const std::string& document) {
  std::lock_guard hold(lock_);
  state_->requests.push_back(line);
  if (!document.empty()) state_->requests.push_back(document);
  if (!options_.request_log_path.empty()) {
    std::ofstream log(options_.request_log_path, std::ios::app);
    log << line << '\n';
    if (!document.empty()) log << document << '\n';
  }
  return state_->mischief;
}

std::string ServiceSimulator::answer(const Request& request) {
  std::lock_guard hold(lock_);
  if (request.operation == nullptr) return form_reply(-1);
  return kAnswers.at(request.operation->code)(*state_, request);
}

}  // namespace quorlin::simulator
