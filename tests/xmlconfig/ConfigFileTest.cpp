#include "xmlconfig/ConfigFile.h"

#include "tests/support/FailingAllocation.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

// Lets a text claim a length of gigabytes that nobody has written.
PRIVATE_MEMBER(ConfigFileTextLength, std::string, std::string::size_type, _M_string_length);

namespace {

constexpr int64_t GiB = int64_t{1} << 30;

std::string MakeSparseFile(const TemporaryDirectory& dir, int64_t size) {
    const std::string path = dir.write("sparse", "");
    EXPECT_EQ(truncate(path.c_str(), size), 0);
    return path;
}

void ExpectNotRead(const std::string& path) {
    std::string text = "before";

    EXPECT_FALSE(ReadFileToString(path, text)) << path;

    EXPECT_EQ(text, "before") << path;
}

void ExpectRefusedWithoutMemory(const std::string& path) {
    std::string text = "before";
    bool read = true;

    {
        const FailingAllocation failing(0);
        EXPECT_NO_THROW(read = ReadFileToString(path, text));
    }

    EXPECT_FALSE(read);
    EXPECT_EQ(text, "before");
}

} // namespace

TEST(ConfigFileTest, AFileIsReadWhole) {
    const TemporaryDirectory dir;
    std::string content;
    for (int i = 0; i < 20000; ++i) {
        content += "line " + std::to_string(i) + "\r\n";
    }
    const std::string path = dir.write("file", content);
    std::string text = "before";

    EXPECT_TRUE(ReadFileToString(path, text));

    EXPECT_EQ(text, content);
}

TEST(ConfigFileTest, ZeroBytesOfAFileAreReadToo) {
    const TemporaryDirectory dir;
    const std::string content("\0a\0b\0", 5);
    const std::string path = dir.write("file", content);
    std::string text;

    EXPECT_TRUE(ReadFileToString(path, text));

    EXPECT_EQ(text, content);
}

TEST(ConfigFileTest, AFileWithANameOutsideAsciiIsRead) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("\xE5\x8D\x8F.xml", "content");
    std::string text;

    EXPECT_TRUE(ReadFileToString(path, text));

    EXPECT_EQ(text, "content");
}

TEST(ConfigFileTest, AMissingFileIsNotRead) {
    const TemporaryDirectory dir;

    ExpectNotRead(dir / "missing");
}

TEST(ConfigFileTest, AnEmptyFileIsNotRead) {
    const TemporaryDirectory dir;

    ExpectNotRead(dir.write("empty", ""));
}

// stdio opens a directory without complaint; the kernel refuses the first read.
TEST(ConfigFileTest, ADirectoryIsNotReadAsAFile) {
    const TemporaryDirectory dir;

    ExpectNotRead(dir.path());
}

TEST(ConfigFileTest, ADeviceHasNoSizeAndIsNotRead) {
    ExpectNotRead("/dev/null");
    ExpectNotRead("/dev/zero");
}

TEST(ConfigFileTest, AFileUnderProcHasNoSizeAndIsNotRead) {
    ASSERT_NE(ReadWholeFile("/proc/self/status"), "");

    ExpectNotRead("/proc/self/status");
}

TEST(ConfigFileTest, AFifoHasNoSizeAndIsNotRead) {
    const TemporaryDirectory dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int writer = open(path.c_str(), O_RDWR); // so that the open for reading does not wait for one
    ASSERT_GE(writer, 0);
    ASSERT_EQ(write(writer, "text", 4), 4);

    ExpectNotRead(path);

    EXPECT_EQ(close(writer), 0);
}

// A file of sysfs claims a page and yields a few bytes.
TEST(ConfigFileTest, AFileThatYieldsFewerBytesThanItsSizeIsNotRead) {
    const std::string path = "/sys/devices/system/cpu/online";
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    ASSERT_GT(status.st_size, static_cast<off_t>(ReadWholeFile(path).size()));

    ExpectNotRead(path);
}

TEST(ConfigFileTest, AFileOfThreeGibibytesIsRefusedWithoutMemoryForIt) {
    const TemporaryDirectory dir;

    ExpectRefusedWithoutMemory(MakeSparseFile(dir, 3 * GiB));
}

TEST(ConfigFileTest, AFileOfTwoGibibytesIsRefusedWithoutMemoryForIt) {
    const TemporaryDirectory dir;

    ExpectRefusedWithoutMemory(MakeSparseFile(dir, 2 * GiB));
}

#if SIZE_MAX > UINT32_MAX
// The memory for it is asked for, which the refusal of a larger file never comes to.
TEST(ConfigFileTest, AFileOfTwoGibibytesLessOneIsNotRefused) {
    const TemporaryDirectory dir;
    const std::string path = MakeSparseFile(dir, 2 * GiB - 1);
    std::string text = "before";

    {
        const FailingAllocation failing(0);
        EXPECT_THROW(static_cast<void>(ReadFileToString(path, text)), std::bad_alloc);
    }

    EXPECT_EQ(text, "before");
}
#else
TEST(ConfigFileTest, AFileLargerThanAnyTextThrowsLengthErrorAndLeavesTheText) {
    const TemporaryDirectory dir;
    const std::string path = MakeSparseFile(dir, 2 * GiB - 1);
    std::string text = "before";

    EXPECT_THROW(static_cast<void>(ReadFileToString(path, text)), std::length_error);

    EXPECT_EQ(text, "before");
}
#endif

