#include "runtime/SafePointerPool.h"

#include "runtime/WyRuntimeError.h"
#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingAllocation.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

static_assert(!std::is_copy_constructible_v<SafePointerPool> && !std::is_copy_assignable_v<SafePointerPool>);

namespace {

constexpr size_t MaxRecords = 20096;

/// A pool with the records that a test took from it, by slot.
class SafePointerPoolTest : public testing::Test {
protected:
    /// Every test ends by giving back what it took: the pool then has no record out, and none that is not free.
    ~SafePointerPoolTest() override {
        for (SafePointerRecord* record : std::vector<SafePointerRecord*>(records())) {
            if (isTaken(record->index)) {
                release(record->index);
            }
        }
        EXPECT_EQ(RecordsOut(pool), 0U);
        EXPECT_TRUE(std::all_of(records().begin(), records().end(),
                                [](const SafePointerRecord* r) { return r->count == 0 && r->address == nullptr; }));
        EXPECT_FALSE(IsHeld(FieldsOf(pool).lock));
    }

    std::vector<SafePointerRecord*>& records() { return FieldsOf(pool).records; }

    /// A slot is kept in 64 bits wherever the program runs; what is indexed by it has no more than a size_t counts.
    SafePointerRecord*& recordAt(uint64_t slot) { return records()[static_cast<size_t>(slot)]; }

    bool isTaken(uint64_t slot) {
        return (FieldsOf(pool).usedBits[static_cast<size_t>(slot / 32)] >> (slot % 32) & 1U) != 0;
    }

    uint64_t acquire() { return pool.acquireRecord(&object, "4Type")->index; }

    void acquireFirst(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            ASSERT_EQ(acquire(), i);
        }
    }

    /// As the last safe pointer does: the count is down to 0 when the record is given back.
    void release(uint64_t slot) {
        recordAt(slot)->count = 0;
        pool.releaseRecord(recordAt(slot), "4Type");
    }

    /// @return the message of what `releaseRecord` throws, or "nothing".
    std::string messageOfRelease(SafePointerRecord* record) {
        try {
            pool.releaseRecord(record, "4Type");
        } catch (const WyRuntimeError& error) {
            return error.what();
        }
        return "nothing";
    }

    std::string messageOfAcquire() {
        try {
            static_cast<void>(acquire());
        } catch (const WyRuntimeError& error) {
            return error.what();
        }
        return "nothing";
    }

    /// @return whether a pool of its own can be made, and destroyed again, with so many allocations before one fails.
    static bool poolIsMade(size_t allocations) {
        const FailingAllocation failing(allocations);
        try {
            const SafePointerPool another;
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    void expectConsistent(size_t recordCount) {
        ASSERT_EQ(records().size(), recordCount);
        ASSERT_EQ(FieldsOf(pool).usedBits.size(), recordCount / 32);
        for (size_t slot = 0; slot < recordCount; ++slot) {
            ASSERT_EQ(records()[slot]->index, slot);
            ASSERT_EQ(records()[slot]->address != nullptr, isTaken(slot)) << slot;
            ASSERT_EQ(records()[slot]->count != 0, isTaken(slot)) << slot;
        }
        EXPECT_FALSE(IsHeld(FieldsOf(pool).lock));
    }

    SafePointerPool pool;
    int object = 0;
};

/// @return what the C library's heap has handed out.
size_t BytesInUse() {
    return mallinfo2().uordblks;
}

void* AddressOf(uint64_t number) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(number));
}

} // namespace

TEST_F(SafePointerPoolTest, RecordsUsedBitsNamesLockAndHintStandInThisOrder) {
    const PoolFields fields = FieldsOf(pool);
    const std::vector<size_t> places{PlaceOf(pool, fields.records), PlaceOf(pool, fields.usedBits),
                                     PlaceOf(pool, fields.names), PlaceOf(pool, fields.lock),
                                     PlaceOf(pool, fields.hint)};

    const size_t usedBits = sizeof(fields.records);
    const size_t names = usedBits + sizeof(fields.usedBits);
    const size_t lock = names + sizeof(fields.names);
    EXPECT_EQ(places,
              (std::vector<size_t>{0, usedBits, names, lock, FirstPlaceFor<uint64_t>(lock + sizeof(fields.lock))}));
}

TEST_F(SafePointerPoolTest, AFreshPoolHas128FreeRecords) {
    expectConsistent(128);
    EXPECT_EQ(FieldsOf(pool).usedBits, std::vector<uint32_t>(4, 0));
    EXPECT_EQ(FieldsOf(pool).hint, 0U);
    EXPECT_EQ(RecordsOut(pool), 0U);
    for (SafePointerRecord* record : records()) {
        EXPECT_EQ(MarkOf(record->lock), 0x55aa55aaU);
    }
    EXPECT_EQ(MarkOf(FieldsOf(pool).lock), 0x55aa55aaU);
}

