#include "runtime/SafePointer.h"
#include "runtime/SafePointerPool.h"
#include "runtime/SingletonRegistry.h"
#include "runtime/Singlton.h"
#include "runtime/WyIdMutex.h"
#include "runtime/WyMutexIDAlloc.h"
#include "runtime/WyRuntimeError.h"
#include "tests/memory/FaultSweep.h"
#include "tests/memory/PoolLocks.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/runtime/SingltonInternals.h"
#include "tests/support/AllocationFault.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

using MemoryPointer = SafePointer<std::string>;
PRIVATE_MEMBER(MemoryPointerRaw, MemoryPointer, std::string*, raw);
PRIVATE_MEMBER(MemoryPointerRecord, MemoryPointer, SafePointerRecord*, record);

namespace {

// All that the runtime allocates it asks operator new for.
const FaultRules Rules = {{"operator new", Ending::Threw, Ending::Threw}};

// The registry's clean-up at exit is registered with the C library, which takes memory for every 32nd of a process: where
// that is refused, all the rest goes on, and nothing is cleaned up at exit.
const FaultRules SingletonRules = {{"operator new", Ending::Threw, Ending::Threw},
                                   {"other", Ending::True, Ending::Threw}};

// An error that is thrown lies in memory for which the C++ runtime has a reserve; its text does not.
const FaultRules ErrorRules = {{"operator new", Ending::Threw, Ending::Threw}, {"other", Ending::True, Ending::Threw}};

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
    EXPECT_EQ(HeldLocks(pool), 0U);
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

// Leaves the C library no room for a further function to be called at exit.
void FillTheExitFunctions() {
    const AllocationFault counting(SIZE_MAX);
    const auto addUntilMemoryIsTaken = [] {
        const size_t before = AllocationFault::made();
        size_t added = 0;
        do {
            EXPECT_EQ(std::atexit([] {}), 0);
            ++added;
        } while (AllocationFault::made() == before);
        return added;
    };
    addUntilMemoryIsTaken();
    for (size_t room = addUntilMemoryIsTaken() - 1; room > 0; --room) {
        EXPECT_EQ(std::atexit([] {}), 0);
    }
}

SafePointerPool& Pool() {
    return *SafePointerPool::instance();
}

SafePointerRecord& RecordOf(const MemoryPointer& pointer) {
    return *(pointer.*Get(MemoryPointerRecord()));
}

/// Makes `pointer`, an empty one, look as if it shared `object` by `record`.
void Forge(MemoryPointer& pointer, std::string* object, SafePointerRecord* record) {
    pointer.*Get(MemoryPointerRaw()) = object;
    pointer.*Get(MemoryPointerRecord()) = record;
}

/// @return whether the action ends by WyRuntimeError with this text.
template <class Action>
bool Throws(const std::string& text, const Action& action) {
    try {
        action();
    } catch (const WyRuntimeError& error) {
        return error.what() == text;
    }
    return false;
}

/// The record's lock is the only one held. Releases it.
void ExpectOnlyTheLockOf(SafePointerRecord& record) {
    EXPECT_EQ(HeldLocks(Pool()), 1U);
    ASSERT_TRUE(IsHeld(record.lock));
    EXPECT_EQ(record.lock.unlock(), 0);
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
        attempt.run(SingletonRules, [] { return Spacious::instance() != nullptr; });

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

TEST(RuntimeMemoryTest, ASingletonIsMadeAlsoWhenItsCleanUpCouldNotBeRegisteredForLackOfMemory) {
    const ChildResult child = RunInChild([] {
        FillTheExitFunctions();
        {
            const AllocationFault fault(1);
            static_cast<void>(SingletonRegistry::instance());
            EXPECT_EQ(AllocationFault::refused().call, "other");
        }
        EXPECT_EQ(Spacious::instance()->text.size(), 100U);
        EXPECT_EQ(FieldsOf(SingletonRegistry::instance()).entries, std::vector<ISinglton*>{Spacious::instance()});
        if (testing::Test::HasFailure()) {
            std::exit(EXIT_FAILURE);
        }
    });
    EXPECT_TRUE(child.exitedWith(EXIT_SUCCESS)) << child.output;
}

TEST(RuntimeMemoryTest, AMutexWithANumberThatCouldNotBeMadeForLackOfMemoryTakesNoNumber) {
    SweepFaultsInChildren("a mutex with a number", [](FaultyAttempt& attempt) {
        attempt.run(SingletonRules, [] { return WyIdMutex().getId() == 0; });

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

TEST(RuntimeMemoryTest, AReportThatCouldNotBeMadeForLackOfMemoryIsBadAllocInsteadWithNoLockHeld) {
    std::string another = "another object";
    const struct {
        const char* message;
        std::function<void(MemoryPointer& live, MemoryPointer& empty)> commit;
    } misuses[] = {
        {"Construct from NULL original pointer",
         [](MemoryPointer&, MemoryPointer&) { const MemoryPointer pointer(static_cast<std::string*>(nullptr)); }},
        {"Construct from NULL <T>pointer",
         [](MemoryPointer&, MemoryPointer& empty) { const MemoryPointer copy(empty); }},
        {"Assigned NULL <T>pointer", [](MemoryPointer& live, MemoryPointer& empty) { live = empty; }},
        {"Use NULL pointer ->", [](MemoryPointer&, MemoryPointer& empty) { static_cast<void>(empty->size()); }},
        {"Already destructed 1",
         [&](MemoryPointer&, MemoryPointer& empty) {
             Forge(empty, &another, nullptr);
             const MemoryPointer copy(empty);
         }},
        {"Already destructed 2",
         [](MemoryPointer& live, MemoryPointer&) {
             MarkOf(RecordOf(live).lock) = 0;
             const MemoryPointer copy(live);
         }},
        {"Already destructed 3",
         [](MemoryPointer& live, MemoryPointer&) {
             RecordOf(live).count = 0;
             const MemoryPointer copy(live);
         }},
    };
    for (const auto& misuse : misuses) {
        const std::string text = std::string("SafePointer Report:") + typeid(std::string).name() + " " + misuse.message;
        SweepFaults(misuse.message, [&](FaultyAttempt& attempt) {
            MemoryPointer live(new std::string("the object"));
            MemoryPointer empty;
            const uint32_t mark = MarkOf(RecordOf(live).lock);
            testing::internal::CaptureStdout();

            attempt.run(ErrorRules, [&] { return Throws(text, [&] { misuse.commit(live, empty); }); });

            // Bad_alloc comes before the line, for want of the text, or behind it, for want of the exception's copy.
            const std::string printed = testing::internal::GetCapturedStdout();
            EXPECT_TRUE(printed == text + "\n" || (printed.empty() && attempt.threw())) << printed;
            Forge(empty, nullptr, nullptr);
            MarkOf(RecordOf(live).lock) = mark;
            RecordOf(live).count = 1;
            EXPECT_EQ(*live.operator->(), "the object");
            ExpectConsistent(Pool(), 128, 1);
            if (IsHeld(RecordOf(live).lock)) {
                static_cast<void>(RecordOf(live).lock.unlock()); // the test fails then, and must not wait
            }
            const MemoryPointer copy(live);
            EXPECT_EQ(RecordOf(live).count, 2U);
        });
        ExpectConsistent(Pool(), 128, 0);
    }
}

TEST(RuntimeMemoryTest, APointerThatDoesNotMatchItsRecordLeavesTheLockHeldAlsoWithoutMemoryForItsError) {
    std::string another = "another object";
    const struct {
        const char* message;
        void (*commit)(MemoryPointer& stale);
    } misuses[] = {
        {"not valid pointer in inc_reference ", [](MemoryPointer& stale) { const MemoryPointer copy(stale); }},
        {"not valid pointer in dec_reference",
         [](MemoryPointer& stale) {
             MemoryPointer released;
             Forge(released, stale.operator->(), &RecordOf(stale));
         }},
    };
    for (const auto& misuse : misuses) {
        const std::string text = misuse.message;
        SweepFaults(text, [&](FaultyAttempt& attempt) {
            const MemoryPointer live(new std::string("the object"));
            MemoryPointer stale;
            Forge(stale, &another, &RecordOf(live));

            attempt.run(ErrorRules, [&] { return Throws(text, [&] { misuse.commit(stale); }); });

            Forge(stale, nullptr, nullptr);
            EXPECT_EQ(RecordOf(live).count, 1U);
            ExpectOnlyTheLockOf(RecordOf(live));
            ExpectConsistent(Pool(), 128, 1);
        });
        ExpectConsistent(Pool(), 128, 0);
    }
}

TEST(RuntimeMemoryTest, ASecondReleaseOfARecordLeavesThePoolUsableAlsoWithoutMemoryForItsError) {
    SafePointerPool pool;
    int object = 0;
    SafePointerRecord* record = pool.acquireRecord(&object, "i");
    record->count = 0;
    pool.releaseRecord(record, "i");

    SweepFaults("releaseRecord", [&](FaultyAttempt& attempt) {
        attempt.run(ErrorRules, [&] {
            return Throws("double free poniter(0x00000000)", [&] { pool.releaseRecord(record, "i"); });
        });

        ExpectConsistent(pool, 128, 0);
        ASSERT_EQ(HeldLocks(pool), 0U) << "what follows would wait";
        DoARound(pool, 1);
        ASSERT_NE(record->address, nullptr) << "another record was taken";
        record->count = 0;
        pool.releaseRecord(record, "i");
    });
}

TEST(RuntimeMemoryTest, TheLastPointerOfAFreeRecordLeavesItsLockHeldAlsoWithoutMemoryForItsError) {
    ExpectConsistent(Pool(), 128, 0); // it is there: what is refused is not the memory for the pool
    SweepFaults("the last release", [](FaultyAttempt& attempt) {
        auto* object = new std::string("the object");
        SafePointerRecord* record = nullptr;
        char text[64];
        static_cast<void>(std::snprintf(text, sizeof text, "double free poniter(0x%08x)",
                                        static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object))));
        const std::string expected = text;

        attempt.run(ErrorRules, [&] {
            return Throws(expected, [&] {
                const MemoryPointer pointer(object);
                record = &RecordOf(pointer);
                FieldsOf(Pool()).usedBits[0] = 0;
            });
        });

        ExpectOnlyTheLockOf(*record);
        EXPECT_EQ(record->count, 0U);
        record->address = nullptr;
        ExpectConsistent(Pool(), 128, 0);
        const MemoryPointer next(new std::string("another"));
        ExpectConsistent(Pool(), 128, 1);
    });
}

TEST(RuntimeMemoryTest, AnExhaustedPoolIsAsBeforeAlsoWithoutMemoryForItsError) {
    constexpr size_t all = 20096;
    int anything = 0;
    for (size_t i = 0; i < all; ++i) {
        static_cast<void>(Pool().acquireRecord(&anything, "i"));
    }
    const std::string text = "too much safe poniter";

    SweepFaults(text, [&](FaultyAttempt& attempt) {
        auto owner = std::make_unique<std::string>("the object");

        attempt.run(ErrorRules, [&] { return Throws(text, [&] { const MemoryPointer pointer(owner.get()); }); });

        EXPECT_EQ(*owner, "the object");
        ExpectConsistent(Pool(), all, all);
        SafePointerRecord* last = FieldsOf(Pool()).records.back();
        last->count = 0;
        Pool().releaseRecord(last, "i");
        {
            const MemoryPointer pointer(owner.release());
            EXPECT_EQ(&RecordOf(pointer), last);
        }
        static_cast<void>(Pool().acquireRecord(&anything, "i"));
    });
}
