#include "runtime/ConsoleLog.h"

#include "runtime/LogSettings.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

static_assert(std::is_empty_v<ConsoleLog>, "a value without data");
static_assert(LogError == 1 && LogWarning == 2 && LogInfo == 3);
static_assert(std::is_same_v<std::underlying_type_t<LogLevel>, int32_t>);

PRIVATE_MEMBER(ConsoleLogTestModules, LogSettings, LogSettings::ModuleList, modules);

namespace {

/// What one call returned, and what it wrote on standard output.
struct Printed {
    int32_t result;
    std::string output;
};

bool operator==(const Printed& a, const Printed& b) {
    return a.result == b.result && a.output == b.output;
}

[[maybe_unused]] void PrintTo(const Printed& printed, std::ostream* stream) {
    *stream << printed.result << ", " << testing::PrintToString(printed.output);
}

template <class... Arguments>
Printed Print(int32_t level, const char* module, const char* format, Arguments... arguments) {
    testing::internal::CaptureStdout();
    const int32_t result = ConsoleLog().print(level, module, format, arguments...);
    return {result, testing::internal::GetCapturedStdout()};
}

/// Each test starts from the initial settings and leaves them behind.
class ConsoleLogTest : public testing::Test {
protected:
    ~ConsoleLogTest() override {
        settings.setEnabled(true);
        settings.setMaxLevel(0);
        settings.clearModules();
    }

    /// What a level prints while the maximum is set so.
    struct Case {
        int32_t maximum;
        int32_t level;
        Printed expected;
    };

    template <size_t Count>
    void expectPrinted(const Case (&cases)[Count]) {
        for (const Case& c : cases) {
            settings.setMaxLevel(c.maximum);
            EXPECT_EQ(Print(c.level, "module", "x=%d\n", 5), c.expected) << c.level << " of " << c.maximum;
        }
    }

    LogSettings& settings = LogSettings::instance();
};

} // namespace

TEST_F(ConsoleLogTest, WithTheInitialSettingsTheLevelsOneToThreePrintNothingAndReturnZero) {
    for (const int32_t level : {1, 2, 3}) {
        EXPECT_EQ(Print(level, "module", "text %d\n", level), (Printed{0, ""})) << level;
    }
}

TEST_F(ConsoleLogTest, TheLevelsOneToThreeArePrintedInTheirColoursUnlessAboveTheMaximum) {
    const Case cases[] = {
        {0, 1, {0, ""}},
        {1, 1, {4, "\x1b[0;31;1mx=5\n"}},
        {1, 2, {0, ""}},
        {2, 2, {4, "\x1b[0;33mx=5\n"}},
        {2, 3, {0, ""}},
        {3, 1, {4, "\x1b[0;31;1mx=5\n"}},
        {3, 2, {4, "\x1b[0;33mx=5\n"}},
        {3, 3, {4, "\x1b[0;32mx=5\n"}},
        {INT32_MAX, 1, {4, "\x1b[0;31;1mx=5\n"}},
        {-1, 1, {0, ""}},
    };

    expectPrinted(cases);
}

TEST_F(ConsoleLogTest, TheLevelsZeroAndFourAndAllBeyondThemArePrintedWithoutAColourUnlessAboveTheMaximum) {
    const Case cases[] = {
        {0, 0, {4, "x=5\n"}},
        {3, 0, {4, "x=5\n"}},
        {0, -1, {4, "x=5\n"}},
        {0, INT32_MIN, {4, "x=5\n"}},
        {-1, 0, {0, ""}},
        {-1, -1, {4, "x=5\n"}},
        {3, 4, {0, ""}},
        {4, 4, {4, "x=5\n"}},
        {100, 4, {4, "x=5\n"}},
        {INT32_MAX, INT32_MAX, {4, "x=5\n"}},
        {INT32_MIN, INT32_MAX, {0, ""}},
    };

    expectPrinted(cases);
}

TEST_F(ConsoleLogTest, SwitchedOffItPrintsNothingAndReturnsZeroAtAnyLevel) {
    settings.setEnabled(false);
    settings.setMaxLevel(INT32_MAX);

    for (const int32_t level : {INT32_MIN, -1, 0, 1, 2, 3, 4, INT32_MAX}) {
        EXPECT_EQ(Print(level, "module", "text %d\n", level), (Printed{0, ""})) << level;
    }
}

TEST_F(ConsoleLogTest, AnEmptyTextReturnsZeroAndPrintsNothingNotEvenTheColour) {
    settings.setMaxLevel(3);
    const std::string empty;

    for (const int32_t level : {0, 1, 2, 3}) {
        EXPECT_EQ(Print(level, "module", empty.c_str(), 0), (Printed{0, ""})) << "an empty format";
        EXPECT_EQ(Print(level, "module", "%s", ""), (Printed{0, ""})) << "a format that makes no text";
    }
}

