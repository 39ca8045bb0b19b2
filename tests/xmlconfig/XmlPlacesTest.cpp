#include "xmlconfig/XmlPlaces.h"

#include "charset/CharSetConverter.h"
#include "tests/support/Repeated.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/XmlConfigureDocument.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using State = XmlPlacedText::State;

std::string At(const XmlPlace& place) {
    return std::to_string(place.line) + ":" + std::to_string(place.column);
}

const std::string Declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
const std::string Gb2312Declaration = "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n";

} // namespace

TEST(XmlPlacesTest, ElementsAndAttributesDownToTheThirdLevelHaveTheirPlaces) {
    const XmlPlacedText text = ParseWithPlaces(Declaration + "<Configure name='a'>\r\n"
                                                             "\t<Configure name='b'>\r"
                                                             "  <ConfigItem x='1' y='2'><Deeper/></ConfigItem>\n"
                                                             "</Configure></Configure>");

    ASSERT_EQ(text.state, State::WellFormed);
    ASSERT_EQ(text.topLevel.size(), 1U);
    const XmlPlacedElement& root = text.topLevel[0];
    EXPECT_EQ(root.name, "Configure");
    EXPECT_EQ(At(root.place), "2:1");
    ASSERT_EQ(root.children.size(), 1U);
    const XmlPlacedElement& section = root.children[0];
    EXPECT_EQ(At(section.place), "3:2");
    EXPECT_EQ(section.find("name")->value, "b");
    EXPECT_EQ(section.find("other"), nullptr);
    ASSERT_EQ(section.children.size(), 1U);
    const XmlPlacedElement& entry = section.children[0];
    EXPECT_EQ(At(entry.place), "4:3");
    EXPECT_EQ(At(entry.find("y")->place), "4:21");
    EXPECT_TRUE(entry.children.empty());
}

TEST(XmlPlacesTest, ColumnsCountCharactersInUtf8AndInConvertedGb2312) {
    const std::string chinese = "<Configure a='\xE7\xBD\x91\xE5\x85\xB3' name=''/>";
    std::string gb2312;
    CharSetConverter::Convert(chinese, gb2312, CharSetUtf8, CharSetGb2312);

    for (const std::string& content : {Declaration + chinese, Gb2312Declaration + gb2312}) {
        const XmlPlacedText text = ParseWithPlaces(content);

        ASSERT_EQ(text.state, State::WellFormed);
        EXPECT_EQ(At(text.topLevel[0].find("name")->place), "2:19");
        EXPECT_EQ(text.cutAt, XmlPlacedText::None);
    }
}

TEST(XmlPlacesTest, WhatIsNotWellFormedIsToldInTheLibrarysWordsWithItsPlace) {
    const XmlPlacedText text = ParseWithPlaces(Declaration + "<Configure name='a'>\n  <b></c>\n</Configure>");

    EXPECT_EQ(text.state, State::NotWellFormed);
    EXPECT_FALSE(text.endsEarly);
    EXPECT_EQ(text.reason, "Error reading end tag.");
    EXPECT_EQ(text.place.line, 3);
    EXPECT_TRUE(text.topLevel.empty());
}

TEST(XmlPlacesTest, AnErrorHasItsPlaceWhateverStandsInFrontOfIt) {
    struct Case {
        std::string content;
        std::string place;
        bool endsEarly;
    };
    const std::string chinese = "\xE7\xBD\x91\xE5\x85\xB3";
    for (const Case& each :
         {Case{"<a></b>", "1:4", false}, Case{"\n<a></b>", "2:4", false}, Case{"\n\n <a></b>", "3:5", false},
          Case{Declaration + "\n<a>\n\n<b></c>\n</a>", "5:4", false},
          Case{Declaration + "<a>" + chinese + "</b>", "2:6", false},
          Case{Declaration + "<a>\n" + chinese + "</b>", "3:3", false},
          Case{Declaration + "\n<!--" + chinese + "--><a b", "3:13", true}, Case{Declaration + "<a>>\n<b", "3:2", true},
          Case{Declaration + "<a>\n<b/>", "3:5", true}}) {
        const XmlPlacedText text = ParseWithPlaces(each.content);

        EXPECT_EQ(text.state, State::NotWellFormed) << each.content;
        EXPECT_EQ(At(text.place), each.place) << each.content;
        EXPECT_EQ(text.endsEarly, each.endsEarly) << each.content;
    }
}

