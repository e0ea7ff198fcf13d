// Feeds the same bytes to every record text entry point and writes back whatever is read, both
// as text and through a tree, which must give the same bytes. What is written must read back
// to a record that writes the same bytes again: texts read from a document never hold "<", so
// the unescaped writing loses nothing the reader keeps. Any crash, leak, undefined behaviour
// or difference is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/xml/xml_writer.hpp"

using namespace quorlin;

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// Writes what `parse` reads from `text`, checks the tree's bytes and the second round.
template <typename Parse, typename ToText, typename ToTree>
void round_trip(std::string_view text, Parse parse, ToText to_text, ToTree to_tree) {
  auto record = parse(text);
  if (!record) return;
  const std::string written = to_text(*record);
  require(xml_to_string(*to_tree(*record)) == written);
  auto again = parse(written);
  require(again != nullptr);
  require(to_text(*again) == written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  round_trip(text, peer_network_list_parse, peer_network_list_to_text, peer_network_list_to_xml);
  round_trip(text, peer_network_parse, peer_network_to_text, peer_network_to_xml);
  round_trip(text, peer_member_parse, peer_member_to_text, peer_member_to_xml);
  round_trip(text, service_state_parse, service_state_to_text, service_state_to_xml);
  round_trip(text, peer_connection_info_parse, peer_connection_info_to_text,
             peer_connection_info_to_xml);
  round_trip(text, notification_list_parse, notification_list_to_text, notification_list_to_xml);
  round_trip(
      text, add_network_request_parse,
      [](const AddNetworkRequest& request) { return add_network_request_to_text(request); },
      add_network_request_to_xml);
  round_trip(text, share_list_parse, share_list_to_text,
             [](const ShareList& list) { return share_list_to_xml(list, "Shares"); });
  return 0;
}
