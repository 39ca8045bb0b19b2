#include "tests/launcher/OpenWatch.h"
#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"
#include "tests/support/Repeated.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

// The command as an operator has it: the real program, on its real paths.

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr const char* Usage = "Useage: Wyvern [Type 1:start,0:stop]\n";

constexpr size_t MostEntries = 20095; // a record each, and one for the section

// A device on which one protocol is enabled and another is not, in the working copy as in the factory copy, and whose
// start program works.
class WyvernTest : public testing::Test {
protected:
    WyvernTest() {
        device.addStartProgram("ABC_loadservice_x");
        device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}, {"WORKING", false}}));
        device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"ABC"}, {"FACTORY", false}}));
    }

    void expectNothingRan(const DeviceRun& run) {
        EXPECT_EQ(run.commands, Lines());
        EXPECT_EQ(run.programs, Lines());
    }

    const DeviceSandbox device;
};

constexpr const char* AbcStarted = "Run LoadServcie(/factory_setting/ABC_loadservice_x) \n";
constexpr const char* AbcStopped = "Stop LoadServcie(killall -15 ABC_Server) \n";
constexpr const char* WorkingDisabled = "Protocol(WORKING) disable\n";
constexpr const char* FactoryDisabled = "Protocol(FACTORY) disable\n";

std::vector<ConfigEntry> DisabledEntries(size_t count) {
    std::vector<ConfigEntry> entries;
    for (size_t i = 0; i < count; ++i) {
        entries.push_back({"P" + std::to_string(i), false});
    }
    return entries;
}

std::string DisabledLines(size_t count) {
    std::string lines;
    for (size_t i = 0; i < count; ++i) {
        lines += "Protocol(P" + std::to_string(i) + ") disable\n";
    }
    return lines;
}

// A configuration in which this many elements stand inside one another: root, section, entry, and what is inside that.
std::string NestedConfig(size_t depth) {
    return "<Configure name=\"Device\"><Configure name=\"ProtocolConfig\">"
           "<ConfigItem ProtocolName=\"ABC\" ProtocolEnable=\"true\">" +
           Repeated("<x>", depth - 3) + Repeated("</x>", depth - 3) + "</ConfigItem></Configure></Configure>";
}

constexpr const char* ChineseInUtf8 = "\xE7\xBD\x91\xE5\x85\xB3";

// What a configuration is written in, and the same two characters in it.
struct Encoding {
    const char* name;
    std::string declaration;
    std::string chinese;
};

const Encoding Encodings[] = {
    {"UTF-8", "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n", ChineseInUtf8},
    {"GB2312", "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n", "\xCD\xF8\xB9\xD8"},
    {"no declaration, so GB2312", "", "\xCD\xF8\xB9\xD8"},
};

// The text with its line feeds replaced.
std::string WithLineEnds(const std::string& text, const std::string& lineEnd) {
    std::string result;
    for (const char character : text) {
        result += character == '\n' ? lineEnd : std::string(1, character);
    }
    return result;
}

struct Damage {
    const char* name;
    std::string content;
};

