#include "launcher/ServiceControl.h"

#include "launcher/ListDirectory.h"
#include "tests/launcher/OpenWatch.h"
#include "tests/support/DeviceSandbox.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

// The service control runs commands, so it runs in a sandbox only: inside the command itself, with the records of a
// configuration, or inside a small program where the records can be none.

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr const char* Gateway = "\xE7\xBD\x91\xE5\x85\xB3"; // two Chinese characters in UTF-8

std::string Disabled(const std::string& protocol) {
    return "Protocol(" + protocol + ") disable\n";
}

std::string Started(const std::string& file) {
    return "Run LoadServcie(/factory_setting/" + file + ") \n";
}

std::string Stopped(const std::string& prefix) {
    return "Stop LoadServcie(killall -15 " + prefix + "_Server) \n";
}

std::string StartCommand(const std::string& file) {
    return "/factory_setting/" + file;
}

std::string StopCommand(const std::string& prefix) {
    return "killall -15 " + prefix + "_Server";
}

DeviceRun RunWithConfig(const DeviceSandbox& device, const std::vector<ConfigEntry>& entries, const std::string& mode) {
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText(entries));
    return device.run({mode});
}

} // namespace

TEST(ServiceControlTest, StartModeRunsTheStartProgramAndPrintsItWithATrailingBlank) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice_x");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}}, "1");

    EXPECT_EQ(run.out, "Run LoadServcie(/factory_setting/ABC_loadservice_x) \n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    EXPECT_EQ(run.commands, Lines{"/factory_setting/ABC_loadservice_x"});
    EXPECT_EQ(run.programs, Lines{"/factory_setting/ABC_loadservice_x"});
}

TEST(ServiceControlTest, StopModeKillsTheServerAndPrintsTheCommandWithATrailingBlank) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice_x");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(run.out, "Stop LoadServcie(killall -15 ABC_Server) \n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.ended, "exit 0");
    EXPECT_EQ(run.commands, Lines{"killall -15 ABC_Server"});
    EXPECT_EQ(run.programs, Lines{"killall -15 ABC_Server"});
}

TEST(ServiceControlTest, AnyOtherModePrintsOnlyTheLinesForDisabledProtocolsAndRunsNothing) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice_x");

    for (const char* mode : {"2", "-1", "10", "2147483647", "-2147483648"}) {
        SCOPED_TRACE(mode);
        const DeviceRun run = RunWithConfig(device, {{"OFF", false}, {"ABC"}, {"NONE"}, {"OFF2", false}}, mode);

        EXPECT_EQ(run.out, Disabled("OFF") + Disabled("OFF2"));
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        EXPECT_EQ(run.commands, Lines());
        EXPECT_EQ(run.programs, Lines());
    }
}

TEST(ServiceControlTest, AnEmptyRecordListPrintsNothingAndRunsNothing) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice_x");

    for (const char* mode : {"0", "1", "2"}) {
        SCOPED_TRACE(mode);
        const DeviceRun run = device.runProgram(LAUNCHER_PROBE, {"services", mode});

        EXPECT_EQ(run.out, "in the buffer\n") << "the caller's own line, and no more";
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.ended, "exit 0");
        EXPECT_EQ(run.commands, Lines());
    }
}

TEST(ServiceControlTest, ADisabledProtocolIsReportedAndNothingIsListedOrRunForIt) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice_x");
    OpenWatch watch({device.onHost("/factory_setting")});

    for (const char* mode : {"0", "1", "2"}) {
        SCOPED_TRACE(mode);
        const DeviceRun run = RunWithConfig(device, {{"ABC", false}}, mode);

        EXPECT_EQ(run.out, Disabled("ABC"));
        EXPECT_EQ(run.commands, Lines());
        EXPECT_EQ(watch.opened().size(), 0U);
    }
    static_cast<void>(RunWithConfig(device, {{"ABC"}}, "2"));
    EXPECT_EQ(watch.opened().size(), 1U) << "the watch sees a listing";
}

