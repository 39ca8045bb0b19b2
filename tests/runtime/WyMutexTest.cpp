#include "runtime/WyMutex.h"

#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>
#include <type_traits>

static_assert(!std::is_copy_constructible_v<WyMutex> && !std::is_copy_assignable_v<WyMutex>);
static_assert(std::is_trivially_destructible_v<WyMutex>, "destroy is the owner's duty");
static_assert(std::atomic<uint32_t>::is_always_lock_free, "the mark is 32 bits and nothing else");
static_assert(noexcept(std::declval<WyMutex&>().lock()) && noexcept(std::declval<WyMutex&>().unlock()));
static_assert(noexcept(std::declval<WyMutex&>().init()) && noexcept(std::declval<WyMutex&>().destroy()));

namespace {

constexpr uint32_t Marked = 0x55aa55aa;
constexpr uint32_t WrongMarks[] = {0, 1, 0x55aa55ab, 0xaa55aa55, 0xffffffff};

} // namespace

TEST(WyMutexTest, AConstructedMutexIsInitialised) {
    WyMutex mutex;

    EXPECT_EQ(MarkOf(mutex), Marked);
    mutex.destroy();
}

TEST(WyMutexTest, TheMutexComesBeforeItsMark) {
    WyMutex mutex;

    EXPECT_EQ(PlaceOf(mutex, PthreadMutexOf(mutex)), 0U);
    EXPECT_EQ(PlaceOf(mutex, MarkOf(mutex)), sizeof(pthread_mutex_t));
    mutex.destroy();
}

TEST(WyMutexTest, InitOnAConstructedMutexReturnsMinusOneAndChangesNothing) {
    WyMutex mutex;
    ASSERT_EQ(mutex.lock(), 0);

    EXPECT_EQ(mutex.init(), -1);

    EXPECT_EQ(pthread_mutex_trylock(&PthreadMutexOf(mutex)), EBUSY) << "a second init would have freed it";
    EXPECT_EQ(MarkOf(mutex), Marked);
    EXPECT_EQ(mutex.unlock(), 0);
    mutex.destroy();
}

TEST(WyMutexTest, InitMakesAMutexWithoutItsMarkUsable) {
    for (const uint32_t mark : WrongMarks) {
        WyMutex mutex;
        mutex.destroy();
        MarkOf(mutex) = mark;

        EXPECT_EQ(mutex.init(), 0) << std::hex << mark;

        EXPECT_EQ(MarkOf(mutex), Marked);
        EXPECT_EQ(mutex.lock(), 0);
        EXPECT_TRUE(IsHeld(mutex));
        EXPECT_EQ(mutex.unlock(), 0);
        mutex.destroy();
    }
}

TEST(WyMutexTest, LockHoldsTheMutexUntilUnlock) {
    WyMutex mutex;

    EXPECT_FALSE(IsHeld(mutex));
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_TRUE(IsHeld(mutex));
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_FALSE(IsHeld(mutex));
    mutex.destroy();
}

TEST(WyMutexTest, LockWithoutTheMarkReturnsMinusTwoAndLocksNothing) {
    for (const uint32_t mark : WrongMarks) {
        WyMutex mutex;
        MarkOf(mutex) = mark;

        EXPECT_EQ(mutex.lock(), -2) << std::hex << mark;

        EXPECT_FALSE(IsHeld(mutex));
        MarkOf(mutex) = Marked;
        mutex.destroy();
    }
}

// The mutex is held by this very thread, so a call that tried to lock it would never return: pthread is not even asked.
TEST(WyMutexTest, LockWithAMarkOfZeroReturnsMinusTwoWithoutBlocking) {
    WyMutex mutex;
    ASSERT_EQ(mutex.lock(), 0);
    MarkOf(mutex) = 0;
    bool asked = false;
    {
        const MutexObserver observer(
            [&](pthread_mutex_t* locked) {
                if (locked == &PthreadMutexOf(mutex)) {
                    asked = true;
                    pthread_mutex_unlock(locked); // a failure is to be reported, not to hang
                }
            },
            nullptr);

        EXPECT_EQ(mutex.lock(), -2);
    }

    EXPECT_FALSE(asked);
    MarkOf(mutex) = Marked;
    EXPECT_EQ(mutex.unlock(), 0);
    mutex.destroy();
}

TEST(WyMutexTest, UnlockWithoutTheMarkReturnsMinusTwoAndReleasesNothing) {
    for (const uint32_t mark : WrongMarks) {
        WyMutex mutex;
        ASSERT_EQ(mutex.lock(), 0);
        MarkOf(mutex) = mark;

        EXPECT_EQ(mutex.unlock(), -2) << std::hex << mark;

        EXPECT_TRUE(IsHeld(mutex));
        MarkOf(mutex) = Marked;
        EXPECT_EQ(mutex.unlock(), 0);
        mutex.destroy();
    }
}

TEST(WyMutexTest, LockReturnsMinusTwoWithTheMutexHeldWhenTheMarkChangesDuringTheWait) {
    WyMutex mutex;
    ASSERT_EQ(mutex.lock(), 0);
    std::atomic<bool> waiting{false};
    int32_t result = 0;
    int heldByTheWaiter = 0;
    const MutexObserver observer(
        [&](pthread_mutex_t* locked) {
            if (locked == &PthreadMutexOf(mutex)) {
                waiting = true; // its mark was looked at already
            }
        },
        nullptr);
    std::thread waiter([&] {
        result = mutex.lock();
        heldByTheWaiter = pthread_mutex_trylock(&PthreadMutexOf(mutex));
        pthread_mutex_unlock(&PthreadMutexOf(mutex));
    });
    while (!waiting) {
        std::this_thread::yield();
    }

    MarkOf(mutex) = 0;
    EXPECT_EQ(pthread_mutex_unlock(&PthreadMutexOf(mutex)), 0);
    waiter.join();

    EXPECT_EQ(result, -2);
    EXPECT_EQ(heldByTheWaiter, EBUSY);
    MarkOf(mutex) = Marked;
    mutex.destroy();
}

TEST(WyMutexTest, AfterDestroyTheMarkIsStillSet) {
    WyMutex mutex;
    pthread_mutex_t* destroyed = nullptr;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t* which) { destroyed = which; });

        mutex.destroy();
    }

    EXPECT_EQ(destroyed, &PthreadMutexOf(mutex));
    EXPECT_EQ(MarkOf(mutex), Marked);
    EXPECT_EQ(mutex.init(), -1) << "it still counts as initialised";
}

TEST(WyMutexTest, DestroyWithoutTheMarkDestroysNothing) {
    for (const uint32_t mark : WrongMarks) {
        WyMutex mutex;
        MarkOf(mutex) = mark;
        bool destroyed = false;
        {
            const MutexObserver observer(nullptr, [&](pthread_mutex_t*) { destroyed = true; });

            mutex.destroy();
        }

        EXPECT_FALSE(destroyed) << std::hex << mark;
        EXPECT_EQ(MarkOf(mutex), mark);
        MarkOf(mutex) = Marked;
        mutex.destroy();
    }
}
