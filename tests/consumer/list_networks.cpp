// Lists the networks of the local service with the installed library.
#include <cstdio>

#include "quorlin/client/service.hpp"

int main() {
  auto networks = quorlin::get_networks(0);
  if (!networks) {
    std::fprintf(stderr, "the service did not answer\n");
    return 1;
  }
  for (auto* node = networks->first; node != nullptr; node = node->next) {
    if (node->item) std::printf("%ld %s\n", node->item->id, node->item->name.value_or("").c_str());
  }
  return 0;
}
