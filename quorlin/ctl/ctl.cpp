// The command line: one command per operation of the catalogue, named as nouns and verbs, each
// with the catalogue's summary as its help. A command runs its operation at the options of the
// global flags, prints a table or one JSON document on standard output, and turns the library's
// failure into the exit status; every message is one line on standard error.
#include "quorlin/ctl/ctl.hpp"

#include <arpa/inet.h>
#include <netdb.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <ranges>
#include <sstream>
#include <string>
#include <vector>

#include "quorlin/client/service.hpp"
#include "quorlin/ctl/output.hpp"
#include "quorlin/ctl/shares_json.hpp"

namespace quorlin::ctl {
namespace {

constexpr char kVersion[] = "quorlinctl " QUORLIN_VERSION;
constexpr std::size_t kReplyBufferSize = 64 * 1024;
constexpr int kDefaultTimeoutSeconds = 30;  // the help text shows it

// A failure to report: the exit status and its one-line message.
struct Failure {
  ExitStatus status;
  std::string message;
};

// What every command shares: where the service is, how to print, and the failure, if any.
struct Run {
  ServiceOptions options;
  std::string service_text = "127.0.0.1:7000";
  bool json = false;
  std::optional<Failure> failure;

  void fail(ExitStatus status, std::string message) {
    if (!failure) failure = Failure{status, std::move(message)};
  }

  // Records why the library's last operation failed; `what` names the operation.
  void fail_as_library_says(const std::string& what) {
    switch (service_last_failure()) {
      case ServiceFailure::kUnreachable:
        return fail(EXIT_UNREACHABLE, "cannot reach the service at " + service_text);
      case ServiceFailure::kTimedOut:
        return fail(EXIT_TIMED_OUT,
                    "the service at " + service_text + " did not answer " + what + " in time");
      case ServiceFailure::kRefused:
        return fail(EXIT_REFUSED, "the service refused " + what);
      default:
        return fail(EXIT_UNUSABLE, "the service's reply to " + what + " could not be used");
    }
  }

  // The exit status for an integer result: the library's failure, or the service's refusal.
  void check_retval(int retval, const std::string& what) {
    if (retval == ERR_SERVICE_UNREACHABLE || retval == ERR_NO_RETVAL) {
      fail_as_library_says(what);
    } else if (retval < 0) {
      fail(EXIT_REFUSED,
           "the service refused " + what + " (p2pnet_retval " + std::to_string(retval) + ")");
    }
  }

  // An operation that wants no reply succeeded when the library says nothing failed.
  void check_no_reply(const std::string& what) {
    if (service_last_failure() != ServiceFailure::kNone) fail_as_library_says(what);
  }

  void print(const std::string& json) const { std::puts(json.c_str()); }
};

// --- arguments ---

// Reads "HOST:PORT": a dotted address or a name that resolves to an IPv4 address, and a port of
// 1 to 65535.
std::string parse_service(const std::string& text, ServiceOptions& options) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return "must be HOST:PORT";
  const std::string host = text.substr(0, colon);
  const std::string port = text.substr(colon + 1);
  char* end = nullptr;
  const long number = std::strtol(port.c_str(), &end, 10);
  if (port.empty() || *end != '\0' || number < 1 || number > 65535) {
    return "port " + port + " is not a number from 1 to 65535";
  }
  in_addr address{};
  if (inet_pton(AF_INET, host.c_str(), &address) != 1) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
      return "host " + host + " has no IPv4 address";
    }
    address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
    freeaddrinfo(found);
  }
  char dotted[INET_ADDRSTRLEN];
  options.host = inet_ntop(AF_INET, &address, dotted, sizeof dotted);
  options.port = static_cast<int>(number);
  return "";
}

std::string read_all(const std::string& path, std::string& error) {
  if (path == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), {});
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    error = "cannot read " + path;
    return "";
  }
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// A whole number of `Number`'s range, the whole argument: "12x", "" and numbers out of range
// are usage errors that name the argument, where strtol would read 12, 0 or its limit.
template <typename Number>
CLI::Validator whole_number() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        Number value{};
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (!text.empty() && error == std::errc() && stop == end) return "";
        return "\"" + text + "\" is not a whole number from " +
               std::to_string(std::numeric_limits<Number>::min()) + " to " +
               std::to_string(std::numeric_limits<Number>::max());
      },
      "NUMBER");
}

