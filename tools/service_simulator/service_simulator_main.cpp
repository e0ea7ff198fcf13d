// quorlin-service-simulator: plays the local service until SIGINT or SIGTERM.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/service_simulator/service_simulator.hpp"

namespace {

void usage() {
  std::fputs(
      "usage: quorlin-service-simulator [--port N] [--networks N] [--log FILE]\n"
      "                                 [--misbehave close|no-lf|garbage|huge|delay:MS]\n",
      stderr);
}

bool parse_misbehaviour(const std::string& mode, quorlin::simulator::ServiceSimulator& simulator) {
  using quorlin::simulator::Misbehaviour;
  if (mode == "close")
    simulator.misbehave(Misbehaviour::kCloseWithoutReply);
  else if (mode == "no-lf")
    simulator.misbehave(Misbehaviour::kNoFinalLineEnd);
  else if (mode == "garbage")
    simulator.misbehave(Misbehaviour::kGarbage);
  else if (mode == "huge")
    simulator.misbehave(Misbehaviour::kHugeReply);
  else if (mode.starts_with("delay:")) {
    simulator.misbehave(Misbehaviour::kDelay, std::atoi(mode.c_str() + 6));
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  quorlin::simulator::SimulatorOptions options;
  std::string misbehaviour;
  for (int i = 1; i < argc; ++i) {
    std::string flag = argv[i];
    if (i + 1 >= argc) return usage(), 2;
    std::string value = argv[++i];
    if (flag == "--port")
      options.port = std::atoi(value.c_str());
    else if (flag == "--networks")
      options.generated_networks = std::atoi(value.c_str());
    else if (flag == "--log")
      options.request_log_path = value;
    else if (flag == "--misbehave")
      misbehaviour = value;
    else
      return usage(), 2;
  }

  // Signals are taken by sigwait below, not by the serving thread.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  quorlin::simulator::ServiceSimulator simulator(options);
  if (!misbehaviour.empty() && !parse_misbehaviour(misbehaviour, simulator)) return usage(), 2;
  if (!simulator.start()) {
    std::fprintf(stderr, "quorlin-service-simulator: cannot listen on 127.0.0.1:%d: %s\n",
                 options.port, std::strerror(errno));
    return 1;
  }
  std::fprintf(stderr, "quorlin-service-simulator: listening on 127.0.0.1:%d\n", options.port);
  int received;
  sigwait(&stop_signals, &received);
  simulator.stop();
  return 0;
}
