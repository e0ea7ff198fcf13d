// The tools against the service simulator: `quorlinadmin list` of a 16 MB network list beside
// `xmllint --noout` parsing the same document from a file, and `quorlinctl networks` as a table
// and as JSON beside quorlinadmin (CPU time and peak memory of each process alone, and
// quorlinadmin's instructions per reply byte under callgrind); the tool's peak
// memory on replies made of tiny elements; and a loop of get_local_ip operations beside plain
// sockets and beside a minimal server. The simulator runs in this process on port 7000.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/network_documents.hpp"
#include "quorlin/client/service.hpp"
#include "quorlin/net/connection.hpp"
#include "quorlin/records/record_writer.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace {

constexpr int kNetworks = 11'800;  // five members each: about 16 MB as the simulator writes them

// The files the benchmarks write in /tmp. Ctrl-C (or a kill) ends the process without its static
// destructors, so a handler removes them first: the 16 MB document here, the callgrind profile
// in the launcher (below), which outlives the run it waits for.
constexpr char kDocumentPath[] = "/tmp/quorlin-bench-networks.xml";
constexpr char kProfilePath[] = "/tmp/quorlin-bench-callgrind.out";

extern "C" void remove_document_and_stop(int signal) {
  unlink(kDocumentPath);
  raise(signal);  // the default action again (SA_RESETHAND), once this handler returns
}

