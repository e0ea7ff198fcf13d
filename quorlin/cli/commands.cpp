// The commands. The listing is gathered into one buffer and written with few system calls
// (standard error is unbuffered); its bytes are those of one formatted line per entry.
#include "quorlin/cli/commands.hpp"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "quorlin/base/strings.hpp"
#include "quorlin/client/service.hpp"

namespace quorlin {
namespace {

constexpr std::size_t kListingFlushBytes = 64 * 1024;

// An absent text prints as the C library prints a null string.
const char* printable(const Text& text) {
  return text ? text->c_str() : "(null)";
}

// Appends formatted text to the listing, flushing it to standard error in large blocks.
class Listing {
 public:
  ~Listing() { flush(); }
  __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length < 0) return;
    if (static_cast<std::size_t>(length) < sizeof line) {
      text_.append(line, length);
    } else {  // a long name: format again into room of its own
      std::string long_line(length + 1, '\0');
      va_start(arguments, format);
      std::vsnprintf(long_line.data(), long_line.size(), format, arguments);
      va_end(arguments);
      text_.append(long_line.data(), length);
    }
    if (text_.size() >= kListingFlushBytes) flush();
  }
  void flush() {
    std::fwrite(text_.data(), 1, text_.size(), stderr);
    text_.clear();
  }

 private:
  std::string text_;
};

void list_members(Listing& listing, PeerNetwork& network) {
  listing.add("Network member count: %d\n", list_count(network.peer_members));
  for (auto* node = network.peer_members.first; node != nullptr; node = node->next) {
    const PeerMember& member = *node->item;
    if (node == network.peer_members.first) listing.add("Owner. ");
    listing.add("Member: %s, IP: %s, Status %d\n", printable(member.peer),
                printable(member.peer_ip), member.status);
  }
}

}  // namespace

void cmd_list(int type) {
  std::unique_ptr<PeerNetworkList> networks = get_networks(type);
  if (!networks) {
    std::fputs("quorlinadmin: Call get_networks failed\n", stderr);
    return;
  }
  if (networks->first == nullptr) {
    std::fputs("quorlinadmin: No networks found\n", stderr);
    return;
  }
  Listing listing;
  for (auto* node = networks->first; node != nullptr; node = node->next) {
    if (!node->item) {
      listing.add("quorlinadmin: Incorrect data for peernetwork entry\n");
      return;
    }
    PeerNetwork& network = *node->item;
    // The id is printed with %d: its low 32 bits, as the service's own tool prints it.
    listing.add("Network id: %d, name: %s\n", static_cast<int>(network.id),
                printable(network.name));
    list_members(listing, network);
  }
}

void cmd_create(const char* first, const char* second) {
  if (first == nullptr || second == nullptr) {
    std::fputs("quorlinadmin:CreateNetwork: argument list is incorrect. Network is not created\n",
               stderr);
    std::printf("fail");
    return;
  }
  TextList members;
  list_append(members, Text(first));
  list_append(members, Text(second));
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  for (int attempt = 0; attempt < CREATE_ATTEMPTS; ++attempt) {
    std::string name = std::string(first) + "_" + second + "_net_" + str_from_long(std::rand());
    if (auto network = add_network(name, members, 0, 0)) {
      std::fprintf(stderr,
                   "quorlinadmin:CreateNetwork: Network %s successfully created with id %d\n",
                   printable(network->name), static_cast<int>(network->id));
      std::printf("%d", static_cast<int>(network->id));
      return;
    }
    sleep(CREATE_RETRY_PAUSE_SECONDS);
  }
  std::fputs("quorlinadmin:CreateNetwork: Call add_network failed. Network is not created\n",
             stderr);
  std::printf("fail");
}

int cmd_invite(const char* network_text, const char* email) {
  if (network_text == nullptr || email == nullptr) {
    std::fputs("quorlinadmin:CreateNetwork: argument list is incorrect. Network is not created\n",
               stderr);
    return std::printf("fail");
  }
  long network = std::strtol(network_text, nullptr, 10);
  return std::printf(invite_member(network, email) ? "ok" : "fail");
}

int cmd_drop() {
  std::unique_ptr<PeerNetworkList> networks = get_networks(0);
  if (!networks) {
    std::fputs("quorlinadmin:Drop networks fail: call get_networks failed\n", stderr);
    return std::printf("fail");
  }
  if (networks->first == nullptr) {
    std::fputs("quorlinadmin:Drop networks fail: No networks found\n", stderr);
    return std::printf("fail");
  }
  for (auto* node = networks->first; node != nullptr; node = node->next) {
    if (!node->item) {
      std::fputs("quorlinadmin:Incorrect data for peernetwork entry\n", stderr);
      return std::printf("fail");
    }
    const PeerNetwork& network = *node->item;
    if (network.name == SPARED_NETWORK_NAME) continue;
    std::fprintf(stderr, "quorlinadmin:Deleting network id: %d, name: %s... ",
                 static_cast<int>(network.id), printable(network.name));
    drop_network(network.id);
  }
  return std::printf("ok");
}

void print_usage() {
  static constexpr char kUsage[] =
      "quorlinadmin: Incorrect parameters specified\n"
      "Usage:  quorlinadmin list|create|drop [networkname]\n";
  static_assert(sizeof kUsage - 1 == 97);
  std::fwrite(kUsage, 1, sizeof kUsage - 1, stderr);
}

int quorlinadmin_main(int argc, char** argv) {
  // Positions at or beyond the count are missing, whatever the vector holds there.
  auto argument = [&](int index) -> const char* { return index < argc ? argv[index] : nullptr; };
  if (argc <= 1) {
    print_usage();
    return 1;
  }
  const std::string_view command = argv[1];
  if (command == "list") {
    cmd_list(argc == 3 ? static_cast<int>(std::strtol(argv[2], nullptr, 10)) : 0);
    return 0;
  }
  if (command == "create") {
    if (argc <= 3) {
      print_usage();
      return 1;
    }
    cmd_create(argv[2], argv[3]);
    return 0;
  }
  if (command == "drop") {
    cmd_drop();
    return 1;
  }
  if (command == "invite") {
    cmd_invite(argument(2), argument(3));
    return 1;
  }
  return 0;
}

}  // namespace quorlin
