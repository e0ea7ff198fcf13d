// Table cells are escaped before they are measured, so that a column's width counts what the
// terminal shows: one column per character, the escapes included.
#include "quorlin/ctl/output.hpp"

#include <algorithm>
#include <charconv>
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

// Writes a record's fields as JSON text while the walk goes: each open list or record is a
// level that knows whether it has had a member yet and whether members carry their keys.
class JsonWriter final : public RecordVisitor {
 public:
  std::string take() { return std::move(out_); }

  void number(std::string_view name, long value) override {
    member(name);
    char digits[24];
    out_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
  void text(std::string_view name, OptionalText value) override {
    member(name);
    if (value) {
      append_json_string(out_, *value);
    } else {
      out_ += "null";
    }
  }
  void begin_list(std::string_view name) override { open(name, '[', false); }
  void begin_record(std::string_view name) override { open(name, '{', true); }
  void end_list() override { close(']'); }
  void end_record() override { close('}'); }

 private:
  struct Level {
    bool keyed;  // a record's members have keys; a list's items do not
    bool empty = true;
  };

  void member(std::string_view name) {
    if (levels_.empty()) return;  // the record itself
    Level& level = levels_.back();
    if (!level.empty) out_ += ',';
    level.empty = false;
    if (level.keyed) {
      append_json_string(out_, name);
      out_ += ':';
    }
  }
  void open(std::string_view name, char bracket, bool keyed) {
    member(name);
    out_ += bracket;
    levels_.push_back({keyed});
  }
  void close(char bracket) {
    out_ += bracket;
    levels_.pop_back();
  }

  std::string out_;
  std::vector<Level> levels_;
};

// Collects the numbers and texts at the first level of a record.
class FieldRows final : public RecordVisitor {
 public:
  Table table{{"FIELD", "VALUE"}};

  void number(std::string_view name, long value) override {
    if (depth_ == 1) table.add({std::string(name), std::to_string(value)});
  }
  void text(std::string_view name, OptionalText value) override {
    if (depth_ == 1) table.add({std::string(name), value ? table_text(*value) : "-"});
  }
  void begin_list(std::string_view) override { ++depth_; }
  void begin_record(std::string_view) override { ++depth_; }
  void end_list() override { --depth_; }
  void end_record() override { --depth_; }

 private:
  int depth_ = 0;
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

void append_json_string(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    std::size_t taken = 1;
    if (byte == '"' || byte == '\\') {
      out += '\\';
      out += static_cast<char>(byte);
    } else if (byte >= 0x20 && byte < 0x80) {
      out += static_cast<char>(byte);
    } else if (byte < 0x20) {
      out += "\\u00";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    } else if (const std::size_t length = utf8_length(text); length > 0) {
      out.append(text.substr(0, length));
      taken = length;
    } else {
      out += "\xef\xbf\xbd";  // U+FFFD for a byte that starts no character
    }
    text.remove_prefix(taken);
  }
  out += '"';
}

template <typename Record>
std::string record_json(const Record& record) {
  JsonWriter writer;
  visit_record(record, writer);
  return writer.take();
}

template <typename Record>
Table record_table(const Record& record) {
  FieldRows rows;
  visit_record(record, rows);
  return std::move(rows.table);
}

#define QUORLIN_CTL_RECORD_OUTPUT(Record)                 \
  template std::string record_json(const Record& record); \
  template Table record_table(const Record& record);
QUORLIN_CTL_RECORD_OUTPUT(PeerNetwork)
QUORLIN_CTL_RECORD_OUTPUT(PeerMember)
QUORLIN_CTL_RECORD_OUTPUT(Notification)
QUORLIN_CTL_RECORD_OUTPUT(ServiceState)
QUORLIN_CTL_RECORD_OUTPUT(PeerConnectionInfo)
#undef QUORLIN_CTL_RECORD_OUTPUT

}  // namespace quorlin::ctl
