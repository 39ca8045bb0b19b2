#include "tests/growth/Callgrind.h"
#include "tests/support/DeviceSandbox.h"
#include "tests/support/Repeated.h"
#include "xmlconfig/XmlNestingLimit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

// How the instructions of whole runs of the real program grow with what the device gives it: ten times as many may cost
// up to what n log n would make of it, stage by stage.

namespace {

// Entries that take all but five of the pool's 20,096 records (the section takes one, too), and a tenth of them.
constexpr size_t FewEntries = 2009;
constexpr size_t ManyEntries = 10 * FewEntries;
static_assert(ManyEntries <= 20095 && ManyEntries + 10 > 20095);

/// A part of a run: one function, by the beginning of its name and parameters.
struct Stage {
    const char* name;
    const char* function;
    bool isInAnother = false; ///< what it costs is counted in other stages of the list, too
};

/// Lays out a device with so many of what is to grow.
using Layout = std::function<void(const DeviceSandbox& device, size_t count)>;

CallgrindProfile Profile(const Layout& layOut, size_t count, const std::string& mode) {
    const DeviceSandbox device;
    layOut(device, count);
    const std::string file = "/mnt/mtd/code/profile";
    const DeviceRun run =
        device.runProgram("/usr/bin/valgrind", {"--tool=callgrind", "--compress-strings=no", "--compress-pos=no",
                                                "--callgrind-out-file=" + file, WYVERN_BINARY, mode});
    EXPECT_EQ(run.ended, "exit 0") << "valgrind is needed: scripts/setup installs it. Standard error:\n" << run.err;
    return CallgrindProfile(ReadWholeFile(device.onHost(file)));
}

/// Fails for each stage, and for what is in none of them, that costs more in a run with ten times `few` than n log n
/// makes of its cost in a run with `few`. A run with one tells what does not grow; it is taken off.
void ExpectNoFasterThanNLogN(const Layout& layOut, size_t few, const std::string& mode,
                             const std::vector<Stage>& stages) {
    const CallgrindProfile one = Profile(layOut, 1, mode);
    const CallgrindProfile some = Profile(layOut, few, mode);
    const CallgrindProfile many = Profile(layOut, 10 * few, mode);
    const auto n = static_cast<double>(few);
    const double limit = 10 * std::log(10 * n) / std::log(n);

    // Less than an instruction for each is none that grows.
    const auto expectGrowth = [&](const char* name, double ofSome, double ofMany) {
        const double ratio = ofMany / std::max(ofSome, n);
        std::printf("%-45s %12.0f %12.0f %6.2f\n", name, ofSome, ofMany, ratio);
        EXPECT_LE(ratio, limit) << name << ": " << static_cast<int64_t>(ofSome) << " instructions for " << few << ", "
                                << static_cast<int64_t>(ofMany) << " for ten times as many";
    };
    const auto start = static_cast<double>(one.total());
    double restOfSome = static_cast<double>(some.total()) - start;
    double restOfMany = static_cast<double>(many.total()) - start;
    expectGrowth("the whole run", restOfSome, restOfMany);
    for (const Stage& stage : stages) {
        const auto stageStart = static_cast<double>(one.inclusive(stage.function));
        const double ofSome = static_cast<double>(some.inclusive(stage.function)) - stageStart;
        const double ofMany = static_cast<double>(many.inclusive(stage.function)) - stageStart;
        EXPECT_GT(ofSome, n) << stage.name << ": does not grow, or is no longer called " << stage.function << "...";
        expectGrowth(stage.name, ofSome, ofMany);
        if (!stage.isInAnother) {
            restOfSome -= ofSome;
            restOfMany -= ofMany;
        }
    }
    expectGrowth("all else", restOfSome, restOfMany);
}

/// @return a configuration of so many entries that are not enabled, behind so many "<" that its nesting is looked at.
std::string DisabledEntries(size_t count, const char* charset, const char* chinese) {
    std::vector<ConfigEntry> entries;
    for (size_t i = 0; i < count; ++i) {
        entries.push_back({chinese + std::to_string(i), false});
    }
    return ProtocolConfigText(entries, std::string("<?xml version=\"1.0\" encoding=\"") + charset + "\"?>\n" +
                                           Repeated("<!---->", MaxElementDepth + 1));
}

// From the file to the last line of output. All else is the way from the tree to the records of the protocols. There,
// each item takes a record of the pool, which by its rules passes over those taken before. That grows with n * n, and is
// small up to the pool's limit only because an instruction passes over 64 of them.
const std::vector<Stage> EntryStages = {
    {"the file is read", "ReadFileToString("},
    {"the first parse", "XmlConfigureTree::ParseText("},
    {"the second parse", "XmlConfigureTree::ParseAndValidate("},
    {"the check of the nesting, in both parses", "NestsTooDeep(", true},
    {"the pool gets its records back", "SafePointerPool::releaseRecord("},
    {"the document goes", "XmlConfigureDocument::~XmlConfigureDocument("},
    {"the protocols are gone through", "RunProtocolServices("},
};

TEST(GrowthTest, UpToTheLimitOfThePoolEntriesInGb2312CostNoMoreThanNLogN) {
    std::vector<Stage> stages = EntryStages;
    stages.push_back({"the conversion", "CharSetConverter::Convert(std::"});
    const auto layOut = [](const DeviceSandbox& device, size_t count) {
        device.write(DeviceSandbox::WorkingConfig, DisabledEntries(count, "gb2312", "\xCD\xF8\xB9\xD8"));
    };

    ExpectNoFasterThanNLogN(layOut, FewEntries, "2", stages);
}

// The one above has gone through the same up to the limit; these take another way through both parses.
TEST(GrowthTest, EntriesInUtf8CostNoMoreThanNLogN) {
    const auto layOut = [](const DeviceSandbox& device, size_t count) {
        device.write(DeviceSandbox::WorkingConfig, DisabledEntries(count, "utf-8", "\xE7\xBD\x91\xE5\x85\xB3"));
    };

    ExpectNoFasterThanNLogN(layOut, FewEntries / 5, "2", EntryStages);
}

const std::vector<Stage> ServiceStages = {
    {"the service directory is listed", "ListDirectory("},
    {"the start program is chosen", "ServiceCommand::ServiceCommand("},
};

// Each name is looked at to its end, for the keyword and for the protocol, which none holds. They are equally long: the
// short ones would need no memory of their own.
TEST(GrowthTest, FilesInTheServiceDirectoryCostNoMoreThanNLogN) {
    const auto layOut = [](const DeviceSandbox& device, size_t count) {
        device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}}));
        for (size_t i = 0; i < count; ++i) {
            std::ofstream(device.onHost("/factory_setting/") + std::to_string(100000 + i) + "_loadservice");
        }
    };

    ExpectNoFasterThanNLogN(layOut, 1000, "2", ServiceStages);
}

// Entries times files is what the rules make of it: each entry lists the directory anew.
TEST(GrowthTest, EnabledEntriesCostNoMoreThanNLogNWithTheSameFiles) {
    const auto layOut = [](const DeviceSandbox& device, size_t count) {
        device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(std::vector<ConfigEntry>(count, {"ABC"})));
        for (size_t i = 0; i < 20; ++i) {
            device.write("/factory_setting/" + std::to_string(i) + "_loadservice", "");
        }
    };

    ExpectNoFasterThanNLogN(layOut, 200, "2", ServiceStages);
}

TEST(GrowthTest, CommandsCostNoMoreThanNLogN) {
    const auto layOut = [](const DeviceSandbox& device, size_t count) {
        device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(std::vector<ConfigEntry>(count, {"ABC"})));
        device.addStartProgram("ABC_loadservice");
    };

    ExpectNoFasterThanNLogN(layOut, 20, "1", {{"the protocols are gone through", "RunProtocolServices("}});
}

} // namespace
