#include "runtime/ISinglton.h"
#include "runtime/LogSettings.h"
#include "runtime/SafePointer.h"
#include "runtime/SafePointerPool.h"
#include "runtime/SingletonRegistry.h"
#include "runtime/Singlton.h"
#include "runtime/WyIdMutex.h"
#include "runtime/WyMutex.h"
#include "runtime/WyMutexGuard.h"
#include "runtime/WyMutexIDAlloc.h"
#include "runtime/WyRuntimeError.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/runtime/SingltonInternals.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Counts its objects; what it holds is written before it is shared and read by all.
class RuntimeThreadsTestObject {
public:
    explicit RuntimeThreadsTestObject(size_t number) : value(number) { ++alive; }

    ~RuntimeThreadsTestObject() {
        value = 0; // a reader without a share of the object would race with this
        --alive;
        ++deleted;
    }

    RuntimeThreadsTestObject(const RuntimeThreadsTestObject&) = delete;
    RuntimeThreadsTestObject& operator=(const RuntimeThreadsTestObject&) = delete;

    size_t value;

    static std::atomic<int> alive;
    static std::atomic<int> deleted;
};

std::atomic<int> RuntimeThreadsTestObject::alive{0};
std::atomic<int> RuntimeThreadsTestObject::deleted{0};

/// Counts the singletons of a test that are alive.
struct CountedSingleton {
    CountedSingleton() { ++alive; }
    ~CountedSingleton() { --alive; }
    CountedSingleton(const CountedSingleton&) = delete;
    CountedSingleton& operator=(const CountedSingleton&) = delete;

    static std::atomic<size_t> alive;
};

std::atomic<size_t> CountedSingleton::alive{0};

/// A singleton whose first use a test repeats.
template <size_t Number>
class RacedSingleton : public Singlton<RacedSingleton<Number>>, private CountedSingleton {};

SINGLTON_INTERNALS(RacedSingleton<0>);
SINGLTON_INTERNALS(RacedSingleton<1>);
SINGLTON_INTERNALS(RacedSingleton<2>);
SINGLTON_INTERNALS(RacedSingleton<3>);
SINGLTON_INTERNALS(RacedSingleton<4>);
SINGLTON_INTERNALS(RacedSingleton<5>);
SINGLTON_INTERNALS(RacedSingleton<6>);
SINGLTON_INTERNALS(RacedSingleton<7>);

namespace {

using Object = RuntimeThreadsTestObject;
using Pointer = SafePointer<RuntimeThreadsTestObject>;

constexpr size_t ThreadCount = 8;

/// What the threads of a test do together at least. Each test says what it counts as an operation.
constexpr size_t Operations = 1000000;

/// @return how often each thread must do its round of `operations`, so that all of them together reach the number.
constexpr size_t RoundsOf(size_t operations) {
    return (Operations + ThreadCount * operations - 1) / (ThreadCount * operations);
}

/// Runs `work(thread number)` on eight threads that start together, and waits for all of them.
template <class Work>
void OnEightThreads(const Work& work) {
    std::atomic<size_t> ready{0};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < ThreadCount; ++t) {
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < ThreadCount) {
                std::this_thread::yield();
            }
            work(t);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Every test ends with no record out, no number taken and no object alive.
class RuntimeThreadsTest : public testing::Test {
protected:
    ~RuntimeThreadsTest() override {
        SafePointerPool& pool = *SafePointerPool::instance();
        EXPECT_EQ(Object::alive, 0);
        EXPECT_EQ(RecordsOut(pool), 0U);
        const auto& records = FieldsOf(pool).records;
        EXPECT_TRUE(std::all_of(records.begin(), records.end(),
                                [](const SafePointerRecord* r) { return r->count == 0 && r->address == nullptr; }));
        EXPECT_TRUE(std::none_of(records.begin(), records.end(), [](SafePointerRecord* r) { return IsHeld(r->lock); }));
        EXPECT_FALSE(IsHeld(FieldsOf(pool).lock));
        EXPECT_EQ(IdsOut(*WyMutexIDAlloc::instance()), 0U);
        EXPECT_FALSE(IsHeld(FieldsOf(*WyMutexIDAlloc::instance()).lock));
    }
};

/// Where the eight threads wait for each other, as often as they like.
class MeetingPoint {
public:
    /// @param round counts up from 0, for every thread alike.
    void meet(size_t round) {
        ++arrived;
        while (arrived < (round + 1) * ThreadCount) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<size_t> arrived{0};
};

/// A place where threads wait for one another asleep: slower than a meeting point to go on from, and no burden to a busy
/// machine.
class WaitingRoom {
public:
    WaitingRoom() { static_cast<void>(pthread_barrier_init(&barrier, nullptr, ThreadCount)); }
    ~WaitingRoom() { static_cast<void>(pthread_barrier_destroy(&barrier)); }
    WaitingRoom(const WaitingRoom&) = delete;
    WaitingRoom& operator=(const WaitingRoom&) = delete;

