#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace quorlin {
namespace {

// Fields of a text: each name up to "=", each value up to "&"; a fragment without "=" ends the
// parsing, and so does a line break, whatever follows it.
TEST(Form, ParsedFieldsOfATextTable) {
  const std::tuple<std::string, std::string> cases[] = {
      {"a=1&b=2", "[a|1][b|2]"},
      {"a=&b", "[a|]"},
      {"x=1\r\ny=2", "[x|1]"},
      {"x=1\ry=2", "[x|1]"},
      {"a=1&&b=2", "[a|1][&b|2]"},
      {"a=b=c", "[a|b=c]"},
      {"a+b=%41", "[a b|A]"},
      {"", ""},
      {"x", ""},
  };
  for (const auto& [text, parsed] : cases) {
    FormFields fields;
    form_parse(fields, text);
    std::string picture;
    for (const auto& field : fields) picture += "[" + field->name + "|" + field->value + "]";
    EXPECT_EQ(picture, parsed) << text;
    form_fields_clear(fields);
    EXPECT_EQ(fields.first, nullptr);
  }
}

// Numbers are written in decimal before they are encoded; a second field follows an "&".
TEST(Form, FieldsOfARequest) {
  Form form;
  form_add_long(form, "n", -5'000'000'000L);
  form_add_int(form, "i", 7);
  form_add_field(form, "a b", "x&y");
  EXPECT_EQ(form.text, "n=-5000000000&i=7&a+b=x%26y");
}

}  // namespace
}  // namespace quorlin
