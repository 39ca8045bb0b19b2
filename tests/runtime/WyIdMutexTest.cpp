#include "runtime/WyIdMutex.h"

#include "runtime/WyMutexIDAlloc.h"
#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

static_assert(!std::is_copy_constructible_v<WyIdMutex> && !std::is_copy_assignable_v<WyIdMutex>);
static_assert(!std::is_move_constructible_v<WyIdMutex> && !std::is_move_assignable_v<WyIdMutex>);
static_assert(sizeof(std::unique_ptr<WyMutex>) == sizeof(WyMutex*), "the mutex is kept as a plain pointer is");

PRIVATE_MEMBER(WyIdMutexMutex, WyIdMutex, std::unique_ptr<WyMutex>, mutex);
PRIVATE_MEMBER(WyIdMutexId, WyIdMutex, uint32_t, id);

namespace {

WyMutex& InnerOf(WyIdMutex& mutex) {
    return *(mutex.*Get(WyIdMutexMutex()));
}

size_t IdsOutOfTheProcess() {
    return IdsOut(*WyMutexIDAlloc::instance());
}

} // namespace

TEST(WyIdMutexTest, TheMutexComesBeforeTheId) {
    const WyIdMutex mutex;

    EXPECT_EQ(OffsetOf(mutex, Get(WyIdMutexMutex())), 0U);
    EXPECT_EQ(OffsetOf(mutex, Get(WyIdMutexId())), sizeof(WyMutex*));
}

TEST(WyIdMutexTest, ItOwnsAnInitialisedMutexThatNobodyHolds) {
    WyIdMutex mutex;

    EXPECT_EQ(MarkOf(InnerOf(mutex)), 0x55aa55aaU);
    EXPECT_FALSE(IsHeld(InnerOf(mutex)));
}

TEST(WyIdMutexTest, LockAndUnlockAreThoseOfItsMutex) {
    WyIdMutex mutex;

    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_TRUE(IsHeld(InnerOf(mutex)));
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_FALSE(IsHeld(InnerOf(mutex)));

    MarkOf(InnerOf(mutex)) = 0;
    EXPECT_EQ(mutex.lock(), -2);
    EXPECT_EQ(mutex.unlock(), -2);
    MarkOf(InnerOf(mutex)) = 0x55aa55aa;
}

TEST(WyIdMutexTest, TheIdsComeFromTheProcessWideAllocatorLowestFirst) {
    const WyIdMutex first;
    auto second = std::make_unique<WyIdMutex>();
    const WyIdMutex third;

    EXPECT_EQ(first.getId(), 0U);
    EXPECT_EQ(second->getId(), 1U);
    EXPECT_EQ(third.getId(), 2U);
    EXPECT_EQ(IdsOutOfTheProcess(), 3U);

    second.reset();
    EXPECT_EQ(IdsOutOfTheProcess(), 2U);
    const WyIdMutex again;
    EXPECT_EQ(again.getId(), 1U);
}

TEST(WyIdMutexTest, DestructionGivesTheIdBackAndDestroysTheMutex) {
    auto mutex = std::make_unique<WyIdMutex>();
    const pthread_mutex_t* inner = &PthreadMutexOf(InnerOf(*mutex));
    std::vector<pthread_mutex_t*> destroyed;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t* which) { destroyed.push_back(which); });

        mutex.reset();
    }

    EXPECT_EQ(std::count(destroyed.begin(), destroyed.end(), inner), 1);
    EXPECT_EQ(IdsOutOfTheProcess(), 0U);
}

TEST(WyIdMutexTest, DestructionWithoutAMutexOnlyGivesTheIdBack) {
    auto mutex = std::make_unique<WyIdMutex>();
    InnerOf(*mutex).destroy();
    ((*mutex).*Get(WyIdMutexMutex())).reset();
    bool destroyed = false;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t*) { destroyed = true; });

        mutex.reset();
    }

    EXPECT_FALSE(destroyed);
    EXPECT_EQ(IdsOutOfTheProcess(), 0U);
}

// The mutex, the allocator, its place in the registry, the bitmap: whichever cannot be had, nothing stays behind.
TEST(WyIdMutexTest, AConstructionOutOfMemoryTakesNoId) {
    size_t failures = 0;
    for (;; ++failures) {
        ASSERT_LT(failures, 20U);
        const FailingAllocation failing(failures);
        try {
            const WyIdMutex mutex;
            EXPECT_FALSE(FailingAllocation::happened());
            EXPECT_EQ(mutex.getId(), 0U);
            break;
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(FailingAllocation::happened());
        }
    }

    EXPECT_GE(failures, 4U);
    EXPECT_EQ(IdsOutOfTheProcess(), 0U);
}