TEST(XmlPlacesTest, ATextThatEndsTooEarlyHasItsErrorAtItsEnd) {
    const XmlPlacedText text = ParseWithPlaces(Declaration + "<Configure name='a'>\n  <b>");

    EXPECT_EQ(text.state, State::NotWellFormed);
    EXPECT_TRUE(text.endsEarly);
    EXPECT_NE(text.reason, "");
    EXPECT_EQ(At(text.place), "3:6");
}

TEST(XmlPlacesTest, ATextThatIsCutInsideATagEndsEarlyAndOneWithATagBehindTheErrorDoesNot) {
    const std::string chinese = "<Configure name='\xE7\xBD\x91\xE5\x85\xB3'>";
    for (const std::string& declaration : {Declaration, Gb2312Declaration}) {
        for (const char* cut : {"<b", "<b c", "<b c='", "<b c='1' ", "</", "</Conf", "<!-- x", "<![CDATA[ x", "text"}) {
            const XmlPlacedText text = ParseWithPlaces(declaration + chinese + cut);

            EXPECT_EQ(text.state, State::NotWellFormed) << cut;
            EXPECT_TRUE(text.endsEarly) << cut;
        }
        for (const char* wrong : {"</b>", "<b c></b></Configure>", "<b></c></b></Configure>"}) {
            const XmlPlacedText text = ParseWithPlaces(declaration + chinese + wrong);

            EXPECT_EQ(text.state, State::NotWellFormed) << wrong;
            EXPECT_FALSE(text.endsEarly) << wrong;
        }
    }
}

TEST(XmlPlacesTest, TheDeclarationIsToldAndDecidesTheEncoding) {
    struct Case {
        std::string content;
        bool hasDeclaration;
        std::string declared;
        bool isUtf8;
        std::string declarationPlace;
    };
    for (const Case& each :
         {Case{"<a/>", false, "", false, "1:1"}, Case{"\n<?xml version='1.0'?><a/>", true, "", true, "2:1"},
          Case{"<?xml encoding='UTF8'?><a/>", true, "UTF8", true, "1:1"},
          Case{"<?xml encoding='UTF-8859'?><a/>", true, "UTF-8859", false, "1:1"},
          Case{"<!-- --><?xml encoding='gb2312'?><a/>", true, "gb2312", false, "1:9"},
          Case{"\xEF\xBB\xBF<?xml encoding='utf-8'?><a/>", true, "utf-8", false, "1:1"},
          Case{"<?xml encoding='gb2312'?><?xml encoding='utf-8'?><a/>", true, "gb2312", false, "1:1"}}) {
        const XmlPlacedText text = ParseWithPlaces(each.content);

        EXPECT_EQ(text.hasDeclaration, each.hasDeclaration) << each.content;
        EXPECT_EQ(text.declaredEncoding, each.declared) << each.content;
        EXPECT_EQ(At(text.declarationPlace), each.declarationPlace) << each.content;
        EXPECT_EQ(text.isUtf8, each.isUtf8) << each.content;
    }
}

