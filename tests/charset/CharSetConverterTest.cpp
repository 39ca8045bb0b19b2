#include "charset/CharSetConverter.h"

#include "runtime/LogSettings.h"
#include "tests/charset/ConversionWatch.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/RepeatedPages.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

static_assert(!std::is_copy_constructible_v<CharSetConverter> && !std::is_copy_assignable_v<CharSetConverter>);
static_assert(!std::is_move_constructible_v<CharSetConverter> && !std::is_move_assignable_v<CharSetConverter>);
static_assert(!std::is_polymorphic_v<CharSetConverter> && sizeof(CharSetConverter) == sizeof(void*));
static_assert(std::is_same_v<std::underlying_type_t<CharSetType>, uint32_t>);
// The XML layer answers whether a text is UTF-8 with 0 or 1, and passes that answer on as a character set.
static_assert(CharSetGb2312 == 0 && CharSetUtf8 == 1 && CharSetGbk == 2 && CharSetUtf16 == 3);

namespace {

using LibiconvWatch = ConversionWatch<struct GnuLibiconv>;

// The block of memory that was taken last while a watch lived.
struct Block {
    void* start;
    size_t size;
};

Block lastBlock = {nullptr, 0};

} // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_libiconv_open(const char* to, const char* from);
size_t __real_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft);
int __real_libiconv_close(void* descriptor);

void* __wrap_malloc(size_t size) {
    void* const start = __real_malloc(size);
    if (LibiconvWatch::active != nullptr) {
        lastBlock = {start, size};
    }
    return start;
}

void* __wrap_libiconv_open(const char* to, const char* from) {
    LibiconvWatch* const watch = LibiconvWatch::active;
    void* const descriptor = watch != nullptr && watch->refuses ? reinterpret_cast<void*>(-1) // as the library refuses
                                                                : __real_libiconv_open(to, from);
    if (watch != nullptr) {
        watch->opens.push_back({to, from, descriptor});
    }
    return descriptor;
}

size_t __wrap_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft) {
    LibiconvWatch* const watch = LibiconvWatch::active;
    if (watch == nullptr) {
        return __real_libiconv(descriptor, in, inLeft, out, outLeft);
    }
    LibiconvWatch::Conversion call = {
        descriptor, in != nullptr && *in != nullptr, inLeft != nullptr ? *inLeft : 0, *outLeft, *outLeft, 0};
    call.outBlock = lastBlock.start == *out ? lastBlock.size : 0;
    // All that is said to be free must be there (the address sanitizer looks), and need not be cleared.
    std::memset(*out, '#', *outLeft);
    if (!watch->refuses) { // the real one would crash on a failed descriptor
        call.result = __real_libiconv(descriptor, in, inLeft, out, outLeft);
        call.outLeftAfter = *outLeft;
    }
    watch->conversions.push_back(call);
    return call.result;
}

int __wrap_libiconv_close(void* descriptor) {
    LibiconvWatch* const watch = LibiconvWatch::active;
    if (watch != nullptr) {
        watch->closes.push_back(descriptor);
    }
    return watch != nullptr && watch->refuses ? -1 : __real_libiconv_close(descriptor);
}

} // extern "C"

