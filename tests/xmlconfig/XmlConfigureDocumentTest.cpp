#include "xmlconfig/XmlConfigureDocument.h"

#include "runtime/SafePointer.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/SafePointerRecords.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/XmlConfigureTree.h"

#include <gtest/gtest.h>

#include <tinyxml.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

PRIVATE_MEMBER(DocumentTree, XmlConfigureDocument, std::unique_ptr<XmlConfigureTree>, tree);
PRIVATE_MEMBER(DocumentXml, XmlConfigureTree, std::unique_ptr<TiXmlDocument>, document);
PRIVATE_MEMBER(DocumentLoaded, XmlConfigureDocument, bool, loaded);
PRIVATE_MEMBER(DocumentCharset, XmlConfigureDocument, uint32_t, charset);
PRIVATE_MEMBER(DocumentMode, XmlConfigureDocument, uint32_t, mode);
PRIVATE_MEMBER(DocumentPath, XmlConfigureDocument, std::string, path);
PRIVATE_MEMBER(DocumentName, XmlConfigureDocument, std::string, name);

static_assert(!std::is_polymorphic_v<XmlConfigureDocument>);
static_assert(!std::is_copy_constructible_v<XmlConfigureDocument>);
static_assert(!std::is_copy_assignable_v<XmlConfigureDocument>);
static_assert(std::is_same_v<std::underlying_type_t<XmlOpenMode>, uint32_t>);
static_assert(ReadOnly == 1 && ReadWrite == 2 && Create == 3);

namespace {

constexpr unsigned Gb2312 = 0;
constexpr unsigned Utf8 = 1;
constexpr unsigned Gbk = 2;
constexpr unsigned Utf16 = 3;

// "xie yi", protocol: in GB2312 and GBK, and in UTF-8.
constexpr const char* WordGb = "\xD0\xAD\xD2\xE9";
constexpr const char* WordUtf8 = "\xE5\x8D\x8F\xE8\xAE\xAE";
// "rong", a character of GBK that GB2312 lacks.
constexpr const char* RareGbk = "\xE9\x46";
constexpr const char* RareUtf8 = "\xE9\x95\x95";

constexpr const char* DeclaredUtf8 = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n";
constexpr const char* DeclaredGb2312 = "<?xml version=\"1.0\" encoding=\"GB2312\" ?>\n";
constexpr const char* DeclaredGbk = "<?xml version=\"1.0\" encoding=\"gbk\" ?>\n";
constexpr const char* EmptyDocument = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                      "<Configure name=\"HardwareConfig\" />\n";

// The library's own documents print always.
class UnprintableDocument : public TiXmlDocument {
public:
    bool Accept(TiXmlVisitor* /*visitor*/) const override { return false; }
};

// While one of these lives the conversion library opens no descriptor; the linker leads its calls here.
struct NoConversion {
    NoConversion() { active = true; }
    ~NoConversion() { active = false; }
    NoConversion(const NoConversion&) = delete;
    NoConversion& operator=(const NoConversion&) = delete;

    static inline bool active = false;
};

} // namespace

extern "C" {

void* __real_libiconv_open(const char* to, const char* from);

void* __wrap_libiconv_open(const char* to, const char* from) {
    return NoConversion::active ? reinterpret_cast<void*>(-1) : __real_libiconv_open(to, from);
}

} // extern "C"

namespace {

class XmlConfigureDocumentTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(TakenRecords(), 0U) << "a node or an item is still held"; }

    // A document in the printer's own form, so that a save without a change gives the same bytes.
    static std::string Body(const std::string& word) {
        return "<Configure name=\"root\">\n\t<Configure name=\"section\">\n\t\t<ConfigItem word=\"" + word +
               "\" />\n\t</Configure>\n</Configure>\n";
    }

    // The item's value, or what went wrong on the way to it.
    static std::string WordOf(const XmlConfigureDocument& document) {
        SafePointer<XmlConfigureNode> section;
        std::vector<SafePointer<XmlConfigureItem>> items;
        if (!document.GetNode("section", section)) {
            return "no section";
        }
        if (!section->GetItems(items)) {
            return "no item";
        }
        std::string word = "no word";
        static_cast<void>(items[0]->GetString("word", word));
        return word;
    }

    // What a new document gives for a file of these bytes.
    std::string LoadedWord(const std::string& content, unsigned charset) const {
        XmlConfigureDocument document;
        return document.Load(dir.write("word.xml", content), charset, ReadOnly) ? WordOf(document) : "not loaded";
    }

    // The bytes that a load for writing and a save make of a file's bytes.
    std::string Saved(const std::string& content, unsigned charset) const {
        const std::string path = dir.write("saved.xml", content);
        XmlConfigureDocument document;
        EXPECT_TRUE(document.Load(path, charset, ReadWrite));
        EXPECT_TRUE(document.Save());
        return ReadWholeFile(path);
    }

    bool Loads(const std::string& content, unsigned charset = Utf8) const {
        XmlConfigureDocument document;
        return document.Load(dir.write("file.xml", content), charset, ReadOnly);
    }

    static bool LoadedFlag(XmlConfigureDocument& document) { return document.*Get(DocumentLoaded()); }

    static void MakeUnprintable(XmlConfigureDocument& document) {
        XmlConfigureTree& tree = *(document.*Get(DocumentTree()));
        tree.*Get(DocumentXml()) = std::make_unique<UnprintableDocument>();
    }

    static std::string Nested(size_t depth) {
        std::string text;
        for (size_t i = 1; i < depth; ++i) {
            text += "<a>";
        }
        for (size_t i = 1; i < depth; ++i) {
            text += "</a>";
        }
        return "<Configure name='x'>" + text + "</Configure>";
    }

    const TemporaryDirectory dir;
};

} // namespace

