// JSON shares become the service's Shares document, which the library's own reader then reads:
// one reader for both ways in. Which fields a share and its accessors have, and what a list's
// items are called, is learnt by walking a sample share through the records' field tables, so
// that nothing here repeats them.
#include "quorlin/ctl/shares_json.hpp"

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_visit.hpp"

namespace quorlin::ctl {
namespace {

using Json = nlohmann::json;

// The shape of a record kind as its walk shows it: each record's field names, each list's item.
struct Shape final : RecordVisitor {
  std::map<std::string, std::set<std::string>, std::less<>> fields_of;
  std::map<std::string, std::string, std::less<>> item_of;
  std::vector<std::string> open;  // records and lists being walked, innermost last
  std::string root;               // the walked record's own element name

  void field(std::string_view name) {
    if (!open.empty()) fields_of[open.back()].insert(std::string(name));
  }
  void number(std::string_view name, long) override { field(name); }
  void text(std::string_view name, OptionalText) override { field(name); }
  void begin_list(std::string_view name) override {
    field(name);
    open.emplace_back(name);
  }
  void begin_record(std::string_view name) override {
    if (open.empty()) root = name;
    if (!open.empty() && item_of.count(open.back()) == 0) item_of[open.back()] = name;
    field(name);
    open.emplace_back(name);
    fields_of[open.back()];
  }
  void end_list() override { open.pop_back(); }
  void end_record() override { open.pop_back(); }
};

// A share with one accessor and a path, walked once: every field a share can have.
const Shape& share_shape() {
  static const Shape shape = [] {
    auto sample = folder_share_new("", "");
    share_add_accessor(*sample, std::make_unique<Accessor>());
    Shape walked;
    visit_record(*sample, walked);
    return walked;
  }();
  return shape;
}

// Appends `value` as the element `name` of a record of kind `kind`; false with `error` set when
// the value has no place there.
bool append_element(std::string& xml, const std::string& kind, const std::string& name,
                    const Json& value, std::string& error) {
  const Shape& shape = share_shape();
  const auto fields = shape.fields_of.find(kind);
  if (fields == shape.fields_of.end() || fields->second.count(name) == 0) {
    error = "\"" + name + "\" is not a field of " + kind;
    return false;
  }
  if (value.is_null()) return true;  // absent
  xml += "<" + name + ">";
  if (value.is_array()) {
    const auto item = shape.item_of.find(name);
    for (const Json& element : value) {
      if (item == shape.item_of.end() || !element.is_object()) {
        error = "the items of \"" + name + "\" are objects";
        return false;
      }
      xml += "<" + item->second + ">";
      for (const auto& [key, field] : element.items()) {
        if (!append_element(xml, item->second, key, field, error)) return false;
      }
      xml += "</" + item->second + ">";
    }
  } else if (value.is_number_integer()) {
    xml += std::to_string(value.get<long>());
  } else if (value.is_string() &&
             value.get_ref<const std::string&>().find('<') == std::string::npos) {
    xml += value.get_ref<const std::string&>();
  } else {
    error = "\"" + name + "\" must be " +
            (value.is_string() ? "a text without '<'" : "a whole number, a text or null");
    return false;
  }
  xml += "</" + name + ">";
  return true;
}

}  // namespace

std::unique_ptr<ShareList> shares_from_json(std::string_view text, std::string& error) {
  Json document;
  try {
    document = Json::parse(text);
  } catch (const Json::parse_error& broken) {
    error = broken.what();
    return nullptr;
  }
  if (!document.is_array()) {
    error = "the shares must be a JSON array of share objects";
    return nullptr;
  }
  std::string xml = "<Shares>";
  for (std::size_t i = 0; i < document.size(); ++i) {
    const Json& share = document[i];
    std::string problem = share.is_object() ? "" : "not an object";
    xml += "<Share>";  // a plain share element: its Type, when given, decides its kind
    for (auto field = share.begin(); problem.empty() && share.is_object() && field != share.end();
         ++field) {
      append_element(xml, share_shape().root, field.key(), field.value(), problem);
    }
    if (!problem.empty()) {
      error = "share " + std::to_string(i + 1) + ": " + problem;
      return nullptr;
    }
    xml += "</Share>";
  }
  return share_list_parse(xml + "</Shares>");
}

}  // namespace quorlin::ctl
