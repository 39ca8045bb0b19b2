#include "xmlconfig/XmlConfigureTree.h"

#include "tests/support/PrivateMember.h"
#include "tests/support/Repeated.h"
#include "tests/support/SafePointerRecords.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <tinyxml.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

PRIVATE_MEMBER(TreeDocument, XmlConfigureTree, std::unique_ptr<TiXmlDocument>, document);
PRIVATE_MEMBER(TreeRoot, XmlConfigureTree, TiXmlElement*, root);
PRIVATE_MEMBER(TreeCharset, XmlConfigureTree, uint32_t, charset);
PRIVATE_MEMBER(TreeDetected, XmlConfigureTree, int, DetectedEncoding);
PRIVATE_MEMBER(TreeNodeDocument, XmlConfigureNode, const TiXmlDocument*, document);
PRIVATE_MEMBER(TreeNodeCharset, XmlConfigureNode, uint32_t, charset);

static_assert(!std::is_polymorphic_v<XmlConfigureTree>);
static_assert(!std::is_copy_constructible_v<XmlConfigureTree> && !std::is_copy_assignable_v<XmlConfigureTree>);

namespace {

constexpr const char* Valid = "<Configure name='x'><Configure name='a'/></Configure>";
constexpr std::array<int, 3> AllDetections = {TIXML_ENCODING_UNKNOWN, TIXML_ENCODING_UTF8, TIXML_ENCODING_LEGACY};

// The library's own documents print always.
class UnprintableDocument : public TiXmlDocument {
public:
    bool Accept(TiXmlVisitor* /*visitor*/) const override { return false; }
};

// Leaves a text at one place of the heap's next blocks for `length` bytes and a few more, to be found by whoever reads
// more of such a block than it wrote. Where the heap hands out other blocks it is in nobody's way.
void LeaveInHeap(size_t length, size_t place, const char* text) {
    const std::array<std::unique_ptr<char[]>, 2> blocks = {std::make_unique<char[]>(length + 1),
                                                           std::make_unique<char[]>(length + 4)};
    for (const auto& block : blocks) {
        volatile char* const bytes = block.get(); // or the compiler would leave out what it sees nobody read
        const size_t size = malloc_usable_size(block.get());
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = i >= place && i - place < std::strlen(text) ? text[i - place] : '#';
        }
    }
}

class XmlConfigureTreeTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(TakenRecords(), 0U) << "a node is still held"; }

    static TiXmlDocument& DocumentOf(XmlConfigureTree& tree) { return *(tree.*Get(TreeDocument())); }

    static TiXmlElement* RootOf(XmlConfigureTree& tree) { return tree.*Get(TreeRoot()); }

    static int& DetectedBy(XmlConfigureTree& tree) { return tree.*Get(TreeDetected()); }

    static bool FindsNode(const XmlConfigureTree& tree, const std::string& name) {
        SafePointer<XmlConfigureNode> node;
        return tree.FindNode(name, node);
    }

    static std::string Nested(size_t depth) {
        return "<Configure name='x'>" + Repeated("<a>", depth - 1) + Repeated("</a>", depth - 1) + "</Configure>";
    }

    static std::string Printed(XmlConfigureTree& tree) {
        std::string out = "before";
        EXPECT_TRUE(tree.PrintToString(out));
        return out;
    }

    // A document that the tree cleared and refused: nothing is left to search or print.
    static void ExpectCleared(XmlConfigureTree& tree) {
        EXPECT_EQ(DocumentOf(tree).FirstChild(), nullptr);
        EXPECT_TRUE(DocumentOf(tree).Error());
        EXPECT_EQ(RootOf(tree), nullptr);
    }
};

} // namespace

