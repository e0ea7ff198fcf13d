/// @file
/// Form messages and line framing: the request text (URL-encoded name=value pairs joined by "&"),
/// lines read from a Connection or a string, and the parser that turns a reply line into a List
/// of decoded fields.
///
/// A Form grows past the capacity it was created with rather than cut or refuse a field: a long
/// e-mail address or chat message goes out whole. Lines are returned without their CR bytes and
/// end at their first NUL, as C strings would; the status of a line read tells how it ended.
#ifndef QUORLIN_CLIENT_FORM_HPP
#define QUORLIN_CLIENT_FORM_HPP

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/base/list.hpp"
#include "quorlin/net/connection.hpp"

namespace quorlin {

struct Form {
  std::string text;
};

struct FormField {
  std::string name;
  std::string value;
};
using FormFields = List<std::unique_ptr<FormField>>;

/// An empty Form with room for `capacity` characters reserved.
QUORLIN_API std::unique_ptr<Form> form_create(std::size_t capacity);

/// Appends "&" (unless the text is empty), the encoded name, "=" and the encoded value.
QUORLIN_API void form_add_field(Form& form, std::string_view name, std::string_view value);
QUORLIN_API void form_add_int(Form& form, std::string_view name, int value);    ///< "%d"
QUORLIN_API void form_add_long(Form& form, std::string_view name, long value);  ///< "%ld"

/// Sends `text` followed by CR LF in one send_all; returns the bytes sent.
QUORLIN_API long form_send(Connection connection, std::string_view text);

/// Reads one line: up to LF (consumed, not stored), CR bytes dropped. Bytes after the LF stay
/// unread on the Connection. `status`: 1 when LF ended the line, 0 when the peer closed first,
/// negative on an error or, with a time-out in milliseconds (-1 waits without limit), when the
/// peer stayed silent for it. The text gathered so far is returned in every case.
QUORLIN_API std::string read_line(Connection connection, int timeout_ms, int& status);
/// read_line without a time-out.
QUORLIN_API std::string read_reply_line(Connection connection, int& status);

/// A line received whole, in storage of its own: while small on the heap, then in an anonymous
/// mapping that grows in place (mremap), so that a reply of many megabytes is received straight
/// into the memory its reader parses, without a copy as it grows or a second copy for the reader.
class QUORLIN_API ReceivedLine {
 public:
  ReceivedLine() = default;
  ///@{
  /// Moving hands the storage over and leaves `other` empty.
  ReceivedLine(ReceivedLine&& other) noexcept;
  ReceivedLine& operator=(ReceivedLine&& other) noexcept;
  ///@}
  ~ReceivedLine();

  /// The line's bytes: no LF, no CR, and nothing from its first NUL on.
  std::string_view text() const { return {data_, size_}; }

 private:
  friend ReceivedLine receive_line(Connection connection, int timeout_ms, int& status);
  char* room_for(std::size_t extra);  ///< storage for `extra` more bytes after the text
  void release();

  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  bool mapped_ = false;
};

/// read_line's reading, with the line left in a ReceivedLine.
QUORLIN_API ReceivedLine receive_line(Connection connection, int timeout_ms, int& status);

/// The same extraction from memory: the line at the start of `text`; `next` becomes the index
/// after the LF, or -1 when the text ends without one.
QUORLIN_API std::string text_line(std::string_view text, long& next);

/// One datagram as text (at most 2999 bytes); `status` is the bytes received, or negative.
QUORLIN_API std::string read_datagram_text(int descriptor, int timeout_ms, int& status);

/// Counts the characters from `start` up to `delimiter` (stop 0) or CR, LF or the end (stop 1).
QUORLIN_API long scan_field(std::string_view text, long length, long start, char delimiter,
                            int& stop);
/// scan_field over the text up to its first NUL.
QUORLIN_API long scan_field(std::string_view text, long start, char delimiter, int& stop);

/// Appends the decoded fields of `text` (up to its first NUL) to `fields`; a fragment without
/// "=" ends the parsing.
QUORLIN_API void form_parse(FormFields& fields, std::string_view text);

/// The value of the first field named `name` exactly, borrowed from the List; std::nullopt when
/// no field has that name.
QUORLIN_API std::optional<std::string_view> form_get(const FormFields& fields,
                                                     std::string_view name);

/// Frees every field and empties the List.
QUORLIN_API void form_fields_clear(FormFields& fields);

}  // namespace quorlin

#endif  // QUORLIN_CLIENT_FORM_HPP