void remove_document_on_signals() {
  struct sigaction action {};
  action.sa_handler = remove_document_and_stop;
  action.sa_flags = SA_RESETHAND;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

struct Fixture {
  Fixture()
      : service({.port = quorlin::SERVICE_PORT,
                 .generated_networks = kNetworks,
                 .request_log_path = {}}) {
    if (!service.start()) {
      std::fprintf(stderr, "port %d is taken\n", quorlin::SERVICE_PORT);
      std::exit(1);
    }
    auto networks = quorlin::simulator::seed_networks(kNetworks);
    document_path = kDocumentPath;
    remove_document_on_signals();
    std::ofstream(document_path) << quorlin::peer_network_list_to_text(*networks) << '\n';
    document_bytes = quorlin::peer_network_list_to_text(*networks).size();
  }
  ~Fixture() { std::remove(document_path.c_str()); }
  quorlin::simulator::ServiceSimulator service;
  std::string document_path;
  std::size_t document_bytes = 0;
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

struct ChildUse {
  bool ran = false;
  double cpu_seconds = 0;  // user + system
  double peak_mb = 0;
};

volatile std::sig_atomic_t launcher_interrupted = 0;

extern "C" void note_interruption(int) {
  launcher_interrupted = 1;
}

// Runs a program with its output discarded and returns its own resource use (wait4), so that
// the serving side in this process is not counted. A program ended by Ctrl-C ends the
// benchmark too: the whole foreground group got the signal. The launcher outlives the program
// so as to remove the profile callgrind writes as it ends.
ChildUse run_and_measure(char* const* argv) {
  const pid_t pid = fork();
  if (pid == 0) {
    const int discard = open("/dev/null", O_WRONLY);
    dup2(discard, STDOUT_FILENO);
    dup2(discard, STDERR_FILENO);
    execv(argv[0], argv);
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  pid_t waited = -1;
  if (pid > 0) {
    do {
      waited = wait4(pid, &status, 0, &usage);
    } while (waited < 0 && errno == EINTR);
  }
  if (launcher_interrupted != 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGINT)) {
    unlink(kProfilePath);
    _exit(130);
  }
  if (waited != pid) return {};
  const auto seconds = [](timeval time) { return time.tv_sec + time.tv_usec / 1e6; };
  return {.ran = WIFEXITED(status) && WEXITSTATUS(status) != 127,
          .cpu_seconds = seconds(usage.ru_utime) + seconds(usage.ru_stime),
          .peak_mb = usage.ru_maxrss / 1024.0};
}

// A process forked when this one is loaded, while it is still small, that runs the measured
// programs: a child's peak resident size counts the memory of the process it was forked from,
// and this process grows to hold the simulator's 16 MB list. Requests are argument vectors
// (NUL-separated, after their length); answers are ChildUse records.
class Launcher {
 public:
  Launcher() {
    if (pipe(requests_) != 0 || pipe(answers_) != 0) return;
    if (fork() == 0) {
      // Only this process's own ends stay open, so that it sees the end of the requests when
      // the benchmark ends, however it ends.
      close(requests_[1]);
      close(answers_[0]);
      // Ctrl-C reaches this process too: it notes it, waits for the program it runs to end,
      // removes what that program left, and ends.
      struct sigaction action {};
      action.sa_handler = note_interruption;
      for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
      serve();
      _exit(0);
    }
    close(requests_[0]);
    close(answers_[1]);
  }

  ChildUse run(const std::vector<std::string>& argv) {
    std::string request;
    for (const std::string& argument : argv) request.append(argument).push_back('\0');
    const std::size_t size = request.size();
    ChildUse use;
    if (write(requests_[1], &size, sizeof size) != sizeof size ||
        write(requests_[1], request.data(), size) != static_cast<ssize_t>(size) ||
        read(answers_[0], &use, sizeof use) != sizeof use) {
      return {};
    }
    return use;
  }

 private:
  void serve() {
    for (std::size_t size = 0; read(requests_[0], &size, sizeof size) == sizeof size;) {
      std::string request(size, '\0');
      if (read(requests_[0], request.data(), size) != static_cast<ssize_t>(size)) return;
      std::vector<char*> argv;
      for (std::size_t at = 0; at < size; at = request.find('\0', at) + 1) {
        argv.push_back(request.data() + at);
      }
      argv.push_back(nullptr);
      const ChildUse use = run_and_measure(argv.data());
      if (write(answers_[1], &use, sizeof use) != sizeof use) return;
    }
  }

  int requests_[2] = {-1, -1};
  int answers_[2] = {-1, -1};
};

Launcher launcher;

ChildUse run_child(const std::vector<std::string>& argv) {
  return launcher.run(argv);
}

// Times the program; the counters say its CPU time per run and its peak resident memory.
void run_program(benchmark::State& state, const std::vector<std::string>& argv) {
  double cpu_seconds = 0;
  double peak_mb = 0;
  for (auto _ : state) {
    const ChildUse use = run_child(argv);
    if (!use.ran) state.SkipWithError(("could not run " + argv[0]).c_str());
    cpu_seconds += use.cpu_seconds;
    peak_mb = std::max(peak_mb, use.peak_mb);
  }
  const double document_mb = static_cast<double>(fixture().document_bytes) / (1 << 20);
  state.counters["cpu_ms"] = 1000 * cpu_seconds / static_cast<double>(state.iterations());
  state.counters["peak_MB"] = peak_mb;
  state.counters["document_MB"] = document_mb;
  state.counters["peak_per_document"] = peak_mb / document_mb;
}

double xmllint_cpu_ms = 0;  // from the last run of BM_XmllintNoout16MB, which runs first

void BM_XmllintNoout16MB(benchmark::State& state) {
  run_program(state, {"/usr/bin/xmllint", "--noout", fixture().document_path});
  xmllint_cpu_ms = state.counters["cpu_ms"];
}

double quorlinadmin_cpu_ms = 0;  // from the last run of BM_QuorlinadminList16MB

void BM_QuorlinadminList16MB(benchmark::State& state) {
  fixture();
  run_child({QUORLINADMIN_PATH, "list"});  // the simulator writes its reply once, then serves it
  run_program(state, {QUORLINADMIN_PATH, "list"});
  quorlinadmin_cpu_ms = state.counters["cpu_ms"];
  if (xmllint_cpu_ms > 0)
    state.counters["cpu_per_xmllint"] = state.counters["cpu_ms"] / xmllint_cpu_ms;
}

// quorlinctl's listing of the same reply, as a table and as JSON, beside quorlinadmin's.
void quorlinctl_networks(benchmark::State& state, std::vector<std::string> arguments) {
  fixture();
  arguments.insert(arguments.begin(), QUORLINCTL_PATH);
  run_program(state, arguments);
  if (quorlinadmin_cpu_ms > 0)
    state.counters["cpu_per_quorlinadmin"] = state.counters["cpu_ms"] / quorlinadmin_cpu_ms;
}

void BM_QuorlinctlNetworksTable16MB(benchmark::State& state) {
  quorlinctl_networks(state, {"networks"});
}

void BM_QuorlinctlNetworksJson16MB(benchmark::State& state) {
  quorlinctl_networks(state, {"--json", "networks"});
}

// One run under callgrind: the instructions the tool executes per byte of the reply.
void BM_QuorlinadminListInstructions(benchmark::State& state) {
  const char* const valgrind = "/usr/bin/valgrind";
  if (access(valgrind, X_OK) != 0) {
    state.SkipWithError("valgrind is not installed");
    return;
  }
  fixture();
  const std::string profile = kProfilePath;
  for (auto _ : state) {
    run_child({valgrind, "--tool=callgrind", "--callgrind-out-file=" + profile, QUORLINADMIN_PATH,
               "list"});
  }
  // The profile ends with "totals: <instructions>".
  std::ifstream in(profile);
  double instructions = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("totals: ", 0) == 0) instructions = std::stod(line.substr(8));
  }
  std::remove(profile.c_str());
  if (instructions == 0) {
    state.SkipWithError("callgrind wrote no totals");
    return;
  }
  state.counters["instructions_per_byte"] =
      instructions / static_cast<double>(fixture().document_bytes);
}

