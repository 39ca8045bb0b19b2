#include "charset/CharSetConverter.h"
#include "protocol/ProtocolConfig.h"
#include "runtime/SafePointer.h"
#include "tests/memory/DocumentTexts.h"
#include "tests/memory/FaultSweep.h"
#include "tests/memory/PoolLocks.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/Repeated.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureNode.h"
#include "xmlconfig/XmlNestingLimit.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <vector>

PRIVATE_MEMBER(MemoryDocumentLoaded, XmlConfigureDocument, bool, loaded);
PRIVATE_MEMBER(MemoryDocumentCharset, XmlConfigureDocument, uint32_t, charset);
PRIVATE_MEMBER(MemoryDocumentMode, XmlConfigureDocument, uint32_t, mode);
PRIVATE_MEMBER(MemoryDocumentPath, XmlConfigureDocument, std::string, path);

namespace {

// What a document knows of its last Load.
std::tuple<bool, uint32_t, uint32_t, std::string> StateOf(const XmlConfigureDocument& document) {
    return {document.*Get(MemoryDocumentLoaded()), document.*Get(MemoryDocumentCharset()),
            document.*Get(MemoryDocumentMode()), document.*Get(MemoryDocumentPath())};
}

// As many "<" as an ordinary configuration never has: the nesting check walks over the text, and has the library read
// the declaration.
const std::string ManyBrackets(MaxElementDepth + 1, '<');
const std::string WalkedText = "<?xml version=\"1.0\" encoding=\"a long name, on the heap\"?>\n"
                               "<!--" +
                               ManyBrackets +
                               "-->\n<Configure name=\"Device\"><Configure name=\"Names\"/></Configure>\n";

struct LoadCase {
    const char* name;
    const std::string& text;
    unsigned charset;
    unsigned mode;
};

const LoadCase LoadCases[] = {
    {"Load of UTF-8, read only", Utf8Text, CharSetUtf8, ReadOnly},
    {"Load of UTF-8, to write", Utf8Text, CharSetUtf8, ReadWrite},
    {"Load of UTF-8 as GB2312", Utf8Text, CharSetGb2312, ReadOnly},
    {"Load of GB2312 as UTF-8", Gb2312Text, CharSetUtf8, ReadOnly},
    {"Load of GB2312, to write", Gb2312Text, CharSetUtf8, ReadWrite},
    {"Load of GB2312 as it is", Gb2312Text, CharSetGb2312, ReadWrite},
    {"Load of UTF-8 as GBK", Utf8Text, CharSetGbk, ReadOnly},
    {"Load of GB2312 as GBK", Gb2312Text, CharSetGbk, ReadWrite},
    {"Load of a text that the nesting check walks over", WalkedText, CharSetUtf8, ReadOnly},
};

// A file that cannot be opened is one that cannot be read; a text whose conversion cannot be opened is empty, and does
// not parse; its output is allocated even so. A stream reads without a buffer, too.
const FaultRules LoadRules = {
    {"operator new", Ending::Threw, Ending::Threw},
    {"fopen", Ending::False, Ending::False},
    {"libiconv_open", Ending::False, Ending::Threw},
    {"other", Ending::True, Ending::Threw},
};

std::string NamesOf(ProtocolConfig& config) {
    std::string names;
    for (const ProtocolTypeInfo& info : config.getProtocolList()) {
        names += info.getProtocolName() + "," + info.getProtocolId() + "\n";
    }
    return names;
}

class LoadMemoryTest : public testing::Test {
protected:
    ~LoadMemoryTest() override { ExpectRecords(0); }

    const TemporaryDirectory directory;
};

} // namespace

TEST_F(LoadMemoryTest, ADocumentThatFailedToLoadForLackOfMemoryKeepsItsStateAndLoadsTheNextTime) {
    const std::string earlier = directory.write("earlier.xml", CreatedText);
    for (const LoadCase& loadCase : LoadCases) {
        // Longer than the earlier one: its copy is another allocation.
        const std::string path = directory.write("a file with a longer name.xml", loadCase.text);
        SweepFaults(loadCase.name, [&](FaultyAttempt& attempt) {
            XmlConfigureDocument document;
            ASSERT_TRUE(document.Load(earlier, CharSetUtf8, ReadWrite));
            const auto before = StateOf(document);

            attempt.run(LoadRules, [&] { return document.Load(path, loadCase.charset, loadCase.mode); });

            const auto after = std::make_tuple(true, loadCase.charset, loadCase.mode, path);
            EXPECT_EQ(StateOf(document), attempt.succeeded() ? after : before);
            EXPECT_EQ(ReadWholeFile(path), loadCase.text);
            EXPECT_EQ(ReadWholeFile(earlier), CreatedText);
            EXPECT_TRUE(document.Load(path, loadCase.charset, loadCase.mode));
            SafePointer<XmlConfigureNode> node;
            EXPECT_TRUE(document.GetNode("Names", node));
        });
    }
}

