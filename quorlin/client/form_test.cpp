#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace quorlin {
namespace {

// How a reply's line is read and split into fields is checked end to end, row by row, in
// ServiceReplies; here, what the service's callers use directly.
TEST(Form, EncodedFieldsTheFirstOfDuplicatesAndALineTakenOver) {
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

  // A received line takes another over by assignment, and stays itself when assigned to itself.
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  write(ends[1], "one\ntwo\n", 8);
  int status = 0;
  ReceivedLine line = receive_line(ends[0], NO_TIMEOUT, status);
  line = receive_line(ends[0], NO_TIMEOUT, status);
  ReceivedLine& same = line;
  line = std::move(same);
  EXPECT_EQ(line.text(), "two");
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace quorlin
