// A received line in storage of its own, for the readers that parse a reply where it landed.
#ifndef QUORLIN_CLIENT_LINE_INTERNAL_HPP
#define QUORLIN_CLIENT_LINE_INTERNAL_HPP

#include <cstddef>
#include <string_view>

#include "quorlin/net/connection.hpp"

namespace quorlin {

/// A line received whole, in storage of its own: while small on the heap, then in an anonymous
/// mapping that grows in place (mremap), so that a reply of many megabytes is received straight
/// into the memory its reader parses, without a copy as it grows or a second copy for the reader.
class ReceivedLine {
 public:
  ReceivedLine() = default;
  /// Moving hands the storage over and leaves `other` empty; a line is never assigned.
  ReceivedLine(ReceivedLine&& other) noexcept;
  ReceivedLine& operator=(ReceivedLine&& other) = delete;
  ~ReceivedLine();

  /// The line's bytes: no LF, no CR, and nothing from its first NUL on.
  std::string_view text() const { return {data_, size_}; }

 private:
  friend ReceivedLine receive_line(Connection connection, int timeout_ms, int& status);
  char* room_for(std::size_t extra);  ///< storage for `extra` more bytes after the text

  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool mapped_ = false;
};

/// read_line's reading, with the line left in a ReceivedLine.
ReceivedLine receive_line(Connection connection, int timeout_ms, int& status);

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_LINE_INTERNAL_HPP