template <typename Number>
Number number_of(const std::string& text) {
  Number value{};
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// Options and positionals that take whole numbers, checked as whole_number says.
template <typename Number>
CLI::Option* add_number(CLI::App* app, const std::string& name, Number& value,
                        const std::string& description) {
  return app
      ->add_option_function<std::string>(
          name, [&value](const std::string& text) { value = number_of<Number>(text); }, description)
      ->check(whole_number<Number>());
}

CLI::Option* add_numbers(CLI::App* app, const std::string& name, std::vector<long>& values,
                         const std::string& description) {
  return app
      ->add_option_function<std::vector<std::string>>(
          name,
          [&values](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) values.push_back(number_of<long>(text));
          },
          description)
      ->check(whole_number<long>());
}

// --- tables ---

std::string connection_state(const PeerMember& member) {
  return peer_member_is_connected(member) ? "connected" : "not connected";
}

void add_network_rows(Table& table, const PeerNetwork& network, bool members) {
  table.add({std::to_string(network.id), std::to_string(network.type), table_cell(network.name),
             std::to_string(std::ranges::distance(network.peer_members))});
  if (!members) return;
  for (const auto& member : network.peer_members) {
    table.add({"", "", "", "", table_cell(member->peer), table_cell(member->peer_ip),
               std::to_string(member->status), connection_state(*member)});
  }
}

Table networks_table(bool members) {
  std::vector<std::string> header = {"ID", "TYPE", "NAME", "MEMBERS"};
  if (members) header.insert(header.end(), {"PEER", "ADDRESS", "STATUS", "CONNECTION"});
  return Table(header);
}

// --- the commands ---

// Streams the networks: in JSON each is written as it is read, so that memory holds the reply
// and one network; a table needs every row to align its columns.
void networks(Run& run, int type, bool members) {
  Table table = networks_table(members);
  bool first = true;
  const bool read = get_networks_each(run.options, type, [&](std::unique_ptr<PeerNetwork> network) {
    if (!network) return;  // an entry that is not a network
    if (run.json) {
      std::fputs(first ? "[" : ",", stdout);
      std::fputs(record_json(*network).c_str(), stdout);
    } else {
      add_network_rows(table, *network, members);
    }
    first = false;
  });
  // A reply that fails after some networks leaves the array open: it is not presented as whole.
  if (!read) return run.fail_as_library_says("get_networks");
  if (run.json) {
    std::puts(first ? "[]" : "]");
  } else {
    table.print(stdout);
  }
}

void network_show(Run& run, long id) {
  std::unique_ptr<PeerNetwork> found;
  const bool read = get_networks_each(run.options, 0, [&](std::unique_ptr<PeerNetwork> network) {
    if (network && network->id == id && !found) found = std::move(network);
  });
  if (!read) return run.fail_as_library_says("get_networks");
  if (!found) return run.fail(EXIT_REFUSED, "the service has no network " + std::to_string(id));
  if (run.json) return run.print(record_json(*found));
  Table table = networks_table(true);
  add_network_rows(table, *found, true);
  table.print(stdout);
}

void network_create(Run& run, const std::string& name, const std::vector<std::string>& members,
                    int type, int connection_type) {
  TextList member_list;
  for (const std::string& member : members) list_append(member_list, Text(member));
  const auto network = add_network(run.options, name, member_list, type, connection_type);
  if (!network) return run.fail_as_library_says("add_network");
  if (run.json) return run.print(record_json(*network));
  std::printf("%ld\n", network->id);
}

void network_drop(Run& run, const std::vector<long>& ids) {
  for (long id : ids) {
    drop_network(run.options, id);
    run.check_no_reply("drop_network " + std::to_string(id));
    if (run.failure) return;
  }
  if (run.json) run.print("{}");
}

void invite(Run& run, long id, const std::string& email) {
  const auto member = invite_member(run.options, id, email);
  if (!member) return run.fail_as_library_says("invite_member");
  if (run.json) return run.print(record_json(*member));
  record_table(*member).print(stdout);
}

