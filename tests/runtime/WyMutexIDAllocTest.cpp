#include "runtime/WyMutexIDAlloc.h"

#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/support/FailingAllocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

static_assert(std::is_base_of_v<Singlton<WyMutexIDAlloc>, WyMutexIDAlloc>);
static_assert(!std::is_copy_constructible_v<WyMutexIDAlloc> && !std::is_copy_assignable_v<WyMutexIDAlloc>);

namespace {

/// Takes so many numbers of a fresh allocator and expects them in order.
void TakeFirst(WyMutexIDAlloc& alloc, uint32_t count) {
    for (uint32_t id = 0; id < count; ++id) {
        ASSERT_EQ(alloc.allocId(), id);
    }
}

} // namespace

TEST(WyMutexIDAllocTest, LockWordCountAndWordsFollowTheBaseInThisOrder) {
    WyMutexIDAlloc alloc;
    const IdAllocFields fields = FieldsOf(alloc);

    EXPECT_EQ(PlaceOf(alloc, fields.lock), sizeof(ISinglton));
    EXPECT_EQ(PlaceOf(alloc, fields.wordCount), sizeof(ISinglton) + sizeof(WyMutex));
    EXPECT_GT(PlaceOf(alloc, fields.words), PlaceOf(alloc, fields.wordCount));
}

TEST(WyMutexIDAllocTest, AFreshAllocatorHasNoBitmap) {
    WyMutexIDAlloc alloc;

    EXPECT_EQ(FieldsOf(alloc).wordCount, 0U);
    EXPECT_EQ(FieldsOf(alloc).words, nullptr);
    EXPECT_EQ(MarkOf(FieldsOf(alloc).lock), 0x55aa55aaU);
}

TEST(WyMutexIDAllocTest, TheFirstThreeIdsAreZeroOneTwoAndAFreedOneComesAgain) {
    WyMutexIDAlloc alloc;

    EXPECT_EQ(alloc.allocId(), 0U);
    EXPECT_EQ(alloc.allocId(), 1U);
    EXPECT_EQ(alloc.allocId(), 2U);
    alloc.freeId(1);
    EXPECT_EQ(alloc.allocId(), 1U);
    EXPECT_EQ(alloc.allocId(), 3U);
}

TEST(WyMutexIDAllocTest, TheFirstGrowthGivesRoomFor320Ids) {
    WyMutexIDAlloc alloc;

    ASSERT_EQ(alloc.allocId(), 0U);
    EXPECT_EQ(FieldsOf(alloc).wordCount, 10U);
    EXPECT_EQ(FieldsOf(alloc).words[0], 1U);
    EXPECT_EQ(IdsOut(alloc), 1U) << "the other words are zero";

    for (uint32_t id = 1; id < 320; ++id) {
        ASSERT_EQ(alloc.allocId(), id);
    }
    EXPECT_EQ(FieldsOf(alloc).wordCount, 10U);
}

TEST(WyMutexIDAllocTest, The321stIdIs320AndTheBitmapThenHas20Words) {
    WyMutexIDAlloc alloc;
    TakeFirst(alloc, 320);

    EXPECT_EQ(alloc.allocId(), 320U);

    const IdAllocFields fields = FieldsOf(alloc);
    EXPECT_EQ(fields.wordCount, 20U);
    EXPECT_TRUE(std::all_of(fields.words.get(), fields.words.get() + 10, [](uint32_t w) { return w == 0xFFFFFFFF; }));
    EXPECT_EQ(fields.words[10], 1U);
    EXPECT_EQ(IdsOut(alloc), 321U);
    EXPECT_EQ(alloc.allocId(), 321U);
}

TEST(WyMutexIDAllocTest, TheLowestFreeIdIsAlwaysTaken) {
    WyMutexIDAlloc alloc;
    TakeFirst(alloc, 321);

    for (const uint32_t id : {319U, 31U, 320U, 32U, 0U, 150U}) {
        alloc.freeId(id);
    }

    for (const uint32_t id : {0U, 31U, 32U, 150U, 319U, 320U, 321U}) {
        EXPECT_EQ(alloc.allocId(), id);
    }
}