const Damage Damages[] = {
    {"empty", ""},
    {"a zero byte first", std::string("\0<Configure/>", 13)},
    {"no XML", "protocols: ABC"},
    {"cut short", ProtocolConfigText({{"ABC"}}).substr(0, 150)},
    {"cut inside a UTF-8 sequence", "<?xml version=\"1.0\" encoding=\"utf-8\"?><Configure name=\"\xE7\xBD"},
    // The mark says nothing about the encoding, only a declaration does: read as GB2312, its last byte is none.
    {"a byte-order mark without a declaration", ProtocolConfigText({{"ABC"}}, "\xEF\xBB\xBF")},
    // Nor does it let one that follows it say anything.
    {"a byte-order mark ahead of a declaration of UTF-8",
     ProtocolConfigText({{"ABC"}}, "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?>\n")},
    {"a byte-order mark ahead of a declaration of GB2312",
     ProtocolConfigText({{"ABC"}}, "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"gb2312\"?>\n")},
    {"a byte that GB2312 does not have",
     ProtocolConfigText({{"ABC\xFF"}}, "<?xml version=\"1.0\" encoding=\"gb2312\"?>")},
    {"not well-formed",
     "<Configure name=\"a\"><Configure name=\"ProtocolConfig\"><ConfigItem></Configure></Configure>"},
    {"another root", "<Config name=\"a\"><Configure name=\"ProtocolConfig\"><ConfigItem/></Configure></Config>"},
    {"a root in lower case",
     "<configure name=\"a\"><Configure name=\"ProtocolConfig\"><ConfigItem/></Configure></configure>"},
    {"a root without a name", "<Configure><Configure name=\"ProtocolConfig\"><ConfigItem/></Configure></Configure>"},
    {"no section", "<Configure name=\"a\"/>"},
    {"no section of that name",
     "<Configure name=\"a\"><Configure name=\"Network\"><ConfigItem/></Configure></Configure>"},
    {"a section without a name in front",
     "<Configure name=\"a\"><Configure/><Configure name=\"ProtocolConfig\"><ConfigItem/></Configure></Configure>"},
    {"no entry", "<Configure name=\"a\"><Configure name=\"ProtocolConfig\"/></Configure>"},
    {"elements of other names only",
     "<Configure name=\"a\"><Configure name=\"ProtocolConfig\"><Item/></Configure></Configure>"},
};

} // namespace

TEST_F(WyvernTest, AnyOtherNumberOfArgumentsThanOnePrintsOnlyTheUsageAndExitsWith255WithoutReadingAFile) {
    OpenWatch watch({device.onHost(DeviceSandbox::WorkingConfig), device.onHost(DeviceSandbox::FactoryConfig),
                     device.onHost("/factory_setting")});

    for (const Lines& arguments : {Lines{}, Lines{"1", "1"}, Lines{"1", ""}, Lines{"0", "1", "2"}}) {
        SCOPED_TRACE(arguments.size());
        const DeviceRun run = device.run(arguments);

        EXPECT_EQ(run.out, Usage);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 255");
        expectNothingRan(run);
        EXPECT_EQ(watch.opened().size(), 0U);
    }
    static_cast<void>(device.run({"1"}));
    EXPECT_EQ(watch.opened().size(), 2U) << "the watch sees the working copy and the listing";
}

// Kernels from 5.18 on put an empty name in the first place, older ones pass an argument count of 0.
TEST_F(WyvernTest, AnEmptyArgumentVectorPrintsOnlyTheUsageAndExitsWith255) {
    const DeviceRun run = device.runWithoutArgumentVector(WYVERN_BINARY);

    EXPECT_EQ(run.out, Usage);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 255");
    expectNothingRan(run);
}

TEST_F(WyvernTest, Argument1StartsTheEnabledProtocolsOfTheWorkingCopy) {
    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, "Run LoadServcie(/factory_setting/ABC_loadservice_x) \nProtocol(WORKING) disable\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    EXPECT_EQ(run.commands, Lines{"/factory_setting/ABC_loadservice_x"});
    EXPECT_EQ(run.programs, Lines{"/factory_setting/ABC_loadservice_x"});
}