TEST_F(XmlConfigureTreeTest, TheFieldsStandInTheirDeclaredOrder) {
    XmlConfigureTree tree;

    EXPECT_EQ(OffsetOf(tree, Get(TreeDocument())), 0U);
    EXPECT_EQ(OffsetOf(tree, Get(TreeRoot())), sizeof(void*));
    EXPECT_EQ(OffsetOf(tree, Get(TreeCharset())), 2 * sizeof(void*));
    EXPECT_EQ(OffsetOf(tree, Get(TreeDetected())), 2 * sizeof(void*) + sizeof(uint32_t));
}

TEST_F(XmlConfigureTreeTest, ANewTreeHoldsAnEmptyDocument) {
    XmlConfigureTree tree;

    EXPECT_EQ(DocumentOf(tree).FirstChild(), nullptr);
    EXPECT_EQ(RootOf(tree), nullptr);
    EXPECT_EQ(tree.*Get(TreeCharset()), 1U);
    EXPECT_EQ(DetectedBy(tree), TIXML_ENCODING_UNKNOWN);
    EXPECT_FALSE(tree.IsUtf8());
    EXPECT_FALSE(FindsNode(tree, "a"));
}

TEST_F(XmlConfigureTreeTest, ASuccessfulParseStoresTheCharset) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseText(Valid, 7));

    EXPECT_EQ(tree.*Get(TreeCharset()), 7U);
}

TEST_F(XmlConfigureTreeTest, AFailedParseLeavesTheCharset) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseText(Valid, 7));

    EXPECT_FALSE(tree.ParseText("<a>", 8));
    EXPECT_FALSE(tree.ParseText("", 8));
    EXPECT_FALSE(tree.ParseText(Nested(5001), 8));

    EXPECT_EQ(tree.*Get(TreeCharset()), 7U);
}

TEST_F(XmlConfigureTreeTest, AParseThatOnlyLearnsTheEncodingSetsNoRoot) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseText(Valid, 1));

    EXPECT_EQ(RootOf(tree), nullptr);
    EXPECT_FALSE(FindsNode(tree, "a"));
}

TEST_F(XmlConfigureTreeTest, TheDeclarationDecidesWhetherATextIsUtf8) {
    struct Case {
        const char* text;
        int detected;
    };
    const std::vector<Case> cases = {
        {"<?xml version='1.0' encoding='utf-8'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding='UTF-8'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding='uTf-8'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding='UTF8'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding='utf8'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding=''?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0'?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml?><a/>", TIXML_ENCODING_UTF8},
        {"<?XML ENCODING=utf-8 ?><a/>", TIXML_ENCODING_UTF8},
        {"<?xml version='1.0' encoding='UTF-8859'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='UTF-8 '?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding=' utf-8'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='UTF'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='UTF-16'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='gb2312'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='GBK'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='\xC3\xBCtf-8'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='gb2312'?><?xml encoding='utf-8'?><a/>", TIXML_ENCODING_LEGACY},
        {"<?xml version='1.0' encoding='utf-8'?><?xml encoding='gb2312'?><a/>", TIXML_ENCODING_UTF8},
        {"<!-- c --><?xml version='1.0' encoding='gb2312'?><a/>", TIXML_ENCODING_LEGACY},
        {"<a/><?xml version='1.0' encoding='utf-8'?>", TIXML_ENCODING_UTF8},
        {"<a><?xml encoding='gb2312'?></a><?xml encoding='utf-8'?>", TIXML_ENCODING_UTF8},
        {"\n <?xml version='1.0' encoding='gb2312'?><a/>", TIXML_ENCODING_LEGACY},
    };
    for (const Case& c : cases) {
        for (const int before : AllDetections) {
            XmlConfigureTree tree;
            DetectedBy(tree) = before;

            EXPECT_TRUE(tree.ParseText(c.text, 1)) << c.text;

            EXPECT_EQ(DetectedBy(tree), c.detected) << c.text;
            EXPECT_EQ(tree.IsUtf8(), c.detected == TIXML_ENCODING_UTF8) << c.text;
        }
    }
}

