#include "quorlin/xml/xml_parser.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "quorlin/xml/xml_node.hpp"
#include "quorlin/xml/xml_open_names_internal.hpp"
#include "quorlin/xml/xml_tag_scanner_internal.hpp"
#include "quorlin/xml/xml_test_support.hpp"
#include "quorlin/xml/xml_tree_internal.hpp"
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
      {std::string("<r><a>0123456789</a></r>\0<b/><c/><d/>", 37), "r(a='0123456789')"},
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
  xml_parse_attributes(*parent, "=\"v\"", 0, 4);  // from the text's first byte, "=": an empty name
  xml_parse_attribute(*parent, "<x k=\"w\" q>", 3, 8);
  xml_parse_attribute(*parent, "<x q>", 3, 4);  // no "=": nothing
  EXPECT_EQ(describe(parent.get()), "p[=v;k=w](a='1',b)='text'");
  // The range ends before the ">" of "<abcdefghijklmn/>": there is no element in it.
  xml_parse_element(parent.get(), "<abcdefghijklmn/>", 0, 16);
  EXPECT_EQ(describe(parent.get()), "p[=v;k=w](a='1',b)='text'");
  // The range ends where "</r>" begins: r is not closed inside it.
  EXPECT_EQ(describe(xml_parse_element(nullptr, "<r></q><x</r>", 0, 9).get()), "null");
}

// Documents of millions of tags that a parser searching backwards, or from each opening tag to
// its closing tag, would read in quadratic time, here and under the sanitizers alike.
TEST(XmlParse, HostileShapesStayLinear) {
  const auto repeated = [](std::string_view unit, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += unit;
    return text;
  };
  const std::pair<std::string, std::string> cases[] = {
      {std::string(10'000'000, '<'), "null"},
      {repeated("<a>", 1'000'000), "null"},
      {repeated("<a>", 300'000) + repeated("</a>", 300'000), "a"},
      {"<r>" + repeated("</", 1'000'000) + ">", "null"},
  };
  for (const auto& [text, tree] : cases) {
    EXPECT_EQ(describe(xml_parse(text).get()), tree) << text.substr(0, 20);
  }
  // A million distinct names, each closed in order: each closing tag closes the innermost.
  std::string nested;
  for (int i = 0; i < 1'000'000; ++i) nested += "<e" + std::to_string(i) + ">";
  for (int i = 1'000'000; i-- > 0;) nested += "</e" + std::to_string(i) + ">";
  EXPECT_EQ(xml_to_string(*xml_parse(nested)), nested);
}

// The scanner's searches read blocks of 16 bytes and may look past their range, never past the
// text: each agrees with a byte-by-byte reading of every range of texts made of the bytes that
// matter, and so does the comparison of names of every size against each one-byte change.
TEST(TagScanner, SearchesAgreeWithAByteByByteReading) {
  using namespace xml_scan;
  using Search = long (*)(std::string_view, long, long);
  const std::pair<Search, std::string_view> first_of[] = {
      {find_name_end, " <>"},
      {find_lt, "<"},
      {find_closing_start, "</"},
      {last_closing_start, "</"}};  // the last one
  std::minstd_rand random(7);
  for (int round = 0; round < 300; ++round) {
    std::string text(random() % 48, ' ');
    for (char& byte : text) byte = "<>/ a"[random() % 5];
    const long size = static_cast<long>(text.size());
    for (long from = 0; from <= size; ++from) {
      for (long end = from; end <= size; ++end) {
        for (const auto& [search, bytes] : first_of) {
          const bool closing = bytes == "</", last = search == last_closing_start;
          long expected = -1;
          for (long at = from; at < end && (expected < 0 || last); ++at) {
            const bool hit =
                closing ? text.compare(at, 2, "</") == 0 : bytes.find(text[at]) != bytes.npos;
            if (hit) expected = at;
          }
          EXPECT_EQ(search(text, from, end), expected)
              << bytes << " in " << text << " [" << from << ", " << end << ")";
        }
      }
    }
  }
  for (std::size_t size = 0; size <= 20; ++size) {
    const std::string name(size, 'n');
    EXPECT_FALSE(same_bytes(name, std::string(size + 1, 'n')));
    for (std::size_t at = 0; at < size; ++at)
      EXPECT_FALSE(same_bytes(name, std::string(at, 'n') + 'm' + std::string(size - at - 1, 'n')));
  }
}