namespace {

constexpr std::array<CharSetType, 4> AllSets = {CharSetGb2312, CharSetUtf8, CharSetGbk, CharSetUtf16};
constexpr auto Failed = static_cast<size_t>(-1);

// Starts from a text of its own, so that a result that was not written cannot pass for an empty one.
std::string Converted(const std::string& in, CharSetType from, CharSetType to) {
    std::string out = "before";
    CharSetConverter::Convert(in, out, from, to);
    return out;
}

std::string TwoBytes(unsigned lead, unsigned trail) {
    return {static_cast<char>(lead), static_cast<char>(trail)};
}

// Every two-byte code that GB2312 assigns: rows and cells of 94, of which 7445 hold a character.
std::vector<std::string> AllGb2312Codes() {
    std::vector<std::string> codes;
    for (unsigned lead = 0xa1; lead <= 0xfe; ++lead) {
        for (unsigned trail = 0xa1; trail <= 0xfe; ++trail) {
            const std::string code = TwoBytes(lead, trail);
            if (!Converted(code, CharSetGb2312, CharSetUtf8).empty()) {
                codes.push_back(code);
            }
        }
    }
    return codes;
}

// What is printed while the log settings are as given, after which they are what they were at the start.
std::string PrintedByAFailedOpen(bool enabled, int32_t maxLevel, const char* module = nullptr) {
    LogSettings& settings = LogSettings::instance();
    settings.setEnabled(enabled);
    settings.setMaxLevel(maxLevel);
    if (module != nullptr) {
        static_cast<void>(settings.addModule(module));
    }
    testing::internal::CaptureStdout();
    { const CharSetConverter converter("no-such-set", "utf-8"); }
    std::string printed = testing::internal::GetCapturedStdout();
    settings.setEnabled(true);
    settings.setMaxLevel(0);
    settings.clearModules();
    return printed;
}

} // namespace

TEST(GetCharSetNameTest, EachCharacterSetHasItsLibraryNameAndEveryOtherNumberIsGbk) {
    struct Case {
        uint32_t type;
        const char* name;
    };

    const std::vector<Case> cases = {
        {0, "gb2312"}, {1, "utf-8"}, {2, "gbk"},          {3, "utf-16"},       {4, "gbk"},
        {5, "gbk"},    {99, "gbk"},  {0x7fffffff, "gbk"}, {0x80000000, "gbk"}, {0xffffffff, "gbk"},
    };

    for (const Case& row : cases) {
        EXPECT_EQ(GetCharSetName(static_cast<CharSetType>(row.type)), row.name) << row.type;
    }
}

TEST(CharSetConverterTest, AnEmptyTextYieldsAnEmptyText) {
    for (const CharSetType from : AllSets) {
        for (const CharSetType to : AllSets) {
            const LibiconvWatch watch;

            EXPECT_EQ(Converted("", from, to), "") << from << " to " << to;
            ASSERT_EQ(watch.conversions.size(), 1U);
            EXPECT_EQ(watch.conversions[0].outLeft, 1U);
        }
    }
}

TEST(CharSetConverterTest, TextsConvertAsTheLibrarysTablesSay) {
    struct Case {
        const char* what;
        std::string in;
        CharSetType from;
        CharSetType to;
        std::string out;
    };

    const std::vector<Case> cases = {
        {"Chinese and ASCII from GB2312", "a\xd6\xd0\xce\xc4<z", CharSetGb2312, CharSetUtf8, "a中文<z"},
        {"Chinese and ASCII from GBK", "a\xd6\xd0\xce\xc4<z", CharSetGbk, CharSetUtf8, "a中文<z"},
        {"Chinese and ASCII to GB2312", "a中文<z", CharSetUtf8, CharSetGb2312, "a\xd6\xd0\xce\xc4<z"},
        {"Chinese and ASCII to GBK", "a中文<z", CharSetUtf8, CharSetGbk, "a\xd6\xd0\xce\xc4<z"},
        {"the first Chinese character of GB2312", "\xb0\xa1", CharSetGb2312, CharSetUtf8, "啊"},
        {"the last Chinese character of GB2312", "\xf7\xfe", CharSetGb2312, CharSetUtf8, "齄"},
        {"a Latin letter of GB2312 has two bytes in UTF-8", "\xa8\xa6", CharSetGb2312, CharSetUtf8, "\xc3\xa9"},
        {"a character that only GBK has", "\xe9\x46", CharSetGbk, CharSetUtf8, "镕"},
        {"the first code of GBK", "\x81\x40", CharSetGbk, CharSetUtf8, "丂"},
        {"GBK to GB2312", "\xd6\xd0", CharSetGbk, CharSetGb2312, "\xd6\xd0"},
        {"UTF-8 to itself", "a中\xf0\x9f\x98\x80", CharSetUtf8, CharSetUtf8, "a中\xf0\x9f\x98\x80"},
        {"UTF-16 without a mark is big-endian", "\x4e\x2d\x65\x87", CharSetUtf16, CharSetUtf8, "中文"},
        {"UTF-16 marked big-endian", "\xfe\xff\x4e\x2d", CharSetUtf16, CharSetUtf8, "中"},
        {"UTF-16 marked little-endian", "\xff\xfe\x2d\x4e", CharSetUtf16, CharSetUtf8, "中"},
        {"a surrogate pair", "\xd8\x3d\xde\x01", CharSetUtf16, CharSetUtf8, "\xf0\x9f\x98\x81"},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Converted(row.in, row.from, row.to), row.out);
    }
}