TEST_F(WyvernTest, Argument0StopsTheEnabledProtocolsOfTheWorkingCopy) {
    const DeviceRun run = device.run({"0"});

    EXPECT_EQ(run.out, "Stop LoadServcie(killall -15 ABC_Server) \nProtocol(WORKING) disable\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    EXPECT_EQ(run.commands, Lines{"killall -15 ABC_Server"});
    EXPECT_EQ(run.programs, Lines{"killall -15 ABC_Server"});
}

TEST_F(WyvernTest, TheArgumentIsReadLikeAtoiDoesSoThatNoNumberMeansStop) {
    const struct {
        const char* argument;
        const char* line;
        Lines programs;
    } cases[] = {
        {"stop", AbcStopped, {"killall -15 ABC_Server"}},
        {"start", AbcStopped, {"killall -15 ABC_Server"}},
        {"", AbcStopped, {"killall -15 ABC_Server"}},
        {"x1", AbcStopped, {"killall -15 ABC_Server"}},
        {"--help", AbcStopped, {"killall -15 ABC_Server"}},
        {"-0", AbcStopped, {"killall -15 ABC_Server"}},
        {"0x1", AbcStopped, {"killall -15 ABC_Server"}},
        {"1x", AbcStarted, {"/factory_setting/ABC_loadservice_x"}},
        {" \t1", AbcStarted, {"/factory_setting/ABC_loadservice_x"}},
        {"+1", AbcStarted, {"/factory_setting/ABC_loadservice_x"}},
        {"001.9", AbcStarted, {"/factory_setting/ABC_loadservice_x"}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.argument);
        const DeviceRun run = device.run({c.argument});

        EXPECT_EQ(run.out, std::string(c.line) + WorkingDisabled);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        EXPECT_EQ(run.programs, c.programs);
    }
}

TEST_F(WyvernTest, ANumberOtherThan0And1PrintsOnlyTheLinesForDisabledProtocolsAndRunsNothing) {
    for (const char* argument : {"2", "-1", "11", "2x"}) {
        SCOPED_TRACE(argument);
        const DeviceRun run = device.run({argument});

        EXPECT_EQ(run.out, WorkingDisabled);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        expectNothingRan(run);
    }
}

TEST_F(WyvernTest, TheFactoryCopyIsReadOnlyAfterTheWorkingCopyFailed) {
    const std::string working = device.onHost(DeviceSandbox::WorkingConfig);
    const std::string factory = device.onHost(DeviceSandbox::FactoryConfig);
    OpenWatch watch({working, factory});

    static_cast<void>(device.run({"1"}));
    EXPECT_EQ(watch.opened(), (std::map<std::string, int>{{working, 1}}));

    device.write(DeviceSandbox::WorkingConfig, "damaged");
    static_cast<void>(watch.opened());
    static_cast<void>(device.run({"1"}));
    EXPECT_EQ(watch.opened(), (std::map<std::string, int>{{working, 1}, {factory, 1}}));
}

TEST_F(WyvernTest, AMissingWorkingCopyIsReportedAndTheFactoryCopyIsUsed) {
    fs::remove(device.onHost(DeviceSandbox::WorkingConfig));

    const DeviceRun start = device.run({"1"});
    const DeviceRun stop = device.run({"0"});

    EXPECT_EQ(start.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
    EXPECT_EQ(start.err, "");
    EXPECT_EQ(start.ended, "exit 0");
    EXPECT_EQ(start.programs, Lines{"/factory_setting/ABC_loadservice_x"});
    EXPECT_EQ(stop.out, std::string(WorkingFailed) + AbcStopped + FactoryDisabled);
    EXPECT_EQ(stop.programs, Lines{"killall -15 ABC_Server"});
}

TEST_F(WyvernTest, ADamagedWorkingCopyIsReportedAndTheFactoryCopyIsUsed) {
    for (const Damage& damage : Damages) {
        SCOPED_TRACE(damage.name);
        device.write(DeviceSandbox::WorkingConfig, damage.content);

        const DeviceRun run = device.run({"1"});

        EXPECT_EQ(run.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        EXPECT_EQ(run.programs, Lines{"/factory_setting/ABC_loadservice_x"});
    }
}

TEST_F(WyvernTest, AWorkingCopyThatCannotBeReadIsReportedAndTheFactoryCopyIsUsed) {
    const std::string working = device.onHost(DeviceSandbox::WorkingConfig);
    fs::remove(working);
    fs::create_directory(working);

    const DeviceRun asDirectory = device.run({"1"});
    fs::remove(working);
    fs::create_symlink("protocolconfig.xml", working);
    const DeviceRun asCircle = device.run({"1"});

    EXPECT_EQ(asDirectory.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
    EXPECT_EQ(asCircle.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
}

TEST_F(WyvernTest, BothCopiesMissingPrintsTwoFailureLinesRunsNothingAndExitsWith0) {
    fs::remove(device.onHost(DeviceSandbox::WorkingConfig));
    fs::remove(device.onHost(DeviceSandbox::FactoryConfig));

    for (const char* argument : {"0", "1", "2"}) {
        SCOPED_TRACE(argument);
        const DeviceRun run = device.run({argument});

        EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        expectNothingRan(run);
    }
}

TEST_F(WyvernTest, BothCopiesDamagedPrintsTwoFailureLinesRunsNothingAndExitsWith0) {
    for (const Damage& damage : Damages) {
        SCOPED_TRACE(damage.name);
        device.write(DeviceSandbox::WorkingConfig, "damaged");
        device.write(DeviceSandbox::FactoryConfig, damage.content);

        const DeviceRun run = device.run({"1"});

        EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        expectNothingRan(run);
    }
}

// Neither has an end to be read at: each copy is a symbolic link to the other.
TEST_F(WyvernTest, BothCopiesInACircleOfSymbolicLinksPrintsTwoFailureLinesRunsNothingAndExitsWith0) {
    fs::remove(device.onHost(DeviceSandbox::WorkingConfig));
    fs::remove(device.onHost(DeviceSandbox::FactoryConfig));
    fs::create_symlink(DeviceSandbox::FactoryConfig, device.onHost(DeviceSandbox::WorkingConfig));
    fs::create_symlink(DeviceSandbox::WorkingConfig, device.onHost(DeviceSandbox::FactoryConfig));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    expectNothingRan(run);
}

// A section without entries counts as damaged; so it is the two failure lines that are printed, and nothing after.
TEST_F(WyvernTest, AConfigurationWithoutProtocolEntriesRunsNothingAndExitsWith0) {
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({}));
    device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText({}));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    expectNothingRan(run);
}

TEST_F(WyvernTest, NeitherCopyIsWrittenBack) {
    const std::string working = device.onHost(DeviceSandbox::WorkingConfig);
    const std::string factory = device.onHost(DeviceSandbox::FactoryConfig);
    device.write(DeviceSandbox::WorkingConfig, "damaged");
    OpenWatch watch({working, factory});

    static_cast<void>(device.run({"1"}));
    EXPECT_EQ(watch.changed(), std::set<std::string>());

    fs::remove(working);
    static_cast<void>(device.run({"1"}));
    EXPECT_FALSE(fs::exists(working));
    EXPECT_EQ(ReadWholeFile(factory), ProtocolConfigText({{"ABC"}, {"FACTORY", false}}));
    EXPECT_EQ(fs::directory_iterator(device.onHost("/mnt/mtd/code/config_file")), fs::directory_iterator());
}

TEST_F(WyvernTest, TheFailureLineIsFlushedBeforeAnythingRuns) {
    fs::remove(device.onHost(DeviceSandbox::WorkingConfig));
    device.addStartProgram("ABC_loadservice_x", "echo ABC serves");

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.writes, (Lines{WorkingFailed, "ABC serves\n", AbcStarted, FactoryDisabled}));
}

TEST_F(WyvernTest, AConfigurationNested5000DeepIsUsed) {
    device.write(DeviceSandbox::WorkingConfig, NestedConfig(5000));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, AbcStarted);
    EXPECT_EQ(run.ended, "exit 0");
}

#ifdef WYVERN_PLAIN_FRAMES
// The parser recurses, with over 200 bytes of stack for each level. A stack that is too small for that ends the process while
// it reads: better no command than those of half a configuration, or of another one.
TEST_F(WyvernTest, AConfigurationNested5000DeepIsUsedOnAStackOf2MiBAndEndsTheProcessBySigsegvOnOneOf512KiB) {
    device.write(DeviceSandbox::WorkingConfig, NestedConfig(5000));

    const DeviceRun large = device.runScript("ulimit -s 2048; exec \"$WYVERN\" 1");
    const DeviceRun small = device.runScript("ulimit -c 0; ulimit -s 512; exec \"$WYVERN\" 1");

    EXPECT_EQ(large.out, AbcStarted);
    EXPECT_EQ(large.ended, "exit 0");
    EXPECT_EQ(small.out, "");
    EXPECT_EQ(small.ended, "signal 11");
    expectNothingRan(small);
}
#endif

TEST_F(WyvernTest, AConfigurationNested5001DeepIsRefusedAndTheFactoryCopyIsUsed) {
    device.write(DeviceSandbox::WorkingConfig, NestedConfig(5001));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
    EXPECT_EQ(run.ended, "exit 0");
}

TEST_F(WyvernTest, AConfigurationNestedAMillionDeepIsRefusedAndTheFactoryCopyIsUsed) {
    for (const std::string& content : {NestedConfig(1000000), Repeated("<Configure name=\"a\">", 1000000)}) {
        device.write(DeviceSandbox::WorkingConfig, content);

        const DeviceRun run = device.run({"1"});

        EXPECT_EQ(run.out, std::string(WorkingFailed) + AbcStarted + FactoryDisabled);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
    }
}

TEST_F(WyvernTest, BothCopiesNestedAMillionDeepAreRefusedAndNothingRuns) {
    device.write(DeviceSandbox::WorkingConfig, NestedConfig(1000000));
    device.write(DeviceSandbox::FactoryConfig, NestedConfig(1000000));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, std::string(WorkingFailed) + FactoryFailed);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    expectNothingRan(run);
}

