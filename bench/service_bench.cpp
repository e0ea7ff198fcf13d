// The tool against the service simulator: `quorlinadmin list` of a 16 MB network list beside
// `xmllint --noout` parsing the same document from a file, and a loop of get_local_ip
// operations beside plain sockets and beside a minimal server. The simulator runs in this
// process on port 7000.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "quorlin/client/service.hpp"
#include "quorlin/net/connection.hpp"
#include "quorlin/records/record_writer.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace {

constexpr int kNetworks = 11'800;  // five members each: about 16 MB as the simulator writes them

struct Fixture {
  Fixture()
      : service({.port = quorlin::SERVICE_PORT,
                 .generated_networks = kNetworks,
                 .request_log_path = {}}) {
    if (!service.start()) {
      std::fprintf(stderr, "port %d is taken\n", quorlin::SERVICE_PORT);
      std::exit(1);
    }
    auto networks = quorlin::simulator::seed_networks(kNetworks);
    document_path = "/tmp/quorlin-bench-networks.xml";
    std::ofstream(document_path) << quorlin::peer_network_list_to_text(*networks) << '\n';
    document_bytes = quorlin::peer_network_list_to_text(*networks).size();
  }
  ~Fixture() { std::remove(document_path.c_str()); }
  quorlin::simulator::ServiceSimulator service;
  std::string document_path;
  std::size_t document_bytes = 0;
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

void run_or_fail(benchmark::State& state, const std::string& command) {
  if (std::system(command.c_str()) == -1) state.SkipWithError("could not run the command");
}

void BM_QuorlinadminList16MB(benchmark::State& state) {
  const std::string command = std::string(QUORLINADMIN_PATH) + " list 2>/dev/null";
  run_or_fail(state, command);  // the simulator writes its reply once, then serves it cached
  for (auto _ : state) run_or_fail(state, command);
  state.counters["document_MB"] = fixture().document_bytes / 1e6;
}

void BM_XmllintNoout16MB(benchmark::State& state) {
  const std::string command = "xmllint --noout " + fixture().document_path;
  for (auto _ : state) run_or_fail(state, command);
}

void BM_GetLocalIp(benchmark::State& state) {
  fixture();
  char ip[64];
  for (auto _ : state) {
    if (quorlin::get_local_ip(ip) != 0) state.SkipWithError("get_local_ip failed");
  }
  state.SetItemsProcessed(state.iterations());
}

// The same request and reply with plain socket calls: the floor that connection set-up on this
// machine puts under any client.
void BM_PlainSocketGetLocalIp(benchmark::State& state) {
  fixture();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(quorlin::SERVICE_PORT);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  static constexpr char kRequest[] = "p2pnet_command=9\r\n";
  char reply[256];
  for (auto _ : state) {
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    send(descriptor, kRequest, sizeof kRequest - 1, 0);
    std::size_t got = 0;
    while (got < sizeof reply) {
      ssize_t result = recv(descriptor, reply + got, sizeof reply - got, 0);
      if (result <= 0) break;
      got += result;
      if (std::memchr(reply, '\n', got) != nullptr) break;
    }
    close(descriptor);
  }
  state.SetItemsProcessed(state.iterations());
}

// The floor of the machine itself: the loopback server with a minimal handler (one recv, one send,
// close) on another port, and the same plain-socket client; no client can beat this loop.
void BM_MinimalServerRoundTrip(benchmark::State& state) {
  quorlin::tools::LoopbackServer server([](int connection) {
    static constexpr char kReply[] = "p2pnet_retval=0&p2pnet_local_ip=127.0.0.1\r\n";
    char request[256];
    if (recv(connection, request, sizeof request, 0) > 0) {
      send(connection, kReply, sizeof kReply - 1, 0);
    }
  });
  if (!server.listening()) {
    state.SkipWithError("no listener");
    return;
  }
  const sockaddr_in address = quorlin::ipv4_socket_address("127.0.0.1", server.port());
  char reply[256];
  for (auto _ : state) {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    send(descriptor, "p2pnet_command=9\r\n", 18, 0);
    recv(descriptor, reply, sizeof reply, 0);
    close(descriptor);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_XmllintNoout16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_QuorlinadminList16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_PlainSocketGetLocalIp)
    ->Iterations(10'000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetLocalIp)->Iterations(10'000)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MinimalServerRoundTrip)
    ->Iterations(10'000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
