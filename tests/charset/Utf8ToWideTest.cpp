#include "charset/CharSetConverter.h"

#include "tests/charset/ConversionWatch.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/RepeatedPages.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

static_assert(std::is_same_v<decltype(&Utf8ToWideBuffer), int32_t (*)(const char*, uint32_t, wchar_t*, uint32_t)>);
static_assert(std::is_same_v<decltype(&Utf8ToWide), int32_t (*)(const std::string&, std::wstring&)>);
static_assert(sizeof(wchar_t) == 4, "the sizes below count four bytes a character");

namespace {

using IconvWatch = ConversionWatch<struct CLibrary>;

} // namespace

extern "C" {

void* __real_iconv_open(const char* to, const char* from);
size_t __real_iconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int __real_iconv_close(void* descriptor);

void* __wrap_iconv_open(const char* to, const char* from) {
    IconvWatch* const watch = IconvWatch::active;
    if (watch != nullptr && watch->refuses) {
        errno = EMFILE;
        return reinterpret_cast<void*>(-1);
    }
    void* const descriptor = __real_iconv_open(to, from);
    if (watch != nullptr) {
        watch->opens.push_back({to, from, descriptor});
    }
    return descriptor;
}

size_t __wrap_iconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft) {
    IconvWatch* const watch = IconvWatch::active;
    if (watch == nullptr) {
        return __real_iconv(descriptor, in, inLeft, out, outLeft);
    }
    IconvWatch::Conversion call = {
        descriptor, in != nullptr && *in != nullptr, inLeft != nullptr ? *inLeft : 0, *outLeft, *outLeft, 0};
    if (!watch->refuses) { // the real one would crash on a failed descriptor
        call.result = __real_iconv(descriptor, in, inLeft, out, outLeft);
        call.outLeftAfter = *outLeft;
    }
    watch->conversions.push_back(call);
    return call.result;
}

int __wrap_iconv_close(void* descriptor) {
    if (IconvWatch::active != nullptr) {
        IconvWatch::active->closes.push_back(descriptor);
        if (IconvWatch::active->refuses) {
            return -1;
        }
    }
    return __real_iconv_close(descriptor);
}

} // extern "C"

TEST(Utf8ToWideTest, AWholeTextIsConvertedOrNothing) {
    struct Case {
        const char* what;
        std::string in;
        int32_t result;
        std::wstring out;
    };

    const std::vector<Case> cases = {
        {"three letters", "abc", 0, L"abc"},
        {"two bytes a character", "\xc3\xa9t\xc3\xa9", 0, L"\u00e9t\u00e9"},
        {"three bytes a character", "\xe4\xb8\xad\xe6\x96\x87", 0, L"\u4e2d\u6587"},
        {"four bytes a character", "a\xf0\x9f\x98\x80z", 0, L"a\U0001f600z"},
        {"a byte-order mark is a character like others", "\xef\xbb\xbf\x61", 0, L"\ufeff\x61"},
        {"the last code of one byte", "\x7f", 0, L"\x7f"},
        {"0xFF alone", "\xff", -1, L""},
        {"0xFF at the start", "\xff\x61\x62", -1, L""},
        {"0xFF in the middle", "a\xff\x62", -1, L""},
        {"0xFF at the end", "ab\xff", -1, L""},
        {"a continuation byte without its lead", "a\x80", -1, L""},
        {"cut after one of two bytes", "ab\xc3", -1, L""},
        {"cut after one of three bytes", "ab\xe4", -1, L""},
        {"cut after two of three bytes", "ab\xe4\xb8", -1, L""},
        {"cut after three of four bytes", "ab\xf0\x9f\x98", -1, L""},
        {"a lead byte followed by a letter", "\xe4\x61\x62", -1, L""},
        {"a longer form than needed", "\xc0\x80", -1, L""},
        {"half of a surrogate pair", "\xed\xa0\x80", -1, L""},
        {"GB2312", "\xd6\xd0\xce\xc4", -1, L""},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        std::wstring out = L"before";

        EXPECT_EQ(Utf8ToWide(row.in, out), row.result);
        EXPECT_EQ(out, row.out);
    }
}

TEST(Utf8ToWideTest, ThreeAsciiLettersYieldThoseThreeWideCharactersAndZero) {
    std::wstring out;

    EXPECT_EQ(Utf8ToWide("abc", out), 0);
    EXPECT_EQ(out, L"abc");
}

TEST(Utf8ToWideTest, AnEmptyTextYieldsAnEmptyTextAndZero) {
    std::wstring out = L"before";

    EXPECT_EQ(Utf8ToWide("", out), 0);
    EXPECT_EQ(out, L"");
}

