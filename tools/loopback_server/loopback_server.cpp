#include "tools/loopback_server/loopback_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace quorlin::tools {

LoopbackServer::LoopbackServer(Handler handle, int port) : handle_(std::move(handle)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener_, 128) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    close(listener_);
    listener_ = -1;
    return;
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  stop();
}

void LoopbackServer::stop() {
  if (listener_ < 0) return;
  stopping_ = true;
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
  listener_ = -1;
}

void LoopbackServer::serve() {
  pollfd listener{listener_, POLLIN, 0};
  while (!stopping_) {
    // Accept only once a connection waits: a blocked accept holds the lowest free descriptor
    // from the start, which a caller that closes descriptor 0 expects to get itself. The
    // shutdown in stop() wakes the poll; its time-out is only a safety net.
    if (poll(&listener, 1, 200) <= 0) continue;
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
      // Stopping, or out of descriptors for a moment: do not spin.
      if (!stopping_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    handle_(connection);
    close(connection);
    ++served_;
  }
}

bool LoopbackServer::wait_served_more_than(int count, int timeout_ms) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (served_ <= count && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return served_ > count;
}

void write_all(int connection, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

}  // namespace quorlin::tools
