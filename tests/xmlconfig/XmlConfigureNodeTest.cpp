#include "xmlconfig/XmlConfigureNode.h"

#include "runtime/SafePointerPool.h"
#include "runtime/WyRuntimeError.h"
#include "tests/support/ParsedXml.h"
#include "tests/support/PrintedBy.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/SafePointerRecords.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

PRIVATE_MEMBER(NodeElement, XmlConfigureNode, const TiXmlElement*, element);
PRIVATE_MEMBER(NodeDocument, XmlConfigureNode, const TiXmlDocument*, document);
PRIVATE_MEMBER(NodeCharset, XmlConfigureNode, uint32_t, charset);
PRIVATE_MEMBER(NodeItemElement, XmlConfigureItem, const TiXmlElement*, element);
PRIVATE_MEMBER(NodeItemCharset, XmlConfigureItem, uint32_t, charset);

static_assert(!std::is_polymorphic_v<XmlConfigureNode>);
static_assert(!std::is_default_constructible_v<XmlConfigureNode>, "a node without an element makes no sense");

namespace {

using NodePointer = SafePointer<XmlConfigureNode>;
using ItemPointer = SafePointer<XmlConfigureItem>;

// What the pool can hand out in all.
constexpr size_t AllRecords = 20096;

class XmlConfigureNodeTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(TakenRecords(), 0U) << "a node or an item is still held"; }

    static XmlConfigureNode RootOf(const ParsedXml& xml) { return {xml.get(), xml.root(), 1}; }

    static std::string NameOf(const NodePointer& node) {
        const char* name = (node.operator->()->*Get(NodeElement()))->Attribute("name");
        return name == nullptr ? "" : name;
    }

    static std::string ElementNameOf(const NodePointer& node) {
        return (node.operator->()->*Get(NodeElement()))->Value();
    }

    // The items' "name" attributes, in order.
    static std::string NamesOf(const std::vector<ItemPointer>& items) {
        std::string names;
        for (const ItemPointer& item : items) {
            std::string name = "-";
            static_cast<void>(item->GetString("name", name));
            names += name + ";";
        }
        return names;
    }

    static void ExpectNoNode(const std::string& text, const std::string& name) {
        const ParsedXml xml(text);
        NodePointer out;

        EXPECT_FALSE(RootOf(xml).GetNode(name, out)) << text;

        EXPECT_THROW(static_cast<void>(out.operator->()), WyRuntimeError) << "the output is still empty";
    }
};

// Takes records until only `left` are free, and gives them back.
class TakenPool {
public:
    explicit TakenPool(size_t left) {
        while (records.size() < AllRecords - left) {
            records.push_back(SafePointerPool::instance()->acquireRecord(this, "int"));
        }
    }

    ~TakenPool() {
        for (SafePointerRecord* record : records) {
            record->count = 0;
            SafePointerPool::instance()->releaseRecord(record, "int");
        }
    }

    TakenPool(const TakenPool&) = delete;
    TakenPool& operator=(const TakenPool&) = delete;

private:
    std::vector<SafePointerRecord*> records;
};

} // namespace

TEST_F(XmlConfigureNodeTest, TheFieldsStandInTheirDeclaredOrder) {
    const ParsedXml xml("<a/>");
    const XmlConfigureNode node(xml.get(), xml.root(), 7);

    EXPECT_EQ(OffsetOf(node, Get(NodeElement())), 0U);
    EXPECT_EQ(OffsetOf(node, Get(NodeDocument())), sizeof(void*));
    EXPECT_EQ(OffsetOf(node, Get(NodeCharset())), 2 * sizeof(void*));
    EXPECT_EQ(node.*Get(NodeElement()), xml.root());
    EXPECT_EQ(node.*Get(NodeDocument()), xml.get());
    EXPECT_EQ(node.*Get(NodeCharset()), 7U);
}

TEST_F(XmlConfigureNodeTest, AFoundNodeViewsItsElementInTheSameDocumentAndCharset) {
    const ParsedXml xml("<Configure><Configure name='a'/></Configure>");
    NodePointer out;

    ASSERT_TRUE(XmlConfigureNode(xml.get(), xml.root(), 7).GetNode("a", out));

    EXPECT_EQ(out.operator->()->*Get(NodeElement()), xml.root()->FirstChildElement());
    EXPECT_EQ(out.operator->()->*Get(NodeDocument()), xml.get());
    EXPECT_EQ(out.operator->()->*Get(NodeCharset()), 7U);
}

