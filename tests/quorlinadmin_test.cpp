// quorlinadmin end to end: the real binary against the service simulator on port 7000,
// asserting standard output, standard error, the exit status and the request lines received.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "quorlin/client/form.hpp"
#include "quorlin/client/service.hpp"
#include "tests/support/peers.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace quorlin {
namespace {

using simulator::ServiceSimulator;

struct ToolRun {
  std::string out;
  std::string err;
  int status;
};

// `prefix` runs the tool under another program, such as faketime.
ToolRun run_tool(const std::string& arguments, const std::string& prefix = "") {
  testing::TempDir dir;
  std::string command =
      prefix + QUORLINADMIN_PATH " " + arguments + " >" + dir.file("out") + " 2>" + dir.file("err");
  int status = std::system(command.c_str());
  return {testing::file_text(dir.file("out")), testing::file_text(dir.file("err")),
          WEXITSTATUS(status)};
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
  const struct {
    const char* arguments;
    const char* out;
    std::string err;
    int status;
    std::vector<std::string> requests;
  } cases[] = {
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
  for (const auto& c : cases) {
    service_.reset();
    service_.clear_requests();
    ToolRun run = run_tool(c.arguments);
    std::vector<std::string> requests = service_.requests();
    for (std::string* text : {&run.err, requests.empty() ? &run.err : &requests.back()})
      *text = without_random_number(*text);
    EXPECT_EQ(run.out, c.out) << c.arguments;
    EXPECT_EQ(run.err, c.err) << c.arguments;
    EXPECT_EQ(run.status, c.status) << c.arguments;
    EXPECT_EQ(requests, c.requests) << c.arguments;
  }
}

// Five attempts, each under a fresh name, with ten seconds of waiting after each failed one,
// the fifth too. faketime runs the tool's clock ten times as fast, so that each pause takes one
// second of the test's time: four refusals take four, and nine- or eleven-second pauses 3.6 or
// 4.4.
TEST_F(QuorlinadminTest, CreateMakesFiveAttemptsTenSecondsApart) {
  ASSERT_EQ(access("/usr/bin/faketime", X_OK), 0) << "install the Debian package faketime";
  for (int refused : {4, 5}) {
    SCOPED_TRACE(refused);
    service_.clear_requests();
    service_.refuse_add_network(refused);
    const auto start = std::chrono::steady_clock::now();
    // ASan's runtime need not come first in the library list when faketime's is preloaded.
    ToolRun run = run_tool("create alice bob",
                           "ASAN_OPTIONS=verify_asan_link_order=0 /usr/bin/faketime -f '+0 x10' ");
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(run.out, refused == 4 ? "1000" : "fail");
    const std::vector<std::string> requests = service_.requests();
    ASSERT_EQ(requests.size(), 10u);  // the form line and the document of each attempt
    EXPECT_NE(requests[1], requests[3]);
    EXPECT_GT(seconds, refused - 0.2);
    EXPECT_LT(seconds, refused + 0.3);
  }
}

// A service that answers the list request with fixed bytes, or none at all.
TEST(QuorlinadminAgainstScriptedService, NoServiceEmptyListsAndEntriesThatAreNotNetworks) {
  const std::string odd_entry =
      "<PeerNetworks><PeerNetwork><Id>1</Id><Name>Friends</Name></PeerNetwork><PeerNetwork><Id>4"
      "</Id><Name>friends</Name></PeerNetwork><Foo></Foo><PeerNetwork><Id>5</Id></PeerNetwork>"
      "</PeerNetworks>\n";
  const std::string empty = "<PeerNetworks></PeerNetworks>\n";
  const struct {
    std::optional<std::string> reply;  // none: nothing listens on port 7000
    const char* command;
    const char* err;
    const char* out;
    int status;
  } rows[] = {
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
  for (const auto& row : rows) {
    std::optional<testing::ScriptedServer> service;
    if (row.reply) service.emplace(testing::answer_one_line(*row.reply), 7000);
    ASSERT_TRUE(row.reply ? service->listening() : !testing::accepts_connections(7000))
        << "port 7000 is taken";
    const ToolRun run = run_tool(row.command);
    EXPECT_EQ(run.err, row.err) << row.command << " " << row.reply.value_or("(no service)");
    EXPECT_EQ(run.out, row.out) << row.command << " " << row.reply.value_or("(no service)");
    EXPECT_EQ(run.status, row.status) << row.command << " " << row.reply.value_or("(no service)");
  }
}

}  // namespace
}  // namespace quorlin