TEST_F(XmlConfigureDocumentTest, TheFieldsStandInTheirDeclaredOrder) {
    const XmlConfigureDocument document;
    const std::array<size_t, 6> offsets = {
        OffsetOf(document, Get(DocumentTree())),    OffsetOf(document, Get(DocumentLoaded())),
        OffsetOf(document, Get(DocumentCharset())), OffsetOf(document, Get(DocumentMode())),
        OffsetOf(document, Get(DocumentPath())),    OffsetOf(document, Get(DocumentName()))};

    EXPECT_EQ(offsets[0], 0U);
    for (size_t i = 1; i < offsets.size(); ++i) {
        EXPECT_LT(offsets[i - 1], offsets[i]) << i;
    }
}

TEST_F(XmlConfigureDocumentTest, ANewDocumentIsNotLoadedAndHasNoNodes) {
    const XmlConfigureDocument document;
    SafePointer<XmlConfigureNode> node;

    EXPECT_NE(document.*Get(DocumentTree()), nullptr);
    EXPECT_FALSE(document.*Get(DocumentLoaded()));
    EXPECT_EQ(document.*Get(DocumentCharset()), 0U);
    EXPECT_EQ(document.*Get(DocumentMode()), 1U);
    EXPECT_EQ(document.*Get(DocumentPath()), "");
    EXPECT_EQ(document.*Get(DocumentName()), "HardwareConfig");
    EXPECT_FALSE(document.GetNode("a", node));
}

TEST_F(XmlConfigureDocumentTest, ASuccessfulLoadStoresWhatItWasGiven) {
    const std::string path = dir.write("file.xml", std::string(DeclaredUtf8) + Body("x"));
    XmlConfigureDocument document;

    EXPECT_TRUE(document.Load(path, Gbk, ReadWrite));

    EXPECT_TRUE(LoadedFlag(document));
    EXPECT_EQ(document.*Get(DocumentCharset()), Gbk);
    EXPECT_EQ(document.*Get(DocumentMode()), ReadWrite);
    EXPECT_EQ(document.*Get(DocumentPath()), path);
    EXPECT_EQ(document.*Get(DocumentName()), "HardwareConfig");
}

// Character sets

// The lone lead byte D0 is valid in neither set: a conversion would cut the text there.
TEST_F(XmlConfigureDocumentTest, ADeclaredUtf8FileLoadedAsUtf8IsParsedAsItIs) {
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body(WordUtf8), Utf8), WordUtf8);
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body("\xD0 x"), Utf8), "\xD0 x");
}

