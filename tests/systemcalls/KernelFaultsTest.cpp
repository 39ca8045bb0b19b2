#include "charset/CharSetConverter.h"
#include "fileio/FileAccess.h"
#include "launcher/ListDirectory.h"
#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/systemcalls/SystemCalls.h"
#include "tests/systemcalls/WatchedRun.h"
#include "xmlconfig/ConfigFile.h"
#include "xmlconfig/XmlConfigureDocument.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Faults that the kernel supplies itself, some at a moment of the test's choice.

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr const char* Document = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<Configure name=\"a\" />\n";
constexpr const char* AbcStarted = "$ /factory_setting/ABC_loadservice\n"
                                   "Run LoadServcie(/factory_setting/ABC_loadservice) \n";
constexpr const char* NothingFound = "$ /factory_setting/\nRun LoadServcie(/factory_setting/) \n";

// A device in a directory, for a command that is run in this process: both copies enable ABC, whose start program is
// there, and each has a disabled protocol of its own.
class WatchedDevice {
public:
    WatchedDevice() {
        working = write(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"ABC"}, {"WORKING", false}}));
        factory = write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"ABC"}, {"FACTORY", false}}));
        services = fs::path(write("/factory_setting/ABC_loadservice", "")).parent_path();
        calls.deviceRoot = root.path();
    }

    std::string start() { return RunLauncher(calls, "1"); }

    std::string working;
    std::string factory;
    std::string services;
    SystemCalls calls;

private:
    std::string write(const std::string& path, const std::string& content) {
        return root.write(path.substr(1), content);
    }

    TemporaryDirectory root;
};

const std::string StartsWorking = std::string(AbcStarted) + "Protocol(WORKING) disable\nexit 0";
const std::string StartsFactory = std::string(WorkingFailed) + AbcStarted + "Protocol(FACTORY) disable\nexit 0";

void Append(const std::string& path, const std::string& text) {
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    EXPECT_EQ(close(file), 0);
}

/// The process's limit of one resource while this lives.
class Limit {
public:
    Limit(decltype(RLIMIT_NOFILE) limited, rlim_t most) : resource(limited) {
        EXPECT_EQ(getrlimit(resource, &before), 0);
        const rlimit wanted{most, before.rlim_max};
        EXPECT_EQ(setrlimit(resource, &wanted), 0);
    }

    ~Limit() { EXPECT_EQ(setrlimit(resource, &before), 0); }

    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    decltype(RLIMIT_NOFILE) resource;
    rlimit before{};
};

/// Whoever runs the tests is somebody whom permissions stop, while this lives: root becomes nobody.
class NotRoot {
public:
    NotRoot() : root(geteuid() == 0) {
        if (root && seteuid(Nobody) != 0) {
            ADD_FAILURE() << "root cannot become another user: " << std::strerror(errno);
        }
    }

    ~NotRoot() {
        if (root) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

    NotRoot(const NotRoot&) = delete;
    NotRoot& operator=(const NotRoot&) = delete;

private:
    static constexpr uid_t Nobody = 65534;

    bool root;
};

// Nobody may do anything there, not even who owns it.
void TakePermissions(const std::string& path) {
    fs::permissions(path, fs::perms::none);
}

// The way to it is open for everybody, from the test's own directory on.
void OpenWayTo(const std::string& path) {
    constexpr fs::perms Enter = fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec |
                                fs::perms::group_read | fs::perms::others_read;
    for (fs::path way = fs::path(path).parent_path(); way != fs::temp_directory_path() && way != way.root_path();
         way = way.parent_path()) {
        fs::permissions(way, Enter);
    }
}

// The file becomes a symbolic link to another, which leads back.
void PutCircle(const std::string& path) {
    fs::remove(path);
    fs::create_symlink(fs::path(path).filename().string() + ".other", path);
    fs::create_symlink(fs::path(path).filename(), path + ".other");
}

void ExpectNotRead(const std::string& path) {
    std::string text = "before";

    EXPECT_FALSE(ReadFileToString(path, text)) << path.substr(0, 100);

    EXPECT_EQ(text, "before");
}

} // namespace

TEST(KernelFaultsTest, AFileThatShrinksWhileItIsReadIsNotRead) {
    const TemporaryDirectory dir;
    for (const off_t left : {off_t{0}, off_t{1}, off_t{6}}) {
        SCOPED_TRACE(left);
        const std::string path = dir.write("file", "content");
        SystemCalls calls;
        calls.behindFstat = [&] { EXPECT_EQ(truncate(path.c_str(), left), 0); };

        calls.watch([&] { ExpectNotRead(path); });

        EXPECT_EQ(calls.leftOpen(), 0);
    }
}