TEST_F(SafePointerPoolTest, AnAcquiredRecordHasTheAddressAndACountOfOne) {
    SafePointerRecord* record = pool.acquireRecord(&object, "4Type");

    EXPECT_EQ(record, records()[0]);
    EXPECT_EQ(record->address, &object);
    EXPECT_EQ(record->count, 1U);
    EXPECT_EQ(FieldsOf(pool).usedBits, (std::vector<uint32_t>{1, 0, 0, 0}));
    EXPECT_FALSE(IsHeld(record->lock));
}

TEST_F(SafePointerPoolTest, TheFirstAcquireTakesSlot0The128thSlot127AndThe129thGrowsTo256AndTakesSlot128) {
    acquireFirst(128);
    expectConsistent(128);
    const std::vector<SafePointerRecord*> before = records();

    EXPECT_EQ(acquire(), 128U);

    expectConsistent(256);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), records().begin())) << "records never move";
    EXPECT_EQ(acquire(), 129U);
}

TEST_F(SafePointerPoolTest, AReleasedRecordIsFreeAndItsSlotTheHint) {
    acquireFirst(40);

    release(37);

    EXPECT_FALSE(isTaken(37));
    EXPECT_EQ(records()[37]->address, nullptr);
    EXPECT_EQ(FieldsOf(pool).hint, 37U);
    EXPECT_EQ(RecordsOut(pool), 39U);
}

TEST_F(SafePointerPoolTest, AReleaseLeavesTheCountToTheCaller) {
    SafePointerRecord* record = pool.acquireRecord(&object, "4Type");
    record->count = 7;

    pool.releaseRecord(record, "4Type");

    EXPECT_EQ(record->count, 7U);
    record->count = 0;
}

TEST_F(SafePointerPoolTest, AfterSlots0To9AreTakenAnd5IsReleasedTheNextAcquireTakes5) {
    acquireFirst(10);
    release(5);

    EXPECT_EQ(acquire(), 5U);
    EXPECT_EQ(acquire(), 10U);
}

TEST_F(SafePointerPoolTest, WithSlot3FreeAndSlot70JustReleasedTheNextAcquireTakes70) {
    acquireFirst(96);
    release(3);
    release(70);

    EXPECT_EQ(acquire(), 70U);
}

TEST_F(SafePointerPoolTest, TheSearchGoesFromTheHintsWordToTheLastAndThenFromTheFirst) {
    struct Case {
        const char* what;
        size_t taken;
        std::vector<size_t> released;
        std::vector<uint64_t> expected;
    };
    const std::vector<Case> cases{
        {"the lowest free slot of the hint's word, not the hint itself", 128, {66, 70}, {66, 70}},
        {"the words behind the hint's before those in front of it", 128, {3, 100, 70}, {70, 100, 3}},
        {"in each word the lowest slot first", 128, {127, 96, 31, 0, 64}, {64, 96, 127, 0, 31}},
        {"the last word, then round to the first", 128, {32, 5, 127}, {127, 5, 32}},
        {"the hint in the first word: straight on", 128, {127, 64, 0}, {0, 64, 127}},
        {"the hint stays where it is while records are taken", 128, {40, 1}, {1, 40, 128}},
        {"a slot never taken lies behind the hint", 50, {45}, {45, 50, 51}},
        {"full all round: the pool grows and its first new slot is taken", 128, {70}, {70, 128, 129}},
        {"a freed slot in front of a grown part is found after it", 256, {10, 200}, {200, 10, 256}},
    };

    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SafePointerPool own;
        for (size_t i = 0; i < c.taken; ++i) {
            ASSERT_EQ(own.acquireRecord(&object, nullptr)->index, i);
        }
        for (const size_t slot : c.released) {
            own.releaseRecord(FieldsOf(own).records[slot], nullptr);
        }

        std::vector<uint64_t> actual;
        for (size_t i = 0; i < c.expected.size(); ++i) {
            actual.push_back(own.acquireRecord(&object, nullptr)->index);
        }

        EXPECT_EQ(actual, c.expected);
    }
}

