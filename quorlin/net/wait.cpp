// One poll for the whole wait rather than one per step: the same readiness in the same time,
// without waking every 10 ms. poll rather than select, so that descriptors above FD_SETSIZE are
// safe.
#include "quorlin/net/wait_internal.hpp"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <climits>

#include "quorlin/net/connection.hpp"

namespace quorlin {

bool readable_within_steps(int descriptor, int timeout_ms) {
  if (timeout_ms < 0) return false;
  using Clock = std::chrono::steady_clock;
  const auto deadline =
      Clock::now() + std::chrono::milliseconds((timeout_ms / RECV_POLL_STEP_MS + 1) *
                                               static_cast<long>(RECV_POLL_STEP_MS));
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd watched{descriptor, POLLIN, 0};
    const int ready = poll(&watched, 1,
                           static_cast<int>(left < 0         ? 0
                                            : left > INT_MAX ? INT_MAX
                                                             : left));
    if (ready > 0) return watched.revents != 0;
    if (ready == 0 || errno != EINTR || left <= 0) return false;
  }
}

}  // namespace quorlin