TEST(XmlPlacesTest, WhereTheConversionCutsATextIsTheOffsetOfTheFirstByteThatDoesNotConvert) {
    // The last character of one byte, and one with a byte 0x80 in UTF-8.
    const std::string start = Gb2312Declaration + "<Configure name='\x7F\xCD\xF8\xD2\xBB";

    const XmlPlacedText text = ParseWithPlaces(start + "\xFF'/>");

    EXPECT_EQ(text.cutAt, start.size());
    EXPECT_EQ(text.state, State::NotWellFormed);
    EXPECT_EQ(At(text.place), "2:12");
    // In characters behind the conversion, whatever is declared.
    EXPECT_EQ(At(ParseWithPlaces(Gb2312Declaration + "<Configure a='\xCD\xF8' name='\xFF'/>").place), "2:18");
}

TEST(XmlPlacesTest, AColumnOfGb2312CountsTwoBytesOutsideAsciiAsACharacter) {
    const std::string text = "\xCD\xF8\xB9\xD8=\xB9\n\xD8x";
    EXPECT_EQ(At(PlaceOfOffset(text, 2, false)), "1:2");
    EXPECT_EQ(At(PlaceOfOffset(text, 4, false)), "1:3");
    EXPECT_EQ(At(PlaceOfOffset(text, 5, false)), "1:4");
    EXPECT_EQ(At(PlaceOfOffset(text, 7, false)), "2:1");
    EXPECT_EQ(At(PlaceOfOffset("\xB0\xA1x", 2, false)), "1:2"); // the second byte continues a character in UTF-8
    EXPECT_EQ(At(PlaceOfOffset("\x80x", 1, false)), "1:1");
    EXPECT_EQ(At(PlaceOfOffset("\x7Fx", 1, false)), "1:2");

    // Before the conversion, too.
    const std::string wrong = "<Configure name='\xCD\xF8\xB9\xD8'></b></Configure>";
    EXPECT_EQ(At(ParseWithPlaces(Gb2312Declaration + wrong).place), "2:22");
    EXPECT_EQ(At(ParseWithPlaces(Declaration + "<Configure name='\xE7\xBD\x91\xE5\x85\xB3'></b></Configure>").place),
              "2:22");

    // Without a declaration, too.
    EXPECT_EQ(At(ParseWithPlaces(wrong).place), "1:22");
}

TEST(XmlPlacesTest, AByteOrderMarkIsNoColumnAndMakesTheRestUtf8) {
    const std::string mark = "\xEF\xBB\xBF";
    const std::string chinese = "<Configure name='\xE7\xBD\x91\xE5\x85\xB3'>";

    const XmlPlacedText wrongTag = ParseWithPlaces(mark + chinese + "</b></Configure>");
    EXPECT_EQ(At(wrongTag.place), "1:22");
    EXPECT_FALSE(wrongTag.endsEarly);

    const XmlPlacedText cut = ParseWithPlaces(mark + chinese + "\n" + chinese + "<b");
    EXPECT_EQ(At(cut.place), "2:23");
    EXPECT_TRUE(cut.endsEarly);
    EXPECT_EQ(At(ParseWithPlaces(mark + chinese + "<b").place), "1:23");
    EXPECT_TRUE(ParseWithPlaces(mark + chinese + "<b").endsEarly);
    // The last ">" stands right before the error.
    EXPECT_TRUE(ParseWithPlaces(mark + "<a></b").endsEarly);
    EXPECT_EQ(At(ParseWithPlaces(mark + "\n<a></b>").place), "2:4");

    // Three other bytes are none.
    EXPECT_EQ(At(ParseWithPlaces("\xFF\xFF\xFF\xFF\xFF\xFF\xFF").place), "1:4");
}

TEST(XmlPlacesTest, WhatWasNotParsedIsNotWellFormedAndEndsNowhere) {
    const XmlPlacedText text;

    EXPECT_EQ(text.state, State::NotWellFormed);
    EXPECT_FALSE(text.endsEarly);
    EXPECT_FALSE(text.isUtf8);
    EXPECT_FALSE(text.hasDeclaration);
    EXPECT_EQ(text.cutAt, XmlPlacedText::None);
    EXPECT_EQ(At(text.place), "1:1");
    EXPECT_EQ(At(text.declarationPlace), "1:1");
}