TEST_F(XmlConfigureDocumentTest, ADeclaredGb2312FileLoadedAsUtf8IsConverted) {
    EXPECT_EQ(LoadedWord(DeclaredGb2312 + Body(WordGb), Utf8), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AFileThatDeclaresAnotherEncodingIsTakenAsGb2312) {
    for (const char* encoding : {"gbk", "GB18030", "iso-8859-1", "UTF-8859", "utf-16", "x"}) {
        const std::string declaration = "<?xml version='1.0' encoding='" + std::string(encoding) + "'?>";

        EXPECT_EQ(LoadedWord(declaration + Body(WordGb), Utf8), WordUtf8) << encoding;
    }
}

TEST_F(XmlConfigureDocumentTest, AFileWithAnEmptyOrMissingEncodingIsTakenAsUtf8) {
    EXPECT_EQ(LoadedWord("<?xml version='1.0'?>" + Body(WordUtf8), Utf8), WordUtf8);
    EXPECT_EQ(LoadedWord("<?xml version='1.0' encoding=''?>" + Body(WordUtf8), Utf8), WordUtf8);
    EXPECT_EQ(LoadedWord("<?xml version='1.0' encoding='UTF8'?>" + Body(WordUtf8), Utf8), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AFileWithoutADeclarationLoadedAsUtf8IsConvertedFromGb2312) {
    EXPECT_EQ(LoadedWord(Body(WordGb), Utf8), WordUtf8);
    EXPECT_EQ(LoadedWord(Body(RareUtf8), Utf8), "not loaded") << "these bytes are cut as GB2312";
}

// Taken as GB2312 the mark is a character and a half: what is left is text in front of the root, which does not parse.
TEST_F(XmlConfigureDocumentTest, AFileWithAByteOrderMarkLoadedAsUtf8IsTakenAsGb2312AllTheSame) {
    EXPECT_EQ(LoadedWord("\xEF\xBB\xBF" + Body("x"), Utf8), "not loaded");
    EXPECT_EQ(LoadedWord(std::string("\xEF\xBB\xBF") + DeclaredUtf8 + Body(WordUtf8), Utf8), "not loaded");
    EXPECT_EQ(LoadedWord(std::string("\xEF\xBB\xBF") + DeclaredGb2312 + Body(WordGb), Utf8), "not loaded");
}

TEST_F(XmlConfigureDocumentTest, AnEarlierUtf8FileMakesFilesThatDoNotSayTakenAsUtf8) {
    const std::string utf8 = dir.write("utf8.xml", DeclaredUtf8 + Body("x"));
    const std::string mark = dir.write("mark.xml", "\xEF\xBB\xBF" + Body(WordUtf8));
    const std::string markAndGb2312 = dir.write("both.xml", std::string("\xEF\xBB\xBF") + DeclaredGb2312 + Body("y"));
    const std::string none = dir.write("none.xml", Body(WordUtf8));
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(utf8, Utf8, ReadOnly));

    EXPECT_TRUE(document.Load(none, Utf8, ReadOnly));
    EXPECT_EQ(WordOf(document), WordUtf8);
    EXPECT_TRUE(document.Load(mark, Utf8, ReadOnly));
    EXPECT_EQ(WordOf(document), WordUtf8);
    EXPECT_TRUE(document.Load(markAndGb2312, Utf8, ReadOnly));
    EXPECT_TRUE(document.Load(mark, Utf8, ReadOnly)) << "the declaration behind a mark decides nothing";
}

TEST_F(XmlConfigureDocumentTest, AnEarlierGb2312FileMakesFilesThatDoNotSayTakenAsGb2312Again) {
    const std::string utf8 = dir.write("utf8.xml", DeclaredUtf8 + Body("x"));
    const std::string gb2312 = dir.write("gb2312.xml", DeclaredGb2312 + Body("x"));
    const std::string none = dir.write("none.xml", Body(WordGb));
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(utf8, Utf8, ReadOnly));
    ASSERT_TRUE(document.Load(gb2312, Utf8, ReadOnly));

    EXPECT_TRUE(document.Load(none, Utf8, ReadOnly));

    EXPECT_EQ(WordOf(document), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AFailedLoadOfADeclaredUtf8FileMakesTheNextTakenAsUtf8Too) {
    const std::string cut = dir.write("cut.xml", std::string(DeclaredUtf8) + "<Configure name='x'>");
    const std::string none = dir.write("none.xml", Body(WordUtf8));
    XmlConfigureDocument document;
    ASSERT_FALSE(document.Load(cut, Utf8, ReadOnly));

    EXPECT_TRUE(document.Load(none, Utf8, ReadOnly));

    EXPECT_EQ(WordOf(document), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AFileLoadedAsGbkIsAlwaysConverted) {
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body(std::string(WordUtf8) + RareUtf8), Gbk), std::string(WordGb) + RareGbk);
    EXPECT_EQ(LoadedWord(DeclaredGb2312 + Body(WordGb), Gbk), WordGb);
    EXPECT_EQ(LoadedWord(Body(WordGb), Gbk), WordGb);
    EXPECT_EQ(LoadedWord(DeclaredGbk + Body(RareGbk), Gbk), "not loaded") << "GBK too is taken as GB2312, and cut";
}

TEST_F(XmlConfigureDocumentTest, AnUnknownCharsetIsGbk) {
    for (const unsigned charset : {4U, 99U, 0xFFFFFFFFU}) {
        EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body(RareUtf8), charset), RareGbk) << charset;
    }
}

TEST_F(XmlConfigureDocumentTest, AUtf8FileLoadedAsGb2312IsConverted) {
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body(WordUtf8), Gb2312), WordGb);
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body(RareUtf8), Gb2312), "not loaded") << "cut at what GB2312 lacks";
}