// A form reply printed as JSON under the service's own field names, or its value alone.
void print_form_reply(const Run& run, int retval, std::string_view field, const char* value) {
  if (run.json) {
    std::string reply = "{";
    append_json_string(reply, RETVAL_FIELD);
    reply += ":" + std::to_string(retval);
    if (!field.empty()) {
      reply += ",";
      append_json_string(reply, field);
      reply += ":";
      append_json_string(reply, value);
    }
    return run.print(reply + "}");
  }
  if (!field.empty()) std::printf("%s\n", table_text(std::string_view(value)).c_str());
}

void connection(Run& run, long id, const std::string& peer) {
  PeerConnectionInfo info{};
  const int retval = get_connection_info(run.options, id, peer, info);
  run.check_retval(retval, "get_connection_info");
  if (run.failure) return;
  if (!run.json) return record_table(info).print(stdout);
  std::string reply = "{";
  append_json_string(reply, RETVAL_FIELD);
  reply += ":" + std::to_string(retval) + ",";
  append_json_string(reply, "PeerConnectionInfo");
  run.print(reply + ":" + record_json(info) + "}");
}

void local_ip(Run& run) {
  std::vector<char> buffer(kReplyBufferSize, '\0');
  const int retval = get_local_ip(run.options, buffer);
  run.check_retval(retval, "get_local_ip");
  if (!run.failure) print_form_reply(run, retval, LOCAL_IP_FIELD, buffer.data());
}

void peer_ip(Run& run, long id, const std::string& peer) {
  std::vector<char> buffer(kReplyBufferSize, '\0');
  const int retval = get_peer_ip(run.options, id, peer, buffer);
  run.check_retval(retval, "get_peer_ip");
  if (!run.failure) print_form_reply(run, retval, PEER_IP_FIELD, buffer.data());
}

void post(Run& run, long id, const std::string& peer) {
  post_network_peer(run.options, id, peer);
  run.check_no_reply("post_network_peer");
  if (!run.failure && run.json) run.print("{}");
}

void chat_send(Run& run, long id, const std::string& peer, const std::string& message) {
  const int retval = send_chat_message(run.options, id, peer, message);
  run.check_retval(retval, "send_chat_message");
  if (!run.failure) print_form_reply(run, retval, "", nullptr);
}

void chat_receive(Run& run, long id, const std::string& peer) {
  std::vector<char> buffer(kReplyBufferSize, '\0');
  const int retval = receive_chat_message(run.options, id, peer, buffer);
  run.check_retval(retval, "receive_chat_message");
  if (!run.failure) print_form_reply(run, retval, CHAT_MESSAGE_FIELD, buffer.data());
}

void status(Run& run, int type) {
  const auto state = get_service_state(run.options, type);
  if (!state) return run.fail_as_library_says("get_service_state");
  if (run.json) return run.print(record_json(*state));
  record_table(*state).print(stdout);
}

void notifications(Run& run, int type) {
  const auto list = get_notifications(run.options, type);
  if (!list) return run.fail_as_library_says("get_notifications");
  if (run.json) {
    std::string all = "[";
    for (const auto& notification : *list) {
      all += (all.size() > 1 ? "," : "") + record_json(*notification);
    }
    return run.print(all + "]");
  }
  Table table({"TYPE", "USERNAME", "MEMBER", "PREVIOUS"});
  for (const auto& notification : *list) {
    table.add({std::to_string(notification->type), table_cell(notification->text),
               table_cell(notification->text2), table_cell(notification->text3)});
  }
  table.print(stdout);
}

void shares_set(Run& run, long id, int share_type, const std::string& path) {
  std::string error;
  const std::string text = read_all(path, error);
  if (!error.empty()) return run.fail(EXIT_USAGE, error);
  const auto shares = shares_from_json(text, error);
  if (!shares) return run.fail(EXIT_USAGE, (path == "-" ? "standard input" : path) + ": " + error);
  set_shares(run.options, id, share_type, *shares);
  run.check_no_reply("set_shares");
  if (!run.failure && run.json) run.print("{}");
}

void set_service_type_command(Run& run, int type) {
  set_service_type(run.options, type);
  run.check_no_reply("set_service_type");
  if (!run.failure && run.json) run.print("{}");
}

