// Forms: the request text, and the parser that turns a reply line into decoded fields.
#include "quorlin/client/form.hpp"

#include <algorithm>

#include "quorlin/base/strings.hpp"
#include "quorlin/base/url.hpp"

namespace quorlin {

std::unique_ptr<Form> form_create(std::size_t capacity) {
  auto form = std::make_unique<Form>();
  form->text.reserve(capacity);
  return form;
}

void form_add_field(Form& form, std::string_view name, std::string_view value) {
  if (!form.text.empty()) form.text += '&';
  form.text += url_encode(name);
  form.text += '=';
  form.text += url_encode(value);
}

void form_add_int(Form& form, std::string_view name, int value) {
  form_add_field(form, name, str_from_long(value));
}

void form_add_long(Form& form, std::string_view name, long value) {
  form_add_field(form, name, str_from_long(value));
}

long form_send(Connection connection, std::string_view text) {
  std::string line;
  line.reserve(text.size() + 3);
  line.append(c_text(text));
  line += "\r\n";
  return send_all(connection, line.data(), static_cast<long>(line.size()));
}

long scan_field(std::string_view text, long length, long start, char delimiter, int& stop) {
  stop = 0;
  long end = std::min<long>(length, static_cast<long>(text.size()));
  long count = 0;
  for (long i = start; i < end; ++i) {
    char c = text[i];
    if (c == delimiter) return count;
    if (c == '\r' || c == '\n') break;
    ++count;
  }
  stop = 1;
  return count;
}

long scan_field(std::string_view text, long start, char delimiter, int& stop) {
  std::string_view until_nul = c_text(text);
  return scan_field(until_nul, static_cast<long>(until_nul.size()), start, delimiter, stop);
}

void form_parse(FormFields& fields, std::string_view text) {
  text = c_text(text);
  const long length = static_cast<long>(text.size());
  bool last = false;
  for (long p = 0; p < length && !last;) {
    int stop = 0;
    long n = scan_field(text, length, p, '=', stop);
    if (stop == 1) break;
    long v = p + n + 1;
    long m = 0;
    if (v < length) {
      m = scan_field(text, length, v, '&', stop);
      last = stop == 1;
    }
    auto field = std::make_unique<FormField>();
    field->name = url_decode(text.substr(p, n));
    field->value = url_decode(text.substr(std::min(v, length), m));
    list_append(fields, std::move(field));
    p = v + m + 1;
  }
}

std::optional<std::string_view> form_get(const FormFields& fields, std::string_view name) {
  for (const auto& field : fields) {
    if (field->name == name) return field->value;
  }
  return std::nullopt;
}

void form_fields_clear(FormFields& fields) {
  std::lock_guard hold(fields.lock);
  while (fields.first != nullptr) list_remove_node(fields, fields.first);
}

}  // namespace quorlin