TEST(CharSetConverterTest, Gb2312AndGbkTextsYieldThreeBytesPerChineseCharacterAndKeepAsciiBytes) {
    std::string ascii;
    for (char c = 1; c < 0x7f; ++c) {
        ascii += c;
    }
    for (const CharSetType from : {CharSetGb2312, CharSetGbk}) {
        for (unsigned lead = 0xb0; lead <= 0xf7; ++lead) {
            const std::string in = ascii + TwoBytes(lead, 0xa1) + TwoBytes(lead, 0xf9) + ascii;

            const std::string out = Converted(in, from, CharSetUtf8);

            ASSERT_EQ(out.size(), ascii.size() + 3U + 3U + ascii.size()) << lead;
            EXPECT_EQ(out.substr(0, ascii.size()), ascii);
            EXPECT_EQ(out.substr(out.size() - ascii.size()), ascii);
        }
    }
}

TEST(CharSetConverterTest, EveryTwoByteCodeOfGb2312ComesBackFromUtf8AndUtf16) {
    const std::vector<std::string> codes = AllGb2312Codes();

    ASSERT_EQ(codes.size(), 7445U);
    for (const std::string& code : codes) {
        const std::string utf8 = Converted(code, CharSetGb2312, CharSetUtf8);
        ASSERT_EQ(Converted(utf8, CharSetUtf8, CharSetGb2312), code);
        const std::string utf16 = Converted(code, CharSetGb2312, CharSetUtf16);
        if (utf16.size() == 4) { // else one of its two bytes is zero, and ends the result
            ASSERT_EQ(Converted(utf16, CharSetUtf16, CharSetGb2312), code);
        }
    }
}

TEST(CharSetConverterTest, TheWholeOfGb2312ConvertsInOneText) {
    std::string in;
    for (const std::string& code : AllGb2312Codes()) {
        in += code;
    }

    const std::string utf8 = Converted(in, CharSetGb2312, CharSetUtf8);

    EXPECT_TRUE(Converted(utf8, CharSetUtf8, CharSetGb2312) == in) << "the texts are too long to be printed";
}

TEST(CharSetConverterTest, Gb2312AndGbkDisagreeOnA1A4AndA1AAAndOnNoOtherCode) {
    std::vector<std::string> differing;
    for (const std::string& code : AllGb2312Codes()) {
        if (Converted(code, CharSetGb2312, CharSetUtf8) != Converted(code, CharSetGbk, CharSetUtf8)) {
            differing.push_back(code);
        }
    }

    EXPECT_EQ(differing, (std::vector<std::string>{"\xa1\xa4", "\xa1\xaa"}));
    EXPECT_EQ(Converted("\xa1\xa4", CharSetGb2312, CharSetUtf8), "\xe3\x83\xbb"); // U+30FB, katakana middle dot
    EXPECT_EQ(Converted("\xa1\xa4", CharSetGbk, CharSetUtf8), "\xc2\xb7");        // U+00B7, middle dot
    EXPECT_EQ(Converted("\xa1\xaa", CharSetGb2312, CharSetUtf8), "\xe2\x80\x95"); // U+2015, horizontal bar
    EXPECT_EQ(Converted("\xa1\xaa", CharSetGbk, CharSetUtf8), "\xe2\x80\x94");    // U+2014, em dash
}

