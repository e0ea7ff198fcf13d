// Peak memory of parsing the 16 MB network list: the growth of the process's peak resident
// size across the parse (tree and transient index), as a multiple of the document's size.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "bench/network_documents.hpp"
#include "quorlin/xml/xml_parser.hpp"

namespace {
long peak_resident_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}
}  // namespace

// xml_parse copies the text into the tree; xml_parse_buffer keeps the text it is given. Each
// runs in a process of its own (a child), so that one's peak does not hide the other's.
int main() {
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
  return parsed ? 0 : 1;
}
