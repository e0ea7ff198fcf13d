#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "tests/support/peers.hpp"

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

  // A received line takes another over by assignment, freeing the one it held, and stays
  // itself when assigned to itself.
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  int status = 0;
  ReceivedLine line;
  const std::size_t heap_before = testing::heap_in_use();
  for (int i = 0; i < 100; ++i) {
    write(ends[1], "one\n", 4);
    line = receive_line(ends[0], NO_TIMEOUT, status);
  }
  EXPECT_LT(testing::heap_in_use(), heap_before + 10'000);  // each lost line holds over 1 KiB
  write(ends[1], "two\n", 4);
  line = receive_line(ends[0], NO_TIMEOUT, status);
  ReceivedLine& same = line;
  line = std::move(same);
  EXPECT_EQ(line.text(), "two");
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace quorlin