TEST(CharSetConverterTest, AnInvalidOrCutSequenceEndsTheTextBeforeItWithoutAnError) {
    struct Case {
        const char* what;
        std::string in;
        CharSetType from;
        std::string out;
    };

    const std::vector<Case> cases = {
        {"GB2312, two bytes that are no code", "a\xd6\xd0\xff\xff\xce\xc4z", CharSetGb2312, "a中"},
        {"GB2312, a cell without a character", "a\xd6\xd0\xd7\xfa\xce\xc4z", CharSetGb2312, "a中"},
        {"GB2312, a lead byte followed by a letter", "a\xd6\xd0\xce<z", CharSetGb2312, "a中"},
        {"GB2312, a code that only GBK has", "a\xd6\xd0\xe9\x46z", CharSetGb2312, "a中"},
        {"GB2312, nothing but an invalid sequence", "\xff\xff", CharSetGb2312, ""},
        {"GB2312, cut in a character", "a\xd6\xd0\xce", CharSetGb2312, "a中"},
        {"GBK, two bytes that are no code", "a\xd6\xd0\xff\xff\xce\xc4z", CharSetGbk, "a中"},
        {"GBK, cut in a character", "a\xd6\xd0\xce", CharSetGbk, "a中"},
        {"UTF-8, a byte that no text has", "a中\xff文", CharSetUtf8, "a中"},
        {"UTF-8, cut in a character", "a中\xe6\x96", CharSetUtf8, "a中"},
        {"UTF-8, half of a surrogate pair", "a中\xed\xa0\x80z", CharSetUtf8, "a中"},
        {"UTF-16, half of a surrogate pair", std::string("\x4e\x2d\xd8\x3d\x4e\x2d", 6), CharSetUtf16, "中"},
        {"UTF-16, an odd number of bytes", std::string("\x4e\x2d\x65", 3), CharSetUtf16, "中"},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Converted(row.in, row.from, CharSetUtf8), row.out);
    }
}

TEST(CharSetConverterTest, ACharacterOutsideTheTargetEndsTheTextBeforeIt) {
    struct Case {
        const char* what;
        std::string in;
        CharSetType to;
        std::string out;
    };

    const std::vector<Case> cases = {
        {"GB2312 lacks a character that GBK has", "朱镕基", CharSetGb2312, "\xd6\xec"},
        {"GBK goes further", "朱镕基", CharSetGbk, "\xd6\xec\xe9\x46\xbb\xf9"},
        {"GBK goes up to what it lacks, too", "朱镕\xf0\x9f\x98\x80基", CharSetGbk, "\xd6\xec\xe9\x46"},
        {"nothing is written in another way", "a\xef\xac\x81z", CharSetGb2312, "a"}, // U+FB01, the ligature fi
        {"nothing is left out", "a\xf0\x9f\x98\x80z", CharSetGb2312, "a"},
        {"the first character is not held", "\xf0\x9f\x98\x80z", CharSetGb2312, ""},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(Converted(row.in, CharSetUtf8, row.to), row.out);
    }
}

// GNU libiconv's doing: a set without tag characters gets the text without them.
TEST(CharSetConverterTest, TagCharactersAreLeftOutOfSetsThatLackThem) {
    const std::string in = "a\xf3\xa0\x80\x80\xf3\xa0\x81\xbfz"; // U+E0000, U+E007F

    EXPECT_EQ(Converted(in, CharSetUtf8, CharSetGb2312), "az");
    EXPECT_EQ(Converted(in, CharSetUtf8, CharSetGbk), "az");
    EXPECT_EQ(Converted(in, CharSetUtf8, CharSetUtf8), in);
}

// GNU libiconv's doing, too: in UTF-16 the character would be a mark of the other byte order.
TEST(CharSetConverterTest, TheReplacementCharacterStandsForUFffeInUtf16) {
    EXPECT_EQ(Converted("\xe8\xa9\xaa\xef\xbf\xbe", CharSetUtf8, CharSetUtf16), "\xfe\xff\x8a\x6a\xff\xfd");
}