TEST(KernelFaultsTest, AFileThatGrowsWhileItIsReadIsReadUpToItsFormerSize) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "content");
    SystemCalls calls;
    calls.behindFstat = [&] { Append(path, " and more"); };
    std::string text;

    calls.watch([&] { EXPECT_TRUE(ReadFileToString(path, text)); });

    EXPECT_EQ(text, "content");
    EXPECT_EQ(ReadWholeFile(path), "content and more");
}

// As an editor saves it, and as a careful program does: the open file is the former one.
TEST(KernelFaultsTest, AFileThatIsReplacedOrRemovedWhileItIsReadIsReadAsItWas) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "content");
    const std::string other = dir.write("other", "another content, of another length");
    std::string text;
    SystemCalls calls;

    calls.behindFstat = [&] { fs::rename(other, path); };
    calls.watch([&] { EXPECT_TRUE(ReadFileToString(path, text)); });
    EXPECT_EQ(text, "content");

    calls.behindFstat = [&] { fs::remove(path); };
    calls.watch([&] { EXPECT_TRUE(ReadFileToString(path, text)); });
    EXPECT_EQ(text, "another content, of another length");
}

TEST(KernelFaultsTest, AFileThatIsEmptiedBetweenItsOpenAndItsMeasureIsNotRead) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "content");
    SystemCalls calls;
    calls.behindOpen = [&] { EXPECT_EQ(truncate(path.c_str(), 0), 0); };

    calls.watch([&] { ExpectNotRead(path); });
}

TEST(KernelFaultsTest, AWorkingCopyThatShrinksWhileItIsReadMeansTheFactoryCopy) {
    WatchedDevice device;
    device.calls.behindFstat = [&] { EXPECT_EQ(truncate(device.working.c_str(), 100), 0); };

    EXPECT_EQ(device.start(), StartsFactory);
}

TEST(KernelFaultsTest, AWorkingCopyThatGrowsWhileItIsReadIsUsedAsItWas) {
    WatchedDevice device;
    device.calls.behindFstat = [&] { Append(device.working, "</damaged>"); };

    EXPECT_EQ(device.start(), StartsWorking);
}

// POSIX leaves open whether a name that comes or goes is listed; what stays is, once. The names take several times the
// 32 KiB that one call of the kernel yields.
TEST(KernelFaultsTest, ADirectoryThatChangesWhileItIsListedYieldsWhatStaysOnce) {
    constexpr size_t Files = 600;
    const std::string tail(200, 'x');
    for (const size_t when : {size_t{1}, size_t{10}, Files / 2}) {
        SCOPED_TRACE(when);
        const TemporaryDirectory changing;
        for (size_t i = 0; i < Files; ++i) {
            static_cast<void>(changing.write((i % 2 == 0 ? "stays" : "goes") + std::to_string(i) + tail, ""));
        }
        SystemCalls calls;
        calls.aheadReaddir = [&](size_t call) {
            if (call != when) {
                return;
            }
            for (size_t i = 0; i < Files; ++i) {
                if (i % 2 == 0) {
                    static_cast<void>(changing.write("comes" + std::to_string(i) + tail, ""));
                } else {
                    EXPECT_TRUE(fs::remove(changing / ("goes" + std::to_string(i) + tail)));
                }
            }
        };
        Lines names;

        calls.watch([&] { EXPECT_TRUE(ListDirectory(changing.path(), names, "*")); });

        std::map<std::string, size_t> listed;
        for (const std::string& name : names) {
            ++listed[name];
        }
        size_t staying = 0;
        for (const auto& [name, times] : listed) {
            EXPECT_EQ(times, 1U) << name;
            staying += name.rfind("stays", 0) == 0 ? 1 : 0;
        }
        EXPECT_EQ(staying, Files / 2);
        EXPECT_EQ(calls.leftOpen(), 0);
    }
}

TEST(KernelFaultsTest, ADirectoryThatIsRemovedBeforeItIsListedYieldsNoNames) {
    const TemporaryDirectory dir;
    fs::create_directory(dir / "directory");
    SystemCalls calls;
    calls.aheadReaddir = [&](size_t call) {
        if (call == 1) {
            fs::remove(dir / "directory");
        }
    };
    Lines names{"before"};

    calls.watch([&] { EXPECT_TRUE(ListDirectory(dir / "directory", names, "*")); });

    EXPECT_EQ(names, Lines{"before"});
}

