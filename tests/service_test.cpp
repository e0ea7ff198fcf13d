// The service operations, and quorlinadmin end to end, against the simulator and against scripted
// replies on port 7000.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "quorlin/client/form.hpp"
#include "quorlin/client/service.hpp"
#include "tests/support/peers.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace quorlin {
namespace {

using namespace std::string_literals;
using simulator::Misbehaviour;
using simulator::ServiceSimulator;

TEST(ServiceOperations, WithoutAServiceEachShapeFailsItsOwnWay) {
  char buffer[16] = "untouched";
  EXPECT_EQ(get_networks(0), nullptr);
  EXPECT_EQ(get_service_state(0), nullptr);
  EXPECT_EQ(invite_member(1, "a@b.c"), nullptr);
  EXPECT_EQ(receive_chat_message(1, "p", buffer), -400);
  EXPECT_EQ(get_local_ip(buffer), -400);
  EXPECT_EQ(drop_network(1), -1);
  EXPECT_EQ(set_connection_type(1, 2), -1);
  EXPECT_EQ(set_shares(1, 1, ShareList()), 0);
  EXPECT_EQ(connect_to_service(), -1);
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_EQ(SERVICE_FORM_CAPACITY, 1024u);
}

// What the operations at the default address make of the service's answers, where neither the
// replies below nor quorlinctl (the same request cycle, which asserts every request's bytes and
// every record's fields) nor quorlinadmin already shows it.
TEST(ServiceOperations, ResultsAgainstTheSimulator) {
  ServiceSimulator service;
  ASSERT_TRUE(service.start()) << "port 7000 is taken";
  EXPECT_EQ(drop_network(17), 0);
  EXPECT_EQ(send_chat_message(1, "bob", "hi & bye"), 0);
  EXPECT_EQ(set_service_type(2), 0);
  EXPECT_EQ(get_service_state(0)->type, 2);
  EXPECT_EQ(list_count(*get_notifications(0)), 0);
  const Connection connection = connect_to_service();
  EXPECT_GT(connection, 0);
  EXPECT_EQ(close_service_connection(connection), 0);
  EXPECT_EQ(post_network_peer(2, "zoe"), 0);
  PeerConnectionInfo untouched{};
  EXPECT_EQ(get_connection_info(1, "nobody", untouched), -1);
  EXPECT_STREQ(untouched.peer, "");

  // Calls from several threads at once each get a connection of their own.
  std::vector<std::thread> callers;
  std::atomic<int> lists{0};
  for (int i = 0; i < 4; ++i) callers.emplace_back([&] { lists += get_networks(0) != nullptr; });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(lists, 4);
}

// What each operation makes of a reply: its result, then what it wrote to the caller's buffer or
// record.
template <int (*call)(std::span<char>)>
std::string into_buffer() {
  char buffer[16] = "untouched";
  return std::to_string(call(std::span<char>(buffer))) + " " + buffer;
}
constexpr auto local_ip = into_buffer<get_local_ip>;
constexpr auto peer_ip = into_buffer<+[](std::span<char> b) { return get_peer_ip(1, "p", b); }>;
constexpr auto chat_message =
    into_buffer<+[](std::span<char> b) { return receive_chat_message(1, "p", b); }>;
std::string connection_info() {
  PeerConnectionInfo info{};
  copy_fixed_text(info.peer, "kept");
  const int retval = get_connection_info(1, "p", info);
  return std::to_string(retval) + " " + info.peer + " " +
         std::to_string(std::strlen(info.peer_ip)) + " " +
         std::to_string(std::strlen(info.peer_host_ip));
}
std::string networks() {
  return get_networks(0) ? "a list" : "null";
}

// Each row answers one request with fixed bytes, then closes.
TEST(ServiceReplies, ResultsAndCopiesForEachShapeOfReply) {
  std::string deep;
  for (int i = 0; i < 1'000'000; ++i) deep += "<a>";
  // The reply, the call, and what the call makes of it.
  const std::tuple<std::string, std::string (*)(), std::string> rows[] = {
      {"p2pnet_retval=-3\r\n", local_ip, "-3 untouched"},
      {"p2pnet_retval=abc\r\n", local_ip, "0 untouched"},
      {"foo=1\r\n", local_ip, "-601 untouched"},
      {"\r\n", local_ip, "-601 untouched"},
      {"", local_ip, "-601 untouched"},
      {"p2pnet_retval=-1&p2pnet_local_ip=1.2.3.4\r\n", local_ip, "-1 untouched"},
      {"p2pnet_retval=-1&p2pnet_peer_ip=1.2.3.4\r\n", peer_ip, "-1 untouched"},
      {"p2pnet_retval=0&p2pnet_local_ip=1.2.3.4", local_ip, "0 1.2.3.4"},  // cut before the LF
      {"p2pnet_retval=0&p2pnet_local_ip=" + std::string(300, '9') + "\r\n", local_ip,
       "0 999999999999999"},  // cut to the buffer
      // A CR is dropped wherever it stands, a NUL ends the line's text.
      {"p2pnet_retval=0&p2pnet_local_ip=1.2\r.3\r\n", local_ip, "0 1.2.3"},
      {"p2pnet_retval=0&p2pnet_local_ip=1.2\0.3\r\n"s, local_ip, "0 1.2"},
      // Fields: a value runs to the next "&" and is decoded; the first of duplicates counts,
      // names compared exactly; "&&" makes the "&" part of the next name.
      {"p2pnet_retval=0&p2pnet_local_ip=1=2%41+\r\n", local_ip, "0 1=2A "},
      {"P2pnet_local_ip=9&p2pnet_retval=0&p2pnet_local_ip=1&p2pnet_local_ip=2\r\n", local_ip,
       "0 1"},
      {"p2pnet_retval=0&&p2pnet_local_ip=1\r\n", local_ip, "0 untouched"},
      {"p2pnet_retval=0&p2pnet_local_ip=&x\r\n", local_ip, "0 "},
      {"p2pnet_chat_mesg=late&p2pnet_retval=-7\r\n", chat_message, "-7 late"},
      {"p2pnet_retval=2\r\n", connection_info, "2 kept 0 0"},
      {"p2pnet_retval=2\r\n<PeerConnectionInfo>", connection_info, "2 kept 0 0"},
      // A second line that ends by the close, not by its LF, is not read.
      {"p2pnet_retval=0\r\n<PeerConnectionInfo><Peer>x</Peer></PeerConnectionInfo>",
       connection_info, "0 kept 0 0"},
      {"p2pnet_retval=0\r\n<PeerConnectionInfo><Peer>x</Peer></PeerConnectionInfo>\n",
       connection_info, "0 x 0 0"},
      {"p2pnet_retval=0\r\n<PeerConnectionInfo><Peer>" + std::string(5000, 'p') +
           "</Peer><PeerIp>" + std::string(500, '1') + "</PeerIp><PeerHostIp>" +
           std::string(48, '2') + "</PeerHostIp></PeerConnectionInfo>\n",
       connection_info, "0 " + std::string(254, 'p') + " 47 47"},  // fixed fields cut
      {deep + "\n", networks, "null"},
  };
  for (const auto& [reply, call, expected] : rows) {
    testing::ScriptedServer service(testing::answer_one_line(reply), 7000);
    ASSERT_TRUE(service.listening()) << "port 7000 is taken";
    EXPECT_EQ(call(), expected) << reply.substr(0, 80);
  }
}

// quorlinadmin end to end: the real binary against the service simulator on port 7000,
// asserting standard output, standard error, the exit status and the request lines received.

using ToolRun = testing::ProgramRun;

// `prefix` runs the tool under another program, such as faketime.
ToolRun run_tool(const std::string& arguments, const std::string& prefix = "") {
  return testing::run_program(prefix + QUORLINADMIN_PATH " " + arguments);
}

// The random number of a created network's name ("alice_bob_net_1234") replaced by "#".
std::string without_random_number(std::string_view text) {
  std::string out;
  for (std::size_t at; (at = text.find("_net_")) != std::string_view::npos;) {
    out.append(text.substr(0, at + 5)).append("#");
    text.remove_prefix(at + 5);
    text.remove_prefix(std::min(text.find_first_not_of("0123456789"), text.size()));
  }
  return out.append(text);
}

const char kUsage[] =
    "quorlinadmin: Incorrect parameters specified\n"
    "Usage:  quorlinadmin list|create|drop [networkname]\n";

const char kSeedListing[] =
    "Network id: 1, name: Friends\nNetwork member count: 3\n"
    "Owner. Member: me, IP: (null), Status 1\nMember: alice, IP: (null), Status 1\n"
    "Member: bob, IP: (null), Status 1\n"
    "Network id: 2, name: Work\nNetwork member count: 2\n"
    "Owner. Member: me, IP: (null), Status 1\nMember: carol, IP: (null), Status 1\n";

const char kGamingListing[] =
    "Network id: 3, name: Gaming\nNetwork member count: 4\n"
    "Owner. Member: me, IP: (null), Status 1\nMember: dave, IP: (null), Status 1\n"
    "Member: erin, IP: (null), Status 1\nMember: frank, IP: (null), Status 1\n";

const std::string kEveryListing = std::string(kSeedListing) + kGamingListing;
const char kNotCreated[] =
    "quorlinadmin:CreateNetwork: argument list is incorrect. Network is not created\n";

class QuorlinadminTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(service_.start()) << "port 7000 is taken"; }
  ServiceSimulator service_;
};

