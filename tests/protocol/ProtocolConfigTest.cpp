#include "protocol/ProtocolConfig.h"

#include "runtime/LogSettings.h"
#include "runtime/WyRuntimeError.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/RecordLines.h"
#include "tests/support/SafePointerRecords.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

PRIVATE_MEMBER(ConfigProtocols, ProtocolConfig, std::vector<ProtocolTypeInfo>, protocols);

static_assert(sizeof(ProtocolConfig) == sizeof(std::vector<ProtocolTypeInfo>), "the list is the only data");
static_assert(!std::is_polymorphic_v<ProtocolConfig>);

namespace {

// "xie yi", protocol, and a character that GBK has and GB2312 lacks.
constexpr const char* WordGb = "\xD0\xAD\xD2\xE9";
constexpr const char* WordUtf8 = "\xE5\x8D\x8F\xE8\xAE\xAE";
constexpr const char* RareGbk = "\xE9\x46";

constexpr const char* Utf8 = "<?xml version='1.0' encoding='utf-8'?>";
constexpr const char* Error = "\033[0;31;1m";
constexpr const char* Info = "\033[0;32m";

class ProtocolConfigTest : public testing::Test {
protected:
    void TearDown() override {
        LogSettings::instance().setMaxLevel(0);
        LogSettings::instance().clearModules();
        EXPECT_EQ(TakenRecords(), 0U) << "a node or an item is still held";
    }

    static std::string Root(const std::string& content) {
        return std::string(Utf8) + "<Configure name='any'>" + content + "</Configure>";
    }

    static std::string Section(const std::string& entries) {
        return Root("<Configure name='ProtocolConfig'>" + entries + "</Configure>");
    }

    static std::string Entry(const std::string& name, const std::string& id, const std::string& type,
                             const std::string& enable) {
        return "<ConfigItem ProtocolName='" + name + "' ProtocolId='" + id + "' ProtocolType='" + type +
               "' ProtocolEnable='" + enable + "'/>";
    }

    static std::string Entries(size_t count) {
        std::string entries;
        for (size_t i = 0; i < count; ++i) {
            const std::string number = std::to_string(i);
            entries += Entry("P" + number, "id" + number, number, i % 2 == 0 ? "true" : "false");
        }
        return entries;
    }

    // The records that a file of these bytes gives, or "false".
    std::string Parsed(const std::string& content) const {
        ProtocolConfig config;
        return config.parse(dir.write("parsed.xml", content)) ? RecordLines(config) : "false";
    }

    static std::string TraceLine(int line) {
        return std::string(Info) + "ProtocolConfig parse " + std::to_string(line) + " \n";
    }

    static std::string TraceLines(const std::vector<int>& lines) {
        std::string all;
        for (const int line : lines) {
            all += TraceLine(line);
        }
        return all;
    }

    // What a parse prints with the given highest level.
    static std::string Log(int32_t maxLevel, const std::string& path, bool expected) {
        LogSettings::instance().setMaxLevel(maxLevel);
        ProtocolConfig config;
        testing::internal::CaptureStdout();
        const bool result = config.parse(path);
        std::string log = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result, expected) << path;
        return log;
    }

    const TemporaryDirectory dir;
};

struct Case {
    const char* name;
    std::string content;
};

class ProtocolConfigFailureTest : public ProtocolConfigTest {
protected:
    static std::string Deep(size_t depth) {
        std::string text;
        for (size_t i = 0; i < depth; ++i) {
            text += "<a>";
        }
        for (size_t i = 0; i < depth; ++i) {
            text += "</a>";
        }
        return text;
    }