// A start program that was listed and is gone by then fails like any other: its status is not looked at.
TEST(KernelFaultsTest, AStartProgramThatIsRemovedOnceItIsListedIsStartedAllTheSame) {
    WatchedDevice device;
    const size_t entries = 3; // with the directory itself and its parent
    device.calls.aheadReaddir = [&](size_t call) {
        if (call == entries + 1) {
            fs::remove(device.services + "/ABC_loadservice");
        }
    };

    EXPECT_EQ(device.start(), StartsWorking);
}

// Each has no size, or cannot be opened; a device that never ends must not be read to its end.
TEST(KernelFaultsTest, ADeviceFileAsTheWorkingCopyMeansTheFactoryCopy) {
    for (const char* file : {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/tty", "/dev/ptmx"}) {
        SCOPED_TRACE(file);
        WatchedDevice device;
        fs::remove(device.working);
        fs::create_symlink(file, device.working);

        EXPECT_EQ(device.start(), StartsFactory);
        EXPECT_EQ(device.calls.leftOpen(), 0);
    }
}

TEST(KernelFaultsTest, AWorkingCopyThatIsACircleOfSymbolicLinksMeansTheFactoryCopy) {
    WatchedDevice device;
    PutCircle(device.working);

    EXPECT_EQ(device.start(), StartsFactory);
    EXPECT_EQ(device.calls.leftOpen(), 0);
}

TEST(KernelFaultsTest, TwoCopiesThatAreCirclesOfSymbolicLinksAreReportedAndNothingIsRun) {
    WatchedDevice device;
    PutCircle(device.working);
    PutCircle(device.factory);

    EXPECT_EQ(device.start(), std::string(WorkingFailed) + FactoryFailed + "exit 0");
    EXPECT_EQ(device.calls.commands(), Lines());
    EXPECT_EQ(device.calls.leftOpen(), 0);
}

TEST(KernelFaultsTest, ACircleOfSymbolicLinksIsNeitherReadNorWrittenNorListed) {
    const TemporaryDirectory dir;
    const std::string circle = dir / "circle";
    PutCircle(circle);
    Lines names{"before"};

    ExpectNotRead(circle);
    EXPECT_FALSE(WriteStringToFile(circle, "text"));
    EXPECT_FALSE(ListDirectory(circle, names, "*"));

    EXPECT_EQ(names, Lines{"before"});
    EXPECT_TRUE(fs::is_symlink(circle));
}

TEST(KernelFaultsTest, AServiceDirectoryInACircleOfSymbolicLinksCountsAsOneWithoutAStartProgram) {
    WatchedDevice device;
    fs::remove_all(device.services);
    fs::create_symlink("factory_setting", device.services);

    EXPECT_EQ(device.start(), std::string(NothingFound) + "Protocol(WORKING) disable\nexit 0");
}

TEST(KernelFaultsTest, APathOfTheGreatestLengthIsReadAndListedAndALongerOneIsNot) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("directory/file", "content"));
    const std::string longest = PathOfLength(PATH_MAX - 1, dir.path(), "directory/file");
    const std::string longestDirectory = PathOfLength(PATH_MAX - 1, dir.path(), "directory");
    std::string text;
    Lines names;

    EXPECT_TRUE(ReadFileToString(longest, text));
    EXPECT_EQ(text, "content");
    EXPECT_TRUE(ListDirectory(longestDirectory, names, "*"));
    EXPECT_EQ(names, Lines{"file"});

    for (const size_t length : {size_t{PATH_MAX}, size_t{PATH_MAX} + 1, size_t{1} << 20U}) {
        SCOPED_TRACE(length);
        ExpectNotRead(PathOfLength(length, dir.path(), "directory/file"));
        EXPECT_FALSE(ListDirectory(PathOfLength(length, dir.path(), "directory"), names, "*"));
        EXPECT_EQ(names, Lines{"file"});
    }
}

// What the file layer writes it opens by a wide path, of 1023 bytes at most.
TEST(KernelFaultsTest, ADocumentOnAPathOfTheGreatestLengthLoadsButIsNotSaved) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Document);
    for (const size_t length : {size_t{1024}, size_t{PATH_MAX} - 1}) {
        SCOPED_TRACE(length);
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(PathOfLength(length, dir.path(), "file"), CharSetUtf8, ReadWrite));

        EXPECT_FALSE(document.Save());

        EXPECT_EQ(ReadWholeFile(path), Document);
    }
    for (const size_t length : {size_t{PATH_MAX}, size_t{1} << 20U}) {
        SCOPED_TRACE(length);
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(PathOfLength(length, dir.path(), "file"), CharSetUtf8, Create));

        EXPECT_FALSE(document.Save());
    }
}