// The attribute that is there twice ends the parse, which the walk over the text does not see: it seems too deep, and
// the library is asked.
TEST_F(LoadMemoryTest, AFileThatIsParsedToSeeHowDeepItNestsFailsForLackOfMemoryAndLeavesTheDocumentUsable) {
    const std::string text = "<Configure name=\"Device\" name=\"Device\">" + Repeated("<a>", MaxElementDepth);
    const std::string path = directory.write("deep.xml", text);
    const std::string good = directory.write("good.xml", Utf8Text);
    // The file is refused in the end, whatever refuses it: that is this operation's success.
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw},
        {"fopen", Ending::True, Ending::True},
        {"other", Ending::True, Ending::Threw},
    };

    SweepFaults("Load of a text that seems too deep", [&](FaultyAttempt& attempt) {
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(good, CharSetUtf8, ReadWrite));
        const auto before = StateOf(document);

        attempt.run(rules, [&] { return !document.Load(path, CharSetUtf8, ReadOnly); });

        EXPECT_EQ(StateOf(document), before);
        EXPECT_FALSE(document.Load(path, CharSetUtf8, ReadOnly));
        EXPECT_TRUE(document.Load(good, CharSetUtf8, ReadOnly));
        SafePointer<XmlConfigureNode> node;
        EXPECT_TRUE(document.GetNode("Names", node));
    });
}

// A parse as deep as the limit takes long: refused is only the last allocation, for the error that the document gets,
// and one at the bottom of the parse, whose exception comes through all levels.
TEST_F(LoadMemoryTest, AFileThatNestsTooDeepFailsForLackOfMemoryAndLeavesTheDocumentUsable) {
    const std::string path = directory.write("deep.xml", Repeated("<a>", MaxElementDepth + 1));
    const std::string good = directory.write("good.xml", Utf8Text);
    XmlConfigureDocument document;
    const AllocationFault none(0);
    EXPECT_FALSE(document.Load(path, CharSetUtf8, ReadOnly));
    const size_t all = AllocationFault::made();

    for (const size_t n : {all, all - 3}) {
        FaultyAttempt attempt(n, AllocationFault::Extent::One);
        XmlConfigureDocument fresh;

        attempt.run(LoadRules, [&] { return !fresh.Load(path, CharSetUtf8, ReadOnly); });

        EXPECT_TRUE(attempt.happened()) << n;
        EXPECT_TRUE(fresh.Load(good, CharSetUtf8, ReadOnly));
        SafePointer<XmlConfigureNode> node;
        EXPECT_TRUE(fresh.GetNode("Names", node));
    }
}

TEST_F(LoadMemoryTest, ALoadThatCreatesFailsForLackOfMemoryWithoutTouchingTheFile) {
    const std::string path = directory.write("file.xml", "before");
    // Its text is UTF-8: brought into another set when that is asked for.
    for (const unsigned charset : {CharSetUtf8, CharSetGb2312, CharSetGbk}) {
        SweepFaults("Load that creates, charset " + std::to_string(charset), [&](FaultyAttempt& attempt) {
            XmlConfigureDocument document;
            const auto before = StateOf(document);

            attempt.run(LoadRules, [&] { return document.Load(path, charset, Create); });

            const auto after = std::make_tuple(true, charset, uint32_t{Create}, path);
            EXPECT_EQ(StateOf(document), attempt.succeeded() ? after : before);
            EXPECT_EQ(ReadWholeFile(path), "before");
        });
    }
}

TEST_F(LoadMemoryTest, AConfigurationThatCouldNotBeReadForLackOfMemoryLeavesTheFormerListOrTheEntriesReadSoFar) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"gb2312\" ?>\n"
                             "<Configure name=\"Device\"><Configure name=\"ProtocolConfig\">\n"
                             "<ConfigItem ProtocolName=\"a first name, on the heap\" ProtocolId=\"1\" />\n"
                             "<ConfigItem ProtocolName=\"2\" ProtocolId=\"a second id, on the heap\" />\n"
                             "<ConfigItem ProtocolName=\"a third name, on the heap\" ProtocolId=\"3\" />\n"
                             "</Configure></Configure>\n";
    const std::vector<std::string> readSoFar = {"", "a first name, on the heap,1\n",
                                                "a first name, on the heap,1\n2,a second id, on the heap\n"};
    const std::string all = readSoFar.back() + "a third name, on the heap,3\n";
    const std::string path = directory.write("file.xml", text);
    ExpectRecords(0); // the pool is there: what is refused is not the memory for it
    std::set<std::string> left;

    SweepFaults("parse", [&](FaultyAttempt& attempt) {
        ProtocolConfig config;
        config.getProtocolList().resize(1);
        config.getProtocolList()[0].setProtocolName("former");

        attempt.run(LoadRules, [&] { return config.parse(path); });

        ExpectRecords(0);
        if (attempt.succeeded()) {
            EXPECT_EQ(NamesOf(config), all);
        } else if (attempt.threw()) {
            left.insert(NamesOf(config));
        } else {
            EXPECT_EQ(NamesOf(config), "former,\n");
        }
        EXPECT_TRUE(config.parse(path));
        EXPECT_EQ(NamesOf(config), all);
    });

    std::set<std::string> expected(readSoFar.begin(), readSoFar.end());
    expected.insert("former,\n");
    EXPECT_EQ(left, expected);
}