    static std::vector<Case> NotLoaded() {
        const std::string section = "<Configure name='ProtocolConfig'>" + Entry("P", "1", "1", "true") + "</Configure>";
        return {
            {"an empty file", ""},
            {"a first byte of zero", std::string(1, '\0') + Root(section)},
            {"no XML", "ProtocolConfig"},
            {"a root that is not closed", std::string(Utf8) + "<Configure name='x'>" + section},
            {"a text behind a cut sequence", std::string(Utf8) + "<Configure name='x'>" + section + "\xE5\x8D"},
            {"a root of another name", std::string(Utf8) + "<Config name='x'>" + section + "</Config>"},
            {"a root in lower case", std::string(Utf8) + "<configure name='x'>" + section + "</configure>"},
            {"a root without a name", std::string(Utf8) + "<Configure>" + section + "</Configure>"},
            {"no element", Utf8},
            {"bytes that are not GB2312", "<Configure name='x' y='\xFF'>" + section + "</Configure>"},
            {"a byte-order mark", "\xEF\xBB\xBF" + Root(section)},
            {"a zero byte inside", Root(section + std::string(1, '\0'))},
            {"elements nested too deep", Root(section + Deep(5000))},
            {"elements nested a million deep", Root(section + Deep(1000000))},
        };
    }

    static std::vector<Case> NotFound() {
        const std::string section = "<Configure name='ProtocolConfig'>" + Entry("P", "1", "1", "true") + "</Configure>";
        return {
            {"an empty root", Root("")},
            {"no element Configure", Root("<ConfigItem name='ProtocolConfig'/><Other name='ProtocolConfig'/>")},
            {"sections of other names", Root("<Configure name='Network'/><Configure name='protocolconfig'/>"
                                             "<Configure name='ProtocolConfig '/><Configure name=''/>")},
            {"a first Configure without a name", Root("<Configure/>" + section)},
            {"a sibling without a name", Root("<Configure name='Network'/><Other/>" + section)},
            {"an item without a name", Root("<Configure name='Network'/><ConfigItem ProtocolName='P'/>" + section)},
            {"a section one level too deep", Root("<Configure name='Network'>" + section + "</Configure>")},
            {"the name on the root", std::string(Utf8) + "<Configure name='ProtocolConfig'><ConfigItem/></Configure>"},
        };
    }

    static std::vector<Case> WithoutEntries() {
        return {
            {"an empty section", Section("")},
            {"a section of elements of other names", Section("<Configitem ProtocolName='P'/><Configure name='x'/>")},
            {"a section with text", Section("text")},
            {"an entry one level too deep", Section("<Other>" + Entry("P", "1", "1", "true") + "</Other>")},
            {"entries beside the section", Root("<Configure name='ProtocolConfig'/>" + Entry("P", "1", "1", "true"))},
        };
    }

    void ExpectAllFailAndKeepTheList(const std::vector<Case>& cases) const {
        const std::string good = dir.write("good.xml", Section(Entries(2)));
        for (const Case& c : cases) {
            ProtocolConfig config;
            ASSERT_TRUE(config.parse(good));

            EXPECT_FALSE(config.parse(dir.write("bad.xml", c.content))) << c.name;

            EXPECT_EQ(RecordLines(config), "P0,id0,0,on\nP1,id1,1,off\n") << c.name;
            EXPECT_EQ(TakenRecords(), 0U) << c.name;
        }
    }

    void ExpectAllLog(const std::vector<Case>& cases, const std::string& before, const std::string& line) const {
        for (const Case& c : cases) {
            const std::string path = dir.write("bad.xml", c.content);
            std::string error = line;
            if (!error.empty()) {
                error = Error + error.replace(error.find("%s"), 2, path);
            }

            EXPECT_EQ(Log(3, path, false), before + error) << c.name;
            EXPECT_EQ(Log(1, path, false), error) << c.name;
            EXPECT_EQ(Log(0, path, false), "") << c.name;
        }
    }
};

} // namespace

TEST_F(ProtocolConfigTest, ANewConfigHoldsAnEmptyList) {
    ProtocolConfig config;

    EXPECT_TRUE(config.getProtocolList().empty());
}

TEST_F(ProtocolConfigTest, TheListIsGivenAsAReferenceToTheStoredOne) {
    ProtocolConfig config;

    EXPECT_EQ(&config.getProtocolList(), &(config.*Get(ConfigProtocols())));
}

TEST_F(ProtocolConfigTest, EntriesAreReadInTheOrderOfTheFile) {
    EXPECT_EQ(Parsed(Section(Entry("Modbus", "m-1", "3", "true") + Entry("OPCUA", "o-2", "-1", "false") +
                             Entry("Modbus", "m-1", "3", "true"))),
              "Modbus,m-1,3,on\nOPCUA,o-2,-1,off\nModbus,m-1,3,on\n");
}

