// One request/reply round trip per connection against a loopback server: the library's
// connection_open + send_all + recv_exact + connection_close beside a minimal plain-socket loop.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "quorlin/net/connection.hpp"

namespace {

constexpr int kMessageSize = 64;

// Accepts connections one by one, answers each 64-byte request with 64 bytes, then closes.
class RoundTripServer {
 public:
  RoundTripServer() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 128);
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~RoundTripServer() {
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  int port() const { return port_; }

 private:
  void serve() {
    char buffer[kMessageSize];
    while (!stopping_) {
      int connection = accept(listener_, nullptr, nullptr);
      if (connection < 0) continue;
      if (quorlin::recv_exact_nostatus(connection, buffer, kMessageSize) == kMessageSize) {
        send(connection, buffer, kMessageSize, MSG_NOSIGNAL);
      }
      close(connection);
    }
  }
  int listener_;
  int port_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

RoundTripServer& server() {
  static RoundTripServer instance;
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
