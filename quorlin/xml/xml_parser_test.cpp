#include "quorlin/xml/xml_parser.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

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

  std::string unclosed, nested;  // nested: a million distinct names, each closed in order
  for (int i = 0; i < 100'000; ++i) unclosed += "<u>";
  EXPECT_EQ(xml_parse(unclosed), nullptr);
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

}  // namespace
}  // namespace quorlin
