/// @file
/// Form messages: the request text (URL-encoded name=value pairs joined by "&") and the parser
/// that turns a reply line into a List of decoded fields. The lines themselves are framed by
/// line.hpp, included here.
///
/// A Form grows past the capacity it was created with rather than cut or refuse a field: a long
/// e-mail address or chat message goes out whole.
#ifndef QUORLIN_CLIENT_FORM_HPP
#define QUORLIN_CLIENT_FORM_HPP

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include "quorlin/base/api.hpp"

#include "quorlin/base/list.hpp"
#include "quorlin/client/line.hpp"
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
