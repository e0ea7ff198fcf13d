// Table cells are escaped before they are measured, so that a column's width counts what the
// terminal shows: one column per character, the escapes included.
#include "quorlin/ctl/output.hpp"

#include <algorithm>
#include <cstdint>

namespace quorlin::ctl {
namespace {

// The length of the UTF-8 character that starts `text`, or 0 when its first byte starts none
// (a stray continuation byte, an overlong or surrogate form, a cut sequence).
std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  std::uint32_t lowest = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, lowest = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, lowest = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, lowest = 0x10000;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  std::uint32_t code = lead & (0x3F >> (length - 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = (code << 6) | (byte(i) & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < lowest || code > 0x10FFFF || surrogate ? 0 : length;
}

// The columns a cell takes: one per UTF-8 character (its escapes are ASCII already).
std::size_t columns_of(std::string_view cell) {
  return static_cast<std::size_t>(
      std::count_if(cell.begin(), cell.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// Receives a record's fields and builds its JSON value; lists and records nest on a stack.
class JsonBuilder final : public RecordVisitor {
 public:
  Json take() { return std::move(root_); }

  void number(std::string_view name, long value) override { add(name, value); }
  void text(std::string_view name, OptionalText value) override {
    add(name, value ? Json(std::string(*value)) : Json(nullptr));
  }
  void begin_list(std::string_view name) override { open(name, Json::array()); }
  void begin_record(std::string_view name) override { open(name, Json::object()); }
  void end_list() override { open_.pop_back(); }
  void end_record() override { open_.pop_back(); }

 private:
  Json& add(std::string_view name, Json value) {
    if (open_.empty()) return root_ = std::move(value);
    Json& parent = *open_.back();
    if (parent.is_array()) return parent.emplace_back(std::move(value));
    return parent[std::string(name)] = std::move(value);
  }
  void open(std::string_view name, Json value) { open_.push_back(&add(name, std::move(value))); }

  Json root_;
  std::vector<Json*> open_;
};

}  // namespace

std::string table_text(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    std::size_t taken = 1;
    if (byte == '\\') {
      out += "\\\\";
    } else if (byte >= 0x20 && byte < 0x7F) {
      out += static_cast<char>(byte);
    } else if (byte == '\t' || byte == '\n' || byte == '\r' || byte == '\v') {
      out += byte == '\t' ? "\\t" : byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : "\\v";
    } else if (const std::size_t length = byte >= 0x80 ? utf8_length(text) : 0; length > 0) {
      out.append(text.substr(0, length));
      taken = length;
    } else {
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
    text.remove_prefix(taken);
  }
  return out;
}

std::string table_cell(const std::optional<std::string>& text) {
  return text ? table_text(std::string_view(*text)) : "-";
}

void Table::print(std::FILE* out) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    if (widths.size() < row.size()) widths.resize(row.size());
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], columns_of(row[i]));
    }
  }
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - columns_of(row[i]) + 2, ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    line += '\n';
    std::fputs(line.c_str(), out);
  }
}

template <typename Record>
Json record_json(const Record& record) {
  JsonBuilder builder;
  visit_record(record, builder);
  return builder.take();
}

template Json record_json(const PeerNetwork&);
template Json record_json(const PeerMember&);
template Json record_json(const Share&);
template Json record_json(const Notification&);
template Json record_json(const ServiceState&);
template Json record_json(const PeerConnectionInfo&);

std::string json_text(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace quorlin::ctl
