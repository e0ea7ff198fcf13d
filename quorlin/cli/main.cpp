// quorlinadmin: administers the local peer-to-peer network service.
#include <cstdlib>

#include "quorlin/cli/commands.hpp"

int main(int argc, char** argv) {
  std::exit(quorlin::quorlinadmin_main(argc, argv));
}