TEST(XmlPlacesTest, ATextThatNestsTooDeepOrTakesTooManyStepsIsNotParsed) {
    EXPECT_EQ(ParseWithPlaces(Repeated("<a>", 5001)).state, State::TooDeep);

    std::string manyAttributes = "<a";
    for (int i = 0; i < 15872; ++i) {
        manyAttributes += " a" + std::to_string(i) + "=''";
    }
    // 512 for the element, 15,872 * 256 + 15,872 * 15,873 / 2 for its attributes, 512 for each of the others, 256 for the
    // comment: as many as may be.
    const std::string asMany = manyAttributes + "/>" + Repeated("<b/>", 8175) + "<!-- -->";
    EXPECT_EQ(ParseWithPlaces(asMany).state, State::WellFormed);
    EXPECT_EQ(ParseWithPlaces(asMany + "<!---->").state, State::TooMuch);
    EXPECT_EQ(ParseWithPlaces(Repeated("<b/>", 262145)).state, State::TooMuch);
    EXPECT_EQ(ParseWithPlaces(Repeated("<a>", 4000) + Repeated("<b/>", 40000)).state, State::TooMuch);
}

TEST(XmlPlacesTest, ALongListOfEntriesIsParsed) {
    const std::string entry = "<ConfigItem ProtocolName='a' ProtocolId='b' ProtocolType='1' ProtocolEnable='true'/>\n";

    const XmlPlacedText text = ParseWithPlaces(Declaration + "<Configure name='a'><Configure name='b'>" +
                                               Repeated(entry, 20096) + "</Configure></Configure>");

    ASSERT_EQ(text.state, State::WellFormed);
    EXPECT_EQ(text.topLevel[0].children[0].children.size(), 20096U);
}

// The positioned parse is told apart from the launcher's own by its tab size alone: both must agree on every text.
TEST(XmlPlacesTest, ATextIsWellFormedWithPlacesExactlyWhenTheDocumentLoadsIt) {
    const TemporaryDirectory directory;
    const std::string base = Declaration + "<Configure name='\xE7\xBD\x91'>\t<Configure name='ProtocolConfig'>\r\n"
                                           "<ConfigItem a=\"&#x41;\xEF\xBC\x81\"/><!-- c --></Configure></Configure>";
    const std::string bytes = std::string("\0<>\"'&/\xEF\xFF\n \xE7", 12);
    for (size_t at = 0; at < base.size(); ++at) {
        for (const char byte : bytes) {
            std::string content = base;
            content[at] = byte;
            XmlConfigureDocument document;
            const bool loads = document.Load(directory.write("a.xml", content), CharSetUtf8, ReadOnly);

            const XmlPlacedText text = ParseWithPlaces(content);

            const bool isRoot = text.state == State::WellFormed && !text.topLevel.empty() &&
                                text.topLevel[0].name == "Configure" && text.topLevel[0].find("name") != nullptr;
            EXPECT_EQ(isRoot, loads) << content;
        }
    }
}

TEST(XmlPlacesTest, AnOffsetsPlaceCountsLineEndsOnceAndCharactersAsOne) {
    const std::string text = "a\r\nb\rc\n\xE7\xBD\x91z";

    EXPECT_EQ(At(PlaceOfOffset(text, 0, true)), "1:1");
    EXPECT_EQ(At(PlaceOfOffset(text, 2, true)), "1:2");
    EXPECT_EQ(At(PlaceOfOffset(text, 3, true)), "2:1");
    EXPECT_EQ(At(PlaceOfOffset(text, 5, true)), "3:1");
    EXPECT_EQ(At(PlaceOfOffset(text, 10, true)), "4:2");
    EXPECT_EQ(At(PlaceOfOffset(text, 1000, true)), "4:3");
    EXPECT_EQ(At(PlaceOfOffset("\r\tx", 2, true)), "2:2");
}
