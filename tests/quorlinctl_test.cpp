// quorlinctl end to end: the real binary against the service simulator on a port of its own,
// asserting the JSON it prints (parsed and compared as values), the request lines the service
// received, the tables people read, and the exit status and message of every kind of failure.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/peers.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace quorlin {
namespace {

using nlohmann::json;
using simulator::Misbehaviour;
using simulator::ServiceSimulator;

// A simulator on a port the system chooses.
const simulator::SimulatorOptions kAnyPort{
    .port = 0, .generated_networks = 0, .request_log_path = {}};

// quorlinctl with the service at 127.0.0.1:port.
testing::ProgramRun ctl(int port, const std::string& arguments, const std::string& input = "") {
  return testing::run_program(
      QUORLINCTL_PATH " --service 127.0.0.1:" + std::to_string(port) + " " + arguments, input);
}

TEST(Quorlinctl, EveryOperationPrintsItsJsonAndSendsItsRequest) {
  ServiceSimulator service(kAnyPort);
  ASSERT_TRUE(service.start());
  // A seed member as JSON: connected, its address never read back.
  const auto member_json = [](const std::string& peer) {
    return R"({"Peer":")" + peer +
           R"(","Status":1,"PeerIp":null,"ConnectStatus":1,"RemoteShares":[],"Messages":[],)"
           R"("ConnectCount":0})";
  };
  // The arguments (the global options before or after the command); the JSON printed; the
  // request lines the service received.
  const std::tuple<std::string, std::string, std::vector<std::string>> rows[] = {
      {"--json status",
       R"({"Username":"me","Type":1,"Started":1})",
       {"p2pnet_command=0&p2pnet_type=0"}},
      {"set service-type 2 -j", "{}", {"p2pnet_command=1&p2pnet_type=2"}},
      {"--json network show 2",
       R"({"Id":2,"Type":0,"Name":"Work","PeerMembers":[)" + member_json("me") + "," +
           member_json("carol") +
           R"(],"FolderShares":[],"ConnectionShares":[],"ConnectStatus":0,"EnableSharing":1,)"
           R"("EnableFolderSharing":0,"EnableConnectionSharing":0})",
       {"p2pnet_command=2&p2pnet_type=0"}},
      {"--json networks --type 3",
       R"([{"Id":3,"Type":3,"Name":"Gaming","PeerMembers":[)" + member_json("me") + "," +
           member_json("dave") + "," + member_json("erin") + "," + member_json("frank") +
           R"(],"FolderShares":[],"ConnectionShares":[],"ConnectStatus":0,"EnableSharing":1,)"
           R"("EnableFolderSharing":0,"EnableConnectionSharing":0}])",
       {"p2pnet_command=2&p2pnet_type=3"}},
      {"--json network create lab ann bo --type 2 --connection-type 1",
       R"({"Id":1000,"Type":2,"Name":"lab","PeerMembers":[{"Peer":"ann","Status":0,)"
       R"("PeerIp":null,"ConnectStatus":0,"RemoteShares":[],"Messages":[],)"
       R"("ConnectCount":0},{"Peer":"bo","Status":0,"PeerIp":null,"ConnectStatus":0,)"
       R"("RemoteShares":[],"Messages":[],"ConnectCount":0}],"FolderShares":[],)"
       R"("ConnectionShares":[],"ConnectStatus":0,"EnableSharing":1,"EnableFolderSharing":0,)"
       R"("EnableConnectionSharing":0})",
       {"p2pnet_command=3",
        "<AddNetworkRequest><Name>lab</Name><Members><Member>ann</Member><Member>bo</Member>"
        "</Members><Type>2</Type><ConnectionType>1</ConnectionType></AddNetworkRequest>"}},
      {"--json invite 1 x@y.org",
       R"({"Peer":"x@y.org","Status":0,"PeerIp":null,"ConnectStatus":0,"RemoteShares":[],)"
       R"("Messages":[],"ConnectCount":0})",
       {"p2pnet_command=5&p2pnet_network=1&p2pnet_email=x%40y.org"}},
      {"--json connection 1 alice",
       R"({"p2pnet_retval":0,"PeerConnectionInfo":{"Peer":"alice","PeerIp":"10.0.1.2",)"
       R"("PeerHostIp":"203.0.113.7","ConnectionTry":0,"ConnectionProtocol":1,)"
       R"("ConnectionDirection":0,"ConnectionMethod":0,"Initiator":1,"EncryptionType":0}})",
       {"p2pnet_command=7&p2pnet_network=1&p2pnet_peer=alice"}},
      {"--json post 1 zoe", "{}", {"p2pnet_command=8&p2pnet_network=1&p2pnet_peer=zoe"}},
      {"--json local-ip",
       R"({"p2pnet_retval":0,"p2pnet_local_ip":"192.168.7.2"})",
       {"p2pnet_command=9"}},
      {"--json peer-ip 2 carol",
       R"({"p2pnet_retval":0,"p2pnet_peer_ip":"10.0.2.2"})",
       {"p2pnet_command=10&p2pnet_network=2&p2pnet_peer=carol"}},
      {"--json chat send 1 bob 'hi & bye'",
       R"({"p2pnet_retval":0})",
       {"p2pnet_command=11&p2pnet_network=1&p2pnet_peer=bob&p2pnet_chat_mesg=hi+%26+bye"}},
      {"--json chat receive 1 bob",
       R"({"p2pnet_retval":0,"p2pnet_chat_mesg":"hi & bye"})",
       {"p2pnet_command=12&p2pnet_network=1&p2pnet_peer=bob"}},
      // A member's address is written but never read, and no element reads as a notification.
      {"--json notifications", "[]", {"p2pnet_command=13&p2pnet_type=0"}},
      {"--json shares set 1 --share-type 1 -",
       "{}",
       {"p2pnet_command=14&p2pnet_network=1&p2pnet_share_type=1",
        "<Shares><FolderShare><Name>docs</Name><Type>1</Type><AccessList><Accessor><Name>ann"
        "</Name><Type>0</Type></Accessor></AccessList><Path>/srv/docs</Path></FolderShare>"
        "<Share><Name>x</Name><Type>2</Type><AccessList></AccessList></Share></Shares>"}},
      {"--json set connection-type 1 4",
       "{}",
       {"p2pnet_command=15&p2pnet_type=1&p2pnet_conn_type=4"}},
      {"--json network drop 2 3",
       "{}",
       {"p2pnet_command=6&p2pnet_network=2", "p2pnet_command=6&p2pnet_network=3"}},
  };
  const std::string shares =
      R"([{"Name":"docs","Type":1,"Path":"/srv/docs","AccessList":[{"Name":"ann","Type":null}]},)"
      R"({"Name":"x","Type":2}])";
  for (const auto& [arguments, printed, requests] : rows) {
    SCOPED_TRACE(arguments);
    service.clear_requests();
    const testing::ProgramRun run = ctl(service.port(), arguments, shares);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(json::parse(run.out, nullptr, false), json::parse(printed));
    EXPECT_EQ(service.requests(), requests);
  }
}

