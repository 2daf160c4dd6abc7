#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "zel/FileSystem.h"
#include "zel/Properties.h"

using zel::Properties;
using zel::String;

namespace {

Properties loaded(char const *text) {
  Properties p;
  String error;
  EXPECT_TRUE(p.loadFromString(text, &error)) << error;
  return p;
}

String errorOf(char const *text) {
  Properties p;
  p.set("untouched", "yes");
  String error;
  EXPECT_FALSE(p.loadFromString(text, &error, "in.xml")) << text;
  // A failed load leaves the content as it was.
  EXPECT_EQ(p.size(), 1u);
  EXPECT_TRUE(p.contains("untouched"));
  return error;
}

} // namespace

TEST(PropertiesStore, OrderReplaceRemove) {
  Properties p;
  p.set("b", "1");
  p.set("a", "2");
  p.set("c", "3");
  p.set("a", "22"); // replaces in place
  p.set("", "ignored");
  ASSERT_EQ(p.size(), 3u);
  EXPECT_EQ(p.keys()[1], "a");
  EXPECT_EQ(p.getOr("a", "-"), "22");

  EXPECT_TRUE(p.remove("b"));
  EXPECT_FALSE(p.remove("b"));
  // Positions after a removal still resolve to the right values.
  String v;
  ASSERT_TRUE(p.get("c", v));
  EXPECT_EQ(v, "3");
  p.set("d", "4");
  EXPECT_EQ(p.keys()[2], "d");
  ASSERT_TRUE(p.get("d", v));
  EXPECT_EQ(v, "4");

  String untouched = "keep";
  EXPECT_FALSE(p.get("missing", untouched));
  EXPECT_EQ(untouched, "keep");
  EXPECT_FALSE(p.contains("A")); // case-sensitive
}

TEST(PropertiesFormat, AcceptedForms) {
  Properties p = loaded("<?xml version=\"1.0\"?>\n"
                        "<!-- settings -->\n"
                        "<properties>\n"
                        "  <property key=\"k1\" value=\"v &amp; w\"/>\n"
                        "  <!-- a comment between -->\n"
                        "  <property key=\"k2\">line one\nline two</property>\n"
                        "  <property key=\"k3\"><![CDATA[<raw>]]></property>\n"
                        "  <property key=\"k4\"/>\n"
                        "  <property key=\"k5\">  </property>\n"
                        "  <property key=\"k1\" value=\"later\"/>\n"
                        "</properties>\n");
  ASSERT_EQ(p.size(), 5u);
  EXPECT_EQ(p.keys()[0], "k1");
  EXPECT_EQ(p.getOr("k1", ""), "later");
  EXPECT_EQ(p.getOr("k2", ""), "line one\nline two");
  EXPECT_EQ(p.getOr("k3", ""), "<raw>");
  EXPECT_EQ(p.getOr("k4", "-"), "");
  EXPECT_EQ(p.getOr("k5", "-"), "  ");
}

TEST(PropertiesFormat, ErrorsNamePlaceAndReason) {
  EXPECT_EQ(errorOf("<properties>\n  <property key=\"a\" vaule=\"1\"/>\n</properties>"),
            "in.xml:2:3: unknown attribute \"vaule\" on <property>");
  EXPECT_EQ(errorOf("<settings/>"), "in.xml:1:1: the root element is <settings>, not <properties>");
  EXPECT_EQ(errorOf("<properties><property value=\"1\"/></properties>"),
            "in.xml:1:13: <property> without a key");
  EXPECT_EQ(errorOf("<properties><property key=\"\"/></properties>"),
            "in.xml:1:13: <property> without a key");
  EXPECT_TRUE(errorOf("<properties><property key=\"a\" value=\"1\">t</property></properties>")
                  .contains("both a value attribute and text"));
  EXPECT_TRUE(errorOf("<properties><prop key=\"a\"/></properties>").contains("unknown element"));
  EXPECT_TRUE(errorOf("<properties>stray</properties>").contains("text between"));
  EXPECT_TRUE(errorOf("<properties><property key=\"a\"><b/></property></properties>")
                  .contains("inside <property>"));
  EXPECT_TRUE(errorOf("<properties/><properties/>").contains("second root"));
  EXPECT_TRUE(errorOf("").startsWith("in.xml:1:1: "));
  // Syntax errors point at the place the parser stopped.
  EXPECT_TRUE(errorOf("<properties>\n<property key=\"a\" value=\"1\">\n</properties>")
                  .startsWith("in.xml:3:"));
}

TEST(PropertiesFormat, FileRoundTripAndMissingFile) {
  String dir = zel::FileSystem::makeTempDirectory("props_test_");
  String file = dir + "/p.xml";
  Properties p;
  p.set("Engine.Machine", "/path with blanks/m.xml");
  p.set("quote", "a\"b'c<d>&\n\t\r end ");
  ASSERT_TRUE(p.saveToFile(file));
  Properties q;
  String error;
  ASSERT_TRUE(q.loadFromFile(file, &error)) << error;
  EXPECT_EQ(p, q);

  EXPECT_FALSE(q.loadFromFile(dir + "/none.xml", &error));
  EXPECT_EQ(error, dir + "/none.xml: cannot read");
  EXPECT_EQ(q.size(), 2u);
  zel::FileSystem::removeDirectory(dir, true);
}

RC_GTEST_PROP(PropertiesFormat, SavedTextReadsBackExactly, ()) {
  // Any keys and values without NUL survive a save and a load, in order.
  auto text = rc::gen::container<std::string>(
      rc::gen::suchThat(rc::gen::arbitrary<char>(), [](char c) { return c != 0; }));
  auto pairs = *rc::gen::container<std::vector<std::pair<std::string, std::string>>>(
      rc::gen::pair(rc::gen::nonEmpty(text), text));
  Properties p;
  for (auto const &kv : pairs)
    p.set(String(kv.first), String(kv.second));
  Properties q;
  String error;
  RC_ASSERT(q.loadFromString(p.saveToString(), &error));
  RC_ASSERT(p == q);
}

RC_GTEST_PROP(PropertiesFormat, RandomBytesNeverCrash, ()) {
  // Random bytes, and random damage to a valid document: either a load or an
  // error with a position, never a crash.
  std::string valid = "<properties><property key=\"a\" value=\"1\"/><property "
                      "key=\"b\">text</property></properties>";
  std::string bytes =
      *rc::gen::oneOf(rc::gen::arbitrary<std::string>(),
                      rc::gen::map(rc::gen::arbitrary<std::vector<std::pair<std::size_t, char>>>(),
                                   [valid](auto const &edits) {
                                     std::string s = valid;
                                     for (auto const &e : edits)
                                       s[e.first % s.size()] = e.second;
                                     return s;
                                   }));
  Properties p;
  String error;
  if (!p.loadFromString(String(bytes), &error, "f"))
    RC_ASSERT(error.startsWith("f:"));
}