// Which open element a closing tag closes: the one of the name that each "</" of the tag names,
// up to the ">", in document order; none for a name that is not open or an element closed
// since. Names over 16 bytes take the hash of the bytes from the end.
TEST(OpenNames, AClosingTagClosesTheOpenElementOfItsName) {
  const std::string long_name(40, 'l');
  const struct {
    std::vector<std::string> opens;
    std::size_t closed_after;  // how many of the opens are closed again before the tag
    std::string tag;
    std::vector<std::size_t> closes;
  } cases[] = {
      {{"a", "b", "c"}, 0, "</c>", {2}},
      {{"a", "b", "c"}, 0, "</a>", {0}},
      {{"a", "b"}, 0, "</z>", {}},
      {{"a", "b"}, 0, "</a >", {}},
      {{"a", "b"}, 1, "</b>", {}},
      {{"abc", "axc"}, 0, "</axc>", {1}},
      {{"abc", "axc"}, 1, "</axc>", {}},
      {{"", "a"}, 0, "</>", {0}},
      {{"a", "x</a"}, 0, "</x</a>", {1, 0}},
      {{"x</a", "a"}, 0, "</x</a>", {0, 1}},
      {{"a", "x</a"}, 0, "<</x</a>", {1, 0}},
      {{"ab", "b"}, 0, "</a</ab>", {0}},
      {{long_name, "x</" + long_name}, 0, "</x</" + long_name + ">", {1, 0}},
      {{"x" + long_name, long_name}, 0, "</" + long_name + ">", {1}},
  };
  for (const auto& row : cases) {
    xml_open::OpenNames open;
    for (const std::string& name : row.opens) open.push(name, false);
    EXPECT_EQ(open.check(), -1);
    for (std::size_t closed = 0; closed < row.closed_after; ++closed) open.pop();
    std::vector<xml_open::OpenNames::Closing> found;
    const long gt = static_cast<long>(row.tag.size()) - 1;
    open.closings(row.tag, 0, gt, gt, found);
    std::vector<std::size_t> closes;
    for (const auto& closing : found) closes.push_back(closing.index);
    EXPECT_EQ(closes, row.closes) << row.tag;
  }

  // A name opened above an open element of its own name is found out by the check; the table
  // grows past its first 64 slots, and a name closed and opened again is found in its new place.
  xml_open::OpenNames open;
  std::vector<std::string> names(100);
  for (int i = 0; i < 100; ++i) {
    open.push(names[i] = "n" + std::to_string(i), false);
    ASSERT_EQ(open.check(), -1) << i;
  }
  open.push("n57", false);
  EXPECT_EQ(open.check(), 100);
  open.pop();
  open.pop();
  open.push("n99", false);
  EXPECT_EQ(open.check(), -1);
  EXPECT_EQ(open.find("n99"), 99);
  EXPECT_EQ(open.find("n57"), 57);
  EXPECT_EQ(open.find("n100"), -1);
}

