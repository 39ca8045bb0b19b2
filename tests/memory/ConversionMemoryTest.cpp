#include "charset/CharSetConverter.h"
#include "tests/memory/FaultSweep.h"
#include "tests/support/Repeated.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// One text in each of the sets that can be named: every one converts into every other. Too long, in all of them, for the
// inside of a string.
const struct {
    CharSetType charSet;
    std::string text;
} Texts[] = {
    {CharSetGb2312, Repeated("\xD0\xAD\xD2\xE9", 10)},
    {CharSetUtf8, Repeated("\xE5\x8D\x8F\xE8\xAE\xAE", 10)},
    {CharSetGbk, Repeated("\xD0\xAD\xD2\xE9", 10)},
    {CharSetUtf16, "\xFE\xFF" + Repeated("\x53\x4F\x8B\xAE", 10)},
};

} // namespace

// "failure" here is an empty text: there is no result.
TEST(ConversionMemoryTest, AConversionEndsByBadAllocOrWithAnEmptyTextWhenItCannotBeOpened) {
    // The output is allocated after the opening, whatever came of that.
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw},
        {"libiconv_open", Ending::False, Ending::Threw},
    };

    for (const auto& from : Texts) {
        for (const auto& to : Texts) {
            SweepFaults("Convert from " + GetCharSetName(from.charSet) + " to " + GetCharSetName(to.charSet),
                        [&](FaultyAttempt& attempt) {
                            std::string out = "before";

                            attempt.run(rules, [&] {
                                CharSetConverter::Convert(from.text, out, from.charSet, to.charSet);
                                return !out.empty();
                            });

                            EXPECT_EQ(out, attempt.threw() ? "before" : attempt.succeeded() ? to.text : "");
                            CharSetConverter::Convert(from.text, out, from.charSet, to.charSet);
                            EXPECT_EQ(out, to.text);
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