TEST_F(ProtocolConfigTest, EveryRecordCarriesTheKindTag) {
    ProtocolConfig config;
    ASSERT_TRUE(config.parse(dir.write("file.xml", Section(Entries(3)))));

    for (const ProtocolTypeInfo& info : config.getProtocolList()) {
        EXPECT_EQ(info.getDomainType(), 235);
    }
}

TEST_F(ProtocolConfigTest, TheMinimalFileIsRead) {
    EXPECT_EQ(Parsed("<Configure name=''><Configure name='ProtocolConfig'><ConfigItem/></Configure></Configure>"),
              ",,0,off\n");
}

TEST_F(ProtocolConfigTest, TheSectionMayFollowOtherSections) {
    EXPECT_EQ(Parsed(Root("<Configure name='Network'>" + Entry("N", "0", "0", "true") + "</Configure>" +
                          "<Configure name='ProtocolConfig'>" + Entry("P", "1", "1", "true") + "</Configure>")),
              "P,1,1,on\n");
}

TEST_F(ProtocolConfigTest, TheFirstOfTwoSectionsIsRead) {
    EXPECT_EQ(Parsed(Root("<Configure name='ProtocolConfig'>" + Entry("A", "1", "1", "true") + "</Configure>" +
                          "<Configure name='ProtocolConfig'>" + Entry("B", "2", "2", "true") + "</Configure>")),
              "A,1,1,on\n");
}

TEST_F(ProtocolConfigTest, ElementsOfOtherNamesAheadOfTheFirstConfigureAreSkipped) {
    EXPECT_EQ(Parsed(Root("<Other/><ConfigItem/><Other name='ProtocolConfig'/><Configure name='ProtocolConfig'>" +
                          Entry("P", "1", "1", "true") + "</Configure>")),
              "P,1,1,on\n");
}

TEST_F(ProtocolConfigTest, ASiblingOfAnyNameBehindTheFirstConfigureCanBeTheSection) {
    EXPECT_EQ(Parsed(Root("<Configure name='Network'/><Other name='Other'/><Another name='ProtocolConfig'>" +
                          Entry("P", "1", "1", "true") + "</Another>")),
              "P,1,1,on\n");
}

TEST_F(ProtocolConfigTest, WhatStandsBehindTheSectionIsNotLookedAt) {
    EXPECT_EQ(Parsed(Root("<Configure name='ProtocolConfig'>" + Entry("P", "1", "1", "true") +
                          "</Configure><Configure/><Other/>")),
              "P,1,1,on\n");
}

TEST_F(ProtocolConfigTest, ElementsBehindTheFirstConfigItemAreEntriesWhateverTheirNames) {
    EXPECT_EQ(Parsed(Section(Entry("A", "1", "1", "true") + "<Other ProtocolName='B' ProtocolEnable='true'/>" +
                             "<Configure name='C'/>" + Entry("D", "4", "4", "false"))),
              "A,1,1,on\nB,,0,on\n,,0,off\nD,4,4,off\n");
}

TEST_F(ProtocolConfigTest, ElementsAheadOfTheFirstConfigItemAreNoEntries) {
    EXPECT_EQ(Parsed(Section("<Other ProtocolName='A'/><Configure name='x'/>" + Entry("B", "2", "2", "true"))),
              "B,2,2,on\n");
}

TEST_F(ProtocolConfigTest, ChildrenTextCommentsAndOtherAttributesOfAnEntryAreIgnored) {
    EXPECT_EQ(Parsed(Section("<!--c-->text<ConfigItem x='1' ProtocolName='A' y='2'>text<ConfigItem ProtocolName='B'/>"
                             "</ConfigItem><!--c-->text")),
              "A,,0,off\n");
}

TEST_F(ProtocolConfigTest, AnEntryOfUnknownTypeIsKept) {
    EXPECT_EQ(Parsed(Section(Entry("A", "1", "2147483647", "true") + Entry("B", "2", "-5", "true") +
                             Entry("C", "3", "nonsense", "true"))),
              "A,1,2147483647,on\nB,2,-5,on\nC,3,0,on\n");
}

