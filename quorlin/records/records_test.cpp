#include "quorlin/records/records.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <type_traits>

#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace quorlin {
namespace {

TEST(MessageQueue, KeepsTheHundredNewestAndPopsOldestFirst) {
  auto member = peer_member_new(nullptr);
  const auto connection = connection_share_new();
  EXPECT_EQ(std::pair(connection->name, connection->type), std::pair(Text("Connection"), 3));
  for (int status : {0, 1, 2}) {  // connected is ConnectStatus 1, and only 1
    member->connect_status = status;
    EXPECT_EQ(peer_member_is_connected(*member), status == 1);
  }
  for (int i = 0; i <= 100; ++i) peer_member_push_message(*member, std::to_string(i));
  EXPECT_EQ(peer_member_pop_message(*member), "1");
  EXPECT_EQ(peer_member_pop_message(*member), "2");
  peer_member_clear_messages(*member);
  EXPECT_EQ(peer_member_pop_message(*member), std::nullopt);
}

// Reads a document with `parse` and writes the record back ("null" for none), both as text
// and as a tree, which must write the same bytes. A kind with a reader of its own for a parsed
// tree must read the same record through it.
template <auto parse, auto to_text, auto to_tree, auto from_tree = nullptr>
std::string read_and_write(std::string_view document) {
  auto record = parse(document);
  if constexpr (!std::is_null_pointer_v<decltype(from_tree)>) {
    const auto tree = xml_parse(document);
    const auto from = tree ? from_tree(*tree) : nullptr;
    if (!from != !record || (from && to_text(*from) != to_text(*record))) return "readers differ";
  }
  if (!record) return "null";
  const std::string text = to_text(*record);
  const std::string through_tree = xml_to_string(*to_tree(*record));
  return text == through_tree ? text : text + " but through a tree " + through_tree;
}

constexpr auto kState = read_and_write<service_state_parse, service_state_to_text,
                                       service_state_to_xml, service_state_from_xml>;
constexpr auto kMember =
    read_and_write<peer_member_parse, peer_member_to_text, peer_member_to_xml,
                   +[](const XmlNode& element) { return peer_member_from_xml(element, nullptr); }>;
constexpr auto kNetwork = read_and_write<peer_network_parse, peer_network_to_text,
                                         peer_network_to_xml, peer_network_from_xml>;
constexpr auto kNetworks = read_and_write<peer_network_list_parse, peer_network_list_to_text,
                                          peer_network_list_to_xml, peer_network_list_from_xml>;
constexpr auto kInfo = read_and_write<peer_connection_info_parse, peer_connection_info_to_text,
                                      peer_connection_info_to_xml, peer_connection_info_from_xml>;
std::string (*const kRequest)(std::string_view) = read_and_write<
    add_network_request_parse,
    static_cast<std::string (*)(const AddNetworkRequest&)>(add_network_request_to_text),
    add_network_request_to_xml, add_network_request_from_xml>;
constexpr auto kShares =
    read_and_write<share_list_parse, share_list_to_text,
                   +[](const ShareList& list) { return share_list_to_xml(list, "Shares"); }>;

TEST(RecordXml, EveryKindReadsAndWritesBack) {
  // The kind, the document read, and the record written back.
  const std::tuple<std::string (*)(std::string_view), const char*, const char*> cases[] = {
      // Missing children keep the constructor's values; a child without text gives -1.
      {kState, "<ServiceState><Type>2</Type></ServiceState>",
       "<ServiceState><Username></Username><Type>2</Type><Started>0</Started></ServiceState>"},
      {kState,
       "<ServiceState><Type></Type><Started>12x</Started><Username>u</Username>"
       "</ServiceState>",
       "<ServiceState><Username>u</Username><Type>-1</Type><Started>12</Started></ServiceState>"},
      {kState,
       "<ServiceState><Type> -7</Type><Started>abc</Started><Other>1</Other>"
       "</ServiceState>",
       "<ServiceState><Username></Username><Type>-7</Type><Started>0</Started></ServiceState>"},
      {kState, "<ServiceState><Started>3</Started></ServiceState>",
       "<ServiceState><Username></Username><Type>-1</Type><Started>3</Started></ServiceState>"},
      {kState, "<Other><Type>2</Type></Other>", "null"},
      {kState, "not xml", "null"},
      // PeerIp is written but never read, nor are names that only start or end like a field's;
      // Messages keeps only its Message children.
      {kMember,
       "<PeerMember><Peer>p</Peer><PeerIp>1.2.3.4</PeerIp><Status>4</Status><ConnectStatuz>9"
       "</ConnectStatuz><ConnectCounter>9</ConnectCounter><Messages>"
       "<Message>a</Message><Other>b</Other><Message></Message></Messages></PeerMember>",
       "<PeerMember><Peer>p</Peer><Status>4</Status><PeerIp></PeerIp><ConnectStatus>0"
       "</ConnectStatus><RemoteShares></RemoteShares><Messages><Message>a</Message><Message>"
       "</Message></Messages><ConnectCount>0</ConnectCount></PeerMember>"},
      // Every child of a share list is a share, typed by its name until a Type child; a
      // repeated Name keeps the second; only Accessor children of an AccessList count.
      {kMember,
       "<PeerMember><ConnectCount>3</ConnectCount><RemoteShares><FolderShare><Type>3</Type>"
       "<Name>x</Name><Name>y</Name></FolderShare><Anything><AccessList><Accessor><Name>a"
       "</Name><Type>0</Type></Accessor><Nope/></AccessList></Anything></RemoteShares>"
       "<ConnectStatus>1</ConnectStatus></PeerMember>",
       "<PeerMember><Peer></Peer><Status>0</Status><PeerIp></PeerIp><ConnectStatus>1"
       "</ConnectStatus><RemoteShares><ConnectionShare><Name>y</Name><Type>3</Type><AccessList>"
       "</AccessList></ConnectionShare><Share><Name></Name><Type>0</Type><AccessList><Accessor>"
       "<Name>a</Name><Type>0</Type></Accessor></AccessList></Share></RemoteShares><Messages>"
       "</Messages><ConnectCount>3</ConnectCount></PeerMember>"},
      {kMember, "<PeerNetwork></PeerNetwork>", "null"},
      // A folder listed under ConnectionShares stays a folder with its Path; a Path of another
      // type is not written; members come only from PeerMember children.
      {kNetwork,
       "<PeerNetwork><EnableConnectionSharing>1</EnableConnectionSharing><Id>-1</Id>"
       "<ConnectionShares><ConnectionShare><Type>1</Type><Name>x</Name><Path>/p</Path>"
       "</ConnectionShare></ConnectionShares><FolderShares><Share><Path>/q</Path></Share>"
       "</FolderShares><PeerMembers><Other/><PeerMember><Peer>m</Peer></PeerMember>"
       "</PeerMembers><Name>n</Name><Type>2</Type><ConnectStatus>5</ConnectStatus>"
       "<EnableSharing>6</EnableSharing><EnableFolderSharing>7</EnableFolderSharing>"
       "</PeerNetwork>",
       "<PeerNetwork><Id>-1</Id><Type>2</Type><Name>n</Name><PeerMembers><PeerMember><Peer>m"
       "</Peer><Status>0</Status><PeerIp></PeerIp><ConnectStatus>0</ConnectStatus><RemoteShares>"
       "</RemoteShares><Messages></Messages><ConnectCount>0</ConnectCount></PeerMember>"
       "</PeerMembers><FolderShares><Share><Name></Name><Type>0</Type><AccessList></AccessList>"
       "</Share></FolderShares><ConnectionShares><FolderShare><Name>x</Name><Type>1</Type>"
       "<AccessList></AccessList><Path>/p</Path></FolderShare></ConnectionShares><ConnectStatus>"
       "5</ConnectStatus><EnableSharing>6</EnableSharing><EnableFolderSharing>7"
       "</EnableFolderSharing><EnableConnectionSharing>1</EnableConnectionSharing>"
       "</PeerNetwork>"},
      {kNetwork, "<PeerNetworks></PeerNetworks>", "null"},
      // A child that is not a network is a null item, which has nothing to write.
      {kNetworks, "<PeerNetworks><PeerNetwork><Id>5</Id></PeerNetwork><Foo/></PeerNetworks>",
       "<PeerNetworks><PeerNetwork><Id>5</Id><Type>0</Type><Name></Name><PeerMembers>"
       "</PeerMembers><FolderShares></FolderShares><ConnectionShares></ConnectionShares>"
       "<ConnectStatus>0</ConnectStatus><EnableSharing>0</EnableSharing><EnableFolderSharing>0"
       "</EnableFolderSharing><EnableConnectionSharing>0</EnableConnectionSharing></PeerNetwork>"
       "</PeerNetworks>"},
      {kNetworks, "<PeerNetwork></PeerNetwork>", "null"},
      {kNetworks, "<PeerNetworks><PeerNetwork><Id>5</Id></PeerNetwork><PeerNetwork>", "null"},
      // Fixed fields are cut to leave room for the NUL; Role is read but never written.
      {kInfo,
       "<PeerConnectionInfo><Role>3</Role><EncryptionType>8</EncryptionType><PeerIp>"
       "1234567890123456789012345678901234567890123456789</PeerIp><Peer>bob</Peer>"
       "<PeerHostIp></PeerHostIp><ConnectionTry>1</ConnectionTry><ConnectionProtocol>2"
       "</ConnectionProtocol><ConnectionDirection>3</ConnectionDirection><ConnectionMethod>4"
       "</ConnectionMethod><Initiator>5</Initiator></PeerConnectionInfo>",
       "<PeerConnectionInfo><Peer>bob</Peer><PeerIp>12345678901234567890123456789012345678901"
       "234567</PeerIp><PeerHostIp></PeerHostIp><ConnectionTry>1</ConnectionTry>"
       "<ConnectionProtocol>2</ConnectionProtocol><ConnectionDirection>3</ConnectionDirection>"
       "<ConnectionMethod>4</ConnectionMethod><Initiator>5</Initiator><EncryptionType>8"
       "</EncryptionType></PeerConnectionInfo>"},
      {kRequest,
       "<AddNetworkRequest><ConnectionType>4</ConnectionType><Members><Member>a</Member><Other/>"
       "<Member>b</Member></Members><Name>net</Name><Type>1</Type></AddNetworkRequest>",
       "<AddNetworkRequest><Name>net</Name><Members><Member>a</Member><Member>b</Member>"
       "</Members><Type>1</Type><ConnectionType>4</ConnectionType></AddNetworkRequest>"},
      {kRequest, "<AddNetworkRequest></AddNetworkRequest>",
       "<AddNetworkRequest><Name></Name><Members></Members><Type>0</Type><ConnectionType>0"
       "</ConnectionType></AddNetworkRequest>"},
      // Any root holds shares; a text that does not parse gives an empty List.
      {kShares,
       "<Any><Share></Share><FolderShare></FolderShare><ConnectionShare></ConnectionShare></Any>",
       "<Shares><Share><Name></Name><Type>0</Type><AccessList></AccessList></Share><FolderShare>"
       "<Name></Name><Type>1</Type><AccessList></AccessList><Path></Path></FolderShare>"
       "<ConnectionShare><Name></Name><Type>3</Type><AccessList></AccessList></ConnectionShare>"
       "</Shares>"},
      {kShares, "garbage", "<Shares></Shares>"},
  };
  for (const auto& [kind, document, written] : cases)
    EXPECT_EQ(kind(document), written) << document;
}

// Constructors refuse a missing text; only type 7 is written; reading gives an empty list for any
// document that parses.
TEST(RecordXml, BuiltRecordsAndNotifications) {
  EXPECT_EQ(notification_new_kind7("u", std::nullopt, "p"), nullptr);
  EXPECT_EQ(notification_new_kind7(std::nullopt, "m", "p"), nullptr);
  EXPECT_EQ(notification_new_kind4(std::nullopt, 3), nullptr);
  EXPECT_EQ(notification_new_kind2("a", std::nullopt, 3), nullptr);
  NotificationList notifications;
  list_append(notifications, notification_new_kind4("skip", 1));
  list_append(notifications, notification_new_kind2("a", "b", 9));
  list_append(notifications, notification_new_kind7("u", "m", "p"));
  std::string kinds;
  for (const auto& notification : notifications)
    kinds += std::to_string(notification->type) + "/" + std::to_string(notification->number) + " ";
  EXPECT_EQ(kinds, "4/1 2/9 7/0 ");
  const std::string written = notification_list_to_text(notifications);
  EXPECT_EQ(written,
            "<Notifications><Notification><Type>7</Type><Username>u</Username><Member>m</Member>"
            "<PrevMember>p</PrevMember></Notification></Notifications>");
  EXPECT_EQ(notification_list_parse(written)->first, nullptr);
  EXPECT_EQ(notification_list_from_xml(*xml_parse("<Shares/>"))->first, nullptr);
  EXPECT_EQ(notification_list_parse("<"), nullptr);
  EXPECT_EQ(add_network_request_to_text(*add_network_request_new(std::nullopt, nullptr, 0, 0)),
            "<AddNetworkRequest><Name></Name><Members></Members><Type>0</Type><ConnectionType>0"
            "</ConnectionType></AddNetworkRequest>");
}

// The tree entry points that add under a parent or read into a List write and read the same
// elements as the document's own readers and writers.
TEST(RecordXml, TreeEntryPointsAddTheSameElements) {
  const std::string folder =
      "<FolderShare><Name>d</Name><Type>1</Type><AccessList><Accessor><Name>a</Name><Type>0"
      "</Type></Accessor></AccessList><Path>/d</Path></FolderShare>";
  const std::string member =
      "<PeerMember><Peer>p</Peer><Status>1</Status><PeerIp></PeerIp><ConnectStatus>0"
      "</ConnectStatus><RemoteShares>" +
      folder +
      "</RemoteShares><Messages><Message>m</Message></Messages><ConnectCount>0"
      "</ConnectCount></PeerMember>";
  const auto tree = xml_parse("<PeerMembers>" + member + "</PeerMembers>");
  const auto child = [](const XmlNode& node, int index) -> const XmlNode& {
    return *std::next(xml_node_children(node).begin(), index);
  };
  PeerNetwork network;
  peer_member_list_read(*tree, network);
  const PeerMember& read = *network.peer_members.first->item;
  const XmlNode& shares = child(child(*tree, 0), 4);
  ShareList one, all;
  share_read(child(shares, 0), one);
  share_list_read(shares, all);
  AccessList access;
  access_list_read(child(child(shares, 0), 2), access);
  AccessorList accessors;
  accessor_read(child(child(child(shares, 0), 2), 0), accessors);
  TextList texts;
  string_list_read(child(child(*tree, 0), 5), "Messages", "Message", texts);
  NotificationList notifications;
  notification_read(*xml_parse("<Notification><Type>7</Type></Notification>"), notifications);
  // Each writer under a parent <P>, and what it writes there.
  const std::pair<std::function<void(XmlNode&)>, std::string> writes[] = {
      {[&](XmlNode& p) { peer_member_write(read, p); }, member},
      {[&](XmlNode& p) { peer_network_write(network, p); }, peer_network_to_text(network)},
      {[&](XmlNode& p) { peer_member_list_write(network.peer_members, p); },
       "<PeerMembers>" + member + "</PeerMembers>"},
      {[&](XmlNode& p) { share_write(*one.first->item, p); }, folder},
      {[&](XmlNode& p) { share_list_write(all, "S", p); }, "<S>" + folder + "</S>"},
      {[&](XmlNode& p) { access_list_write(access, p); },
       "<AccessList><Accessor><Name>a</Name><Type>0</Type></Accessor></AccessList>"},
      {[&](XmlNode& p) { accessor_write(*accessors.first->item, p); },
       "<Accessor><Name>a</Name><Type>0</Type></Accessor>"},
      {[&](XmlNode& p) { string_list_write(texts, "Ms", "M", p); }, "<Ms><M>m</M></Ms>"},
      {[&](XmlNode& p) { notification_write(*notification_new_kind7("u", "m", "q"), p); },
       "<Notification><Type>7</Type><Username>u</Username><Member>m</Member><PrevMember>q"
       "</PrevMember></Notification>"},
      {[&](XmlNode& p) { xml_set_text_int(xml_add_element(p, "I"), -7); }, "<I>-7</I>"},
      {[&](XmlNode& p) { xml_set_text_long(xml_add_element(p, "L"), 1L << 40); },
       "<L>1099511627776</L>"},
  };
  for (const auto& [write, written] : writes) {
    const auto parent = xml_node_new("P");
    write(*parent);
    EXPECT_EQ(xml_to_string(*parent), "<P>" + written + "</P>");
  }
  EXPECT_EQ(notifications.first, nullptr);  // the kind-7 constructor refuses what was read
  EXPECT_EQ(xml_text_int(*xml_parse("<I>-12x</I>")), -12);
  EXPECT_EQ(xml_to_string(*notification_list_to_xml(notifications)),
            "<Notifications></Notifications>");
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
