// Peak memory of parsing, as a multiple of the document's size.
//
// First xml_parse and xml_parse_buffer on a 16 MB network list: the growth of the process's peak
// resident size across the parse, each in a process of its own (a child), so that one's peak
// does not hide the other's.
//
// Then `quorlinadmin list` against the service simulator (in this process, on port 7000) on
// hostile replies: the tool's peak resident size above its peak on a 30-byte reply, per byte of
// the reply, the least of three runs. /usr/bin/time reports each run's peak: it is a small
// process that forks the tool, whose peak thus counts nothing of this one.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "bench/network_documents.hpp"
#include "quorlin/client/service.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "tools/service_simulator/service_simulator.hpp"

namespace {

long peak_resident_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

bool parse_in_children() {
  bool parsed = true;
  for (const bool keeping : {false, true}) {
    std::fflush(stdout);
    if (fork() == 0) {
      std::string document = quorlin::bench::network_list_document(16 << 20);
      const double document_mib = static_cast<double>(document.size()) / (1 << 20);
      const long before = peak_resident_kib();
      auto tree =
          keeping ? quorlin::xml_parse_buffer(std::move(document)) : quorlin::xml_parse(document);
      const double growth_mib = static_cast<double>(peak_resident_kib() - before) / 1024;
      std::printf("%-16s document %.1f MiB, peak grew by %.1f MiB: %.2fx the document\n",
                  keeping ? "xml_parse_buffer" : "xml_parse", document_mib, growth_mib,
                  growth_mib / document_mib);
      std::fflush(stdout);
      _exit(tree ? 0 : 1);
    }
    int status = 0;
    wait(&status);
    parsed = parsed && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  return parsed;
}

// The peak resident size of one `quorlinadmin list`, in KiB, as /usr/bin/time reports it; 0
// when it could not be run.
long tool_peak_kib() {
  int out[2];
  if (pipe(out) != 0) return 0;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], STDERR_FILENO);  // time's report; the tool's own messages follow it there
    close(out[0]);
    const int discard = open("/dev/null", O_WRONLY);
    dup2(discard, STDOUT_FILENO);
    execl("/usr/bin/time", "time", "-f", "peak_kib=%M", QUORLINADMIN_PATH, "list", nullptr);
    _exit(127);
  }
  close(out[1]);
  std::string report;
  char block[4096];
  for (ssize_t got; (got = read(out[0], block, sizeof block)) > 0;) report.append(block, got);
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  const std::size_t at = report.rfind("peak_kib=");
  return at == std::string::npos ? 0 : std::stol(report.substr(at + 9));
}

long least_peak_kib(quorlin::simulator::ServiceSimulator& service, const std::string& reply) {
  service.answer_with(reply);
  long least = 0;
  for (int run = 0; run < 3; ++run) {
    const long peak = tool_peak_kib();
    if (peak > 0 && (least == 0 || peak < least)) least = peak;
  }
  return least;
}

std::string repeated(std::string_view head, std::string_view unit, long count,
                     std::string_view tail) {
  std::string text(head);
  for (long i = 0; i < count; ++i) text += unit;
  return text.append(tail);
}

bool measure_the_tool() {
  quorlin::simulator::ServiceSimulator service(
      {.port = quorlin::SERVICE_PORT, .generated_networks = 0, .request_log_path = {}});
  // Tests take the port at times: it is tried again for two minutes.
  for (int second = 0; !service.start(); ++second) {
    if (second == 120) {
      std::fprintf(stderr, "port %d is taken\n", quorlin::SERVICE_PORT);
      return false;
    }
    sleep(1);
  }
  const long tiny = least_peak_kib(service, "<PeerNetworks></PeerNetworks>\n");
  if (tiny == 0) {
    std::fprintf(stderr, "could not run %s under /usr/bin/time\n", QUORLINADMIN_PATH);
    return false;
  }
  const struct {
    const char* name;
    std::string reply;
  } replies[] = {
      {"1,000,000 attributes on the root",
       quorlin::bench::element_with_attributes("PeerNetworks", 1'000'000) + "\n"},
      {"200,000 nested distinct names", quorlin::bench::nested_document(200'000, "x") + "\n"},
      {"200,000 empty networks",
       repeated("<PeerNetworks>", "<PeerNetwork></PeerNetwork>", 200'000, "</PeerNetworks>\n")},
      {"16 MB network list", quorlin::bench::network_list_document(16 << 20) + "\n"},
  };
  std::printf("quorlinadmin list: peak %.1f MiB on a 30-byte reply\n", tiny / 1024.0);
  for (const auto& [name, reply] : replies) {
    const long peak = least_peak_kib(service, reply);
    const double reply_mib = static_cast<double>(reply.size()) / (1 << 20);
    const double above_mib = static_cast<double>(peak - tiny) / 1024;
    std::printf("  %-34s reply %5.1f MiB, peak %.1f MiB above: %.2fx the reply\n", name, reply_mib,
                above_mib, above_mib / reply_mib);
  }
  return true;
}

}  // namespace

int main() {
  const bool parsed = parse_in_children();
  return parsed && measure_the_tool() ? 0 : 1;
}
