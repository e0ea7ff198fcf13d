// Test peers: child processes (real servers), scripted loopback TCP servers, and helpers for
// ports and descriptors.
#ifndef QUORLIN_TESTS_SUPPORT_PEERS_HPP
#define QUORLIN_TESTS_SUPPORT_PEERS_HPP

#include <sys/types.h>

#include <memory>
#include <string>
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
// Bytes the heap holds for the program now.
std::size_t heap_in_use();
// The bytes of a file; empty when it cannot be read.
std::string file_text(const std::string& path);

// A directory under /tmp removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  void write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

// What a program printed, and its exit status (128 plus the signal when a signal ended it).
struct ProgramRun {
  std::string out;
  std::string err;
  int status;
};
// Runs `command_line` through /bin/sh, standard output and error captured, `input` on standard
// input.
ProgramRun run_program(const std::string& command_line, const std::string& input = "");

// A program started by its full path (a normal user's PATH has no /usr/sbin), output appended
// to `log_file`, stopped with SIGTERM and reaped on destruction.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& argv, const std::string& log_file);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits up to 10 s until the program listens on 127.0.0.1:port: "" then, else what went
  // wrong and the end of its log.
  std::string wait_until_listening(int port);

 private:
  std::string log_file_;
  pid_t pid_ = -1;
};

// A loopback TCP server that runs a handler on every accepted connection (one at a time, in a
// thread of its own) and then closes it.
using ScriptedServer = tools::LoopbackServer;
using tools::write_all;

// Reads exactly `size` bytes (fewer when the peer closes).
std::string read_bytes(int descriptor, std::size_t size);
// A handler that reads one request line (through its LF) and answers with `reply`.
ScriptedServer::Handler answer_one_line(std::string reply);
// A handler that echoes every byte back until the peer closes.
ScriptedServer::Handler echo_handler();

// Settings for a proxy of `type` on 127.0.0.1:port, with the user and password when given.
std::unique_ptr<ProxySettings> loopback_proxy(unsigned type, int port, const char* user = nullptr,
                                              const char* password = nullptr);

}  // namespace quorlin::testing

#endif  // QUORLIN_TESTS_SUPPORT_PEERS_HPP