TEST(ServiceControlTest, TheRecordsAreVisitedInTheOrderOfTheFile) {
    const DeviceSandbox device;
    for (const char* name : {"A_loadservice", "B_loadservice", "C_loadservice"}) {
        device.addStartProgram(name);
    }
    const std::vector<ConfigEntry> entries{{"C"}, {"OFF", false}, {"A"}, {"OFF", false}, {"B"}, {"A"}};

    const DeviceRun start = RunWithConfig(device, entries, "1");
    const DeviceRun stop = RunWithConfig(device, entries, "0");

    EXPECT_EQ(start.out, Started("C_loadservice") + Disabled("OFF") + Started("A_loadservice") + Disabled("OFF") +
                             Started("B_loadservice") + Started("A_loadservice"));
    EXPECT_EQ(start.programs, (Lines{StartCommand("C_loadservice"), StartCommand("A_loadservice"),
                                     StartCommand("B_loadservice"), StartCommand("A_loadservice")}));
    EXPECT_EQ(stop.out, Stopped("C") + Disabled("OFF") + Stopped("A") + Disabled("OFF") + Stopped("B") + Stopped("A"));
    EXPECT_EQ(stop.programs, (Lines{StopCommand("C"), StopCommand("A"), StopCommand("B"), StopCommand("A")}));
}