// A path cut where it is damaged would name another file.
TEST(Utf8ToWideTest, AByteOfFFYieldsAnEmptyTextAndMinusOneWhereTheNarrowConversionKeepsAPart) {
    std::wstring out = L"before";

    EXPECT_EQ(Utf8ToWide("abc\xff", out), -1);
    EXPECT_EQ(out, L"");
}

TEST(Utf8ToWideTest, AZeroByteEndsTheResultButTheRestIsChecked) {
    std::wstring out = L"before";

    EXPECT_EQ(Utf8ToWide(std::string("ab\0cd", 5), out), 0);
    EXPECT_EQ(out, L"ab");
    EXPECT_EQ(Utf8ToWide(std::string("ab\0\xff", 4), out), -1);
    EXPECT_EQ(out, L"");
}

TEST(Utf8ToWideTest, EveryLengthFitsWithItsTerminator) {
    for (size_t length = 0; length <= 300; ++length) {
        std::wstring out;

        ASSERT_EQ(Utf8ToWide(std::string(length, 'x'), out), 0) << length;
        ASSERT_EQ(out, std::wstring(length, L'x'));
    }
}

TEST(Utf8ToWideTest, ALongTextIsConvertedWhole) {
    std::string in;
    std::wstring expected;
    for (int i = 0; i < 100000; ++i) {
        in += "x\xe4\xb8\xad";
        expected += L"x\u4e2d";
    }
    std::wstring out;

    EXPECT_EQ(Utf8ToWide(in, out), 0);
    EXPECT_TRUE(out == expected) << "the texts are too long to be printed";
}

#if SIZE_MAX > 0xffffffff // no text of two gibibytes exists elsewhere
TEST(Utf8ToWideTest, ATextOfTwoGibibytesLessOneThrowsBadArrayNewLengthAndLeavesTheResultAlone) {
    const std::string in = HugeText(0x7fffffff, 'a');
    std::wstring out = L"before";
    const IconvWatch watch;

    EXPECT_THROW(static_cast<void>(Utf8ToWide(in, out)), std::bad_array_new_length);
    EXPECT_EQ(out, L"before");
    EXPECT_TRUE(watch.opens.empty());
}

TEST(Utf8ToWideTest, TheLengthIsTakenModuloTwoToTheThirtyTwo) {
    std::string in = HugeText(0x100000003, 'a');
    std::wstring out = L"before";

    EXPECT_EQ(Utf8ToWide(in, out), 0);
    EXPECT_EQ(out, L"aaa");

    in.resize(0x100000000);
    EXPECT_EQ(Utf8ToWide(in, out), 0);
    EXPECT_EQ(out, L"");

    out = L"before";
    in.resize(0xffffffff); // and one is zero elements: no room for the first character
    EXPECT_EQ(Utf8ToWide(in, out), -1);
    EXPECT_EQ(out, L"");

    out = L"before";
    in.resize(0xfffffffe); // and one is negative
    EXPECT_THROW(static_cast<void>(Utf8ToWide(in, out)), std::bad_array_new_length);
    EXPECT_EQ(out, L"before");
}
#else
TEST(Utf8ToWideTest, ATextWhoseWideFormNoArrayHoldsThrowsBadArrayNewLengthAndLeavesTheResultAlone) {
    const std::string in = HugeText(0x1fffffff, 'a');
    std::wstring out = L"before";
    const IconvWatch watch;

    EXPECT_THROW(static_cast<void>(Utf8ToWide(in, out)), std::bad_array_new_length);
    EXPECT_EQ(out, L"before");
    EXPECT_TRUE(watch.opens.empty());
}
#endif

TEST(Utf8ToWideTest, OneCallOfTheCLibraryConvertsIntoOneCharacterMoreThanThereAreBytes) {
    const IconvWatch watch;
    std::wstring out;

    EXPECT_EQ(Utf8ToWide("\xe4\xb8\xad", out), 0);

    ASSERT_EQ(watch.opens.size(), 1U);
    EXPECT_EQ(watch.opens[0].to, "WCHAR_T");
    EXPECT_EQ(watch.opens[0].from, "UTF8");
    ASSERT_EQ(watch.conversions.size(), 1U);
    EXPECT_EQ(watch.conversions[0].descriptor, watch.opens[0].descriptor);
    EXPECT_EQ(watch.conversions[0].inLeft, 3U);
    EXPECT_EQ(watch.conversions[0].outLeft, (3U + 1U) * 4U);
    EXPECT_EQ(watch.closes, std::vector<void*>{watch.opens[0].descriptor});
}

TEST(Utf8ToWideTest, EachConversionClosesWhatItOpenedAlsoWhenItFails) {
    const IconvWatch watch;
    std::wstring out;

    for (const char* in : {"abc", "\xff", "", "\xe4\xb8"}) {
        static_cast<void>(Utf8ToWide(in, out));
    }

    ASSERT_EQ(watch.opens.size(), 4U);
    ASSERT_EQ(watch.closes.size(), 4U);
    for (size_t i = 0; i < watch.opens.size(); ++i) {
        EXPECT_EQ(watch.closes[i], watch.opens[i].descriptor) << i;
    }
}

