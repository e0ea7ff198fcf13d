#include "quorlin/xml/xml_writer.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace quorlin {
namespace {

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

  testing::internal::CaptureStdout();  // the dump: one tag a line, through the log
  xml_node_dump(*sample_tree());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "<a>\n<b>\n2</b>\nt</a>\n");
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
