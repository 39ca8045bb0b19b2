#include "tests/check/DeviceImage.h"
#include "tests/check/RunCheck.h"
#include "tests/check/TextForAnyone.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

#ifdef WYVERN_PLAIN_BINARY
// The names of all symbols that readelf lists, those that others must define as well as the program's own.
std::set<std::string> SymbolsOf(const std::string& file) {
    const std::string command = "'" WYVERN_READELF "' --syms --wide '" + file + "'";
    const std::unique_ptr<FILE, int (*)(FILE*)> readelf(popen(command.c_str(), "r"), pclose);
    std::set<std::string> symbols;
    char line[8192];
    while (std::fgets(line, sizeof line, readelf.get()) != nullptr) {
        // Num, Value, Size, Type, Bind, Vis, Ndx, Name@VERSION
        char name[4096] = "";
        if (std::sscanf(line, " %*d: %*s %*s %*s %*s %*s %*s %4095[^@ \n]", name) == 1) {
            symbols.insert(name);
        }
    }
    return symbols;
}

std::set<std::string> ProcessFunctionsIn(const std::string& file) {
    std::set<std::string> found;
    for (const std::string& symbol : SymbolsOf(file)) {
        const std::set<std::string> functions = {
            "system", "popen",  "posix_spawn", "posix_spawnp", "fork",    "vfork",   "execl",    "execlp",
            "execle", "execv",  "execvp",      "execve",       "execvpe", "fexecve", "execveat", "kill",
            "killpg", "tgkill", "tkill",       "_Fork",        "clone",   "clone3",  "sigqueue", "pidfd_send_signal"};
        if (functions.count(symbol.substr(symbol.find_first_not_of('_') == 2 ? 2 : 0)) != 0) {
            found.insert(symbol);
        }
    }
    return found;
}
#endif

} // namespace

TEST(WyvernCheckTest, ACleanImageEndsWith0AndPrintsWhatItLookedAt) {
    const DeviceImage image;

    const ChildResult result = RunCheck({"--root", image.root()});

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_EQ(result.output, "working copy: " + image.onHost(DeviceImage::Working) + ": in force, 2 entries\n" +
                                 "factory copy: " + image.onHost(DeviceImage::Factory) +
                                 ": not in force, the other copy is; 2 entries\n" +
                                 "start programs: " + image.onHost("/factory_setting/") + ": 2\n" +
                                 "after a fallback to the factory copy, start and stop run the same\n" +
                                 "0 errors, 0 warnings, 0 notes\n");
}

TEST(WyvernCheckTest, TheFormatIsTheOneThatWasAskedFor) {
    const DeviceImage image;

    EXPECT_EQ(RunCheck({"--root", image.root(), "--format", "text"}).output.rfind("working copy: ", 0), 0U);
    EXPECT_EQ(RunCheck({"--root", image.root(), "--format", "tsv"}).output.rfind("file\tworking copy\t", 0), 0U);
    EXPECT_EQ(RunCheck({"--root", image.root(), "--format", "json"}).output.rfind("{\n  \"configurations\": [", 0), 0U);
}

TEST(WyvernCheckTest, TheSampleDeviceIsClean) {
    const ChildResult result = RunCheck({"--root", SAMPLE_DEVICE, "--quiet"});

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_EQ(result.output, "");
}

TEST(WyvernCheckTest, WarningsEndWith1ErrorsWith2AndStrictMakesWarningsErrors) {
    const DeviceImage warned;
    warned.setMode("/factory_setting/Modbus_loadservice", 0775);
    const DeviceImage wrong;
    wrong.setMode("/factory_setting/Modbus_loadservice", 0644);

    EXPECT_TRUE(RunCheck({"--root", warned.root()}).exitedWith(1));
    EXPECT_TRUE(RunCheck({"--root", wrong.root()}).exitedWith(2));
    const ChildResult strict = RunCheck({"--root", warned.root(), "--strict", "--quiet"});
    EXPECT_TRUE(strict.exitedWith(2));
    EXPECT_TRUE(RunCheck({"--root", wrong.root(), "--strict"}).exitedWith(2));
    EXPECT_EQ(strict.output, warned.onHost("/factory_setting/Modbus_loadservice") +
                                 ":1:1: error: writable-by-others: its group or everyone may write it: whoever does "
                                 "is root at the next start\n");
}