TEST_F(ProtocolConfigTest, AMissingAttributeGivesItsDefault) {
    EXPECT_EQ(Parsed(Section("<ConfigItem ProtocolId='i' ProtocolType='1' ProtocolEnable='true'/>"
                             "<ConfigItem ProtocolName='n' ProtocolType='1' ProtocolEnable='true'/>"
                             "<ConfigItem ProtocolName='n' ProtocolId='i' ProtocolEnable='true'/>"
                             "<ConfigItem ProtocolName='n' ProtocolId='i' ProtocolType='1'/>")),
              ",i,1,on\nn,,1,on\nn,i,0,on\nn,i,1,off\n");
}

TEST_F(ProtocolConfigTest, AMissingOrMalformedAttributeLogsNothing) {
    const std::string path = dir.write("odd.xml", Section("<ConfigItem/>" + Entry("", "", "12abc", "yes")));

    EXPECT_EQ(Log(2, path, true), "") << "an error or a warning; only the trace stands above them";
}

TEST_F(ProtocolConfigTest, AnEntryDoesNotInheritFromTheOneBefore) {
    EXPECT_EQ(Parsed(Section(Entry("A", "1", "1", "true") + "<ConfigItem/>")), "A,1,1,on\n,,0,off\n");
}

TEST_F(ProtocolConfigTest, AttributeNamesAreCaseSensitive) {
    EXPECT_EQ(Parsed(Section("<ConfigItem protocolName='n' PROTOCOLID='i' ProtocolTYPE='1' protocolenable='true'/>")),
              ",,0,off\n");
}

TEST_F(ProtocolConfigTest, OnlyTrueInAnyLetterCaseEnables) {
    struct EnableCase {
        const char* text;
        bool enabled;
    };
    for (const EnableCase& c : {EnableCase{"true", true},
                                {"TRUE", true},
                                {"tRue", true},
                                {"false", false},
                                {"FALSE", false},
                                {"yes", false},
                                {"1", false},
                                {"", false},
                                {" true", false},
                                {"true ", false},
                                {"on", false}}) {
        EXPECT_EQ(Parsed(Section(Entry("P", "1", "1", c.text))), c.enabled ? "P,1,1,on\n" : "P,1,1,off\n") << c.text;
    }
}

TEST_F(ProtocolConfigTest, ATypeIsItsLeadingDigits) {
    struct TypeCase {
        const char* text;
        int value;
    };
    for (const TypeCase& c : {TypeCase{"12", 12},
                              {"12abc", 12},
                              {"x", 0},
                              {"", 0},
                              {" 7", 7},
                              {"+7", 7},
                              {"-7", -7},
                              {"0x1F", 0},
                              {"3.9", 3}}) {
        EXPECT_EQ(Parsed(Section(Entry("P", "1", c.text, "true"))), "P,1," + std::to_string(c.value) + ",on\n")
            << c.text;
    }
}

TEST_F(ProtocolConfigTest, NameAndIdentifierAreKeptAsTheyStand) {
    EXPECT_EQ(Parsed(Section(Entry(" a&lt;b &#65;  ", "007", "1", "true"))), " a<b A  ,007,1,on\n");
}

// Files in other character sets and forms

TEST_F(ProtocolConfigTest, AUtf8FileWithAChineseNameIsRead) {
    EXPECT_EQ(Parsed(Section(Entry(WordUtf8, "1", "1", "true"))), std::string(WordUtf8) + ",1,1,on\n");
}

TEST_F(ProtocolConfigTest, AGb2312FileWithAChineseNameIsReadAsUtf8) {
    const std::string body = "<Configure name='x'><Configure name='ProtocolConfig'>" + Entry(WordGb, "1", "1", "true") +
                             "</Configure></Configure>";

    EXPECT_EQ(Parsed("<?xml version='1.0' encoding='GB2312'?>" + body), std::string(WordUtf8) + ",1,1,on\n");
    EXPECT_EQ(Parsed("<?xml version='1.0' encoding='gbk'?>" + body), std::string(WordUtf8) + ",1,1,on\n");
    EXPECT_EQ(Parsed(body), std::string(WordUtf8) + ",1,1,on\n") << "without a declaration";
}