void set_connection_type_command(Run& run, int type, int connection_type) {
  set_connection_type(run.options, type, connection_type);
  run.check_no_reply("set_connection_type");
  if (!run.failure && run.json) run.print("{}");
}

// --- the command line ---

// A command for the catalogue's operation `code`: its help is the catalogue's summary.
CLI::App* command(CLI::App& parent, const std::string& name, ServiceCode code) {
  return parent.add_subcommand(name, std::string(service_operation(code)->summary));
}

// The innermost command the parser had reached, for its usage.
const CLI::App* nearest_command(const CLI::App& app) {
  for (const CLI::App* sub : app.get_subcommands()) return nearest_command(*sub);
  return &app;
}

constexpr char kExitStatuses[] =
    "Exit statuses: 0 success; 1 the service answered with a failure; 2 usage error; 3 the\n"
    "service cannot be reached; 4 its reply could not be used; 5 time-out.";

// Every argument a command may take, filled in by the parser.
struct Arguments {
  int type = 0;
  int connection_type = 0;
  int share_type = 0;
  long id = 0;
  std::vector<long> ids;
  std::string name, peer, email, message, file;
  std::vector<std::string> members;
  bool members_flag = false;
};

void add_commands(CLI::App& app, Run& run, Arguments& a) {
  auto* status_command = command(app, "status", CODE_GET_SERVICE_STATE);
  add_number(status_command, "--type", a.type, "the state's type (default 0)");
  status_command->callback([&] { status(run, a.type); });

  auto* networks_command = command(app, "networks", CODE_GET_NETWORKS);
  add_number(networks_command, "--type", a.type, "only networks of this type; 0: all");
  networks_command->add_flag("--members", a.members_flag, "list each network's members too");
  networks_command->callback([&] { networks(run, a.type, a.members_flag); });

  auto* network = app.add_subcommand("network", "show, create or drop networks");
  network->require_subcommand(1);
  auto* show = network->add_subcommand("show", "one network and its members");
  add_number(show, "ID", a.id, "the network's id")->required();
  show->callback([&] { network_show(run, a.id); });
  auto* create = command(*network, "create", CODE_ADD_NETWORK);
  create->add_option("NAME", a.name, "the network's name")->required();
  create->add_option("MEMBER", a.members, "its members' names")->required();
  add_number(create, "--type", a.type, "the network's type (default 0)");
  add_number(create, "--connection-type", a.connection_type, "its connection type (default 0)");
  create->callback([&] { network_create(run, a.name, a.members, a.type, a.connection_type); });
  auto* drop = command(*network, "drop", CODE_DROP_NETWORK);
  add_numbers(drop, "ID", a.ids, "the networks' ids")->required();
  drop->callback([&] { network_drop(run, a.ids); });

  auto* invite_command = command(app, "invite", CODE_INVITE_MEMBER);
  add_number(invite_command, "ID", a.id, "the network's id")->required();
  invite_command->add_option("EMAIL", a.email, "the person's e-mail address")->required();
  invite_command->callback([&] { invite(run, a.id, a.email); });

  const auto network_and_peer = [&](CLI::App* sub) {
    add_number(sub, "ID", a.id, "the network's id")->required();
    sub->add_option("PEER", a.peer, "the peer's name")->required();
    return sub;
  };
  network_and_peer(command(app, "connection", CODE_GET_CONNECTION_INFO))->callback([&] {
    connection(run, a.id, a.peer);
  });
  network_and_peer(command(app, "peer-ip", CODE_GET_PEER_IP))->callback([&] {
    peer_ip(run, a.id, a.peer);
  });
  network_and_peer(command(app, "post", CODE_POST_NETWORK_PEER))->callback([&] {
    post(run, a.id, a.peer);
  });
  command(app, "local-ip", CODE_GET_LOCAL_IP)->callback([&] { local_ip(run); });

  auto* chat = app.add_subcommand("chat", "send or receive chat messages");
  chat->require_subcommand(1);
  auto* send = network_and_peer(command(*chat, "send", CODE_SEND_CHAT_MESSAGE));
  send->add_option("MESSAGE", a.message, "the message")->required();
  send->callback([&] { chat_send(run, a.id, a.peer, a.message); });
  network_and_peer(command(*chat, "receive", CODE_RECEIVE_CHAT_MESSAGE))->callback([&] {
    chat_receive(run, a.id, a.peer);
  });

  auto* notifications_command = command(app, "notifications", CODE_GET_NOTIFICATIONS);
  add_number(notifications_command, "--type", a.type, "the notifications' type (default 0)");
  notifications_command->callback([&] { notifications(run, a.type); });

  auto* shares = app.add_subcommand("shares", "set a network's shares");
  shares->require_subcommand(1);
  auto* shares_set_command = command(*shares, "set", CODE_SET_SHARES);
  add_number(shares_set_command, "ID", a.id, "the network's id")->required();
  add_number(shares_set_command, "--share-type", a.share_type,
             "1: folder shares, 3: connection shares")
      ->required();
  shares_set_command->add_option("FILE", a.file, "a JSON array of shares; - reads standard input")
      ->required();
  shares_set_command->callback([&] { shares_set(run, a.id, a.share_type, a.file); });

  auto* set = app.add_subcommand("set", "set the service type or a connection type");
  set->require_subcommand(1);
  auto* service_type = command(*set, "service-type", CODE_SET_SERVICE_TYPE);
  add_number(service_type, "TYPE", a.type, "the service type")->required();
  service_type->callback([&] { set_service_type_command(run, a.type); });
  auto* connection_type = command(*set, "connection-type", CODE_SET_CONNECTION_TYPE);
  add_number(connection_type, "TYPE", a.type, "the type")->required();
  add_number(connection_type, "CONNECTION_TYPE", a.connection_type, "its connection type")
      ->required();
  connection_type->callback([&] { set_connection_type_command(run, a.type, a.connection_type); });
}

}  // namespace

