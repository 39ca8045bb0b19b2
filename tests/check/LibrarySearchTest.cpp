#include "check/LibrarySearch.h"

#include "tests/check/ElfImage.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

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

    /// @return the missing libraries of /opt/bin/program as "library by path", with blanks between.
    std::string missing(const ElfImage& program) const {
        add("/opt/bin/program", program);
        const DeviceRoot root(directory.path());
        LibrarySearch search(root);
        std::string text;
        for (const LibrarySearch::Missing& each :
             search.missing("/opt/bin/program", *search.read("/opt/bin/program"))) {
            text += (text.empty() ? "" : " ") + each.library + " by " + each.neededBy;
        }
        return text;
    }

    TemporaryDirectory directory;
};

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

TEST_F(LibrarySearchTest, ListsOfTheDynamicLinkersNameDirectories) {
    write("/etc/ld.so.conf", "# /commented\n\n/opt/one /opt/two\ninclude ld.so.conf.d/*.conf\ninclude /etc/more/*\n");
    write("/etc/ld.so.conf.d/a.conf", "/opt/three # comment\n");
    write("/etc/more/b", "/opt/four\ninclude more/b\n");
    write("/etc/ld-musl-armhf.path", "/opt/five:/opt/six\n");
    for (const char* name : {"one", "two", "three", "four", "five", "six"}) {
        add("/opt/" + std::string(name) + "/lib" + name + ".so");
    }
    add("/commented/libseven.so");

    EXPECT_EQ(missing(Needing(
                  {"libone.so", "libtwo.so", "libthree.so", "libfour.so", "libfive.so", "libsix.so", "libseven.so"})),
              "libseven.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, ALibraryWithASlashIsAPath) {
    add("/opt/x/liba.so");

    EXPECT_EQ(missing(Needing({"/opt/x/liba.so"})), "");
    EXPECT_EQ(missing(Needing({"/opt/y/liba.so"})), "/opt/y/liba.so by /opt/bin/program");
}

TEST_F(LibrarySearchTest, LibrariesOfLibrariesAreLookedForOnceAndAlsoInTheProgramsRunPath) {
    add("/lib/liba.so", Needing({"libb.so", "libc.so", "liba.so"}));
    add("/opt/lib/libb.so", Needing({"libc.so"}));

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

TEST_F(LibrarySearchTest, WhatIsTooMuchIsGivenUpAndNotCalledMissing) {
    std::vector<std::string> many;
    for (int i = 0; i < 250; ++i) {
        many.push_back("lib" + std::to_string(i) + ".so");
    }
    std::string list;
    for (int i = 0; i < 300; ++i) {
        list += "/opt/" + std::to_string(i) + "\n";
    }
    write("/etc/ld.so.conf", list);
    add("/opt/bin/program", Needing(many));
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);

    EXPECT_TRUE(search.missing("/opt/bin/program", *search.read("/opt/bin/program")).empty());
    EXPECT_TRUE(search.hasGivenUp());
}

TEST_F(LibrarySearchTest, MoreLibrariesThanAProgramNeedsAreGivenUp) {
    std::vector<std::string> first;
    for (const char* front : {"a", "b", "c"}) {
        std::vector<std::string> more;
        for (int i = 0; i < 250; ++i) {
            more.push_back(front + std::to_string(i));
        }
        add("/lib/" + std::string(front), Needing(more));
        first.emplace_back(front);
    }
    add("/opt/bin/program", Needing(first));
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);

    EXPECT_TRUE(search.missing("/opt/bin/program", *search.read("/opt/bin/program")).empty());
    EXPECT_TRUE(search.hasGivenUp());
}

TEST_F(LibrarySearchTest, AllReadingTogetherEndsAtALimit) {
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);
    size_t count = 0;
    for (; count < 100 && !search.hasGivenUp(); ++count) {
        const std::string path = "/opt/" + std::to_string(count);
        write(path, "x");
        fs::resize_file(directory / path, LibrarySearch::MaxFileSize);
        static_cast<void>(search.read(path));
    }

    EXPECT_EQ(count, LibrarySearch::MaxBytes / LibrarySearch::MaxFileSize + 1);
    EXPECT_NE(search.read("/opt/0"), nullptr);
}

TEST_F(LibrarySearchTest, AProgramThatIsTooLargeIsNotRead) {
    add("/opt/a");
    fs::resize_file(directory / "/opt/a", LibrarySearch::MaxFileSize + 1);
    const DeviceRoot root(directory.path());
    LibrarySearch search(root);

    EXPECT_EQ(search.read("/opt/nowhere"), nullptr);
    EXPECT_FALSE(search.hasGivenUp());
    EXPECT_EQ(search.read("/opt/a"), nullptr);
    EXPECT_TRUE(search.hasGivenUp());
}
