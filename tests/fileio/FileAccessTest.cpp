#include "fileio/FileAccess.h"

#include "tests/support/FailingAllocation.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/PrintedBy.h"
#include "tests/support/PrivateMember.h"
#include "tests/support/RepeatedPages.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

PRIVATE_MEMBER(FileAccessStream, FileAccess, FILE*, stream);

static_assert(!std::is_copy_constructible_v<FileAccess> && !std::is_copy_assignable_v<FileAccess>);
static_assert(!std::is_move_constructible_v<FileAccess> && !std::is_move_assignable_v<FileAccess>);
static_assert(std::is_nothrow_destructible_v<FileAccess>);
static_assert(!std::is_polymorphic_v<FileAccess> && sizeof(FileAccess) == sizeof(FILE*));
static_assert(std::is_same_v<std::underlying_type_t<FileOpenFlags>, uint8_t>);
static_assert(FileRead == 0x01 && FileWrite == 0x02 && FileUpdate == 0x04 && FileCreate == 0x20 &&
              FileTruncate == 0x40);
static_assert(std::is_same_v<decltype(&FileAccess::GetSize), int64_t (FileAccess::*)() noexcept>);

namespace {

constexpr uint8_t Rewrite = FileUpdate | FileCreate | FileTruncate;

FILE*& StreamOf(FileAccess& file) {
    return file.*Get(FileAccessStream());
}

std::vector<std::string> NamesIn(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadAll(FileAccess& file, uint32_t room = 64) {
    std::string text(room, '\0');
    const int32_t count = file.Read(text.data(), room);
    text.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return text;
}

// For ASCII; the tests' other characters are written out.
std::wstring Widened(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

// The three ways in, for paths in ASCII.
struct Door {
    const char* name;
    std::function<bool(FileAccess&, const std::string&, uint8_t)> open;
};

const std::vector<Door>& Doors() {
    static const std::vector<Door> doors = {
        {"Open",
         [](FileAccess& file, const std::string& path, uint8_t flags) { return file.Open(path.c_str(), flags); }},
        {"OpenWide", [](FileAccess& file, const std::string& path,
                        uint8_t flags) { return file.OpenWide(Widened(path).c_str(), flags); }},
        {"OpenUtf8",
         [](FileAccess& file, const std::string& path, uint8_t flags) { return file.OpenUtf8(path.c_str(), flags); }},
    };
    return doors;
}

// Those whose path goes through wide characters.
std::vector<Door> WideDoors() {
    return {Doors()[1], Doors()[2]};
}

// Which of the flags that count give which mode; every other combination is refused.
const std::map<unsigned, std::string>& AcceptedFlags() {
    static const std::map<unsigned, std::string> accepted = {
        {0x01, "rb"}, {0x21, "rb"}, {0x41, "rb"},  {0x61, "rb"},  {0x02, "ab"},  {0x22, "ab"},
        {0x42, "wb"}, {0x62, "wb"}, {0x04, "r+b"}, {0x44, "r+b"}, {0x24, "a+b"}, {0x64, "w+b"},
    };
    return accepted;
}

constexpr unsigned FlagsThatCount = 0x67;

template <class Char>
std::string ModeText(const std::array<Char, 4>& mode) {
    std::string text;
    for (const Char character : mode) {
        if (character == 0) {
            return text;
        }
        text += static_cast<char>(character);
    }
    return "not terminated: " + text;
}

} // namespace

TEST(FileAccessModeTest, EachOfThe256FlagValuesGivesItsModeOrIsRefused) {
    for (unsigned flags = 0; flags < 0x100; ++flags) {
        SCOPED_TRACE(flags);
        const auto expected = AcceptedFlags().find(flags & FlagsThatCount);
        std::array<char, 4> narrow = {'#', '#', '#', '#'};
        std::array<wchar_t, 4> wide = {L'#', L'#', L'#', L'#'};

        const bool accepted = FileAccess::MakeOpenMode(static_cast<uint8_t>(flags), narrow.data());
        const bool acceptedWide = FileAccess::MakeOpenMode(static_cast<uint8_t>(flags), wide.data());

        ASSERT_EQ(accepted, expected != AcceptedFlags().end());
        ASSERT_EQ(acceptedWide, accepted);
        if (accepted) {
            EXPECT_EQ(ModeText(narrow), expected->second);
            EXPECT_EQ(ModeText(wide), expected->second);
        }
    }
}

TEST(FileAccessModeTest, ARefusalLeavesTheTextOfTheFirstAccessFlagInTheBuffer) {
    struct Case {
        const char* what;
        uint8_t flags;
        std::string left;
    };

    const std::vector<Case> cases = {
        {"no access flag: nothing is written", 0x00, "not terminated: ####"},
        {"no access flag among others", 0xf8, "not terminated: ####"},
        {"read and write", FileRead | FileWrite, "rb"},
        {"read, write and truncate", FileRead | FileWrite | FileTruncate, "rb"},
        {"read and update", FileRead | FileUpdate, "rb"},
        {"read, update and create", FileRead | FileUpdate | FileCreate, "rb"},
        {"write and update", FileWrite | FileUpdate, "ab"},
        {"write, update and truncate", FileWrite | FileUpdate | FileTruncate, "wb"},
        {"all three", FileRead | FileWrite | FileUpdate, "rb"},
    };

    for (const Case& row : cases) {
        SCOPED_TRACE(row.what);
        std::array<char, 4> narrow = {'#', '#', '#', '#'};
        std::array<wchar_t, 4> wide = {L'#', L'#', L'#', L'#'};

        EXPECT_FALSE(FileAccess::MakeOpenMode(row.flags, narrow.data()));
        EXPECT_FALSE(FileAccess::MakeOpenMode(row.flags, wide.data()));

        EXPECT_EQ(ModeText(narrow), row.left);
        EXPECT_EQ(ModeText(wide), row.left);
    }
}

TEST(FileAccessModeTest, CreateAndTruncateChangeNothingBesideReadNorCreateBesideWrite) {
    struct Case {
        uint8_t flags;
        const char* mode;
    };

    const std::vector<Case> cases = {{0x21, "rb"}, {0x61, "rb"}, {0x22, "ab"}};

    for (const Case& row : cases) {
        std::array<char, 4> mode{};
        EXPECT_TRUE(FileAccess::MakeOpenMode(row.flags, mode.data())) << int{row.flags};
        EXPECT_STREQ(mode.data(), row.mode);
    }
}

TEST(FileAccessTest, EachOfThe256FlagValuesOpensAnExistingFileOrIsRefusedThroughEachDoor) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");

    for (const Door& door : Doors()) {
        for (unsigned flags = 0; flags < 0x100; ++flags) {
            SCOPED_TRACE(std::string(door.name) + " " + std::to_string(flags));
            FileAccess file;

            const bool opened = door.open(file, path, static_cast<uint8_t>(flags));

            ASSERT_EQ(opened, AcceptedFlags().count(flags & FlagsThatCount) == 1);
            ASSERT_EQ(StreamOf(file) != nullptr, opened);
        }
    }
}

// What the modes mean to a file, as fopen(3) tells it.
TEST(FileAccessTest, EachModeTreatsMissingAndExistingFilesAsItSays) {
    struct Case {
        uint8_t flags;
        bool opensMissing;
        bool reads;
        bool writes;
        std::string afterWritingX; // to a file that held "abc"
    };

    const std::vector<Case> cases = {
        {FileRead, false, true, false, "abc"},
        {FileWrite, true, false, true, "abcX"},
        {FileWrite | FileTruncate, true, false, true, "X"},
        {FileUpdate, false, true, true, "Xbc"},
        {FileUpdate | FileCreate, true, true, true, "abcX"},
        {FileUpdate | FileCreate | FileTruncate, true, true, true, "X"},
    };

    for (const Door& door : Doors()) {
        for (const Case& row : cases) {
            SCOPED_TRACE(std::string(door.name) + " " + std::to_string(row.flags));
            const TemporaryDirectory dir;
            const std::string existing = dir.write("existing", "abc");
            std::array<char, 8> buffer{};

            FileAccess missing;
            EXPECT_EQ(door.open(missing, dir / "missing", row.flags), row.opensMissing);
            EXPECT_EQ(std::filesystem::exists(dir / "missing"), row.opensMissing);

            FileAccess written;
            ASSERT_TRUE(door.open(written, existing, row.flags));
            EXPECT_EQ(written.Write("X", 1), row.writes ? 1 : -1);
            EXPECT_TRUE(written.Close());
            EXPECT_EQ(ReadWholeFile(existing), row.afterWritingX);

            FileAccess read;
            ASSERT_TRUE(door.open(read, existing, row.flags));
            EXPECT_EQ(read.Read(buffer.data(), 1) >= 0, row.reads);
        }
    }
}

// A failed fopen would have taken the stream away, a successful one would have made the file.
TEST(FileAccessTest, RefusedFlagsReturnFalseWithoutCallingFopenAndLeaveTheStreamAsItWas) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");

