// One poll for the whole wait rather than one per step: the same readiness in the same time,
// without waking every 10 ms. poll rather than select, so that descriptors above FD_SETSIZE are
// safe.
#include "quorlin/net/wait_internal.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <climits>

#include "quorlin/net/connection.hpp"

namespace quorlin {

namespace {

using Clock = std::chrono::steady_clock;

// Waits for `events` on `descriptor` until `deadline`; a signal does not end the wait. The
// events that came, or 0 when the deadline passed first.
short wait_until(int descriptor, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd watched{descriptor, events, 0};
    const int ready = poll(&watched, 1,
                           static_cast<int>(left < 0         ? 0
                                            : left > INT_MAX ? INT_MAX
                                                             : left));
    if (ready > 0) return watched.revents;
    if (ready == 0 || errno != EINTR || left <= 0) return 0;
  }
}

}  // namespace

bool readable_within_steps(int descriptor, int timeout_ms) {
  if (timeout_ms < 0) return false;
  const long steps = timeout_ms / RECV_POLL_STEP_MS + 1;
  const auto deadline = Clock::now() + std::chrono::milliseconds(steps * RECV_POLL_STEP_MS);
  return wait_until(descriptor, POLLIN, deadline) != 0;
}

int connect_within(int descriptor, const char* host, int port, int timeout_ms) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  const int flags = fcntl(descriptor, F_GETFL);
  fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
  sockaddr_in remote = ipv4_socket_address(host, port);
  int result = connect(descriptor, reinterpret_cast<sockaddr*>(&remote), sizeof remote);
  if (result != 0 && errno == EINPROGRESS) {
    if (wait_until(descriptor, POLLOUT, deadline) == 0) {
      result = RECV_TIMED_OUT;
    } else {
      int error = 0;
      socklen_t size = sizeof error;
      getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
      result = error == 0 ? 0 : -1;
    }
  } else if (result != 0) {
    result = -1;
  }
  fcntl(descriptor, F_SETFL, flags);
  return result;
}

}  // namespace quorlin