TEST_F(XmlConfigureTreeTest, ATextWithoutATopLevelDeclarationLeavesTheDetectedEncoding) {
    for (const char* text : {"<a/>", "<!-- <?xml encoding='gb2312'?> --><a/>", "<a><?xml encoding='utf-8'?></a>",
                             "<![CDATA[<?xml encoding='utf-8'?>]]><a/>", "<!DOCTYPE a><a b=\"<?xml?>\"/>"}) {
        for (const int before : AllDetections) {
            XmlConfigureTree tree;
            DetectedBy(tree) = before;

            EXPECT_TRUE(tree.ParseText(text, 1)) << text;

            EXPECT_EQ(DetectedBy(tree), before) << text;
        }
    }
}

TEST_F(XmlConfigureTreeTest, AByteOrderMarkLeavesTheDetectedEncodingWhateverTheDeclarationSays) {
    for (const char* encoding : {"utf-8", "gb2312", ""}) {
        for (const int before : AllDetections) {
            XmlConfigureTree tree;
            DetectedBy(tree) = before;

            EXPECT_TRUE(tree.ParseText("\xEF\xBB\xBF<?xml encoding='" + std::string(encoding) + "'?><a/>", 1));

            EXPECT_EQ(DetectedBy(tree), before) << encoding;
        }
    }
}

TEST_F(XmlConfigureTreeTest, ADeclarationDecidesAlsoWhenTheParseFailsBehindIt) {
    for (const char* behind : {"<a>", "<a></b>", "<a x='1' x='2'/>", "<a>&#xZZ;</a>", "<a x='", "<a>\xE5"}) {
        XmlConfigureTree utf8;
        XmlConfigureTree legacy;

        EXPECT_FALSE(utf8.ParseText("<?xml encoding='utf-8'?>" + std::string(behind), 1)) << behind;
        EXPECT_FALSE(legacy.ParseText("<?xml encoding='gbk'?>" + std::string(behind), 1)) << behind;

        EXPECT_EQ(DetectedBy(utf8), TIXML_ENCODING_UTF8) << behind;
        EXPECT_EQ(DetectedBy(legacy), TIXML_ENCODING_LEGACY) << behind;
    }
}

TEST_F(XmlConfigureTreeTest, ADeclarationBehindTheErrorDoesNotDecide) {
    XmlConfigureTree tree;

    EXPECT_FALSE(tree.ParseText("<a></b><?xml encoding='utf-8'?>", 1));

    EXPECT_EQ(DetectedBy(tree), TIXML_ENCODING_UNKNOWN);
}

TEST_F(XmlConfigureTreeTest, AnEmptyTextLeavesTheDetectedEncoding) {
    for (const int before : AllDetections) {
        XmlConfigureTree tree;
        DetectedBy(tree) = before;

        EXPECT_FALSE(tree.ParseText("", 1));
        EXPECT_FALSE(tree.ParseText(std::string("\0<?xml encoding='utf-8'?><a/>", 29), 1));

        EXPECT_EQ(DetectedBy(tree), before);
    }
}

TEST_F(XmlConfigureTreeTest, AParseWithAGivenEncodingLeavesTheDetectedEncoding) {
    for (const int before : AllDetections) {
        for (const uint32_t charset : {0U, 1U, 2U}) {
            XmlConfigureTree tree;
            DetectedBy(tree) = before;

            EXPECT_TRUE(tree.ParseAndValidate("<?xml encoding='utf-8'?><Configure name=''/>", charset));
            EXPECT_TRUE(tree.ParseAndValidate("<?xml encoding='gbk'?><Configure name=''/>", charset));

            EXPECT_EQ(DetectedBy(tree), before);
        }
    }
}

