#include "launcher/ListDirectory.h"

#include "tests/support/FailingAllocation.h"
#include "tests/support/OpenDescriptors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fnmatch.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Names = std::vector<std::string>;

// What the replaced functions do; by default they only pass on.
struct Replacement {
    std::map<std::string, unsigned char, std::less<>> types; // told instead of an entry's own
    Names names;                                             // yielded instead of the directory's own
    size_t yielded = 0;
    size_t readsUntilFailure = SIZE_MAX;
    Names* opened = nullptr;           // takes the paths given to opendir, if a test asks for them
    std::array<int, 2> fnmatchFlags{}; // of the first calls
    size_t fnmatchCalls = 0;
    bool fnmatchFails = false; // as glibc's does without memory: neither a match nor FNM_NOMATCH
};

Replacement replacement;

template <class Entry>
Entry* Yield() {
    static Entry entry;
    if (replacement.yielded == replacement.names.size()) {
        return nullptr;
    }
    entry = Entry();
    const std::string& name = replacement.names[replacement.yielded++];
    std::memcpy(entry.d_name, name.c_str(), name.size() + 1);
    entry.d_type = DT_REG;
    return &entry;
}

// Allocates nothing, so that a test can count the allocations of the product.
template <class Entry>
Entry* Read(DIR* directory, Entry* (*read)(DIR*)) {
    if (replacement.readsUntilFailure != SIZE_MAX && replacement.readsUntilFailure-- == 0) {
        errno = EIO;
        return nullptr;
    }
    Entry* entry = replacement.names.empty() ? read(directory) : Yield<Entry>();
    if (entry != nullptr) {
        const auto type = replacement.types.find(std::string_view(entry->d_name));
        if (type != replacement.types.end()) {
            entry->d_type = type->second;
        }
    }
    return entry;
}

} // namespace

// The linker sends every call of a wrapped function here.
extern "C" {
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
dirent64* __real_readdir64(DIR* directory);
int __real_fnmatch(const char* pattern, const char* name, int flags);

DIR* __wrap_opendir(const char* path) {
    if (replacement.opened != nullptr) {
        replacement.opened->push_back(path);
    }
    return __real_opendir(path);
}

dirent* __wrap_readdir(DIR* directory) {
    return Read<dirent>(directory, __real_readdir);
}

dirent64* __wrap_readdir64(DIR* directory) {
    return Read<dirent64>(directory, __real_readdir64);
}

int __wrap_fnmatch(const char* pattern, const char* name, int flags) {
    if (replacement.fnmatchCalls < replacement.fnmatchFlags.size()) {
        replacement.fnmatchFlags[replacement.fnmatchCalls] = flags;
    }
    ++replacement.fnmatchCalls;
    return replacement.fnmatchFails ? -1 : __real_fnmatch(pattern, name, flags);
}
}

namespace {

namespace fs = std::filesystem;

Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
}

Names ListSorted(const std::string& directory, const char* pattern) {
    Names names;
    EXPECT_TRUE(ListDirectory(directory, names, pattern));
    return Sorted(names);
}

class ListDirectoryTest : public testing::Test {
protected:
    ListDirectoryTest() { replacement = Replacement(); }
};

} // namespace

TEST_F(ListDirectoryTest, AnEmptyDirectoryYieldsTrueAndNoNames) {
    const TemporaryDirectory dir;
    Names names;

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

    EXPECT_EQ(names, Names());
}

TEST_F(ListDirectoryTest, WhatCannotBeOpenedYieldsFalseLeavesTheNamesAndPrintsNothing) {
    const TemporaryDirectory dir;
    const std::string file = dir.write("file", "");
    fs::create_symlink(dir / "nowhere", dir / "dangling");

    for (const std::string& directory : {dir / "missing", file, file + "/", dir / "dangling", std::string()}) {
        SCOPED_TRACE(directory);
        Names names{"before"};
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();

        const bool listed = ListDirectory(directory, names, "*");

        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_FALSE(listed);
        EXPECT_EQ(names, Names{"before"});
    }
}

// Permission bits would not stop root; a process without a free descriptor stops everybody.
TEST_F(ListDirectoryTest, ADirectoryThatTheKernelRefusesYieldsFalseAndLeavesTheNames) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", ""));
    Names names{"before"};
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);

    const bool listed = ListDirectory(dir.path(), names, "*");

    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_FALSE(listed);
    EXPECT_EQ(names, Names{"before"});
}

TEST_F(ListDirectoryTest, TrueIsReturnedAlsoWhenNothingMatched) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", ""));
    Names names;

    EXPECT_TRUE(ListDirectory(dir.path(), names, "other"));

    EXPECT_EQ(names, Names());
}

