#include "quorlin/xml/xml_parser.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "quorlin/xml/reference_parser_test_support.hpp"
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
      {"<a\tb></a\tb>", "a\tb"},
      {"<></>", ""},
      // text: the last segment directly inside, kept as written
      {"<a>\n  <b>1</b>\n</a>", "a(b='1')='\n'"},
      {"<a>1<b></b>2<c></c>3</a>", "a(b,c)='3'"},
      {"<a>&amp; &lt;</a>", "a='&amp; &lt;'"},
      {"<a></a>", "a"},
      // the first closing tag of the same name wins; later top-level elements join the root
      {"<a><a>x</a></a>", "a"},
      {"<a></a><b /><c>3</c>", "a(b,c='3')"},
      {"<r><a>1</a><b>unclosed</r>", "r(a='1')"},
      {"<r><b>never closed<c>2</c></r>", "r"},
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

// Texts built from the pieces the grammar reacts to, so that tags, closing tags, blanks, quotes
// and declarations meet in every order.
std::string random_pieces(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "<", ">", "</", "/>", "a", "b", "ab", " ", "=", "\"", "x", "<a>", "</a>", "<?", "<b ", "\n"};
  std::string text;
  const int length = static_cast<int>(random() % 24);
  for (int i = 0; i < length; ++i) text += pieces[random() % pieces.size()];
  return text;
}

// Nested documents that are well formed but for a few bytes: names that repeat at depth, "<" and
// closing tags inside attribute values, self-closing elements, and one random cut or insertion,
// so that closing tags turn up inside tags, inside other closing tags and after broken ranges.
std::string random_document(std::mt19937& random, int depth) {
  static const std::vector<std::string> names = {
      "a", "b", "ab", "PeerMember", "x y=\"</b>\"", "c k=\"<\""};
  static const std::vector<std::string> texts = {"", "t", "1 2", "&amp;", "/>", "\"", ">"};
  std::string out;
  const int children = depth == 0 ? 0 : static_cast<int>(random() % 4);
  for (int i = 0; i < children; ++i) {
    const std::string& tag = names[random() % names.size()];
    const std::string name = tag.substr(0, tag.find(' '));
    if (random() % 5 == 0) {
      out += "<" + tag + (random() % 2 ? " />" : "/>");
    } else {
      out += "<" + tag + ">" + random_document(random, depth - 1) + "</" + name + ">";
    }
    out += texts[random() % texts.size()];
  }
  return out;
}

std::string nearly_well_formed(std::mt19937& random) {
  static const std::vector<std::string> insertions = {"<", "</a>", "<b>", "</", ">", "<a />", " "};
  std::string text = "<r>" + random_document(random, 4) + "</r>";
  const std::size_t at = random() % text.size();
  if (random() % 3 == 0) return text;
  if (random() % 2) return text.erase(at, 1 + random() % 4);
  return text.insert(at, insertions[random() % insertions.size()]);
}

// Deep nesting, so that the open names outgrow the parser's first table, with names of the upper
// half that open again in the lower half while they are open (a name of its own each round, so
// that names land in every bucket of the table whatever its seed), and a closing tag of a random
// open element inserted at a random place, so that an element that is not the innermost is closed
// by name.
std::string deep_document(std::mt19937& random) {
  std::vector<std::string> names(70 + random() % 90);
  const std::string round = std::to_string(random() % 1000) + "_";
  for (std::size_t level = 0; level < names.size(); ++level)
    names[level] = round + std::to_string(level);
  const std::size_t half = names.size() / 2;
  for (std::size_t level = half; level < names.size(); ++level) {
    if (random() % 4 == 0) names[level] = names[random() % half];
  }
  std::string text;
  for (const std::string& name : names) text += "<n" + name + ">";
  text += "t";
  for (auto name = names.rbegin(); name != names.rend(); ++name) text += "</n" + *name + ">";
  std::string stray = "</n";  // built in steps: g++ 12 -O3 misjudges "literal" + temporary
  stray += random() % 2 ? names[random() % names.size()] : round + std::to_string(random() % 150);
  stray += ">";
  return text.insert(random() % text.size(), stray);
}

// Each text must read exactly as the plain algorithm reads it, whole, child by child and in place.
TEST(XmlParse, ReadsRandomTextsExactlyAsThePlainAlgorithm) {
  std::mt19937 random(20261122);
  for (int round = 0; round < 40'000; ++round) {
    const std::string text = round % 4 == 0 ? deep_document(random)
                             : round % 2    ? random_pieces(random)
                                            : nearly_well_formed(random);
    const auto tree = xml_parse(text);
    ASSERT_EQ(describe(tree.get()), reference::parse_and_describe(text)) << text;
    ASSERT_EQ(describe_handed_over(text), describe_root_children(tree.get())) << text;
    ASSERT_EQ(describe(xml_parse_buffer(std::string(text)).get()), describe(tree.get())) << text;
  }
}

// name0 ... nameN-1 nested, each closed in order: distinct names make a real depth of N.
std::string nested_document(int depth) {
  std::string document;
  for (int level = 0; level < depth; ++level) document += "<e" + std::to_string(level) + ">";
  document += "x";
  for (int level = depth - 1; level >= 0; --level) document += "</e" + std::to_string(level) + ">";
  return document;
}

TEST(XmlParse, AMillionNestedElementsParseWriteAndFree) {
  const std::string document = nested_document(1'000'000);
  auto tree = xml_parse(document);
  ASSERT_NE(tree, nullptr);
  int depth = 1;
  for (const XmlNode* node = tree.get(); xml_node_children(*node).first != nullptr; ++depth) {
    node = &xml_node_children(*node).first->item;
  }
  EXPECT_EQ(depth, 1'000'000);
  EXPECT_EQ(xml_to_string(*tree), document);
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

  std::string unclosed;
  for (int i = 0; i < 100'000; ++i) unclosed += "<u>";
  EXPECT_EQ(xml_parse(unclosed), nullptr);

  std::string attributes = "<a";
  for (int i = 0; i < 1'000'000; ++i) attributes += " k=\"v\"";
  attributes += "></a>";
  auto many = xml_parse(attributes);
  ASSERT_NE(many, nullptr);
  EXPECT_EQ(list_count(const_cast<XmlAttributes&>(xml_node_attributes(*many))), 1'000'000);
}

}  // namespace
}  // namespace quorlin