TEST_F(XmlConfigureTreeTest, TheDetectedEncodingSticksFromParseToParse) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseText("<?xml encoding='utf-8'?><a/>", 1));

    EXPECT_TRUE(tree.ParseText("<a/>", 1));
    EXPECT_TRUE(tree.ParseAndValidate(Valid, 1));
    EXPECT_FALSE(tree.ParseText("", 1));
    EXPECT_TRUE(tree.IsUtf8());

    EXPECT_TRUE(tree.ParseText("<?xml encoding='gb2312'?><a/>", 1));
    EXPECT_TRUE(tree.ParseText("<a/>", 1));
    EXPECT_FALSE(tree.IsUtf8());
}

TEST_F(XmlConfigureTreeTest, AParseDeletesWhatTheDocumentHeld) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));

    EXPECT_TRUE(tree.ParseAndValidate("<Configure name='y'><Configure name='b'/></Configure>", 1));

    EXPECT_EQ(DocumentOf(tree).FirstChild(), DocumentOf(tree).LastChild());
    EXPECT_FALSE(FindsNode(tree, "a"));
    EXPECT_TRUE(FindsNode(tree, "b"));
}

TEST_F(XmlConfigureTreeTest, AnErrorIsForgottenByTheNextParse) {
    XmlConfigureTree tree;
    ASSERT_FALSE(tree.ParseAndValidate("<a>", 1));
    EXPECT_TRUE(tree.ParseAndValidate(Valid, 1));
    ASSERT_FALSE(tree.ParseAndValidate(Nested(5001), 1));
    EXPECT_TRUE(tree.ParseAndValidate(Valid, 1));

    EXPECT_FALSE(DocumentOf(tree).Error());
    EXPECT_TRUE(FindsNode(tree, "a"));
}

TEST_F(XmlConfigureTreeTest, AnEmptyTextIsAnErrorOfTheDocument) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));

    EXPECT_FALSE(tree.ParseText("", 1));

    ExpectCleared(tree);
    EXPECT_EQ(DocumentOf(tree).ErrorId(), TiXmlBase::TIXML_ERROR_DOCUMENT_EMPTY);
}

TEST_F(XmlConfigureTreeTest, ATextThatStartsWithAZeroByteIsEmpty) {
    XmlConfigureTree tree;

    EXPECT_FALSE(tree.ParseText(std::string("\0<a/>", 5), 1));

    EXPECT_EQ(DocumentOf(tree).ErrorId(), TiXmlBase::TIXML_ERROR_DOCUMENT_EMPTY);
}

TEST_F(XmlConfigureTreeTest, ATextEndsAtItsFirstZeroByte) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseAndValidate(std::string(Valid) + std::string("\0</b>", 5), 1));
    EXPECT_FALSE(tree.ParseAndValidate(std::string("<Configure name='x'>\0</Configure>", 33), 1));
}

TEST_F(XmlConfigureTreeTest, LineEndsOfEveryKindBecomeLineFeeds) {
    XmlConfigureTree tree;

    ASSERT_TRUE(tree.ParseAndValidate("<Configure\r\nname='a\r\nb\rc\nd\r\re\r\r\nf\n\rg\r'\r/>\r", 1));

    EXPECT_STREQ(RootOf(tree)->Attribute("name"), "a\nb\nc\nd\n\ne\n\nf\n\ng\n");
}

TEST_F(XmlConfigureTreeTest, TheRootIsTheFirstElementOfTheDocument) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseAndValidate("<?xml?><!-- c --><!DOCTYPE a><Configure name='1'/><Configure name='2'/>", 1));

    EXPECT_STREQ(RootOf(tree)->Attribute("name"), "1");
}

TEST_F(XmlConfigureTreeTest, ARootWithAnyNameIsValid) {
    for (const char* text : {"<Configure name='x'/>", "<Configure name=''/>", "<Configure a='1' name='&lt;'/>"}) {
        XmlConfigureTree tree;

        EXPECT_TRUE(tree.ParseAndValidate(text, 1)) << text;
    }
}

