#include "check/ProgramRules.h"

#include "tests/check/DeviceImage.h"
#include "tests/check/ElfImage.h"
#include "tests/check/TextForAnyone.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
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
    image.link("/opt/env", "/bin/busybox");
    for (const auto& each : std::vector<std::pair<std::string, std::string>>{
             {"#!/opt/plain\n", "is not executable"},
             {"#!/opt\n", "is not in the image"},
             {"#!\r\n", "the interpreter \"\" is not in the image"},
             {"#!/usr/bin/env\n", "env gets \"\" as one argument and runs nothing"},
             {"#!/usr/bin/env A=1 sh\n", "env gets \"A=1 sh\" as one argument and runs nothing"},
             {"#!/usr/bin/env sh -e\n", "env finds no \"sh -e\""},
             {"#!/usr/bin/env /bin/nope\n", "the interpreter \"/bin/nope\" is not in the image"},
             {"#!/usr/bin/env /opt/plain\n", "the interpreter \"/opt/plain\" is not executable"},
             {"#!/bin/env sh\n", "the interpreter \"/bin/env\" is not in the image"},
             {"#!/opt/env -S sh -e\n", "the env of BusyBox has no option -S"},
             {"#!/" + std::string(300, 'x'), "does not end within the 256 bytes"}}) {
        image.write(Program, each.first);
        ExpectRule(image, "interpreter-missing", each.second);
    }
}

TEST(ProgramRulesTest, InterpretersThatAreScriptsAreFollowedAsFarAsByTheKernel) {
    const DeviceImage image;
    image.write(Program, "#!/opt/2\n");
    image.write("/opt/2", "#!/opt/3\n");
    image.write("/opt/3", "#!/opt/4\n");
    image.write("/opt/4", "#!/opt/5\n");
    image.write("/opt/5", "#!/nowhere\n");
    ExpectRule(image, "interpreter-missing", "/opt/5:1:1: error: interpreter-missing");
    EXPECT_FALSE(HasRule(image.check(), "interpreter-chain"));

    image.write("/opt/5", "#!/opt/6\n");
    image.write("/opt/6", "#!/bin/sh\n");
    ExpectRule(image, "interpreter-chain", "Modbus_loadservice:1:1: error: interpreter-chain");
    EXPECT_FALSE(HasRule(image.check(), "interpreter-missing"));

    image.write("/opt/2", "#!/opt/2\n");
    ExpectRule(image, "interpreter-chain", "Modbus_loadservice:1:1: error: interpreter-chain");
}

// Each script runs the next by its interpreter line, and the last is run by echo.
TEST(ProgramRulesTest, TheKernelRunsAsManyScriptsOneByTheOtherAsItIsTakenTo) {
    const TemporaryDirectory directory;
    const auto statusOf = [&directory](int scripts) {
        std::string interpreter = "/bin/echo";
        for (int i = 0; i < scripts; ++i) {
            const std::string path = directory.write(std::to_string(i), "#!" + interpreter + "\n");
            static_cast<void>(chmod(path.c_str(), 0755));
            interpreter = path;
        }
        return RunInChild([&interpreter] {
                   static_cast<void>(execl(interpreter.c_str(), interpreter.c_str(), nullptr));
                   _exit(errno);
               })
            .status;
    };

    EXPECT_EQ(WEXITSTATUS(statusOf(ProgramRules::MaxScripts)), 0);
    EXPECT_EQ(WEXITSTATUS(statusOf(ProgramRules::MaxScripts + 1)), ELOOP);
}

TEST(ProgramRulesTest, WhereARelativeInterpreterBeginsIsNotKnown) {
    const DeviceImage image;
    image.write(Program, "#!bin/sh\n");

    ExpectRule(image, "interpreter-relative", "\"bin/sh\" is looked for in the launcher's working directory");
    EXPECT_EQ(image.check().exitStatus(), 1) << FindingsText(image.check());
}

TEST(ProgramRulesTest, InterpretersThatAreThereAndThoseOfWhichNothingIsKnownAreNotMissed) {
    const DeviceImage image;
    image.link("/opt/env", "/bin/busybox");
    for (const char* line :
         {"/usr/bin/env /bin/sh", "/usr/bin/env ./sh", "/usr/bin/env -S sh -e", "/usr/bin/env -S ${SH}", "/opt/env sh",
          "/bin/sh                                                                                          -eeeeeee"
          "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"
          "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"
          "e"}) {
        image.write(Program, "#!" + std::string(line) + "\n");
        const CheckReport report = image.check();
        EXPECT_FALSE(HasRule(report, "interpreter-missing")) << line << FindingsText(report);
    }
}

