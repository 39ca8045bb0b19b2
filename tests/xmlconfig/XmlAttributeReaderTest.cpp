#include "xmlconfig/XmlAttributeReader.h"

#include "tests/support/ParsedXml.h"
#include "tests/support/PrintedBy.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

PRIVATE_MEMBER(ReaderElement, XmlAttributeReader, const TiXmlElement*, element);
PRIVATE_MEMBER(ReaderCharset, XmlAttributeReader, uint32_t, charset);

static_assert(!std::is_polymorphic_v<XmlAttributeReader>);

namespace {

struct IntCase {
    std::string text;
    int value;
};

struct BoolCase {
    std::string text;
    bool accepted;
    bool value;
};

const std::vector<BoolCase>& BoolCases() {
    static const std::vector<BoolCase> cases = {
        {"true", true, true},    {"TRUE", true, true},     {"True", true, true},     {"tRuE", true, true},
        {"false", true, false},  {"FALSE", true, false},   {"False", true, false},   {"fAlSe", true, false},
        {"", false, false},      {"yes", false, false},    {"1", false, false},      {"0", false, false},
        {" true", false, false}, {"true ", false, false},  {" false", false, false}, {"false ", false, false},
        {"tru", false, false},   {"truest", false, false}, {"no", false, false},     {"falsehood", false, false},
    };
    return cases;
}

std::string WithAttribute(const std::string& text) {
    return "<a x=\"" + text + "\"/>";
}

} // namespace

TEST(XmlAttributeReaderTest, ParseBoolAcceptsTrueAndFalseInAnyLetterCaseAndNothingElse) {
    for (const BoolCase& c : BoolCases()) {
        for (const bool before : {false, true}) {
            bool out = before;

            EXPECT_EQ(ParseBool(c.text, out), c.accepted) << '"' << c.text << '"';

            EXPECT_EQ(out, c.accepted ? c.value : before) << '"' << c.text << '"';
        }
    }
}

TEST(XmlAttributeReaderTest, TheFieldsStandInTheirDeclaredOrder) {
    const ParsedXml xml("<a/>");
    const XmlAttributeReader reader(xml.root(), 7);

    EXPECT_EQ(OffsetOf(reader, Get(ReaderElement())), 0U);
    EXPECT_EQ(OffsetOf(reader, Get(ReaderCharset())), sizeof(void*));
    EXPECT_EQ(reader.*Get(ReaderElement()), xml.root());
    EXPECT_EQ(reader.*Get(ReaderCharset()), 7U);
}

TEST(XmlAttributeReaderTest, GetIntReadsWhatAtoiReads) {
    const std::vector<IntCase> cases = {
        {"12", 12},
        {"12abc", 12},
        {"abc", 0},
        {"", 0},
        {"-7", -7},
        {"+7", 7},
        {"  \t42", 42},
        {"0x10", 0},
        {"007", 7},
        {"3.9", 3},
        {"- 3", 0},
        {"12 34", 12},
        {"&#52;2", 42},
        {"x12", 0},
        {"2147483647", INT32_MAX},
        {"--5", 0},
        {"1e3", 1},
        {"-2147483648", INT32_MIN},
        {"1\xE5\x8D\x8F", 1},
    };
    for (const IntCase& c : cases) {
        const ParsedXml xml(WithAttribute(c.text));
        int out = 99;

        EXPECT_TRUE(XmlAttributeReader(xml.root(), 1).GetInt("x", out)) << '"' << c.text << '"';

        EXPECT_EQ(out, c.value) << '"' << c.text << '"';
    }
}

TEST(XmlAttributeReaderTest, GetIntOfAMissingAttributeIsFalseAndWritesZero) {
    const ParsedXml xml(WithAttribute("5"));
    int out = 99;

    EXPECT_FALSE(XmlAttributeReader(xml.root(), 1).GetInt("y", out));

    EXPECT_EQ(out, 0);
}

TEST(XmlAttributeReaderTest, GetIntOfNoElementIsFalseAndLeavesTheOutput) {
    int out = 99;

    EXPECT_FALSE(XmlAttributeReader(nullptr, 1).GetInt("x", out));

    EXPECT_EQ(out, 99);
}