// Names as a service may send them: a table escapes every byte that could forge a row or a
// column, or that is not UTF-8; JSON carries them exactly, with U+FFFD for bytes that are not.
TEST(Quorlinctl, NetworkNamesThatCouldForgeARow) {
  ServiceSimulator service(kAnyPort);
  ASSERT_TRUE(service.start());
  service.answer_with(
      "<PeerNetworks><PeerNetwork><Id>1</Id><Name>a, b</Name></PeerNetwork><PeerNetwork><Id>22"
      "</Id><Name>tab\there\vvt</Name></PeerNetwork><PeerNetwork><Id>3</Id><Name>\x1b[31mred\\"
      "</Name></PeerNetwork><PeerNetwork><Id>4</Id><Name>\"q\" \xc3\xa9 \xff\xc3</Name>"
      "</PeerNetwork><PeerNetwork><Id>5</Id></PeerNetwork></PeerNetworks>\n");
  EXPECT_EQ(ctl(service.port(), "networks").out,
            "ID  TYPE  NAME            MEMBERS\n"
            "1   0     a, b            0\n"
            "22  0     tab\\there\\vvt   0\n"
            "3   0     \\x1b[31mred\\\\   0\n"
            "4   0     \"q\" \xc3\xa9 \\xff\\xc3  0\n"
            "5   0     -               0\n");
  EXPECT_EQ(ctl(service.port(), "network show 22").out,
            "ID  TYPE  NAME           MEMBERS  PEER  ADDRESS  STATUS  CONNECTION\n"
            "22  0     tab\\there\\vvt  0\n");
  const testing::ProgramRun listed = ctl(service.port(), "networks --json");
  const json names = json::parse(listed.out);
  EXPECT_EQ(names[1]["Name"], "tab\there\vvt");
  EXPECT_EQ(names[3]["Name"], "\"q\" \xc3\xa9 \xef\xbf\xbd\xef\xbf\xbd");
  EXPECT_EQ(names[4]["Name"], nullptr);
  // A record's own fields as rows. UTF-8 ends at U+10FFFF and has no surrogates or overlong forms.
  service.answer_with(
      "<ServiceState><Username>\xed\x9f\xbf\xed\xa0\x80\xed\xbf\xbf\xee\x80\x80"
      "\xe0\x9f\xbf\xf4\x8f\xbf\xbf\xf4\x90\x80\x80</Username></ServiceState>\n");
  EXPECT_EQ(ctl(service.port(), "status").out,
            "FIELD     VALUE\nUsername  \xed\x9f\xbf\\xed\\xa0\\x80\\xed\\xbf\\xbf\xee\x80\x80"
            "\\xe0\\x9f\\xbf\xf4\x8f\xbf\xbf\\xf4\\x90\\x80\\x80\nType      -1\nStarted   0\n");
  EXPECT_NE(ctl(service.port(), "--help").out.find("(default 30; 0: no limit)"), std::string::npos);
}