std::string repeated(std::string_view head, std::string_view unit, long count,
                     std::string_view tail) {
  std::string text(head);
  for (long i = 0; i < count; ++i) text += unit;
  return text.append(tail);
}

// Replies made of tiny elements, where the tree or the records cost most beside the reply: the
// tool's peak resident memory on each, above its peak on a tiny reply, per byte of the reply
// (the least of three runs each).
void BM_QuorlinadminListTinyElements(benchmark::State& state) {
  const struct {
    const char* counter;
    std::string reply;
  } replies[] = {
      {"", "<PeerNetworks></PeerNetworks>\n"},
      {"nested_200k_per_reply", quorlin::bench::nested_document(200'000, "x") + "\n"},
      {"empty_networks_200k_per_reply",
       repeated("<PeerNetworks>", "<PeerNetwork></PeerNetwork>", 200'000, "</PeerNetworks>\n")},
      {"attributes_1M_per_reply",
       quorlin::bench::element_with_attributes("PeerNetworks", 1'000'000) + "\n"},
  };
  fixture();
  for (auto _ : state) {
    double tiny_peak_mb = 0;
    for (const auto& reply : replies) {
      fixture().service.answer_with(reply.reply);
      double peak_mb = 1e9;
      for (int run = 0; run < 3; ++run) {
        peak_mb = std::min(peak_mb, run_child({QUORLINADMIN_PATH, "list"}).peak_mb);
      }
      if (*reply.counter == '\0') {
        tiny_peak_mb = peak_mb;
      } else {
        const double reply_mb = static_cast<double>(reply.reply.size()) / (1 << 20);
        state.counters[reply.counter] = (peak_mb - tiny_peak_mb) / reply_mb;
      }
    }
  }
  fixture().service.misbehave(quorlin::simulator::Misbehaviour::kNone);
}

void BM_GetLocalIp(benchmark::State& state) {
  fixture();
  char ip[64];
  for (auto _ : state) {
    if (quorlin::get_local_ip(ip) != 0) state.SkipWithError("get_local_ip failed");
  }
  state.SetItemsProcessed(state.iterations());
}

// The same request and reply with plain socket calls: the floor that connection set-up on this
// machine puts under any client.
void BM_PlainSocketGetLocalIp(benchmark::State& state) {
  fixture();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(quorlin::SERVICE_PORT);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  static constexpr char kRequest[] = "p2pnet_command=9\r\n";
  char reply[256];
  for (auto _ : state) {
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address);
    send(descriptor, kRequest, sizeof kRequest - 1, 0);
    std::size_t got = 0;
    while (got < sizeof reply) {
      ssize_t result = recv(descriptor, reply + got, sizeof reply - got, 0);
      if (result <= 0) break;
      got += result;
      if (std::memchr(reply, '\n', got) != nullptr) break;
    }
    close(descriptor);
  }
  state.SetItemsProcessed(state.iterations());
}

// The floor of the machine itself: the loopback server with a minimal handler (one recv, one send,
// close) on another port, and the same plain-socket client; no client can beat this loop.
void BM_MinimalServerRoundTrip(benchmark::State& state) {
  quorlin::tools::LoopbackServer server([](int connection) {
    static constexpr char kReply[] = "p2pnet_retval=0&p2pnet_local_ip=127.0.0.1\r\n";
    char request[256];
    if (recv(connection, request, sizeof request, 0) > 0) {
      send(connection, kReply, sizeof kReply - 1, 0);
    }
  });
  if (!server.listening()) {
    state.SkipWithError("no listener");
    return;
  }
  const sockaddr_in address = quorlin::ipv4_socket_address("127.0.0.1", server.port());
  char reply[256];
  for (auto _ : state) {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    send(descriptor, "p2pnet_command=9\r\n", 18, 0);
    recv(descriptor, reply, sizeof reply, 0);
    close(descriptor);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_XmllintNoout16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_QuorlinadminList16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_QuorlinctlNetworksTable16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_QuorlinctlNetworksJson16MB)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_QuorlinadminListInstructions)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuorlinadminListTinyElements)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainSocketGetLocalIp)
    ->Iterations(10'000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetLocalIp)->Iterations(10'000)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MinimalServerRoundTrip)
    ->Iterations(10'000)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