TEST(CharSetConverterTest, AZeroByteEndsTheResultThoughTheWholeTextIsConverted) {
    const std::string in("ab\0cd", 5);

    for (const CharSetType to : {CharSetGb2312, CharSetUtf8, CharSetGbk}) {
        const LibiconvWatch watch;

        EXPECT_EQ(Converted(in, CharSetUtf8, to), "ab") << to;
        ASSERT_EQ(watch.conversions.size(), 1U);
        EXPECT_EQ(watch.conversions[0].inLeft, 5U);
        EXPECT_EQ(watch.conversions[0].outLeft - watch.conversions[0].outLeftAfter, 5U);
    }
}

TEST(CharSetConverterTest, Utf16OutputStartsWithFEFFAndIsBigEndian) {
    EXPECT_EQ(Converted("中文", CharSetUtf8, CharSetUtf16), "\xfe\xff\x4e\x2d\x65\x87");
    EXPECT_EQ(Converted("\xd6\xd0", CharSetGb2312, CharSetUtf16), "\xfe\xff\x4e\x2d");
    EXPECT_EQ(Converted("\xd6\xd0", CharSetGbk, CharSetUtf16), "\xfe\xff\x4e\x2d");
    EXPECT_EQ(Converted("\xff\xfe\x2d\x4e", CharSetUtf16, CharSetUtf16), "\xfe\xff\x4e\x2d");
}

// The result is read as a zero-terminated text, which UTF-16 is not.
TEST(CharSetConverterTest, ATextThatStartsBelowU0100YieldsOnlyTheByteOrderMarkInUtf16) {
    for (unsigned code = 1; code < 0x80; ++code) {
        const std::string in = std::string(1, static_cast<char>(code)) + "中";
        ASSERT_EQ(Converted(in, CharSetUtf8, CharSetUtf16), "\xfe\xff") << code;
    }
    EXPECT_EQ(Converted("\xc3\xbf中", CharSetUtf8, CharSetUtf16), "\xfe\xff") << "U+00FF";
    EXPECT_EQ(Converted("\xc4\x81中", CharSetUtf8, CharSetUtf16), "\xfe\xff\x01\x01\x4e\x2d") << "U+0101";
    EXPECT_EQ(Converted("一中", CharSetUtf8, CharSetUtf16), "\xfe\xff\x4e") << "U+4E00 ends in a zero byte";
}

TEST(CharSetConverterTest, TypesTwoFourAndNinetyNineConvertAsGbk) {
    for (const uint32_t number : {2U, 4U, 99U, 0xffffffffU}) {
        const auto type = static_cast<CharSetType>(number);

        EXPECT_EQ(Converted("朱镕基", CharSetUtf8, type), "\xd6\xec\xe9\x46\xbb\xf9") << number;
        EXPECT_EQ(Converted("\xd6\xec\xe9\x46\xbb\xf9", type, CharSetUtf8), "朱镕基") << number;
        EXPECT_EQ(Converted("\xa1\xaa", type, CharSetUtf8), "\xe2\x80\x94") << number << ": not the code of GB2312";
    }
}

TEST(CharSetConverterTest, NoStateIsCarriedFromOneTextToTheNext) {
    EXPECT_EQ(Converted("\xff\xfe\x2d\x4e", CharSetUtf16, CharSetUtf8), "中");
    EXPECT_EQ(Converted("\x4e\x2d", CharSetUtf16, CharSetUtf8), "中") << "the byte order of the text before";
    EXPECT_EQ(Converted("中", CharSetUtf8, CharSetUtf16), "\xfe\xff\x4e\x2d");
    EXPECT_EQ(Converted("中", CharSetUtf8, CharSetUtf16), "\xfe\xff\x4e\x2d") << "the mark comes each time";
    EXPECT_EQ(Converted("a\xe4\xb8", CharSetUtf8, CharSetGbk), "a");
    EXPECT_EQ(Converted("\xad", CharSetUtf8, CharSetGbk), "") << "the rest of a character of the text before";
}