TEST_F(XmlConfigureNodeTest, ANodeIsFoundAmongLaterSiblings) {
    const ParsedXml xml("<Configure><Configure name='a'/>text<!-- c --><Configure name='b'/><Configure name='c'/>"
                        "</Configure>");
    NodePointer out;

    ASSERT_TRUE(RootOf(xml).GetNode("c", out));

    EXPECT_EQ(NameOf(out), "c");
}

TEST_F(XmlConfigureNodeTest, TheFirstOfTwoNodesOfOneNameIsFound) {
    const ParsedXml xml("<Configure><Configure name='a' n='1'/><Configure name='a' n='2'/></Configure>");
    NodePointer out;

    ASSERT_TRUE(RootOf(xml).GetNode("a", out));

    EXPECT_STREQ((out.operator->()->*Get(NodeElement()))->Attribute("n"), "1");
}

TEST_F(XmlConfigureNodeTest, OnlyChildrenAreSearchedNotGrandchildren) {
    ExpectNoNode("<Configure><Configure name='a'><Configure name='b'/></Configure></Configure>", "b");
}

TEST_F(XmlConfigureNodeTest, ANodeOfANodeIsFound) {
    const ParsedXml xml("<Configure><Configure name='a'><Configure name='b'><Configure name='c'/></Configure>"
                        "</Configure></Configure>");
    NodePointer a;
    NodePointer b;
    NodePointer c;

    ASSERT_TRUE(RootOf(xml).GetNode("a", a));
    ASSERT_TRUE(a->GetNode("b", b));
    ASSERT_TRUE(b->GetNode("c", c));

    EXPECT_EQ(NameOf(c), "c");
}

TEST_F(XmlConfigureNodeTest, AFirstConfigureWithoutANameEndsEverySearch) {
    const std::string text = "<Configure><Configure/><Configure name='a'/><Configure name=''/></Configure>";

    ExpectNoNode(text, "a");
    ExpectNoNode(text, "");
}

TEST_F(XmlConfigureNodeTest, AnItemWithoutANameEndsTheSearchBeforeALaterNode) {
    const std::string text = "<Configure><Configure name='a'/><ConfigItem/><Configure name='b'/></Configure>";
    const ParsedXml xml(text);
    NodePointer out;

    EXPECT_TRUE(RootOf(xml).GetNode("a", out));
    ExpectNoNode(text, "b");
}

TEST_F(XmlConfigureNodeTest, AnItemBehindTheFirstConfigureIsFoundAsANode) {
    const ParsedXml xml("<Configure><Configure name='x'/><ConfigItem name='y'/></Configure>");
    NodePointer out;

    ASSERT_TRUE(RootOf(xml).GetNode("y", out));

    EXPECT_EQ(ElementNameOf(out), "ConfigItem");
}

TEST_F(XmlConfigureNodeTest, AnElementOfAnyNameBehindTheFirstConfigureIsFoundAsANode) {
    const ParsedXml xml("<Configure><Configure name='x'/><Other name='y'/></Configure>");
    NodePointer out;

    ASSERT_TRUE(RootOf(xml).GetNode("y", out));

    EXPECT_EQ(ElementNameOf(out), "Other");
}

TEST_F(XmlConfigureNodeTest, ElementsBeforeTheFirstConfigureAreNeverLookedAt) {
    const std::string text = "<Configure><ConfigItem/><ConfigItem name='a'/><Other name='a2'/><Configure name='b'/>"
                             "</Configure>";
    const ParsedXml xml(text);
    NodePointer out;

    EXPECT_TRUE(RootOf(xml).GetNode("b", out)) << "the item without a name stands before the search";
    ExpectNoNode(text, "a");
    ExpectNoNode(text, "a2");
}

TEST_F(XmlConfigureNodeTest, AParentWithoutAConfigureHasNoNodes) {
    ExpectNoNode("<Configure/>", "a");
    ExpectNoNode("<Configure>text</Configure>", "a");
    ExpectNoNode("<Configure><configure name='a'/><ConfigItem name='a'/></Configure>", "a");
}

