#include "runtime/SafePointer.h"
#include "runtime/SafePointerPool.h"
#include "runtime/SingletonRegistry.h"
#include "runtime/Singlton.h"
#include "runtime/WyIdMutex.h"
#include "runtime/WyMutexIDAlloc.h"
#include "runtime/WyRuntimeError.h"
#include "tests/memory/FaultSweep.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/runtime/SingltonInternals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

// All that the runtime allocates it asks operator new for.
const FaultRules Rules = {{"operator new", Ending::Threw, Ending::Threw}};

/// Allocates in its constructor, too.
class Spacious : public Singlton<Spacious> {
public:
    Spacious() : text(100, 'x') {}

    std::string text;
};

void ExpectConsistent(SafePointerPool& pool, size_t recordCount, size_t taken) {
    const PoolFields fields = FieldsOf(pool);
    EXPECT_EQ(fields.records.size(), recordCount);
    EXPECT_EQ(fields.usedBits.size(), recordCount / 32);
    EXPECT_EQ(RecordsOut(pool), taken);
    EXPECT_FALSE(IsHeld(fields.lock));
    EXPECT_TRUE(std::none_of(fields.records.begin(), fields.records.end(),
                             [](SafePointerRecord* record) { return IsHeld(record->lock); }));
}

// Takes records until `count` are out, gives all of them back, and takes one more.
void DoARound(SafePointerPool& pool, size_t count) {
    int object = 0;
    while (RecordsOut(pool) < count) {
        static_cast<void>(pool.acquireRecord(&object, "4Type"));
    }
    for (SafePointerRecord* record : FieldsOf(pool).records) {
        if (record->count != 0) {
            record->count = 0;
            pool.releaseRecord(record, "4Type");
        }
    }
    EXPECT_EQ(RecordsOut(pool), 0U);
    EXPECT_EQ(pool.acquireRecord(&object, "4Type")->address, &object);
}

} // namespace

SINGLTON_INTERNALS(Spacious);

TEST(RuntimeMemoryTest, APoolThatCouldNotBeMadeForLackOfMemoryLeavesNothing) {
    SweepFaults("a pool", [](FaultyAttempt& attempt) {
        attempt.run(Rules, [] {
            const SafePointerPool pool;
            return true;
        });
    });
}

TEST(RuntimeMemoryTest, APoolThatCouldNotGrowForLackOfMemoryIsAsBeforeAndGrowsTheNextTime) {
    for (const size_t full : {size_t{128}, size_t{256}}) {
        SweepFaults("growth of a pool of " + std::to_string(full), [full](FaultyAttempt& attempt) {
            SafePointerPool pool;
            int object = 0;
            for (size_t i = 0; i < full; ++i) {
                static_cast<void>(pool.acquireRecord(&object, "4Type"));
            }

            attempt.run(Rules, [&] { return pool.acquireRecord(&object, "4Type")->index == full; });

            ExpectConsistent(pool, attempt.succeeded() ? full + 128 : full, attempt.succeeded() ? full + 1 : full);
            DoARound(pool, full + 1);
            ExpectConsistent(pool, full + 128, 1);
        });
    }
}

// The first one of a process makes the pool.
TEST(RuntimeMemoryTest, ASafePointerThatGotNoRecordForLackOfMemoryLeavesTheObjectToItsOwner) {
    SweepFaultsInChildren("the first safe pointer", [](FaultyAttempt& attempt) {
        auto owner = std::make_unique<std::string>("the object");

        attempt.run(Rules, [&] {
            const SafePointer<std::string> pointer(owner.get());
            static_cast<void>(owner.release());
            return *pointer.operator->() == "the object";
        });

        EXPECT_EQ(owner != nullptr, attempt.threw());
        ExpectConsistent(*SafePointerPool::instance(), 128, 0);
        const SafePointer<std::string> pointer(new std::string("another"));
        ExpectConsistent(*SafePointerPool::instance(), 128, 1);
    });
}

TEST(RuntimeMemoryTest, AnAllocatorOfNumbersThatCouldNotGrowForLackOfMemoryIsAsBeforeAndGrowsTheNextTime) {
    for (const uint32_t taken : {0U, 320U, 640U}) {
        SweepFaults("growth beyond " + std::to_string(taken) + " numbers", [taken](FaultyAttempt& attempt) {
            WyMutexIDAlloc numbers;
            for (uint32_t i = 0; i < taken; ++i) {
                ASSERT_EQ(numbers.allocId(), i);
            }

            attempt.run(Rules, [&] { return numbers.allocId() == taken; });

            EXPECT_FALSE(IsHeld(FieldsOf(numbers).lock));
            EXPECT_EQ(FieldsOf(numbers).wordCount, (attempt.succeeded() ? taken + 320 : taken) / 32);
            EXPECT_EQ(IdsOut(numbers), attempt.succeeded() ? taken + 1 : taken);
            if (attempt.succeeded()) {
                numbers.freeId(taken);
            }
            EXPECT_EQ(numbers.allocId(), taken);
            for (uint32_t id = 0; id <= taken; ++id) {
                numbers.freeId(id);
            }
            EXPECT_EQ(IdsOut(numbers), 0U);
            EXPECT_EQ(numbers.allocId(), 0U);
        });
    }
}

TEST(RuntimeMemoryTest, ASingletonThatCouldNotBeMadeForLackOfMemoryIsMadeTheNextTimeAndRegisteredOnce) {
    SweepFaultsInChildren("a singleton", [](FaultyAttempt& attempt) {
        attempt.run(Rules, [] { return Spacious::instance() != nullptr; });

        WyMutex& creation = CreationMutexOf(SingltonInternals<Spacious>());
        RegistryFields registry = FieldsOf(SingletonRegistry::instance());
        EXPECT_FALSE(IsHeld(creation));
        EXPECT_FALSE(IsHeld(registry.lock));
        EXPECT_EQ(InstancePointerOf(SingltonInternals<Spacious>()).load() != nullptr, attempt.succeeded());
        EXPECT_EQ(registry.entries.size(), attempt.succeeded() ? 1U : 0U);

        EXPECT_EQ(Spacious::instance()->text.size(), 100U);
        EXPECT_EQ(registry.entries, std::vector<ISinglton*>{Spacious::instance()});
    });
}

TEST(RuntimeMemoryTest, AMutexWithANumberThatCouldNotBeMadeForLackOfMemoryTakesNoNumber) {
    SweepFaultsInChildren("a mutex with a number", [](FaultyAttempt& attempt) {
        attempt.run(Rules, [] { return WyIdMutex().getId() == 0; });

        EXPECT_EQ(IdsOut(*WyMutexIDAlloc::instance()), 0U);
        EXPECT_FALSE(IsHeld(FieldsOf(*WyMutexIDAlloc::instance()).lock));
        WyIdMutex next;
        EXPECT_EQ(next.getId(), 0U);
        EXPECT_EQ(next.lock(), 0);
        EXPECT_EQ(next.unlock(), 0);
    });
}

TEST(RuntimeMemoryTest, AnErrorThatCouldNotBeMadeForLackOfMemoryIsBadAllocInstead) {
    const std::string text(100, 'x');
    SweepFaults("an error", [&](FaultyAttempt& attempt) {
        attempt.run(Rules, [&] { return WyRuntimeError(text).what() == text; });
    });
}
