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

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "quorlin/net/connection.hpp"

namespace quorlin::testing {
namespace {

sockaddr_in loopback(int port) {
  return ipv4_socket_address("127.0.0.1", port);
}

// The last 2,000 bytes of a file, for a failure message.
std::string log_tail(const std::string& path) {
  std::ifstream in(path);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return text.size() > 2000 ? text.substr(text.size() - 2000) : text;
}

}  // namespace

bool port_is_free(int port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);  // TIME_WAIT is free
  sockaddr_in address = loopback(port);
  const bool bound = bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return bound;
}

int free_port() {
  int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  close(descriptor);
  return ntohs(address.sin_port);
}

bool accepts_connections(int port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(port);
  const bool open = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return open;
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

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::string& log_file)
    : program_(argv.at(0)), log_file_(log_file) {
  // Everything the child needs is prepared before fork: only async-signal-safe calls follow.
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  int output = open(log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  // A failed exec writes its errno here; a successful one closes the pipe with nothing written.
  int exec_report[2];
  if (pipe2(exec_report, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  pid_ = fork();
  if (pid_ == 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    const int error = errno;
    [[maybe_unused]] ssize_t written = write(exec_report[1], &error, sizeof error);
    _exit(127);
  }
  close(output);
  close(exec_report[1]);
  int error = 0;
  if (read(exec_report[0], &error, sizeof error) == sizeof error) exec_error_ = error;
  close(exec_report[0]);
}

ChildProcess::~ChildProcess() {
  stop();
}

std::string ChildProcess::wait_until_listening(int port) {
  if (exec_error_ == 0) {
    for (int waited = 0; waited <= 10'000; waited += 100) {
      if (accepts_connections(port)) return "";
      int status = 0;
      if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        std::string ended = WIFEXITED(status)
                                ? "exited with status " + std::to_string(WEXITSTATUS(status))
                                : "ended by signal " + std::to_string(WTERMSIG(status));
        return program_ + " " + ended + " before listening on port " + std::to_string(port) +
               "; the end of its log:\n" + log_tail(log_file_);
      }
      usleep(100'000);
    }
    return program_ + " did not listen on port " + std::to_string(port) +
           " within 10 s; the end of its log:\n" + log_tail(log_file_);
  }
  return "cannot run " + program_ + ": " + std::strerror(exec_error_);
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

std::unique_ptr<ProxySettings> loopback_proxy(unsigned type, int port, const char* user,
                                              const char* password) {
  auto settings = proxy_settings_new();
  proxy_settings_set_int(*settings, "proxy_type", static_cast<int>(type));
  proxy_settings_set_text(*settings, "proxy_host", "127.0.0.1");
  proxy_settings_set_int(*settings, "proxy_port", port);
  if (user != nullptr) proxy_settings_set_text(*settings, "proxy_user", user);
  if (password != nullptr) proxy_settings_set_text(*settings, "proxy_password", password);
  return settings;
}

}  // namespace quorlin::testing
