#include "tests/support/peers.hpp"

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "quorlin/net/connection.hpp"

namespace quorlin::testing {

int free_port() {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = ipv4_socket_address("127.0.0.1", 0);
  socklen_t length = sizeof address;
  bind(descriptor, reinterpret_cast<sockaddr*>(&address), length);
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  close(descriptor);
  return ntohs(address.sin_port);
}

bool accepts_connections(int port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = ipv4_socket_address("127.0.0.1", port);
  const bool open = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return open;
}

int open_descriptor_count() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

std::size_t heap_in_use() {
  const struct mallinfo2 use = mallinfo2();
  return use.uordblks + use.hblkhd;
}

std::string file_text(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

ProgramRun run_program(const std::string& command_line, const std::string& input) {
  TempDir dir;
  dir.write("in", input);
  const std::string command =
      command_line + " <" + dir.file("in") + " >" + dir.file("out") + " 2>" + dir.file("err");
  const int status = std::system(command.c_str());
  return {file_text(dir.file("out")), file_text(dir.file("err")),
          WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status)};
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
    : log_file_(log_file) {
  // Everything the child needs is prepared before fork: only async-signal-safe calls follow.
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  const int output = open(log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  close(output);
}

ChildProcess::~ChildProcess() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

std::string ChildProcess::wait_until_listening(int port) {
  for (int waited = 0; waited <= 10'000 && waitpid(pid_, nullptr, WNOHANG) == 0; waited += 100) {
    if (accepts_connections(port)) return "";
    usleep(100'000);
  }
  const std::string log = file_text(log_file_);
  return "nothing listens on port " + std::to_string(port) + "; the end of the log:\n" +
         log.substr(log.size() > 2000 ? log.size() - 2000 : 0);
}

std::string read_bytes(int descriptor, std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t got = 0;
  for (ssize_t result; got < size && (result = recv(descriptor, &bytes[got], size - got, 0)) > 0;)
    got += static_cast<std::size_t>(result);
  return bytes.substr(0, got);
}

ScriptedServer::Handler answer_one_line(std::string reply) {
  return [reply = std::move(reply)](int descriptor) {
    for (char byte = 0; byte != '\n' && recv(descriptor, &byte, 1, 0) == 1;) {
    }
    write_all(descriptor, reply);
  };
}

ScriptedServer::Handler echo_handler() {
  return [](int descriptor) {
    char buffer[4096];
    for (ssize_t got; (got = recv(descriptor, buffer, sizeof buffer, 0)) > 0;)
      write_all(descriptor, std::string_view(buffer, static_cast<std::size_t>(got)));
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