TEST_F(XmlConfigureNodeTest, NamesAreComparedByteForByte) {
    const std::string text = "<Configure><Configure name='Alpha'/><Configure name='\xE5\x8D\x8F'/></Configure>";
    const ParsedXml xml(text);
    NodePointer out;

    EXPECT_TRUE(RootOf(xml).GetNode("Alpha", out));
    EXPECT_TRUE(RootOf(xml).GetNode("\xE5\x8D\x8F", out));
    for (const std::string& name :
         {std::string("alpha"), std::string("ALPHA"), std::string("Alpha "), std::string(" Alpha"), std::string("Alph"),
          std::string("Alphab"), std::string(), std::string("Alpha\0", 6), std::string("\xE5\x8D")}) {
        ExpectNoNode(text, name);
    }
}

TEST_F(XmlConfigureNodeTest, AnEmptyNameFindsAnEmptyName) {
    const ParsedXml xml("<Configure><Configure name='a'/><Configure name=''/></Configure>");
    NodePointer out;

    EXPECT_TRUE(RootOf(xml).GetNode("", out));
}

TEST_F(XmlConfigureNodeTest, AnAttributeOfAnotherSpellingIsNoName) {
    ExpectNoNode("<Configure><Configure Name='a'/></Configure>", "a");
}

TEST_F(XmlConfigureNodeTest, AFailedSearchLeavesTheNodeThatTheOutputHolds) {
    const ParsedXml xml("<Configure><Configure name='a'/></Configure>");
    NodePointer out;
    ASSERT_TRUE(RootOf(xml).GetNode("a", out));
    const XmlConfigureNode* const before = out.operator->();

    EXPECT_FALSE(RootOf(xml).GetNode("b", out));

    EXPECT_EQ(out.operator->(), before);
    EXPECT_EQ(NameOf(out), "a");
}

TEST_F(XmlConfigureNodeTest, ASearchThatFailsPrintsAndLogsNothing) {
    struct Case {
        const char* what;
        const char* text;
    };
    const Case cases[] = {
        {"nothing inside", "<Configure/>"},
        {"another name", "<Configure><Configure name='b'/></Configure>"},
        {"no name first", "<Configure><Configure/><Configure name='a'/></Configure>"},
        {"no name behind", "<Configure><Configure name='b'/><Configure/><Configure name='a'/></Configure>"},
    };

    for (const Case& c : cases) {
        const ParsedXml xml(c.text);
        const XmlConfigureNode root = RootOf(xml);
        NodePointer node;
        std::vector<ItemPointer> items;
        bool found = true;

        const std::string printed = PrintedBy([&] { found = root.GetNode("a", node) || root.GetItems(items); });

        EXPECT_FALSE(found) << c.what;
        EXPECT_EQ(printed, "") << c.what;
    }
}

TEST_F(XmlConfigureNodeTest, ASuccessfulSearchLetsTheNodeGoThatTheOutputHeld) {
    const ParsedXml xml("<Configure><Configure name='a'/><Configure name='b'/></Configure>");
    NodePointer out;
    ASSERT_TRUE(RootOf(xml).GetNode("a", out));

    EXPECT_TRUE(RootOf(xml).GetNode("b", out));

    EXPECT_EQ(NameOf(out), "b");
    EXPECT_EQ(TakenRecords(), 1U);
}

TEST_F(XmlConfigureNodeTest, TwoSearchesForOneNameGiveTwoNodesOfOneElement) {
    const ParsedXml xml("<Configure><Configure name='a'/></Configure>");
    NodePointer first;
    NodePointer second;

    ASSERT_TRUE(RootOf(xml).GetNode("a", first));
    ASSERT_TRUE(RootOf(xml).GetNode("a", second));

    EXPECT_NE(first.operator->(), second.operator->());
    EXPECT_EQ(first.operator->()->*Get(NodeElement()), second.operator->()->*Get(NodeElement()));
    EXPECT_EQ(TakenRecords(), 2U);
}