TEST_F(XmlConfigureDocumentTest, AFileThatIsNotUtf8LoadedAsGb2312IsParsedAsItIs) {
    EXPECT_EQ(LoadedWord(DeclaredGb2312 + Body(WordGb), Gb2312), WordGb);
    EXPECT_EQ(LoadedWord(DeclaredGbk + Body(RareGbk), Gb2312), RareGbk) << "a conversion would cut it";
    EXPECT_EQ(LoadedWord(Body(WordUtf8), Gb2312), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AGbkFileWithTheCharactersOfGb2312IsRead) {
    EXPECT_EQ(LoadedWord(DeclaredGbk + Body(WordGb), Utf8), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, AGbkFileWithOtherCharactersDoesNotLoadAsUtf8) {
    EXPECT_EQ(LoadedWord(DeclaredGbk + Body(RareGbk), Utf8), "not loaded");
}

// The converted text starts with a byte-order mark and has a zero byte in every letter.
TEST_F(XmlConfigureDocumentTest, ALoadAsUtf16Fails) {
    EXPECT_EQ(LoadedWord(DeclaredUtf8 + Body("x"), Utf16), "not loaded");
    EXPECT_EQ(LoadedWord(DeclaredGb2312 + Body("x"), Utf16), "not loaded");
    EXPECT_EQ(LoadedWord(Body("x"), Utf16), "not loaded");
}

// Files

TEST_F(XmlConfigureDocumentTest, AMissingFileDoesNotLoad) {
    XmlConfigureDocument document;

    EXPECT_FALSE(document.Load(dir / "missing.xml", Utf8, ReadOnly));
}

TEST_F(XmlConfigureDocumentTest, AnEmptyFileDoesNotLoad) {
    EXPECT_FALSE(Loads(""));
}

TEST_F(XmlConfigureDocumentTest, AFileWhoseFirstByteIsZeroDoesNotLoad) {
    EXPECT_FALSE(Loads(std::string(1, '\0') + DeclaredUtf8 + Body("x")));
}

TEST_F(XmlConfigureDocumentTest, ADirectoryOrADeviceDoesNotLoad) {
    XmlConfigureDocument document;

    EXPECT_FALSE(document.Load(dir.path(), Utf8, ReadOnly));
    EXPECT_FALSE(document.Load("/dev/null", Utf8, ReadOnly));
}

TEST_F(XmlConfigureDocumentTest, AFileIsReadUpToItsFirstZeroByte) {
    EXPECT_TRUE(Loads(DeclaredUtf8 + Body("x") + std::string("\0<a></b>", 8)));
    EXPECT_TRUE(Loads(DeclaredGb2312 + Body("x") + std::string("\0<a></b>", 8)));
    EXPECT_FALSE(Loads(DeclaredUtf8 + Body(std::string("x\0y", 3))));
    EXPECT_FALSE(Loads(DeclaredGb2312 + Body(std::string("x\0y", 3))));
}

TEST_F(XmlConfigureDocumentTest, ATextThatIsNotXmlDoesNotLoad) {
    for (const char* text :
         {"text", "<", "<Configure name='x'>", "<Configure name='x'></Configure", "<Configure name='x'></configure>",
          "<Configure name='x' name='y'/>", "<Configure name=x'/>", "<Configure name='x'>&#xZZ;</Configure>"}) {
        EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + text)) << text;
        EXPECT_FALSE(Loads(std::string(DeclaredGb2312) + text)) << text;
    }
}

TEST_F(XmlConfigureDocumentTest, ARootNamedInOtherLettersDoesNotLoad) {
    for (const char* root : {"configure", "CONFIGURE", "Configur", "Configures", "Config", "HardwareConfig"}) {
        EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + "<" + root + " name='x'/>")) << root;
    }
}

TEST_F(XmlConfigureDocumentTest, ARootWithoutANameDoesNotLoad) {
    EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + "<Configure/>"));
    EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + "<Configure Name='x' nam='y'/>"));
}

TEST_F(XmlConfigureDocumentTest, ARootWithAnyNameLoads) {
    EXPECT_TRUE(Loads(std::string(DeclaredUtf8) + "<Configure name=''/>"));
    EXPECT_TRUE(Loads(std::string(DeclaredUtf8) + "<Configure name='anything'/>"));
}

TEST_F(XmlConfigureDocumentTest, AFileWithoutAnElementDoesNotLoad) {
    EXPECT_FALSE(Loads(DeclaredUtf8));
    EXPECT_FALSE(Loads("<!-- nothing -->"));
}

TEST_F(XmlConfigureDocumentTest, LineEndsOfEveryKindAreRead) {
    std::string windows = DeclaredUtf8 + Body("a\nb");
    std::string old = windows;
    for (size_t at = 0; (at = windows.find('\n', at)) != std::string::npos; at += 2) {
        windows.replace(at, 1, "\r\n");
    }
    for (size_t at = 0; (at = old.find('\n', at)) != std::string::npos; ++at) {
        old.replace(at, 1, "\r");
    }

    EXPECT_EQ(LoadedWord(windows, Utf8), "a\nb");
    EXPECT_EQ(LoadedWord(old, Utf8), "a\nb");
    EXPECT_EQ(LoadedWord(windows, Gbk), "a\nb");
    EXPECT_EQ(LoadedWord(old, Gbk), "a\nb");
}