TEST(CharSetConverterTest, TheResultMayReplaceTheTextItself) {
    std::string text = "\xd6\xd0\xce\xc4";

    CharSetConverter::Convert(text, text, CharSetGb2312, CharSetUtf8);

    EXPECT_EQ(text, "中文");
}

TEST(CharSetConverterTest, AMebibyteConvertsInOneCall) {
    std::string in;
    std::string expected;
    for (size_t i = 0; i < size_t{1} << 19U; ++i) {
        in += "\xd6\xd0";
        expected += "中";
    }
    const LibiconvWatch watch;

    EXPECT_TRUE(Converted(in, CharSetGb2312, CharSetUtf8) == expected) << "the texts are too long to be printed";
    EXPECT_EQ(watch.conversions.size(), 1U);
}

TEST(CharSetConverterTest, ATextCostsExactlyOneLibraryCallIntoAnArrayOfSixTimesItsLengthAndOne) {
    struct Case {
        const char* what;
        std::string in;
    };

    const std::vector<Case> cases = {
        {"empty", ""},
        {"one byte", "a"},
        {"Chinese", "\xd6\xd0\xce\xc4"},
        {"invalid in the middle", "a\xff\xff\x62"},
        {"cut at the end", "a\xd6"},
        {"with a zero byte", std::string("a\0b", 3)},
        {"long", std::string(5000, 'x')},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        const LibiconvWatch watch;

        static_cast<void>(Converted(row.in, CharSetGb2312, CharSetUtf8));

        ASSERT_EQ(watch.opens.size(), 1U);
        EXPECT_EQ(watch.opens[0].to, "utf-8");
        EXPECT_EQ(watch.opens[0].from, "gb2312");
        ASSERT_EQ(watch.conversions.size(), 1U) << "no loop, and no call that flushes";
        EXPECT_EQ(watch.conversions[0].descriptor, watch.opens[0].descriptor);
        EXPECT_TRUE(watch.conversions[0].hasInput) << "a call without input would flush";
        EXPECT_EQ(watch.conversions[0].inLeft, row.in.size());
        EXPECT_EQ(watch.conversions[0].outLeft, 6 * row.in.size() + 1);
        EXPECT_EQ(watch.conversions[0].outBlock, 6 * row.in.size() + 1) << "the memory that the array takes";
        EXPECT_EQ(watch.closes, std::vector<void*>{watch.opens[0].descriptor});
    }
}

// The address sanitizer sees a byte too many; this also sees one that would have left no room for the terminator.
TEST(CharSetConverterTest, NoSingleByteOutgrowsTheArrayInAnySet) {
    for (const CharSetType from : AllSets) {
        for (const CharSetType to : AllSets) {
            for (unsigned byte = 0; byte < 0x100; ++byte) {
                const LibiconvWatch watch;

                static_cast<void>(Converted(std::string(1, static_cast<char>(byte)), from, to));

                ASSERT_EQ(watch.conversions.size(), 1U);
                ASSERT_EQ(watch.conversions[0].outLeft, 7U);
                ASSERT_GE(watch.conversions[0].outLeftAfter, 1U) << byte << " from " << from << " to " << to;
            }
        }
    }
}

TEST(CharSetConverterTest, TheWidestTextUsesTwoBytesPerByteAndTwoForTheMark) {
    const LibiconvWatch watch;

    static_cast<void>(Converted(std::string(100, 'x'), CharSetUtf8, CharSetUtf16));

    ASSERT_EQ(watch.conversions.size(), 1U);
    EXPECT_EQ(watch.conversions[0].outLeft, 601U);
    EXPECT_EQ(watch.conversions[0].outLeftAfter, 601U - 202U);
}

TEST(CharSetConverterTest, AConverterOpensOnceWithTheTargetFirstAndClosesAtItsEnd) {
    const LibiconvWatch watch;
    {
        const CharSetConverter converter("gbk", "utf-16");
        ASSERT_EQ(watch.opens.size(), 1U);
        EXPECT_EQ(watch.opens[0].to, "utf-16");
        EXPECT_EQ(watch.opens[0].from, "gbk");
        EXPECT_TRUE(watch.closes.empty());
    }
    EXPECT_EQ(watch.closes, std::vector<void*>{watch.opens[0].descriptor});
}

