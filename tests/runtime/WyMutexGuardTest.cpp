#include "runtime/WyMutexGuard.h"

#include "tests/runtime/RuntimeProbe.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

static_assert(!std::is_copy_constructible_v<WyMutexGuard> && !std::is_copy_assignable_v<WyMutexGuard>);
static_assert(!std::is_convertible_v<WyMutex&, WyMutexGuard>, "a mutex is not guarded by accident");
static_assert(std::is_nothrow_constructible_v<WyMutexGuard, WyMutex&>);

TEST(WyMutexGuardTest, TheMutexIsHeldForTheLengthOfTheScope) {
    WyMutex mutex;

    {
        const WyMutexGuard guard(mutex);
        EXPECT_TRUE(IsHeld(mutex));
    }

    EXPECT_FALSE(IsHeld(mutex));
    mutex.destroy();
}

TEST(WyMutexGuardTest, AnExceptionThatLeavesTheScopeReleasesTheMutex) {
    WyMutex mutex;

    EXPECT_THROW(
        {
            const WyMutexGuard guard(mutex);
            throw std::runtime_error("out");
        },
        std::runtime_error);

    EXPECT_FALSE(IsHeld(mutex));
    mutex.destroy();
}

TEST(WyMutexGuardTest, AMutexWithoutItsMarkIsPassedThroughUnlocked) {
    WyMutex mutex;
    MarkOf(mutex) = 0;

    {
        const WyMutexGuard guard(mutex);
        EXPECT_FALSE(IsHeld(mutex));
    }

    MarkOf(mutex) = WyMutex::InitialisedMark;
    EXPECT_FALSE(IsHeld(mutex));
    mutex.destroy();
}
