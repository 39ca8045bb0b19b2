#include "runtime/BaseSafePointer.h"

#include "runtime/WyRuntimeError.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

static_assert(std::has_virtual_destructor_v<BaseSafePointer>);
static_assert(!std::is_nothrow_destructible_v<BaseSafePointer>, "a release may report by exception");
static_assert(!std::is_default_constructible_v<BaseSafePointer>, "only a base");
static_assert(sizeof(BaseSafePointer) == sizeof(void*), "nothing but the table of virtual operations");

namespace {

struct Reporter : BaseSafePointer {
    using BaseSafePointer::reportMisuse;
};

struct NoticingBase : BaseSafePointer {
    explicit NoticingBase(bool& flag) : destroyed(flag) {}

    ~NoticingBase() noexcept(false) override { destroyed = true; }

    bool& destroyed;
};

} // namespace

TEST(BaseSafePointerTest, DeletingThroughTheBaseDestroysTheWholeObject) {
    bool destroyed = false;
    const BaseSafePointer* pointer = new NoticingBase(destroyed);

    delete pointer;

    EXPECT_TRUE(destroyed);
}

TEST(BaseSafePointerTest, AReportIsOneLineAndTheSameTextIsThrown) {
    struct Case {
        const char* typeName;
        const char* message;
        const char* text;
    };
    const Case cases[] = {
        {"16XmlConfigureItem", "Use NULL pointer ->", "SafePointer Report:16XmlConfigureItem Use NULL pointer ->"},
        {"16XmlConfigureNode", "Assigned NULL <T>pointer",
         "SafePointer Report:16XmlConfigureNode Assigned NULL <T>pointer"},
        {"", "", "SafePointer Report: "},
        {"100%s", "%n%d", "SafePointer Report:100%s %n%d"},
    };

    for (const Case& c : cases) {
        std::string thrown;
        testing::internal::CaptureStdout();
        try {
            Reporter::reportMisuse(c.typeName, c.message);
        } catch (const WyRuntimeError& error) {
            thrown = error.what();
        }

        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(c.text) + "\n");
        EXPECT_EQ(thrown, c.text);
    }
}

TEST(BaseSafePointerTest, AReportIsOnThePipeBeforeAnythingElseHappens) {
    const ChildResult result = RunInChild([] {
        try {
            Reporter::reportMisuse("4Type", "message");
        } catch (const WyRuntimeError&) {
            _exit(3); // as abort does, this leaves what stdio holds back unwritten
        }
    });

    EXPECT_TRUE(result.exitedWith(3));
    EXPECT_EQ(result.output, "SafePointer Report:4Type message\n");
}

TEST(BaseSafePointerTest, AnUncaughtReportEndsTheProcessByAbortAndItsLineReachesThePipe) {
    const ChildResult result = RunInChild([] {
        static_cast<void>(std::puts("printed before"));
        Reporter::reportMisuse("4Type", "message");
    });

    EXPECT_TRUE(result.killedBy(SIGABRT)) << result.status;
    EXPECT_EQ(result.output, "printed before\nSafePointer Report:4Type message\n");
}

TEST(BaseSafePointerTest, AReportIsThrownAlsoWhenItCannotBePrinted) {
    const ChildResult result = RunInChild([] {
        const int full = open("/dev/full", O_WRONLY);
        if (full < 0 || dup2(full, STDOUT_FILENO) < 0) {
            _exit(4);
        }
        try {
            Reporter::reportMisuse("4Type", "message");
        } catch (const WyRuntimeError& error) {
            _exit(std::strcmp(error.what(), "SafePointer Report:4Type message") == 0 ? 3 : 5);
        }
    });

    EXPECT_TRUE(result.exitedWith(3)) << result.status;
}
