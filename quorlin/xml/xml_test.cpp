#include "quorlin/xml/xml_parser.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "quorlin/xml/xml_node.hpp"
#include "quorlin/xml/xml_test_support.hpp"
#include "quorlin/xml/xml_writer.hpp"
#include "tests/support/peers.hpp"

namespace quorlin {
namespace {

TEST(XmlParse, TreesOfTheForgivingGrammar) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      // declarations are skipped at byte 0 only
      {"<?xml version=\"1.0\"?><r><x>1</x></r>", "r(x='1')"},
      {" <?xml version=\"1.0\"?><r></r>", "null"},
      {"\xef\xbb\xbf<?xml version=\"1.0\"?><r></r>", "null"},
      {"<?xml?>", "null"},
      {"<!-- note --><r></r>", "null"},
      // names end at the first blank of the tag, slash and tabs included
      {"<a/>", "a/"},
      {"<a />", "a"},
      {"<r><a /></a><b/></r>", "r(a)"},  // a stray closing tag ends the range
      {"<a\tb></a\tb>", "a\tb"},
      {"<></>", ""},
      {"<r><><a></>x</r>", "r()='x'"},  // "</>" closes the empty name around a
      // text: the last segment directly inside, kept as written
      {"<a>\n  <b>1</b>\n</a>", "a(b='1')='\n'"},
      {"<a>1<b></b>2<c></c>3</a>", "a(b,c)='3'"},
      {"<a>&amp; &lt;</a>", "a='&amp; &lt;'"},
      {"<r><ab><</ab></r>", "r(ab)"},
      {"<a></a>", "a"},
      // the first closing tag of the same name wins; later top-level elements join the root
      {"<a><a>x</a></a>", "a"},
      {"<a></a><b /><c>3</c>", "a(b,c='3')"},
      {"<r><a>1</a><b>unclosed</r>", "r(a='1')"},
      {"<r><b>never closed<c>2</c></r>", "r"},
      {"</ </a>", "null"},
      // attributes split at double quotes, one byte skipped between them
      {"<a x=\"1\" y=\"2\">t</a>", "a[x=1;y=2]='t'"},
      {"<a x=1 y=2></a>", "a[x=1 y=2]"},
      {"<a x='1'></a>", "a[x='1']"},
      {"<a  x=\"1\"></a>", "a[ x=1]"},
      {"<a x=\"1\"y=\"2\"></a>", "a[x=1;=2]"},
      {"<a x y=\"2\"></a>", "a[x y=2]"},
      {"<a flag></a>", "a"},
      {"<a x=\"\" y=></a>", "a[x=;y=]"},
      {"<e k=\"v\"/>", "e[k=v]"},
      {"<r><c k=\"</c></r>", "r(c[k=</c])"},  // closed inside its own tag
      // not enough for an element
      {"", "null"},
      {"just text", "null"},
      {"<a", "null"},
      {"<a>no closing tag", "null"},
  };
  for (const auto& [text, tree] : cases) {
    EXPECT_EQ(describe(xml_parse(text).get()), tree) << text;
  }
  // A name and texts of 65,535 bytes and more, copied or viewed in place, after a short text and
  // after a long one; the last text stays.
  const std::string name(65'535, 'n'), text(70'000, 't');
  const std::string document = "<" + name + ">s<b />" + text + "<c />" + text + "x</" + name + ">";
  const std::string tree = name + "(b,c)='" + text + "x'";
  EXPECT_EQ(describe(xml_parse(document).get()), tree);
  EXPECT_EQ(describe(xml_parse_buffer(std::string(document)).get()), tree);
}

TEST(XmlParse, ElementRangeAppendsToAGivenParent) {
  auto parent = xml_node_new("p");
  const std::string text = "ignored<a>1</a>text<b />";
  EXPECT_EQ(xml_parse_element(parent.get(), text, 7, static_cast<long>(text.size())), nullptr);
  EXPECT_EQ(describe(parent.get()), "p(a='1',b)='text'");
  xml_parse_attributes(*parent, "=v", 0, 2);  // from the text's first byte, "=": an empty name
  EXPECT_EQ(describe(parent.get()), "p[=v](a='1',b)='text'");
  // The range ends before the ">" of "<abcdefghijklmn/>": there is no element in it.
  xml_parse_element(parent.get(), "<abcdefghijklmn/>", 0, 16);
  EXPECT_EQ(describe(parent.get()), "p[=v](a='1',b)='text'");
  // The range ends where "</r>" begins: r is not closed inside it.
  EXPECT_EQ(describe(xml_parse_element(nullptr, "<r></q><x</r>", 0, 9).get()), "null");
}