TEST_F(ListDirectoryTest, ThePathIsOpenedAsItStands) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("inner/file", ""));
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());

    for (const std::string directory : {"inner", "inner/", "./inner//", "inner/.", "./inner", "inner/../inner"}) {
        SCOPED_TRACE(directory);
        Names opened;
        replacement.opened = &opened;

        EXPECT_EQ(ListSorted(directory, "*"), Names{"file"});

        EXPECT_EQ(opened, Names{directory});
    }
    for (const std::string directory : {"", "missing", "missing/", " inner", "inner ", "inner/file", "~", "\xFF"}) {
        SCOPED_TRACE(directory);
        Names opened;
        Names names;
        replacement.opened = &opened;

        EXPECT_FALSE(ListDirectory(directory, names, "*"));

        EXPECT_EQ(opened, Names{directory});
    }
    replacement.opened = nullptr;
    fs::current_path(before);
}

TEST_F(ListDirectoryTest, NamesWithALeadingPointAreNeverListedWhateverThePattern) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write(".hidden_loadservice", ""));
    static_cast<void>(dir.write("..two", ""));
    static_cast<void>(dir.write("plain.file", ""));

    for (const char* pattern : {".", "..", ".*", "..*", "?*", ".hidden_loadservice", "[.]*"}) {
        SCOPED_TRACE(pattern);
        EXPECT_EQ(ListSorted(dir.path(), pattern), std::strcmp(pattern, "?*") == 0 ? Names{"plain.file"} : Names());
    }
    EXPECT_EQ(ListSorted(dir.path(), "*"), Names{"plain.file"});
}

TEST_F(ListDirectoryTest, ASubdirectoryWhoseNameMatchesIsNotListed) {
    const TemporaryDirectory dir;
    fs::create_directory(dir / "ABC_loadservice");
    static_cast<void>(dir.write("ABC_loadservice_x", ""));

    EXPECT_EQ(ListSorted(dir.path(), "*"), Names{"ABC_loadservice_x"});
    EXPECT_EQ(ListSorted(dir.path(), "ABC_loadservice"), Names());
}

TEST_F(ListDirectoryTest, ASymbolicLinkIsListedWhateverItPointsTo) {
    const TemporaryDirectory dir;
    fs::create_symlink(dir.write("file", ""), dir / "to-file");
    fs::create_directory(dir / "directory");
    fs::create_directory_symlink(dir / "directory", dir / "to-directory");
    fs::create_symlink(dir / "nowhere", dir / "to-nothing");

    EXPECT_EQ(ListSorted(dir.path(), "*"), (Names{"file", "to-directory", "to-file", "to-nothing"}));
}

TEST_F(ListDirectoryTest, EveryOtherTypeOfEntryIsListed) {
    const TemporaryDirectory dir;
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    static_cast<void>(dir.write("some", ""));
    static_cast<void>(dir.write("more", ""));
    replacement.types = {{"some", DT_CHR}, {"more", DT_SOCK}};

    EXPECT_EQ(ListSorted(dir.path(), "*"), (Names{"fifo", "more", "some"}));
}

// No stat is made, so that even a directory stays in when the file system does not tell.
TEST_F(ListDirectoryTest, AnEntryOfUnknownTypeIsKept) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", ""));
    fs::create_directory(dir / "directory");
    fs::create_directory(dir / "known-directory");
    replacement.types = {{"file", DT_UNKNOWN}, {"directory", DT_UNKNOWN}};

    EXPECT_EQ(ListSorted(dir.path(), "*"), (Names{"directory", "file"}));
}

TEST_F(ListDirectoryTest, TheDirectoryItselfAndItsParentAreLeftOutAlsoWhenTheirTypeIsUnknown) {
    const TemporaryDirectory dir;
    replacement.types = {{".", DT_UNKNOWN}, {"..", DT_UNKNOWN}};

    EXPECT_EQ(ListSorted(dir.path(), "*"), Names());
}

TEST_F(ListDirectoryTest, AStarListsEveryRemainingEntry) {
    const TemporaryDirectory dir;
    const Names all{" blank ", "#", "*", "ABC_loadservice_x", "\\", "a.b", "x\ny", "~"};
    for (const std::string& name : all) {
        static_cast<void>(dir.write(name, ""));
    }

    EXPECT_EQ(ListSorted(dir.path(), "*"), all);
}

TEST_F(ListDirectoryTest, APatternMatchesWholeNamesOnly) {
    const TemporaryDirectory dir;
    for (const char* name : {"ABC", "ABCD", "XABC", "abc"}) {
        static_cast<void>(dir.write(name, ""));
    }
    const struct {
        const char* pattern;
        Names expected;
    } cases[] = {
        {"ABC", {"ABC"}},
        {"ABC*", {"ABC", "ABCD"}},
        {"*ABC", {"ABC", "XABC"}},
        {"*BC*", {"ABC", "ABCD", "XABC"}},
        {"?ABC", {"XABC"}},
        {"[aA]?[cC]", {"ABC", "abc"}},
        {"[!a]*", {"ABC", "ABCD", "XABC"}},
        {"B", {}},
        {"\\A\\B\\C", {"ABC"}},
        {"", {}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.pattern);
        EXPECT_EQ(ListSorted(dir.path(), c.pattern), c.expected);
    }
}