    void wait() { static_cast<void>(pthread_barrier_wait(&barrier)); }

private:
    pthread_barrier_t barrier{};
};

/// Numbers of which each may have one holder at a time, and how often that was not so.
class Claims {
public:
    explicit Claims(size_t count) : held(count) {}

    void claim(uint64_t number) { expect(number < held.size() && !at(number).exchange(true)); }

    void giveUp(uint64_t number) { expect(at(number).exchange(false)); }

    void expect(bool holds) {
        if (!holds) {
            ++wrong;
        }
    }

    size_t violations() const { return wrong; }

private:
    std::atomic<bool>& at(uint64_t number) { return held[static_cast<size_t>(number)]; }

    std::vector<std::atomic<bool>> held;
    std::atomic<size_t> wrong{0};
};

std::atomic<size_t> numberedMade{0};

template <size_t Number>
class Numbered : public Singlton<Numbered<Number>> {
public:
    Numbered() : number(Number) {
        ++numberedMade;
        std::this_thread::yield(); // lets another thread in, if anything does
    }

    const size_t number; // read by every thread without a lock
};

/// @return the instance, or null when it is not whole.
template <size_t Number>
const ISinglton* UseNumbered() {
    const Numbered<Number>* instance = Numbered<Number>::instance();
    return instance->number == Number ? instance : nullptr;
}

constexpr size_t NumberedTypes = 64;
using Uses = std::array<const ISinglton* (*)(), NumberedTypes>;

template <size_t... Number>
constexpr Uses UsesOf(std::index_sequence<Number...> /*numbers*/) {
    return {UseNumbered<Number>...};
}

constexpr Uses UseOf = UsesOf(std::make_index_sequence<NumberedTypes>());

/// What its maker wrote into it, where a thread that finds it takes no lock.
class Published : public Singlton<Published> {
public:
    Published() { numbers.fill(7); }