TEST(ProgramRulesTest, AProgramThatEnvRunsIsLookedAt) {
    const DeviceImage image;
    image.write("/usr/bin/python3", ElfImage().bytes().substr(0, 80));
    image.write(Program, "#!/usr/bin/env python3\n");

    ExpectRule(image, "elf-damaged", "/usr/bin/python3:1:1: error: elf-damaged");
}

TEST(ProgramRulesTest, AShellIsMissedForEveryReasonForWhichTheLauncherCannotRunIt) {
    const DeviceImage image;
    image.write("/bin/sh", "");
    ExpectRule(image, "shell-missing", "neither an ELF program nor a script");
    image.write("/bin/sh", "exit\n");
    ExpectRule(image, "shell-missing", "neither an ELF program nor a script");
    image.write("/bin/sh", ElfImage().bytes(), 0644);
    ExpectRule(image, "shell-missing", "is not executable");
    image.link("/bin/sh", "nowhere");
    ExpectRule(image, "shell-missing", "is not in the image");
}

TEST(ProgramRulesTest, TheShellAndKillallAreLookedAtAsProgramsAre) {
    const DeviceImage image;
    image.write("/bin/sh", "#!/nowhere\n");
    ExpectRule(image, "interpreter-missing", "/bin/sh:1:1: error: interpreter-missing");
    ElfImage other;
    other.machine = 40;
    image.write("/bin/sh", other.bytes());
    image.write("/sbin/init", ElfImage().bytes());
    ExpectRule(image, "elf-machine", "/usr/bin/killall:1:1: error: elf-machine: it is for x86-64");

    image.link("/bin/sh", "busybox");
    image.write("/usr/bin/killall", "\x7F"
                                    "ELF");
    ExpectRule(image, "elf-damaged", "/usr/bin/killall:1:1: error: elf-damaged");
}

TEST(ProgramRulesTest, ADynamicLinkerWithoutExecutePermissionIsTold) {
    const DeviceImage image;
    image.setMode("/lib64/ld-linux.so", 0644);

    ExpectRule(image, "elf-interpreter-missing", "\"/lib64/ld-linux.so\" is not executable");
}

TEST(ProgramRulesTest, ProcessorsThatAKernelMayTakeInTwoSizesAreToldAsSuch) {
    const DeviceImage image;
    struct Pair {
        uint16_t small;
        uint16_t large;
        const char* rule;
    };
    for (const Pair& each : {Pair{3, 62, "elf-32-bit"}, Pair{40, 183, "elf-32-bit"}, Pair{20, 21, "elf-32-bit"},
                             Pair{8, 8, "elf-32-bit"}, Pair{40, 62, "elf-class"}}) {
        ElfImage system;
        system.machine = each.large;
        image.write("/bin/busybox", system.bytes());
        ElfImage server;
        server.machine = each.small;
        server.is64 = false;
        image.write("/usr/sbin/Modbus_Server", server.bytes());
        EXPECT_TRUE(HasRule(image.check(), each.rule)) << each.small;
        EXPECT_EQ(HasRule(image.check(), "elf-class"), each.rule == std::string("elf-class"));
        server.isLittle = false;
        image.write("/usr/sbin/Modbus_Server", server.bytes());
        EXPECT_TRUE(HasRule(image.check(), "elf-class"));
        EXPECT_TRUE(HasRule(image.check(), "elf-byte-order"));
    }
}