// Whether the parser reads behind the text, only a build of the library with an address sanitizer shows.
TEST_F(XmlConfigureDocumentTest, AFileCutInsideAUtf8SequenceIsReadNoFurtherDirectlyOrConverted) {
    for (const char* declaration : {DeclaredUtf8, DeclaredGb2312, "", "\xEF\xBB\xBF"}) {
        for (const char* before : {"<Configure name='x'>text", "<Configure name='text", "<Configure name='x'><a"}) {
            for (const char* cut : {"\xC3", "\xE5", "\xE5\x8D", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
                for (const unsigned charset : {Gb2312, Utf8, Gbk, Utf16}) {
                    for (size_t blanks = 0; blanks < 8; ++blanks) {
                        const std::string text = declaration + std::string(blanks, '\n') + before + cut;

                        EXPECT_FALSE(Loads(text, charset)) << before << ", charset " << charset;
                    }
                }
            }
        }
    }
}

// The last character of a converted text may have any length.
TEST_F(XmlConfigureDocumentTest, AConvertedFileThatEndsWithACharacterIsReadNoFurther) {
    for (const char* before : {"<Configure name='x'>", "<Configure name='", "<Configure name='x'><"}) {
        for (size_t blanks = 0; blanks < 8; ++blanks) {
            const std::string space(blanks, '\n');

            EXPECT_FALSE(Loads(DeclaredGb2312 + space + before + WordGb, Utf8)) << before;
            EXPECT_FALSE(Loads(DeclaredGb2312 + space + before + WordGb + "\xD0", Utf8)) << before;
            EXPECT_FALSE(Loads(DeclaredUtf8 + space + before + RareUtf8, Gbk)) << before;
            EXPECT_FALSE(Loads(DeclaredUtf8 + space + before + WordUtf8, Gb2312)) << before;
        }
    }
}

TEST_F(XmlConfigureDocumentTest, AFileThatNestsFiveThousandDeepLoads) {
    EXPECT_TRUE(Loads(DeclaredUtf8 + Nested(5000)));
    EXPECT_TRUE(Loads(DeclaredGb2312 + Nested(5000)));
}

TEST_F(XmlConfigureDocumentTest, AFileThatNestsDeeperDoesNotLoad) {
    EXPECT_FALSE(Loads(DeclaredUtf8 + Nested(5001)));
    EXPECT_FALSE(Loads(DeclaredGb2312 + Nested(5001)));
}

TEST_F(XmlConfigureDocumentTest, AFileThatNestsAMillionDeepIsRefusedAtOnce) {
    const std::string text = DeclaredUtf8 + Nested(1000000);
    const std::clock_t start = std::clock();

    EXPECT_FALSE(Loads(text));

    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

// A numeric reference may reach over quotes and tags to a ";" far behind; a parse of this text overflows the stack.
TEST_F(XmlConfigureDocumentTest, AFileThatHidesItsDepthBehindAReferenceDoesNotLoad) {
    EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + "<Configure name=\"&#x\" 'x41;\">" + Nested(1000000)));
    EXPECT_FALSE(Loads(std::string(DeclaredUtf8) + "<Configure name='x'>&#<!-- #65;" + Nested(1000000)));
}

// After failures

TEST_F(XmlConfigureDocumentTest, AFailedLoadKeepsWhatSaveUses) {
    const std::string path = dir.write("good.xml", DeclaredUtf8 + Body("x"));
    const std::vector<std::string> bad = {
        dir / "missing.xml",
        dir.path(),
        dir.write("empty.xml", ""),
        dir.write("cut.xml", std::string(DeclaredUtf8) + "<Configure name='x'>"),
        dir.write("root.xml", std::string(DeclaredUtf8) + "<configure name='x'/>"),
        dir.write("name.xml", std::string(DeclaredUtf8) + "<Configure/>"),
        dir.write("deep.xml", DeclaredUtf8 + Nested(5001)),
    };
    for (const std::string& badPath : bad) {
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(path, Utf8, ReadWrite));

        EXPECT_FALSE(document.Load(badPath, Gbk, ReadOnly)) << badPath;

        EXPECT_TRUE(LoadedFlag(document)) << badPath;
        EXPECT_EQ(document.*Get(DocumentCharset()), Utf8) << badPath;
        EXPECT_EQ(document.*Get(DocumentMode()), ReadWrite) << badPath;
        EXPECT_EQ(document.*Get(DocumentPath()), path) << badPath;
    }
}

TEST_F(XmlConfigureDocumentTest, ASaveAfterAFailedLoadWritesToThePathOfTheLastSuccessfulOne) {
    const std::string path = dir.write("good.xml", DeclaredUtf8 + Body("x"));
    const std::string bad = dir.write("bad.xml", std::string(DeclaredUtf8) + "<configure name='bad'/>");
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, ReadWrite));
    ASSERT_FALSE(document.Load(bad, Utf8, ReadOnly));

    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), std::string(DeclaredUtf8) + "<configure name=\"bad\" />\n")
        << "the document holds what was parsed last";
    EXPECT_EQ(ReadWholeFile(bad), std::string(DeclaredUtf8) + "<configure name='bad'/>");
    EXPECT_FALSE(LoadedFlag(document));
}

// Nothing is left to print then, whatever the character set: there is no text that a conversion could have lost.
TEST_F(XmlConfigureDocumentTest, ASaveAfterALoadThatFoundNoElementWritesAnEmptyFileInEveryCharset) {
    const std::string bad = dir.write("bad.xml", "text");
    for (const unsigned charset : {Gb2312, Utf8, Gbk}) {
        const std::string path = dir.write("good.xml", DeclaredUtf8 + Body("x"));
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(path, charset, ReadWrite)) << charset;
        ASSERT_FALSE(document.Load(bad, charset, ReadOnly)) << charset;

        EXPECT_TRUE(document.Save()) << charset;

        EXPECT_EQ(ReadWholeFile(path), "") << charset;
        EXPECT_FALSE(LoadedFlag(document)) << charset;
    }
}