TEST(CharSetConverterTest, AConversionAnswersWhatTheLibraryAnsweredAndTerminatesItsOutput) {
    struct Case {
        const char* what;
        const char* from;
        const char* to;
        std::string in;
        size_t room;
        size_t result;
        int error;
        std::string out;
    };

    const std::vector<Case> cases = {
        {"all converted", "gb2312", "utf-8", "a\xd6\xd0", 8, 0, 0, "a中"},
        {"no input", "gb2312", "utf-8", "", 8, 0, 0, ""},
        {"invalid", "gb2312", "utf-8", "a\xff\xff", 8, Failed, EILSEQ, "a"},
        {"cut", "gb2312", "utf-8", "a\xd6", 8, Failed, EINVAL, "a"},
        {"outside the target", "utf-8", "gb2312", "a\xf0\x9f\x98\x80", 8, Failed, EILSEQ, "a"},
        {"no room for the second character", "gb2312", "utf-8", "a\xd6\xd0", 3, Failed, E2BIG, "a"},
        {"no room at all", "gb2312", "utf-8", "a", 0, Failed, E2BIG, ""},
        {"just enough room", "gb2312", "utf-8", "a\xd6\xd0", 4, 0, 0, "a中"},
        // A suffix that the four names never carry: the library counts each character that it left out.
        {"two characters left out", "utf-8", "gb2312//IGNORE", "\xef\xac\x81-\xef\xac\x81", 8, 2, 0, "-"},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        CharSetConverter converter(row.from, row.to);
        std::string out(row.room + 2, '#');
        size_t outLeft = row.room;
        errno = 0;

        EXPECT_EQ(converter.Convert(row.in.data(), row.in.size(), out.data(), &outLeft), row.result);

        EXPECT_EQ(errno, row.error);
        EXPECT_EQ(outLeft, row.room - row.out.size());
        // One zero byte, and behind it what was there.
        EXPECT_EQ(out, row.out + '\0' + std::string(row.room + 1 - row.out.size(), '#'));
    }
}

TEST(CharSetConverterTest, AFailedOpenLeavesAnEmptyResultAndIsNeverHandedToTheLibrary) {
    for (const CharSetType to : AllSets) {
        const LibiconvWatch watch(LibiconvWatch::Fail);

        EXPECT_EQ(Converted("abc", CharSetUtf8, to), "") << to;

        EXPECT_EQ(watch.opens.size(), 1U);
        EXPECT_TRUE(watch.conversions.empty());
        EXPECT_TRUE(watch.closes.empty());
    }
}

TEST(CharSetConverterTest, ANameThatTheLibraryRefusesGivesAConverterThatConvertsNothing) {
    const LibiconvWatch watch;
    {
        CharSetConverter converter("utf-8", "no-such-set");
        std::string out = "####";
        size_t outLeft = 3;
        errno = 0;

        EXPECT_EQ(converter.Convert("abc", 3, out.data(), &outLeft), Failed);

        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(outLeft, 3U);
        EXPECT_EQ(out, std::string("\0###", 4));
    }
    ASSERT_EQ(watch.opens.size(), 1U);
    EXPECT_EQ(watch.opens[0].descriptor, reinterpret_cast<void*>(-1));
    EXPECT_TRUE(watch.conversions.empty());
    EXPECT_TRUE(watch.closes.empty());
}

TEST(CharSetConverterTest, AFailedOpenIsReportedAtTheWarningLevelAsFarAsTheLogSettingsLetIt) {
    const std::string warning = "\033[0;33mcd -1\n";

    EXPECT_EQ(PrintedByAFailedOpen(true, 0), "") << "as the settings are from the start";
    EXPECT_EQ(PrintedByAFailedOpen(true, 1), "");
    EXPECT_EQ(PrintedByAFailedOpen(true, 2), warning);
    EXPECT_EQ(PrintedByAFailedOpen(true, 3), warning);
    EXPECT_EQ(PrintedByAFailedOpen(false, 3), "");
    EXPECT_EQ(PrintedByAFailedOpen(true, 2, "CharSetConverter"), warning);
    EXPECT_EQ(PrintedByAFailedOpen(true, 2, "Utf8ToWide"), "");
}