TEST_F(QuorlinadminTest, ArgumentRulesAndExitStatuses) {
  // The arguments; standard output, standard error and the exit status; the requests received.
  const std::tuple<const char*, const char*, std::string, int, std::vector<std::string>> cases[] = {
      // clang-format off
      {"", "", kUsage, 1, {}},
      {"create alice", "", kUsage, 1, {}},
      {"status", "", "", 0, {}},
      {"invite", "fail", kNotCreated, 1, {}},
      {"invite 5", "fail", kNotCreated, 1, {}},
      {"invite 12abc a@b.c", "fail", "", 1, {"p2pnet_command=5&p2pnet_network=12&p2pnet_email=a%40b.c"}},
      {"invite 2 a@b.c extra", "ok", "", 1, {"p2pnet_command=5&p2pnet_network=2&p2pnet_email=a%40b.c"}},
      {"list", "", kEveryListing, 0, {"p2pnet_command=2&p2pnet_type=0"}},
      {"list 3", "", kGamingListing, 0, {"p2pnet_command=2&p2pnet_type=3"}},
      {"list abc", "", kEveryListing, 0, {"p2pnet_command=2&p2pnet_type=0"}},
      {"list 3 4", "", kEveryListing, 0, {"p2pnet_command=2&p2pnet_type=0"}},
      {"drop", "ok", "quorlinadmin:Deleting network id: 2, name: Work... quorlinadmin:Deleting network id: 3, name: Gaming... ", 1,
       {"p2pnet_command=2&p2pnet_type=0", "p2pnet_command=6&p2pnet_network=2", "p2pnet_command=6&p2pnet_network=3"}},
      {"create alice bob carol", "1000",
       "quorlinadmin:CreateNetwork: Network alice_bob_net_# successfully created with id 1000\n", 0,
       {"p2pnet_command=3", "<AddNetworkRequest><Name>alice_bob_net_#</Name><Members><Member>alice"
        "</Member><Member>bob</Member></Members><Type>0</Type><ConnectionType>0</ConnectionType>"
        "</AddNetworkRequest>"}},
      // clang-format on
  };
  for (const auto& [arguments, out, err, status, requests] : cases) {
    service_.reset();
    service_.clear_requests();
    ToolRun run = run_tool(arguments);
    std::vector<std::string> received = service_.requests();
    for (std::string* text : {&run.err, received.empty() ? &run.err : &received.back()})
      *text = without_random_number(*text);
    EXPECT_EQ(run.out, out) << arguments;
    EXPECT_EQ(run.err, err) << arguments;
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_EQ(received, requests) << arguments;
  }
}

