#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <string>

namespace quorlin {
namespace {

// How a reply's line is read and split into fields is checked end to end, row by row, in
// ServiceReplies; here, what the service's callers use directly.
TEST(Form, EncodedFieldsAndTheFirstOfDuplicates) {
  auto form = form_create(16);  // grows past its first capacity
  form_add_int(*form, "p2pnet_command", 5);
  form_add_long(*form, "p2pnet_network", -12345678901L);
  form_add_field(*form, "p2pnet_email", "a b&c@d.e");
  EXPECT_EQ(form->text, "p2pnet_command=5&p2pnet_network=-12345678901&p2pnet_email=a+b%26c%40d.e");
  FormFields fields;
  form_parse(fields, "k=1&K=2&k=3&a=&b");
  EXPECT_EQ(form_get(fields, "k"), "1");  // the first of duplicates, names compared exactly
  EXPECT_EQ(form_get(fields, "K"), "2");
  EXPECT_EQ(form_get(fields, "a"), "");
  EXPECT_EQ(form_get(fields, "b"), std::nullopt);
}

}  // namespace
}  // namespace quorlin