    for (const Door& door : Doors()) {
        for (const int flags : {0x00, 0x03, 0x05, 0x06, 0x07, 0x66, 0x60, 0x98}) {
            SCOPED_TRACE(std::string(door.name) + " " + std::to_string(flags));
            FileAccess closed;
            FileAccess open;
            ASSERT_TRUE(open.Open(path.c_str(), FileRead));
            FILE* const stream = StreamOf(open);

            EXPECT_FALSE(door.open(closed, path, static_cast<uint8_t>(flags)));
            EXPECT_FALSE(door.open(open, dir / "missing", static_cast<uint8_t>(flags)));

            EXPECT_EQ(StreamOf(closed), nullptr);
            EXPECT_EQ(StreamOf(open), stream);
            EXPECT_EQ(ReadAll(open), "abc");
            EXPECT_EQ(NamesIn(dir.path()), std::vector<std::string>{"file"});
        }
    }
}

TEST(FileAccessTest, AllBytesComeBackAsTheyWereWritten) {
    const TemporaryDirectory dir;
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    bytes += "\r\n\n\r\x1a";
    FileAccess file;

    ASSERT_TRUE(file.Open((dir / "file").c_str(), Rewrite));
    ASSERT_EQ(file.Write(bytes.data(), static_cast<uint32_t>(bytes.size())), static_cast<int32_t>(bytes.size()));
    ASSERT_TRUE(file.Close());
    ASSERT_TRUE(file.Open((dir / "file").c_str(), FileRead));

    EXPECT_EQ(file.GetSize(), static_cast<int64_t>(bytes.size()));
    EXPECT_EQ(ReadAll(file, 1000), bytes);
}