TEST_F(ProtocolConfigTest, AGbkFileWithACharacterThatGb2312LacksIsNotRead) {
    EXPECT_EQ(Parsed("<?xml version='1.0' encoding='gbk'?><Configure name='x'><Configure name='ProtocolConfig'>" +
                     Entry(RareGbk, "1", "1", "true") + "</Configure></Configure>"),
              "false");
}

TEST_F(ProtocolConfigTest, LineEndsOfEveryKindAreRead) {
    const std::string lines = std::string(Utf8) + "\n<Configure name='x'>\n<Configure name='ProtocolConfig'>\n" +
                              "<ConfigItem\nProtocolName='a\nb'\n/>\n</Configure>\n</Configure>\n";
    std::string windows;
    std::string old;
    for (const char c : lines) {
        windows += c == '\n' ? "\r\n" : std::string(1, c);
        old += c == '\n' ? '\r' : c;
    }

    for (const std::string& text : {lines, windows, old}) {
        EXPECT_EQ(Parsed(text), "a\nb,,0,off\n");
    }
}

TEST_F(ProtocolConfigTest, WhatStandsBehindAZeroByteIsNotRead) {
    EXPECT_EQ(Parsed(Section(Entries(1)) + std::string("\0<broken", 8)), "P0,id0,0,on\n");
}

TEST_F(ProtocolConfigTest, AFileThatNestsFiveThousandDeepIsRead) {
    std::string deep;
    for (int i = 0; i < 4997; ++i) {
        deep += "<a>";
    }
    for (int i = 0; i < 4997; ++i) {
        deep += "</a>";
    }

    EXPECT_EQ(Parsed(Section("<ConfigItem ProtocolName='P'>" + deep + "</ConfigItem>")), "P,,0,off\n");
}

// More than one parse

TEST_F(ProtocolConfigTest, ASecondParseReplacesTheList) {
    ProtocolConfig config;
    ASSERT_TRUE(config.parse(dir.write("one.xml", Section(Entries(3)))));

    EXPECT_TRUE(config.parse(dir.write("two.xml", Section(Entry("A", "1", "1", "true")))));

    EXPECT_EQ(RecordLines(config), "A,1,1,on\n");
}

TEST_F(ProtocolConfigTest, AParseAfterAFailedOneReads) {
    ProtocolConfig config;
    ASSERT_FALSE(config.parse(dir / "missing.xml"));

    EXPECT_TRUE(config.parse(dir.write("good.xml", Section(Entries(1)))));

    EXPECT_EQ(RecordLines(config), "P0,id0,0,on\n");
}

// What one file declared does not stick to the next: each parse has a document of its own.
TEST_F(ProtocolConfigTest, TheEncodingOfOneFileDoesNotDecideThatOfTheNext) {
    ProtocolConfig config;
    ASSERT_TRUE(config.parse(dir.write("utf8.xml", Section(Entries(1)))));

    EXPECT_TRUE(config.parse(dir.write("none.xml", "<Configure name='x'><Configure name='ProtocolConfig'>" +
                                                       Entry(WordGb, "1", "1", "true") + "</Configure></Configure>")));

    EXPECT_EQ(RecordLines(config), std::string(WordUtf8) + ",1,1,on\n");
}

TEST_F(ProtocolConfigTest, TheFileIsLeftAsItIs) {
    const std::string content =
        "<?xml version='1.0' encoding='gb2312'?>\r\n" + Section(Entries(2)).substr(std::string(Utf8).size());
    const std::string path = dir.write("file.xml", content);
    ProtocolConfig config;

    ASSERT_TRUE(config.parse(path));

    EXPECT_EQ(ReadWholeFile(path), content);
}

// Size

TEST_F(ProtocolConfigTest, TwentyThousandEntriesAreRead) {
    ProtocolConfig config;

    ASSERT_TRUE(config.parse(dir.write("large.xml", Section(Entries(20000)))));

    ASSERT_EQ(config.getProtocolList().size(), 20000U);
    for (size_t i = 0; i < 20000; ++i) {
        const ProtocolTypeInfo& info = config.getProtocolList()[i];
        ASSERT_EQ(info.getProtocolName(), "P" + std::to_string(i));
        ASSERT_EQ(info.getProtocolId(), "id" + std::to_string(i));
        ASSERT_EQ(info.getProtocolType(), static_cast<int32_t>(i));
        ASSERT_EQ(info.isProtocolEnable(), i % 2 == 0);
    }
}