// The assignment deletes the node that is searched from: an address sanitizer sees any use of it afterwards.
TEST_F(XmlConfigureNodeTest, ThePointerToTheNodeSearchedFromMayBeTheTarget) {
    const ParsedXml xml("<Configure><Configure name='a'><Configure name='b'><Configure name='c'/></Configure>"
                        "</Configure></Configure>");
    NodePointer node;
    ASSERT_TRUE(RootOf(xml).GetNode("a", node));

    ASSERT_TRUE(node->GetNode("b", node));
    ASSERT_TRUE(node->GetNode("c", node));
    EXPECT_FALSE(node->GetNode("d", node));

    EXPECT_EQ(NameOf(node), "c");
    EXPECT_EQ(TakenRecords(), 1U);
}

TEST_F(XmlConfigureNodeTest, ItemsAreTheFirstConfigItemAndEverySiblingElementBehindIt) {
    const ParsedXml xml("<Configure><ConfigItem name='a'/><Configure name='b'/>text<ConfigItem name='c'/></Configure>");
    std::vector<ItemPointer> items;
    NodePointer b;

    EXPECT_TRUE(RootOf(xml).GetItems(items));
    EXPECT_TRUE(RootOf(xml).GetNode("b", b));

    EXPECT_EQ(NamesOf(items), "a;b;c;");
    EXPECT_EQ(NameOf(b), "b");
}

TEST_F(XmlConfigureNodeTest, AnItemViewsItsElementInTheNodesCharset) {
    const ParsedXml xml("<Configure><ConfigItem name='a'/></Configure>");
    std::vector<ItemPointer> items;

    ASSERT_TRUE(XmlConfigureNode(xml.get(), xml.root(), 7).GetItems(items));

    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].operator->()->*Get(NodeItemElement()), xml.root()->FirstChildElement());
    EXPECT_EQ(items[0].operator->()->*Get(NodeItemCharset()), 7U);
}

TEST_F(XmlConfigureNodeTest, ElementsBeforeTheFirstConfigItemAreNoItems) {
    const ParsedXml xml("<Configure><Other name='o'/><Configure name='n'/><ConfigItem name='a'/><Other/></Configure>");
    std::vector<ItemPointer> items;

    EXPECT_TRUE(RootOf(xml).GetItems(items));

    EXPECT_EQ(NamesOf(items), "a;-;");
}

TEST_F(XmlConfigureNodeTest, ANodeWithoutAConfigItemHasNoItemsAndTheVectorKeepsWhatItHeld) {
    const ParsedXml with("<Configure><ConfigItem name='a'/></Configure>");
    const ParsedXml without("<Configure><Configure name='b'/><Configitem name='c'/></Configure>");
    const ParsedXml empty("<Configure/>");
    std::vector<ItemPointer> items;
    ASSERT_TRUE(RootOf(with).GetItems(items));

    EXPECT_FALSE(RootOf(without).GetItems(items));
    EXPECT_FALSE(RootOf(empty).GetItems(items));

    EXPECT_EQ(NamesOf(items), "a;");
}

TEST_F(XmlConfigureNodeTest, ItemsAreAppendedToWhatTheVectorHolds) {
    const ParsedXml xml("<Configure><ConfigItem name='a'/><ConfigItem name='b'/></Configure>");
    std::vector<ItemPointer> items;

    EXPECT_TRUE(RootOf(xml).GetItems(items));
    EXPECT_TRUE(RootOf(xml).GetItems(items));

    EXPECT_EQ(NamesOf(items), "a;b;a;b;");
    EXPECT_NE(items[0].operator->(), items[2].operator->());
    EXPECT_EQ(TakenRecords(), 4U);
}

TEST_F(XmlConfigureNodeTest, AVectorThatCollectsTheItemsOfManyNodesGrowsAsItDoesByItself) {
    const ParsedXml xml("<Configure><ConfigItem name='a'/><ConfigItem name='b'/></Configure>");
    std::vector<ItemPointer> items;
    size_t growths = 0;
    for (int i = 0; i < 500; ++i) {
        const size_t room = items.capacity();
        ASSERT_TRUE(RootOf(xml).GetItems(items));
        growths += items.capacity() != room ? 1 : 0;
    }

    EXPECT_EQ(items.size(), 1000U);
    EXPECT_LE(growths, 10U) << "2 doubled to 1,024";
    EXPECT_EQ(TakenRecords(), 1000U);
}