// Full words are passed many at a time, from wherever the search starts: every distance between two words is tried.
TEST_F(SafePointerPoolTest, TheOneFreeSlotIsFoundFromEveryWord) {
    constexpr uint64_t Words = 52;
    acquireFirst(Words * 32);

    for (uint64_t from = 0; from < Words; ++from) {
        for (uint64_t word = 0; word < Words; ++word) {
            release(word * 32 + 7);
            release(from * 32 + 3);

            ASSERT_EQ(acquire(), from * 32 + 3);
            ASSERT_EQ(acquire(), word * 32 + 7) << "from word " << from;
        }
    }
}

TEST_F(SafePointerPoolTest, AnAddressThatIsRegisteredAlreadyIsNotLookedFor) {
    SafePointerRecord* first = pool.acquireRecord(&object, "4Type");
    SafePointerRecord* second = pool.acquireRecord(&object, "4Type");

    EXPECT_NE(first, second);
    EXPECT_EQ(first->count, 1U);
    EXPECT_EQ(second->count, 1U);
}

TEST_F(SafePointerPoolTest, TheTypeNameIsIgnored) {
    SafePointerRecord* record = pool.acquireRecord(&object, nullptr);
    record->count = 0;

    EXPECT_NO_THROW(pool.releaseRecord(record, "another"));

    EXPECT_EQ(RecordsOut(pool), 0U);
}

TEST_F(SafePointerPoolTest, ReleasingARecordTwiceReportsEightZeros) {
    acquireFirst(3);
    release(1);
    release(2);

    EXPECT_EQ(messageOfRelease(records()[1]), "double free poniter(0x00000000)");

    expectConsistent(128);
    EXPECT_EQ(RecordsOut(pool), 1U) << "the pool is unchanged";
    EXPECT_EQ(FieldsOf(pool).hint, 2U);
    EXPECT_EQ(acquire(), 1U) << "and usable";
}

TEST_F(SafePointerPoolTest, ADoubleReleaseReportsTheLow32BitsOfTheAddress) {
    struct Case {
        uint64_t address;
        const char* message;
    };
    const Case cases[] = {
        {0, "double free poniter(0x00000000)"},
        {0x1f, "double free poniter(0x0000001f)"},
        {0x9abcdef0, "double free poniter(0x9abcdef0)"},
#if UINTPTR_MAX > UINT32_MAX
        {0x123456789abcdef0, "double free poniter(0x9abcdef0)"},
        {0xffffffff00000001, "double free poniter(0x00000001)"},
#endif
    };

    for (const Case& c : cases) {
        SafePointerRecord* record = records()[9];
        record->address = AddressOf(c.address);

        testing::internal::CaptureStdout();
        const std::string message = messageOfRelease(record);

        EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "the pool prints nothing";
        EXPECT_EQ(message, c.message);
        EXPECT_EQ(record->address, AddressOf(c.address));
        EXPECT_FALSE(IsHeld(FieldsOf(pool).lock));
        record->address = nullptr;
    }
}

TEST_F(SafePointerPoolTest, With20096RecordsTakenTheNextAcquireThrowsAndAfterOneReleaseItSucceeds) {
    std::set<size_t> sizes;
    for (size_t i = 0; i < MaxRecords; ++i) {
        ASSERT_EQ(acquire(), i);
        sizes.insert(records().size());
    }
    std::set<size_t> expectedSizes;
    for (size_t size = 128; size <= MaxRecords; size += 128) {
        expectedSizes.insert(size);
    }
    EXPECT_EQ(sizes, expectedSizes);

    testing::internal::CaptureStdout();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(messageOfAcquire(), "too much safe poniter");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "the pool prints nothing";
    expectConsistent(MaxRecords);
    EXPECT_EQ(RecordsOut(pool), MaxRecords);

    release(12345);
    EXPECT_EQ(acquire(), 12345U);
    EXPECT_EQ(messageOfAcquire(), "too much safe poniter");
}

TEST_F(SafePointerPoolTest, AGrowthOutOfMemoryLeavesThePoolUnchangedAndUsable) {
    acquireFirst(128);
    const std::vector<SafePointerRecord*> before = records();
    const uint64_t hint = FieldsOf(pool).hint;

    size_t failures = 0;
    for (;; ++failures) {
        ASSERT_LT(failures, 1000U);
        const FailingAllocation failing(failures);
        try {
            ASSERT_EQ(acquire(), 128U);
            break;
        } catch (const std::bad_alloc&) {
            ASSERT_EQ(records(), before);
            ASSERT_EQ(FieldsOf(pool).usedBits, std::vector<uint32_t>(4, 0xFFFFFFFF));
            ASSERT_EQ(FieldsOf(pool).hint, hint);
            ASSERT_FALSE(IsHeld(FieldsOf(pool).lock));
        }
    }

    EXPECT_EQ(failures, 130U) << "each of the 128 records, and both arrays";
    expectConsistent(256);
    EXPECT_EQ(RecordsOut(pool), 129U);
}