TEST(WyMutexIDAllocTest, FreeingClearsExactlyTheBitOfTheId) {
    WyMutexIDAlloc alloc;
    TakeFirst(alloc, 96);

    alloc.freeId(37);

    const IdAllocFields fields = FieldsOf(alloc);
    EXPECT_EQ(fields.words[0], 0xFFFFFFFF);
    EXPECT_EQ(fields.words[1], 0xFFFFFFDF);
    EXPECT_EQ(fields.words[2], 0xFFFFFFFF);
}

TEST(WyMutexIDAllocTest, FreeingAFreeIdChangesNothing) {
    WyMutexIDAlloc alloc;
    TakeFirst(alloc, 2);

    alloc.freeId(5);
    alloc.freeId(5);

    EXPECT_EQ(FieldsOf(alloc).words[0], 3U);
    EXPECT_EQ(alloc.allocId(), 2U);
}

TEST(WyMutexIDAllocTest, NoOperationLeavesTheLockHeld) {
    WyMutexIDAlloc alloc;

    static_cast<void>(alloc.allocId()); // grows
    EXPECT_FALSE(IsHeld(FieldsOf(alloc).lock));
    static_cast<void>(alloc.allocId()); // finds room
    EXPECT_FALSE(IsHeld(FieldsOf(alloc).lock));
    alloc.freeId(0);
    EXPECT_FALSE(IsHeld(FieldsOf(alloc).lock));
}

TEST(WyMutexIDAllocTest, EveryOperationTakesItsOwnLockAndNoOther) {
    WyMutexIDAlloc alloc;
    std::vector<pthread_mutex_t*> locked;
    {
        const MutexObserver observer([&](pthread_mutex_t* which) { locked.push_back(which); }, nullptr);

        static_cast<void>(alloc.allocId());
        static_cast<void>(alloc.allocId());
        alloc.freeId(1);
    }

    EXPECT_EQ(locked, std::vector<pthread_mutex_t*>(3, &PthreadMutexOf(FieldsOf(alloc).lock)));
}

TEST(WyMutexIDAllocTest, AGrowthOutOfMemoryChangesNothingAndTheNextCallTriesAgain) {
    for (const uint32_t taken : {0U, 320U}) {
        WyMutexIDAlloc alloc;
        TakeFirst(alloc, taken);
        const uint32_t wordCount = FieldsOf(alloc).wordCount;
        {
            const FailingAllocation failing(0);
            EXPECT_THROW(static_cast<void>(alloc.allocId()), std::bad_alloc);
        }

        EXPECT_EQ(FieldsOf(alloc).wordCount, wordCount);
        EXPECT_EQ(IdsOut(alloc), taken);
        EXPECT_FALSE(IsHeld(FieldsOf(alloc).lock));
        EXPECT_EQ(alloc.allocId(), taken);
    }
}

TEST(WyMutexIDAllocTest, DestructionDestroysTheLock) {
    auto alloc = std::make_unique<WyMutexIDAlloc>();
    static_cast<void>(alloc->allocId());
    const std::vector<pthread_mutex_t*> lock{&PthreadMutexOf(FieldsOf(*alloc).lock)};
    std::vector<pthread_mutex_t*> destroyed;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t* which) { destroyed.push_back(which); });

        alloc.reset();
    }

    EXPECT_EQ(destroyed, lock);
}

TEST(WyMutexIDAllocTest, TheProcessHasOneAllocatorAndTheRegistryOwnsIt) {
    WyMutexIDAlloc* alloc = WyMutexIDAlloc::instance();

    EXPECT_EQ(WyMutexIDAlloc::instance(), alloc);
    const auto& entries = FieldsOf(SingletonRegistry::instance()).entries;
    EXPECT_EQ(std::count(entries.begin(), entries.end(), alloc), 1);
}