    std::array<size_t, 64> numbers;
};

constexpr size_t RacedTypes = 8;
using Races = std::array<const ISinglton* (*)(), RacedTypes>;

template <size_t Number>
const ISinglton* UseRaced() {
    return RacedSingleton<Number>::instance();
}

template <size_t... Number>
constexpr Races RacesOf(std::index_sequence<Number...> /*numbers*/) {
    return {UseRaced<Number>...};
}

constexpr Races RaceOf = RacesOf(std::make_index_sequence<RacedTypes>());

/// Makes the next use of each raced type the first one again.
template <size_t... Number>
void ForgetRaced(std::index_sequence<Number...> /*numbers*/) {
    (InstancePointerOf(SingltonInternals<RacedSingleton<Number>>()).store(nullptr), ...);
}

/// Takes `count` counted singletons, the newest, off the registry and deletes them, as the exit of the process would.
void TakeBackSingletons(size_t registeredBefore, size_t count) {
    auto& entries = FieldsOf(SingletonRegistry::instance()).entries;
    ASSERT_EQ(entries.size(), registeredBefore + count);
    std::vector<ISinglton*> added(entries.begin() + static_cast<std::ptrdiff_t>(registeredBefore), entries.end());
    entries.resize(registeredBefore);
    std::sort(added.begin(), added.end());
    ASSERT_EQ(std::adjacent_find(added.begin(), added.end()), added.end()) << "a singleton is registered twice";
    for (const ISinglton* singleton : added) {
        delete singleton;
    }
    EXPECT_EQ(CountedSingleton::alive, 0U);
}

/// A singleton that its maker registers by hand.
class RegisteredSingleton : public ISinglton, private CountedSingleton {};

bool IsRegisteredOnce(const ISinglton* singleton) {
    const auto& entries = FieldsOf(SingletonRegistry::instance()).entries;
    return std::count(entries.begin(), entries.end(), singleton) == 1;
}

} // namespace

// Operations: times the mutex was held.
TEST_F(RuntimeThreadsTest, AMutexLetsOneThreadAtATimeIn) {
    WyMutex mutex;
    size_t counter = 0;

    OnEightThreads([&](size_t) {
        for (size_t i = 0; i < RoundsOf(1); ++i) {
            const WyMutexGuard guard(mutex);
            ++counter;
        }
    });

    EXPECT_EQ(counter, Operations);
    mutex.destroy();
}

// Operations: copies, assignments and releases, each with the record's lock; a round has two, one and two.
TEST_F(RuntimeThreadsTest, CopiesAssignmentsAndReleasesOfSharedObjectsKeepTheCount) {
    std::vector<Pointer> shared;
    for (size_t i = 0; i < 4; ++i) {
        shared.emplace_back(new Object(i + 1));
    }
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        Pointer own(shared[t % shared.size()]);
        for (size_t i = 0; i < RoundsOf(5); ++i) {
            const Pointer copy(shared[i % shared.size()]);
            own = copy;
            const Pointer second(own);
            if (second->value != i % shared.size() + 1) {
                ++wrong;
            }
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(Object::alive, 4);
    EXPECT_EQ(RecordsOut(*SafePointerPool::instance()), 4U);
    for (const SafePointerRecord* record : FieldsOf(*SafePointerPool::instance()).records) {
        EXPECT_EQ(record->count, record->index < 4 ? 1U : 0U);
    }
}

// Operations: releases of shared objects.
TEST_F(RuntimeThreadsTest, OfEightThreadsThatLetGoTheLastDeletesTheObjectOnce) {
    constexpr size_t Objects = 5000; // alive at once; the pool has room for 20,096
    constexpr size_t Rounds = RoundsOf(Objects);
    Object::deleted = 0;
    std::array<std::vector<Pointer>, ThreadCount> shares;
    std::atomic<size_t> wrong{0};

    for (size_t round = 0; round < Rounds; ++round) {
        for (size_t i = 0; i < Objects; ++i) {
            const Pointer pointer(new Object(i));
            for (auto& share : shares) {
                share.push_back(pointer);
            }
        }
        OnEightThreads([&](size_t t) {
            for (size_t i = Objects; i > 0; --i) {
                if (shares[t].back()->value != i - 1) {
                    ++wrong;
                }
                shares[t].pop_back();
            }
        });
        ASSERT_EQ(Object::alive, 0);
    }

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(Object::deleted, static_cast<int>(Objects * Rounds));
}

// Records are given back by one thread and taken by another at once, and pass from the one to the other through a box.
// Operations: an object made, a copy taken from a box, one put there, and both let go again: five a round.
TEST_F(RuntimeThreadsTest, ObjectsMadePassedOnAndReleasedByDifferentThreadsLeaveNothingBehind) {
    constexpr size_t Boxes = 16;
    WyMutex boxLock;
    {
        std::vector<Pointer> boxes;
        for (size_t i = 0; i < Boxes; ++i) {
            boxes.emplace_back(new Object(1));
        }
        std::atomic<size_t> wrong{0};

        OnEightThreads([&](size_t t) {
            std::vector<Pointer> kept;
            for (size_t i = 0; i < RoundsOf(5); ++i) {
                const Pointer made(new Object(1));
                {
                    const WyMutexGuard guard(boxLock);
                    kept.push_back(boxes[(i + t) % Boxes]);
                    boxes[(i + t) % Boxes] = made;
                }
                if (kept.back()->value != 1) {
                    ++wrong;
                }
                if (kept.size() == 40) {
                    kept.clear();
                }
            }
        });

        EXPECT_EQ(wrong, 0U);
        EXPECT_EQ(Object::alive, static_cast<int>(Boxes));
    }
    boxLock.destroy();
}

// Operations: records taken and records given back.
TEST_F(RuntimeThreadsTest, NoSlotOfAPoolIsTakenByTwoThreadsWhileItGrows) {
    constexpr size_t Held = 100; // by eight threads: 800, so the pool grows from 128 to 896 at most
    SafePointerPool pool;
    Claims slots(ThreadCount * Held + 128);

    OnEightThreads([&](size_t t) {
        int own = 0;
        std::vector<SafePointerRecord*> records;
        for (size_t round = 0; round < RoundsOf(2 * Held); ++round) {
            for (size_t i = 0; i < Held; ++i) {
                records.push_back(pool.acquireRecord(&own, nullptr));
                slots.claim(records.back()->index);
            }
            while (!records.empty()) {
                SafePointerRecord* record = records[(t + round) % records.size()];
                records.erase(std::find(records.begin(), records.end(), record));
                slots.expect(record->address == &own && record->count == 1);
                slots.giveUp(record->index);
                record->count = 0;
                pool.releaseRecord(record, nullptr);
            }
        }
    });

    EXPECT_EQ(slots.violations(), 0U);
    EXPECT_EQ(RecordsOut(pool), 0U);
    EXPECT_LE(FieldsOf(pool).records.size(), 896U);
    EXPECT_EQ(FieldsOf(pool).usedBits.size(), FieldsOf(pool).records.size() / 32);
}

// Operations: records taken and records given back. Each round has a pool of its own, which all threads let grow.
TEST_F(RuntimeThreadsTest, TogetherTheThreadsGetTheWholePoolAndNoRecordMore) {
    constexpr size_t PoolSize = 20096;
    constexpr size_t Rounds = RoundsOf(2 * PoolSize / ThreadCount);
    std::atomic<size_t> refused{0};

    for (size_t round = 0; round < Rounds; ++round) {
        SafePointerPool pool;
        std::array<std::vector<SafePointerRecord*>, ThreadCount> taken;
        OnEightThreads([&](size_t t) {
            try {
                for (;;) {
                    taken[t].push_back(pool.acquireRecord(&pool, nullptr));
                }
            } catch (const WyRuntimeError& error) {
                if (std::string(error.what()) == "too much safe poniter") {
                    ++refused;
                }
            }
        });

        std::vector<bool> seen(PoolSize);
        for (const auto& records : taken) {
            for (const SafePointerRecord* record : records) {
                ASSERT_LT(record->index, seen.size());
                const auto slot = static_cast<size_t>(record->index);
                ASSERT_FALSE(seen[slot]);
                seen[slot] = true;
            }
        }
        ASSERT_EQ(RecordsOut(pool), PoolSize);
        ASSERT_TRUE(std::all_of(seen.begin(), seen.end(), [](bool each) { return each; }));

        OnEightThreads([&](size_t t) {
            for (SafePointerRecord* record : taken[t]) {
                record->count = 0;
                pool.releaseRecord(record, nullptr);
            }
        });
        ASSERT_EQ(RecordsOut(pool), 0U);
    }

    EXPECT_EQ(refused, ThreadCount * Rounds);
}

// Operations: calls of instance(). A process makes a singleton once, so 64 types give 64 races for the first call; what
// follows finds what they made.
TEST_F(RuntimeThreadsTest, ASingletonIsMadeOnceHoweverManyThreadsAskFirst) {
    std::array<std::array<const ISinglton*, NumberedTypes>, ThreadCount> seen{};
    MeetingPoint start;
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        for (size_t i = 0; i < NumberedTypes; ++i) {
            start.meet(i);
            seen[t][i] = UseOf[i]();
        }
        for (size_t round = 0; round < RoundsOf(NumberedTypes); ++round) {
            for (size_t i = 0; i < NumberedTypes; ++i) {
                if (UseOf[i]() != seen[t][i]) {
                    ++wrong;
                }
            }
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(numberedMade, NumberedTypes);
    for (const auto& instances : seen) {
        EXPECT_EQ(instances, seen[0]);
    }
    EXPECT_TRUE(std::all_of(seen[0].begin(), seen[0].end(), IsRegisteredOnce));
}

// The race for the first call again and again: before each one the instance pointers are set back to what they are when
// the process starts, which only a test can do. Operations: calls of instance() in such a race.
TEST_F(RuntimeThreadsTest, EachOfManyRacesForTheFirstCallMakesOneSingleton) {
    constexpr size_t Rounds = RoundsOf(RacedTypes);
    const size_t registeredBefore = FieldsOf(SingletonRegistry::instance()).entries.size();
    std::array<std::array<const ISinglton*, RacedTypes>, ThreadCount> seen{};
    MeetingPoint start;
    WaitingRoom finish;
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        for (size_t round = 0; round < Rounds; ++round) {
            if (t == 0) {
                ForgetRaced(std::make_index_sequence<RacedTypes>());
            }
            start.meet(round);
            for (size_t i = 0; i < RacedTypes; ++i) {
                seen[t][i] = RaceOf[i]();
            }
            finish.wait();
            if (seen[t] != seen[0]) {
                ++wrong;
            }
            finish.wait();
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(CountedSingleton::alive, RacedTypes * Rounds);
    TakeBackSingletons(registeredBefore, RacedTypes * Rounds);
}

// The threads learn of the instance in a way that orders nothing, and then find it without the lock: the instance
// pointer alone, stored with release and loaded with acquire, brings them what the constructor wrote. Where either is
// less than that, the thread sanitizer sees a race; most machines would still show the numbers.
TEST_F(RuntimeThreadsTest, TheInstancePointerIsReleasedByItsMakerAndAcquiredByWhoeverFindsIt) {
    std::atomic<bool> made{false};
    std::array<size_t, ThreadCount> sums{};

    OnEightThreads([&](size_t t) {
        if (t == 0) {
            static_cast<void>(Published::instance());
            made.store(true, std::memory_order_relaxed);
        }
        while (!made.load(std::memory_order_relaxed)) {
            std::this_thread::yield();
        }
        for (const size_t number : Published::instance()->numbers) {
            sums[t] += number;
        }
    });

    for (const size_t sum : sums) {
        EXPECT_EQ(sum, 7U * 64U);
    }
}

// Operations: singletons added.
TEST_F(RuntimeThreadsTest, TheRegistryKeepsEachOfTheSingletonsThatManyThreadsAddAtOnce) {
    SingletonRegistry& registry = SingletonRegistry::instance();
    const size_t registeredBefore = FieldsOf(registry).entries.size();

    OnEightThreads([&](size_t) {
        for (size_t i = 0; i < RoundsOf(1); ++i) {
            registry.add(new RegisteredSingleton);
        }
    });

    EXPECT_EQ(CountedSingleton::alive, Operations);
    TakeBackSingletons(registeredBefore, Operations);
    EXPECT_FALSE(IsHeld(FieldsOf(registry).lock));
}

// A process has eight such moments with these types: each thread makes another singleton, all at once.
TEST_F(RuntimeThreadsTest, SingletonsThatAreMadeAtOnceAreAllRegistered) {
    std::array<const ISinglton*, NumberedTypes> made{};
    MeetingPoint start;

    OnEightThreads([&](size_t t) {
        for (size_t i = 0; i < NumberedTypes; i += ThreadCount) {
            start.meet(i / ThreadCount);
            made[i + t] = UseOf[i + t]();
        }
    });

    EXPECT_EQ(numberedMade, NumberedTypes);
    EXPECT_TRUE(std::all_of(made.begin(), made.end(), IsRegisteredOnce));
}

// Each of the four is made once a process, so there is one race for it.
TEST_F(RuntimeThreadsTest, TheProcessWideObjectsAreOneEachHoweverManyThreadsAskFirst) {
    std::array<std::array<const void*, 4>, ThreadCount> seen{};

    OnEightThreads([&](size_t t) {
        seen[t] = {&LogSettings::instance(), SafePointerPool::instance(), &SingletonRegistry::instance(),
                   WyMutexIDAlloc::instance()};
    });

    for (const auto& objects : seen) {
        EXPECT_EQ(objects, seen[0]);
    }
}

// Operations: numbers taken and numbers given back.
TEST_F(RuntimeThreadsTest, NoNumberIsTakenByTwoThreadsWhileTheBitmapGrows) {
    constexpr size_t Held = 100; // by eight threads: 800, so the bitmap grows from nothing to 960 at most
    constexpr size_t RoundsOfOne = 10;
    constexpr size_t Allocators = RoundsOf(2 * Held * RoundsOfOne);

    for (size_t i = 0; i < Allocators; ++i) {
        WyMutexIDAlloc allocator;
        Claims numbers(ThreadCount * Held);
        OnEightThreads([&](size_t t) {
            std::vector<uint32_t> own;
            for (size_t round = 0; round < RoundsOfOne; ++round) {
                while (own.size() < Held) {
                    own.push_back(allocator.allocId());
                    // The lowest free number is always taken, so none can reach the number of those taken at once.
                    numbers.claim(own.back());
                }
                while (!own.empty()) {
                    const auto which = own.begin() + static_cast<std::ptrdiff_t>((t + round) % own.size());
                    numbers.giveUp(*which);
                    allocator.freeId(*which);
                    own.erase(which);
                }
            }
        });
        ASSERT_EQ(numbers.violations(), 0U);
        ASSERT_EQ(IdsOut(allocator), 0U);
        ASSERT_LE(FieldsOf(allocator).wordCount, 30U);
    }
}

// Operations: mutexes made and mutexes destroyed.
TEST_F(RuntimeThreadsTest, NoTwoLiveIdMutexesCarryOneId) {
    constexpr size_t Held = 60; // by eight threads: 480, so the bitmap grows twice at most
    Claims ids(ThreadCount * Held);

    OnEightThreads([&](size_t t) {
        for (size_t round = 0; round < RoundsOf(2 * Held); ++round) {
            std::vector<std::unique_ptr<WyIdMutex>> own;
            for (size_t i = 0; i < Held; ++i) {
                own.push_back(std::make_unique<WyIdMutex>());
                ids.claim(own.back()->getId());
            }
            while (!own.empty()) {
                const auto which = own.begin() + static_cast<std::ptrdiff_t>((t + round) % own.size());
                ids.giveUp((*which)->getId());
                own.erase(which);
            }
        }
    });

    EXPECT_EQ(ids.violations(), 0U);
    EXPECT_LE(FieldsOf(*WyMutexIDAlloc::instance()).wordCount, 20U);
}
