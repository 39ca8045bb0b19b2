#include "charset/CharSetConverter.h"
#include "protocol/ProtocolConfig.h"
#include "runtime/SafePointer.h"
#include "runtime/SafePointerPool.h"
#include "tests/memory/FaultSweep.h"
#include "tests/memory/PoolLocks.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"
#include "xmlconfig/XmlConfigureTree.h"

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

extern "C" {

// TinyXML's parser holds the node that it reads, and an element's attribute, in a plain pointer until it has read it, and
// loses it when an exception comes through. These functions call nothing of ours, so this hides nothing of ours: an
// allocation below them is the parser's own.
const char* __lsan_default_suppressions() {
    return "leak:TiXmlNode::Identify\n"
           "leak:TiXmlElement::Parse\n";
}
}

namespace {

const std::string Utf8Text = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                             "<Configure name=\"Device\">\n"
                             "\t<!-- a comment -->\n"
                             "\t<Configure name=\"Empty\" />\n"
                             "\t<Configure name=\"Names\">\n"
                             "\t\ta text between elements, on the heap\n"
                             "\t\t<ConfigItem value=\"\xE5\x8D\x8F\xE8\xAE\xAE, a long value, on the heap\" />\n"
                             "\t\t<ConfigItem value=\"2\" />\n"
                             "\t</Configure>\n"
                             "</Configure>\n";
const std::string Gb2312Text = "<?xml version=\"1.0\" encoding=\"gb2312\" standalone=\"no\" ?>\n"
                               "<Configure name=\"Device\">\n"
                               "\t<Configure name=\"Names\">\n"
                               "\t\t<ConfigItem value=\"\xD0\xAD\xD2\xE9, a long value, on the heap\" />\n"
                               "\t</Configure>\n"
                               "</Configure>\n";
// What comes of the one above.
const std::string Gb2312TextSaved = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                    "<Configure name=\"Device\">\n"
                                    "\t<Configure name=\"Names\">\n"
                                    "\t\t<ConfigItem value=\"\xE5\x8D\x8F\xE8\xAE\xAE, a long value, on the heap\" />\n"
                                    "\t</Configure>\n"
                                    "</Configure>\n";
const std::string CreatedText = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                "<Configure name=\"HardwareConfig\" />\n";

// What a document knows of its last Load.
std::tuple<bool, uint32_t, uint32_t, std::string> StateOf(const XmlConfigureDocument& document) {
    return {document.*Get(MemoryDocumentLoaded()), document.*Get(MemoryDocumentCharset()),
            document.*Get(MemoryDocumentMode()), document.*Get(MemoryDocumentPath())};
}

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
};

// A file that cannot be opened is one that cannot be read; a text whose conversion cannot be opened is empty, and does
// not parse; its output is allocated even so. A stream reads without a buffer, too.
const FaultRules LoadRules = {
    {"operator new", Ending::Threw, Ending::Threw},
    {"fopen", Ending::False, Ending::False},
    {"libiconv_open", Ending::False, Ending::Threw},
    {"other", Ending::True, Ending::Threw},
};

// A document, nodes and items ask operator new alone.
const FaultRules PlainRules = {{"operator new", Ending::Threw, Ending::Threw}};

// So many records are taken, and nobody holds the lock of one or of the pool.
void ExpectRecords(size_t taken) {
    SafePointerPool& pool = *SafePointerPool::instance();
    EXPECT_EQ(RecordsOut(pool), taken);
    EXPECT_EQ(HeldLocks(pool), 0U);
}

std::string NamesOf(ProtocolConfig& config) {
    std::string names;
    for (const ProtocolTypeInfo& info : config.getProtocolList()) {
        names += info.getProtocolName() + "," + info.getProtocolId() + "\n";
    }
    return names;
}

class DocumentMemoryTest : public testing::Test {
protected:
    ~DocumentMemoryTest() override { ExpectRecords(0); }

    bool load(XmlConfigureDocument& document) const {
        return document.Load(directory.write("file.xml", Utf8Text), CharSetUtf8, ReadOnly);
    }

    const TemporaryDirectory directory;
};

} // namespace

TEST_F(DocumentMemoryTest, ADocumentThatFailedToLoadForLackOfMemoryKeepsItsStateAndLoadsTheNextTime) {
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

TEST_F(DocumentMemoryTest, ADocumentThatCouldNotBeMadeForLackOfMemoryLeavesNothing) {
    SweepFaults("construction", [&](FaultyAttempt& attempt) {
        attempt.run(PlainRules, [] {
            const XmlConfigureDocument document;
            return true;
        });
    });
}

TEST_F(DocumentMemoryTest, ALoadThatCreatesFailsForLackOfMemoryWithoutTouchingTheFile) {
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

TEST_F(DocumentMemoryTest, ASaveThatFailedForLackOfMemoryLeavesTheFileAndSavesTheNextTime) {
    const struct {
        const char* name;
        const std::string& text;
        const std::string& saved;
        unsigned charset;
        unsigned mode;
    } cases[] = {
        {"Save of UTF-8", Utf8Text, Utf8Text, CharSetUtf8, ReadWrite},
        {"Save of GB2312 read as UTF-8", Gb2312Text, Gb2312TextSaved, CharSetUtf8, ReadWrite},
        {"Save of GB2312", Gb2312Text, Gb2312TextSaved, CharSetGb2312, ReadWrite},
        {"Save of GB2312 read as GBK", Gb2312Text, Gb2312TextSaved, CharSetGbk, ReadWrite},
        {"Save of what was created", Utf8Text, CreatedText, CharSetUtf8, Create},
    };
    // The file is opened, and emptied, when all else is done; its stream writes without a buffer, too.
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw}, {"libiconv_open", Ending::False, Ending::Threw},
        {"iconv_open", Ending::False, Ending::False},   {"fopen", Ending::False, Ending::False},
        {"other", Ending::True, Ending::True},
    };

    for (const auto& c : cases) {
        SweepFaults(c.name, [&](FaultyAttempt& attempt) {
            const std::string path = directory.write("file.xml", c.text);
            XmlConfigureDocument document;
            ASSERT_TRUE(document.Load(path, c.charset, c.mode));

            attempt.run(rules, [&] { return document.Save(); });

            if (!attempt.succeeded()) {
                EXPECT_EQ(ReadWholeFile(path), c.text);
                EXPECT_TRUE(document.Save());
            }
            EXPECT_EQ(ReadWholeFile(path), c.saved);
        });
    }
}