int quorlinctl_main(int argc, char** argv) {
  Run run;
  Arguments arguments;
  CLI::App app("Administers the local peer-to-peer virtual-network service.", "quorlinctl");
  app.fallthrough();  // the global options are taken after the command too
  app.require_subcommand(1);
  app.footer(kExitStatuses);
  app.set_version_flag("--version", kVersion);
  app.add_flag("-j,--json", run.json, "print one JSON document instead of a table");
  std::string service_text;
  app.add_option("--service", service_text, "HOST:PORT of the service (default 127.0.0.1:7000)")
      ->envname("QUORLIN_SERVICE");
  double timeout_seconds = kDefaultTimeoutSeconds;
  app.add_option("--timeout", timeout_seconds,
                 "seconds for the connect and each reply (default " +
                     std::to_string(kDefaultTimeoutSeconds) + "; 0: no limit)")
      ->check(CLI::NonNegativeNumber);
  app.parse_complete_callback([&] {
    if (!service_text.empty()) {
      const std::string problem = parse_service(service_text, run.options);
      if (!problem.empty()) throw CLI::ValidationError("--service", problem);
      run.service_text = service_text;
    }
    run.options.timeout_ms =
        timeout_seconds == 0 ? NO_TIMEOUT
                             : static_cast<int>(std::min(std::ceil(timeout_seconds * 1000), 2e9));
  });
  add_commands(app, run, arguments);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::fputs(nearest_command(app)->help().c_str(), stdout);
    return EXIT_OK;
  } catch (const CLI::CallForAllHelp&) {
    std::fputs(app.help("", CLI::AppFormatMode::All).c_str(), stdout);
    return EXIT_OK;
  } catch (const CLI::CallForVersion&) {
    std::puts(kVersion);
    return EXIT_OK;
  } catch (const CLI::ParseError& error) {
    const CLI::App* nearest = nearest_command(app);
    std::string message = error.what();
    std::replace(message.begin(), message.end(), '\n', ' ');
    // A word where a command was expected says which word it was.
    for (const std::string& word : app.remaining(true)) {
      if (!word.starts_with("-") && nearest->get_subcommands({}).size() > 0) {
        message = "unknown command \"" + word + "\"";
        break;
      }
    }
    std::fprintf(stderr, "quorlinctl: %s\n%s", message.c_str(), nearest->help().c_str());
    return EXIT_USAGE;
  }
  if (run.failure) {
    std::fprintf(stderr, "quorlinctl: %s\n", run.failure->message.c_str());
    return run.failure->status;
  }
  return EXIT_OK;
}

}  // namespace quorlin::ctl