TEST_F(WyvernTest, AConfigurationOf20000DisabledProtocolsPrintsEachOfThem) {
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(DisabledEntries(20000)));

    const DeviceRun run = device.run({"1"});

    EXPECT_TRUE(run.out == DisabledLines(20000)) << "it is " << run.out.size() << " bytes";
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
}

TEST_F(WyvernTest, AConfigurationOfTheMostEntriesLoads) {
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(DisabledEntries(MostEntries)));

    const DeviceRun run = device.run({"2"});

    EXPECT_TRUE(run.out == DisabledLines(MostEntries)) << "it is " << run.out.size() << " bytes";
    EXPECT_EQ(run.ended, "exit 0");
}

TEST_F(WyvernTest, MoreEntriesThanTheMostEndTheProcessBySigabrtAndTheLinesBeforeReachThePipe) {
    fs::remove(device.onHost(DeviceSandbox::WorkingConfig));
    device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText(DisabledEntries(MostEntries + 1)));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, WorkingFailed);
    EXPECT_NE(run.err.find("too much safe poniter"), std::string::npos) << run.err;
    EXPECT_EQ(run.ended, "signal 6");
    expectNothingRan(run);
}

// An exception is no failed load: there is no way back from it.
TEST_F(WyvernTest, AWorkingCopyWithMoreEntriesThanTheMostEndsTheProcessAndTheFactoryCopyIsNotTried) {
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(DisabledEntries(MostEntries + 1)));

    const DeviceRun run = device.run({"1"});

    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.ended, "signal 6");
    expectNothingRan(run);
}