// Five attempts, each under a fresh name, with ten seconds of waiting after each failed one,
// the fifth too. Where the tool is not sanitized, faketime runs its clock ten times as fast, so
// that each pause takes one second of the test's time; a sanitized tool gets no time library
// preloaded beneath its runtime and waits the real ten seconds. Four refusals take four pauses;
// nine- or eleven-second pauses fall outside the bounds.
TEST_F(QuorlinadminTest, CreateMakesFiveAttemptsTenSecondsApart) {
#ifdef QUORLIN_SANITIZED_TOOL
  const std::string clock;
  const double pause = 10;
#else
  ASSERT_EQ(access("/usr/bin/faketime", X_OK), 0) << "install the Debian package faketime";
  const std::string clock = "/usr/bin/faketime -f '+0 x10' ";
  const double pause = 1;
#endif
  for (int refused : {4, 5}) {
    SCOPED_TRACE(refused);
    service_.clear_requests();
    service_.refuse_add_network(refused);
    const auto start = std::chrono::steady_clock::now();
    ToolRun run = run_tool("create alice bob", clock);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(run.out, refused == 4 ? "1000" : "fail");
    const std::vector<std::string> requests = service_.requests();
    ASSERT_EQ(requests.size(), 10u);  // the form line and the document of each attempt
    EXPECT_NE(requests[1], requests[3]);
    EXPECT_GT(seconds, (refused - 0.2) * pause);
    EXPECT_LT(seconds, (refused + 0.3) * pause);
  }
}