TEST(WyvernCheckTest, WrongUsageEndsWith64AndPrintsNothingOnStandardOutput) {
    const DeviceImage image;
    image.link("/dangling", "nowhere");
    image.link("/loop", "loop");
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--root"},
                                               {"--root", image.onHost("/nowhere")},
                                               {"--root", image.onHost("/bin/sh")},
                                               {"--no-such-option"},
                                               {"--format", "xml"},
                                               {"--plan", "restart", "--root", image.root()},
                                               {"--plan", "start", "configuration.xml"},
                                               {"--explain", "no-such-rule"},
                                               {"a.xml", "b.xml"},
                                               {"--root", ""},
                                               {""},
                                               {"--root", image.root(), ""},
                                               {"--explain", ""},
                                               {image.onHost("/nowhere")},
                                               {image.onHost("/bin")},
                                               {"--root", image.root(), image.onHost("/dangling")},
                                               {image.onHost("/loop")},
                                               {"--root", image.root(), image.onHost("/nowhere")}}) {
        const ChildResult result = RunCheck(arguments);

        EXPECT_TRUE(result.exitedWith(64)) << arguments[0];
        EXPECT_EQ(result.output, "");
    }
}

TEST(WyvernCheckTest, AConfigurationThatThisUserMayNotReadIsNotLookedAt) {
    const DeviceImage image;
    image.setMode("", 0755);
    image.write("/closed/a.xml", "x");
    image.setMode("/closed", 0);
    const std::string text = TextForAnyone([&image] {
        CheckRequest request;
        request.configuration = image.onHost("/closed/a.xml");
        CheckReport report;
        return CheckDevice(request, report) ? FindingsText(report) : report.problem;
    });
    image.setMode("/closed", 0755);

    EXPECT_NE(text.find("not-looked-at: it cannot be read here"), std::string::npos) << text;
}

// Its link leads to "pipe:[NUMBER]", which is no path: the text would count as missing, and the other copy as in force.
TEST(WyvernCheckTest, APipeIsNotTakenForAConfiguration) {
    const ChildResult result = RunInChild([] {
        int pipeEnds[2];
        static_cast<void>(pipe(pipeEnds));
        static_cast<void>(dup2(pipeEnds[0], STDIN_FILENO));
        static_cast<void>(dup2(STDOUT_FILENO, STDERR_FILENO));
        static_cast<void>(execl(WYVERN_CHECK_BINARY, "wyvern-check", "/dev/stdin", nullptr));
    });

    EXPECT_TRUE(result.exitedWith(64));
    EXPECT_EQ(result.output, "wyvern-check: /dev/stdin: must be a regular file\n");
}

TEST(WyvernCheckTest, HelpVersionAndExplanationsGoToStandardOutputWithStatus0) {
    for (const auto& each : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--help"}, "Exit status: 0"},
             {{"--help"}, "on a device: the\nconfiguration,"},
             {{"--version"}, "wyvern-check " WYVERN_VERSION "\n"},
             {{"--explain", "name-contained"}, "name-contained (warning)\n"},
             {{"--explain", "all"}, "killall-missing (error)\n"}}) {
        const ChildResult result = RunCheck(each.first);

        EXPECT_TRUE(result.exitedWith(0)) << each.first[0];
        EXPECT_NE(result.output.find(each.second), std::string::npos) << result.output;
    }
}

TEST(WyvernCheckTest, AConfigurationIsCheckedAloneOrInThePlaceOfTheWorkingCopy) {
    const DeviceImage image;
    const TemporaryDirectory directory;
    const std::string file = directory.write("a.xml", ConfigurationText(EntryText("Modbus", "1", "yes")));

    const ChildResult alone = RunCheck({file});
    const ChildResult inPlace = RunCheck({file, "--root", image.root(), "--plan", "start", "--format", "tsv"});

    EXPECT_TRUE(alone.exitedWith(1));
    EXPECT_EQ(alone.output, "configuration: " + file + ": in force, 1 entry\n" + file +
                                ":4:67: warning: enable-value: ProtocolEnable \"yes\" is neither true nor false: the "
                                "protocol is disabled\n0 errors, 1 warning, 0 notes\n");
    EXPECT_NE(inPlace.output.find("file\tconfiguration\t" + file + "\tusable\tyes"), std::string::npos);
    EXPECT_NE(inPlace.output.find("plan\tstart\t1\tModbus\tskip\tdisabled\t\t\tno\n"), std::string::npos);
    EXPECT_EQ(inPlace.output.find("config_file"), std::string::npos);
}

TEST(WyvernCheckTest, OutputThatCannotBePrintedDoesNotPassForClean) {
    // The short text fails when stdio writes its buffer out, the long one at once.
    for (const char* what : {"name-empty", "all"}) {
        const ChildResult result = RunInChild([what] {
            static_cast<void>(dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO));
            static_cast<void>(execl(WYVERN_CHECK_BINARY, "wyvern-check", "--explain", what, nullptr));
        });

        EXPECT_TRUE(result.exitedWith(2)) << what;
    }
}

