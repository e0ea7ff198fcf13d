#include "tests/support/peers.hpp"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace quorlin::testing {
namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

int free_port() {
  int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  close(descriptor);
  return ntohs(address.sin_port);
}

bool wait_for_port(int port, int timeout_ms) {
  for (int waited = 0; waited <= timeout_ms; waited += 100) {
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(port);
    bool open = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    if (open) return true;
    usleep(100'000);
  }
  return false;
}

int open_descriptor_count() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

TempDir::TempDir() {
  char pattern[] = "/tmp/quorlin-test-XXXXXX";
  if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
  chmod(path_.c_str(), 0755);  // servers that drop privileges must still reach their files
}

TempDir::~TempDir() {
  std::filesystem::remove_all(path_);
}

void TempDir::write(const std::string& name, const std::string& text) const {
  std::ofstream(file(name)) << text;
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::string& log_file) {
  // Everything the child needs is prepared before fork: only async-signal-safe calls follow.
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  int output = open(log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(output);
}

ChildProcess::~ChildProcess() {
  stop();
}

void ChildProcess::stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  int status;
  waitpid(pid_, &status, 0);
  pid_ = -1;
}

std::string read_bytes(int descriptor, std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t got = 0;
  while (got < size) {
    ssize_t result = recv(descriptor, bytes.data() + got, size - got, 0);
    if (result <= 0) break;
    got += result;
  }
  bytes.resize(got);
  return bytes;
}

std::string read_until_blank_line(int descriptor) {
  std::string bytes;
  char byte;
  while (!bytes.ends_with("\r\n\r\n") && recv(descriptor, &byte, 1, 0) == 1) bytes += byte;
  return bytes;
}

void write_bytes(int descriptor, std::string_view bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    ssize_t result = send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (result <= 0) return;
    sent += result;
  }
}

ScriptedServer::Handler answer_one_line(std::string reply) {
  return [reply = std::move(reply)](int descriptor) {
    char byte = 0;
    while (byte != '\n' && recv(descriptor, &byte, 1, 0) == 1) {
    }
    write_bytes(descriptor, reply);
  };
}

ScriptedServer::Handler echo_handler() {
  return [](int descriptor) {
    char buffer[4096];
    ssize_t got;
    while ((got = recv(descriptor, buffer, sizeof buffer, 0)) > 0) {
      write_bytes(descriptor, std::string_view(buffer, got));
    }
  };
}

}  // namespace quorlin::testing
