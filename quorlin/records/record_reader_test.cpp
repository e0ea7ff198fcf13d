#include "quorlin/records/record_reader.hpp"

#include <gtest/gtest.h>

#include <string>

#include "quorlin/records/record_writer.hpp"

namespace quorlin {
namespace {

// Each case reads a document and pictures the record by writing it back (or "null").
struct ReadCase {
  const char* document;
  const char* expected;
};

template <typename Record, typename Write>
std::string picture(const std::unique_ptr<Record>& record, Write write) {
  return record ? write(*record) : "null";
}

TEST(RecordReader, ServiceStateCases) {
  const ReadCase cases[] = {
      {"<ServiceState><Type>2</Type></ServiceState>",
       "<ServiceState><Username></Username><Type>2</Type><Started>0</Started></ServiceState>"},
      {"<ServiceState><Type></Type><Username>u</Username><Started>12x</Started></ServiceState>",
       "<ServiceState><Username>u</Username><Type>-1</Type><Started>12</Started></ServiceState>"},
      {"<ServiceState><Type> -7</Type><Started>abc</Started><Other>1</Other></ServiceState>",
       "<ServiceState><Username></Username><Type>-7</Type><Started>0</Started></ServiceState>"},
      {"<Other><Type>2</Type></Other>", "null"},
      {"not xml", "null"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(picture(service_state_parse(c.document), service_state_to_text), c.expected)
        << c.document;
  }
}

TEST(RecordReader, NetworkListKeepsNullItemsAndRefusesOtherRoots) {
  auto list = peer_network_list_parse(
      "<PeerNetworks><PeerNetwork><Id></Id></PeerNetwork><Foo/><PeerNetwork><Id>5</Id>"
      "</PeerNetwork></PeerNetworks>");
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list_count(*list), 3);
  EXPECT_EQ(list->first->item->id, -1);
  EXPECT_EQ(list->first->next->item, nullptr);
  EXPECT_EQ(list->last->item->id, 5);

  auto empty = peer_network_list_parse("<PeerNetworks></PeerNetworks>");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->first, nullptr);
  EXPECT_EQ(peer_network_list_parse("<PeerNetwork></PeerNetwork>"), nullptr);
}

TEST(RecordReader, MemberCases) {
  const ReadCase cases[] = {
      // PeerIp is never read; Status and messages are; a Messages list skips other children.
      {"<PeerMember><Peer>p</Peer><PeerIp>1.2.3.4</PeerIp><Status>4</Status><Messages>"
       "<Message>a</Message><Other>b</Other><Message>c</Message></Messages></PeerMember>",
       "<PeerMember><Peer>p</Peer><Status>4</Status><PeerIp></PeerIp><ConnectStatus>0"
       "</ConnectStatus><RemoteShares></RemoteShares><Messages><Message>a</Message><Message>c"
       "</Message></Messages><ConnectCount>0</ConnectCount></PeerMember>"},
      // Every child of RemoteShares is a share; a FolderShare with Type 3 becomes a
      // ConnectionShare; a repeated Name keeps the second.
      {"<PeerMember><RemoteShares><FolderShare><Type>3</Type><Name>x</Name><Name>y</Name>"
       "</FolderShare><Anything><AccessList><Accessor><Name>a</Name><Type>0</Type></Accessor>"
       "<Nope/></AccessList></Anything></RemoteShares></PeerMember>",
       "<PeerMember><Peer></Peer><Status>0</Status><PeerIp></PeerIp><ConnectStatus>0"
       "</ConnectStatus><RemoteShares><ConnectionShare><Name>y</Name><Type>3</Type><AccessList>"
       "</AccessList></ConnectionShare><Share><Name></Name><Type>0</Type><AccessList><Accessor>"
       "<Name>a</Name><Type>0</Type></Accessor></AccessList></Share></RemoteShares><Messages>"
       "</Messages><ConnectCount>0</ConnectCount></PeerMember>"},
      {"<PeerNetwork></PeerNetwork>", "null"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(picture(peer_member_parse(c.document), peer_member_to_text), c.expected)
        << c.document;
  }
}

TEST(RecordReader, SharesUnderConnectionSharesKeepTheirTypeAndMembersPointUp) {
  auto network = peer_network_parse(
      "<PeerNetwork><ConnectionShares><ConnectionShare><Type>1</Type><Name>x</Name><Path>/p"
      "</Path></ConnectionShare></ConnectionShares><PeerMembers><PeerMember></PeerMember><Other/>"
      "<PeerMember></PeerMember></PeerMembers></PeerNetwork>");
  ASSERT_NE(network, nullptr);
  const Share& share = *network->connection_shares.first->item;
  EXPECT_EQ(share.type, SHARE_TYPE_FOLDER);
  EXPECT_EQ(share.name, "x");
  EXPECT_EQ(share.path, "/p");
  EXPECT_EQ(list_count(network->peer_members), 2);
  EXPECT_EQ(network->peer_members.first->item->network, network.get());
}

TEST(RecordReader, NotificationsAlwaysReadAsAnEmptyList) {
  const std::string documents[] = {
      std::string("<Notifications><Notification><Type>7</Type><Username>u</Username>") +
          "<Member>m</Member><PrevMember>p</PrevMember></Notification></Notifications>",
      "<Notifications></Notifications>",
      "<Other><Notification><Type>7</Type></Notification></Other>",
  };
  for (const std::string& document : documents) {
    auto list = notification_list_parse(document);
    ASSERT_NE(list, nullptr) << document;
    EXPECT_EQ(list->first, nullptr) << document;
  }
  EXPECT_EQ(notification_list_parse("<"), nullptr);
}

TEST(RecordReader, MessagesAreNotBoundedWhenRead) {
  std::string document = "<PeerMember><Messages>";
  for (int i = 0; i < 150; ++i) document += "<Message>m</Message>";
  document += "</Messages></PeerMember>";
  EXPECT_EQ(list_count(peer_member_parse(document)->messages), 150);
}

TEST(RecordReader, ConnectionInfoCutsLongTextsAndReadsRole) {
  std::string long_ip(60, '9');
  auto info = peer_connection_info_parse("<PeerConnectionInfo><Peer>bob</Peer><PeerIp>" + long_ip +
                                         "</PeerIp><PeerHostIp></PeerHostIp><Role>3</Role>"
                                         "</PeerConnectionInfo>");
  ASSERT_NE(info, nullptr);
  EXPECT_STREQ(info->peer, "bob");
  EXPECT_EQ(std::string(info->peer_ip), long_ip.substr(0, 47));
  EXPECT_STREQ(info->peer_host_ip, "");
  EXPECT_EQ(info->role, 3);
}

TEST(RecordReader, ShareListParseNeverReturnsNull) {
  auto list = share_list_parse("garbage");
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list_count(*share_list_parse("<Any><Share/><FolderShare/></Any>")), 2);
}

}  // namespace
}  // namespace quorlin