TEST(CharSetConverterTest, AFailedOpenPrintsNothingWithTheSettingsOfTheStart) {
    const LibiconvWatch watch(LibiconvWatch::Fail);

    testing::internal::CaptureStdout();
    const std::string out = Converted("abc", CharSetUtf8, CharSetGbk);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(out, "");
}

TEST(CharSetConverterTest, AnOpenThatSucceedsReportsNothing) {
    LogSettings::instance().setMaxLevel(3);

    testing::internal::CaptureStdout();
    const std::string out = Converted("a\xff", CharSetUtf8, CharSetGbk);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "nor does a text that was cut";
    EXPECT_EQ(out, "a");
    LogSettings::instance().setMaxLevel(0);
}

TEST(CharSetConverterTest, AnAllocationFailureLeavesTheResultAloneAndTheDescriptorClosed) {
    const std::string in(100, 'x');
    size_t failures = 0;

    for (;; ++failures) {
        std::string out = "before";
        const LibiconvWatch watch;
        bool thrown = false;
        {
            const FailingAllocation failing(failures);
            try {
                CharSetConverter::Convert(in, out, CharSetUtf8, CharSetGbk);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        }
        ASSERT_EQ(watch.opens.size(), 1U);
        ASSERT_EQ(watch.closes, std::vector<void*>{watch.opens[0].descriptor});
        if (!thrown) {
            EXPECT_EQ(out, in);
            break;
        }
        ASSERT_EQ(out, "before") << "after " << failures << " allocations";
    }

    EXPECT_EQ(failures, 2U) << "the working array, and the result";
}

#if SIZE_MAX <= 0xffffffff // elsewhere every text has room for six times as much
TEST(CharSetConverterTest, ATextWhoseOutputNoArrayHoldsThrowsBadArrayNewLengthAndLeavesTheResultAlone) {
    const std::string in = HugeText(0x100000000 / 6 + 1, 'a');
    const LibiconvWatch watch;
    std::string out = "before";

    EXPECT_THROW(CharSetConverter::Convert(in, out, CharSetUtf8, CharSetGbk), std::bad_array_new_length);
    EXPECT_EQ(out, "before");
    ASSERT_EQ(watch.opens.size(), 1U);
    EXPECT_TRUE(watch.conversions.empty());
    EXPECT_EQ(watch.closes, std::vector<void*>{watch.opens[0].descriptor});
}
#endif

TEST(CharSetConverterTest, ThreadsConvertWithoutDisturbingEachOther) {
    struct Case {
        std::string in;
        CharSetType from;
        CharSetType to;
        std::string out;
    };

    const std::vector<Case> cases = {
        {"\xd6\xd0\xce\xc4", CharSetGb2312, CharSetUtf8, "中文"},
        {"朱镕基", CharSetUtf8, CharSetGbk, "\xd6\xec\xe9\x46\xbb\xf9"},
        {"\xff\xfe\x2d\x4e", CharSetUtf16, CharSetUtf8, "中"},
        {"\x4e\x2d", CharSetUtf16, CharSetUtf8, "中"},
        {"中", CharSetUtf8, CharSetUtf16, "\xfe\xff\x4e\x2d"},
        {"a\xff\xff", CharSetGbk, CharSetUtf8, "a"},
        {"abc", CharSetUtf8, CharSetGb2312, "abc"},
        {"", CharSetGb2312, CharSetUtf8, ""},
    };
    std::atomic<int> wrong{0};

    std::vector<std::thread> threads;
    threads.reserve(cases.size());
    for (const Case& row : cases) {
        threads.emplace_back([&wrong, &row] {
            for (int i = 0; i < 500; ++i) {
                wrong += Converted(row.in, row.from, row.to) == row.out ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}