// In a process of its own each, since the first node of all makes the pool.
TEST_F(DocumentMemoryTest, TheFirstNodeThatCouldNotBeHandedOutForLackOfMemoryTakesNoRecord) {
    SweepFaultsInChildren("the first GetNode", [&](FaultyAttempt& attempt) {
        XmlConfigureDocument document;
        ASSERT_TRUE(load(document));
        SafePointer<XmlConfigureNode> node;

        attempt.run(PlainRules, [&] { return document.GetNode("Names", node); });

        ExpectRecords(attempt.succeeded() ? 1 : 0);
        EXPECT_TRUE(document.GetNode("Names", node));
        ExpectRecords(1);
    });
}

TEST_F(DocumentMemoryTest, ANodeThatCouldNotBeHandedOutForLackOfMemoryLeavesTheOutputAsItWas) {
    SweepFaults("GetNode", [&](FaultyAttempt& attempt) {
        XmlConfigureDocument document;
        ASSERT_TRUE(load(document));
        SafePointer<XmlConfigureNode> node;
        ASSERT_TRUE(document.GetNode("Empty", node));

        attempt.run(PlainRules, [&] { return document.GetNode("Names", node); });

        std::vector<SafePointer<XmlConfigureItem>> items;
        EXPECT_EQ(node->GetItems(items), attempt.succeeded());
        ExpectRecords(1 + items.size());
        EXPECT_TRUE(document.GetNode("Names", node));
        EXPECT_TRUE(node->GetItems(items));
    });
}

TEST_F(DocumentMemoryTest, ItemsThatCouldNotBeHandedOutForLackOfMemoryTakeNoRecord) {
    SweepFaults("GetItems", [&](FaultyAttempt& attempt) {
        XmlConfigureDocument document;
        ASSERT_TRUE(load(document));
        SafePointer<XmlConfigureNode> node;
        ASSERT_TRUE(document.GetNode("Names", node));
        std::vector<SafePointer<XmlConfigureItem>> items;

        attempt.run(PlainRules, [&] { return node->GetItems(items); });

        ExpectRecords(1 + items.size());
        items.clear();
        EXPECT_TRUE(node->GetItems(items));
        EXPECT_EQ(items.size(), 2U);
        ExpectRecords(3);
    });
}

TEST_F(DocumentMemoryTest, ATextThatCouldNotBeReadForLackOfMemoryLeavesTheOutputAsItWas) {
    XmlConfigureDocument document;
    ASSERT_TRUE(load(document));
    SafePointer<XmlConfigureNode> node;
    ASSERT_TRUE(document.GetNode("Names", node));
    std::vector<SafePointer<XmlConfigureItem>> items;
    ASSERT_TRUE(node->GetItems(items));
    const std::string key = "value";

    SweepFaults("GetString", [&](FaultyAttempt& attempt) {
        std::string value = "before";

        attempt.run(PlainRules, [&] { return items[0]->GetString(key, value); });

        EXPECT_EQ(value == "before", attempt.threw());
        EXPECT_TRUE(items[0]->GetString(key, value));
        EXPECT_EQ(value, "\xE5\x8D\x8F\xE8\xAE\xAE, a long value, on the heap");
    });
}

TEST_F(DocumentMemoryTest, ATreeThatCouldNotBePrintedForLackOfMemoryLeavesTheOutputAsItWasAndPrintsTheNextTime) {
    // Another encoding than that is replaced in the tree, in its place.
    const struct {
        std::string text;
        const std::string& printed;
    } cases[] = {
        {Utf8Text, Utf8Text},
        {"<?xml version=\"1.0\" encoding=\"a long name, on the heap\" standalone=\"no\" ?>\n"
         "<Configure name=\"HardwareConfig\" />\n",
         CreatedText},
    };
    for (const auto& c : cases) {
        SweepFaults("PrintToString", [&](FaultyAttempt& attempt) {
            XmlConfigureTree tree;
            ASSERT_TRUE(tree.ParseAndValidate(c.text, CharSetUtf8));
            std::string out = "before";

            attempt.run(PlainRules, [&] { return tree.PrintToString(out); });

            EXPECT_EQ(out, attempt.succeeded() ? c.printed : "before");
            EXPECT_TRUE(tree.PrintToString(out));
            EXPECT_EQ(out, c.printed);
        });
    }
}

TEST_F(DocumentMemoryTest, AConfigurationThatCouldNotBeReadForLackOfMemoryLeavesTheFormerListOrTheEntriesReadSoFar) {
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
