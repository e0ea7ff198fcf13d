#include "quorlin/records/record_writer.hpp"

#include <gtest/gtest.h>

#include <string>

#include "quorlin/records/record_reader.hpp"

namespace quorlin {
namespace {

std::unique_ptr<PeerNetwork> sample_network() {
  auto network = peer_network_new();
  network->id = -1;
  network->type = 2;
  network->name = "Friends";
  network->enable_sharing = 1;
  auto member = peer_member_new(network.get());
  member->peer = "alice";
  member->status = 3;
  member->connect_status = MEMBER_CONNECTED;
  member->connect_count = 4;
  peer_member_push_message(*member, "hi");
  peer_member_push_message(*member, "there");
  auto share = folder_share_new("docs", "/home/docs");
  share_add_accessor(*share, std::make_unique<Accessor>(Accessor{"bob", 0}));
  list_append(member->remote_shares, std::move(share));
  list_append(network->peer_members, std::move(member));
  list_append(network->connection_shares, connection_share_new());
  list_append(network->folder_shares, share_new("plain", 2));
  return network;
}

TEST(RecordWriter, DocumentsHaveTheFixedChildOrder) {
  auto state = service_state_new();
  state->type = 3;
  state->started = 1;
  EXPECT_EQ(service_state_to_text(*state),
            "<ServiceState><Username></Username><Type>3</Type><Started>1</Started>"
            "</ServiceState>");

  ShareList shares;
  list_append(shares, share_new("x", 2));
  list_append(shares, folder_share_new("f", std::nullopt));
  EXPECT_EQ(share_list_to_text(shares),
            "<Shares><Share><Name>x</Name><Type>2</Type><AccessList></AccessList></Share>"
            "<FolderShare><Name>f</Name><Type>1</Type><AccessList></AccessList><Path></Path>"
            "</FolderShare></Shares>");

  EXPECT_EQ(peer_network_to_text(*peer_network_new()),
            "<PeerNetwork><Id>0</Id><Type>0</Type><Name></Name><PeerMembers></PeerMembers>"
            "<FolderShares></FolderShares><ConnectionShares></ConnectionShares><ConnectStatus>0"
            "</ConnectStatus><EnableSharing>0</EnableSharing><EnableFolderSharing>0"
            "</EnableFolderSharing><EnableConnectionSharing>0</EnableConnectionSharing>"
            "</PeerNetwork>");

  EXPECT_EQ(add_network_request_to_text(*add_network_request_new("n", list_create<Text>(), 1, 5)),
            "<AddNetworkRequest><Name>n</Name><Members></Members><Type>1</Type><ConnectionType>5"
            "</ConnectionType></AddNetworkRequest>");

  NotificationList notifications;
  list_append(notifications, notification_new_kind4("skip", 1));
  list_append(notifications, notification_new_kind7("u", "m", "p"));
  EXPECT_EQ(notification_list_to_text(notifications),
            "<Notifications><Notification><Type>7</Type><Username>u</Username><Member>m</Member>"
            "<PrevMember>p</PrevMember></Notification></Notifications>");

  auto info = peer_connection_info_new();
  copy_fixed_text(info->peer, "bob");
  info->role = 9;
  info->initiator = 1;
  EXPECT_EQ(peer_connection_info_to_text(*info),
            "<PeerConnectionInfo><Peer>bob</Peer><PeerIp></PeerIp><PeerHostIp></PeerHostIp>"
            "<ConnectionTry>0</ConnectionTry><ConnectionProtocol>0</ConnectionProtocol>"
            "<ConnectionDirection>0</ConnectionDirection><ConnectionMethod>0</ConnectionMethod>"
            "<Initiator>1</Initiator><EncryptionType>0</EncryptionType></PeerConnectionInfo>");
}

TEST(RecordWriter, RecordsRoundTripExceptPeerIpAndRole) {
  auto network = sample_network();
  network->peer_members.first->item->peer_ip = "10.0.0.1";  // written, never read back
  std::string text = peer_network_to_text(*network);
  auto back = peer_network_parse(text);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->peer_members.first->item->peer_ip, std::nullopt);
  back->peer_members.first->item->peer_ip = "10.0.0.1";
  EXPECT_EQ(peer_network_to_text(*back), text);
  // The queue is written by walking it, not by popping.
  EXPECT_EQ(list_count(network->peer_members.first->item->messages), 2);

  PeerNetworkList networks;
  list_append(networks, sample_network());
  list_append(networks, peer_network_new());
  std::string list_text = peer_network_list_to_text(networks);
  EXPECT_EQ(peer_network_list_to_text(*peer_network_list_parse(list_text)), list_text);

  auto request = add_network_request_empty();
  request->name = "net";
  list_append(*request->members, Text("a"));
  list_append(*request->members, Text("b"));
  request->connection_type = 4;
  std::string request_text = add_network_request_to_text(*request);
  EXPECT_EQ(add_network_request_to_text(*add_network_request_parse(request_text)), request_text);

  auto info = peer_connection_info_new();
  copy_fixed_text(info->peer_host_ip, "192.168.1.1");
  info->role = 2;
  auto info_back = peer_connection_info_parse(peer_connection_info_to_text(*info));
  EXPECT_STREQ(info_back->peer_host_ip, "192.168.1.1");
  EXPECT_EQ(info_back->role, 0);
}

TEST(AccessListAllowText, ListsAllowedAccessorsAndPrintsTheLine) {
  AccessList access_list;
  testing::internal::CaptureStdout();
  EXPECT_EQ(access_list_allow_text(access_list), "<Access></Access>");
  list_append(access_list.accessors, std::make_unique<Accessor>(Accessor{"alice", 0}));
  list_append(access_list.accessors, std::make_unique<Accessor>(Accessor{"bob", 1}));
  list_append(access_list.accessors, std::make_unique<Accessor>(Accessor{"carol", 0}));
  EXPECT_EQ(access_list_allow_text(access_list),
            "<Access><Allow>alice</Allow><Allow>carol</Allow></Access>");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "acxml <Access></Access>\nacxml <Access><Allow>alice</Allow><Allow>carol</Allow>"
            "</Access>\n");
}

}  // namespace
}  // namespace quorlin
