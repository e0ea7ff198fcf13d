// Line framing over a Connection and in memory. A line is read by peeking a block, finding the
// LF and consuming exactly through it: two system calls per block instead of one per byte, with
// the same bytes left on the Connection, and each byte copied out of the kernel once.
#include "quorlin/client/line.hpp"

#include <sys/mman.h>
#include <sys/socket.h>

#include <string.h>  // strchrnul
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "quorlin/base/strings.hpp"
#include "quorlin/client/line_internal.hpp"
#include "quorlin/net/wait_internal.hpp"

namespace quorlin {
namespace {

// A reply line is usually a few dozen bytes, and sometimes a whole document of many megabytes:
// each peek fills the room the line has, which starts small and doubles as it fills, so short
// lines cost little and long ones few system calls.
constexpr std::size_t kFirstPeekBlock = 1024;
// Above this a line moves to a mapping of its own, which grows without copying.
constexpr std::size_t kLargestHeapLine = 64 * 1024;

// Waits for the descriptor as the timed receive does; -2 when it stays silent, else 1.
int wait_readable(Connection connection, int timeout_ms) {
  if (timeout_ms == NO_TIMEOUT) return 1;
  return readable_within_steps(connection, timeout_ms) ? 1 : RECV_TIMED_OUT;
}

// Drops every CR of the `size` bytes at `bytes` and cuts them at the first NUL; returns the new
// size. The byte after them is set to NUL, so that one pass finds the first CR or NUL: a line
// mostly holds neither.
std::size_t without_cr_up_to_nul(char* bytes, std::size_t size) {
  char* end = bytes + size;
  *end = '\0';
  char* stop = strchrnul(bytes, '\r');
  if (*stop == '\r') {
    end = std::remove(stop, end, '\r');
    const void* nul = std::memchr(stop, '\0', static_cast<std::size_t>(end - stop));
    stop = nul != nullptr ? static_cast<char*>(const_cast<void*>(nul)) : end;
  }
  return static_cast<std::size_t>(stop - bytes);
}

}  // namespace

ReceivedLine::ReceivedLine(ReceivedLine&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      mapped_(std::exchange(other.mapped_, false)) {}

ReceivedLine::~ReceivedLine() {
  if (mapped_) {
    munmap(data_, capacity_);
  } else {
    std::free(data_);
  }
}

char* ReceivedLine::room_for(std::size_t extra) {
  if (size_ + extra <= capacity_) return data_ + size_;
  const std::size_t capacity = std::max({2 * capacity_, size_ + extra, kFirstPeekBlock});
  void* grown = nullptr;
  if (capacity <= kLargestHeapLine) {
    grown = std::realloc(data_, capacity);
  } else if (mapped_) {
    grown = mremap(data_, capacity_, capacity, MREMAP_MAYMOVE);
    if (grown == MAP_FAILED) grown = nullptr;
  } else {
    grown = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (grown == MAP_FAILED) {
      grown = nullptr;
    } else {
      if (size_ > 0) std::memcpy(grown, data_, size_);
      std::free(data_);
      mapped_ = true;
    }
  }
  if (grown == nullptr) throw std::bad_alloc();
  // Huge pages where the system gives them on request: a large reply then costs a few page
  // faults instead of one per 4 KiB.
  if (mapped_) madvise(grown, capacity, MADV_HUGEPAGE);
  data_ = static_cast<char*>(grown);
  capacity_ = capacity;
  return data_ + size_;
}

ReceivedLine receive_line(Connection connection, int timeout_ms, int& status) {
  ReceivedLine line;
  status = 0;
  for (;;) {
    status = wait_readable(connection, timeout_ms);
    if (status != 1) break;
    char* into = line.room_for(2);  // a byte at least, and one for the NUL put after the line
    const ssize_t peeked = recv(connection, into, line.capacity_ - line.size_ - 1, MSG_PEEK);
    if (peeked < 1) {
      status = static_cast<int>(peeked);
      break;
    }
    const auto* lf = static_cast<const char*>(std::memchr(into, '\n', peeked));
    const std::size_t take = lf != nullptr ? lf - into + 1 : peeked;
    // The bytes are in place already: consume the same ones without copying them again (a TCP
    // socket discards them; a socket that ignores the flag copies the same bytes over).
    const ssize_t taken = recv(connection, into, take, MSG_TRUNC);
    line.size_ += std::max<ssize_t>(taken, 0);
    if (lf != nullptr && taken == static_cast<ssize_t>(take)) {
      --line.size_;  // the LF
      status = 1;
      break;
    }
    if (taken < 1) {
      status = static_cast<int>(taken);
      break;
    }
  }
  if (line.data_ != nullptr) line.size_ = without_cr_up_to_nul(line.data_, line.size_);
  return line;
}

std::string read_line(Connection connection, int timeout_ms, int& status) {
  return std::string(receive_line(connection, timeout_ms, status).text());
}

std::string read_reply_line(Connection connection, int& status) {
  return read_line(connection, NO_TIMEOUT, status);
}

std::string text_line(std::string_view text, long& next) {
  std::size_t lf = text.find('\n');
  next = lf == std::string_view::npos ? -1 : static_cast<long>(lf + 1);
  std::string line(text.substr(0, lf));
  std::erase(line, '\r');
  line.resize(c_text(line).size());
  return line;
}

std::string read_datagram_text(int descriptor, int timeout_ms, int& status) {
  long received = 0;
  auto buffer = recv_datagram(descriptor, received, timeout_ms);
  status = static_cast<int>(received);
  if (received < 0) return std::string();
  std::string_view bytes(buffer.get(), std::min<long>(received, DATAGRAM_BUFFER_SIZE - 1));
  return std::string(c_text(bytes));
}

}  // namespace quorlin