TEST(FileAccessTest, ANarrowPathGoesToTheSystemByteForByte) {
    const TemporaryDirectory dir;

    for (const char* name : {"caf\xc3\xa9", "\xe4\xb8\xad\xe6\x96\x87", "\xff\xfe", "a b\n%s"}) {
        FileAccess file;
        EXPECT_TRUE(file.Open((dir / name).c_str(), Rewrite)) << name;
        EXPECT_EQ(NamesIn(dir.path()), std::vector<std::string>{name});
        std::filesystem::remove(dir / name);
    }
}

TEST(FileAccessTest, AMissingFileReturnsFalseWithErrnoAsTheSystemSetIt) {
    const TemporaryDirectory dir;

    for (const Door& door : Doors()) {
        FileAccess file;

        errno = 0;
        EXPECT_FALSE(door.open(file, dir / "missing", FileRead)) << door.name;
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(StreamOf(file), nullptr);
    }
}

TEST(FileAccessTest, AnEmptyPathOpensNothing) {
    for (const Door& door : Doors()) {
        FileAccess file;
        EXPECT_FALSE(door.open(file, "", Rewrite)) << door.name;
    }
}

TEST(FileAccessTest, WithoutAFreeDescriptorNothingOpens) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};

    for (const Door& door : Doors()) {
        FileAccess file;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        errno = 0;
        const bool opened = door.open(file, path, FileRead);
        const int error = errno;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

        EXPECT_FALSE(opened) << door.name;
        EXPECT_EQ(error, EMFILE);
        EXPECT_EQ(StreamOf(file), nullptr);
    }
}

TEST(FileAccessTest, ANullPathReturnsFalseAndLeavesTheStreamAsItWas) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    FileAccess closed;
    FileAccess open;
    ASSERT_TRUE(open.Open(path.c_str(), FileRead));
    FILE* const stream = StreamOf(open);

    EXPECT_FALSE(closed.Open(nullptr, FileRead));
    EXPECT_FALSE(closed.OpenWide(nullptr, FileRead));
    EXPECT_FALSE(open.Open(nullptr, FileRead));
    EXPECT_FALSE(open.OpenWide(nullptr, FileRead));

    EXPECT_EQ(StreamOf(closed), nullptr);
    EXPECT_EQ(StreamOf(open), stream);
    EXPECT_EQ(ReadAll(open), "abc");
}

TEST(FileAccessTest, OpenUtf8WithANullPathThrowsLogicErrorWhateverTheFlags) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));
    FILE* const stream = StreamOf(file);

    for (const int flags : {0x00, 0x01, 0x03, 0x64}) {
        try {
            static_cast<void>(file.OpenUtf8(nullptr, static_cast<uint8_t>(flags)));
            ADD_FAILURE() << flags;
        } catch (const std::logic_error& error) {
            EXPECT_STREQ(error.what(), "FileAccess::OpenUtf8: the path is null") << flags;
        }
    }

    EXPECT_EQ(StreamOf(file), stream);
}

TEST(FileAccessTest, AFailedOpenOfAnOpenObjectLeavesNoStreamAndDoesNotCloseTheFirst) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");

    for (const Door& door : Doors()) {
        FileAccess file;
        const ptrdiff_t before = OpenDescriptors();
        ASSERT_TRUE(door.open(file, path, FileRead));
        FILE* const first = StreamOf(file);

        EXPECT_FALSE(door.open(file, dir / "missing", FileRead)) << door.name;

        EXPECT_EQ(StreamOf(file), nullptr);
        EXPECT_EQ(OpenDescriptors(), before + 1);
        EXPECT_EQ(std::fgetc(first), 'a');
        EXPECT_EQ(std::fclose(first), 0);
    }
}

