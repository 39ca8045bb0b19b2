#include "check/LibrarySearch.h"

#include "tests/check/ElfImage.h"
#include "tests/check/TextForAnyone.h"
#include "tests/support/Repeated.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace {

namespace fs = std::filesystem;

ElfImage Needing(const std::vector<std::string>& libraries, const std::string& runPath = "") {
    ElfImage program;
    program.needed = libraries;
    program.runPath = runPath;
    return program;
}

class LibrarySearchTest : public testing::Test {
protected:
    void add(const std::string& path, const ElfImage& file = ElfImage()) const {
        static_cast<void>(directory.write(path.substr(1), file.bytes()));
    }

    void write(const std::string& path, const std::string& content) const {
        static_cast<void>(directory.write(path.substr(1), content));
    }

    /// @return the missing libraries of /opt/bin/program as "library by path", with blanks between, and what was left out.
    std::string missing(const ElfImage& program) const {
        add("/opt/bin/program", program);
        const DeviceRoot root(directory.path());
        LibrarySearch search(root);
        return missingIn(search);
    }

    static std::string missingIn(LibrarySearch& search, const std::string& path = "/opt/bin/program") {
        const ElfFile* file = search.read(path);
        if (file == nullptr) {
            return "not read";
        }
        const LibrarySearch::Result& result = search.look(path, *file);
        std::string text;
        for (const LibrarySearch::Missing& each : result.missing) {
            text += (text.empty() ? "" : " ") + each.library + " by " + each.neededBy;
        }
        return text + (text.empty() || result.leftOut.empty() ? "" : " ") + result.leftOut;
    }

    TemporaryDirectory directory;
};

const std::string GiveUp = "its libraries are not looked for: so many programs and libraries were looked at before";

} // namespace

TEST_F(LibrarySearchTest, LibrariesAreFoundInTheUsualDirectories) {
    for (const char* path :
         {"/lib/", "/usr/lib/", "/lib64/", "/usr/lib64/", "/lib/arm-linux-gnueabihf/", "/usr/lib/x86_64-linux-gnu/"}) {
        EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program") << path;
        add(std::string(path) + "liba.so");
        EXPECT_EQ(missing(Needing({"liba.so"})), "") << path;
        fs::remove(directory / (std::string(path) + "liba.so"));
    }
}