TEST(ServiceControlTest, OfSeveralMatchingNamesTheFirstInListingOrderIsUsed) {
    const DeviceSandbox device;
    for (const char letter : std::string("mazbycxn")) { // neither the first nor the last made is first by name
        device.addStartProgram(std::string(1, letter) + "_ABC_loadservice");
    }
    std::vector<std::string> listed;
    ASSERT_TRUE(ListDirectory(device.onHost("/factory_setting"), listed, "*"));
    ASSERT_EQ(listed.size(), 8U);

    const DeviceRun start = RunWithConfig(device, {{"ABC"}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(start.programs, Lines{StartCommand(listed[0])});
    EXPECT_EQ(stop.programs, Lines{StopCommand(listed[0].substr(0, 1))});
}

TEST(ServiceControlTest, ANameWithOnlyOneOfTheTwoTextsNeverMatches) {
    const DeviceSandbox device;
    for (const char* name :
         {"ABC", "ABC_service", "loadservice", "XYZ_loadservice", "ABC_Loadservice", "abc_loadservice"}) {
        device.addStartProgram(name);
    }

    const DeviceRun start = RunWithConfig(device, {{"ABC"}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(start.out, Started(""));
    EXPECT_EQ(start.programs, Lines());
    EXPECT_EQ(stop.out, Stopped(""));
}

TEST(ServiceControlTest, AHiddenNameOrADirectoryIsNeverACandidate) {
    const DeviceSandbox device;
    device.addStartProgram(".ABC_loadservice");
    device.addStartProgram("ABC_loadservice_directory/ABC_loadservice");

    const DeviceRun start = RunWithConfig(device, {{"ABC"}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(start.out, Started(""));
    EXPECT_EQ(start.commands, Lines{"/factory_setting/"});
    EXPECT_EQ(start.programs, Lines());
    EXPECT_EQ(stop.commands, Lines{"killall -15 _Server"});
}

TEST(ServiceControlTest, ASymbolicLinkIsRun) {
    const DeviceSandbox device;
    device.addStartProgram("program");
    fs::create_symlink("program", device.onHost("/factory_setting/ABC_loadservice"));

    const DeviceRun run = RunWithConfig(device, {{"ABC"}}, "1");

    EXPECT_EQ(run.out, Started("ABC_loadservice"));
    EXPECT_EQ(run.programs, Lines{StartCommand("ABC_loadservice")});
}

TEST(ServiceControlTest, ADanglingSymbolicLinkIsChosenAndItsFailureIgnored) {
    const DeviceSandbox device;
    fs::create_symlink("nowhere", device.onHost("/factory_setting/ABC_loadservice"));
    device.addStartProgram("XYZ_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}, {"XYZ"}}, "1");

    EXPECT_EQ(run.out, Started("ABC_loadservice") + Started("XYZ_loadservice"));
    EXPECT_EQ(run.commands, (Lines{StartCommand("ABC_loadservice"), StartCommand("XYZ_loadservice")}));
    EXPECT_EQ(run.programs, Lines{StartCommand("XYZ_loadservice")});
    EXPECT_EQ(run.ended, "exit 0");
}

TEST(ServiceControlTest, WithoutAMatchTheServiceDirectoryItselfIsRunAndUnderscoreServerIsKilled) {
    const DeviceSandbox device; // its service directory is empty

    const DeviceRun start = RunWithConfig(device, {{"ABC"}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(start.out, "Run LoadServcie(/factory_setting/) \n");
    EXPECT_EQ(start.commands, Lines{"/factory_setting/"});
    EXPECT_NE(start.err.find("/factory_setting/: "), std::string::npos) << "the shell's complaint: " << start.err;
    EXPECT_EQ(start.ended, "exit 0");
    EXPECT_EQ(stop.out, "Stop LoadServcie(killall -15 _Server) \n");
    EXPECT_EQ(stop.programs, Lines{"killall -15 _Server"});
    EXPECT_EQ(stop.err, "");
    EXPECT_EQ(stop.ended, "exit 0");
}

TEST(ServiceControlTest, AMissingServiceDirectoryCountsAsOneWithoutAStartProgram) {
    const DeviceSandbox device;
    device.removeServiceDirectory();

    const DeviceRun start = RunWithConfig(device, {{"ABC"}, {"OFF", false}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}, {"OFF", false}}, "0");

    EXPECT_EQ(start.out, Started("") + Disabled("OFF"));
    EXPECT_EQ(start.commands, Lines{"/factory_setting/"});
    EXPECT_EQ(start.ended, "exit 0");
    EXPECT_EQ(stop.out, Stopped("") + Disabled("OFF"));
    EXPECT_EQ(stop.programs, Lines{"killall -15 _Server"});
    EXPECT_EQ(stop.err, "");
    EXPECT_EQ(stop.ended, "exit 0");
}

TEST(ServiceControlTest, AServiceDirectoryThatCannotBeReadCountsAsOneWithoutAStartProgram) {
    const DeviceSandbox device;
    device.removeServiceDirectory();
    device.write("/factory_setting", "a file in its place");

    const DeviceRun start = RunWithConfig(device, {{"ABC"}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(start.out, Started(""));
    EXPECT_EQ(start.commands, Lines{"/factory_setting/"});
    EXPECT_EQ(stop.out, Stopped(""));
    EXPECT_EQ(stop.programs, Lines{"killall -15 _Server"});
}

TEST(ServiceControlTest, AProtocolWithAnEmptyNameMatchesTheFirstNameWithTheKeyword) {
    const DeviceSandbox device;
    device.addStartProgram("readme");
    device.addStartProgram("XYZ_loadservice");
    device.addStartProgram("ABC_loadservice");
    std::vector<std::string> listed;
    ASSERT_TRUE(ListDirectory(device.onHost("/factory_setting"), listed, "*loadservice*"));

    const DeviceRun run = RunWithConfig(device, {{""}, {"", false}}, "1");

    EXPECT_EQ(run.out, Started(listed.at(0)) + Disabled(""));
    EXPECT_EQ(run.programs, Lines{StartCommand(listed.at(0))});
}

TEST(ServiceControlTest, TheWholeNameIsThePrefixWhenItHasNoUnderscore) {
    const DeviceSandbox device;
    device.addStartProgram("ABC.loadservice");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}}, "0");

    EXPECT_EQ(run.programs, Lines{"killall -15 ABC.loadservice_Server"});
}

TEST(ServiceControlTest, TheDirectoryIsListedAnewForEachEnabledProtocol) {
    const DeviceSandbox device;
    device.addStartProgram("NEXT"); // without the keyword no candidate yet
    device.addStartProgram("GONE_loadservice");
    device.addStartProgram(
        "ABC_loadservice",
        "mv /factory_setting/NEXT /factory_setting/NEXT_loadservice; rm /factory_setting/GONE_loadservice");
    OpenWatch watch({device.onHost("/factory_setting")});

    const DeviceRun run = RunWithConfig(device, {{"ABC"}, {"NEXT"}, {"GONE"}, {"OFF", false}}, "1");

    EXPECT_EQ(run.out, Started("ABC_loadservice") + Started("NEXT_loadservice") + Started("") + Disabled("OFF"));
    EXPECT_EQ(run.programs, (Lines{StartCommand("ABC_loadservice"), StartCommand("NEXT_loadservice")}));
    EXPECT_EQ(watch.opened()[device.onHost("/factory_setting")], 3);
}

TEST(ServiceControlTest, AFailingStartProgramIsIgnored) {
    const DeviceSandbox device;
    device.addStartProgram("STATUS_loadservice", "exit 3");
    device.addStartProgram("SIGNAL_loadservice", "kill -KILL $$");
    device.write("/factory_setting/PLAIN_loadservice", "not executable");
    device.writeExecutable("/factory_setting/LOST_loadservice", "#!/no/such/interpreter\n");
    device.addStartProgram("ABC_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"STATUS"}, {"SIGNAL"}, {"PLAIN"}, {"LOST"}, {"ABC"}}, "1");

    EXPECT_EQ(run.out, Started("STATUS_loadservice") + Started("SIGNAL_loadservice") + Started("PLAIN_loadservice") +
                           Started("LOST_loadservice") + Started("ABC_loadservice"));
    EXPECT_EQ(run.programs, (Lines{StartCommand("STATUS_loadservice"), StartCommand("SIGNAL_loadservice"),
                                   StartCommand("ABC_loadservice")}));
    EXPECT_EQ(run.ended, "exit 0");
}

TEST(ServiceControlTest, AFailingKillallIsIgnored) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice");
    device.addStartProgram("XYZ_loadservice");
    device.useRealKillall(); // and there is no such process

    const DeviceRun run = RunWithConfig(device, {{"ABC"}, {"XYZ"}}, "0");

    EXPECT_EQ(run.out, Stopped("ABC") + Stopped("XYZ"));
    EXPECT_EQ(run.err, "ABC_Server: no process found\nXYZ_Server: no process found\n");
    EXPECT_EQ(run.commands, (Lines{StopCommand("ABC"), StopCommand("XYZ")}));
    EXPECT_EQ(run.ended, "exit 0");
}

// The sandbox's shell is the one thing that system(3) needs.
TEST(ServiceControlTest, ACommandThatCannotEvenBeTriedIsIgnored) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice");
    device.addStartProgram("XYZ_loadservice");
    device.writeExecutable("/sandbox/shell", "#!/no/such/interpreter\n");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}, {"XYZ"}}, "1");

    EXPECT_EQ(run.out, Started("ABC_loadservice") + Started("XYZ_loadservice"));
    EXPECT_EQ(run.programs, Lines());
    EXPECT_EQ(run.ended, "exit 0");
}

TEST(ServiceControlTest, ACommandOf63CharactersRunsAndOneOf64IsRefusedInStartMode) {
    const DeviceSandbox device;
    const std::string fits = "FITS_loadservice" + std::string(30, 'x');
    const std::string tooLong = "LONG_loadservice" + std::string(31, 'x');
    ASSERT_EQ(StartCommand(fits).size(), 63U);
    ASSERT_EQ(StartCommand(tooLong).size(), 64U);
    device.addStartProgram(fits);
    device.addStartProgram(tooLong);
    device.addStartProgram("ABC_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"FITS"}, {"LONG"}, {"ABC"}}, "1");

    EXPECT_EQ(run.out, Started(fits) + Started("ABC_loadservice"));
    EXPECT_EQ(run.err, "Wyvern: protocol \"LONG\": the command for the file \"" + tooLong +
                           "\" is longer than 63 characters and is not run\n");
    EXPECT_EQ(run.commands, (Lines{StartCommand(fits), StartCommand("ABC_loadservice")}));
    EXPECT_EQ(run.programs, (Lines{StartCommand(fits), StartCommand("ABC_loadservice")}));
    EXPECT_EQ(run.ended, "exit 0");
}

TEST(ServiceControlTest, ACommandOf63CharactersRunsAndOneOf64IsRefusedInStopMode) {
    const DeviceSandbox device;
    const std::string fits = "FITS" + std::string(40, 'x');
    const std::string tooLong = "LONG" + std::string(41, 'x');
    ASSERT_EQ(StopCommand(fits).size(), 63U);
    ASSERT_EQ(StopCommand(tooLong).size(), 64U);
    device.addStartProgram(fits + "_loadservice"); // too long to be started, and yet it can be stopped
    device.addStartProgram(tooLong + "_loadservice");
    device.addStartProgram("ABC_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"FITS"}, {"LONG"}, {"ABC"}}, "0");

    EXPECT_EQ(run.out, Stopped(fits) + Stopped("ABC"));
    EXPECT_EQ(run.err, "Wyvern: protocol \"LONG\": the command for the file \"" + tooLong +
                           "_loadservice\" is longer than 63 characters and is not run\n");
    EXPECT_EQ(run.commands, (Lines{StopCommand(fits), StopCommand("ABC")}));
    EXPECT_EQ(run.programs, (Lines{StopCommand(fits), StopCommand("ABC")}));
    EXPECT_EQ(run.ended, "exit 0");
}

TEST(ServiceControlTest, TheLongestFileNameIsRefusedWithoutHarm) {
    const DeviceSandbox device;
    const std::string longest = "ABC" + std::string(240, 'x') + "_loadservice";
    ASSERT_EQ(longest.size(), 255U);
    device.addStartProgram(longest);

    for (const char* mode : {"0", "1"}) {
        SCOPED_TRACE(mode);
        const DeviceRun run = RunWithConfig(device, {{"ABC"}}, mode);

        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err, "Wyvern: protocol \"ABC\": the command for the file \"" + longest +
                               "\" is longer than 63 characters and is not run\n");
        EXPECT_EQ(run.commands, Lines());
        EXPECT_EQ(run.ended, "exit 0");
    }
}

TEST(ServiceControlTest, OnAPipeTheLinesAndTheProgramsOutputComeInTheOrderOfEvents) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice", "echo ABC serves");
    device.addStartProgram("XYZ_loadservice", "echo XYZ serves");

    const DeviceRun run = RunWithConfig(device, {{"OFF", false}, {"ABC"}, {"XYZ"}, {"OFF2", false}}, "1");

    EXPECT_EQ(run.out, Disabled("OFF") + "ABC serves\n" + Started("ABC_loadservice") + "XYZ serves\n" +
                           Started("XYZ_loadservice") + Disabled("OFF2"));
}

TEST(ServiceControlTest, WhatTheCallerLeftInTheBufferIsFlushedBeforeACommandRuns) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice", "echo ABC serves");
    device.writeExecutable("/sandbox/bin/killall", "#!/usr/bin/sh\necho killed\n");

    const DeviceRun start = device.runProgram(LAUNCHER_PROBE, {"services", "1", "+ABC"});
    const DeviceRun stop = device.runProgram(LAUNCHER_PROBE, {"services", "0", "+ABC"});

    EXPECT_EQ(start.out, "in the buffer\nABC serves\n" + Started("ABC_loadservice"));
    EXPECT_EQ(stop.out, "in the buffer\nkilled\n" + Stopped("ABC"));
}

TEST(ServiceControlTest, EachLineIsFlushedAsItIsPrinted) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"OFF", false}, {"ABC"}, {"OFF2", false}, {"OFF3", false}}, "1");

    EXPECT_EQ(run.writes, (Lines{Disabled("OFF"), Started("ABC_loadservice"), Disabled("OFF2"), Disabled("OFF3")}));
}