TEST_F(ProtocolConfigTest, TheListTakesNoMoreRoomThanItsRecordsNeed) {
    ProtocolConfig config;

    ASSERT_TRUE(config.parse(dir.write("five.xml", Section(Entries(5)))));

    EXPECT_EQ(config.getProtocolList().capacity(), 5U) << "grown record by record it would have room for eight";
}

// The section takes one of the 20,096 records.
TEST_F(ProtocolConfigTest, AsManyEntriesAsThePoolHasRecordsBesideTheSectionAreRead) {
    ProtocolConfig config;

    EXPECT_TRUE(config.parse(dir.write("large.xml", Section(Entries(20095)))));

    EXPECT_EQ(config.getProtocolList().size(), 20095U);
}

TEST_F(ProtocolConfigTest, OneEntryTooManyThrowsAndLeavesTheListAndNoRecordTaken) {
    const std::string good = dir.write("good.xml", Section(Entries(2)));
    const std::string large = dir.write("large.xml", Section(Entries(20096)));
    ProtocolConfig config;
    ASSERT_TRUE(config.parse(good));
    std::string message;

    try {
        static_cast<void>(config.parse(large));
    } catch (const WyRuntimeError& error) {
        message = error.what();
    }

    EXPECT_EQ(message, "too much safe poniter");
    EXPECT_EQ(TakenRecords(), 0U);
    EXPECT_EQ(RecordLines(config), "P0,id0,0,on\nP1,id1,1,off\n");
    EXPECT_TRUE(config.parse(good)) << "the pool can be used again";
}

// The log

TEST_F(ProtocolConfigTest, TheNineTracePointsAreLoggedInTheirOrderAtLevelThree) {
    const std::string path = dir.write("file.xml", Section(Entries(1)));

    EXPECT_EQ(Log(3, path, true), TraceLines({28, 35, 42, 47, 50, 57, 62, 70, 72}));
}

TEST_F(ProtocolConfigTest, EachEntryHasItsFourTracePoints) {
    const std::string path = dir.write("file.xml", Section(Entries(3)));

    EXPECT_EQ(Log(3, path, true), TraceLines({28, 35, 42, 47, 50, 57, 62, 70, 50, 57, 62, 70, 50, 57, 62, 70, 72}));
}

TEST_F(ProtocolConfigTest, ASuccessfulParseIsSilentBelowLevelThree) {
    const std::string path = dir.write("file.xml", Section(Entries(2)));

    EXPECT_EQ(Log(0, path, true), "");
    EXPECT_EQ(Log(1, path, true), "");
    EXPECT_EQ(Log(2, path, true), "");
}

TEST_F(ProtocolConfigTest, EveryParseIsSilentWithTheSettingsAProcessStartsWith) {
    ProtocolConfig config;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();

    EXPECT_TRUE(config.parse(dir.write("good.xml", Section(Entries(2)))));
    EXPECT_FALSE(config.parse(dir / "missing.xml"));
    EXPECT_FALSE(config.parse(dir.write("none.xml", Root(""))));
    EXPECT_FALSE(config.parse(dir.write("empty.xml", Section(""))));
    const std::string error = testing::internal::GetCapturedStderr();

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(error, "");
}

TEST_F(ProtocolConfigTest, TheModuleOfTheLogIsProtocolConfig) {
    const std::string path = dir / "missing.xml";

    ASSERT_TRUE(LogSettings::instance().addModule("XmlConfigureDocument"));
    EXPECT_EQ(Log(3, path, false), "");
    ASSERT_TRUE(LogSettings::instance().addModule("ProtocolConfig"));
    EXPECT_EQ(Log(3, path, false), TraceLine(28) + Error + "parse(" + path + ")error\n");
}

// The log takes a formatted text for a format once more.
TEST_F(ProtocolConfigTest, ADoubledPercentSignInThePathIsLoggedAsOne) {
    EXPECT_EQ(Log(1, dir / "a%%b.xml", false), Error + ("parse(" + (dir / "a%b.xml") + ")error\n"));
}

