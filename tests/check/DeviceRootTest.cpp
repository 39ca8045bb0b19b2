#include "check/DeviceRoot.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/OpenInRoot.h"
#include "tests/support/Repeated.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Kind = DeviceEntry::Kind;

/// A root inside a directory that the device must not see.
class DeviceRootTest : public testing::Test {
protected:
    DeviceRootTest()
        : outside(directory.write("outside", "secret")),
          root((fs::create_directory(directory / "root"), directory / "root")) {
        static_cast<void>(directory.write("root/etc/file", "content"));
    }

    void link(const std::string& path, const std::string& target) const {
        fs::create_symlink(target, directory / ("root" + path));
    }

    TemporaryDirectory directory;
    std::string outside;
    DeviceRoot root;
};

std::vector<std::string> NamesOf(const std::vector<DeviceName>& list) {
    std::vector<std::string> names;
    for (const DeviceName& each : list) {
        names.push_back(each.name + (each.isDirectory ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST_F(DeviceRootTest, AFileIsDescribedAndReadUpToALimit) {
    const DeviceEntry entry = root.look("/etc//./file");

    EXPECT_EQ(entry.kind, Kind::File);
    EXPECT_EQ(entry.path, "/etc/file");
    EXPECT_EQ(entry.size, 7U);
    EXPECT_FALSE(entry.isLink);
    std::string text;
    EXPECT_TRUE(root.read("/etc/file", 100, text));
    EXPECT_EQ(text, "content");
    EXPECT_TRUE(root.read("/etc/file", 3, text));
    EXPECT_EQ(text, "con");
    EXPECT_EQ(root.onHost("/etc/file"), directory / "root/etc/file");
}

TEST_F(DeviceRootTest, AbsoluteLinksAndDotsStayInsideTheRoot) {
    const std::string deep = outside;
    link("/absolute", "/etc/file");
    link("/up", "../../../../etc/file");
    link("/etc/relative", "../absolute");
    link("/out", deep);
    link("/dir", "/etc");

    for (const char* path : {"/absolute", "/up", "/etc/relative", "/dir/file", "/dir/../etc/file", "/../../etc/file"}) {
        EXPECT_EQ(root.look(path).kind, Kind::File) << path;
        EXPECT_EQ(root.look(path).path, "/etc/file") << path;
    }
    EXPECT_TRUE(root.look("/absolute").isLink);
    EXPECT_FALSE(root.look("/dir/file").isLink);
    EXPECT_EQ(root.look("/out").kind, Kind::DanglingLink);
    std::string text = "before";
    EXPECT_FALSE(root.read("/out", 100, text));
    EXPECT_FALSE(root.read("/../outside", 100, text));
    EXPECT_EQ(text, "before");
}

// Small trees full of links, each path against what the kernel makes of it. Reproducible: the generator is the standard's.
TEST_F(DeviceRootTest, EveryPathLeadsWhereTheKernelSaysInsideARoot) {
    if (OpenedInRoot(root.onHost(""), "/etc").error == ENOSYS) {
        GTEST_SKIP() << "the kernel has no openat2";
    }
    std::mt19937 random(1);
    const auto path = [&random](const char* start) {
        const std::vector<std::string> names = {"a", "b", "c", "..", ".", "/", "/", "d"};
        std::string text = random() % 2 == 0 ? start : "";
        for (size_t left = 1 + random() % 5; left > 0; --left) {
            text += names[random() % names.size()] + (random() % 8 == 0 ? "" : "/");
        }
        return random() % 2 == 0 ? text : text.substr(0, text.find_last_not_of('/') + 1) + "c";
    };
    for (int tree = 0; tree < 100; ++tree) {
        const std::string base = directory / ("root/" + std::to_string(tree));
        fs::create_directories(base + "/a/b/c");
        std::error_code ignored;
        for (const char* place : {"/b", "/c", "/a/a", "/a/c", "/a/b/a", "/a/b/b", "/a/b/c/a", "/a/b/c/b"}) {
            switch (random() % 4) {
            case 0:
                static_cast<void>(directory.write("root/" + std::to_string(tree) + place, ""));
                break;
            case 1:
                break;
            default:
                fs::create_symlink(path("/"), base + place, ignored);
                break;
            }
        }
        const DeviceRoot small(base);
        for (int i = 0; i < 100; ++i) {
            const std::string asked = "/" + path("");
            const OpenedInRoot kernel(base, asked);
            const DeviceEntry entry = small.look(asked);

            const bool isThere = entry.kind == Kind::File || entry.kind == Kind::Directory;
            EXPECT_EQ(isThere, kernel.error == 0) << base << " " << asked << " " << kernel.error;
            EXPECT_EQ(entry.kind == Kind::LinkLoop, kernel.error == ELOOP) << base << " " << asked;
            EXPECT_EQ(entry.inode, kernel.status.st_ino) << base << " " << asked;
        }
    }
}

TEST_F(DeviceRootTest, WhatIsNotThereIsToldApart) {
    link("/dangling", "nowhere");
    link("/through", "etc/file/more");
    link("/loop", "loop");
    link("/to-directory", "/etc");
    ASSERT_EQ(mkfifo((directory / "root/fifo").c_str(), 0644), 0);

    EXPECT_EQ(root.look("/nowhere").kind, Kind::Missing);
    EXPECT_EQ(root.look("/etc/file/more").kind, Kind::Missing);
    EXPECT_EQ(root.look("/etc/file/").kind, Kind::Missing);
    EXPECT_EQ(root.look("/" + std::string(300, 'x')).kind, Kind::Missing);
    EXPECT_EQ(root.look("/dangling").kind, Kind::DanglingLink);
    EXPECT_EQ(root.look("/through").kind, Kind::DanglingLink);
    EXPECT_EQ(root.look("/dangling/more").kind, Kind::Missing);
    EXPECT_EQ(root.look("/loop").kind, Kind::LinkLoop);
    EXPECT_EQ(root.look("/to-directory").kind, Kind::Directory);
    EXPECT_EQ(root.look("/").kind, Kind::Directory);
    EXPECT_EQ(root.look("/").path, "/");
    EXPECT_EQ(root.look("/fifo").kind, Kind::Fifo);
    std::string text;
    EXPECT_FALSE(root.read("/fifo", 1, text));
    EXPECT_FALSE(root.read("/etc", 1, text));
}

TEST_F(DeviceRootTest, AsManyLinksAreFollowedAsTheKernelDoesAndNotMore) {
    link("/l0", "etc/file");
    for (int i = 1; i < 50; ++i) {
        link("/l" + std::to_string(i), "l" + std::to_string(i - 1));
    }

    EXPECT_EQ(root.look("/l" + std::to_string(DeviceRoot::MaxLinks - 1)).kind, Kind::File);
    EXPECT_EQ(root.look("/l" + std::to_string(DeviceRoot::MaxLinks)).kind, Kind::LinkLoop);
}

TEST_F(DeviceRootTest, AWayThatIsMadeLongOnPurposeIsGivenUp) {
    EXPECT_EQ(root.look(Repeated("/etc/..", 300) + "/etc/file").kind, Kind::File);
    EXPECT_EQ(root.look(Repeated("/etc/..", 600) + "/etc/file").kind, Kind::LinkLoop);
}

TEST_F(DeviceRootTest, ALinkBehindALinkedDirectoryIsALinkOfItsOwn) {
    link("/dir", "/etc");
    link("/etc/dangling", "nowhere");
    link("/etc/good", "file");

    EXPECT_EQ(root.look("/dir/dangling").kind, Kind::DanglingLink);
    EXPECT_TRUE(root.look("/dir/good").isLink);
    EXPECT_EQ(root.look("/dangling/..").kind, Kind::Missing);
    EXPECT_EQ(root.look("/dir/dangling/more").kind, Kind::Missing);
    EXPECT_EQ(root.look(Repeated("/..", 1100)).kind, Kind::LinkLoop);
}

// Descriptors run out at one more place each time: nothing is taken for what it is not, and all works in the end.
TEST_F(DeviceRootTest, WithoutAFreeDescriptorEverythingIsUnreachable) {
    link("/link", "/etc/file");
    static_cast<void>(directory.write("root/top", "content"));
    const ChildResult child = RunInChild([this] {
        rlimit before = {};
        static_cast<void>(getrlimit(RLIMIT_NOFILE, &before));
        int wrong = 0;
        for (rlim_t more = 0; more < 10; ++more) {
            const int free = dup(STDIN_FILENO);
            static_cast<void>(close(free));
            const rlimit limit = {static_cast<rlim_t>(free) + more, before.rlim_max};
            static_cast<void>(setrlimit(RLIMIT_NOFILE, &limit));
            std::string text;
            std::vector<DeviceName> names;
            const Kind kind = root.look("/link").kind;
            const bool isRead = root.read("/top", 10, text);
            const bool isListed = root.list("/", 2, names);
            const bool isOrdered = root.hasTheDevicesOrder("/etc");
            // The sanitizers look at memory through a pipe of their own.
            static_cast<void>(setrlimit(RLIMIT_NOFILE, &before));
            const bool isAll = kind == Kind::File && isRead && isListed;
            wrong += (kind == Kind::File || kind == Kind::Unreachable) && isRead == (text == "content") &&
                             isListed == (names.size() == 2) && !isOrdered && (more > 0 || kind != Kind::File) &&
                             (more < 9 || isAll)
                         ? 0
                         : 1;
        }
        static_cast<void>(std::printf("%d", wrong));
    });

    EXPECT_EQ(child.output, "0");
}

TEST_F(DeviceRootTest, ADirectoryIsListedWithHiddenNamesUpToALimit) {
    static_cast<void>(directory.write("root/etc/.hidden", ""));
    static_cast<void>(directory.write("root/etc/sub/x", ""));
    link("/etc/link", "/etc");
    std::vector<DeviceName> names;

    EXPECT_TRUE(root.list("/etc", 100, names));
    EXPECT_EQ(NamesOf(names), (std::vector<std::string>{".hidden", "file", "link", "sub/"}));
    names.clear();
    EXPECT_TRUE(root.list("/etc/link", 2, names));
    EXPECT_EQ(names.size(), 2U);
    EXPECT_FALSE(root.list("/etc/file", 100, names));
    EXPECT_FALSE(root.list("/nowhere", 100, names));
    EXPECT_EQ(names.size(), 2U);
}

TEST_F(DeviceRootTest, ThisMachinesOwnRootHasTheDevicesOrderAndATreeOnItsDiskHasNot) {
    EXPECT_TRUE(DeviceRoot("/").hasTheDevicesOrder("/usr"));
    EXPECT_FALSE(root.hasTheDevicesOrder("/etc"));
    EXPECT_FALSE(root.hasTheDevicesOrder("/nowhere"));
}

TEST_F(DeviceRootTest, ARootThatIsNoDirectoryIsNotOpenAndHasNothing) {
    const DeviceRoot none(outside);

    EXPECT_FALSE(none.isOpen());
    EXPECT_TRUE(root.isOpen());
    EXPECT_NE(none.look("/").kind, Kind::Directory);
    EXPECT_NE(none.look("/etc").kind, Kind::Directory);
}

// /proc has files without a size, whose content nobody could foresee, and files whose reading fails.
TEST_F(DeviceRootTest, AFileThatFailsToBeReadIsNotRead) {
    std::string text = "before";
    EXPECT_FALSE(DeviceRoot("/sys").read("/kernel/no/such", 10, text));
    EXPECT_TRUE(DeviceRoot("/proc").read("/version", 10, text));
    EXPECT_EQ(text, "");
}
