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

#include <gtest/gtest.h>

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

namespace {

using Object = RuntimeThreadsTestObject;
using Pointer = SafePointer<RuntimeThreadsTestObject>;

constexpr size_t ThreadCount = 8;

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

bool IsRegisteredOnce(const ISinglton* singleton) {
    const auto& entries = FieldsOf(SingletonRegistry::instance()).entries;
    return std::count(entries.begin(), entries.end(), singleton) == 1;
}

} // namespace

TEST_F(RuntimeThreadsTest, AMutexLetsOneThreadAtATimeIn) {
    WyMutex mutex;
    size_t counter = 0;

    OnEightThreads([&](size_t) {
        for (int i = 0; i < 20000; ++i) {
            const WyMutexGuard guard(mutex);
            ++counter;
        }
    });

    EXPECT_EQ(counter, ThreadCount * 20000);
    mutex.destroy();
}

TEST_F(RuntimeThreadsTest, CopiesAssignmentsAndReleasesOfSharedObjectsKeepTheCount) {
    std::vector<Pointer> shared;
    for (size_t i = 0; i < 4; ++i) {
        shared.emplace_back(new Object(i + 1));
    }
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        Pointer own(shared[t % shared.size()]);
        for (size_t i = 0; i < 10000; ++i) {
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

TEST_F(RuntimeThreadsTest, OfEightThreadsThatLetGoTheLastDeletesTheObjectOnce) {
    constexpr size_t Objects = 2000;
    Object::deleted = 0;
    std::array<std::vector<Pointer>, ThreadCount> shares;
    for (size_t i = 0; i < Objects; ++i) {
        const Pointer pointer(new Object(i));
        for (auto& share : shares) {
            share.push_back(pointer);
        }
    }
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        for (size_t i = Objects; i > 0; --i) {
            if (shares[t].back()->value != i - 1) {
                ++wrong;
            }
            shares[t].pop_back();
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(Object::deleted, static_cast<int>(Objects));
}

// Records are given back by one thread and taken by another at once, and pass from the one to the other through a box.
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
            for (size_t i = 0; i < 10000; ++i) {
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

TEST_F(RuntimeThreadsTest, NoSlotOfAPoolIsTakenByTwoThreadsWhileItGrows) {
    constexpr size_t Held = 100; // by eight threads: 800, so the pool grows from 128 to 896 at most
    SafePointerPool pool;
    std::vector<std::atomic<bool>> taken(ThreadCount * Held + 128);
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        int own = 0;
        std::vector<SafePointerRecord*> records;
        for (size_t round = 0; round < 100; ++round) {
            for (size_t i = 0; i < Held; ++i) {
                records.push_back(pool.acquireRecord(&own, nullptr));
                if (records.back()->index >= taken.size() || taken[records.back()->index].exchange(true)) {
                    ++wrong;
                }
            }
            while (!records.empty()) {
                SafePointerRecord* record = records[(t + round) % records.size()];
                records.erase(std::find(records.begin(), records.end(), record));
                if (record->address != &own || record->count != 1 || !taken[record->index].exchange(false)) {
                    ++wrong;
                }
                record->count = 0;
                pool.releaseRecord(record, nullptr);
            }
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(RecordsOut(pool), 0U);
    EXPECT_LE(FieldsOf(pool).records.size(), 896U);
    EXPECT_EQ(FieldsOf(pool).usedBits.size(), FieldsOf(pool).records.size() / 32);
}

TEST_F(RuntimeThreadsTest, TogetherTheThreadsGetTheWholePoolAndNoRecordMore) {
    SafePointerPool pool;
    std::array<std::vector<SafePointerRecord*>, ThreadCount> taken;
    std::atomic<size_t> refused{0};

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

    EXPECT_EQ(refused, ThreadCount);
    std::vector<bool> seen(20096);
    for (const auto& records : taken) {
        for (const SafePointerRecord* record : records) {
            ASSERT_LT(record->index, seen.size());
            ASSERT_FALSE(seen[record->index]);
            seen[record->index] = true;
        }
    }
    EXPECT_EQ(RecordsOut(pool), seen.size());
    EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](bool each) { return each; }));

    OnEightThreads([&](size_t t) {
        for (SafePointerRecord* record : taken[t]) {
            record->count = 0;
            pool.releaseRecord(record, nullptr);
        }
    });

    EXPECT_EQ(RecordsOut(pool), 0U);
}

TEST_F(RuntimeThreadsTest, ASingletonIsMadeOnceHoweverManyThreadsAskFirst) {
    std::array<std::array<const ISinglton*, NumberedTypes>, ThreadCount> seen{};
    MeetingPoint start;

    OnEightThreads([&](size_t t) {
        for (size_t i = 0; i < NumberedTypes; ++i) {
            start.meet(i);
            seen[t][i] = UseOf[i]();
        }
    });

    EXPECT_EQ(numberedMade, NumberedTypes);
    for (const auto& instances : seen) {
        EXPECT_EQ(instances, seen[0]);
    }
    EXPECT_TRUE(std::all_of(seen[0].begin(), seen[0].end(), IsRegisteredOnce));
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

TEST_F(RuntimeThreadsTest, NoTwoLiveIdMutexesCarryOneId) {
    constexpr size_t Held = 60; // by eight threads: 480, so the bitmap grows twice at most
    std::array<std::atomic<bool>, ThreadCount * Held> taken{};
    std::atomic<size_t> wrong{0};

    OnEightThreads([&](size_t t) {
        for (size_t round = 0; round < 100; ++round) {
            std::vector<std::unique_ptr<WyIdMutex>> own;
            for (size_t i = 0; i < Held; ++i) {
                own.push_back(std::make_unique<WyIdMutex>());
                // The lowest free number is always taken, so none can reach the number of those alive at once.
                if (own.back()->getId() >= taken.size() || taken[own.back()->getId()].exchange(true)) {
                    ++wrong;
                }
            }
            while (!own.empty()) {
                const auto which = own.begin() + static_cast<std::ptrdiff_t>((t + round) % own.size());
                if (!taken[(*which)->getId()].exchange(false)) {
                    ++wrong;
                }
                own.erase(which);
            }
        }
    });

    EXPECT_EQ(wrong, 0U);
    EXPECT_LE(FieldsOf(*WyMutexIDAlloc::instance()).wordCount, 20U);
}