TEST(Utf8ToWideTest, AConversionThatCannotBeOpenedGivesMinusOneAndAnEmptyText) {
    std::wstring out = L"before";
    const IconvWatch watch(IconvWatch::Fail);

    EXPECT_EQ(Utf8ToWide("abc", out), -1);
    EXPECT_EQ(out, L"");
}

// glibc crashes when it is handed the failed value.
TEST(Utf8ToWideBufferTest, AConversionThatCannotBeOpenedGivesMinusOneAndIsNeitherUsedNorClosed) {
    std::array<wchar_t, 4> out = {L'1', L'2', L'3', L'4'};
    const IconvWatch watch(IconvWatch::Fail);

    EXPECT_EQ(Utf8ToWideBuffer("abc", 3, out.data(), sizeof(out)), -1);
    EXPECT_EQ(std::wstring(out.data(), out.size()), L"1234");
    EXPECT_TRUE(watch.conversions.empty());
    EXPECT_TRUE(watch.closes.empty());
}

TEST(Utf8ToWideBufferTest, NothingIsWrittenBehindTheConvertedCharacters) {
    std::array<wchar_t, 4> out = {L'1', L'2', L'3', L'4'};

    EXPECT_EQ(Utf8ToWideBuffer("ab", 2, out.data(), sizeof(out)), 0);
    EXPECT_EQ(std::wstring(out.data(), out.size()), L"ab34") << "no terminator is added";
}

TEST(Utf8ToWideBufferTest, OnlyTheGivenNumberOfBytesIsRead) {
    std::array<wchar_t, 4> out = {L'1', L'2', L'3', L'4'};

    EXPECT_EQ(Utf8ToWideBuffer("ab\xff", 2, out.data(), sizeof(out)), 0);
    EXPECT_EQ(std::wstring(out.data(), out.size()), L"ab34");
}

TEST(Utf8ToWideBufferTest, AnOutputThatIsJustLargeEnoughIsFilled) {
    std::array<wchar_t, 3> out = {L'1', L'2', L'3'};

    EXPECT_EQ(Utf8ToWideBuffer("abc", 3, out.data(), sizeof(out)), 0);
    EXPECT_EQ(std::wstring(out.data(), out.size()), L"abc");
}

TEST(Utf8ToWideBufferTest, AnOutputThatIsTooSmallGivesMinusOneAndHoldsWhatFitted) {
    struct Case {
        uint32_t bytes;
        std::wstring out;
    };

    const std::vector<Case> cases = {{0, L"1234"}, {3, L"1234"}, {4, L"a234"}, {11, L"ab34"}};

    for (const Case& row : cases) {
        SCOPED_TRACE(row.bytes);
        std::array<wchar_t, 4> out = {L'1', L'2', L'3', L'4'};

        EXPECT_EQ(Utf8ToWideBuffer("abc", 3, out.data(), row.bytes), -1);
        EXPECT_EQ(std::wstring(out.data(), out.size()), row.out);
    }
}

TEST(Utf8ToWideBufferTest, NoInputGivesZeroAndWritesNothing) {
    std::array<wchar_t, 2> out = {L'1', L'2'};

    EXPECT_EQ(Utf8ToWideBuffer("abc", 0, out.data(), sizeof(out)), 0);
    EXPECT_EQ(std::wstring(out.data(), out.size()), L"12");
}

TEST(Utf8ToWideBufferTest, DamagedInputGivesMinusOneBehindWhatWasConverted) {
    for (const std::string in : {"a\xff", "a\xe4\xb8", "a\xe4\xb8z"}) {
        std::array<wchar_t, 4> out = {L'1', L'2', L'3', L'4'};

        EXPECT_EQ(Utf8ToWideBuffer(in.data(), static_cast<uint32_t>(in.size()), out.data(), sizeof(out)), -1);
        EXPECT_EQ(std::wstring(out.data(), out.size()), L"a234");
    }
}

TEST(Utf8ToWideTest, AnAllocationFailureLeavesTheResultAloneAndNothingOpen) {
    const std::string in(100, 'x');
    size_t failures = 0;

    for (;; ++failures) {
        std::wstring out = L"before";
        const IconvWatch watch;
        bool thrown = false;
        {
            const FailingAllocation failing(failures);
            try {
                static_cast<void>(Utf8ToWide(in, out));
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        }
        ASSERT_EQ(watch.closes.size(), watch.opens.size());
        if (!thrown) {
            EXPECT_EQ(out, std::wstring(100, L'x'));
            break;
        }
        ASSERT_EQ(out, L"before") << "after " << failures << " allocations";
    }

    EXPECT_EQ(failures, 2U) << "the working array, and the result";
}