TEST_F(XmlConfigureDocumentTest, AFailedLoadOfANewDocumentLeavesItNew) {
    XmlConfigureDocument document;

    EXPECT_FALSE(document.Load(dir / "missing.xml", Utf8, ReadWrite));

    EXPECT_FALSE(LoadedFlag(document));
    EXPECT_EQ(document.*Get(DocumentCharset()), 0U);
    EXPECT_EQ(document.*Get(DocumentMode()), 1U);
    EXPECT_EQ(document.*Get(DocumentPath()), "");
}

TEST_F(XmlConfigureDocumentTest, AfterALoadThatDoesNotParseNoNodeOfAnEarlierOneIsFound) {
    const std::string good = dir.write("good.xml", DeclaredUtf8 + Body("x"));
    for (const std::string& content :
         {std::string("text"), std::string("<Configure name='x'>"), std::string(DeclaredUtf8) + "<Configure name='x'>",
          std::string(1, '\0'), DeclaredUtf8 + Nested(5001), DeclaredGb2312 + Body("\xFF")}) {
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(good, Utf8, ReadOnly));
        ASSERT_EQ(WordOf(document), "x");

        EXPECT_FALSE(document.Load(dir.write("bad.xml", content), Utf8, ReadOnly));

        EXPECT_EQ(WordOf(document), "no section");
    }
}

TEST_F(XmlConfigureDocumentTest, AfterALoadThatFailsTheChecksOfItsRootNodesAreStillFound) {
    const std::string unnamed = "<Configure><Configure name='section'><ConfigItem word='y'/></Configure></Configure>";
    XmlConfigureDocument document;

    EXPECT_FALSE(document.Load(dir.write("bad.xml", DeclaredUtf8 + unnamed), Utf8, ReadOnly));

    EXPECT_EQ(WordOf(document), "y");
}

TEST_F(XmlConfigureDocumentTest, AfterALoadOfAMissingFileTheEarlierNodesAreStillFound) {
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(dir.write("good.xml", DeclaredUtf8 + Body("x")), Utf8, ReadOnly));

    EXPECT_FALSE(document.Load(dir / "missing.xml", Utf8, ReadOnly));

    EXPECT_EQ(WordOf(document), "x");
}

TEST_F(XmlConfigureDocumentTest, AnotherLoadReplacesTheDocument) {
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(dir.write("one.xml", DeclaredUtf8 + Body("1")), Utf8, ReadOnly));

    EXPECT_TRUE(document.Load(dir.write("two.xml", DeclaredGb2312 + Body("2")), Gb2312, ReadWrite));

    EXPECT_EQ(WordOf(document), "2");
    EXPECT_EQ(document.*Get(DocumentCharset()), Gb2312);
    EXPECT_EQ(document.*Get(DocumentMode()), ReadWrite);
    EXPECT_EQ(document.*Get(DocumentPath()), dir / "two.xml");
}

TEST_F(XmlConfigureDocumentTest, ANodeIsFoundAsTheTreeFindsIt) {
    const std::string body = "<Configure name='x'><ConfigItem/><Configure name='a'/><Other name='b'/><Other/>"
                             "<Configure name='c'/></Configure>";
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(dir.write("file.xml", DeclaredUtf8 + body), Utf8, ReadOnly));
    SafePointer<XmlConfigureNode> node;

    EXPECT_TRUE(document.GetNode("a", node));
    EXPECT_TRUE(document.GetNode("b", node));
    EXPECT_FALSE(document.GetNode("c", node)) << "a sibling without a name stands before it";
    EXPECT_FALSE(document.GetNode("x", node)) << "the root itself is not searched";
}

// Modes and Save

TEST_F(XmlConfigureDocumentTest, CreateDoesNotTouchTheFileAndSaveWritesAnEmptyDocument) {
    for (const unsigned charset : {Gb2312, Utf8, Gbk, 99U}) {
        const std::string path = dir / ("new" + std::to_string(charset) + ".xml");
        XmlConfigureDocument document;

        EXPECT_TRUE(document.Load(path, charset, Create)) << charset;
        EXPECT_FALSE(std::filesystem::exists(path)) << charset;
        EXPECT_TRUE(LoadedFlag(document)) << charset;
        EXPECT_TRUE(document.Save()) << charset;

        EXPECT_EQ(ReadWholeFile(path), EmptyDocument) << charset;
        EXPECT_FALSE(LoadedFlag(document)) << charset;
    }
}

TEST_F(XmlConfigureDocumentTest, CreateDoesNotReadAFileThatIsThere) {
    const std::string path = dir.write("file.xml", DeclaredUtf8 + Body("x"));
    XmlConfigureDocument document;

    EXPECT_TRUE(document.Load(path, Utf8, Create));
    EXPECT_EQ(ReadWholeFile(path), DeclaredUtf8 + Body("x"));
    EXPECT_EQ(WordOf(document), "no section");
    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), EmptyDocument);
}

TEST_F(XmlConfigureDocumentTest, CreateAsUtf16Fails) {
    XmlConfigureDocument document;

    EXPECT_FALSE(document.Load(dir / "new.xml", Utf16, Create));

    EXPECT_FALSE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, ASecondCreateAppendsToWhatTheFirstLeft) {
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(dir / "new.xml", Utf8, Create));

    EXPECT_TRUE(document.Load(dir / "new.xml", Utf8, Create));
    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(dir / "new.xml"), std::string(EmptyDocument) + EmptyDocument);
}