TEST(XmlParse, HostileDocumentsStayLinear) {
  // Handed over one by one, children take memory one at a time, even those that fill several
  // blocks: not the 8 MB of the whole tree.
  std::string groups = "<r>";
  for (int i = 0; i < 20; ++i) {
    groups += "<g>";
    for (int j = 0; j < 5000; ++j) groups += "<e>1</e>";
    groups += "</g>";
  }
  std::size_t first_use = 0, most_use = 0, handed_over = 0;
  xml_parse_children(groups + "</r>", [&](const XmlNode&, const XmlNode&) {
    if (handed_over++ == 0) first_use = testing::heap_in_use();
    most_use = std::max(most_use, testing::heap_in_use());
  });
  EXPECT_EQ(handed_over, 20u);
  EXPECT_LT(most_use - first_use, 1u << 20);

  std::string nested;  // a million distinct names, each closed in order
  for (int i = 0; i < 1'000'000; ++i) nested += "<e" + std::to_string(i) + ">";
  for (int i = 1'000'000; i-- > 0;) nested += "</e" + std::to_string(i) + ">";
  EXPECT_EQ(xml_to_string(*xml_parse(nested)), nested);

  std::string attributes = "<a";
  for (int i = 0; i < 1'000'000; ++i) attributes += " k=\"v\"";
  attributes += "></a>";
  auto many = xml_parse(attributes);
  ASSERT_NE(many, nullptr);
  EXPECT_EQ(list_count(const_cast<XmlAttributes&>(xml_node_attributes(*many))), 1'000'000);
}

