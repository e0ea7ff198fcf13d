// The HTTP exchange against python3's http.server, against scripted peers for the framings real
// servers do not send, and against a UDP peer for the datagram mode.
#include "quorlin/client/http.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "quorlin/net/connection.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

std::string headers_picture(const FormFields& headers) {
  std::string out;
  for (auto* node = headers.first; node != nullptr; node = node->next) {
    out += "[" + node->item->name + "|" + node->item->value + "]";
  }
  return out;
}

TEST(HttpRequest, IsExactToTheByte) {
  EXPECT_EQ(http_request_text("127.0.0.1", "/x", "a=1"),
            "POST /x HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: Quorlin\r\n"
            "Content-type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n\r\na=1");
}

TEST(HttpPost, AgainstPythonHttpServer) {
  int port = testing::free_port();
  testing::TempDir dir;
  testing::ChildProcess server({"/usr/bin/python3", HTTP_POST_SERVER_PATH, std::to_string(port)},
                               dir.file("log"));
  ASSERT_EQ(server.wait_until_listening(port), "");
  Connection connection = connection_open(0, "127.0.0.1", port);
  ASSERT_GT(connection, 0);
  std::unique_ptr<FormFields> headers;
  std::string body;
  EXPECT_GT(http_post(connection, "127.0.0.1", "/form", "a=1&b=x+y", 5000, &headers, &body), 0);
  EXPECT_EQ(body, "path=/form&body=a=1&b=x+y");
  ASSERT_NE(headers, nullptr);
  EXPECT_NE(form_get(*headers, "Server"), std::nullopt);
  EXPECT_EQ(form_get(*headers, "Content-Length"), "25");
  connection_close(connection);
}

// The process's virtual size in kB: a mapping for an announced length that outlives the call
// shows here.
long virtual_kb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmSize:")) return std::stol(line.substr(7));
  }
  return -1;
}

struct ReplyCase {
  const char* name;
  std::string reply;
  bool succeeds;
  const char* body;
  const char* headers;
  int timeout_ms = -1;  // a "|" in the reply is a pause of 100 ms
};

TEST(HttpPost, ScriptedReplies) {
  const ReplyCase cases[] = {
      {"line-framed chunks",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n\r\n0\r\n\r\n", true,
       "hello", "[Transfer-Encoding|chunked]"},
      {"two chunks, the line after each dropped whatever it holds",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: "
       "chunked\r\n\r\n3\r\nab\r\nX\r\n2\r\ncd\r\nY\r\n0\r\n\r\n",
       true, "abcd", "[Transfer-Encoding|chunked]"},
      {"lower-case content-length is a line body",
       "HTTP/1.1 200 OK\r\ncontent-length: 5\r\n\r\nhel\r\nlo", true, "hel", "[content-length|5]"},
      {"a header with nothing after its colon is not stored",
       "HTTP/1.1 500 Oops\r\nX:\r\nY: 1\r\nContent-Length: 2\r\n\r\nok", true, "ok",
       "[Y|1][Content-Length|2]"},
      {"Content-Length 0", "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n", true, "",
       "[Content-Length|0]"},
      {"a body shorter than announced", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort", false,
       nullptr, nullptr},
      {"headers cut short", "HTTP/1.1 200 OK\r\nContent-Le", false, nullptr, nullptr},
      {"a hostile length", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nxyz", false,
       nullptr, nullptr},
      // One timed receive of the whole length: each piece lands at the start of its buffer.
      {"a timed body in two pieces", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc|def", true,
       "def", "[Content-Length|6]", 5000},
      {"a timed body that stops short", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc|", false,
       nullptr, nullptr, 300},
  };
  for (const auto& c : cases) {
    std::string request;
    testing::ScriptedServer server([&](int descriptor) {
      request =
          testing::read_bytes(descriptor, http_request_text("example.org", "/p", "a=1").size());
      std::string_view reply = c.reply;
      for (std::size_t pause; (pause = reply.find('|')) != std::string_view::npos;) {
        testing::write_all(descriptor, reply.substr(0, pause));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        reply.remove_prefix(pause + 1);
      }
      testing::write_all(descriptor, reply);
    });
    Connection connection = connection_open(0, "127.0.0.1", server.port());
    const long mapped_before = virtual_kb();
    std::unique_ptr<FormFields> headers;
    std::string body = "untouched";
    int status = http_post(connection, "example.org", "/p", "a=1", c.timeout_ms, &headers, &body);
    EXPECT_EQ(status > 0, c.succeeds) << c.name << ": " << status;
    if (c.succeeds) {
      EXPECT_EQ(body, c.body) << c.name;
      ASSERT_NE(headers, nullptr) << c.name;
      EXPECT_EQ(headers_picture(*headers), c.headers) << c.name;
    } else {
      EXPECT_EQ(body, "untouched") << c.name;
      EXPECT_EQ(headers, nullptr) << c.name;
    }
    EXPECT_LT(virtual_kb() - mapped_before, 1L << 20) << c.name;  // 1 GB
    connection_close(connection);
    ASSERT_TRUE(server.wait_served_more_than(0));
    EXPECT_EQ(request, http_request_text("example.org", "/p", "a=1")) << c.name;
  }
}

// One datagram out, one datagram back, taken whole as the reply body.
TEST(HttpPost, DatagramModeSendsOneRequestAndReadsOneReply) {
  const int peer = server_socket_open("127.0.0.1", testing::free_port(), true, 1);
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(peer, reinterpret_cast<sockaddr*>(&address), &length);
  std::string received;
  std::thread responder([&] {
    char buffer[4096];
    const ssize_t got =
        recvfrom(peer, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&address), &length);
    received.assign(buffer, got > 0 ? got : 0);
    sendto(peer, "HTTP/1.1 200 OK\r\n\r\nfine", 23, 0, reinterpret_cast<sockaddr*>(&address),
           length);
  });
  const int sender = socket_open_any(0, true);
  std::string body;
  EXPECT_EQ(http_post_datagram(sender, "h", "/d", "k=v", "127.0.0.1", ntohs(address.sin_port), 2000,
                               nullptr, &body),
            23);
  responder.join();
  EXPECT_EQ(received, http_request_text("h", "/d", "k=v"));
  EXPECT_EQ(body, "HTTP/1.1 200 OK\r\n\r\nfine");
  connection_close(sender);
  connection_close(peer);
}

TEST(SkipHeaderLines, StopsAfterTheFirstEmptyLine) {
  EXPECT_EQ(skip_text_header_lines("A: 1\r\nB: 2\r\n\r\nbody\n\nmore"), "body\n\nmore");
  EXPECT_EQ(skip_text_header_lines("A: 1\r\nno blank line"), std::nullopt);
  int ends[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
  testing::write_all(ends[1], "H: 1\r\n\r\nbody");
  skip_header_lines(ends[0]);
  EXPECT_EQ(testing::read_bytes(ends[0], 4), "body");
  connection_close(ends[0]);
  connection_close(ends[1]);
}

}  // namespace
}  // namespace quorlin
