#include "check/ProgramRules.h"

#include "tests/check/DeviceImage.h"
#include "tests/check/ElfImage.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

constexpr const char* Program = "/factory_setting/Modbus_loadservice";

// Each is told by this rule, whatever else.
void ExpectRule(const DeviceImage& image, const std::string& rule, const std::string& text) {
    const CheckReport report = image.check();
    EXPECT_TRUE(HasRule(report, rule)) << FindingsText(report);
    EXPECT_NE(FindingsText(report).find(text), std::string::npos) << FindingsText(report);
}

} // namespace

TEST(ProgramRulesTest, AnInterpreterIsMissedForEveryReasonThatTheKernelHas) {
    const DeviceImage image;
    image.write("/opt/plain", "#!/bin/sh\n", 0644);
    for (const auto& each : std::vector<std::pair<std::string, std::string>>{
             {"#!/opt/plain\n", "is not executable"},
             {"#!bin/sh\n", "is not in the image"},
             {"#!/opt\n", "is not in the image"},
             {"#!/usr/bin/env\n", "env finds no \"\""},
             {"#!/" + std::string(300, 'x'), "longer than the 256 bytes"}}) {
        image.write(Program, each.first);
        ExpectRule(image, "interpreter-missing", each.second);
    }
}

TEST(ProgramRulesTest, AnInterpreterThatIsAScriptIsFollowedAFewTimes) {
    const DeviceImage image;
    image.write("/opt/one", "#!/opt/two\n");
    image.write("/opt/two", "#!/nowhere\n");
    image.write(Program, "#!/opt/one\n");
    ExpectRule(image, "interpreter-missing", "/opt/two:1:1: error: interpreter-missing");

    image.write("/opt/two", "#!/opt/one\n");
    EXPECT_FALSE(HasRule(image.check(), "interpreter-missing"));
}

TEST(ProgramRulesTest, AProgramBehindEnvMayBeAPath) {
    const DeviceImage image;
    image.write(Program, "#!/usr/bin/env /opt/sh\n");

    EXPECT_FALSE(HasRule(image.check(), "interpreter-missing"));
}

TEST(ProgramRulesTest, AnObjectFileIsNoProgram) {
    const DeviceImage image;
    ElfImage object;
    object.type = 1;
    image.write(Program, object.bytes());

    ExpectRule(image, "elf-damaged", "");
}

TEST(ProgramRulesTest, OtherKindsOfFilesAreNoPrograms) {
    const DeviceImage image;
    image.remove(Program);
    ASSERT_EQ(mkfifo(image.onHost(Program).c_str(), 0755), 0);

    ExpectRule(image, "not-a-program", "");
}

TEST(ProgramRulesTest, AProgramThatIsTooLargeIsSaidToBeLeftOut) {
    const DeviceImage image;
    image.write(Program, ElfImage().bytes());
    std::filesystem::resize_file(image.onHost(Program), LibrarySearch::MaxFileSize + 1);

    ExpectRule(image, "not-looked-at", "programs and libraries");
}

TEST(ProgramRulesTest, WithoutAnElfProgramInTheSystemAnyMachineIsRight) {
    const DeviceImage image;
    image.write("/bin/busybox", "#!/bin/sh\n");
    ElfImage program;
    program.machine = 40;
    image.write("/usr/sbin/Modbus_Server", program.bytes());

    EXPECT_FALSE(HasRule(image.check(), "elf-machine"));
}

TEST(ProgramRulesTest, APartialTreeIsNotAskedForInterpretersLibrariesAndKillall) {
    const DeviceImage image;
    image.remove("/bin");
    image.remove("/usr/bin");
    image.remove("/lib");
    image.remove("/lib64");

    const CheckReport report = image.check();

    EXPECT_EQ(report.exitStatus(), 0) << FindingsText(report);
    EXPECT_TRUE(HasRule(report, "partial-tree"));
}

TEST(ProgramRulesTest, ALibraryOfALibraryIsToldWithWhoNeedsIt) {
    const DeviceImage image;
    ElfImage library;
    library.needed = {"libdeep.so"};
    image.write("/lib/libc.so", library.bytes());

    ExpectRule(image, "library-missing", "\"libdeep.so\" is not in the image, needed by /lib/libc.so");
}

