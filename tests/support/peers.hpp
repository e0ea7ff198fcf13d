// Test peers: child processes (real servers), scripted loopback TCP servers, and helpers for
// ports and descriptors.
#ifndef QUORLIN_TESTS_SUPPORT_PEERS_HPP
#define QUORLIN_TESTS_SUPPORT_PEERS_HPP

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quorlin/net/proxy.hpp"
#include "tools/loopback_server/loopback_server.hpp"

namespace quorlin::testing {

// A loopback port that was free a moment ago.
int free_port();

// Whether a TCP connect to 127.0.0.1:port succeeds now.
bool accepts_connections(int port);

// Entries in /proc/self/fd.
int open_descriptor_count();

// A directory under /tmp removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

// Whether nothing listens on 127.0.0.1:port.
bool port_is_free(int port);

// A program started directly by its full path (a normal user's PATH has no /usr/sbin), output
// appended to `log_file` (or discarded), stopped with SIGTERM and reaped on destruction.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& argv, const std::string& log_file = "/dev/null");
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  void stop();

  // Waits until the program listens on 127.0.0.1:port. "" then; else what went wrong: the
  // exec failure, or how the program ended, and the end of its log.
  std::string wait_until_listening(int port);

 private:
  std::string program_;
  std::string log_file_;
  pid_t pid_ = -1;
  int exec_error_ = 0;  // errno of a failed exec
};

// A loopback TCP server that runs a handler on every accepted connection (one at a time, in a
// thread of its own) and then closes it.
using ScriptedServer = tools::LoopbackServer;

// Reads exactly `size` bytes (fewer when the peer closes).
std::string read_bytes(int descriptor, std::size_t size);
// Reads up to and including the first "\r\n\r\n" (or until the peer closes).
std::string read_until_blank_line(int descriptor);
void write_bytes(int descriptor, std::string_view bytes);

// A handler that reads one request line (through its LF) and answers with `reply`.
ScriptedServer::Handler answer_one_line(std::string reply);

// A server that echoes every connection's bytes back until the peer closes.
ScriptedServer::Handler echo_handler();

// Settings for a proxy of `type` on 127.0.0.1:port, with the user and password when given.
std::unique_ptr<ProxySettings> loopback_proxy(unsigned type, int port, const char* user = nullptr,
                                              const char* password = nullptr);

}  // namespace quorlin::testing

#endif  // QUORLIN_TESTS_SUPPORT_PEERS_HPP
