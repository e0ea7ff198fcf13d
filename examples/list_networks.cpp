// Lists the networks of the local service with the installed library.
#include <cstdio>

#include "quorlin/client/service.hpp"

int main() {
  auto networks = quorlin::get_networks(0);
  if (!networks) {
    std::fprintf(stderr, "the service did not answer\n");
    return 1;
  }
  for (const auto& network : *networks) {  // a null entry was not a network
    if (network) std::printf("%ld %s\n", network->id, network->name.value_or("").c_str());
  }
  return 0;
}