TEST(ServiceControlTest, AConsoleThatCannotBeWrittenToKeepsNoServiceFromStarting) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice");
    device.addStartProgram("XYZ_loadservice");
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}, {"OFF", false}, {"XYZ"}}));

    for (const char* console : {">/dev/full", ">&-"}) {
        SCOPED_TRACE(console);
        const DeviceRun run = device.runScript(std::string("exec \"$WYVERN\" 1 ") + console);

        EXPECT_EQ(run.programs, (Lines{StartCommand("ABC_loadservice"), StartCommand("XYZ_loadservice")}));
        EXPECT_EQ(run.ended, "exit 0");
    }
}

TEST(ServiceControlTest, AStartProgramThatDoesNotReturnBlocksTheRunThere) {
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice", "echo >/tmp/entered; read line </tmp/release");
    device.addStartProgram("XYZ_loadservice");
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}, {"XYZ"}}));

    const DeviceRun run = device.runScript("mkfifo /tmp/entered /tmp/release\n"
                                           "\"$WYVERN\" 1 &\n"
                                           "read line </tmp/entered\n"
                                           "echo released >>/sandbox/record/programs\n"
                                           "echo >/tmp/release\n"
                                           "wait\n");

    EXPECT_EQ(run.programs, (Lines{StartCommand("ABC_loadservice"), "released", StartCommand("XYZ_loadservice")}));
}

