#include <gmock/gmock.h>

#include <Nucleo/XmlDocument.h>

namespace Nucleo
{
namespace
{

TEST(XmlDocument, ReadsElementsTextsAndAttributes)
{
    XmlDocument document;
    ASSERT_EQ(document.Parse("\xEF\xBB\xBF<?xml version='1.0'?><!-- top --><r a = '&lt;&#x20AC;' b=\"'\">\n"
                             "  <x>one<y/> two<![CDATA[ <&> ]]>&amp;&#65;</x ><z>  </z><?app note?><x/>\n</r>\n"),
              OK);
    const XmlNode root = document.Root();
    EXPECT_EQ(document.Name(root), "r");
    EXPECT_EQ(document.Attribute(root, "a"), "<\xE2\x82\xAC");
    EXPECT_EQ(document.Attribute(root, "b"), "'");
    EXPECT_EQ(document.Attribute(root, "c"), std::nullopt);
    const auto children = document.Children(root);
    ASSERT_EQ(children.size(), 3u);
    EXPECT_EQ(document.Name(children[1]), "z");
    EXPECT_EQ(document.Text(document.Child(root, "x")), "one two <&> &A");
    EXPECT_EQ(document.Text(document.Child(root, "z")), "  ");
    EXPECT_FALSE(document.Child(root, std::string_view("x\0", 2)));
}

TEST(XmlDocument, RefusesWhatIsNotOneWellFormedDocument)
{
    using namespace std::string_literals;
    const std::vector<std::string> texts{
        // Not one element.
        ""s, " "s, "text"s, "<a>"s, "</a>"s, "<a></b>"s, "<a/><b/>"s, "<a/>text"s, "text<a/>"s, "&amp;<a/>"s,
        "<a/>&#32;"s, "<![CDATA[x]]><a/>"s, "<a"s, "<1/>"s, "< a/>"s,
        // Attributes.
        "<a b"s, "<a b="s, "<a b='"s, "<a b=c/>"s, "<a b='1' b='2'/>"s, "<a b='1'c='2'/>"s, "<a b='<'/>"s,
        // References.
        "<a>&b;</a>"s, "<a>& </a>"s, "<a>&amp</a>"s, "<a>&#0;</a>"s, "<a>&#1;</a>"s, "<a>&#xD800;</a>"s,
        "<a>&#xFFFE;</a>"s, "<a>&#x110000;</a>"s, "<a>&#4294967361;</a>"s, "<a>&#-65;</a>"s, "<a>&#x;</a>"s,
        "<a b='&c;'/>"s,
        // Other markup.
        "<a>]]></a>"s, "<a><!--b--c--></a>"s, "<!-- <a/>"s, "<a><![CDATA[</a>"s, "<a/><?p"s,
        "<a/><?xml version='1.0'?>"s, "<? p?><a/>"s, "<!DOCTYPE a><a/>"s, "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>"s,
        "<a><!ELEMENT a ANY></a>"s,
        // Characters that are none, or not UTF-8.
        "<a>\0</a>"s, "<a>\x01</a>"s, "<a b='\x1F'/>"s, "<a>\x80</a>"s, "<a>\xC0\x80</a>"s, "<a>\xE0\x9F\xBF</a>"s,
        "<a>\xF0\x8F\xBF\xBD</a>"s, "<a>\xED\xA0\x80</a>"s, "<a>\xF4\x90\x80\x80</a>"s, "<a>\xE2\x82</a>"s,
        "<a>\xEF\xBF\xBE</a>"s, "<\xFF/>"s};
    XmlDocument document;
    for (const std::string& text : texts) {
        ASSERT_EQ(document.Parse("<before/>"), OK);
        EXPECT_EQ(document.Parse(text), ERROR_FORMAT) << text;
        EXPECT_FALSE(document.Root()) << text;
    }
}

TEST(XmlDocument, KeepsItsLimitsExactly)
{
    XmlDocument document;
    std::string attributes = "<a";
    for (std::size_t i = 0; i < XmlDocument::MaxAttributes; ++i) {
        attributes += " n" + std::to_string(i) + "='x'";
    }
    EXPECT_EQ(document.Parse(attributes + "/>"), OK);
    EXPECT_EQ(document.SetAttribute(document.Root(), "n0", "other"), OK);
    EXPECT_EQ(document.SetAttribute(document.Root(), "more", "x"), ERROR_LIMIT);
    EXPECT_EQ(document.Parse(attributes + " more='x'/>"), ERROR_LIMIT);
    EXPECT_EQ(document.Parse("<a/>" + std::string(XmlDocument::MaxSize - 4, ' ')), OK);
    EXPECT_EQ(document.Parse("<a/>" + std::string(XmlDocument::MaxSize - 3, ' ')), ERROR_LIMIT);

    XmlNode node = document.CreateRoot("a");
    for (std::size_t depth = 1; depth < XmlDocument::MaxDepth; ++depth) {
        node = document.AddChild(node, "a");
        ASSERT_TRUE(node);
    }
    EXPECT_FALSE(document.AddChild(node, "a"));
    std::string deepest = document.ToText();
    EXPECT_EQ(document.Parse(deepest), OK);
    EXPECT_EQ(document.Parse(deepest.replace(deepest.find("<a />"), 5, "<a><a/></a>")), ERROR_LIMIT);
}

TEST(XmlDocument, WhatIsSetComesBackOrIsReplaced)
{
    const std::string bad = "\xEF\xBF\xBD";
    std::vector<std::pair<std::string, std::string>> cases = {{std::string("a\0b", 3), "a" + bad + "b"},
                                                              {"\x1B[0m", bad + "[0m"},
                                                              {"x\xFFy\xC3", "x" + bad + "y" + bad},
                                                              {"\xEF\xBF\xBF", bad + bad + bad}};
    for (const char* same : {"", "  ", "\n \t", "a\rb\r\nc\r", "<a>&amp;\"']]>", "\x7F\xC2\x85\xF0\x9F\x98\x80"}) {
        cases.emplace_back(same, same);
    }
    for (const auto& [set, read] : cases) {
        XmlDocument document;
        const XmlNode root = document.CreateRoot("r");
        ASSERT_EQ(document.SetText(document.AddChild(root, "t"), set), OK);
        ASSERT_EQ(document.SetAttribute(root, "v", set), OK);
        ASSERT_EQ(document.Parse(document.ToText()), OK) << document.ToText();
        EXPECT_EQ(document.Text(document.Child(document.Root(), "t")), read);
        EXPECT_EQ(document.Attribute(document.Root(), "v"), read);
    }
}

TEST(XmlDocument, TextsOfChildrenGoThroughBoundedBuffers)
{
    XmlDocument document;
    EXPECT_EQ(document.ToText(), "");
    ASSERT_EQ(document.Parse("<r><c>12<!-- --><![CDATA[3]]><d/>4</c><c>other</c></r>"), OK);
    char text[8] = "before";
    EXPECT_EQ(document.ChildText(document.Root(), "c", text, 5), OK);
    EXPECT_STREQ(text, "1234");
    EXPECT_EQ(document.ChildText(document.Root(), "c", text, 4), ERROR_CAPACITY);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(document.ChildText(document.Root(), "c", nullptr, 0), ERROR_CAPACITY);
    EXPECT_EQ(document.ChildText(document.Root(), "d", text, 5), ERROR_NOT_FOUND);
    EXPECT_EQ(document.ChildText({}, "c", text, 5), ERROR_NOT_FOUND);

    EXPECT_EQ(document.SetChildText(document.Root(), "c", "<5>"), OK);
    EXPECT_EQ(document.SetChildText(document.Root(), "e", "6"), OK);
    EXPECT_THAT(document.ToText(), testing::HasSubstr("<c>&lt;5&gt;</c>"));
    EXPECT_THAT(document.ToText(), testing::HasSubstr("<c>other</c>"));
    EXPECT_EQ(document.ChildText(document.Root(), "e", text, 2), OK);
    EXPECT_STREQ(text, "6");
    XmlNode deepest = document.Root();
    for (std::size_t level = 1; level < XmlDocument::MaxDepth; ++level) {
        deepest = document.AddChild(deepest, "n");
    }
    EXPECT_EQ(document.SetChildText(deepest, "n", "x"), ERROR_LIMIT);
    EXPECT_EQ(document.SetText(document.Root(), "alone"), OK);
    EXPECT_TRUE(document.Children(document.Root()).empty());
}

TEST(XmlDocument, NamesAreCheckedAndNullNodesAreHarmless)
{
    XmlDocument document;
    for (const std::string name : {"", "1a", "a b", "a>", "a/", "\xFF", "a\n", "-"}) {
        EXPECT_FALSE(document.CreateRoot(name)) << name;
        EXPECT_FALSE(document.Root());
        const XmlNode root = document.CreateRoot("r");
        EXPECT_FALSE(document.AddChild(root, name)) << name;
        EXPECT_EQ(document.SetAttribute(root, name, "x"), ERROR_PARAMETER) << name;
        EXPECT_EQ(document.SetChildText(root, name, "x"), ERROR_PARAMETER) << name;
        EXPECT_EQ(document.ToText().find("<r />"), 39u);
    }
    EXPECT_TRUE(document.AddChild(document.Root(), "_\xC3\xA4:-.9"));

    const XmlNode none;
    EXPECT_EQ(document.Name(none) + document.Text(none), "");
    EXPECT_FALSE(document.Child(none, "a"));
    EXPECT_FALSE(document.AddChild(none, "a"));
    EXPECT_EQ(document.Attribute(none, "a"), std::nullopt);
    EXPECT_EQ(document.SetText(none, "a"), ERROR_PARAMETER);
    EXPECT_EQ(document.SetChildText(none, "a", "b"), ERROR_PARAMETER);
    EXPECT_EQ(document.SetAttribute(none, "a", "b"), ERROR_PARAMETER);
}

}  // namespace
}  // namespace Nucleo
