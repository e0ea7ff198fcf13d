// XML parsing beside pugixml (load_buffer), tinyxml2 and libxml2 (xmlReadMemory), and writing,
// on compact network lists of 1 MB and 16 MB and on adversarial documents.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <tinyxml2.h>

#include <map>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "bench/bench_main.hpp"
#include "bench/network_documents.hpp"
#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace {

enum Document { kNetworks1MB, kNetworks16MB, kNested, kBlankAtEnd, kUnclosed, kAttributes };

std::string make_document(Document kind) {
  std::string text;
  switch (kind) {
    case kNetworks1MB:
      return quorlin::bench::network_list_document(1 << 20);
    case kNetworks16MB:
      return quorlin::bench::network_list_document(16 << 20);
    case kNested:  // 200,000 nested elements with distinct names
      return quorlin::bench::nested_document(200'000);
    case kBlankAtEnd:  // 200,000 elements, the only blank at the very end
      text = "<r>";
      for (int i = 0; i < 200'000; ++i) text += "<e>" + std::to_string(i) + "</e>";
      return text + "</r> ";
    case kUnclosed:  // 100,000 opening tags without closing tags
      for (int i = 0; i < 100'000; ++i) text += "<u>";
      return text;
    case kAttributes:  // one element with 1,000,000 attributes
      return quorlin::bench::element_with_attributes("a", 1'000'000);
  }
  return text;
}

const std::string& document(int kind) {
  static std::map<int, std::string> cache;
  auto found = cache.find(kind);
  if (found == cache.end()) found = cache.emplace(kind, make_document(Document(kind))).first;
  return found->second;
}

void all_documents(benchmark::internal::Benchmark* bench) {
  bench->ArgName("doc");
  for (int kind = kNetworks1MB; kind <= kAttributes; ++kind) bench->Arg(kind);
  bench->Unit(benchmark::kMillisecond);
}

void set_bytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

// tinyxml2 and libxml2 compare each attribute with every earlier one, so the document of a
// million attributes never finishes for them; it is skipped for those two only.
bool skip_quadratic_attributes(benchmark::State& state) {
  if (state.range(0) != kAttributes) return false;
  state.SkipWithError("quadratic in attributes");
  return true;
}

void BM_xml_parse(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(quorlin::xml_parse(text));
  set_bytes(state, text);
}

void BM_pugixml_parse(benchmark::State& state) {
  const std::string& text = document(state.range(0));
  for (auto _ : state) {
    pugi::xml_document tree;
    benchmark::DoNotOptimize(tree.load_buffer(text.data(), text.size()));
  }
  set_bytes(state, text);
}

void BM_tinyxml2_parse(benchmark::State& state) {
  if (skip_quadratic_attributes(state)) return;
  const std::string& text = document(state.range(0));
  for (auto _ : state) {
    tinyxml2::XMLDocument tree;
    benchmark::DoNotOptimize(tree.Parse(text.data(), text.size()));
  }
  set_bytes(state, text);
}

void BM_libxml2_parse(benchmark::State& state) {
  if (skip_quadratic_attributes(state)) return;
  const std::string& text = document(state.range(0));
  for (auto _ : state) {
    xmlDocPtr tree =
        xmlReadMemory(text.data(), static_cast<int>(text.size()), "bench.xml", nullptr,
                      XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    benchmark::DoNotOptimize(tree);
    xmlFreeDoc(tree);
  }
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

BENCHMARK(BM_xml_parse)->Apply(all_documents);
BENCHMARK(BM_pugixml_parse)->Apply(all_documents);
BENCHMARK(BM_tinyxml2_parse)->Apply(all_documents);
BENCHMARK(BM_libxml2_parse)->Apply(all_documents);
BENCHMARK(BM_xml_to_string)->Apply(all_documents);

}  // namespace

int main(int argc, char** argv) {
  return quorlin::bench::run_benchmarks(argc, argv);
}
