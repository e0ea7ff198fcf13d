// The one wait of every timed receive: until a descriptor is readable, in the 10 ms steps of the
// timed receives' contract. A signal that interrupts the wait does not end it; it goes on for
// the time that is left, so that a time-out has really passed when it is reported.
#ifndef QUORLIN_NET_WAIT_INTERNAL_HPP
#define QUORLIN_NET_WAIT_INTERNAL_HPP

namespace quorlin {

/// Whether `descriptor` became readable (data, a close or an error to read) within the steps
/// that a timed receive makes for `timeout_ms`: timeout_ms / 10 + 1 of them (one for 0), none
/// for a negative time-out.
bool readable_within_steps(int descriptor, int timeout_ms);

/// Connects the stream socket `descriptor` to host:port (a dotted IPv4 address), giving up after
/// `timeout_ms` milliseconds: 0 connected, -1 refused or failed, -2 timed out. The socket is
/// left blocking as it was.
int connect_within(int descriptor, const char* host, int port, int timeout_ms);

}  // namespace quorlin

#endif  // QUORLIN_NET_WAIT_INTERNAL_HPP