// The service directory's names are UTF-8, whatever the configuration is written in.
TEST_F(WyvernTest, ChineseProtocolNamesOfEveryEncodingMatchFileNamesInUtf8) {
    const std::string utf8 = "\xE7\xBD\x91\xE5\x85\xB3";
    const std::string gb2312 = "\xCD\xF8\xB9\xD8"; // GBK has the same bytes
    const struct {
        const char* name;
        std::string declaration;
        std::string protocol;
    } cases[] = {
        {"UTF-8", "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n", utf8},
        {"UTF-8 in capitals", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", utf8},
        {"GB2312", "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n", gb2312},
        {"GB2312 in capitals", "<?xml version=\"1.0\" encoding=\"GB2312\" standalone=\"no\"?>\n", gb2312},
        {"GBK", "<?xml version=\"1.0\" encoding=\"GBK\"?>\n", gb2312},
        {"no declaration, so GB2312", "", gb2312},
    };
    const std::string program = utf8 + "_loadservice";
    device.addStartProgram(program);

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        device.write(DeviceSandbox::WorkingConfig,
                     ProtocolConfigText({{c.protocol}, {c.protocol + "2", false}}, c.declaration));

        const DeviceRun start = device.run({"1"});
        const DeviceRun stop = device.run({"0"});

        EXPECT_EQ(start.out, "Run LoadServcie(/factory_setting/" + program + ") \nProtocol(" + utf8 + "2) disable\n");
        EXPECT_EQ(start.programs, Lines{"/factory_setting/" + program});
        EXPECT_EQ(stop.out, "Stop LoadServcie(killall -15 " + utf8 + "_Server) \nProtocol(" + utf8 + "2) disable\n");
        EXPECT_EQ(stop.programs, Lines{"killall -15 " + utf8 + "_Server"});
    }
}