TEST(XmlNode, TextIsCopiedReplacedAndCleared) {
  auto node = xml_node_new("a");
  EXPECT_EQ(xml_node_text(*node), std::nullopt);
  std::string caller_text = "first";
  xml_node_set_text(*node, caller_text);
  caller_text = "changed";
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
  xml_node_set_text(*xml_node_first_child(*parsed), "hi");
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
  auto parsed = xml_parse("<y k=\"v\"><q>2</q></y>");
  XmlNode* kept = parsed.get();
  EXPECT_EQ(&xml_node_add_child(*root, std::move(parsed)), kept);
  // The adopted tree goes on growing from its own storage, and so does the parent. The
  // sanitizers see every block freed once.
  xml_node_set_text(xml_add_element(*kept, "w"), "1");
  xml_add_element(*root, "z");
  // Attributes keep their order and repeat; a lookup takes the last of a name, exactly. A value
  // longer than half a block of the tree gets a block of its own.
  xml_node_add_attribute(*kept, "k", "x");
  const std::string long_value(300, 'v');
  xml_node_add_attribute(*root, "long", long_value);
  EXPECT_EQ(xml_node_attribute(*kept, "k"), "x");
  EXPECT_EQ(xml_node_attribute(*kept, "K"), std::nullopt);
  EXPECT_EQ(describe(root.get()), "r[long=" + long_value + "](y[k=v;k=x](q='2',w='1'),z)");
  EXPECT_EQ(xml_node_name(*xml_node_children(*kept).begin()++), "q");
}

// A tree's storage fills each block to its last byte, aligned pieces from the bottom and bytes
// from the top. Blocks double from 256 bytes; a piece larger than half the next block gets a
// block of its own, and the block being filled goes on.
TEST(XmlDocument, PiecesFillEachBlockToItsLastByte) {
  XmlDocument document;
  const auto piece = [&](std::size_t size) {
    return static_cast<std::byte*>(document.allocate(size));
  };
  std::byte* first = piece(128);
  EXPECT_EQ(piece(128), first + 128);  // the first block's last byte
  std::byte* second = piece(200);      // not above half of 512: a new block of 512
  EXPECT_EQ(document.copy(std::string(312, 'b')), reinterpret_cast<char*>(second + 200));
  std::byte* third = piece(8);  // a block of 1024
  piece(1500);                  // above half of 2048: a block of its own
  EXPECT_EQ(piece(8), third + 8);
}

// Compact text, with neither escaping nor self-closing tags; the dump puts one tag a line,
// through the log.
TEST(XmlWriter, CompactTextWithoutEscapingOrSelfClosingAndTheDump) {
  auto a = xml_node_new("a");
  xml_node_set_text(xml_add_element(*a, "b"), "2");
  xml_node_set_text(*a, "t");
  ::testing::internal::CaptureStdout();
  xml_node_dump(*a);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "<a>\n<b>\n2</b>\nt</a>\n");
  EXPECT_EQ(xml_to_string(*a), "<a><b>2</b>t</a>");
  xml_node_add_attribute(*a, "q", "say \"hi\"");
  xml_node_set_text(*a, "1 < 2 & 3");
  EXPECT_EQ(xml_to_string(*a), "<a q=\"say \"hi\"\"><b>2</b>1 < 2 & 3</a>");
  EXPECT_EQ(xml_to_string(*xml_node_new("")), "<></>");
}

TEST(TextBuffer, CapacityIsTheSmallestBlockMultipleAboveLengthPlusRoom) {
  TextBuffer buffer;
  char* text = text_buffer_reserve(buffer, 10000);  // the first call takes one block
  EXPECT_EQ(buffer.capacity, 512u);
  EXPECT_STREQ(text, "");

  // The text is filled to a length, then room for more is reserved.
  const std::size_t steps[][3] = {
      {0, 511, 512}, {511, 0, 512}, {511, 1, 1024}, {600, 423, 1024}, {600, 424, 1536}};
  for (const auto& [length, extra, capacity] : steps) {
    std::memset(buffer.text.get(), 'x', length);
    buffer.text[length] = '\0';
    const char* before = buffer.text.get();
    const bool grows = capacity != buffer.capacity;
    text = text_buffer_reserve(buffer, extra);
    EXPECT_EQ(buffer.capacity, capacity) << length << " + " << extra;
    EXPECT_EQ(text != before, grows) << "the text moves only when the buffer grows";
    EXPECT_EQ(std::string(text), std::string(length, 'x'));
  }
}

}  // namespace
}  // namespace quorlin
