#include "launcher/LoadProtocolConfig.h"

#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"

#include <gtest/gtest.h>

#include <string>

// It reads fixed paths, so it runs in a sandbox, inside a small program that prints the result and the names. What
// makes a copy unusable is told in the tests of the command.

namespace {

DeviceRun Load(const DeviceSandbox& device) {
    device.write("/mnt/mtd/code/before.xml", ProtocolConfigText({{"BEFORE"}}));
    return device.runProgram(LAUNCHER_PROBE, {"load", "/mnt/mtd/code/before.xml"});
}

} // namespace

TEST(LoadProtocolConfigTest, TheWorkingCopyReplacesTheListAndNothingIsPrinted) {
    const DeviceSandbox device;
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"W1"}, {"W2"}}));
    device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"F1"}}));

    const DeviceRun run = Load(device);

    EXPECT_EQ(run.out, "true\nW1\nW2\n");
    EXPECT_EQ(run.err, "");
}

TEST(LoadProtocolConfigTest, TheFactoryCopyReplacesTheListWhenTheWorkingCopyFailsWhichIsPrinted) {
    const DeviceSandbox device;
    device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"F1"}}));

    const DeviceRun run = Load(device);

    EXPECT_EQ(run.out, std::string(WorkingFailed) + "true\nF1\n");
    EXPECT_EQ(run.err, "");
}

TEST(LoadProtocolConfigTest, TheListStaysAsItWasWhenBothCopiesFailWhichIsPrinted) {
    const DeviceSandbox device;

    const DeviceRun run = Load(device);

    EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed + "false\nBEFORE\n");
    EXPECT_EQ(run.err, "");
}

TEST(LoadProtocolConfigTest, EachFailureLineIsFlushedAsItIsPrinted) {
    const DeviceSandbox device;

    const DeviceRun run = Load(device);

    EXPECT_EQ(run.writes, (std::vector<std::string>{WorkingFailed, FactoryFailed, "false\nBEFORE\n"}));
}
