#include "charset/CharSetConverter.h"
#include "tests/memory/FaultSweep.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr CharSetType CharSets[] = {CharSetGb2312, CharSetUtf8, CharSetGbk, CharSetUtf16};

} // namespace

// "failure" here is an empty text: there is no result.
TEST(ConversionMemoryTest, AConversionEndsByBadAllocOrWithAnEmptyTextWhenItCannotBeOpened) {
    // The output is allocated after the opening, whatever came of that.
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw},
        {"libiconv_open", Ending::False, Ending::Threw},
    };
    const std::string text = "a text that is too long for the inside of a string";

    for (const CharSetType from : CharSets) {
        for (const CharSetType to : CharSets) {
            std::string expected;
            CharSetConverter::Convert(text, expected, from, to);
            if (expected.empty()) {
                continue; // UTF-16 whose first byte is zero, and GB2312 text read as UTF-16
            }
            SweepFaults("Convert from " + GetCharSetName(from) + " to " + GetCharSetName(to),
                        [&](FaultyAttempt& attempt) {
                            std::string out = "before";

                            attempt.run(rules, [&] {
                                CharSetConverter::Convert(text, out, from, to);
                                return !out.empty();
                            });

                            EXPECT_EQ(out, attempt.threw() ? "before" : attempt.succeeded() ? expected : "");
                            CharSetConverter::Convert(text, out, from, to);
                            EXPECT_EQ(out, expected);
                        });
        }
    }
}

// In a process of its own each, since the C library prepares its conversions once.
TEST(ConversionMemoryTest, AWideConversionEndsByBadAllocOrWithAnEmptyTextWhenItCannotBeOpened) {
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw},
        {"iconv_open", Ending::False, Ending::False},
    };
    const std::string text = "a text \xE5\x8D\x8F\xE8\xAE\xAE that is too long for the inside of a string";
    const std::wstring expected = L"a text \u534F\u8BAE that is too long for the inside of a string";

    SweepFaultsInChildren("Utf8ToWide", [&](FaultyAttempt& attempt) {
        std::wstring out = L"before";

        attempt.run(rules, [&] { return Utf8ToWide(text, out) == 0; });

        EXPECT_EQ(out, attempt.threw() ? L"before" : attempt.succeeded() ? expected : L"");
        EXPECT_EQ(Utf8ToWide(text, out), 0);
        EXPECT_EQ(out, expected);
    });
}
