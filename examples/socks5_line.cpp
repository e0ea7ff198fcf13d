// Opens a connection to a target through a SOCKS5 proxy, sends one line and prints the line that
// comes back.
//   socks5_line PROXY_HOST PROXY_PORT TARGET_HOST TARGET_PORT LINE
#include <cstdio>
#include <cstdlib>

#include "quorlin/client/form.hpp"
#include "quorlin/net/connection.hpp"
#include "quorlin/net/proxy.hpp"

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s PROXY_HOST PROXY_PORT TARGET_HOST TARGET_PORT LINE\n", argv[0]);
    return 2;
  }
  quorlin::ProxySettings proxy;
  proxy.type = quorlin::PROXY_TYPE_SOCKS5;
  proxy.host = argv[1];
  proxy.port = std::atoi(argv[2]);
  // The target's name goes to the proxy as it stands; the proxy resolves it.
  const quorlin::Connection connection =
      quorlin::proxy_connect(proxy, 0, argv[3], std::atoi(argv[4]));
  if (connection < 0) {
    std::fprintf(stderr, "no tunnel to %s:%s through %s:%s\n", argv[3], argv[4], argv[1], argv[2]);
    return 1;
  }
  quorlin::form_send(connection, argv[5]);  // the line and CR LF
  int status = 0;
  const std::string reply = quorlin::read_line(connection, 5000, status);
  quorlin::connection_close(connection);
  if (status != 1) {  // 1: an LF ended the line
    std::fprintf(stderr, "no whole line came back\n");
    return 1;
  }
  std::printf("%s\n", reply.c_str());
  return 0;
}