// A service that answers the list request with fixed bytes, or none at all.
TEST(QuorlinadminAgainstScriptedService, NoServiceEmptyListsAndEntriesThatAreNotNetworks) {
  const std::string odd_entry =
      "<PeerNetworks><PeerNetwork><Id>1</Id><Name>Friends</Name></PeerNetwork><PeerNetwork><Id>4"
      "</Id><Name>friends</Name></PeerNetwork><Foo></Foo><PeerNetwork><Id>5</Id></PeerNetwork>"
      "</PeerNetworks>\n";
  const std::string empty = "<PeerNetworks></PeerNetworks>\n";
  // The reply (none: nothing listens on port 7000), the command; standard error, standard output
  // and the exit status.
  using Row = std::tuple<std::optional<std::string>, const char*, const char*, const char*, int>;
  const Row rows[] = {
      {std::nullopt, "list", "quorlinadmin: Call get_networks failed\n", "", 0},
      {std::nullopt, "drop", "quorlinadmin:Drop networks fail: call get_networks failed\n", "fail",
       1},
      {std::nullopt, "invite 1 a@b.c", "", "fail", 1},
      {odd_entry, "list",
       "Network id: 1, name: Friends\nNetwork member count: 0\nNetwork id: 4, name: friends\n"
       "Network member count: 0\nquorlinadmin: Incorrect data for peernetwork entry\n",
       "", 0},
      {odd_entry, "drop",  // only "Friends", exactly, is spared
       "quorlinadmin:Deleting network id: 4, name: friends... "
       "quorlinadmin:Incorrect data for peernetwork entry\n",
       "fail", 1},
      {empty, "list", "quorlinadmin: No networks found\n", "", 0},
      {empty, "drop", "quorlinadmin:Drop networks fail: No networks found\n", "fail", 1},
  };
  for (const auto& [reply, command, err, out, status] : rows) {
    SCOPED_TRACE(std::string(command) + " " + reply.value_or("(no service)"));
    std::optional<testing::ScriptedServer> service;
    if (reply) service.emplace(testing::answer_one_line(*reply), 7000);
    ASSERT_TRUE(reply ? service->listening() : !testing::accepts_connections(7000))
        << "port 7000 is taken";
    const ToolRun run = run_tool(command);
    EXPECT_EQ(run.err, err);
    EXPECT_EQ(run.out, out);
    EXPECT_EQ(run.status, status);
  }
}

}  // namespace
}  // namespace quorlin
