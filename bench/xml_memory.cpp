// Peak memory of parsing the 16 MB network list: the growth of the process's peak resident
// size across xml_parse (tree and transient index), as a multiple of the document's size.
#include <sys/resource.h>

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

int main() {
  const std::string document = quorlin::bench::network_list_document(16 << 20);
  const long before = peak_resident_kib();
  auto tree = quorlin::xml_parse(document);
  const long after = peak_resident_kib();
  const double document_mib = static_cast<double>(document.size()) / (1 << 20);
  const double growth_mib = static_cast<double>(after - before) / 1024;
  std::printf("document %.1f MiB, peak grew by %.1f MiB: %.2fx the document\n", document_mib,
              growth_mib, growth_mib / document_mib);
  return tree ? 0 : 1;
}