// Whoever ignores the failure can still search beneath such a root.
TEST_F(XmlConfigureTreeTest, ARootThatFailsTheChecksStaysSet) {
    for (const char* text :
         {"<configure name='x'><Configure name='a'/></configure>",
          "<CONFIGURE name='x'><Configure name='a'/></CONFIGURE>",
          "<Configur name='x'><Configure name='a'/></Configur>",
          "<Configures name='x'><Configure name='a'/></Configures>", "<Config name='x'><Configure name='a'/></Config>",
          "<Configure><Configure name='a'/></Configure>", "<Configure Name='x'><Configure name='a'/></Configure>"}) {
        XmlConfigureTree tree;

        EXPECT_FALSE(tree.ParseAndValidate(text, 1)) << text;

        EXPECT_EQ(RootOf(tree), DocumentOf(tree).RootElement()) << text;
        EXPECT_TRUE(FindsNode(tree, "a")) << text;
    }
}

TEST_F(XmlConfigureTreeTest, ATextWithoutAnElementHasNoRoot) {
    for (const char* text : {"<!-- c -->", "<?xml version='1.0'?>", "<!DOCTYPE a>"}) {
        XmlConfigureTree tree;
        ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));

        EXPECT_FALSE(tree.ParseAndValidate(text, 1)) << text;

        EXPECT_EQ(RootOf(tree), nullptr) << text;
        EXPECT_FALSE(FindsNode(tree, "a")) << text;
    }
}

TEST_F(XmlConfigureTreeTest, ATextThatDoesNotParseLeavesNoRootOfAnEarlierOne) {
    for (const char* text : {"", "text", "<a>", "<Configure name='x'>", "<Configure name='x'></b>"}) {
        for (const bool validate : {false, true}) {
            XmlConfigureTree tree;
            ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));
            ASSERT_TRUE(FindsNode(tree, "a"));

            EXPECT_FALSE(validate ? tree.ParseAndValidate(text, 1) : tree.ParseText(text, 1)) << text;

            EXPECT_EQ(RootOf(tree), nullptr) << text;
            EXPECT_FALSE(FindsNode(tree, "a")) << text;
        }
    }
}

// As UTF-8 the byte E5 takes the two behind it along, the quote too; bytewise the quote ends the value.
TEST_F(XmlConfigureTreeTest, ATextIsParsedAsUtf8ForCharsetOneAndBytewiseForEveryOther) {
    const std::string text = "<?xml encoding='utf-8'?><Configure name='\xE5' b=''/>";
    for (const uint32_t charset : {0U, 2U, 3U, 99U}) {
        XmlConfigureTree tree;

        EXPECT_TRUE(tree.ParseAndValidate(text, charset)) << charset;

        EXPECT_STREQ(RootOf(tree)->Attribute("name"), "\xE5") << charset;
    }
    XmlConfigureTree tree;

    EXPECT_FALSE(tree.ParseAndValidate(text, 1));
}

TEST_F(XmlConfigureTreeTest, ATextWithoutADeclarationIsParsedBytewiseToLearnItsEncoding) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseText("<a b='\xE5' c=''/>", 1));
    EXPECT_FALSE(tree.ParseText("<?xml encoding='utf-8'?><a b='\xE5' c=''/>", 1));
}

// The library asks for no end of a comment: it reads one to the zero byte behind the text.
TEST_F(XmlConfigureTreeTest, ACommentThatIsNotClosedEndsWithTheText) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseAndValidate("<Configure name='x'/><!--abc", 1));

    EXPECT_EQ(Printed(tree), "<Configure name=\"x\" />\n<!--abc-->\n");
}

TEST_F(XmlConfigureTreeTest, ThePositionsOfElementsAreNotKept) {
    XmlConfigureTree tree;

    ASSERT_TRUE(tree.ParseAndValidate("\n <Configure name='x'/>", 1));

    EXPECT_EQ(RootOf(tree)->Row(), 1) << "and not the second row";
    EXPECT_EQ(RootOf(tree)->Column(), 1) << "and not its second column";
}