TEST(XmlNode, TextIsCopiedReplacedAndCleared) {
  auto node = xml_node_new("a");
  EXPECT_EQ(xml_node_text(*node), std::nullopt);
  {
    std::string caller_text = "first";
    xml_node_set_text(*node, caller_text);
    caller_text = "changed";
  }
  EXPECT_EQ(xml_node_text(*node), "first");
  xml_node_set_text(*node, xml_node_text(*node)->substr(2));  // its own bytes, overlapping
  EXPECT_EQ(xml_node_text(*node), "rst");
  // Sizes from 65,535 up are kept beside the bytes; then from the node's own bytes, in place.
  for (const std::size_t size : {65'534u, 65'535u, 70'000u}) {
    xml_node_set_text(*node, std::string(size, 't'));
    EXPECT_EQ(xml_node_text(*node), std::string(size, 't'));
  }
  xml_node_set_text(*node, xml_node_text(*node)->substr(1));
  EXPECT_EQ(xml_node_text(*node), std::string(69'999, 't'));
  xml_node_set_text(*node, xml_node_text(*node)->substr(0, 3));
  EXPECT_EQ(xml_node_text(*node), "ttt");
  xml_node_set_text(*node, "");
  EXPECT_EQ(xml_node_text(*node), "");  // empty is not absent
  xml_node_set_text(*node, std::nullopt);
  EXPECT_EQ(xml_node_text(*node), std::nullopt);

  // Replacing a parsed text leaves its neighbours' bytes as they were.
  auto parsed = xml_parse("<r><a>hello</a><b>world</b></r>");
  xml_node_set_text(xml_node_children(*parsed).first->item, "hi");
  EXPECT_EQ(xml_to_string(*parsed), "<r><a>hi</a><b>world</b></r>");

  // Replaced texts give their bytes back: two sizes alternating reuse two blocks.
  const std::string long_text(1000, 'x');
  std::set<const char*> addresses;
  for (int round = 0; round < 1000; ++round) {
    xml_node_set_text(*node, round % 2 ? std::string_view("short") : std::string_view(long_text));
    addresses.insert(xml_node_text(*node)->data());
    if (round % 3 == 0) xml_node_set_text(*node, std::nullopt);
  }
  EXPECT_LE(addresses.size(), 2u);
}

TEST(XmlNode, AnAdoptedChildKeepsItsAddressAndTheTreeFreesItOnce) {
  auto root = xml_node_new("r");
  auto y = xml_node_new("y");
  XmlNode* kept = y.get();
  xml_node_add_attribute(*y, "k", "v");
  EXPECT_EQ(&xml_node_add_child(*root, std::move(y))->item, kept);
  // The adopted tree goes on growing from its own storage, and so does the parent; a parsed tree
  // is adopted the same way. The sanitizers see every block freed once.
  xml_node_set_text(xml_add_element(*kept, "w"), "1");
  xml_add_element(*root, "z");
  auto parsed = xml_parse("<p><q>2</q></p>");
  const XmlNode* parsed_root = parsed.get();
  EXPECT_EQ(&xml_node_add_child(*kept, std::move(parsed))->item, parsed_root);
  EXPECT_EQ(xml_to_string(*root), "<r><y k=\"v\"><w>1</w><p><q>2</q></p></y><z></z></r>");
  // Attributes keep their order and repeat; a lookup takes the last of a name, exactly.
  xml_node_add_attribute(*kept, "j", "w");
  xml_node_add_attribute(*kept, "k", "x");
  EXPECT_EQ(xml_node_attribute(*kept, "k"), "x");
  EXPECT_EQ(xml_node_attribute(*kept, "K"), std::nullopt);
  EXPECT_EQ(xml_node_attribute(*root, "k"), std::nullopt);
  EXPECT_EQ(describe(kept), "y[k=v;j=w;k=x](w='1',p(q='2'))");
}

std::unique_ptr<XmlNode> sample_tree() {
  auto a = xml_node_new("a");
  xml_node_set_text(xml_add_element(*a, "b"), "2");
  xml_node_set_text(*a, "t");
  return a;
}

TEST(XmlWriter, CompactTextWithoutEscapingOrSelfClosingAndTheDump) {
  auto a = sample_tree();
  EXPECT_EQ(xml_to_string(*a), "<a><b>2</b>t</a>");
  xml_node_add_attribute(*a, "x", "1");
  EXPECT_EQ(xml_to_string(*a), "<a x=\"1\"><b>2</b>t</a>");

  EXPECT_EQ(xml_to_string(*xml_node_new("")), "<></>");
  auto raw = xml_node_new("r");
  xml_node_add_attribute(*raw, "q", "say \"hi\"");
  xml_node_set_text(*raw, "1 < 2 & 3");
  EXPECT_EQ(xml_to_string(*raw), "<r q=\"say \"hi\"\">1 < 2 & 3</r>");

  ::testing::internal::CaptureStdout();  // the dump: one tag a line, through the log
  xml_node_dump(*sample_tree());
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "<a>\n<b>\n2</b>\nt</a>\n");
}

TEST(TextBuffer, CapacityIsTheSmallestBlockMultipleAboveLengthPlusRoom) {
  TextBuffer buffer;
  EXPECT_EQ(buffer.capacity, 0u);                   // nothing before the first reservation
  char* text = text_buffer_reserve(buffer, 10000);  // the first call takes one block
  EXPECT_EQ(buffer.capacity, 512u);
  EXPECT_STREQ(text, "");

  struct Step {
    std::size_t length;  // the text is filled to this length first
    std::size_t extra;
    std::size_t capacity;
  };
  const std::vector<Step> steps = {
      {0, 511, 512}, {511, 0, 512}, {511, 1, 1024}, {600, 423, 1024}, {600, 424, 1536}};
  for (const Step& step : steps) {
    std::memset(buffer.text.get(), 'x', step.length);
    buffer.text[step.length] = '\0';
    text = text_buffer_reserve(buffer, step.extra);
    EXPECT_EQ(buffer.capacity, step.capacity) << step.length << " + " << step.extra;
    EXPECT_EQ(std::string(text), std::string(step.length, 'x'));
  }
}

}  // namespace
}  // namespace quorlin