TEST(XmlAttributeReaderTest, GetBoolIsTrueForAnyTextAndWritesOnlyWhatItUnderstands) {
    for (const BoolCase& c : BoolCases()) {
        for (const bool before : {false, true}) {
            const ParsedXml xml(WithAttribute(c.text));
            bool out = before;

            EXPECT_TRUE(XmlAttributeReader(xml.root(), 1).GetBool("x", out)) << '"' << c.text << '"';

            EXPECT_EQ(out, c.accepted ? c.value : before) << '"' << c.text << '"';
        }
    }
}

TEST(XmlAttributeReaderTest, GetBoolOfAMissingAttributeIsFalseAndLeavesTheOutput) {
    const ParsedXml xml(WithAttribute("true"));
    for (const bool before : {false, true}) {
        bool out = before;

        EXPECT_FALSE(XmlAttributeReader(xml.root(), 1).GetBool("y", out));

        EXPECT_EQ(out, before);
    }
}

TEST(XmlAttributeReaderTest, GetBoolOfNoElementIsFalseAndLeavesTheOutput) {
    for (const bool before : {false, true}) {
        bool out = before;

        EXPECT_FALSE(XmlAttributeReader(nullptr, 1).GetBool("x", out));

        EXPECT_EQ(out, before);
    }
}

TEST(XmlAttributeReaderTest, GetStringGivesTheTextWithItsEntitiesResolvedAndItsBlanksKept) {
    const ParsedXml xml(WithAttribute(" &lt;&#65;&amp;&quot;  \xE5\x8D\x8F "));
    std::string out = "before";

    EXPECT_TRUE(XmlAttributeReader(xml.root(), 1).GetString("x", out));

    EXPECT_EQ(out, " <A&\"  \xE5\x8D\x8F ");
}

TEST(XmlAttributeReaderTest, GetStringOfAnEmptyValueIsTrueAndEmpty) {
    const ParsedXml xml(WithAttribute(""));
    std::string out = "before";

    EXPECT_TRUE(XmlAttributeReader(xml.root(), 1).GetString("x", out));

    EXPECT_EQ(out, "");
}

TEST(XmlAttributeReaderTest, GetStringOfAMissingAttributeIsFalseAndLeavesTheOutput) {
    const ParsedXml xml(WithAttribute("text"));
    std::string out = "before";

    EXPECT_FALSE(XmlAttributeReader(xml.root(), 1).GetString("y", out));

    EXPECT_EQ(out, "before");
}

TEST(XmlAttributeReaderTest, GetStringOfNoElementIsFalseAndLeavesTheOutput) {
    std::string out = "before";

    EXPECT_FALSE(XmlAttributeReader(nullptr, 1).GetString("x", out));

    EXPECT_EQ(out, "before");
}

TEST(XmlAttributeReaderTest, AReadThatFailsOrDoesNotUnderstandTheTextPrintsAndLogsNothing) {
    const ParsedXml xml(WithAttribute("neither"));
    const XmlAttributeReader reader(xml.root(), 1);
    const XmlAttributeReader nowhere(nullptr, 1);
    int number = 99;
    bool flag = false;
    std::string text = "before";
    bool succeeded = true;
    bool understood = true;

    const std::string printed = PrintedBy([&] {
        succeeded = reader.GetInt("y", number) || reader.GetBool("y", flag) || reader.GetString("y", text) ||
                    nowhere.GetInt("x", number) || nowhere.GetBool("x", flag) || nowhere.GetString("x", text);
        understood = !reader.GetInt("x", number) || !reader.GetBool("x", flag) || ParseBool("neither", flag);
    });

    EXPECT_FALSE(succeeded);
    EXPECT_FALSE(understood);
    EXPECT_EQ(printed, "");
}

TEST(XmlAttributeReaderTest, AttributeNamesAreCaseSensitive) {
    const ParsedXml xml(WithAttribute("true"));
    const XmlAttributeReader reader(xml.root(), 1);
    int number = 99;
    bool flag = false;
    std::string text = "before";

    EXPECT_FALSE(reader.GetInt("X", number));
    EXPECT_FALSE(reader.GetBool("X", flag));
    EXPECT_FALSE(reader.GetString("X", text));
}

TEST(XmlAttributeReaderTest, NoReadConsultsTheCharset) {
    const ParsedXml xml(WithAttribute("\xE5\x8D\x8F"));
    for (const uint32_t charset : {0U, 1U, 2U, 3U, 99U}) {
        std::string out;

        EXPECT_TRUE(XmlAttributeReader(xml.root(), charset).GetString("x", out));

        EXPECT_EQ(out, "\xE5\x8D\x8F") << charset;
    }
}