// The parser steps over a sequence by the length that its first byte promises: up to three bytes beyond the text. Left
// behind in the heap, where it would go on, is what would close the element. A build of the library with an address
// sanitizer sees every other byte too many.
TEST_F(XmlConfigureTreeTest, ATextThatEndsInsideAUtf8SequenceIsReadNoFurther) {
    struct Cut {
        const char* bytes;
        size_t promised;
    };
    struct Case {
        const char* before;
        const char* behind; // would be read as a part of it
        bool parses;
        bool hasRoot;
    };
    const std::vector<Cut> cuts = {{"\xC3", 2}, {"\xE5", 3},     {"\xE5\x8D", 3},
                                   {"\xF0", 4}, {"\xF0\x9F", 4}, {"\xF0\x9F\x98", 4}};
    const std::vector<Case> cases = {
        {"<Configure name='x'>", "</Configure>", false, false},
        {"<Configure name='x'>text", "</Configure>", false, false},
        {"<Configure name='", "'/>", false, false},
        {"<Configure name=\"text", "\"/>", false, false},
        {"<Configure name=", "/>", false, false},
        {"<Configure name='x'><", "/></Configure>", false, false},
        {"<Configure ", "='' name=''/>", false, false},
        {"<Configure name='x'/><a", "/>", false, false},
        {"<Configure name='x'><a b", "/>", false, false},
        {"<Configure name='x'/><!--", "<", true, true}, // the library asks for no end of a comment
        {"<Configure name='x'><![CDATA[", "]]></Configure>", false, false},
        {"<?xml encoding='", "'?><Configure name=''/>", true, false},
        {"<!", "><Configure name=''/>", true, false},
        {"<?xml?>", "<Configure name=''/>", true, false},
        {"", "<Configure name=''/>", false, false},
        {"<", "/>", false, false},
    };
    for (const Cut& cut : cuts) {
        for (const Case& c : cases) {
            // All lengths modulo 16, so that the end of the memory is met whatever its rounding.
            for (size_t blanks = 0; blanks < 16; ++blanks) {
                for (const char* declaration : {"", "<?xml encoding='utf-8'?>", "<?xml encoding='gbk'?>"}) {
                    const std::string text = declaration + std::string(blanks, '\n') + c.before + cut.bytes;
                    const size_t next = text.size() - std::strlen(cut.bytes) + cut.promised;
                    XmlConfigureTree learning;
                    XmlConfigureTree utf8;
                    XmlConfigureTree bytewise;

                    LeaveInHeap(text.size(), next, c.behind);
                    const bool learned = learning.ParseText(text, 1);
                    LeaveInHeap(text.size(), next, c.behind);
                    const bool validUtf8 = utf8.ParseAndValidate(text, 1);
                    LeaveInHeap(text.size(), next, c.behind);
                    const bool validBytewise = bytewise.ParseAndValidate(text, 0);

                    // A declaration alone is a document, nothing at all is none.
                    ASSERT_EQ(learned, c.parses || (*c.before == '\0' && *declaration != '\0'))
                        << testing::PrintToString(text);
                    ASSERT_EQ(validUtf8, c.hasRoot) << testing::PrintToString(text);
                    ASSERT_EQ(validBytewise, c.hasRoot) << testing::PrintToString(text);
                }
            }
        }
    }
}