TEST_F(LibrarySearchTest, RunPathsAreFollowedWithTheOriginInThem) {
    add("/opt/lib/liba.so");

    EXPECT_EQ(missing(Needing({"liba.so"}, "/nowhere:/opt/lib")), "");
    EXPECT_EQ(missing(Needing({"liba.so"}, "$ORIGIN/../lib")), "");
    EXPECT_EQ(missing(Needing({"liba.so"}, "${ORIGIN}/../lib")), "");
    EXPECT_EQ(missing(Needing({"liba.so"}, "$ORIGIN/lib")), "liba.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, AllThatLibMayStandForInARunPathIsTried) {
    for (const char* name : {"lib", "lib64", "lib32", "lib/arm-linux-gnueabihf"}) {
        add("/opt/" + std::string(name) + "/liba.so");
        add("/lib/arm-linux-gnueabihf/other.so");

        EXPECT_EQ(missing(Needing({"liba.so"}, "$ORIGIN/../$LIB")), "") << name;
        EXPECT_EQ(missing(Needing({"liba.so"}, "/opt/${LIB}:/x")), "") << name;
        EXPECT_EQ(missing(Needing({"liba.so"}, "/opt/LIB")), "liba.so by /opt/bin/program");
        fs::remove_all(directory / "/opt");
    }
}

TEST_F(LibrarySearchTest, WhatTheProcessorDecidesIsNotCalledMissing) {
    EXPECT_EQ(
        missing(Needing({"liba.so"}, "/opt/$PLATFORM")),
        "a library was not found, but it may be there: what $PLATFORM in the run path of /opt/bin/program is, the "
        "device's processor decides");
}

TEST_F(LibrarySearchTest, ARunPathThatGrowsBeyondAnyPathEndsThere) {
    std::string origins = "/opt";
    for (int i = 0; i < 500; ++i) {
        origins += "$ORIGIN";
    }
    add("/" + std::string(200, 'd') + "/program", Needing({"liba.so"}, origins));
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    const std::string path = "/" + std::string(200, 'd') + "/program";

    EXPECT_EQ(missingIn(search, path), "liba.so by " + path);
}

TEST_F(LibrarySearchTest, LibrariesForBetterProcessorsCount) {
    add("/lib/glibc-hwcaps/x86-64-v3/liba.so");
    add("/opt/lib/glibc-hwcaps/power9/libb.so");

    EXPECT_EQ(missing(Needing({"liba.so", "libb.so"}, "/opt/lib")), "");
}

TEST_F(LibrarySearchTest, ListsOfTheDynamicLinkerNameDirectories) {
    write("/etc/ld.so.conf",
          "# /commented\n\n/opt/one /opt/two\ninclude ld.so.conf.d/*.conf\ninclude /etc/more/?\ninclude\n");
    write("/etc/ld.so.conf.d/a.conf", "/opt/three # comment\n");
    write("/etc/more/b", "/opt/four\ninclude more/b\n");
    write("/etc/ld.so.conf.d/a.conf.dpkg-old", "/commented\n");
    write("/etc/ld.so.conf.d/.hidden.conf", "/commented\n");
    for (const char* name : {"one", "two", "three", "four"}) {
        add("/opt/" + std::string(name) + "/lib" + name + ".so");
    }
    add("/commented/libfive.so");

    EXPECT_EQ(missing(Needing({"libone.so", "libtwo.so", "libthree.so", "libfour.so", "libfive.so"})),
              "libfive.so by /opt/bin/program");
}

// Each list is read once, whoever includes it.
TEST_F(LibrarySearchTest, ListsThatIncludeOneAnotherEnd) {
    const std::string all = "include /etc/ld.so.conf.d/*.conf\n";
    write("/etc/ld.so.conf", all);
    for (int i = 0; i < 100; ++i) {
        write("/etc/ld.so.conf.d/" + std::to_string(i) + ".conf", all + "/opt/lib\n");
    }
    add("/opt/lib/liba.so");

    EXPECT_EQ(missing(Needing({"liba.so"})), "");
}

TEST_F(LibrarySearchTest, WithoutAllOfTheListsNothingIsCalledMissing) {
    const std::string unknown = "a library was not found, but it may be there: ";
    const auto expectLeftOut = [this, &unknown](const std::string& list, const std::string& why) {
        write("/etc/ld.so.conf", list);
        EXPECT_EQ(missing(Needing({"liba.so"})), unknown + why);
    };
    const std::string noPattern = " is one too many, or no such pattern as is looked at";
    expectLeftOut("include /etc/*/x.conf\n", "\"include /etc/*/x.conf\"" + noPattern);
    expectLeftOut("include /etc/*x*y*z\n", "\"include /etc/*x*y*z\"" + noPattern);
    expectLeftOut(Repeated("include /x/y\n", LibrarySearch::MaxLists + 1), "\"include /x/y\"" + noPattern);
    const std::string noList = " is one list too many, has more than 65536 bytes or cannot be read here";
    expectLeftOut(std::string(LibrarySearch::MaxListSize + 1, '\n'), "/etc/ld.so.conf" + noList);
    for (size_t i = 0; i < LibrarySearch::MaxLists; ++i) {
        write("/etc/l/" + std::to_string(i), "");
    }
    write("/etc/ld.so.conf", "include l/*\n");
    EXPECT_NE(missing(Needing({"liba.so"})).find(noList), std::string::npos);
    fs::remove_all(directory / "/etc/l");

    std::string directories;
    for (size_t i = 0; i <= LibrarySearch::MaxDirectories; ++i) {
        fs::create_directories(directory / ("/opt/" + std::to_string(i)));
        directories += "/opt/" + std::to_string(i) + "\n";
    }
    expectLeftOut(directories, "in the lists of the dynamic linker, more than 200 directories are named");
    fs::remove(directory / "/etc/ld.so.conf");
    std::replace(directories.begin(), directories.end(), '\n', ':');
    EXPECT_EQ(missing(Needing({"liba.so"}, directories)),
              unknown + "in the run path of /opt/bin/program, more than 200 directories are named");
    add("/lib/liba.so");
    EXPECT_EQ(missing(Needing({"liba.so"}, directories)), "");
}

// ld.so(8): DT_RPATH serves the libraries of the file, too, unless they have a DT_RUNPATH; DT_RUNPATH serves only the file.
TEST_F(LibrarySearchTest, RunPathsOfTheOldKindServeTheLibrariesOfTheFileAndOthersDoNot) {
    const auto old = [](ElfImage file) {
        file.hasOldRunPath = true;
        return file;
    };
    add("/opt/lib/liba.so", Needing({"libb.so"}));
    add("/opt/lib/libb.so");
    EXPECT_EQ(missing(Needing({"liba.so"}, "/opt/lib")), "libb.so by /opt/lib/liba.so");
    EXPECT_EQ(missing(old(Needing({"liba.so"}, "/opt/lib"))), "");
    add("/opt/lib/liba.so", Needing({"libb.so"}, "/opt/other"));
    EXPECT_EQ(missing(old(Needing({"liba.so"}, "/opt/lib"))), "libb.so by /opt/lib/liba.so");
    add("/opt/lib/liba.so", old(Needing({"libb.so"}, "/opt/other")));
    EXPECT_EQ(missing(old(Needing({"liba.so"}, "/opt/lib"))), "");
    add("/opt/lib/libb.so", Needing({"libc.so"}));
    EXPECT_EQ(missing(old(Needing({"liba.so"}, "/opt/lib"))), "libc.so by /opt/lib/libb.so");
}

TEST_F(LibrarySearchTest, MuslIsItsOwnCLibraryAndHasItsOwnDirectoriesAndRunPaths) {
    const auto needing = [](const std::vector<std::string>& libraries, const std::string& runPath = "") {
        ElfImage program = Needing(libraries, runPath);
        program.interpreter = "/lib/ld-musl-armhf.so.1";
        return program;
    };
    add("/usr/local/lib/liba.so", Needing({"libc.so", "ld-musl-armhf.so.1"}));
    EXPECT_EQ(missing(needing({"libc.so", "libpthread.so.0", "libc.musl-armhf.so.1", "liba.so"})), "");
    EXPECT_EQ(missing(needing({"libcrypto.so"})), "libcrypto.so by /opt/bin/program");
    EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program");

    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    for (const char* path : {"/opt/bin/one", "/opt/bin/two"}) {
        add(path, needing({"liba.so"}));
        EXPECT_EQ(missingIn(search, path), "");
    }

    write("/etc/ld-musl-armhf.path", "/opt/five:/opt/six\n/opt/seven");
    write("/etc/ld-musl-mips.path", "/usr/local/lib");
    add("/opt/seven/libb.so");
    EXPECT_EQ(missing(needing({"libb.so", "liba.so"})), "liba.so by /opt/bin/program");

    add("/opt/lib/libc1.so", Needing({"libc2.so"}, "/nowhere"));
    add("/opt/lib/libc2.so");
    EXPECT_EQ(missing(needing({"libc1.so"}, "/opt/lib")), "");
}

TEST_F(LibrarySearchTest, AnOriginIsThatOfTheLinkByWhichALibraryWasFound) {
    add("/opt/real/liba.so", Needing({"libb.so"}, "$ORIGIN"));
    fs::create_directories(directory / "/lib");
    fs::create_symlink("/opt/real/liba.so", directory / "/lib/liba.so");
    add("/opt/real/libb.so");
    EXPECT_EQ(missing(Needing({"liba.so"})), "libb.so by /lib/liba.so");
}

TEST_F(LibrarySearchTest, WhatALibraryCallsItselfIsLoadedWithIt) {
    ElfImage library;
    library.soname = "libb.so";
    add("/opt/x/liba.so", library);

    EXPECT_EQ(missing(Needing({"/opt/x/liba.so", "libb.so"})), "");
    EXPECT_EQ(missing(Needing({"libb.so", "/opt/x/liba.so"})), "libb.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, ALibraryThatThisUserMayNotReadIsNotCalledMissing) {
    add("/lib/liba.so");
    add("/opt/lib/libb.so");
    add("/opt/bin/program", Needing({"liba.so", "libc.so"}));
    add("/opt/bin/other", Needing({"libb.so"}, "/opt/lib"));
    fs::permissions(directory / "/lib/liba.so", fs::perms::none);
    fs::permissions(directory / "/opt/lib", fs::perms::owner_read | fs::perms::others_read);
    fs::permissions(directory.path(), fs::perms(0755));
    const std::string text = TextForAnyone([this] {
        const DeviceRoot root(directory.path());
        LibrarySearch search(root);
        return missingIn(search) + "\n" + missingIn(search, "/opt/bin/other");
    });
    fs::permissions(directory / "/opt/lib", fs::perms::owner_all);

    EXPECT_EQ(text, "libc.so by /opt/bin/program /lib/liba.so cannot be read here, so it is not known what that "
                    "needs\na library was not found, but it may be there: /opt/lib/libb.so cannot be looked at "
                    "here");
}

TEST_F(LibrarySearchTest, ALibraryWithASlashIsAPath) {
    add("/opt/x/liba.so");

    EXPECT_EQ(missing(Needing({"/opt/x/liba.so"})), "");
    EXPECT_EQ(missing(Needing({"/opt/y/liba.so"})), "/opt/y/liba.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, LibrariesOfLibrariesAreLookedForOnce) {
    add("/lib/liba.so", Needing({"libb.so", "libc.so", "liba.so"}));
    add("/lib/libb.so", Needing({"libc.so"}));

    EXPECT_EQ(missing(Needing({"liba.so"}, "/opt/lib")), "libc.so by /lib/liba.so");
}

TEST_F(LibrarySearchTest, ALibraryForAnotherMachineDoesNotCount) {
    for (const std::function<void(ElfImage&)>& change :
         {std::function<void(ElfImage&)>([](ElfImage& file) { file.machine = 40; }),
          std::function<void(ElfImage&)>([](ElfImage& file) { file.is64 = false; }),
          std::function<void(ElfImage&)>([](ElfImage& file) { file.isLittle = false; })}) {
        ElfImage library;
        change(library);
        add("/lib/liba.so", library);

        EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program");
    }
    write("/lib/liba.so", "INPUT(libb.so)");
    EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, AListThatThisUserMayNotReadMayNameAnyDirectory) {
    add("/opt/bin/program", Needing({"liba.so"}));
    write("/etc/ld.so.conf", "/opt/lib\n");
    fs::permissions(directory / "/etc/ld.so.conf", fs::perms::none);
    fs::permissions(directory.path(), fs::perms(0755));
    const std::string text = TextForAnyone([this] {
        const DeviceRoot root(directory.path());
        LibrarySearch search(root);
        return missingIn(search);
    });

    EXPECT_NE(text.find("but it may be there: /etc/ld.so.conf is one list too many"), std::string::npos) << text;
}

// A library that was not found may be in what was not looked at.
TEST_F(LibrarySearchTest, DirectoriesWithVeryManyNamesAreSaidToBeLeftOut) {
    const auto fill = [this](const std::string& path, size_t count) {
        fs::create_directories(directory / path);
        for (size_t i = 0; i < count; ++i) {
            write(path + "/" + std::to_string(i), "");
        }
    };
    const std::string unknown = "a library was not found, but it may be there: ";

    fill("/lib/glibc-hwcaps", LibrarySearch::MaxHwcaps);
    EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program");
    write("/lib/glibc-hwcaps/more", "");
    EXPECT_EQ(missing(Needing({"liba.so"})),
              unknown + "in the lists of the dynamic linker, /lib/glibc-hwcaps holds more than 16 names");
    EXPECT_EQ(missing(Needing({"liba.so"}, "/lib")),
              unknown + "in the run path of /opt/bin/program, /lib/glibc-hwcaps holds more than 16 names");

    fs::remove_all(directory / "/lib");
    fill("/usr/lib", LibrarySearch::MaxNames);
    EXPECT_EQ(missing(Needing({"liba.so"})), "liba.so by /opt/bin/program");
    write("/usr/lib/more", "");
    EXPECT_EQ(missing(Needing({"liba.so"})), unknown + "/usr/lib holds more than 10000 names");

    write("/etc/ld.so.conf", "include ld.so.conf.d/*.conf");
    fs::rename(directory / "/usr/lib", directory / "/etc/ld.so.conf.d");
    EXPECT_EQ(missing(Needing({"liba.so"})), unknown + "/etc/ld.so.conf.d holds more than 10000 names");
}

TEST_F(LibrarySearchTest, AVeryLongListOfMuslsIsSaidToBeLeftOut) {
    ElfImage program = Needing({"liba.so"});
    program.interpreter = "/lib/ld-musl-armhf.so.1";

    write("/etc/ld-musl-armhf.path", std::string(LibrarySearch::MaxListSize, '\n'));
    EXPECT_EQ(missing(program), "liba.so by /opt/bin/program");
    write("/etc/ld-musl-armhf.path", std::string(LibrarySearch::MaxListSize + 1, '\n'));
    EXPECT_EQ(missing(program), "a library was not found, but it may be there: /etc/ld-musl-armhf.path has more than "
                                "65536 bytes");
}

TEST_F(LibrarySearchTest, AFileWithMoreThanIsReadOfItMayNeedMore) {
    add("/lib/a");
    add("/lib/many", Needing(std::vector<std::string>(256, "a")));
    EXPECT_EQ(missing(Needing({"many"})), "");
    add("/lib/many", Needing(std::vector<std::string>(257, "a")));
    EXPECT_EQ(missing(Needing({"many"})), "not all of its libraries are known: /lib/many has more than 256 libraries");

    EXPECT_EQ(missing(Needing({"b"}, std::string(4096, 'r'))),
              "a library was not found, but it may be there: /opt/bin/program has more than 4095 bytes in a name or "
              "run path");
}

TEST_F(LibrarySearchTest, MoreLibrariesThanAProgramNeedsAreLeftOut) {
    std::vector<std::string> first;
    for (const char* front : {"a", "b", "c"}) {
        std::vector<std::string> more;
        for (int i = 0; i < 250; ++i) {
            more.push_back(front + std::to_string(i));
            add("/lib/" + more.back());
        }
        add("/lib/" + std::string(front), Needing(more));
        first.emplace_back(front);
    }

    EXPECT_EQ(missing(Needing(first)), "only the first 512 of its libraries are looked for");
}

// Paths that are made long on purpose, and programs that look for much: all together have one limit.
TEST_F(LibrarySearchTest, AllLookingTogetherEndsAtALimit) {
    std::string deep = "/lib";
    for (int i = 0; i < 900; ++i) {
        deep += "/d";
    }
    std::vector<std::string> many;
    for (int i = 0; i < 60; ++i) {
        many.push_back(deep + "/lib" + std::to_string(i) + ".so");
    }
    fs::create_directories(directory / deep);
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    for (int i = 0; i < 4; ++i) {
        const std::string path = "/opt/bin/" + std::to_string(i);
        for (std::string& name : many) {
            name += 'x';
        }
        add(path, Needing(many));
        EXPECT_EQ(missingIn(search, path) == GiveUp, i == 3) << i;
    }

    EXPECT_TRUE(search.isExhausted());
    EXPECT_EQ(missingIn(search, "/opt/bin/3"), GiveUp);
    add("/opt/bin/4");
    EXPECT_EQ(missingIn(search, "/opt/bin/4"), "not read");
}

// One file with links: what was found out of it is kept.
TEST_F(LibrarySearchTest, AProgramUnderManyNamesIsLookedAtOnce) {
    std::vector<std::string> many;
    std::string runPath;
    for (int i = 0; i < 250; ++i) {
        many.push_back("lib" + std::to_string(i) + ".so");
    }
    for (int i = 0; i < 2040; ++i) {
        runPath += "a:";
    }
    add("/opt/bin/program", Needing(many, runPath));
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    const ElfFile& file = *search.read("/opt/bin/program");
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(search.look("/opt/bin/program", file).missing.size(), 250U);
    }

    EXPECT_FALSE(search.isExhausted());
}

TEST_F(LibrarySearchTest, AllReadingTogetherEndsAtALimit) {
    add("/opt/0", Needing(std::vector<std::string>(256, "a"), std::string(4000, 'r')));
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    int count = 0;
    while (count < 1000 && search.read("/opt/" + std::to_string(count)) != nullptr) {
        fs::create_hard_link(directory / "/opt/0", directory / ("/opt/" + std::to_string(++count)));
    }

    EXPECT_GT(count, 200);
    EXPECT_LT(count, 300);
    EXPECT_TRUE(search.isExhausted());
    EXPECT_NE(search.read("/opt/0"), nullptr);
}

TEST_F(LibrarySearchTest, ALargeProgramIsRead) {
    add("/opt/a");
    fs::resize_file(directory / "/opt/a", uintmax_t{1} << 31U);
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);

    ASSERT_NE(search.read("/opt/a"), nullptr);
    EXPECT_EQ(search.read("/opt/a")->state, ElfFile::State::Read);
    EXPECT_EQ(search.read("/opt/nowhere"), nullptr);
    EXPECT_EQ(search.read("/opt"), nullptr);
}
