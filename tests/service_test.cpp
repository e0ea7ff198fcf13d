// The service operations against the simulator and against scripted replies on port 7000.
#include "quorlin/client/service.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "quorlin/client/form.hpp"
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
  EXPECT_STREQ(buffer, "untouched");
}

TEST(ServiceOperations, RequestLinesAndResultsAgainstTheSimulator) {
  ServiceSimulator service;
  ASSERT_TRUE(service.start()) << "port 7000 is taken";
  char buffer[64] = {};

  EXPECT_EQ(get_networks(0)->first->item->name, "Friends");
  EXPECT_EQ(drop_network(17), 0);
  EXPECT_NE(invite_member(2, "x y@z.org"), nullptr);
  EXPECT_EQ(get_local_ip(buffer), 0);
  EXPECT_STREQ(buffer, "192.168.7.2");
  EXPECT_EQ(get_peer_ip(1, "alice", buffer), 0);
  EXPECT_STREQ(buffer, "10.0.1.2");
  EXPECT_EQ(send_chat_message(1, "bob", "hi & bye"), 0);
  EXPECT_EQ(receive_chat_message(1, "bob", buffer), 0);
  EXPECT_STREQ(buffer, "hi & bye");
  EXPECT_EQ(set_service_type(2), 0);
  EXPECT_EQ(get_service_state(0)->type, 2);
  ASSERT_NE(get_notifications(0), nullptr);
  EXPECT_EQ(get_notifications(0)->first, nullptr);
  ShareList shares;
  list_append(shares, folder_share_new("docs", "/srv/docs"));
  EXPECT_EQ(set_shares(1, 1, shares), 0);
  EXPECT_EQ(set_connection_type(1, 4), 0);
  EXPECT_EQ(post_network_peer(2, "zoe"), 0);
  TextList members;
  list_append(members, Text("a"));
  auto network = add_network("n", members, 0, 1);
  ASSERT_NE(network, nullptr);
  EXPECT_EQ(network->name, "n");
  PeerConnectionInfo info{};
  EXPECT_EQ(get_connection_info(1, "alice", info), 0);
  EXPECT_STREQ(info.peer, "alice");
  EXPECT_STREQ(info.peer_host_ip, "203.0.113.7");
  EXPECT_EQ(info.initiator, 1);
  PeerConnectionInfo untouched{};
  EXPECT_EQ(get_connection_info(1, "nobody", untouched), -1);
  EXPECT_STREQ(untouched.peer, "");

  const std::vector<std::string> expected = {
      "p2pnet_command=2&p2pnet_type=0",
      "p2pnet_command=6&p2pnet_network=17",
      "p2pnet_command=5&p2pnet_network=2&p2pnet_email=x+y%40z.org",
      "p2pnet_command=9",
      "p2pnet_command=10&p2pnet_network=1&p2pnet_peer=alice",
      "p2pnet_command=11&p2pnet_network=1&p2pnet_peer=bob&p2pnet_chat_mesg=hi+%26+bye",
      "p2pnet_command=12&p2pnet_network=1&p2pnet_peer=bob",
      "p2pnet_command=1&p2pnet_type=2",
      "p2pnet_command=0&p2pnet_type=0",
      "p2pnet_command=13&p2pnet_type=0",
      "p2pnet_command=13&p2pnet_type=0",
      "p2pnet_command=14&p2pnet_network=1&p2pnet_share_type=1",
      "<Shares><FolderShare><Name>docs</Name><Type>1</Type><AccessList></AccessList>"
      "<Path>/srv/docs</Path></FolderShare></Shares>",
      "p2pnet_command=15&p2pnet_type=1&p2pnet_conn_type=4",
      "p2pnet_command=8&p2pnet_network=2&p2pnet_peer=zoe",
      "p2pnet_command=3",
      "<AddNetworkRequest><Name>n</Name><Members><Member>a</Member></Members><Type>0</Type>"
      "<ConnectionType>1</ConnectionType></AddNetworkRequest>",
      "p2pnet_command=7&p2pnet_network=1&p2pnet_peer=alice",
      "p2pnet_command=7&p2pnet_network=1&p2pnet_peer=nobody",
  };
  EXPECT_EQ(service.requests(), expected);

  // Calls from several threads at once each get a connection of their own.
  std::vector<std::thread> callers;
  std::atomic<int> lists{0};
  for (int i = 0; i < 4; ++i) callers.emplace_back([&] { lists += get_networks(0) != nullptr; });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(lists, 4);
}

// What each operation makes of a reply: its result, then what it wrote to the caller's buffer or
// record.
std::string local_ip() {
  char buffer[16] = "untouched";
  return std::to_string(get_local_ip(buffer)) + " " + buffer;
}
std::string peer_ip() {
  char buffer[16] = "untouched";
  return std::to_string(get_peer_ip(1, "p", buffer)) + " " + buffer;
}
std::string chat_message() {
  char buffer[16] = "untouched";
  return std::to_string(receive_chat_message(1, "p", buffer)) + " " + buffer;
}
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
  const struct {
    std::string reply;
    std::string (*call)();
    std::string expected;
  } rows[] = {
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
      {"p2pnet_retval=0\r\n<PeerConnectionInfo><Peer>" + std::string(5000, 'p') +
           "</Peer><PeerIp>" + std::string(500, '1') + "</PeerIp><PeerHostIp>" +
           std::string(48, '2') + "</PeerHostIp></PeerConnectionInfo>\n",
       connection_info, "0 " + std::string(254, 'p') + " 47 47"},  // fixed fields cut
      {deep + "\n", networks, "null"},
  };
  for (const auto& row : rows) {
    testing::ScriptedServer service(testing::answer_one_line(row.reply), 7000);
    ASSERT_TRUE(service.listening()) << "port 7000 is taken";
    EXPECT_EQ(row.call(), row.expected) << row.reply.substr(0, 80);
  }
}

TEST(ServiceReplies, HostileServiceNeverCrashesOrLeaks) {
  ServiceSimulator service;
  ASSERT_TRUE(service.start()) << "port 7000 is taken";
  const Misbehaviour failures[] = {Misbehaviour::kCloseWithoutReply, Misbehaviour::kNoFinalLineEnd,
                                   Misbehaviour::kGarbage, Misbehaviour::kHugeReply};
  for (Misbehaviour misbehaviour : failures) {
    service.misbehave(misbehaviour, 0, 100u << 20);
    EXPECT_EQ(get_networks(0), nullptr);
    char buffer[16] = "untouched";
    int retval = get_local_ip(buffer);
    // A form reply is read whatever its status: one cut before its LF still counts.
    bool cut_form = misbehaviour == Misbehaviour::kNoFinalLineEnd;
    EXPECT_EQ(retval, cut_form ? 0 : -601);
    EXPECT_STREQ(buffer, cut_form ? "192.168.7.2" : "untouched");
  }
  service.misbehave(Misbehaviour::kDelay, 200);
  EXPECT_NE(get_networks(0), nullptr);
}

}  // namespace
}  // namespace quorlin
