// One request/reply round trip per connection against a loopback server: the library's
// connection_open + send_all + recv_exact + connection_close beside a minimal plain-socket loop.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "quorlin/net/connection.hpp"
#include "tools/loopback_server/loopback_server.hpp"

namespace {

constexpr int kMessageSize = 64;

// Answers each connection's 64-byte request with 64 bytes, then closes it.
quorlin::tools::LoopbackServer round_trip_server() {
  return quorlin::tools::LoopbackServer([](int connection) {
    char buffer[kMessageSize];
    if (quorlin::recv_exact_nostatus(connection, buffer, kMessageSize) == kMessageSize) {
      send(connection, buffer, kMessageSize, MSG_NOSIGNAL);
    }
  });
}

quorlin::tools::LoopbackServer& server() {
  static quorlin::tools::LoopbackServer instance = round_trip_server();
  return instance;
}

void BM_LibraryRoundTrip(benchmark::State& state) {
  char request[kMessageSize] = {'q'};
  char reply[kMessageSize];
  for (auto _ : state) {
    quorlin::Connection connection = quorlin::connection_open(0, "127.0.0.1", server().port());
    quorlin::send_all(connection, request, kMessageSize);
    if (quorlin::recv_exact_nostatus(connection, reply, kMessageSize) != kMessageSize) {
      state.SkipWithError("short reply");
    }
    quorlin::connection_close(connection);
  }
}

// The minimal loop; with `reset_on_close` it sets linger 0 as the library does, so that both
// close the same way (a reset, no TIME_WAIT).
void plain_round_trips(benchmark::State& state, bool reset_on_close) {
  char request[kMessageSize] = {'q'};
  char reply[kMessageSize];
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(server().port()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (auto _ : state) {
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    if (reset_on_close) {
      linger reset{1, 0};
      setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    send(descriptor, request, kMessageSize, 0);
    long got = 0;
    while (got < kMessageSize) {
      ssize_t result = recv(descriptor, reply + got, kMessageSize - got, 0);
      if (result <= 0) break;
      got += result;
    }
    if (got != kMessageSize) state.SkipWithError("short reply");
    close(descriptor);
  }
}

void BM_PlainSocketRoundTrip(benchmark::State& state) {
  plain_round_trips(state, false);
}
void BM_PlainSocketResetRoundTrip(benchmark::State& state) {
  plain_round_trips(state, true);
}

BENCHMARK(BM_PlainSocketRoundTrip)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlainSocketResetRoundTrip)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibraryRoundTrip)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