TEST(KernelFaultsTest, ANameOf256BytesIsNeitherReadNorWrittenNorListed) {
    const TemporaryDirectory dir;
    const std::string path = dir / std::string(NAME_MAX + 1, 'x');
    Lines names;

    ExpectNotRead(path);
    EXPECT_FALSE(WriteStringToFile(path, "text"));
    EXPECT_FALSE(ListDirectory(path, names, "*"));

    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(KernelFaultsTest, AFileWithoutPermissionIsNeitherReadNorWritten) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Document);
    OpenWayTo(path);
    TakePermissions(path);
    {
        const NotRoot user;
        struct stat status {};
        // Not access(2): that asks for the real user, who is root still.
        ASSERT_EQ(stat(path.c_str(), &status), 0) << "the file itself cannot be reached";
        XmlConfigureDocument document;

        ExpectNotRead(path);
        EXPECT_FALSE(document.Load(path, CharSetUtf8, ReadWrite));
        EXPECT_FALSE(WriteStringToFile(path, "text"));
    }
    fs::permissions(path, fs::perms::owner_read);
    EXPECT_EQ(ReadWholeFile(path), Document);
}

TEST(KernelFaultsTest, AFileThatMayOnlyBeReadLoadsAndIsNotSaved) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Document);
    OpenWayTo(path);
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    {
        const NotRoot user;
        XmlConfigureDocument document;
        EXPECT_TRUE(document.Load(path, CharSetUtf8, ReadWrite));

        EXPECT_FALSE(document.Save());
    }
    EXPECT_EQ(ReadWholeFile(path), Document);
}

// Reading the names and entering the directory are two permissions.
TEST(KernelFaultsTest, ADirectoryThatMayNotBeReadIsNotListedAndOneThatMayNotBeEnteredHidesItsFiles) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("directory/file", "content");
    const std::string directory = dir / "directory";
    OpenWayTo(path);
    Lines names{"before"};
    std::string text;

    fs::permissions(directory, fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec);
    {
        const NotRoot user;
        EXPECT_FALSE(ListDirectory(directory, names, "*"));
        EXPECT_TRUE(ReadFileToString(path, text));
    }
    EXPECT_EQ(names, Lines{"before"});
    EXPECT_EQ(text, "content");

    fs::permissions(directory, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    {
        const NotRoot user;
        EXPECT_TRUE(ListDirectory(directory, names, "*"));
        ExpectNotRead(path);
    }
    EXPECT_EQ(names, (Lines{"before", "file"}));
    fs::permissions(directory, fs::perms::owner_all);
}

TEST(KernelFaultsTest, WithoutPermissionTheWorkingCopyMeansTheFactoryCopyAndTheServiceDirectoryAnEmptyOne) {
    WatchedDevice device;
    OpenWayTo(device.working);
    OpenWayTo(device.factory);
    OpenWayTo(device.services + "/ABC_loadservice");

    TakePermissions(device.working);
    std::string withoutWorking;
    {
        const NotRoot user;
        withoutWorking = device.start();
    }
    TakePermissions(device.services);
    std::string withoutServices;
    {
        const NotRoot user;
        withoutServices = device.start();
    }
    fs::permissions(device.services, fs::perms::owner_all);
    TakePermissions(device.factory);
    std::string withoutAny;
    {
        const NotRoot user;
        withoutAny = device.start();
    }

    EXPECT_EQ(withoutWorking, StartsFactory);
    EXPECT_EQ(withoutServices, std::string(WorkingFailed) + NothingFound + "Protocol(FACTORY) disable\nexit 0");
    EXPECT_EQ(withoutAny, std::string(WorkingFailed) + FactoryFailed + "exit 0");
}

// One is enough for all that the command does, and without any it says so and ends.
TEST(KernelFaultsTest, TheCommandNeedsOneFreeDescriptorAndRunsNothingWithoutOne) {
    WatchedDevice device;
    std::string program = "Wyvern";
    std::string mode = "1";
    char* arguments[] = {program.data(), mode.data(), nullptr};

    const auto startWith = [&](rlim_t free) {
        device.calls.watch([&] {
            // The lowest free one, now that capturing the output has taken its own.
            const int own = open("/dev/null", O_RDONLY | O_CLOEXEC);
            ASSERT_EQ(close(own), 0);
            const Limit limit(RLIMIT_NOFILE, static_cast<rlim_t>(own) + free);
            EXPECT_EQ(WyvernMain(2, arguments), 0);
        });
        return device.calls.takePrinted() + "exit 0";
    };

    // First with plenty: a sanitizer needs descriptors of its own when it meets a class for the first time.
    ASSERT_EQ(startWith(20), StartsWorking);
    const Lines before = device.calls.commands();

    EXPECT_EQ(startWith(0), std::string(WorkingFailed) + FactoryFailed + "exit 0");
    EXPECT_EQ(device.calls.commands(), before);
    EXPECT_EQ(startWith(1), StartsWorking);
}