// A name is the place where the bytes of a line end can be seen: elsewhere all of them are white space.
TEST_F(WyvernTest, LineEndsOfEveryKindAreLineFeedsInANameOfEveryEncoding) {
    const struct {
        const char* name;
        std::string lineEnd;
    } lineEnds[] = {{"LF", "\n"}, {"CR LF", "\r\n"}, {"lone CR", "\r"}};

    for (const Encoding& encoding : Encodings) {
        for (const auto& lineEnd : lineEnds) {
            SCOPED_TRACE(std::string(encoding.name) + ", " + lineEnd.name);
            const std::string text = ProtocolConfigText(
                {{encoding.chinese + "\n1", false}, {"ABC"}, {"\n2\n\n", false}}, encoding.declaration);
            device.write(DeviceSandbox::WorkingConfig, WithLineEnds(text, lineEnd.lineEnd));

            const DeviceRun run = device.run({"1"});

            EXPECT_EQ(run.out, std::string("Protocol(") + ChineseInUtf8 + "\n1) disable\n" + AbcStarted +
                                   "Protocol(\n2\n\n) disable\n");
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(run.ended, "exit 0");
        }
    }
}

TEST_F(WyvernTest, AConfigurationOfEveryEncodingEndsAtItsFirstZeroByte) {
    for (const Encoding& encoding : Encodings) {
        for (const std::string& behind :
             {std::string(), std::string("\0\0", 2), std::string("</Configure>"), std::string("\xFF<"),
              ProtocolConfigText({{"BEHIND", false}}, encoding.declaration)}) {
            SCOPED_TRACE(std::string(encoding.name) + ", behind the zero byte: " + testing::PrintToString(behind));
            device.write(DeviceSandbox::WorkingConfig,
                         ProtocolConfigText({{encoding.chinese, false}, {"ABC"}}, encoding.declaration) + '\0' +
                             behind);

            const DeviceRun run = device.run({"1"});

            EXPECT_EQ(run.out, std::string("Protocol(") + ChineseInUtf8 + ") disable\n" + AbcStarted);
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(run.ended, "exit 0");
        }
    }
}

TEST_F(WyvernTest, ACompleteConfigurationIsWorkedThroughInTheOrderOfTheFile) {
    for (const char* name : {"Modbus_loadservice.sh", "OPCUA_loadservice", "MQTT_loadservice_v2"}) {
        device.addStartProgram(name, "echo ${0##*/} says so");
    }
    device.write(DeviceSandbox::WorkingConfig,
                 ProtocolConfigText({{"MQTT"}, {"BACnet", false}, {"Modbus"}, {"Lost"}, {"OPCUA"}}));

    const DeviceRun start = device.run({"1"});
    const DeviceRun stop = device.run({"0"});

    EXPECT_EQ(start.out, "MQTT_loadservice_v2 says so\n"
                         "Run LoadServcie(/factory_setting/MQTT_loadservice_v2) \n"
                         "Protocol(BACnet) disable\n"
                         "Modbus_loadservice.sh says so\n"
                         "Run LoadServcie(/factory_setting/Modbus_loadservice.sh) \n"
                         "Run LoadServcie(/factory_setting/) \n"
                         "OPCUA_loadservice says so\n"
                         "Run LoadServcie(/factory_setting/OPCUA_loadservice) \n");
    EXPECT_EQ(stop.programs, (Lines{"killall -15 MQTT_Server", "killall -15 Modbus_Server", "killall -15 _Server",
                                    "killall -15 OPCUA_Server"}));
    EXPECT_EQ(start.ended, "exit 0");
    EXPECT_EQ(stop.ended, "exit 0");
}