TEST(ServiceControlTest, TheNameOfAProtocolIsPrintedAsTextAndNotAsAFormat) {
    const DeviceSandbox device;
    device.addStartProgram("%s%n_loadservice");

    const DeviceRun run = RunWithConfig(device, {{"%d%n", false}, {"%s%n"}}, "1");

    EXPECT_EQ(run.out, Disabled("%d%n") + Started("%s%n_loadservice"));
    EXPECT_EQ(run.programs, Lines{StartCommand("%s%n_loadservice")});
}

// The command is a line for the shell, as the operator of the device would type it.
TEST(ServiceControlTest, TheShellReadsTheNameOfTheStartProgram) {
    const DeviceSandbox device;
    device.addStartProgram("ABC");
    device.addStartProgram("ABC loadservice");

    const DeviceRun run = RunWithConfig(device, {{"ABC"}}, "1");

    EXPECT_EQ(run.out, Started("ABC loadservice"));
    EXPECT_EQ(run.programs, Lines{"/factory_setting/ABC loadservice"}) << "the program ABC with an argument";
}

TEST(ServiceControlTest, AChineseProtocolIsStartedAndStoppedByTheBytesOfItsName) {
    const DeviceSandbox device;
    const std::string program = std::string(Gateway) + "_loadservice";
    device.addStartProgram(program);

    const DeviceRun start = RunWithConfig(device, {{Gateway}}, "1");
    const DeviceRun stop = RunWithConfig(device, {{Gateway}}, "0");
    const DeviceRun off = RunWithConfig(device, {{Gateway, false}}, "1");

    EXPECT_EQ(start.out, Started(program));
    EXPECT_EQ(start.programs, Lines{StartCommand(program)});
    EXPECT_EQ(stop.out, Stopped(Gateway));
    EXPECT_EQ(stop.programs, Lines{StopCommand(Gateway)});
    EXPECT_EQ(off.out, Disabled(Gateway));
}

