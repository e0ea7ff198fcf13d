#include "quorlin/client/form.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace quorlin {
namespace {

using namespace std::string_literals;

std::string fields_picture(const FormFields& fields) {
  std::string out;
  for (auto* node = fields.first; node != nullptr; node = node->next) {
    out += "(" + node->item->name + "|" + node->item->value + ")";
  }
  return out;
}

TEST(Form, FieldsAreEncodedJoinedAndSentWithCrLf) {
  auto form = form_create(1024);
  form_add_int(*form, "p2pnet_command", 5);
  form_add_long(*form, "p2pnet_network", -12345678901L);
  form_add_field(*form, "p2pnet_email", "a b&c@d.e");
  EXPECT_EQ(form->text, "p2pnet_command=5&p2pnet_network=-12345678901&p2pnet_email=a+b%26c%40d.e");
  form_add_field(*form, "long", std::string(2000, 'x'));  // grows past its capacity
  EXPECT_EQ(form->text.size(), 71u + 6 + 2000);

  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  EXPECT_EQ(form_send(ends[0], "p2pnet_command=2&p2pnet_type=0"), 32);
  char wire[64] = {};
  EXPECT_EQ(read(ends[1], wire, sizeof wire), 32);
  EXPECT_STREQ(wire, "p2pnet_command=2&p2pnet_type=0\r\n");
  close(ends[0]);
  close(ends[1]);
}

TEST(ReadLine, LineStatusAndWhatStaysUnread) {
  const struct {
    std::string bytes;
    bool close_after;
    std::string line;
    int status;
    std::string left;
    int timeout_ms = -1;  // read_line's; -1 reads with read_reply_line
  } cases[] = {
      {"p2pnet_retval=0\r\nnext", false, "p2pnet_retval=0", 1, "next"},
      {"\n", false, "", 1, ""},
      {"a\rb\r\n\r\n", false, "ab", 1, "\r\n"},
      {"no end", true, "no end", 0, ""},
      {"", true, "", 0, ""},
      {std::string(300, 'y') + "\n", false, std::string(300, 'y'), 1, ""},
      {std::string(256, 'z') + "\n", false, std::string(256, 'z'), 1, ""},
      {"cut\0here\nrest"s, false, "cut", 1, "rest"},
      {"part", false, "part", -2, "", 30},  // silence: the text so far
  };
  for (const auto& c : cases) {
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    write(ends[1], c.bytes.data(), c.bytes.size());
    if (c.close_after) shutdown(ends[1], SHUT_WR);
    int status = 99;
    const std::string line = c.timeout_ms < 0 ? read_reply_line(ends[0], status)
                                              : read_line(ends[0], c.timeout_ms, status);
    EXPECT_EQ(line, c.line) << c.bytes;
    EXPECT_EQ(status, c.status) << c.bytes;
    shutdown(ends[1], SHUT_WR);
    char left[64] = {};
    EXPECT_EQ(std::string(left, read(ends[0], left, sizeof left)), c.left) << c.bytes;
    close(ends[0]);
    close(ends[1]);
  }
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

TEST(FormParse, FieldsTableAndTheFirstOfDuplicates) {
  const struct {
    std::string text;
    const char* fields;
  } cases[] = {
      {"a=1&b=2", "(a|1)(b|2)"},
      {"a=&b", "(a|)"},
      {"a=1=2&b%3D=%41+", "(a|1=2)(b=|A )"},
      {"a=1&&b=2", "(a|1)(&b|2)"},
      {"", ""},
      {"x", ""},
      {"x=1\r\ny=2", "(x|1)"},
      {"a=", "(a|)"},
      {"p2pnet_retval=0&p2pnet_peer_ip=10.1.2.3", "(p2pnet_retval|0)(p2pnet_peer_ip|10.1.2.3)"},
  };
  for (const auto& c : cases) {
    FormFields fields;
    form_parse(fields, c.text);
    EXPECT_EQ(fields_picture(fields), c.fields) << c.text;
  }
  FormFields duplicates;
  form_parse(duplicates, "k=1&K=2&k=3");
  EXPECT_EQ(form_get(duplicates, "k"), "1");  // the first of duplicates, names compared exactly
  EXPECT_EQ(form_get(duplicates, "K"), "2");
  EXPECT_EQ(form_get(duplicates, "missing"), std::nullopt);
}

}  // namespace
}  // namespace quorlin