TEST_F(SafePointerPoolTest, AfterAFailedGrowthARecordThatIsGivenBackIsTakenAgain) {
    acquireFirst(128);
    {
        const FailingAllocation failing(100);
        EXPECT_THROW(static_cast<void>(acquire()), std::bad_alloc);
    }

    release(77);

    EXPECT_EQ(acquire(), 77U);
    EXPECT_EQ(acquire(), 128U);
}

// Each failure is provoked twice: what the allocator sets aside for itself, it has set aside after the first time. The
// address sanitizer's allocator counts nothing here; its leak checker looks instead.
TEST_F(SafePointerPoolTest, APoolThatCannotBeMadeKeepsNothing) {
    size_t failures = 0;
    while (!poolIsMade(failures)) {
        ASSERT_FALSE(poolIsMade(failures)); // malloc's own caches count as in use: they take two rounds to settle
        const size_t before = BytesInUse();

        ASSERT_FALSE(poolIsMade(failures));

        ASSERT_EQ(BytesInUse(), before) << "after " << failures << " allocations";
        ++failures;
        ASSERT_LT(failures, 1000U);
    }

    EXPECT_EQ(failures, 130U) << "each of the 128 records, and both arrays";
}

TEST_F(SafePointerPoolTest, EveryOperationTakesThePoolsLockAndNoRecordsLock) {
    std::vector<pthread_mutex_t*> locked;
    {
        const MutexObserver observer([&](pthread_mutex_t* which) { locked.push_back(which); }, nullptr);

        acquireFirst(129); // with a growth
        release(64);
        static_cast<void>(messageOfRelease(records()[64]));
    }

    EXPECT_EQ(locked, std::vector<pthread_mutex_t*>(131, &PthreadMutexOf(FieldsOf(pool).lock)));
}

TEST_F(SafePointerPoolTest, ATakeOrAReleaseThatNeedsNoGrowthAllocatesNothing) {
    acquireFirst(1);
    bool allocated = false;
    {
        const FailingAllocation failing(0);
        static_cast<void>(acquire());
        release(1);
        allocated = FailingAllocation::happened();
    }

    EXPECT_FALSE(allocated);
}

TEST_F(SafePointerPoolTest, DestructionDestroysTheLocksOfAllRecordsAndThePoolsOwn) {
    auto own = std::make_unique<SafePointerPool>();
    std::multiset<pthread_mutex_t*> expected{&PthreadMutexOf(FieldsOf(*own).lock),
                                             &PthreadMutexOf(FieldsOf(FieldsOf(*own).names).lock)};
    for (SafePointerRecord* record : FieldsOf(*own).records) {
        expected.insert(&PthreadMutexOf(record->lock));
    }
    std::multiset<pthread_mutex_t*> destroyed;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t* which) { destroyed.insert(which); });

        own.reset();
    }

    EXPECT_EQ(destroyed, expected);
}

// Provoked twice for the same reason as above; the address sanitizer's leak checker looks in its place here, too.
TEST_F(SafePointerPoolTest, DestructionGivesBackAllMemory) {
    constexpr size_t Plenty = 1000; // allocations
    ASSERT_TRUE(poolIsMade(Plenty));
    const size_t before = BytesInUse();

    ASSERT_TRUE(poolIsMade(Plenty));

    EXPECT_EQ(BytesInUse(), before);
}

TEST(SafePointerPoolInstanceTest, TheProcessHasOnePool) {
    SafePointerPool* pool = SafePointerPool::instance();

    EXPECT_EQ(SafePointerPool::instance(), pool);
    EXPECT_EQ(RecordsOut(*pool), 0U);
}

TEST(SafePointerPoolInstanceTest, AtExitThePoolIsNotDestroyed) {
    const ChildResult result = RunInChild([] {
        // Made before the pool, so at exit it ends after whatever the pool's first use might have registered.
        struct LastUser {
            ~LastUser() { std::printf("%zu record out\n", RecordsOut(*SafePointerPool::instance())); }
        };
        static LastUser user;
        static_cast<void>(user);
        static MutexObserver* const observer = new MutexObserver(nullptr, [](pthread_mutex_t* which) {
            if (which == &PthreadMutexOf(FieldsOf(*SafePointerPool::instance()).lock)) {
                static_cast<void>(std::puts("the pool's lock is destroyed"));
            }
        });
        static_cast<void>(observer);
        static int object = 0;
        static_cast<void>(SafePointerPool::instance()->acquireRecord(&object, "4Type"));
    });

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_EQ(result.output, "1 record out\n");
}
