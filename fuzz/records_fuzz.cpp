// Feeds the same bytes to every record text entry point and writes back whatever is read.
// Any crash, leak or undefined behaviour is a finding.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"

using namespace quorlin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto list = peer_network_list_parse(text)) peer_network_list_to_text(*list);
  if (auto network = peer_network_parse(text)) peer_network_to_text(*network);
  if (auto member = peer_member_parse(text)) peer_member_to_text(*member);
  if (auto state = service_state_parse(text)) service_state_to_text(*state);
  if (auto info = peer_connection_info_parse(text)) peer_connection_info_to_text(*info);
  if (auto notifications = notification_list_parse(text)) {
    notification_list_to_text(*notifications);
  }
  if (auto request = add_network_request_parse(text)) add_network_request_to_text(*request);
  share_list_to_text(*share_list_parse(text));
  return 0;
}
