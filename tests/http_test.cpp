// The HTTP exchange against scripted peers: the request's bytes, and each framing of a reply.
#include "quorlin/client/http.hpp"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
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
  for (const auto& field : headers) out += "[" + field->name + "|" + field->value + "]";
  return out;
}

TEST(HttpRequest, IsExactToTheByte) {
  EXPECT_EQ(http_request_text("127.0.0.1", "/x", "a=1"),
            "POST /x HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: Quorlin\r\n"
            "Content-type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n\r\na=1");
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
  int status;  // 1: the whole reply arrived
  const char* body;
  const char* headers;
  int timeout_ms = -1;  // a "|" in the reply is a pause of 100 ms
};

TEST(HttpPost, ScriptedReplies) {
  const ReplyCase cases[] = {
      {"line-framed chunks",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n\r\n0\r\n\r\n", 1,
       "hello", "[Transfer-Encoding|chunked]"},
      {"two chunks, the line after each dropped whatever it holds",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: "
       "chunked\r\n\r\n3\r\nab\r\nX\r\n2\r\ncd\r\nY\r\n0\r\n\r\n",
       1, "abcd", "[Transfer-Encoding|chunked]"},
      {"lower-case content-length is a line body",
       "HTTP/1.1 200 OK\r\ncontent-length: 5\r\n\r\nhel\r\nlo", 1, "hel", "[content-length|5]"},
      {"a header with nothing after its colon is not stored",
       "HTTP/1.1 500 Oops\r\nX:\r\nY: 1\r\nContent-Length: 2\r\n\r\nok", 1, "ok",
       "[Y|1][Content-Length|2]"},
      {"Content-Length 0", "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n", 1, "",
       "[Content-Length|0]"},
      {"Content-Length 10, decimal", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n0123456789", 1,
       "0123456789", "[Content-Length|10]"},
      {"a body shorter than announced", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort", -1,
       nullptr, nullptr},
      {"headers cut short", "HTTP/1.1 200 OK\r\nContent-Le", 0, nullptr, nullptr},
      {"a hostile length", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999\r\n\r\nxyz", -1, nullptr,
       nullptr},
      {"a length no mapping can hold",
       "HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\nxyz", -1, nullptr, nullptr},
      // One timed receive of the whole length: each piece lands at the start of its buffer.
      {"a timed body in two pieces", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc|def", 1,
       "def", "[Content-Length|6]", 5000},
      {"a timed body that stops short", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabc|", -1,
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
    EXPECT_EQ(status, c.status) << c.name;
    if (c.status > 0) {
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

  // A request that cannot be sent ends the exchange with the send's result, though a reply
  // comes: nothing is read.
  testing::ScriptedServer server(
      testing::answer_one_line("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"));
  const Connection connection = connection_open(0, "127.0.0.1", server.port());
  shutdown(connection, SHUT_WR);
  std::string body = "untouched";
  EXPECT_EQ(http_post(connection, "example.org", "/p", "a=1", -1, nullptr, &body), 0);
  EXPECT_EQ(body, "untouched");
  connection_close(connection);
}

// Over datagrams the request goes to the peer's address and its reply comes back whole, headers
// and all; the headers are then skipped in memory. Over a stream they are skipped on the wire.
TEST(HttpPost, DatagramsAndSkippedHeaders) {
  const std::string reply = "HTTP/1.1 200 OK\r\nA: 1\r\n\r\nok";
  const int port = testing::free_port();
  const int peer = server_socket_open("127.0.0.1", port, true, 1);
  std::string request;
  std::thread answer([&] {
    sockaddr_in source{};
    socklen_t size = sizeof source;
    long length = 0;
    const auto received = recv_datagram(peer, length, reinterpret_cast<sockaddr*>(&source), &size);
    request.assign(received.get(), static_cast<std::size_t>(std::max(length, 0L)));
    send_datagram(peer, reply.data(), static_cast<long>(reply.size()),
                  reinterpret_cast<sockaddr*>(&source), size);
  });
  const int client = socket_open_any(0, true);
  std::string body;
  EXPECT_EQ(http_post_datagram(client, "h", "/p", "a=1", "127.0.0.1", port, 2000, nullptr, &body),
            static_cast<int>(reply.size()));
  answer.join();
  EXPECT_EQ(request, http_request_text("h", "/p", "a=1"));
  EXPECT_EQ(body, reply);
  EXPECT_EQ(skip_text_header_lines(body), "ok");
  EXPECT_EQ(skip_text_header_lines("A: 1\r\n"), std::nullopt);
  connection_close(client);
  connection_close(peer);

  testing::ScriptedServer server(testing::answer_one_line("A: 1\r\nB: 2\r\n\r\nrest\n"));
  const Connection connection = connection_open(0, "127.0.0.1", server.port());
  send_all(connection, "x\n", 2);
  skip_header_lines(connection);
  char rest[5];
  EXPECT_EQ(recv_exact_nostatus(connection, rest, 5, 2000), 5);
  EXPECT_EQ(std::string(rest, 5), "rest\n");
  connection_close(connection);
}

}  // namespace
}  // namespace quorlin