TEST_F(XmlConfigureTreeTest, ATextWhoseRootIsCutInsideAUtf8SequenceDoesNotParse) {
    for (const char* cut : {"\xC3", "\xE5", "\xE5\x8D", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
        for (const char* before : {"<Configure name='x'>", "<Configure name='", "<Configure name='x'><a"}) {
            const std::string text = std::string("<?xml encoding='utf-8'?>") + before + cut;
            XmlConfigureTree tree;

            EXPECT_FALSE(tree.ParseText(text, 1)) << before;
            EXPECT_FALSE(tree.ParseAndValidate(text, 1)) << before;
            EXPECT_FALSE(tree.ParseAndValidate(text, 0)) << before;

            EXPECT_EQ(RootOf(tree), nullptr) << before;
        }
    }
}

TEST_F(XmlConfigureTreeTest, ATextThatNestsFiveThousandDeepParses) {
    XmlConfigureTree tree;

    EXPECT_TRUE(tree.ParseText(Nested(5000), 1));
    EXPECT_TRUE(tree.ParseAndValidate(Nested(5000), 1));
    EXPECT_TRUE(tree.ParseAndValidate(Nested(5000), 0));

    EXPECT_NE(RootOf(tree), nullptr);
}

TEST_F(XmlConfigureTreeTest, ATextThatNestsDeeperIsRefusedAndLeavesTheDocumentClearedInErrorAndWithoutARoot) {
    for (const size_t depth : {size_t{5001}, size_t{1000000}}) {
        XmlConfigureTree tree;
        ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));
        EXPECT_FALSE(tree.ParseText(Nested(depth), 1));
        ExpectCleared(tree);

        ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));
        EXPECT_FALSE(tree.ParseAndValidate(Nested(depth), 1));
        ExpectCleared(tree);

        ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));
        EXPECT_FALSE(tree.ParseAndValidate(Nested(depth), 0));
        ExpectCleared(tree);

        EXPECT_FALSE(FindsNode(tree, "a"));
        EXPECT_EQ(Printed(tree), "");
    }
}

TEST_F(XmlConfigureTreeTest, ARefusedTextIsInErrorAlsoWhenTheDocumentWasInErrorBefore) {
    XmlConfigureTree tree;
    ASSERT_FALSE(tree.ParseText("", 1));

    EXPECT_FALSE(tree.ParseText(Nested(5001), 1));

    ExpectCleared(tree);
    EXPECT_EQ(DocumentOf(tree).ErrorId(), TiXmlBase::TIXML_ERROR_PARSING_ELEMENT);
}

TEST_F(XmlConfigureTreeTest, ATextRefusedForItsDepthLeavesTheDetectedEncoding) {
    for (const char* declared : {"utf-8", "gb2312"}) {
        for (const int before : AllDetections) {
            XmlConfigureTree tree;
            DetectedBy(tree) = before;

            EXPECT_FALSE(tree.ParseText("<?xml encoding='" + std::string(declared) + "'?>" + Nested(5001), 1));

            EXPECT_EQ(DetectedBy(tree), before) << declared;
        }
    }
}

TEST_F(XmlConfigureTreeTest, CreateEmptyAppendsADeclarationAndARoot) {
    XmlConfigureTree tree;

    tree.CreateEmpty("the name");

    ASSERT_NE(RootOf(tree), nullptr);
    EXPECT_EQ(RootOf(tree), DocumentOf(tree).RootElement());
    EXPECT_EQ(Printed(tree), "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                             "<Configure name=\"the name\" />\n");
}

TEST_F(XmlConfigureTreeTest, CreateEmptyAppendsToWhatTheDocumentHolds) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate("<Configure name='old'/>", 1));

    tree.CreateEmpty("new");

    EXPECT_STREQ(RootOf(tree)->Attribute("name"), "new") << "the new root is the tree's";
    EXPECT_EQ(Printed(tree), "<Configure name=\"old\" />\n"
                             "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                             "<Configure name=\"new\" />\n");
}

TEST_F(XmlConfigureTreeTest, ADocumentIsPrintedWithATabALevelAndLineFeeds) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate("<Configure name='x'><Configure name='a'><ConfigItem b=\"'\" c='\"&lt;&amp;'/>"
                                      "</Configure><!--c--><d>t</d></Configure>",
                                      1));

    EXPECT_EQ(Printed(tree), "<Configure name=\"x\">\n"
                             "\t<Configure name=\"a\">\n"
                             "\t\t<ConfigItem b=\"&apos;\" c='&quot;&lt;&amp;' />\n"
                             "\t</Configure>\n"
                             "\t<!--c-->\n"
                             "\t<d>t</d>\n"
                             "</Configure>\n");
}