// The C locale has no form for a character beyond ASCII, and vsnprintf says so.
TEST_F(ConsoleLogTest, ATextThatCannotBeFormattedReturnsTheNegativeResultAndPrintsNothing) {
    settings.setMaxLevel(3);

    const Printed printed = Print(LogError, "module", "before %ls after\n", L"\u00e9");

    EXPECT_LT(printed.result, 0);
    EXPECT_EQ(printed.output, "");
}

TEST_F(ConsoleLogTest, ATextOfMoreThan2046CharactersIsCutAndItsFullLengthReturned) {
    settings.setMaxLevel(3);

    for (const size_t length : {1U, 2045U, 2046U, 2047U, 2048U, 2049U, 5000U}) {
        const std::string text(length - 1, 'a');
        const Printed printed = Print(LogWarning, "module", "%sZ", text.c_str());

        EXPECT_EQ(printed.result, static_cast<int32_t>(length));
        EXPECT_EQ(printed.output, "\x1b[0;33m" + (text + "Z").substr(0, 2046)) << length;
    }
}

TEST_F(ConsoleLogTest, APercentSignThatSurvivesTheFirstFormattingIsFormattedAgain) {
    EXPECT_EQ(Print(0, "module", "%d%%%%\n", 50), (Printed{5, "50%\n"})) << "in the format";
    EXPECT_EQ(Print(0, "module", "%s", "50%%\n"), (Printed{5, "50%\n"})) << "in an argument";
}

TEST_F(ConsoleLogTest, NoResetFollowsAndTheNewlineIsTheCallers) {
    settings.setMaxLevel(3);

    EXPECT_EQ(Print(LogInfo, "module", "a%s", "b"), (Printed{2, "\x1b[0;32mab"}));
    EXPECT_EQ(Print(0, "module", "c%s", "d"), (Printed{2, "cd"})) << "the colour stays in force";
}

TEST_F(ConsoleLogTest, WithAFilterOfTwoAThirdModulePrintsNothingAndTheLengthIsReturned) {
    settings.setMaxLevel(3);
    ASSERT_TRUE(settings.addModule("First.cpp"));
    ASSERT_TRUE(settings.addModule("Second.cpp"));

    for (const char* other : {"Third.cpp", "first.cpp", "First.cp", "First.cpp ", ""}) {
        EXPECT_EQ(Print(LogError, other, "x=%d\n", 5), (Printed{4, ""})) << other;
    }
    for (const std::string allowed : {"First.cpp", "Second.cpp"}) {
        EXPECT_EQ(Print(LogError, allowed.c_str(), "x=%d\n", 5), (Printed{4, "\x1b[0;31;1mx=5\n"})) << allowed;
    }
}

TEST_F(ConsoleLogTest, TheFilterCannotRaiseTheLevel) {
    ASSERT_TRUE(settings.addModule("First.cpp"));

    EXPECT_EQ(Print(LogError, "First.cpp", "x=%d\n", 5), (Printed{0, ""}));
}

TEST_F(ConsoleLogTest, TheLastOf50ModulesPrints) {
    for (int i = 0; i < 49; ++i) {
        ASSERT_TRUE(settings.addModule("other"));
    }
    ASSERT_TRUE(settings.addModule("last"));

    EXPECT_EQ(Print(0, "last", "x=%d\n", 5), (Printed{4, "x=5\n"}));
    EXPECT_EQ(Print(0, "none", "x=%d\n", 5), (Printed{4, ""}));
}

TEST_F(ConsoleLogTest, ANullEntryEndsTheFilter) {
    for (const char* name : {"First.cpp", "Second.cpp", "Third.cpp"}) {
        ASSERT_TRUE(settings.addModule(name));
    }
    (settings.*Get(ConsoleLogTestModules()))[1] = nullptr;

    EXPECT_EQ(Print(0, "First.cpp", "x=%d\n", 5), (Printed{4, "x=5\n"}));
    EXPECT_EQ(Print(0, "Third.cpp", "x=%d\n", 5), (Printed{4, ""})) << "it stands behind the null entry";
}

TEST_F(ConsoleLogTest, AnEntryBeyondTheCountIsNotLookedAt) {
    ASSERT_TRUE(settings.addModule("First.cpp"));
    (settings.*Get(ConsoleLogTestModules()))[1] = "Second.cpp";

    EXPECT_EQ(Print(0, "Second.cpp", "x=%d\n", 5), (Printed{4, ""}));
}

TEST_F(ConsoleLogTest, AfterTheFilterIsClearedEveryModulePrints) {
    ASSERT_TRUE(settings.addModule("First.cpp"));
    settings.clearModules();

    EXPECT_EQ(Print(0, "Third.cpp", "x=%d\n", 5), (Printed{4, "x=5\n"}));
}

TEST_F(ConsoleLogTest, NoHeapIsUsed) {
    const std::string text(5000, 'a');
    testing::internal::CaptureStdout();
    int32_t result = 0;
    bool allocated = false;
    {
        const FailingAllocation failing(0);
        result = ConsoleLog().print(0, "module", "%s\n", text.c_str());
        allocated = FailingAllocation::happened();
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), text.substr(0, 2046));
    EXPECT_EQ(result, 5001);
    EXPECT_FALSE(allocated);
}