TEST_F(ProtocolConfigFailureTest, ARootNamedConfigIsALoadFailure) {
    const std::string path =
        dir.write("file.xml", std::string(Utf8) + "<Config name='x'><Configure name='ProtocolConfig'>" + Entries(1) +
                                  "</Configure></Config>");

    EXPECT_EQ(Log(1, path, false), Error + ("parse(" + path + ")error\n"));
}

TEST_F(ProtocolConfigFailureTest, AFirstConfigureWithoutANameAheadOfTheSectionEndsTheSearch) {
    const std::string path =
        dir.write("file.xml", Root("<Configure/><Configure name='ProtocolConfig'>" + Entries(1) + "</Configure>"));

    EXPECT_EQ(Log(1, path, false), Error + ("parse(" + path + "),not find Node(RecordDir)\n"));
}

TEST_F(ProtocolConfigFailureTest, ASiblingOfAnyNameWithoutANameAttributeAheadOfTheSectionEndsTheSearch) {
    for (const char* sibling : {"<Configure/>", "<Other/>", "<ConfigItem ProtocolName='P'/>"}) {
        const std::string path =
            dir.write("file.xml", Root("<Configure name='Network'/>" + std::string(sibling) +
                                       "<Configure name='ProtocolConfig'>" + Entries(1) + "</Configure>"));

        EXPECT_EQ(Log(1, path, false), Error + ("parse(" + path + "),not find Node(RecordDir)\n")) << sibling;
    }
}

TEST_F(ProtocolConfigFailureTest, ASectionOfElementsOfOtherNamesFailsWithoutAnErrorLine) {
    const std::string path = dir.write("file.xml", Section("<Configitem ProtocolName='P'/><Configure name='x'/>"));

    EXPECT_EQ(Log(1, path, false), "");
}

TEST_F(ProtocolConfigFailureTest, AMissingFileLogsTheParseError) {
    const std::string path = dir / "missing.xml";

    EXPECT_EQ(Log(3, path, false), TraceLine(28) + Error + "parse(" + path + ")error\n");
    EXPECT_EQ(Log(1, path, false), Error + ("parse(" + path + ")error\n"));
}

TEST_F(ProtocolConfigFailureTest, ADirectoryLogsTheParseError) {
    EXPECT_EQ(Log(3, dir.path(), false), TraceLine(28) + Error + "parse(" + dir.path() + ")error\n");
}

TEST_F(ProtocolConfigFailureTest, AFileThatDoesNotLoadLogsTheParseError) {
    ExpectAllLog(NotLoaded(), TraceLine(28), "parse(%s)error\n");
}

TEST_F(ProtocolConfigFailureTest, AFileThatDoesNotLoadLeavesTheList) {
    ExpectAllFailAndKeepTheList(NotLoaded());
}

TEST_F(ProtocolConfigFailureTest, AMissingFileLeavesTheList) {
    ProtocolConfig config;
    ASSERT_TRUE(config.parse(dir.write("good.xml", Section(Entries(2)))));

    EXPECT_FALSE(config.parse(dir / "missing.xml"));
    EXPECT_FALSE(config.parse(dir.path()));
    EXPECT_FALSE(config.parse(""));

    EXPECT_EQ(RecordLines(config), "P0,id0,0,on\nP1,id1,1,off\n");
}

TEST_F(ProtocolConfigFailureTest, AFileWithoutASectionThatCanBeFoundLogsThatTheNodeIsNotFound) {
    ExpectAllLog(NotFound(), TraceLines({28, 35}), "parse(%s),not find Node(RecordDir)\n");
}

TEST_F(ProtocolConfigFailureTest, AFileWithoutASectionThatCanBeFoundLeavesTheList) {
    ExpectAllFailAndKeepTheList(NotFound());
}

TEST_F(ProtocolConfigFailureTest, ASectionWithoutAConfigItemLogsNoErrorLine) {
    ExpectAllLog(WithoutEntries(), TraceLines({28, 35, 42}), "");
}

TEST_F(ProtocolConfigFailureTest, ASectionWithoutAConfigItemLeavesTheList) {
    ExpectAllFailAndKeepTheList(WithoutEntries());
}