TEST_F(XmlConfigureDocumentTest, CreateAfterALoadAppendsToTheDocument) {
    const std::string path = dir.write("file.xml", DeclaredUtf8 + Body("x"));
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, ReadOnly));

    EXPECT_TRUE(document.Load(path, Utf8, Create));
    EXPECT_EQ(WordOf(document), "x") << "the first root of the document is the one searched";
    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), DeclaredUtf8 + Body("x") + EmptyDocument);
}

TEST_F(XmlConfigureDocumentTest, SaveBeforeAnyLoadIsTrueAndWritesNothing) {
    XmlConfigureDocument document;

    EXPECT_TRUE(document.Save());

    EXPECT_FALSE(LoadedFlag(document));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST_F(XmlConfigureDocumentTest, SaveOfADocumentForReadingOnlyIsTrueAndWritesNothing) {
    const std::string content = "<?xml encoding='gb2312'?><Configure name='x'></Configure>";
    const std::string path = dir.write("file.xml", content);
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, ReadOnly));

    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), content);
    EXPECT_FALSE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, AnyOtherModeReadsTheFileAndWritesNothing) {
    const std::string content = DeclaredGb2312 + Body(WordGb);
    for (const unsigned mode : {0U, 4U, 99U, 0xFFFFFFFFU}) {
        const std::string path = dir.write("file.xml", content);
        XmlConfigureDocument document;

        EXPECT_TRUE(document.Load(path, Utf8, mode)) << mode;
        EXPECT_EQ(WordOf(document), WordUtf8) << mode;
        EXPECT_FALSE(XmlConfigureDocument().Load(dir / "missing.xml", Utf8, mode)) << mode;
        EXPECT_TRUE(document.Save()) << mode;

        EXPECT_EQ(ReadWholeFile(path), content) << mode;
        EXPECT_FALSE(LoadedFlag(document)) << mode;
    }
}

TEST_F(XmlConfigureDocumentTest, ADocumentLoadedAsUtf8IsSavedAsItIsPrinted) {
    EXPECT_EQ(Saved(DeclaredUtf8 + Body(WordUtf8), Utf8), DeclaredUtf8 + Body(WordUtf8));
    EXPECT_EQ(Saved(DeclaredUtf8 + Body("\xD0 x"), Utf8), DeclaredUtf8 + Body("\xD0 x")) << "no conversion cuts it";
    EXPECT_EQ(Saved(DeclaredGb2312 + Body(WordGb), Utf8), DeclaredUtf8 + Body(WordUtf8));
}

TEST_F(XmlConfigureDocumentTest, ADocumentLoadedAsGb2312IsSavedConverted) {
    EXPECT_EQ(Saved(DeclaredGb2312 + Body(WordGb), Gb2312), DeclaredUtf8 + Body(WordUtf8));
    EXPECT_EQ(Saved(DeclaredUtf8 + Body(WordUtf8), Gb2312), DeclaredUtf8 + Body(WordUtf8));
}

// The character A1A4 is U+00B7 in GBK and U+30FB in GB2312, and E946 is in GBK alone.
TEST_F(XmlConfigureDocumentTest, ADocumentLoadedAsGbkIsSavedAsIfItWereGb2312) {
    EXPECT_EQ(Saved(DeclaredUtf8 + Body(WordUtf8), Gbk), DeclaredUtf8 + Body(WordUtf8));
    EXPECT_EQ(Saved(DeclaredUtf8 + Body("\xC2\xB7"), Gbk), DeclaredUtf8 + Body("\xE3\x83\xBB"));

    const std::string whole = DeclaredUtf8 + Body(std::string(WordUtf8) + RareUtf8 + "x");
    const std::string cut = whole.substr(0, whole.find(RareUtf8));
    EXPECT_EQ(Saved(whole, Gbk), cut) << "cut where GB2312 has no such character";
    EXPECT_EQ(Saved(whole, 99), cut);
}

TEST_F(XmlConfigureDocumentTest, SaveReplacesTheDeclarationsEncodingAndKeepsItsOtherValues) {
    EXPECT_EQ(Saved("<?xml version='1.1' encoding='GB2312' standalone='yes'?><Configure name='x'/>", Utf8),
              "<?xml version=\"1.1\" encoding=\"utf-8\" standalone=\"yes\" ?>\n<Configure name=\"x\" />\n");
}

TEST_F(XmlConfigureDocumentTest, SaveAddsNoDeclarationToADocumentThatDoesNotStartWithOne) {
    EXPECT_EQ(Saved(Body(WordGb), Utf8), Body(WordUtf8));
    EXPECT_EQ(Saved("<!--c-->" + Body("x"), Utf8), "<!--c-->\n" + Body("x"));
}

