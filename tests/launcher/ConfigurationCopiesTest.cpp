#include "launcher/ConfigurationCopies.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(ConfigurationCopiesTest, TheCopiesStandInTheDirectoriesOfTheConfigurationAndOfTheFactorySetting) {
    EXPECT_EQ(WorkingCopyPath(), "/mnt/mtd/code/config_file/protocolconfig.xml");
    EXPECT_EQ(FactoryCopyPath(), "/mnt/mtd/code/factory_setting/protocolconfig.xml");
}

TEST(ConfigurationCopiesTest, TheFactoryCopyIsTriedOnlyBehindAWorkingCopyThatCannotBeUsed) {
    struct Case {
        bool workingIsUsable;
        bool factoryIsUsable;
        bool result;
        std::vector<std::string> tried;
    };
    for (const Case& each : {Case{true, true, true, {WorkingCopyPath()}}, Case{true, false, true, {WorkingCopyPath()}},
                             Case{false, true, true, {WorkingCopyPath(), FactoryCopyPath()}},
                             Case{false, false, false, {WorkingCopyPath(), FactoryCopyPath()}}}) {
        std::vector<std::string> tried;

        const bool result = FirstUsableCopy([&each, &tried](const std::string& path) {
            tried.push_back(path);
            return path == WorkingCopyPath() ? each.workingIsUsable : each.factoryIsUsable;
        });

        EXPECT_EQ(result, each.result);
        EXPECT_EQ(tried, each.tried);
    }
}
