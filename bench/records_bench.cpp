// Reading the network list into records beside parsing the same text into a bare XML tree, and
// writing the records beside writing their tree.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_main.hpp"
#include "bench/network_documents.hpp"
#include "quorlin/records/record_reader.hpp"
#include "quorlin/records/record_writer.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace {

const std::string& network_list_16mb() {
  static const std::string text = quorlin::bench::network_list_document(16 << 20);
  return text;
}

// The document is made before the first timed iteration.
void BM_XmlParse16MB(benchmark::State& state) {
  const std::string& text = network_list_16mb();
  for (auto _ : state) benchmark::DoNotOptimize(quorlin::xml_parse(text));
  state.SetBytesProcessed(state.iterations() * int64_t(text.size()));
}
BENCHMARK(BM_XmlParse16MB)->Apply(quorlin::bench::in_milliseconds_with_fastest);

void BM_XmlParseChildren16MB(benchmark::State& state) {
  const std::string& text = network_list_16mb();
  for (auto _ : state) {
    std::size_t children = 0;
    quorlin::xml_parse_children(
        text, [&](const quorlin::XmlNode&, const quorlin::XmlNode&) { ++children; });
    benchmark::DoNotOptimize(children);
  }
}
BENCHMARK(BM_XmlParseChildren16MB)->Apply(quorlin::bench::in_milliseconds_with_fastest);

void BM_PeerNetworkListParse16MB(benchmark::State& state) {
  const std::string& text = network_list_16mb();
  for (auto _ : state) benchmark::DoNotOptimize(quorlin::peer_network_list_parse(text));
  state.SetBytesProcessed(state.iterations() * int64_t(text.size()));
}
BENCHMARK(BM_PeerNetworkListParse16MB)->Apply(quorlin::bench::in_milliseconds_with_fastest);

const quorlin::PeerNetworkList& network_list_records() {
  static const auto list = quorlin::peer_network_list_parse(network_list_16mb());
  return *list;
}

// Writing the records as text beside writing the tree they make; both are made beforehand.
void BM_XmlToString16MB(benchmark::State& state) {
  static const auto tree = quorlin::peer_network_list_to_xml(network_list_records());
  for (auto _ : state) benchmark::DoNotOptimize(quorlin::xml_to_string(*tree));
}
BENCHMARK(BM_XmlToString16MB)->Apply(quorlin::bench::in_milliseconds_with_fastest);

void BM_PeerNetworkListToText16MB(benchmark::State& state) {
  const quorlin::PeerNetworkList& list = network_list_records();
  for (auto _ : state) benchmark::DoNotOptimize(quorlin::peer_network_list_to_text(list));
}
BENCHMARK(BM_PeerNetworkListToText16MB)->Apply(quorlin::bench::in_milliseconds_with_fastest);

}  // namespace

int main(int argc, char** argv) {
  return quorlin::bench::run_benchmarks(argc, argv);
}
