#include "quorlin/xml/xml_node.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_test_support.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace quorlin {
namespace {

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
  EXPECT_EQ(xml_node_children(*root).first, nullptr);
  xml_add_element(*root, "x");
  auto y = xml_node_new("y");
  XmlNode* kept = y.get();
  xml_node_set_text(xml_add_element(*y, "w"), "1");
  xml_node_add_attribute(*y, "k", "v");
  XmlChild* holder = xml_node_add_child(*root, std::move(y));
  EXPECT_EQ(&holder->item, kept);
  // The adopted tree goes on growing from its own storage, and so does the parent.
  xml_add_element(*kept, "late");
  xml_node_set_text(*kept, "t");
  xml_add_element(*root, "z");
  EXPECT_EQ(describe(root.get()), "r(x,y[k=v](w='1',late)='t',z)");
  EXPECT_EQ(xml_to_string(*root), "<r><x></x><y k=\"v\"><w>1</w><late></late>t</y><z></z></r>");
  // A parsed tree is adopted the same way; the sanitizers see every block freed once, the
  // adopted storage with its new parent.
  auto parsed = xml_parse("<p><q>2</q></p>");
  const XmlNode* parsed_root = parsed.get();
  EXPECT_EQ(&xml_node_add_child(*kept, std::move(parsed))->item, parsed_root);
  EXPECT_EQ(describe(root.get()), "r(x,y[k=v](w='1',late,p(q='2'))='t',z)");
  // Attributes keep their order and repeat; a lookup takes the last of a name, exactly.
  xml_node_add_attribute(*kept, "j", "w");
  xml_node_add_attribute(*kept, "k", "x");
  EXPECT_EQ(xml_node_attribute(*kept, "k"), "x");
  EXPECT_EQ(xml_node_attribute(*kept, "K"), std::nullopt);
  EXPECT_EQ(xml_node_attribute(*root, "k"), std::nullopt);
  EXPECT_EQ(describe(kept), "y[k=v;j=w;k=x](w='1',late,p(q='2'))='t'");
}

}  // namespace
}  // namespace quorlin
