#include "runtime/Singlton.h"

#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/runtime/SingltonInternals.h"
#include "tests/support/FailingAllocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace {

/// Counts its objects, and fails to be made as often as it is told to.
class Stubborn : public Singlton<Stubborn> {
public:
    Stubborn() {
        if (failuresLeft > 0) {
            --failuresLeft;
            throw std::runtime_error("not yet");
        }
        ++made;
        ++alive;
    }

    ~Stubborn() override { --alive; }

    static int failuresLeft;
    static int made;
    static int alive;
};

int Stubborn::failuresLeft = 0;
int Stubborn::made = 0;
int Stubborn::alive = 0;

class Other : public Singlton<Other> {};

size_t EntriesFor(const ISinglton* singleton) {
    const auto& entries = FieldsOf(SingletonRegistry::instance()).entries;
    return static_cast<size_t>(std::count(entries.begin(), entries.end(), singleton));
}

} // namespace

static_assert(std::is_base_of_v<ISinglton, Singlton<Other>> && std::has_virtual_destructor_v<Singlton<Other>>);
static_assert(!std::is_copy_constructible_v<Other> && !std::is_copy_assignable_v<Other>);
static_assert(sizeof(Singlton<Other>) == sizeof(ISinglton), "its members are static");
static_assert(std::atomic<Other*>::is_always_lock_free, "the first test takes no lock of any kind");

SINGLTON_INTERNALS(Stubborn);
SINGLTON_INTERNALS(Other);

namespace {

WyMutex& CreationMutex() {
    return CreationMutexOf(SingltonInternals<Stubborn>());
}

Stubborn* InstancePointer() {
    return InstancePointerOf(SingltonInternals<Stubborn>()).load();
}

} // namespace

TEST(SingltonTest, TheCreationMutexIsReadyBeforeTheFirstUseAndTheInstanceIsNot) {
    EXPECT_EQ(MarkOf(CreationMutex()), 0x55aa55aaU);
    EXPECT_FALSE(IsHeld(CreationMutex()));
    EXPECT_EQ(InstancePointer(), nullptr);
    EXPECT_EQ(Stubborn::made, 0);
}

TEST(SingltonTest, TheInstanceIsMadeOnFirstUseAndStaysTheSame) {
    Stubborn* first = Stubborn::instance();

    ASSERT_NE(first, nullptr);
    EXPECT_EQ(Stubborn::instance(), first);
    EXPECT_EQ(InstancePointer(), first);
    EXPECT_EQ(Stubborn::made, 1);
    EXPECT_FALSE(IsHeld(CreationMutex()));
}

TEST(SingltonTest, TheInstanceIsAddedToTheRegistryOnce) {
    Stubborn* stubborn = Stubborn::instance();
    static_cast<void>(Stubborn::instance());

    EXPECT_EQ(EntriesFor(stubborn), 1U);
}

TEST(SingltonTest, EachTypeHasAnInstanceAndACreationMutexOfItsOwn) {
    EXPECT_NE(static_cast<ISinglton*>(Stubborn::instance()), static_cast<ISinglton*>(Other::instance()));
    EXPECT_NE(&CreationMutex(), &CreationMutexOf(SingltonInternals<Other>()));
    EXPECT_EQ(InstancePointerOf(SingltonInternals<Other>()).load(), Other::instance());
}

TEST(SingltonTest, AnInstanceThatExistsIsReturnedWithoutALock) {
    Stubborn* existing = Stubborn::instance();
    int locks = 0;
    Stubborn* again = nullptr;
    {
        const MutexObserver observer([&](pthread_mutex_t*) { ++locks; }, nullptr);

        again = Stubborn::instance();
    }

    EXPECT_EQ(again, existing);
    EXPECT_EQ(locks, 0);
}

TEST(SingltonTest, TheCreationMutexIsTakenBeforeTheRegistrysLock) {
    std::vector<pthread_mutex_t*> locked;
    pthread_mutex_t* registryLock = &PthreadMutexOf(FieldsOf(SingletonRegistry::instance()).lock);
    bool creationMutexHeld = false;
    {
        const MutexObserver observer(
            [&](pthread_mutex_t* which) {
                locked.push_back(which);
                if (which == registryLock) {
                    creationMutexHeld = IsHeld(CreationMutex());
                }
            },
            nullptr);

        static_cast<void>(Stubborn::instance());
    }

    EXPECT_EQ(locked, (std::vector<pthread_mutex_t*>{&PthreadMutexOf(CreationMutex()), registryLock}));
    EXPECT_TRUE(creationMutexHeld);
}

// Somebody else makes the instance between the test without the lock and the lock.
TEST(SingltonTest, WhoeverComesSecondToTheCreationMutexFindsTheInstanceOfTheFirst) {
    Stubborn* ofTheFirst = nullptr;
    Stubborn* ofTheSecond = nullptr;
    bool entered = false;
    {
        const MutexObserver observer(
            [&](pthread_mutex_t* which) {
                if (which == &PthreadMutexOf(CreationMutex()) && !entered) {
                    entered = true;
                    ofTheFirst = Stubborn::instance();
                }
            },
            nullptr);

        ofTheSecond = Stubborn::instance();
    }

    ASSERT_TRUE(entered);
    EXPECT_EQ(ofTheSecond, ofTheFirst);
    EXPECT_EQ(Stubborn::made, 1);
    EXPECT_EQ(EntriesFor(ofTheFirst), 1U);
    EXPECT_FALSE(IsHeld(CreationMutex()));
}

TEST(SingltonTest, ACreationThatThrowsLeavesNoLockHeldAndTheNextCallTriesAgain) {
    Stubborn::failuresLeft = 2;

    for (int i = 0; i < 2; ++i) {
        EXPECT_THROW(static_cast<void>(Stubborn::instance()), std::runtime_error);
        EXPECT_FALSE(IsHeld(CreationMutex()));
        EXPECT_FALSE(IsHeld(FieldsOf(SingletonRegistry::instance()).lock));
        EXPECT_EQ(InstancePointer(), nullptr);
        EXPECT_TRUE(FieldsOf(SingletonRegistry::instance()).entries.empty());
    }
    ASSERT_NE(Stubborn::instance(), nullptr);
    EXPECT_EQ(Stubborn::made, 1);
    EXPECT_EQ(EntriesFor(Stubborn::instance()), 1U);
}

// First there is no memory for the object, then none for its place in the registry: it is deleted again.
TEST(SingltonTest, ACreationOutOfMemoryLeavesNothingBehindAndTheNextCallTriesAgain) {
    size_t failures = 0;
    for (;; ++failures) {
        ASSERT_LT(failures, 10U);
        const FailingAllocation failing(failures);
        try {
            static_cast<void>(Stubborn::instance());
            break;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(InstancePointer(), nullptr);
            EXPECT_EQ(Stubborn::alive, 0);
            EXPECT_FALSE(IsHeld(CreationMutex()));
            EXPECT_FALSE(IsHeld(FieldsOf(SingletonRegistry::instance()).lock));
        }
    }

    EXPECT_EQ(failures, 2U);
    EXPECT_EQ(Stubborn::alive, 1);
    EXPECT_EQ(EntriesFor(Stubborn::instance()), 1U);
}
