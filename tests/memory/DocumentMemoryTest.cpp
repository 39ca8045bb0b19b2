#include "charset/CharSetConverter.h"
#include "runtime/SafePointer.h"
#include "tests/memory/DocumentTexts.h"
#include "tests/memory/FaultSweep.h"
#include "tests/memory/PoolLocks.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"
#include "xmlconfig/XmlConfigureTree.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// What becomes of a document that was loaded with all the memory that it asked for.

namespace {

// A document, nodes and items ask operator new alone.
const FaultRules PlainRules = {{"operator new", Ending::Threw, Ending::Threw}};

class DocumentMemoryTest : public testing::Test {
protected:
    ~DocumentMemoryTest() override { ExpectRecords(0); }

    bool load(XmlConfigureDocument& document) const {
        return document.Load(directory.write("file.xml", Utf8Text), CharSetUtf8, ReadOnly);
    }

    const TemporaryDirectory directory;
};

} // namespace

TEST_F(DocumentMemoryTest, ADocumentThatCouldNotBeMadeForLackOfMemoryLeavesNothing) {
    SweepFaults("construction", [&](FaultyAttempt& attempt) {
        attempt.run(PlainRules, [] {
            const XmlConfigureDocument document;
            return true;
        });
    });
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
