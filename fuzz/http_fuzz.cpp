// Arbitrary reply bytes through a socketpair into http_post: any crash, leak or undefined
// behaviour is a finding. The peer's end is shut after the bytes, so every read ends.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "quorlin/client/http.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) return 0;
  // A socketpair buffers far more than the fuzzer's inputs and the request.
  if (write(ends[1], data, size) == static_cast<ssize_t>(size)) {
    shutdown(ends[1], SHUT_WR);
    std::unique_ptr<quorlin::FormFields> headers;
    std::string body;
    quorlin::http_post(ends[0], "fuzz", "/", "a=1", quorlin::NO_TIMEOUT, &headers, &body);
  }
  close(ends[0]);
  close(ends[1]);
  return 0;
}
