// LoopbackServer: a TCP server on 127.0.0.1 for the service simulator, the tests' scripted peers
// and the benchmarks.
//
// It binds a given port, or an ephemeral one for port 0, and accepts in a thread of its own:
// each connection goes to the handler, one at a time, and is closed when the handler returns.
// Stopping (or destroying) it shuts the listening socket down, which wakes the waiting thread,
// and joins it; a handler that is running finishes first.
#ifndef QUORLIN_TOOLS_LOOPBACK_SERVER_LOOPBACK_SERVER_HPP
#define QUORLIN_TOOLS_LOOPBACK_SERVER_LOOPBACK_SERVER_HPP

#include <atomic>
#include <functional>
#include <string_view>
#include <thread>

namespace quorlin::tools {

class LoopbackServer {
 public:
  using Handler = std::function<void(int connection)>;

  explicit LoopbackServer(Handler handle, int port = 0);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  // False when the port could not be bound; the server then serves nothing.
  bool listening() const { return listener_ >= 0; }
  int port() const { return port_; }
  void stop();

  // Connections handled to the end so far; waits up to `timeout_ms` for more than `count`.
  int served() const { return served_; }
  bool wait_served_more_than(int count, int timeout_ms = 5000) const;

 private:
  void serve();

  Handler handle_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<int> served_{0};
  std::thread thread_;
};

// Sends all of `bytes` on a connection, or stops at the first failure (the peer has gone).
void write_all(int connection, std::string_view bytes);

}  // namespace quorlin::tools

#endif  // QUORLIN_TOOLS_LOOPBACK_SERVER_LOOPBACK_SERVER_HPP