TEST(ProgramRulesTest, NamesWithControlCharactersAreToldWithoutThem) {
    const DeviceImage image;
    for (const char* end : {"\x1B", "\x7F"}) {
        image.write(std::string("/factory_setting/Modbus_loadservice2") + end, "#!/bin/sh\n");
        ExpectRule(image, "name-shell-characters", "special character");
    }
    image.write("/factory_setting/Modbus_loadservice 3", "#!/bin/sh\n");
    ExpectRule(image, "name-shell-characters", "a blank");
}

TEST(ProgramRulesTest, WhatThisUserMayNotReadIsSaidToBeLeftOut) {
    const DeviceImage image;
    image.setMode("", 0755);
    image.write("/factory_setting/OPCUA_loadservice", "#!/opt/interpreter\n");
    image.write("/opt/interpreter", "#!/bin/sh\n", 0111);
    image.setMode(Program, 0111);
    image.setMode("/usr/sbin/Modbus_Server", 0111);
    image.setMode("/lib/libc.so", 0);
    const auto checkAsAnyone = [&image] {
        return RunInChild([&image] {
            if (geteuid() == 0 && setuid(65534) != 0) {
                _exit(1);
            }
            static_cast<void>(std::printf("%s", FindingsText(image.check()).c_str()));
        });
    };

    const ChildResult closed = checkAsAnyone();
    image.setMode("/factory_setting", 0744);
    const ChildResult hidden = checkAsAnyone();
    image.setMode("/factory_setting", 0311);
    const ChildResult unlisted = checkAsAnyone();
    image.setMode("/factory_setting", 0755);

    EXPECT_NE(closed.output.find("Modbus_loadservice:1:1: warning: not-looked-at"), std::string::npos) << closed.output;
    EXPECT_NE(closed.output.find("Modbus_Server:1:1: warning: not-looked-at"), std::string::npos);
    EXPECT_NE(closed.output.find("\"libc.so\" is not in the image"), std::string::npos);
    EXPECT_EQ(closed.output.find("interpreter-missing"), std::string::npos);
    EXPECT_NE(hidden.output.find("cannot be looked at here"), std::string::npos) << hidden.output;
    EXPECT_NE(unlisted.output.find("not-looked-at: the directory of the start programs cannot be listed"),
              std::string::npos)
        << unlisted.output;
}

TEST(ProgramRulesTest, AServerThatIsNotAmongTheEntriesLookedAtIsNotCalledMissing) {
    const DeviceImage image;
    CheckRequest request;
    request.root = image.root();
    request.maxEntries = 3;
    CheckReport report;

    ASSERT_TRUE(CheckDevice(request, report));

    EXPECT_FALSE(HasRule(report, "server-missing"));
    EXPECT_NE(FindingsText(report).find("is not among the first 3 files"), std::string::npos) << FindingsText(report);
}

TEST(ProgramRulesTest, AServerIsFoundWhereverItStandsButInTheKernelsDirectories) {
    const DeviceImage image;
    image.rename("/usr/sbin/Modbus_Server", "/Modbus_Server");
    EXPECT_FALSE(HasRule(image.check(), "server-missing"));

    image.remove("/Modbus_Server");
    image.write("/proc/Modbus_Server", "");
    ExpectRule(image, "server-missing", "Modbus_Server");

    std::string deep = "/a";
    for (int i = 0; i < 40; ++i) {
        deep += "/a";
    }
    image.write(deep + "/Modbus_Server", "");
    ExpectRule(image, "server-missing", "Modbus_Server");
}

TEST(ProgramRulesTest, TwoLongServerNamesThatTheKernelCutsAlikeAreTold) {
    const DeviceImage image;
    for (const char* name : {"Gateway12345678_A", "Gateway12345678_B"}) {
        image.write("/factory_setting/" + std::string(name) + "_loadservice", "#!/bin/sh\n");
    }
    image.rename("/factory_setting/Gateway12345678_B_loadservice", "/factory_setting/Gateway123456789_B_loadservice");
    image.configureEntries(EntryText("8_A", "1") + EntryText("9_B", "2"));

    ExpectRule(image, "server-name-long", "as \"Gateway12345678_Server\" is");
}
