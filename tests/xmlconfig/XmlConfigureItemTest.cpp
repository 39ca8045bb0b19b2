#include "xmlconfig/XmlConfigureItem.h"

#include "runtime/SafePointer.h"
#include "runtime/WyRuntimeError.h"
#include "tests/support/ParsedXml.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/SafePointerRecords.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>

PRIVATE_MEMBER(ItemElement, XmlConfigureItem, const TiXmlElement*, element);
PRIVATE_MEMBER(ItemCharset, XmlConfigureItem, uint32_t, charset);

static_assert(!std::is_polymorphic_v<XmlConfigureItem>);
static_assert(!std::is_default_constructible_v<XmlConfigureItem>, "an item without an element makes no sense");

TEST(XmlConfigureItemTest, TheFieldsStandInTheirDeclaredOrder) {
    const ParsedXml xml("<a/>");
    const XmlConfigureItem item(xml.root(), 7);

    EXPECT_EQ(OffsetOf(item, Get(ItemElement())), 0U);
    EXPECT_EQ(OffsetOf(item, Get(ItemCharset())), sizeof(void*));
    EXPECT_EQ(item.*Get(ItemElement()), xml.root());
    EXPECT_EQ(item.*Get(ItemCharset()), 7U);
}

TEST(XmlConfigureItemTest, GetIntGivesTheReadersResultAndOutput) {
    const ParsedXml xml("<a number='12abc' word='abc'/>");
    const XmlConfigureItem item(xml.root(), 1);
    int number = 99;
    int word = 99;
    int missing = 99;

    EXPECT_TRUE(item.GetInt("number", number));
    EXPECT_TRUE(item.GetInt("word", word));
    EXPECT_FALSE(item.GetInt("missing", missing));

    EXPECT_EQ(number, 12);
    EXPECT_EQ(word, 0);
    EXPECT_EQ(missing, 0) << "a missing attribute is written as 0 although the read fails";
}

TEST(XmlConfigureItemTest, GetBoolGivesTheReadersResultAndOutput) {
    const ParsedXml xml("<a capitals='TRUE' mixed='False' other='yes'/>");
    const XmlConfigureItem item(xml.root(), 1);
    bool capitals = false;
    bool mixed = true;
    bool other = true;
    bool missing = true;

    EXPECT_TRUE(item.GetBool("capitals", capitals));
    EXPECT_TRUE(item.GetBool("mixed", mixed));
    EXPECT_TRUE(item.GetBool("other", other)) << "any text counts as read";
    EXPECT_FALSE(item.GetBool("missing", missing));

    EXPECT_TRUE(capitals);
    EXPECT_FALSE(mixed);
    EXPECT_TRUE(other);
    EXPECT_TRUE(missing);
}

TEST(XmlConfigureItemTest, GetStringGivesTheReadersResultAndOutput) {
    const ParsedXml xml("<a text='&lt;b&gt;' empty=''/>");
    const XmlConfigureItem item(xml.root(), 1);
    std::string text = "before";
    std::string empty = "before";
    std::string missing = "before";

    EXPECT_TRUE(item.GetString("text", text));
    EXPECT_TRUE(item.GetString("empty", empty));
    EXPECT_FALSE(item.GetString("missing", missing));

    EXPECT_EQ(text, "<b>");
    EXPECT_EQ(empty, "");
    EXPECT_EQ(missing, "before");
}

TEST(XmlConfigureItemTest, ReadsOfAnItemWithoutAnElementFail) {
    const XmlConfigureItem item(nullptr, 1);
    int number = 99;
    bool flag = true;
    std::string text = "before";

    EXPECT_FALSE(item.GetInt("a", number));
    EXPECT_FALSE(item.GetBool("a", flag));
    EXPECT_FALSE(item.GetString("a", text));

    EXPECT_EQ(number, 99);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text, "before");
}

TEST(XmlConfigureItemTest, DeletingAnItemLeavesItsElement) {
    const ParsedXml xml("<a x='1'/>");

    { const SafePointer<XmlConfigureItem> item(new XmlConfigureItem(xml.root(), 1)); }

    EXPECT_STREQ(xml.root()->Attribute("x"), "1");
    EXPECT_EQ(TakenRecords(), 0U);
}

TEST(XmlConfigureItemTest, ReportsNameTheClassInThePlatformsSpelling) {
    EXPECT_STREQ(typeid(XmlConfigureItem).name(), "16XmlConfigureItem");

    const SafePointer<XmlConfigureItem> empty;
    testing::internal::CaptureStdout();
    std::string message;
    try {
        int out = 0;
        static_cast<void>(empty->GetInt("a", out));
    } catch (const WyRuntimeError& error) {
        message = error.what();
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "SafePointer Report:16XmlConfigureItem Use NULL pointer ->\n");
    EXPECT_EQ(message, "SafePointer Report:16XmlConfigureItem Use NULL pointer ->");
    EXPECT_EQ(TakenRecords(), 0U);
}
