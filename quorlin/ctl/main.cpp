// quorlinctl: administers the local service, for people and for scripts.
#include "quorlin/ctl/ctl.hpp"

int main(int argc, char** argv) {
  return quorlin::ctl::quorlinctl_main(argc, argv);
}