TEST(KernelFaultsTest, WithoutAFreeDescriptorNothingIsReadOrSavedAndTheFileIsAsItWas) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Document);
    XmlConfigureDocument document;
    // Once with plenty: a sanitizer needs descriptors of its own when it meets a class for the first time.
    ASSERT_TRUE(document.Load(path, CharSetUtf8, ReadWrite) && document.Save());
    ASSERT_TRUE(document.Load(path, CharSetUtf8, ReadWrite));
    {
        const Limit limit(RLIMIT_NOFILE, 0);
        XmlConfigureDocument other;

        ExpectNotRead(path);
        EXPECT_FALSE(other.Load(path, CharSetUtf8, ReadWrite));
        EXPECT_FALSE(document.Save());
    }
    EXPECT_EQ(ReadWholeFile(path), Document);
    EXPECT_TRUE(document.Save());
}

// The signal is ignored, as under a shell that does; otherwise it ends the process.
TEST(KernelFaultsTest, AFileThatMayNotGrowFailsTheSaveWhichCanBeRepeated) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Document);
    const auto former = signal(SIGXFSZ, SIG_IGN);
    for (const size_t most : {size_t{0}, size_t{10}}) {
        SCOPED_TRACE(most);
        XmlConfigureDocument document;
        ASSERT_TRUE(document.Load(path, CharSetUtf8, ReadWrite));
        {
            const Limit limit(RLIMIT_FSIZE, most);
            EXPECT_FALSE(document.Save());
        }
        EXPECT_EQ(ReadWholeFile(path), std::string(Document).substr(0, most));

        EXPECT_TRUE(document.Save());
        EXPECT_EQ(ReadWholeFile(path), Document);
    }
    signal(SIGXFSZ, former);
}

TEST(KernelFaultsTest, AFileThatMayNotGrowFailsALongWriteWithItsErrnoAndKeepsWhatFitted) {
    const TemporaryDirectory dir;
    const std::string text(1U << 20U, 'x');
    constexpr size_t Most = 100000;
    FileAccess file;
    ASSERT_TRUE(file.Open((dir / "file").c_str(), FileWrite | FileTruncate));
    const auto former = signal(SIGXFSZ, SIG_IGN);
    {
        const Limit limit(RLIMIT_FSIZE, Most);
        errno = 0;
        EXPECT_EQ(file.Write(text.data(), static_cast<uint32_t>(text.size())), -1);
        EXPECT_EQ(errno, EFBIG);
    }
    signal(SIGXFSZ, former);
    static_cast<void>(file.Close());

    EXPECT_EQ(fs::file_size(dir / "file"), Most);
}

// Every line of every stream is lost, and no service is.
TEST(KernelFaultsTest, ConsolesThatAreFullOrClosedChangeNothingElse) {
    const std::string tooLong = "LONG_loadservice" + std::string(64, 'x');
    const DeviceSandbox device;
    device.addStartProgram("ABC_loadservice");
    device.addStartProgram("XYZ_loadservice");
    device.addStartProgram(tooLong);
    device.write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"ABC"}, {"OFF", false}, {"LONG"}, {"XYZ"}}));

    for (const char* console : {">/dev/full 2>/dev/full", ">&- 2>&-", "</dev/null >&0 2>&0"}) {
        SCOPED_TRACE(console);
        const DeviceRun start = device.runScript(std::string("exec \"$WYVERN\" 1 ") + console);
        const DeviceRun stop = device.runScript(std::string("exec \"$WYVERN\" 0 ") + console);
        const DeviceRun usage = device.runScript(std::string("exec \"$WYVERN\" ") + console);

        EXPECT_EQ(start.programs, (Lines{"/factory_setting/ABC_loadservice", "/factory_setting/XYZ_loadservice"}));
        EXPECT_EQ(start.ended, "exit 0");
        EXPECT_EQ(stop.programs,
                  (Lines{"killall -15 ABC_Server", "killall -15 LONG_Server", "killall -15 XYZ_Server"}));
        EXPECT_EQ(stop.ended, "exit 0");
        EXPECT_EQ(usage.programs, Lines());
        EXPECT_EQ(usage.ended, "exit 255");
    }
}