TEST(FileAccessTest, ASecondOpenReplacesTheStreamWithoutClosingTheFirst) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    const std::string other = dir.write("other", "xyz");

    for (const Door& door : Doors()) {
        const ptrdiff_t before = OpenDescriptors();
        FileAccess file;
        ASSERT_TRUE(door.open(file, path, FileRead));
        FILE* const first = StreamOf(file);

        EXPECT_TRUE(door.open(file, other, FileRead)) << door.name;

        EXPECT_NE(StreamOf(file), first);
        EXPECT_EQ(OpenDescriptors(), before + 2);
        EXPECT_EQ(ReadAll(file), "xyz");
        EXPECT_TRUE(file.Close());
        EXPECT_EQ(OpenDescriptors(), before + 1) << "only the second is closed";
        EXPECT_EQ(std::fgetc(first), 'a');
        EXPECT_EQ(std::fclose(first), 0);
    }
}

TEST(FileAccessTest, AWidePathOf1023BytesOpensAndALongerOneIsRefused) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", "abc"));

    for (const Door& door : WideDoors()) {
        SCOPED_TRACE(door.name);
        FileAccess file;
        ASSERT_TRUE(door.open(file, PathOfLength(1023, dir.path(), "file"), FileRead));
        FILE* const stream = StreamOf(file);

        for (const size_t length : {1024U, 1025U, 5000U}) {
            EXPECT_FALSE(door.open(file, PathOfLength(length, dir.path(), "file"), FileRead)) << length;
            EXPECT_EQ(StreamOf(file), stream);
        }

        EXPECT_EQ(ReadAll(file), "abc");
    }
}

TEST(FileAccessTest, ANarrowPathMayBeLongerThanAWideOne) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", "abc"));
    FileAccess file;

    EXPECT_TRUE(file.Open(PathOfLength(1024, dir.path(), "file").c_str(), FileRead));
    EXPECT_EQ(ReadAll(file), "abc");
}

// The first 1023 or 1024 characters of the path name a file: a cut path would have opened, and emptied, that one.
TEST(FileAccessTest, AWidePathThatIsTooLongDoesNotTouchTheFileNamedByItsFirstPart) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");

    for (const Door& door : WideDoors()) {
        for (const size_t cut : {1022U, 1023U, 1024U, 1025U}) {
            FileAccess file;

            EXPECT_FALSE(door.open(file, PathOfLength(cut, dir.path(), "file") + "xx", Rewrite)) << cut;

            EXPECT_EQ(ReadWholeFile(path), "abc");
            EXPECT_EQ(NamesIn(dir.path()), std::vector<std::string>{"file"});
        }
    }
}

// wcstombs stops at a character that the C locale lacks and leaves the part before it in the buffer: "report" here,
// the name of a file that must not be read for another, and even less emptied or made.
TEST(FileAccessTest, APathWithACharacterOutsideAsciiOpensNothingAndDoesNotTouchTheFileNamedByThePartBefore) {
    struct Case {
        const char* what;
        std::wstring wide;
        std::string utf8;
    };

    const std::vector<Case> cases = {
        {"e with acute accent", L"report\u00e9", "report\xc3\xa9"},
        {"more behind it", L"report\u00e9.xml", "report\xc3\xa9.xml"},
        {"Chinese", L"report\u4e2d\u6587", "report\xe4\xb8\xad\xe6\x96\x87"},
        {"the first code outside ASCII", L"report\x80", "report\xc2\x80"},
        {"the last code of Latin-1", L"report\u00ff", "report\xc3\xbf"},
        {"beyond sixteen bits", L"report\U0001f600", "report\xf0\x9f\x98\x80"},
        {"the byte-order mark", L"report\ufeff", "report\xef\xbb\xbf"},
        // glibc leaves the tag characters out of a text for the C locale, without an error.
        {"a tag character", L"report\U000e0041", "report\xf3\xa0\x81\x81"},
        {"a tag character in the middle", L"rep\U000e007fort", "rep\xf3\xa0\x81\xbfort"},
        {"a tag character, then one that does not convert", L"report\U000e0000\u00e9",
         "report\xf3\xa0\x80\x80\xc3\xa9"},
    };
    ASSERT_STREQ(std::setlocale(LC_ALL, nullptr), "C");

    for (const Case& row : cases) {
        for (const bool exists : {true, false}) {
            for (const auto& [flags, mode] : AcceptedFlags()) {
                SCOPED_TRACE(std::string(row.what) + (exists ? ", existing, " : ", missing, ") + mode);
                const TemporaryDirectory dir;
                const std::string other = dir.write("other", "xyz");
                if (exists) {
                    static_cast<void>(dir.write("report", "abc"));
                }
                const std::vector<std::string> names = NamesIn(dir.path());
                FileAccess file;
                ASSERT_TRUE(file.Open(other.c_str(), FileRead));
                FILE* const stream = StreamOf(file);

                EXPECT_FALSE(file.OpenWide((Widened(dir / "") + row.wide).c_str(), static_cast<uint8_t>(flags)));
                EXPECT_FALSE(file.OpenUtf8((dir / row.utf8).c_str(), static_cast<uint8_t>(flags)));

                ASSERT_EQ(StreamOf(file), stream);
                EXPECT_EQ(ReadAll(file), "xyz");
                EXPECT_EQ(NamesIn(dir.path()), names);
                if (exists) {
                    EXPECT_EQ(ReadWholeFile(dir / "report"), "abc");
                }
            }
        }
    }
}