TEST(ProgramRulesTest, EveryPlaceWhereOthersMayWriteWhatDecidesIsTold) {
    for (const char* path : {"/factory_setting", "/mnt", "/mnt/mtd", "/mnt/mtd/code/config_file", DeviceImage::Working,
                             "/mnt/mtd/code/factory_setting", DeviceImage::Factory}) {
        const DeviceImage image;
        image.setMode(path, 0777);
        ExpectRule(image, "writable-by-others", std::string(path) + ":1:1: warning: writable-by-others");
    }
    const DeviceImage image;
    image.remove(DeviceImage::Factory);
    image.link(DeviceImage::Factory, DeviceImage::Working);
    image.write("/mnt/mtd/code/other", "", 0666);
    EXPECT_FALSE(HasRule(image.check(), "writable-by-others"));
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

TEST(ProgramRulesTest, AProgramMayBeLarge) {
    const DeviceImage image;
    image.write(Program, ElfImage().bytes());
    std::filesystem::resize_file(image.onHost(Program), uintmax_t{1} << 30U);

    EXPECT_EQ(FindingsText(image.check()), "");
}

// Each program is named, and the first ones are looked at as ever.
TEST(ProgramRulesTest, ProgramsAfterTheLimitOfAllLookingAreSaidToBeLeftOut) {
    const DeviceImage image;
    std::string deep = "/d";
    for (int i = 0; i < 900; ++i) {
        deep += "/d";
    }
    ElfImage program;
    for (int i = 0; i < 60; ++i) {
        program.needed.push_back(deep + "/" + std::to_string(i));
    }
    std::filesystem::create_directories(image.onHost(deep));
    std::string entries;
    for (int i = 0; i < 5; ++i) {
        for (std::string& name : program.needed) {
            name += 'x';
        }
        const std::string name = "P" + std::to_string(i);
        image.write("/factory_setting/" + name + "_loadservice", program.bytes());
        entries += EntryText(name, name);
    }
    image.configureEntries(entries);

    ExpectRule(image, "library-missing", "P0_loadservice:1:1: error: library-missing");
    ExpectRule(image, "not-looked-at", "P3_loadservice:1:1: warning: not-looked-at: its libraries are not looked for");
    ExpectRule(image, "not-looked-at", "P4_loadservice:1:1: warning: not-looked-at: so many programs and libraries");
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
    image.setMode("/usr/sbin/OPCUA_Server", 0);
    image.setMode("/lib/libc.so", 0);
    const auto checkAsAnyone = [&image] { return TextForAnyone([&image] { return FindingsText(image.check()); }); };

    const std::string closed = checkAsAnyone();
    image.setMode("/factory_setting", 0744);
    const std::string hidden = checkAsAnyone();
    image.setMode("/factory_setting", 0311);
    const std::string unlisted = checkAsAnyone();
    image.setMode("/factory_setting", 0755);

    image.setMode("/bin/busybox", 0711);
    const std::string shell = checkAsAnyone();
    image.setMode("/bin/busybox", 0755);
    image.write("/usr/bin/python3", ElfImage().bytes(), 0711);
    image.write(Program, "#!/usr/bin/env python3\n");
    const std::string behindEnv = checkAsAnyone();
    image.write("/opt/closed/sh", ElfImage().bytes());
    image.setMode("/opt/closed", 0700);
    image.write(Program, "#!/opt/closed/sh\n");
    const std::string interpreter = checkAsAnyone();

    EXPECT_NE(shell.find("/bin/sh:1:1: warning: not-looked-at: it cannot be read"), std::string::npos) << shell;
    EXPECT_EQ(shell.find("shell-missing"), std::string::npos);
    EXPECT_NE(behindEnv.find("/usr/bin/python3:1:1: warning: not-looked-at: it cannot be read"), std::string::npos)
        << behindEnv;
    EXPECT_NE(interpreter.find("not-looked-at: the interpreter \"/opt/closed/sh\" cannot be looked at here"),
              std::string::npos)
        << interpreter;
    EXPECT_NE(closed.find("Modbus_loadservice:1:1: warning: not-looked-at"), std::string::npos) << closed;
    EXPECT_NE(closed.find("Modbus_Server:1:1: warning: not-looked-at"), std::string::npos);
    EXPECT_NE(closed.find("OPCUA_Server:1:1: warning: not-looked-at"), std::string::npos);
    EXPECT_NE(closed.find("not-looked-at: /lib/libc.so cannot be read here"), std::string::npos);
    EXPECT_EQ(closed.find("interpreter-missing"), std::string::npos);
    EXPECT_NE(hidden.find("cannot be looked at here"), std::string::npos) << hidden;
    EXPECT_NE(unlisted.find("not-looked-at: the directory of the start programs cannot be listed"), std::string::npos)
        << unlisted;
}

TEST(ProgramRulesTest, AServerThatIsNotAmongTheEntriesLookedAtIsNotCalledMissing) {
    const DeviceImage image;
    CheckRequest request;
    request.root = image.root();
    request.maxEntries = 3;
    CheckReport report;

    ASSERT_TRUE(CheckDevice(request, report));

    EXPECT_FALSE(HasRule(report, "server-missing"));
    EXPECT_NE(FindingsText(report).find("was not found, but only the first 3 files"), std::string::npos)
        << FindingsText(report);
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
    ExpectRule(image, "not-looked-at", "is deeper than 32 directories");
}

// A file of data, a link that leads nowhere and a script may all have a server's name.
TEST(ProgramRulesTest, OfSeveralFilesWithAServersNameThoseThatCanRunAreLookedAt) {
    const DeviceImage image;
    image.write("/etc/Modbus_Server", "data", 0644);
    image.link("/Modbus_Server", "/nowhere");
    EXPECT_EQ(FindingsText(image.check()), "");

    image.write("/etc/init.d/Modbus_Server", "#!/bin/sh\n");
    image.rename("/usr/sbin/Modbus_Server", "/usr/Modbus_Server");
    image.write("/usr/share/doc/Modbus_Server", "not executable", 0644);
    image.write("/usr/local/libexec/x/Modbus_Server", ElfImage().bytes().substr(0, 80));
    ExpectRule(image, "elf-damaged", "/usr/local/libexec/x/Modbus_Server");

    image.remove("/usr/local/libexec/x/Modbus_Server");
    image.remove("/usr/Modbus_Server");
    image.remove("/etc/init.d/Modbus_Server");
    image.remove("/usr/share/doc/Modbus_Server");
    image.write("/etc/Modbus_Server", ElfImage().bytes(), 0644);
    ExpectRule(image, "not-executable", "/etc/Modbus_Server");
    EXPECT_FALSE(HasRule(image.check(), "link-dangling"));

    image.write("/etc/Modbus_Server", "data", 0644);
    ExpectRule(image, "link-dangling", "/Modbus_Server");
    image.remove("/Modbus_Server");
    ASSERT_EQ(mkfifo(image.onHost("/Modbus_Server").c_str(), 0755), 0);
    image.link("/run/Modbus_Server", "/nowhere");
    ExpectRule(image, "server-missing", "Modbus_Server");
}

// All 32 that are looked at are told of; that there are more only where there are, for each copy of the configuration.
TEST(ProgramRulesTest, OfVeryManyFilesWithAServersNameSomeAreLookedAtAndMoreAreSaidToBeLeftOut) {
    const std::string content = ElfImage().bytes().substr(0, 80);
    const DeviceImage image;
    image.remove("/usr/sbin/Modbus_Server");
    for (int i = 0; i < 33; ++i) {
        image.write("/etc/" + std::to_string(i) + "/Modbus_Server", content, 0644);
    }
    ExpectRule(image, "not-looked-at",
               "more than 32 files are called \"Modbus_Server\", and only as many are looked at");

    for (int i = 0; i < 32; ++i) { // more likely ones
        image.write("/opt/" + std::to_string(i) + "/Modbus_Server", content);
    }
    const CheckReport all = image.check();
    image.write("/opt/32/Modbus_Server", content);
    const CheckReport cut = image.check();

    EXPECT_EQ(all.findings.all().size(), 32U) << FindingsText(all);
    EXPECT_FALSE(HasRule(all, "not-looked-at"));
    EXPECT_EQ(cut.findings.all().size(), 34U) << FindingsText(cut);
    EXPECT_TRUE(HasRule(cut, "not-looked-at"));
}

TEST(ProgramRulesTest, ADirectoryThatThisUserMayNotListMayHoldAServer) {
    const DeviceImage image;
    image.setMode("", 0755);
    image.setMode("/usr/sbin", 0);
    const std::string text = TextForAnyone([&image] { return FindingsText(image.check()); });
    image.setMode("/usr/sbin", 0755);

    EXPECT_NE(text.find("\"Modbus_Server\" was not found, but " + image.onHost("/usr/sbin") + " cannot be listed here"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("server-missing"), std::string::npos);
}

TEST(ProgramRulesTest, OfALongStartScriptTheBeginningIsRead) {
    const DeviceImage image;
    image.write(Program, "#!/bin/sh\n" + std::string(65536, '\n') + "sh Modbus_Server\n");
    ExpectRule(image, "not-looked-at", "only its first 65536 bytes");
    image.write(Program, "#!/bin/sh\nsh Modbus_Server\n" + std::string(65536, '\n'));
    ExpectRule(image, "start-through-interpreter", "");
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