// A vector that grows copies its safe pointers: their destructors may throw, so it does not move them.
TEST_F(XmlConfigureNodeTest, AVectorThatGrowsKeepsEachItemWithOneRecord) {
    std::string text = "<Configure>";
    std::string names;
    for (int i = 0; i < 1000; ++i) {
        text += "<ConfigItem name='" + std::to_string(i) + "'/>";
        names += std::to_string(i) + ";";
    }
    const ParsedXml xml(text + "</Configure>");
    std::vector<ItemPointer> items;

    EXPECT_TRUE(RootOf(xml).GetItems(items));

    EXPECT_EQ(NamesOf(items), names);
    EXPECT_EQ(TakenRecords(), 1000U);
}

TEST_F(XmlConfigureNodeTest, ASearchWithAnExhaustedPoolThrowsAndLeavesTheOutput) {
    const ParsedXml xml("<Configure><Configure name='a'/><Configure name='b'/></Configure>");
    NodePointer out;
    ASSERT_TRUE(RootOf(xml).GetNode("a", out));
    const TakenPool taken(1);

    EXPECT_THROW(static_cast<void>(RootOf(xml).GetNode("b", out)), WyRuntimeError);

    EXPECT_EQ(NameOf(out), "a");
}

TEST_F(XmlConfigureNodeTest, AnExhaustedPoolEndsTheCollectionOfItemsByException) {
    const ParsedXml xml("<Configure><ConfigItem name='a'/><ConfigItem name='b'/><ConfigItem name='c'/></Configure>");
    std::vector<ItemPointer> items;
    std::string message;
    {
        const TakenPool taken(2);
        try {
            static_cast<void>(RootOf(xml).GetItems(items));
        } catch (const WyRuntimeError& error) {
            message = error.what();
        }
    }

    EXPECT_EQ(message, "too much safe poniter");
    EXPECT_EQ(NamesOf(items), "a;b;");
    EXPECT_EQ(TakenRecords(), 2U);
}

TEST_F(XmlConfigureNodeTest, ACopyOfAnEmptyNodePointerIsReportedWithTheNameOfTheClass) {
    const NodePointer empty;
    std::string message;

    const std::string printed = PrintedBy([&] {
        try {
            const NodePointer copy(empty);
        } catch (const WyRuntimeError& error) {
            message = error.what();
        }
    });

    EXPECT_EQ(message, "SafePointer Report:16XmlConfigureNode Construct from NULL <T>pointer");
    EXPECT_EQ(printed, message + "\n");
}

TEST_F(XmlConfigureNodeTest, AnAssignmentOfAnEmptyNodePointerIsReportedWithTheNameOfTheClass) {
    const ParsedXml xml("<Configure><Configure name='a'/></Configure>");
    const NodePointer empty;
    NodePointer target;
    NodePointer held;
    ASSERT_TRUE(RootOf(xml).GetNode("a", held));

    for (NodePointer* assigned : {&target, &held}) {
        std::string message;

        const std::string printed = PrintedBy([&] {
            try {
                *assigned = empty;
            } catch (const WyRuntimeError& error) {
                message = error.what();
            }
        });

        EXPECT_EQ(message, "SafePointer Report:16XmlConfigureNode Assigned NULL <T>pointer");
        EXPECT_EQ(printed, message + "\n");
    }
    EXPECT_EQ(NameOf(held), "a");
}

TEST_F(XmlConfigureNodeTest, ReportsNameTheClassInThePlatformsSpelling) {
    EXPECT_STREQ(typeid(XmlConfigureNode).name(), "16XmlConfigureNode");

    const NodePointer empty;
    testing::internal::CaptureStdout();
    std::string message;
    try {
        std::vector<ItemPointer> items;
        static_cast<void>(empty->GetItems(items));
    } catch (const WyRuntimeError& error) {
        message = error.what();
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "SafePointer Report:16XmlConfigureNode Use NULL pointer ->\n");
    EXPECT_EQ(message, "SafePointer Report:16XmlConfigureNode Use NULL pointer ->");
}