TEST(FileAccessTest, AFileWithANameOutsideAsciiOpensByItsBytesOnly) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("\xe4\xb8\xad", "abc");
    FileAccess file;

    EXPECT_FALSE(file.OpenWide((Widened(dir / "") + L"\u4e2d").c_str(), FileRead));
    EXPECT_FALSE(file.OpenUtf8(path.c_str(), FileRead));
    EXPECT_TRUE(file.Open(path.c_str(), FileRead));
    EXPECT_EQ(ReadAll(file), "abc");
}

TEST(FileAccessTest, AWidePathWithANumberThatIsNoCharacterOpensNothing) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("report", "abc");
    FileAccess file;

    for (const int64_t number :
         {int64_t{0xd800}, int64_t{0xdce9}, int64_t{0x110000}, int64_t{0x7fffffff}, int64_t{-1}}) {
        EXPECT_FALSE(file.OpenWide((Widened(path) + static_cast<wchar_t>(number)).c_str(), Rewrite)) << number;
    }

    EXPECT_EQ(ReadWholeFile(path), "abc");
    EXPECT_EQ(NamesIn(dir.path()), std::vector<std::string>{"report"});
}

// It becomes the empty path, which goes to fopen like others: hence no stream afterwards.
TEST(FileAccessTest, APathThatIsNotUtf8OpensNothingAndLeavesNoStream) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("report", "abc");

    for (const char* end : {"\xff", "\xe4\xb8", "\xff/x"}) {
        FileAccess file;
        ASSERT_TRUE(file.Open(path.c_str(), FileRead));
        FILE* const first = StreamOf(file);

        errno = 0;
        EXPECT_FALSE(file.OpenUtf8((path + end).c_str(), Rewrite));
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(StreamOf(file), nullptr);

        EXPECT_EQ(ReadWholeFile(path), "abc");
        EXPECT_EQ(std::fclose(first), 0);
    }
}

TEST(FileAccessTest, AnAllocationFailureInOpenUtf8LeavesTheStreamAsItWas) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("a-name-that-no-string-keeps-inside-itself", "abc");
    size_t failures = 0;

    for (;; ++failures) {
        FileAccess file;
        bool thrown = false;
        {
            const FailingAllocation failing(failures);
            try {
                static_cast<void>(file.OpenUtf8(path.c_str(), FileRead));
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        }
        ASSERT_EQ(StreamOf(file) == nullptr, thrown) << "after " << failures << " allocations";
        if (!thrown) {
            break;
        }
    }

    EXPECT_GT(failures, 0U);
}

TEST(FileAccessTest, AClosedObjectReadsWritesAndMeasuresNothing) {
    const TemporaryDirectory dir;
    std::array<char, 4> buffer{};
    FileAccess never;
    FileAccess closed;
    ASSERT_TRUE(closed.Open(dir.write("file", "abc").c_str(), FileUpdate));
    ASSERT_EQ(closed.GetSize(), 3);
    ASSERT_TRUE(closed.Close());

    for (FileAccess* file : {&never, &closed}) {
        EXPECT_EQ(file->Read(buffer.data(), 1), -1);
        EXPECT_EQ(file->Write(buffer.data(), 1), -1);
        EXPECT_EQ(file->GetSize(), -1);
    }
}

TEST(FileAccessTest, ANullBufferGivesMinusOneEvenWhenTheStreamIsOpen) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileUpdate));

    EXPECT_EQ(file.Read(nullptr, 1), -1);
    EXPECT_EQ(file.Read(nullptr, 0), -1);
    EXPECT_EQ(file.Write(nullptr, 1), -1);
    EXPECT_EQ(file.Write(nullptr, 0), -1);

    EXPECT_EQ(ReadAll(file), "abc") << "the stream is not in error";
}

TEST(FileAccessTest, ANullBufferGivesMinusOneAtTheEndToo) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));
    ASSERT_EQ(ReadAll(file), "abc");

    EXPECT_EQ(file.Read(nullptr, 1), -1);
}

TEST(FileAccessTest, ReadReturnsWhatThereIsAndZeroOnceTheEndWasReached) {
    const TemporaryDirectory dir;
    std::array<char, 8> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abcde").c_str(), FileRead));

    EXPECT_EQ(file.Read(buffer.data(), 2), 2);
    EXPECT_EQ(std::string(buffer.data(), 2), "ab");
    EXPECT_EQ(file.Read(buffer.data(), 8), 3);
    EXPECT_EQ(std::string(buffer.data(), 3), "cde");
    EXPECT_EQ(file.Read(buffer.data(), 8), 0);
    EXPECT_EQ(file.Read(buffer.data(), 8), 0);
}

