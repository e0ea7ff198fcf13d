// Compact network-list documents as the service sends them: no whitespace, a PeerNetworks root
// and, per network, the elements of a PeerNetwork record in their written order with five
// members each; and the documents of tiny elements that cost a tree most.
#ifndef QUORLIN_BENCH_NETWORK_DOCUMENTS_HPP
#define QUORLIN_BENCH_NETWORK_DOCUMENTS_HPP

#include <string>

namespace quorlin::bench {

inline void append_member(std::string& out, int network, int member) {
  const std::string id = std::to_string(network) + "-" + std::to_string(member);
  out += "<PeerMember><Peer>peer-" + id + "</Peer><Status>1</Status><PeerIp>10." +
         std::to_string(network % 250) + "." + std::to_string(member) + "." +
         std::to_string(network % 200 + 1) +
         "</PeerIp><ConnectStatus>1</ConnectStatus><RemoteShares></RemoteShares>"
         "<Messages></Messages><ConnectCount>" +
         std::to_string(member + 2) + "</ConnectCount></PeerMember>";
}

inline void append_network(std::string& out, int network) {
  out += "<PeerNetwork><Id>" + std::to_string(100000 + network) + "</Id><Type>0</Type><Name>net-" +
         std::to_string(network) + "</Name><PeerMembers>";
  for (int member = 0; member < 5; ++member) append_member(out, network, member);
  out +=
      "</PeerMembers><FolderShares></FolderShares><ConnectionShares></ConnectionShares>"
      "<ConnectStatus>1</ConnectStatus><EnableSharing>1</EnableSharing>"
      "<EnableFolderSharing>0</EnableFolderSharing>"
      "<EnableConnectionSharing>0</EnableConnectionSharing></PeerNetwork>";
}

// A PeerNetworks document of about `target_bytes`.
inline std::string network_list_document(std::size_t target_bytes) {
  std::string out = "<PeerNetworks>";
  for (int network = 0; out.size() + 1300 < target_bytes; ++network) append_network(out, network);
  out += "</PeerNetworks>";
  return out;
}

// `levels` elements with distinct names (e0, e1, ...), each inside the one before, around `text`.
inline std::string nested_document(int levels, const std::string& text = "") {
  std::string out;
  for (int level = 0; level < levels; ++level) out += "<e" + std::to_string(level) + ">";
  out += text;
  for (int level = levels - 1; level >= 0; --level) out += "</e" + std::to_string(level) + ">";
  return out;
}

// One element named `name` with `count` distinct attributes (k0="v", k1="v", ...).
inline std::string element_with_attributes(const std::string& name, int count) {
  std::string out = "<" + name;
  for (int i = 0; i < count; ++i) out += " k" + std::to_string(i) + "=\"v\"";
  return out + "></" + name + ">";
}

}  // namespace quorlin::bench

#endif  // QUORLIN_BENCH_NETWORK_DOCUMENTS_HPP