TEST_F(ListDirectoryTest, EveryNameIsMatchedWithTheFlagsPathnameAndPeriod) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("one", ""));
    static_cast<void>(dir.write("two", ""));

    EXPECT_EQ(ListSorted(dir.path(), "*").size(), 2U);

    EXPECT_EQ(replacement.fnmatchCalls, 2U);
    EXPECT_EQ(replacement.fnmatchFlags, (std::array<int, 2>{5, 5}));
    EXPECT_EQ(FNM_PATHNAME | FNM_PERIOD, 5);
}

TEST_F(ListDirectoryTest, ANameWhoseMatchCannotBeFoundOutIsLeftOut) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("one", ""));
    replacement.fnmatchFails = true;

    EXPECT_EQ(ListSorted(dir.path(), "*"), Names());

    EXPECT_EQ(replacement.fnmatchCalls, 1U);
}

TEST_F(ListDirectoryTest, NamesComeInTheOrderInWhichTheDirectoryYieldsThemUnsorted) {
    const TemporaryDirectory dir;
    replacement.names = {"b", "..", "c", "a", ".", "B"};
    Names names;

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

    EXPECT_EQ(names, (Names{"b", "c", "a", "B"}));
}

TEST_F(ListDirectoryTest, NamesAreTheBytesThatTheSystemReturns) {
    const TemporaryDirectory dir;
    const std::string utf8 = "\xE7\xBD\x91\xE5\x85\xB3_loadservice"; // as UTF-8
    const std::string gb2312 = "\xCD\xF8\xB9\xD8_loadservice";       // the same characters as GB2312
    replacement.names = {utf8, gb2312, "\xFF"};
    Names names;

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

    EXPECT_EQ(names, (Names{utf8, gb2312, "\xFF"}));
}

TEST_F(ListDirectoryTest, TheNameOfGreatestLengthIsListedWhole) {
    const TemporaryDirectory dir;
    const std::string longest(255, 'n');
    static_cast<void>(dir.write(longest, ""));

    EXPECT_EQ(ListSorted(dir.path(), "*"), Names{longest});
}

TEST_F(ListDirectoryTest, CallingTwiceWithTheSameListAppendsTheNamesTwice) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("one", ""));
    Names names;

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));
    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

    EXPECT_EQ(names, (Names{"one", "one"}));
}

TEST_F(ListDirectoryTest, WhatTheListHeldStaysInFront) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("aaa", ""));
    Names names{"zzz", "aaa"};

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

    EXPECT_EQ(names, (Names{"zzz", "aaa", "aaa"}));
}

TEST_F(ListDirectoryTest, AnErrorOfReaddirEndsTheListingLikeTheEndOfTheDirectory) {
    const TemporaryDirectory dir;
    for (const size_t reads : {size_t{0}, size_t{2}}) {
        SCOPED_TRACE(reads);
        replacement.names = {"a", "b", "c"};
        replacement.yielded = 0;
        replacement.readsUntilFailure = reads;
        Names names{"before"};

        EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));

        EXPECT_EQ(names, reads == 0 ? Names{"before"} : (Names{"before", "a", "b"}));
    }
}

TEST_F(ListDirectoryTest, TheDirectoryIsClosedAtTheEndAndAfterAnErrorOfReaddir) {
    const TemporaryDirectory dir;
    static_cast<void>(dir.write("file", ""));
    Names names;
    const ptrdiff_t before = OpenDescriptors();

    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));
    EXPECT_EQ(OpenDescriptors(), before);

    replacement.readsUntilFailure = 0;
    EXPECT_TRUE(ListDirectory(dir.path(), names, "*"));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(ListDirectoryTest, TheDirectoryIsClosedWhenMemoryRunsOut) {
    const TemporaryDirectory dir;
    for (const char digit : {'1', '2', '3'}) {
        static_cast<void>(dir.write(std::string(100, digit), ""));
    }
    const std::string path = dir.path();
    const ptrdiff_t before = OpenDescriptors();
    size_t failures = 0;
    Names names;

    for (;; ++failures) {
        names = Names();
        try {
            const FailingAllocation failing(failures);
            EXPECT_TRUE(ListDirectory(path, names, "*"));
            break;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(OpenDescriptors(), before);
        }
    }

    EXPECT_GE(failures, 4U) << "three names and a list";
    EXPECT_EQ(names.size(), 3U);
}