TEST(FileAccessTest, ReadUpToTheLastByteHasNotReachedTheEndYet) {
    const TemporaryDirectory dir;
    std::array<char, 8> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));

    EXPECT_EQ(file.Read(buffer.data(), 3), 3);
    EXPECT_EQ(file.Read(buffer.data(), 3), 0);
}

TEST(FileAccessTest, AnEmptyFileReadsAsZeroBytes) {
    const TemporaryDirectory dir;
    std::array<char, 8> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "").c_str(), FileRead));

    EXPECT_EQ(file.Read(buffer.data(), 8), 0);
}

TEST(FileAccessTest, ACountOfZeroMovesNothing) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    std::array<char, 4> buffer = {'#', '#', '#', '#'};
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileUpdate));

    EXPECT_EQ(file.Read(buffer.data(), 0), 0);
    EXPECT_EQ(file.Write(buffer.data(), 0), 0);
    EXPECT_TRUE(file.Close());

    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

TEST(FileAccessTest, AReadAtTheEndDoesNotSeeWhatIsAppendedLater) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileRead));
    ASSERT_EQ(ReadAll(file), "abc");
    FileAccess appender;
    ASSERT_TRUE(appender.Open(path.c_str(), FileWrite));
    ASSERT_EQ(appender.Write("def", 3), 3);
    ASSERT_TRUE(appender.Close());

    EXPECT_EQ(ReadAll(file), "");
    EXPECT_EQ(file.GetSize(), 6);
}

// The kernel refuses to read a directory, which stdio opens without complaint.
TEST(FileAccessTest, AReadErrorStaysForEveryLaterReadAndWrite) {
    const TemporaryDirectory dir;
    std::array<char, 4> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.path().c_str(), FileRead));

    errno = 0;
    EXPECT_EQ(file.Read(buffer.data(), 4), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(file.Read(buffer.data(), 4), -1);
    EXPECT_EQ(file.Read(buffer.data(), 0), -1) << "even without anything to read";
    EXPECT_EQ(file.Write("x", 1), -1);
    EXPECT_EQ(file.Write("x", 0), -1);
}

TEST(FileAccessTest, AWriteToAReadOnlyStreamFailsAndSpoilsItForReadingToo) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    std::array<char, 4> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileRead));

    errno = 0;
    EXPECT_EQ(file.Write("x", 1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(file.Read(buffer.data(), 1), -1);
    EXPECT_TRUE(file.Close()) << "nothing was buffered";
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

TEST(FileAccessTest, AReadOfAWriteOnlyStreamFailsAndSpoilsItForWritingToo) {
    const TemporaryDirectory dir;
    std::array<char, 4> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open((dir / "file").c_str(), FileWrite));

    EXPECT_EQ(file.Read(buffer.data(), 1), -1);
    EXPECT_EQ(file.Write("x", 1), -1);
}

// The end is asked for before anything else of the stream.
TEST(FileAccessTest, AStreamAtItsEndReadsAsZeroEvenInErrorWhileWritesFail) {
    const TemporaryDirectory dir;
    std::array<char, 4> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));
    ASSERT_EQ(ReadAll(file), "abc");
    ASSERT_EQ(file.Write("x", 1), -1);

    EXPECT_EQ(file.Read(buffer.data(), 4), 0);
    EXPECT_EQ(file.Write("x", 1), -1);
}

TEST(FileAccessTest, ANewOpenHasNoErrorLeftFromTheOneBefore) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileRead));
    ASSERT_EQ(file.Write("x", 1), -1);
    ASSERT_TRUE(file.Close());

    ASSERT_TRUE(file.Open(path.c_str(), FileRead));
    EXPECT_EQ(ReadAll(file), "abc");
}

TEST(FileAccessTest, AFullDiskShowsAtTheCloseOfWhatWasOnlyBuffered) {
    FileAccess file;
    ASSERT_TRUE(file.Open("/dev/full", FileWrite | FileTruncate));

    EXPECT_EQ(file.Write("abc", 3), 3);
    errno = 0;
    EXPECT_FALSE(file.Close());

    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(StreamOf(file), nullptr);
    EXPECT_TRUE(file.Close());
}