TEST_F(XmlConfigureDocumentTest, ASavedDocumentLoadsAgain) {
    const std::string path = dir.write("file.xml", DeclaredGb2312 + Body(WordGb));
    XmlConfigureDocument first;
    ASSERT_TRUE(first.Load(path, Gbk, ReadWrite));
    ASSERT_TRUE(first.Save());
    XmlConfigureDocument second;

    EXPECT_TRUE(second.Load(path, Utf8, ReadOnly));

    EXPECT_EQ(WordOf(second), WordUtf8);
}

TEST_F(XmlConfigureDocumentTest, ASecondSaveIsTrueAndWritesNothing) {
    const std::string path = dir.write("file.xml", DeclaredUtf8 + Body("x"));
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, ReadWrite));
    ASSERT_TRUE(document.Save());
    static_cast<void>(dir.write("file.xml", "another's"));

    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), "another's");
}

TEST_F(XmlConfigureDocumentTest, AFailedSaveKeepsTheDocumentLoadedToBeSavedAgain) {
    const std::string path = dir / "target";
    std::filesystem::create_directory(path);
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, Create));

    EXPECT_FALSE(document.Save());
    EXPECT_TRUE(LoadedFlag(document));
    std::filesystem::remove(path);
    EXPECT_TRUE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), EmptyDocument);
    EXPECT_FALSE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, AFailedPrintFailsTheSaveAndLeavesTheFile) {
    const std::string path = dir.write("file.xml", DeclaredUtf8 + Body("x"));
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Utf8, ReadWrite));
    MakeUnprintable(document);

    EXPECT_FALSE(document.Save());

    EXPECT_TRUE(LoadedFlag(document));
    EXPECT_EQ(ReadWholeFile(path), DeclaredUtf8 + Body("x"));
}

TEST_F(XmlConfigureDocumentTest, AFailedPrintFailsTheCreate) {
    XmlConfigureDocument document;
    MakeUnprintable(document);

    EXPECT_FALSE(document.Load(dir / "new.xml", Utf8, Create));

    EXPECT_FALSE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, ALoadWhoseConversionCannotBeOpenedGoesOnWithAnEmptyTextAndFails) {
    const std::string path = dir.write("file.xml", DeclaredGb2312 + Body(WordGb));
    XmlConfigureDocument document;
    const NoConversion noConversion;

    EXPECT_FALSE(document.Load(path, Utf8, ReadWrite));

    EXPECT_EQ(WordOf(document), "no section") << "not the text as it was before the conversion";
    EXPECT_FALSE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, ALoadThatNeedsNoConversionOpensNone) {
    const std::string path = dir.write("file.xml", DeclaredUtf8 + Body(WordUtf8));
    XmlConfigureDocument document;
    const NoConversion noConversion;

    EXPECT_TRUE(document.Load(path, Utf8, ReadOnly));
    EXPECT_EQ(WordOf(document), WordUtf8);
}

// The result of such a conversion is empty, and the file must not become so.
TEST_F(XmlConfigureDocumentTest, ASaveWhoseConversionCannotBeOpenedFailsAndLeavesTheFile) {
    const std::string content = DeclaredGb2312 + Body(WordGb);
    const std::string path = dir.write("file.xml", content);
    XmlConfigureDocument document;
    ASSERT_TRUE(document.Load(path, Gb2312, ReadWrite));

    {
        const NoConversion noConversion;
        EXPECT_FALSE(document.Save());
    }

    EXPECT_EQ(ReadWholeFile(path), content);
    EXPECT_TRUE(LoadedFlag(document));
    EXPECT_TRUE(document.Save()) << "it can be saved again";
    EXPECT_NE(ReadWholeFile(path), content);
}

TEST_F(XmlConfigureDocumentTest, ASaveToAFullDeviceFails) {
    for (const unsigned charset : {Utf8, Gb2312}) {
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load("/dev/full", charset, Create));

        EXPECT_FALSE(document.Save());

        EXPECT_TRUE(LoadedFlag(document));
    }
}

TEST_F(XmlConfigureDocumentTest, ADocumentOnAPathOutsideAsciiLoadsButIsNotSaved) {
    const std::string content = std::string(DeclaredUtf8) + "<Configure name='x'/>";
    const std::string path = dir.write(std::string(WordUtf8) + ".xml", content);
    XmlConfigureDocument document;

    EXPECT_TRUE(document.Load(path, Utf8, ReadWrite));
    EXPECT_FALSE(document.Save());

    EXPECT_EQ(ReadWholeFile(path), content);
    EXPECT_TRUE(LoadedFlag(document));
}

TEST_F(XmlConfigureDocumentTest, NothingIsPrintedWhateverFails) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    XmlConfigureDocument document;

    static_cast<void>(document.Load(dir / "missing.xml", Utf8, ReadOnly));
    static_cast<void>(document.Load(dir.write("cut.xml", "<Configure name='x'>"), Utf8, ReadOnly));
    static_cast<void>(document.Load(dir.write("cut.xml", DeclaredGb2312 + Body("\xFF")), Utf8, ReadOnly));
    static_cast<void>(document.Load(dir.write("deep.xml", Nested(5001)), Utf8, ReadOnly));
    static_cast<void>(document.Load("/dev/full", Utf8, Create));
    static_cast<void>(document.Save());
    const std::string error = testing::internal::GetCapturedStderr();

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(error, "");
}
