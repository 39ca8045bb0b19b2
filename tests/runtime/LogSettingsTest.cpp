#include "runtime/LogSettings.h"

#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <type_traits>

static_assert(!std::is_copy_constructible_v<LogSettings> && !std::is_copy_assignable_v<LogSettings>);
static_assert(!std::is_default_constructible_v<LogSettings>, "there is one, reached through instance()");
static_assert(std::is_trivially_destructible_v<LogSettings>, "it may be asked until the very end of the process");
static_assert(LogSettings::MaxModules == 50 && sizeof(LogSettings::ModuleList) == 50 * sizeof(const char*));

PRIVATE_MEMBER(LogSettingsEnabled, LogSettings, bool, enabled);
PRIVATE_MEMBER(LogSettingsMaxLevel, LogSettings, int32_t, maxLevel);
PRIVATE_MEMBER(LogSettingsModules, LogSettings, LogSettings::ModuleList, modules);
PRIVATE_MEMBER(LogSettingsModuleCount, LogSettings, int32_t, moduleCount);

TEST(LogSettingsTest, TheFieldsStandInTheirOrder) {
    const LogSettings& settings = LogSettings::instance();

    EXPECT_EQ(OffsetOf(settings, Get(LogSettingsEnabled())), 0U);
    EXPECT_EQ(OffsetOf(settings, Get(LogSettingsMaxLevel())), sizeof(int32_t));
    EXPECT_EQ(OffsetOf(settings, Get(LogSettingsModules())), 2 * sizeof(int32_t));
    EXPECT_EQ(OffsetOf(settings, Get(LogSettingsModuleCount())), 2 * sizeof(int32_t) + sizeof(LogSettings::ModuleList));
}

TEST(LogSettingsTest, ThereIsOne) {
    EXPECT_EQ(&LogSettings::instance(), &LogSettings::instance());
}

TEST(LogSettingsTest, AtFirstItIsOnWithLevelZeroAndWithoutAFilter) {
    const LogSettings& settings = LogSettings::instance();

    EXPECT_TRUE(settings.isEnabled());
    EXPECT_EQ(settings.getMaxLevel(), 0);
    EXPECT_EQ(settings.getModuleCount(), 0);
    EXPECT_TRUE(std::all_of(settings.getModules().begin(), settings.getModules().end(),
                            [](const char* module) { return module == nullptr; }));
}

TEST(LogSettingsTest, TheSwitchCanBeSetBothWays) {
    LogSettings& settings = LogSettings::instance();

    settings.setEnabled(false);
    EXPECT_FALSE(settings.isEnabled());
    settings.setEnabled(true);
    EXPECT_TRUE(settings.isEnabled());
}

TEST(LogSettingsTest, TheLevelTakesAnySigned32BitNumber) {
    LogSettings& settings = LogSettings::instance();

    for (const int32_t level : {3, -1, INT32_MAX, INT32_MIN, 0}) {
        settings.setMaxLevel(level);
        EXPECT_EQ(settings.getMaxLevel(), level);
    }
}

TEST(LogSettingsTest, ModulesAreKeptInOrderAsThePointersGiven) {
    LogSettings& settings = LogSettings::instance();
    const char first[] = "same";
    const char second[] = "same";

    EXPECT_TRUE(settings.addModule(first));
    EXPECT_TRUE(settings.addModule(second));

    EXPECT_EQ(settings.getModuleCount(), 2);
    EXPECT_EQ(settings.getModules()[0], first);
    EXPECT_EQ(settings.getModules()[1], second);
    EXPECT_EQ(settings.getModules()[2], nullptr);
    settings.clearModules();
}

TEST(LogSettingsTest, ANullModuleIsRefused) {
    LogSettings& settings = LogSettings::instance();

    EXPECT_FALSE(settings.addModule(nullptr));

    EXPECT_EQ(settings.getModuleCount(), 0);
}

TEST(LogSettingsTest, The51stModuleIsRefusedAndChangesNothing) {
    LogSettings& settings = LogSettings::instance();
    std::array<std::string, 50> names;
    for (size_t i = 0; i < names.size(); ++i) {
        names[i] = "module" + std::to_string(i);
        ASSERT_TRUE(settings.addModule(names[i].c_str())) << i;
    }
    const LogSettings::ModuleList before = settings.getModules();

    EXPECT_FALSE(settings.addModule("one too many"));
    EXPECT_FALSE(settings.addModule(nullptr));

    EXPECT_EQ(settings.getModuleCount(), 50);
    EXPECT_EQ(settings.getModules(), before);
    EXPECT_EQ(settings.getModules()[49], names[49].c_str());
    settings.clearModules();
}

TEST(LogSettingsTest, ClearingEmptiesTheFilterAndMakesRoomAgain) {
    LogSettings& settings = LogSettings::instance();
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(settings.addModule("module"));
    }

    settings.clearModules();

    EXPECT_EQ(settings.getModuleCount(), 0);
    EXPECT_TRUE(std::all_of(settings.getModules().begin(), settings.getModules().end(),
                            [](const char* module) { return module == nullptr; }));
    EXPECT_TRUE(settings.addModule("again"));
    settings.clearModules();
}