#ifdef WYVERN_PLAIN_BINARY
// A sanitizer's own memory is of another size.
TEST(WyvernCheckTest, WithoutMemoryItSaysSoAndDoesNotPassForClean) {
    const TemporaryDirectory directory;
    const std::string file = directory.write("a.xml", std::string(ConfigurationReport::MaxSize, ' '));
    const ChildResult result = RunInChild([&file] {
        const rlimit limit = {rlim_t{32} << 20U, rlim_t{32} << 20U};
        static_cast<void>(setrlimit(RLIMIT_AS, &limit));
        static_cast<void>(dup2(STDOUT_FILENO, STDERR_FILENO));
        static_cast<void>(execl(WYVERN_CHECK_BINARY, "wyvern-check", file.c_str(), nullptr));
    });

    EXPECT_TRUE(result.exitedWith(2)) << result.status;
    EXPECT_EQ(result.output, "wyvern-check: there is not enough memory\n");
}
#endif

TEST(WyvernCheckTest, WithoutArgumentsThisMachineIsTheDevice) {
    const ChildResult result = RunCheck({});

    EXPECT_EQ(result.output.find("working copy: /mnt/mtd/code/config_file/protocolconfig.xml: "), 0U) << result.output;
}

TEST(WyvernCheckTest, WithoutAConfigurationInForceThereIsNoPlan) {
    const DeviceImage image;
    image.configure("x");

    const ChildResult result = RunCheck({"--root", image.root(), "--plan", "start", "--format", "tsv"});

    EXPECT_TRUE(result.exitedWith(2));
    EXPECT_EQ(result.output.find("plan\t"), std::string::npos);
    const ChildResult alone = RunCheck({image.onHost(DeviceImage::Working)});
    EXPECT_TRUE(alone.exitedWith(2));
    EXPECT_EQ(alone.output.find("no-configuration"), std::string::npos) << "there is no factory copy to speak of";
}

TEST(WyvernCheckTest, AWorkingDirectoryThatIsGoneLeavesARelativePathAsItIs) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "gone");
    const ChildResult result = RunInChild([&directory] {
        static_cast<void>(chdir((directory / "gone").c_str()));
        static_cast<void>(rmdir((directory / "gone").c_str()));
        static_cast<void>(execl(WYVERN_CHECK_BINARY, "wyvern-check", "a.xml", nullptr));
    });

    EXPECT_TRUE(result.exitedWith(64));
}

// A FIFO or a directory in the place of each file, and a loop of links: nothing is waited for.
TEST(WyvernCheckTest, NothingThatIsNoFileIsOpened) {
    for (const char* path : {DeviceImage::Working, DeviceImage::Factory, "/factory_setting/Modbus_loadservice",
                             "/usr/sbin/Modbus_Server", "/bin/busybox", "/lib/libc.so", "/etc/ld.so.conf"}) {
        const DeviceImage image;
        image.remove(path);
        image.link(path, "x");
        image.remove(path);
        ASSERT_EQ(mkfifo(image.onHost(path).c_str(), 0644), 0) << path;

        const ChildResult result = RunCheck({"--root", image.root()});

        EXPECT_TRUE(WIFEXITED(result.status) && WEXITSTATUS(result.status) <= 2) << path;
    }
}

TEST(WyvernCheckTest, TextIsColouredOnATerminalUnlessNoColorIsSet) {
    const DeviceImage image;
    image.setMode("/factory_setting/Modbus_loadservice", 0775);
    for (const char* noColour : {"", "1", static_cast<const char*>(nullptr)}) {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(grantpt(master), 0);
        ASSERT_EQ(unlockpt(master), 0);
        const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
        ASSERT_GE(terminal, 0);

        static_cast<void>(RunInChild([&] {
            static_cast<void>(noColour == nullptr ? unsetenv("NO_COLOR") : setenv("NO_COLOR", noColour, 1));
            static_cast<void>(dup2(terminal, STDOUT_FILENO));
            static_cast<void>(
                execl(WYVERN_CHECK_BINARY, "wyvern-check", "--quiet", "--root", image.root().c_str(), nullptr));
        }));
        char text[4096] = "";
        static_cast<void>(read(master, text, sizeof text - 1));
        static_cast<void>(close(terminal));
        static_cast<void>(close(master));

        EXPECT_EQ(std::string(text).find("\x1B[1;33mwarning\x1B[0m") != std::string::npos,
                  noColour == nullptr || *noColour == '\0')
            << text;
    }
}

#ifdef WYVERN_PLAIN_BINARY
TEST(WyvernCheckTest, TheBinaryNeitherImportsNorContainsAFunctionThatStartsOrSignalsAProcess) {
    EXPECT_EQ(ProcessFunctionsIn(WYVERN_CHECK_BINARY), std::set<std::string>());
    EXPECT_GT(SymbolsOf(WYVERN_CHECK_BINARY).size(), 100U);
    // The launcher has one, which shows that it would be seen here.
    EXPECT_EQ(ProcessFunctionsIn(WYVERN_BINARY), std::set<std::string>{"system"});
}
#endif