TEST(ConfigFileTest, AMissingFileIsWritten) {
    const TemporaryDirectory dir;

    EXPECT_TRUE(WriteStringToFile(dir / "new", "content"));

    EXPECT_EQ(ReadWholeFile(dir / "new"), "content");
}

TEST(ConfigFileTest, ALongerFileIsReplacedWhole) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", std::string(10000, 'x'));

    EXPECT_TRUE(WriteStringToFile(path, "short"));

    EXPECT_EQ(ReadWholeFile(path), "short");
}

TEST(ConfigFileTest, ALongTextWithZeroBytesIsWrittenWhole) {
    const TemporaryDirectory dir;
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += static_cast<char>(i % 256);
    }

    EXPECT_TRUE(WriteStringToFile(dir / "file", text));

    EXPECT_TRUE(ReadWholeFile(dir / "file") == text);
}

TEST(ConfigFileTest, AnEmptyTextEmptiesTheFile) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "before");

    EXPECT_TRUE(WriteStringToFile(path, ""));

    EXPECT_EQ(ReadWholeFile(path), "");
}

TEST(ConfigFileTest, ADirectoryIsNotWrittenAsAFile) {
    const TemporaryDirectory dir;

    EXPECT_FALSE(WriteStringToFile(dir.path(), "text"));
}

TEST(ConfigFileTest, AFileInAMissingDirectoryIsNotWritten) {
    const TemporaryDirectory dir;

    EXPECT_FALSE(WriteStringToFile(dir / "missing/file", "text"));

    EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

// stdio takes a short text into its buffer and reports it written; only the close learns that the device is full.
TEST(ConfigFileTest, AFullDeviceThatShowsOnlyAtTheCloseFailsTheWrite) {
    EXPECT_FALSE(WriteStringToFile("/dev/full", "text"));
}

TEST(ConfigFileTest, AFullDeviceThatShowsDuringTheWriteFailsIt) {
    EXPECT_FALSE(WriteStringToFile("/dev/full", std::string(1 << 20, 'x')));
}

TEST(ConfigFileTest, APathOutsideAsciiIsNotWrittenAndTouchesNoFile) {
    const TemporaryDirectory dir;
    const std::string whole = dir.write("start\xE5\x8D\x8F.xml", "whole");
    const std::string start = dir.write("start", "start"); // what a cut path would name

    EXPECT_FALSE(WriteStringToFile(whole, "text"));

    EXPECT_EQ(ReadWholeFile(whole), "whole");
    EXPECT_EQ(ReadWholeFile(start), "start");
}

TEST(ConfigFileTest, APathThatIsNotUtf8IsNotWrittenAndTouchesNoFile) {
    const TemporaryDirectory dir;
    const std::string whole = dir.write("start\xD0\xAD.xml", "whole");
    const std::string start = dir.write("start", "start");

    EXPECT_FALSE(WriteStringToFile(whole, "text"));

    EXPECT_EQ(ReadWholeFile(whole), "whole");
    EXPECT_EQ(ReadWholeFile(start), "start");
}

#if SIZE_MAX > UINT32_MAX // elsewhere no text is that long
TEST(ConfigFileTest, ATextOfTwoGibibytesIsRefusedAndLeavesTheFile) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "before");
    std::string text;
    text.reserve(static_cast<size_t>(2 * GiB)); // address space only: nothing is written there
    text.*Get(ConfigFileTextLength()) = static_cast<size_t>(2 * GiB);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit little{1 << 20, limit.rlim_max}; // what is written all the same costs neither time nor memory
    const auto former = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);

    const bool written = WriteStringToFile(path, text);

    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    signal(SIGXFSZ, former);
    text.*Get(ConfigFileTextLength()) = 0;
    EXPECT_FALSE(written);
    EXPECT_EQ(ReadWholeFile(path), "before");
}

TEST(ConfigFileTest, ATextOfTwoGibibytesLessOneIsWritten) {
    std::string text;
    text.reserve(static_cast<size_t>(2 * GiB)); // address space only: the device does not look at what it is given
    text.*Get(ConfigFileTextLength()) = static_cast<size_t>(2 * GiB - 1);

    EXPECT_TRUE(WriteStringToFile("/dev/null", text));

    text.*Get(ConfigFileTextLength()) = 0;
}
#endif

TEST(ConfigFileTest, NoFileIsLeftOpenWhateverTheResult) {
    const TemporaryDirectory dir;
    const std::vector<std::string> paths = {
        dir.path(),  dir.write("file", "text"), dir.write("empty", ""),           dir / "missing/file",
        "/dev/full", "/proc/version",           "/sys/devices/system/cpu/online", "/dev/null"};
    const std::vector<std::string> writable = {dir.path(), dir / "file", dir / "missing/file", "/dev/full"};
    const ptrdiff_t before = OpenDescriptors();

    std::string text;
    for (const std::string& path : paths) {
        static_cast<void>(ReadFileToString(path, text));
    }
    for (const std::string& path : writable) {
        static_cast<void>(WriteStringToFile(path, "text"));
        static_cast<void>(WriteStringToFile(path, std::string(1 << 20, 'x')));
    }

    EXPECT_EQ(OpenDescriptors(), before);
}