TEST(FileAccessTest, AFullDiskShowsAtAWriteThatExceedsTheBufferAndAtEveryLaterCall) {
    const std::string large(1 << 20, 'x');
    FileAccess file;
    ASSERT_TRUE(file.Open("/dev/full", FileUpdate));

    errno = 0;
    EXPECT_EQ(file.Write(large.data(), static_cast<uint32_t>(large.size())), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(file.Write("x", 1), -1);
    EXPECT_EQ(file.Write("x", 0), -1);
}

// The transfer works; only its count does not fit into the result.
#if SIZE_MAX > UINT32_MAX // elsewhere nothing is that large
TEST(FileAccessTest, ATransferOfTwoGibibytesComesBackNegative) {
    constexpr uint32_t Count = 0x80000005;
    void* const memory =
        mmap(nullptr, Count, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    RepeatPages(memory, Count);
    FileAccess zeroes;
    ASSERT_TRUE(zeroes.Open("/dev/zero", FileRead));
    FileAccess nowhere;
    ASSERT_TRUE(nowhere.Open("/dev/null", FileWrite));

    EXPECT_EQ(zeroes.Read(memory, Count), INT32_MIN + 5);
    EXPECT_EQ(nowhere.Write(memory, Count), INT32_MIN + 5);
    EXPECT_TRUE(nowhere.Close());
    EXPECT_EQ(munmap(memory, Count), 0);
}
#endif

TEST(FileAccessTest, CloseOfANeverOpenedObjectIsTrueAsOftenAsItIsCalled) {
    FileAccess file;

    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(file.Close());
}

TEST(FileAccessTest, CloseTwiceClosesOnce) {
    const TemporaryDirectory dir;
    const ptrdiff_t before = OpenDescriptors();
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));
    ASSERT_EQ(OpenDescriptors(), before + 1);

    EXPECT_TRUE(file.Close());
    EXPECT_EQ(StreamOf(file), nullptr);
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_TRUE(file.Close());
}

TEST(FileAccessTest, CloseBringsWhatWasBufferedToTheFile) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open((dir / "file").c_str(), Rewrite));
    ASSERT_EQ(file.Write("abc", 3), 3);
    ASSERT_EQ(ReadWholeFile(dir / "file"), "");

    EXPECT_TRUE(file.Close());

    EXPECT_EQ(ReadWholeFile(dir / "file"), "abc");
}

TEST(FileAccessTest, AClosedObjectCanBeOpenedAgain) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    FileAccess file;

    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(file.Open(path.c_str(), FileRead));
        EXPECT_EQ(ReadAll(file), "abc");
        EXPECT_TRUE(file.Close());
    }
}

TEST(FileAccessTest, TheDestructorClosesTheStream) {
    const TemporaryDirectory dir;
    const ptrdiff_t before = OpenDescriptors();
    {
        FileAccess file;
        ASSERT_TRUE(file.Open((dir / "file").c_str(), Rewrite));
        ASSERT_EQ(file.Write("abc", 3), 3);
        ASSERT_EQ(OpenDescriptors(), before + 1);
    }

    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(ReadWholeFile(dir / "file"), "abc");
}

TEST(FileAccessTest, TheDestructorOfAnObjectWhoseCloseFailsIsQuiet) {
    const ptrdiff_t before = OpenDescriptors();
    bool buffered = false;
    int error = 0;

    const std::string printed = PrintedBy([&] {
        std::optional<FileAccess> file(std::in_place);
        buffered = file->Open("/dev/full", FileWrite) && file->Write("abc", 3) == 3;
        errno = 0;
        file.reset();
        error = errno;
    });

    EXPECT_TRUE(buffered);
    EXPECT_EQ(error, ENOSPC) << "the close has failed";
    EXPECT_EQ(printed, "");
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(FileAccessTest, WhateverFailsNothingIsPrintedAndNothingLogged) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "abc");
    const std::string missing = dir / "missing";
    const std::string longPath = PathOfLength(1024, dir.path(), "file");
    std::array<char, 4> buffer{};

    struct Failure {
        const char* what;
        std::function<bool(FileAccess&)> failed;
    };

    const std::vector<Failure> failures = {
        {"flags, Open", [&](FileAccess& file) { return !file.Open(path.c_str(), 0x03); }},
        {"flags, OpenWide", [&](FileAccess& file) { return !file.OpenWide(Widened(path).c_str(), 0x03); }},
        {"flags, OpenUtf8", [&](FileAccess& file) { return !file.OpenUtf8(path.c_str(), 0x03); }},
        {"missing, Open", [&](FileAccess& file) { return !file.Open(missing.c_str(), FileRead); }},
        {"missing, OpenWide", [&](FileAccess& file) { return !file.OpenWide(Widened(missing).c_str(), FileRead); }},
        {"missing, OpenUtf8", [&](FileAccess& file) { return !file.OpenUtf8(missing.c_str(), FileRead); }},
        {"null, Open", [](FileAccess& file) { return !file.Open(nullptr, FileRead); }},
        {"null, OpenWide", [](FileAccess& file) { return !file.OpenWide(nullptr, FileRead); }},
        {"null, OpenUtf8",
         [](FileAccess& file) {
             try {
                 static_cast<void>(file.OpenUtf8(nullptr, FileRead));
                 return false;
             } catch (const std::logic_error&) {
                 return true;
             }
         }},
        {"too long", [&](FileAccess& file) { return !file.OpenWide(Widened(longPath).c_str(), FileRead); }},
        {"outside ASCII", [&](FileAccess& file) { return !file.OpenUtf8((path + "\xc3\xa9").c_str(), FileRead); }},
        {"not UTF-8", [&](FileAccess& file) { return !file.OpenUtf8((path + "\xff").c_str(), FileRead); }},
        {"read while closed", [&](FileAccess& file) { return file.Read(buffer.data(), 1) == -1; }},
        {"write while closed", [&](FileAccess& file) { return file.Write(buffer.data(), 1) == -1; }},
        {"size while closed", [](FileAccess& file) { return file.GetSize() == -1; }},
        {"null buffer",
         [&](FileAccess& file) {
             return file.Open(path.c_str(), FileUpdate) && file.Read(nullptr, 1) == -1 && file.Write(nullptr, 1) == -1;
         }},
        {"read of a directory",
         [&](FileAccess& file) {
             return file.Open(dir.path().c_str(), FileRead) && file.Read(buffer.data(), 1) == -1;
         }},
        {"write to what is read",
         [&](FileAccess& file) { return file.Open(path.c_str(), FileRead) && file.Write("x", 1) == -1; }},
        {"full at the close",
         [](FileAccess& file) {
             return file.Open("/dev/full", FileWrite) && file.Write("abc", 3) == 3 && !file.Close();
         }},
        {"descriptor gone",
         [&](FileAccess& file) {
             return file.Open(path.c_str(), FileRead) && close(fileno(StreamOf(file))) == 0 && file.GetSize() == -1 &&
                    !file.Close();
         }},
    };

    for (const Failure& failure : failures) {
        bool failed = false;

        const std::string printed = PrintedBy([&] {
            FileAccess file;
            failed = failure.failed(file);
        });

        EXPECT_TRUE(failed) << failure.what;
        EXPECT_EQ(printed, "") << failure.what;
    }
}