// No sleeps: the start program returns when its server has set its trap, and the script goes on when the server has let
// go of the pipe that only it holds.
TEST(ServiceControlTest, TheRealKillallEndsARealServerProcess) {
    const DeviceSandbox device;
    device.useRealKillall();
    device.writeExecutable("/mnt/mtd/code/ABC_Server",
                           "#!/usr/bin/sh\n"
                           "exec 3>/tmp/alive\n"
                           "sleep 1000 3>&- >&- 2>&- &\n"
                           "child=$!\n"
                           "trap 'echo ABC_Server got SIGTERM >&3; kill $child; exit' TERM\n"
                           "trap 'echo ABC_Server got another signal >&3' HUP INT USR1\n"
                           "echo >/tmp/ready\n"
                           "wait $child\n");
    device.addStartProgram("ABC_loadservice", "/mnt/mtd/code/ABC_Server & read line </tmp/ready");
    device.write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}}));

    const DeviceRun run = device.runScript("mkfifo /tmp/alive /tmp/ready\n"
                                           "cat /tmp/alive >/tmp/said &\n"
                                           "reader=$!\n"
                                           "\"$WYVERN\" 1\n"
                                           "grep -qsx ABC_Server /proc/[0-9]*/comm && echo ABC_Server runs\n"
                                           "\"$WYVERN\" 0\n"
                                           "wait $reader\n"
                                           "cat /tmp/said\n");

    EXPECT_EQ(run.out, Started("ABC_loadservice") + "ABC_Server runs\n" + Stopped("ABC") + "ABC_Server got SIGTERM\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.commands, (Lines{StartCommand("ABC_loadservice"), StopCommand("ABC")}));
    EXPECT_EQ(run.ended, "exit 0");
}