// Each failure: its exit status and its one message.
TEST(Quorlinctl, ExitStatusesAndMessages) {
  ServiceSimulator service(kAnyPort);
  ASSERT_TRUE(service.start());
  const int port = service.port();
  const int nothing_there = testing::free_port();
  testing::ScriptedServer silent([](int connection) {
    testing::read_bytes(connection, 1 << 20);  // reads until the client gives up
  });
  // The service's misbehaviour, the arguments; the exit status and the start of the message.
  const std::tuple<Misbehaviour, std::string, int, std::string> rows[] = {
      {Misbehaviour::kNone, "invite 12x a@b.c", 2, "quorlinctl: ID: "},
      {Misbehaviour::kNone, "invite 99999999999999999999 a@b.c", 2, "quorlinctl: ID: "},
      {Misbehaviour::kNone, "netwrks", 2, "quorlinctl: unknown command \"netwrks\"\n"},
      {Misbehaviour::kNone, "network show", 2, "quorlinctl: ID is required"},
      {Misbehaviour::kNone, "networks --bogus", 2, "quorlinctl: "},
      {Misbehaviour::kNone, "--timeout -1 status", 2, "quorlinctl: --timeout: "},
      {Misbehaviour::kNone, "shares set 1 --share-type 1 -", 2,
       "quorlinctl: standard input: [json.exception.parse_error.101] parse error at line 2, "
       "column 1"},
      {Misbehaviour::kNone, "invite 77 a@b.c", 1, "quorlinctl: the service refused invite_member"},
      {Misbehaviour::kNone, "network show 77", 1, "quorlinctl: the service has no network 77"},
      {Misbehaviour::kNone, "chat receive 1 nobody", 1, "quorlinctl: the service refused"},
      {Misbehaviour::kNone, "connection 1 nobody", 1, "quorlinctl: the service refused get_conn"},
      {Misbehaviour::kCloseWithoutReply, "status", 4, "quorlinctl: the service's reply to"},
      {Misbehaviour::kCloseWithoutReply, "local-ip", 4, "quorlinctl: the service's reply to"},
      {Misbehaviour::kNoFinalLineEnd, "networks --json", 4, "quorlinctl: the service's reply"},
      {Misbehaviour::kGarbage, "networks", 4, "quorlinctl: the service's reply"},
      {Misbehaviour::kHugeReply, "notifications", 4, "quorlinctl: the service's reply"},
      {Misbehaviour::kDelay, "--timeout 0.2 status", 5, "quorlinctl: the service at 127.0.0.1:"},
  };
  for (const auto& [misbehaviour, arguments, status, message] : rows) {
    SCOPED_TRACE(arguments);
    service.misbehave(misbehaviour, 1000, 8u << 20);
    const testing::ProgramRun run = ctl(port, arguments, "[\n");
    EXPECT_EQ(run.status, status);
    EXPECT_EQ(run.err.substr(0, message.size()), message) << run.err;
    EXPECT_EQ(run.out, "");
  }
  EXPECT_EQ(ctl(port, "invite 2 x@y.z").out,
            "FIELD          VALUE\nPeer           x@y.z\nStatus         0\nPeerIp         -\n"
            "ConnectStatus  0\nConnectCount   0\n");
  const testing::ProgramRun unreachable = ctl(nothing_there, "status");
  EXPECT_EQ(unreachable.status, 3);
  EXPECT_EQ(unreachable.err, "quorlinctl: cannot reach the service at 127.0.0.1:" +
                                 std::to_string(nothing_there) + "\n");
  const testing::ProgramRun timed_out = ctl(silent.port(), "--timeout 0.3 networks");
  EXPECT_EQ(timed_out.status, 5);
  EXPECT_EQ(timed_out.err, "quorlinctl: the service at 127.0.0.1:" + std::to_string(silent.port()) +
                               " did not answer get_networks in time\n");
}

}  // namespace
}  // namespace quorlin