TEST(FileAccessTest, GetSizeOfAnEmptyFileIsZero) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "").c_str(), FileRead));

    EXPECT_EQ(file.GetSize(), 0);
}

TEST(FileAccessTest, GetSizeDoesNotMoveThePosition) {
    const TemporaryDirectory dir;
    std::array<char, 8> buffer{};
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abcde").c_str(), FileRead));
    ASSERT_EQ(file.Read(buffer.data(), 2), 2);

    EXPECT_EQ(file.GetSize(), 5);

    EXPECT_EQ(ReadAll(file), "cde");
    EXPECT_EQ(file.GetSize(), 5);
}

TEST(FileAccessTest, GetSizeCountsWhatTheKernelHasAndNotWhatIsBuffered) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileWrite));
    ASSERT_EQ(file.Write("de", 2), 2);

    EXPECT_EQ(file.GetSize(), 3);
}

TEST(FileAccessTest, GetSizeOfASparseFileBeyondFourGibibytesIsExact) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "");
    constexpr int64_t Size = 0x140000007;
    std::filesystem::resize_file(path, Size);
    FileAccess file;
    ASSERT_TRUE(file.Open(path.c_str(), FileRead));

    EXPECT_EQ(file.GetSize(), Size);
}

TEST(FileAccessTest, GetSizeOfAFileReadOrWrittenAfter2038IsExact) {
    constexpr timespec In2040{2208988800, 0};
    constexpr timespec Now{0, UTIME_NOW};
    const timespec cases[][2] = {{In2040, Now}, {Now, In2040}};
    for (const auto& dates : cases) {
        const TemporaryDirectory dir;
        const std::string path = dir.write("file", "abc");
        FileAccess file;
        ASSERT_TRUE(file.Open(path.c_str(), FileRead));
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), dates, 0), 0);

        EXPECT_EQ(file.GetSize(), 3);
    }
}

TEST(FileAccessTest, GetSizeOfWhatHasNoSizeIsZero) {
    const TemporaryDirectory dir;
    const std::string fifo = dir / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    for (const std::string& path : {fifo, std::string("/dev/null"), std::string("/dev/full")}) {
        FileAccess file;
        ASSERT_TRUE(file.Open(path.c_str(), FileUpdate)) << path; // both ends of the FIFO: it does not wait
        EXPECT_EQ(file.GetSize(), 0) << path;
    }
}

TEST(FileAccessTest, GetSizeIsMinusOneAndCloseIsFalseWhenTheDescriptorIsGone) {
    const TemporaryDirectory dir;
    FileAccess file;
    ASSERT_TRUE(file.Open(dir.write("file", "abc").c_str(), FileRead));
    ASSERT_EQ(close(fileno(StreamOf(file))), 0);

    errno = 0;
    EXPECT_EQ(file.GetSize(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(StreamOf(file), nullptr);
}
