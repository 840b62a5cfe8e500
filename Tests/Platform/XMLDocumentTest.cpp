#include <VeltoConnectFoundation/Platform/XMLDocument.h>

#include <Tests/Support/IsError.h>

#include <gtest/gtest.h>

namespace {

using velto::Error;
using velto::XMLDocument;
using velto::XMLElement;

std::string nested(std::size_t levels) {
    std::string text;
    for (std::size_t i = 0; i < levels; ++i) {
        text += "<a>";
    }
    for (std::size_t i = 0; i < levels; ++i) {
        text += "</a>";
    }
    return text;
}

TEST(XMLDocument, ReadsATree) {
    const auto document = XMLDocument::parse(
        "<?xml version=\"1.0\"?>\n<!-- x -->\n"
        "<Root a=\"1 &amp; 2\" b=''>\n"
        "  <Error><Message>one &lt; <![CDATA[<two>]]></Message></Error>\n"
        "  <Other/>\n"
        "  <Error>left<Message/>mid<b>bold</b>right</Error>\n"
        "</Root>\n");
    ASSERT_TRUE(document.has_value());
    const XMLElement& root = document->root();
    EXPECT_EQ(root.name(), "Root");
    EXPECT_EQ(*root.attribute("a"), "1 & 2");
    EXPECT_EQ(*root.attribute("b"), "");
    EXPECT_EQ(root.attribute("c"), nullptr);
    ASSERT_EQ(root.children().size(), 3U);
    const auto errors = root.childrenNamed("Error");
    ASSERT_EQ(errors.size(), 2U);
    EXPECT_EQ(errors[0]->child("Message")->text(), "one < <two>");
    EXPECT_EQ(errors[0]->line(), 4U);
    EXPECT_EQ(errors[1]->text(), "leftmidright");
    EXPECT_EQ(errors[1]->stringValue(), "leftmidboldright");
    EXPECT_EQ(errors[1]->child("missing"), nullptr);
}

TEST(XMLDocument, IsStrictAndItsErrorsHoldNothingOfTheText) {
    for (const std::string& text :
         {std::string(),
          std::string(" "),
          std::string("canary"),
          std::string("<canary>"),
          std::string("<a>canary</b>"),
          std::string("<a>&canary;</a>"),
          std::string("<a>& canary</a>"),
          std::string("<a x=canary/>"),
          std::string("<a x='' x='canary'/>"),
          std::string("<a/><canary/>"),
          std::string("canary<a/>"),
          std::string("<a>\xff</a>"),
          std::string("<a>\x01</a>"),
          std::string("<a>&#0;</a>"),
          std::string("<a>]]></a>"),
          std::string("<!DOCTYPE a [<!ENTITY canary 'x'>]><a>&canary;</a>"),
          std::string("<!DOCTYPE a [<!ATTLIST a canary CDATA 'x'>]><a/>"),
          std::string("<!DOCTYPE a [<!ELEMENT a ANY>]><a>canary</a>"),
          std::string("<!DOCTYPE a SYSTEM 'canary.dtd' []><a/>"),
          std::string("<!DOCTYPE a SYSTEM 'canary.dtd'><a>&canary;</a>"),
          nested(257)}) {
        SCOPED_TRACE(text.substr(0, 60));
        Error error;
        EXPECT_FALSE(XMLDocument::parse(text, &error).has_value());
        EXPECT_EQ(error.domain(), velto::XMLErrorDomain);
        EXPECT_GT(error.code(), 0);
        EXPECT_TRUE(error.localizedFailureReason().value_or("").starts_with("Line "));
        EXPECT_EQ(error.description().find("canary"), std::string::npos) << error.description();
    }
    for (const std::string& text :
         {nested(256), std::string("<!DOCTYPE a><a/>"),
          std::string("<?xml version='1.0'?><!DOCTYPE a PUBLIC 'x' 'http://localhost/x'><a/>")}) {
        EXPECT_TRUE(XMLDocument::parse(text).has_value()) << text.substr(0, 60);
    }
}

TEST(XMLDocument, NamesThePlaceOfAnErrorBeyondTheFirstBlock) {
    Error error;
    const std::string text = "<a>\n" + std::string(std::size_t{3} << 20, 'x') + "\n  </b>";
    EXPECT_FALSE(XMLDocument::parse(text, &error).has_value());
    EXPECT_EQ(error.localizedFailureReason(), "Line 3, column 5: mismatched tag.");
}

}  // namespace
