// The commands. The listing is gathered into one buffer and written with one call (standard
// error is unbuffered); its bytes are those of one formatted line per entry.
#include "quorlin/cli/commands.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "quorlin/base/strings.hpp"
#include "quorlin/client/service.hpp"

namespace quorlin {
namespace {

// An absent text prints as the C library prints a null string.
const char* printable(const Text& text) {
  return text ? text->c_str() : "(null)";
}

// Builds the listing in one buffer, written to standard error (which is unbuffered) with one
// call. Its bytes are those that "%s" and "%d" would print: an absent text as the C library
// prints a null string, "(null)", and a text up to its first NUL. Each line makes room once for
// all its pieces, which are then copied straight in; the buffer grows by realloc, which moves a
// large block by remapping it rather than copying it.
class Listing {
 public:
  Listing() = default;
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;
  ~Listing() { std::free(text_); }

  // One line: the pieces in order, then LF. The pieces are written through a local cursor, so
  // that the buffer's own fields are read once per line, not once per byte copied.
  template <typename... Pieces>
  void line(const Pieces&... pieces) {
    reserve((room_for(pieces) + ... + 1));
    char* out = text_ + used_;
    ((out = put(out, pieces)), ...);
    *out++ = '\n';
    used_ = out - text_;
  }
  void write() const { std::fwrite(text_, 1, used_, stderr); }

 private:
  // A literal is matched whole, before it could convert to a view or to a Text.
  template <std::size_t N>
  static std::size_t room_for(const char (&)[N]) {
    return N - 1;
  }
  static std::size_t room_for(std::string_view bytes) { return bytes.size(); }
  static std::size_t room_for(const Text& text) { return text ? text->size() : 6; }
  static std::size_t room_for(int) { return 11; }  // "-2147483648"

  template <std::size_t N>
  static char* put(char* out, const char (&literal)[N]) {
    return copy(out, literal, N - 1);
  }
  static char* put(char* out, std::string_view bytes) {
    return copy(out, bytes.data(), bytes.size());
  }
  static char* put(char* out, const Text& text) {
    if (!text) return put(out, "(null)");
    return copy(out, text->c_str(), std::strlen(text->c_str()));  // up to the first NUL
  }
  static char* put(char* out, int number) { return std::to_chars(out, out + 11, number).ptr; }
  static char* copy(char* out, const char* bytes, std::size_t size) {
    std::memcpy(out, bytes, size);
    return out + size;
  }

  void reserve(std::size_t extra) {
    if (capacity_ - used_ >= extra) return;
    const std::size_t capacity = std::max(capacity_ * 2, used_ + extra + 4096);
    char* grown = static_cast<char*>(std::realloc(text_, capacity));
    if (grown == nullptr) throw std::bad_alloc();
    text_ = grown;
    capacity_ = capacity;
  }

  char* text_ = nullptr;
  std::size_t used_ = 0;
  std::size_t capacity_ = 0;
};

void list_members(Listing& listing, PeerNetwork& network) {
  listing.line("Network member count: ", list_count(network.peer_members));
  bool first = true;
  for (const auto& member : network.peer_members) {
    const std::string_view owner = std::exchange(first, false) ? "Owner. " : "";
    listing.line(owner, "Member: ", member->peer, ", IP: ", member->peer_ip, ", Status ",
                 member->status);
  }
}

}  // namespace

void cmd_list(int type) {
  // Networks are listed as they are read and freed at once; the listing is written only once
  // the whole reply has parsed, since a reply that does not parse prints only the failure (and
  // so does a call that runs out of memory).
  Listing listing;
  bool any = false;
  bool stopped = false;
  bool read = false;
  try {
    read = get_networks_each(type, [&](std::unique_ptr<PeerNetwork> network) {
      if (stopped) return;
      any = true;
      if (!network) {
        listing.line("quorlinadmin: Incorrect data for peernetwork entry");
        stopped = true;
        return;
      }
      // The id is printed as an int: its low 32 bits, as the service's own tool prints it.
      listing.line("Network id: ", static_cast<int>(network->id), ", name: ", network->name);
      list_members(listing, *network);
    });
  } catch (const std::bad_alloc&) {
    // No memory for the call itself: it failed as an unreachable service does.
  }
  if (!read) {
    std::fputs("quorlinadmin: Call get_networks failed\n", stderr);
  } else if (!any) {
    std::fputs("quorlinadmin: No networks found\n", stderr);
  } else {
    listing.write();
  }
}

namespace {

// The attempts of cmd_create; true once the service has created the network and it is printed.
bool create_network(const char* first, const char* second) {
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
      return true;
    }
    sleep(CREATE_RETRY_PAUSE_SECONDS);
  }
  return false;
}

}  // namespace

void cmd_create(const char* first, const char* second) {
  if (first == nullptr || second == nullptr) {
    std::fputs("quorlinadmin:CreateNetwork: argument list is incorrect. Network is not created\n",
               stderr);
    std::printf("fail");
    return;
  }
  bool created = false;
  try {
    created = create_network(first, second);
  } catch (const std::bad_alloc&) {
    // Memory for the names ran out: the network is not created.
  }
  if (created) return;
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
  for (const auto& network : *networks) {
    if (!network) {
      std::fputs("quorlinadmin:Incorrect data for peernetwork entry\n", stderr);
      return std::printf("fail");
    }
    if (network->name == SPARED_NETWORK_NAME) continue;
    std::fprintf(stderr, "quorlinadmin:Deleting network id: %d, name: %s... ",
                 static_cast<int>(network->id), printable(network->name));
    drop_network(network->id);
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
