// A stand-in for the local peer-to-peer network service: it listens on 127.0.0.1 (port 7000 by
// default), answers all fifteen operations from a plausible in-memory state, records every
// request line it receives, and misbehaves on request. It is built on the library's own form
// parser and record writers and readers, so what it sends is what the real service's documents
// look like to the client.
//
// Connections are served one at a time in a thread of their own; the state and the request log
// are locked, so tests may read them while it runs.
#ifndef QUORLIN_TOOLS_SERVICE_SIMULATOR_SERVICE_SIMULATOR_HPP
#define QUORLIN_TOOLS_SERVICE_SIMULATOR_SERVICE_SIMULATOR_HPP

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "quorlin/client/form.hpp"
#include "quorlin/records/records.hpp"
#include "tools/loopback_server/loopback_server.hpp"

namespace quorlin::simulator {

enum class Misbehaviour {
  kNone,
  kCloseWithoutReply,  // reads the request, closes without a byte
  kNoFinalLineEnd,     // the usual reply without its last LF, then closes
  kGarbage,            // bytes that are neither a form nor a document, ended by LF
  kDelay,              // waits `delay_ms` before the usual reply
  kHugeReply,          // `huge_reply_bytes` without any line end, then closes
  kFixedReply,         // the bytes given to answer_with, then closes
};

// What the simulator was told to do instead of answering plainly.
struct Mischief {
  Misbehaviour misbehaviour = Misbehaviour::kNone;
  int delay_ms = 0;
  std::size_t huge_reply_bytes = 0;
  std::shared_ptr<const std::string> fixed_reply;  // shared: a reply may be large
};

struct SimulatorOptions {
  int port = 7000;
  int generated_networks = 0;    // extra networks of five members each, after the seed
  std::string request_log_path;  // when set, every request line is appended there too
};

struct SimulatorState;  // the networks and what the simulator was told to do
struct Request;         // a request as read

class ServiceSimulator {
 public:
  explicit ServiceSimulator(SimulatorOptions options = {});
  ~ServiceSimulator();
  ServiceSimulator(const ServiceSimulator&) = delete;
  ServiceSimulator& operator=(const ServiceSimulator&) = delete;

  // Binds and starts serving in a thread; false when the port cannot be bound.
  bool start();
  // The port it serves on (the one the system chose for port 0); 0 before start().
  int port() const { return server_ ? server_->port() : 0; }
  void stop();

  // The request lines received so far (without CR LF), in order; a second line is its own entry.
  std::vector<std::string> requests();
  void clear_requests();

  void misbehave(Misbehaviour misbehaviour, int delay_ms = 0,
                 std::size_t huge_reply_bytes = 100u << 20);
  // Every request is answered with `reply` alone, until misbehave() says otherwise.
  void answer_with(std::string reply);
  // The next `count` add_network requests are refused as if the name were taken.
  void refuse_add_network(int count);
  // Replaces the whole state with the seed (and the generated networks).
  void reset();

 private:
  // One connection: read the request, record it, misbehave or answer.
  void handle(int connection);
  Mischief record(const std::string& line, const std::string& document);
  std::string answer(const Request& request);

  SimulatorOptions options_;
  std::unique_ptr<SimulatorState> state_;
  std::mutex lock_;
  std::unique_ptr<tools::LoopbackServer> server_;
};

// The seed: "Friends" (id 1), "Work" (id 2) and "Gaming" (id 3, type 3), with members.
std::unique_ptr<PeerNetworkList> seed_networks(int generated_networks);

}  // namespace quorlin::simulator

#endif  // QUORLIN_TOOLS_SERVICE_SIMULATOR_SERVICE_SIMULATOR_HPP
