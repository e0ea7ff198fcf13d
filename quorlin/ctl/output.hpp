// quorlinctl's two outputs: aligned tables for people, in which no byte of a name can forge a
// row or a column, and JSON documents for scripts, written as text by walking the records' own
// field tables under the element names of the service's XML.
#ifndef QUORLIN_CTL_OUTPUT_HPP
#define QUORLIN_CTL_OUTPUT_HPP

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "quorlin/records/record_visit.hpp"

namespace quorlin::ctl {

/// `text` as a table shows it: printable ASCII and whole UTF-8 characters as they are; a
/// backslash doubled; tab, line end, carriage return and vertical tab as \t, \n, \r, \v; every
/// other control byte and every byte that is not part of a UTF-8 character as \xNN.
std::string table_text(std::string_view text);
/// table_text of a record's text; an absent text shows as "-".
std::string table_cell(const std::optional<std::string>& text);

/// Rows of cells printed in columns two blanks apart, each as wide as its widest cell.
class Table {
 public:
  explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void print(std::FILE* out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

/// A record as one line of JSON: its fields in the order its XML writes them, keyed by their
/// element names; an absent text is null, numbers are numbers, lists are arrays, and bytes that
/// are not UTF-8 become U+FFFD. Written straight from the walk, with no document in between.
template <typename Record>
std::string record_json(const Record& record);

/// A record's numbers and texts (not its lists) as a two-column table.
template <typename Record>
Table record_table(const Record& record);

/// `text` as a JSON string, quotes included (U+FFFD for bytes that are not UTF-8).
void append_json_string(std::string& out, std::string_view text);

}  // namespace quorlin::ctl

#endif  // QUORLIN_CTL_OUTPUT_HPP
