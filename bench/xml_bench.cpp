// XML parsing beside pugixml (load_buffer, default options) on network lists and on the shapes
// that cost a parser most: deep nesting, a name reopened at every level, a million attributes
// or siblings, empty records, long texts. BM_parse_beside_pugixml parses each document with
// both libraries in turns within one loop, so that the drift of a shared machine falls on both
// sides alike, and reports the median time of each and their ratio: xml_per_pugixml below 1
// means faster than pugixml. BM_xml_parse and BM_xml_to_string time the library alone
// (bench/shared_vs_static.py compares their links); tinyxml2 and libxml2 parse the network
// lists last.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <tinyxml2.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "bench/bench_main.hpp"
#include "bench/network_documents.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace {

enum Document {
  kNetworks1MB,
  kNetworks16MB,
  kNested,
  kNestedSameName,
  kAttributes,
  kEmptySiblings,
  kEmptyNetworks,
  kLongTexts,
  kUnclosed,
  kDocuments
};

std::string repeated(std::string_view head, std::string_view unit, long count,
                     std::string_view tail) {
  std::string text(head);
  text.reserve(head.size() + unit.size() * static_cast<std::size_t>(count) + tail.size());
  for (long i = 0; i < count; ++i) text += unit;
  return text.append(tail);
}

std::string make_document(Document kind) {
  switch (kind) {
    case kNetworks1MB:
      return quorlin::bench::network_list_document(1 << 20);
    case kNetworks16MB:
      return quorlin::bench::network_list_document(16 << 20);
    case kNested:  // 200,000 nested elements with distinct names
      return quorlin::bench::nested_document(200'000);
    case kNestedSameName:  // 100,000 nested elements named a
      return repeated("", "<a>", 100'000, "") + repeated("", "</a>", 100'000, "");
    case kAttributes:  // one element with 1,000,000 attributes
      return quorlin::bench::element_with_attributes("a", 1'000'000);
    case kEmptySiblings:  // 1,000,000 self-closing children of one root
      return repeated("<r>", "<a/>", 1'000'000, "</r>");
    case kEmptyNetworks:  // 200,000 networks without fields
      return repeated("<PeerNetworks>", "<PeerNetwork></PeerNetwork>", 200'000, "</PeerNetworks>");
    case kLongTexts:  // 1,024 texts of 16 KiB
      return repeated("<r>", "<t>" + std::string(16 << 10, 'x') + "</t>", 1024, "</r>");
    case kUnclosed:  // 100,000 opening tags without closing tags
      return repeated("", "<u>", 100'000, "");
    case kDocuments:
      break;
  }
  return {};
}

const std::string& document(int kind) {
  static std::map<int, std::string> cache;
  auto found = cache.find(kind);
  if (found == cache.end()) found = cache.emplace(kind, make_document(Document(kind))).first;
  return found->second;
}

void all_documents(benchmark::internal::Benchmark* bench) {
  bench->ArgName("doc");
  for (int kind = 0; kind < kDocuments; ++kind) bench->Arg(kind);
  bench->Unit(benchmark::kMillisecond);
}

void set_bytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void parse_with_quorlin(const std::string& text) {
  benchmark::DoNotOptimize(quorlin::xml_parse(text));
}

void parse_with_pugixml(const std::string& text) {
  pugi::xml_document tree;
  benchmark::DoNotOptimize(tree.load_buffer(text.data(), text.size()));
}

void parse_with_tinyxml2(const std::string& text) {
  tinyxml2::XMLDocument tree;
  benchmark::DoNotOptimize(tree.Parse(text.data(), text.size()));
}

void parse_with_libxml2(const std::string& text) {
  xmlDocPtr tree =
      xmlReadMemory(text.data(), static_cast<int>(text.size()), "bench.xml", nullptr,
                    XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  benchmark::DoNotOptimize(tree);
  xmlFreeDoc(tree);
}

double median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

// Each iteration parses the document once with each library, the two in turns; a library's
// time is its median over the iterations of the run, as many as a second of both takes (20 and
// more on the 16 MB list). Only pugixml runs in the loop: the millions of small blocks that
// tinyxml2 and libxml2 free would be consolidated by the allocator during whichever parse comes
// next, which would pay for them.
void BM_parse_beside_pugixml(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  std::vector<double> seconds[2];
  std::size_t round = 0;
  for (auto _ : state) {
    double total = 0;
    for (std::size_t turn = 0; turn < 2; ++turn) {
      const std::size_t peer = (round + turn) % 2;
      const auto start = std::chrono::steady_clock::now();
      if (peer == 0) {
        parse_with_quorlin(text);
      } else {
        parse_with_pugixml(text);
      }
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      seconds[peer].push_back(took.count());
      total += took.count();
    }
    state.SetIterationTime(total);
    ++round;
  }
  const double ours = median(seconds[0]);
  const double pugixml = median(seconds[1]);
  state.counters["xml_ms"] = 1000 * ours;
  state.counters["pugixml_ms"] = 1000 * pugixml;
  state.counters["xml_per_pugixml"] = ours / pugixml;
  state.counters["turns"] = static_cast<double>(seconds[0].size());
}

void BM_xml_parse(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  for (auto _ : state) parse_with_quorlin(text);
  set_bytes(state, text);
}

void BM_xml_to_string(benchmark::State& state) {
  auto tree = quorlin::xml_parse(document(state.range(0)));
  if (!tree) {
    state.SkipWithError("document has no tree to write");
    return;
  }
  std::size_t written = 0;
  for (auto _ : state) {
    std::string text = quorlin::xml_to_string(*tree);
    written = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(written));
}

BENCHMARK(BM_parse_beside_pugixml)->Apply(all_documents)->MinTime(1)->UseManualTime();
BENCHMARK(BM_xml_parse)->Apply(all_documents);
BENCHMARK(BM_xml_to_string)->Apply(all_documents);

// tinyxml2 and libxml2 compare each attribute with every earlier one and take minutes on some of
// the other shapes: they parse the network lists only, after everything else.
void network_lists(benchmark::internal::Benchmark* bench) {
  bench->ArgName("doc")->Arg(kNetworks1MB)->Arg(kNetworks16MB)->Unit(benchmark::kMillisecond);
}

void BM_tinyxml2_parse(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  for (auto _ : state) parse_with_tinyxml2(text);
  set_bytes(state, text);
}

void BM_libxml2_parse(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  for (auto _ : state) parse_with_libxml2(text);
  set_bytes(state, text);
}

BENCHMARK(BM_tinyxml2_parse)->Apply(network_lists);
BENCHMARK(BM_libxml2_parse)->Apply(network_lists);

}  // namespace

int main(int argc, char** argv) {
  return quorlin::bench::run_benchmarks(argc, argv);
}