TEST_F(XmlConfigureTreeTest, PrintingGivesTheDeclarationUtf8AndKeepsItsOtherValues) {
    XmlConfigureTree tree;
    ASSERT_TRUE(
        tree.ParseAndValidate("<?xml version='1.1' encoding='gb2312' standalone='yes'?><Configure name=''/>", 1));
    TiXmlNode* const first = DocumentOf(tree).FirstChild();

    EXPECT_EQ(Printed(tree),
              "<?xml version=\"1.1\" encoding=\"utf-8\" standalone=\"yes\" ?>\n<Configure name=\"\" />\n");

    ASSERT_EQ(DocumentOf(tree).FirstChild(), first);
    ASSERT_NE(first->ToDeclaration(), nullptr);
    EXPECT_STREQ(first->ToDeclaration()->Encoding(), "utf-8");
    EXPECT_EQ(first->NextSibling(), RootOf(tree));
}

TEST_F(XmlConfigureTreeTest, PrintingADeclarationWithoutValuesAddsTheEncodingAlone) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate("<?xml?><Configure name=''/>", 1));

    EXPECT_EQ(Printed(tree), "<?xml encoding=\"utf-8\" ?>\n<Configure name=\"\" />\n");
}

TEST_F(XmlConfigureTreeTest, PrintingLeavesAFirstChildThatIsNoDeclaration) {
    XmlConfigureTree none;
    ASSERT_TRUE(none.ParseAndValidate("<Configure name=''/>", 1));
    XmlConfigureTree later;
    ASSERT_TRUE(later.ParseAndValidate("<!--c--><?xml version='1.0' encoding='gb2312'?><Configure name=''/>", 1));

    EXPECT_EQ(Printed(none), "<Configure name=\"\" />\n");
    EXPECT_EQ(Printed(later), "<!--c-->\n<?xml version=\"1.0\" encoding=\"gb2312\" ?>\n<Configure name=\"\" />\n");
}

TEST_F(XmlConfigureTreeTest, AnEmptyDocumentIsPrintedAsAnEmptyText) {
    XmlConfigureTree tree;

    EXPECT_EQ(Printed(tree), "");
}

TEST_F(XmlConfigureTreeTest, APrintThatTheLibraryRefusesLeavesTheOutput) {
    XmlConfigureTree tree;
    tree.*Get(TreeDocument()) = std::make_unique<UnprintableDocument>();
    std::string out = "before";

    EXPECT_FALSE(tree.PrintToString(out));

    EXPECT_EQ(out, "before");
}

TEST_F(XmlConfigureTreeTest, AFoundNodeCarriesTheTreesDocumentAndCharset) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseText(Valid, 7));
    ASSERT_TRUE(tree.ParseAndValidate(Valid, 7));
    SafePointer<XmlConfigureNode> node;

    ASSERT_TRUE(tree.FindNode("a", node));

    EXPECT_EQ(node.operator->()->*Get(TreeNodeDocument()), &DocumentOf(tree));
    EXPECT_EQ(node.operator->()->*Get(TreeNodeCharset()), 7U);
}

TEST_F(XmlConfigureTreeTest, ASearchThatFindsNothingLeavesTheOutput) {
    XmlConfigureTree tree;
    ASSERT_TRUE(tree.ParseAndValidate(Valid, 1));
    SafePointer<XmlConfigureNode> node;
    ASSERT_TRUE(tree.FindNode("a", node));
    const XmlConfigureNode* const before = node.operator->();

    EXPECT_FALSE(tree.FindNode("b", node));
    EXPECT_EQ(node.operator->(), before);

    const XmlConfigureTree empty;
    EXPECT_FALSE(empty.FindNode("a", node));
    EXPECT_EQ(node.operator->(), before);
}
