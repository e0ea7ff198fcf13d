#include "quorlin/xml/xml_node.hpp"

#include <gtest/gtest.h>

#include "quorlin/xml/xml_parser.hpp"
#include "quorlin/xml/xml_test_support.hpp"
#include "quorlin/xml/xml_writer.hpp"

namespace quorlin {
namespace {

TEST(XmlNode, AttributesKeepOrderRepeatAndTheLastOneWins) {
  auto node = xml_node_new("a");
  EXPECT_EQ(xml_node_attribute(*node, "a"), std::nullopt);
  xml_node_add_attribute(*node, "a", "1");
  xml_node_add_attribute(*node, "b", "2");
  xml_node_add_attribute(*node, "a", "3");
  EXPECT_EQ(xml_node_attribute(*node, "a"), "3");
  EXPECT_EQ(xml_node_attribute(*node, "b"), "2");
  EXPECT_EQ(xml_node_attribute(*node, "c"), std::nullopt);
  EXPECT_EQ(xml_node_attribute(*node, "A"), std::nullopt);
  EXPECT_EQ(describe(node.get()), "a[a=1;b=2;a=3]");
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
  xml_node_set_text(*node, "longer than before");
  EXPECT_EQ(xml_node_text(*node), "longer than before");
  xml_node_set_text(*node, "");
  EXPECT_EQ(xml_node_text(*node), "");  // empty is not absent
  xml_node_set_text(*node, std::nullopt);
  EXPECT_EQ(xml_node_text(*node), std::nullopt);

  // A parsed text shares one copy of the document with its neighbours, which must not change.
  auto parsed = xml_parse("<r><a>hello</a><b>world</b></r>");
  xml_node_set_text(xml_node_children(*parsed).first->item, "hi");
  EXPECT_EQ(xml_to_string(*parsed), "<r><a>hi</a><b>world</b></r>");
}

TEST(XmlNode, NewNodeHasAnEmptyChildListAndChildrenKeepTheirOrder) {
  auto root = xml_node_new("r");
  EXPECT_EQ(xml_node_children(*root).first, nullptr);
  xml_add_element(*root, "x");
  auto y = xml_node_new("y");
  xml_node_set_text(xml_add_element(*y, "w"), "1");
  xml_node_add_attribute(*y, "k", "v");
  xml_node_add_child(*root, std::move(y));
  xml_add_element(*root, "z");
  EXPECT_EQ(describe(root.get()), "r(x,y[k=v](w='1'),z)");
}

TEST(XmlNode, FreesAMillionLevelsWithoutRecursion) {
  auto root = xml_node_new("r");
  XmlNode* deepest = root.get();
  for (int level = 0; level < 1'000'000; ++level) {
    deepest = &xml_add_element(*deepest, "e");
  }
  root.reset();  // a recursive destructor would overflow the stack here
  SUCCEED();
}

}  // namespace
}  // namespace quorlin
