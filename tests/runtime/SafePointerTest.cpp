#include "runtime/SafePointer.h"

#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

/// What the pointers of these tests point to. It stands in the global namespace, as the types of the product do, since
/// a namespace would change its name in the reports. Counts its objects.
class SafePointerTestObject {
public:
    explicit SafePointerTestObject(int number = 0) : value(number) { ++alive; }

    ~SafePointerTestObject() {
        --alive;
        ++deleted;
    }

    SafePointerTestObject(const SafePointerTestObject&) = delete;
    SafePointerTestObject& operator=(const SafePointerTestObject&) = delete;

    int value;
    SafePointer<SafePointerTestObject> child;

    static int alive;
    static int deleted;
};

int SafePointerTestObject::alive = 0;
int SafePointerTestObject::deleted = 0;

/// An object that may be deleted twice: its storage stays, and its deletion puts a new object into it.
class SafePointerTestPhoenix {
public:
    static void operator delete(void* memory) {
        ++deleted;
        ::new (memory) SafePointerTestPhoenix;
    }

    static int deleted;
};

int SafePointerTestPhoenix::deleted = 0;

using Object = SafePointerTestObject;
using Pointer = SafePointer<SafePointerTestObject>;

PRIVATE_MEMBER(SafePointerTestRaw, Pointer, SafePointerTestObject*, raw);
PRIVATE_MEMBER(SafePointerTestRecord, Pointer, SafePointerRecord*, record);
PRIVATE_MEMBER(SafePointerTestPhoenixRecord, SafePointer<SafePointerTestPhoenix>, SafePointerRecord*, record);

static_assert(std::is_base_of_v<BaseSafePointer, Pointer>);
static_assert(std::has_virtual_destructor_v<Pointer>);
static_assert(std::is_destructible_v<Pointer> && !std::is_nothrow_destructible_v<Pointer>,
              "a release checks its record and reports by exception: noexcept(false)");
static_assert(!std::is_convertible_v<Object*, Pointer>, "an object is not taken over by accident");
static_assert(!std::is_assignable_v<Pointer&, Object*>);
static_assert(!std::is_constructible_v<Pointer, const Object*>);
static_assert(std::is_copy_constructible_v<Pointer> && std::is_copy_assignable_v<Pointer>);
static_assert(std::is_same_v<decltype(std::declval<Pointer&>() = std::declval<const Pointer&>()), Pointer&>);
static_assert(sizeof(Pointer) == 3 * sizeof(void*), "the virtual operations, the object and the record");

namespace {

Object*& RawOf(Pointer& pointer) {
    return pointer.*Get(SafePointerTestRaw());
}

SafePointerRecord*& RecordOf(Pointer& pointer) {
    return pointer.*Get(SafePointerTestRecord());
}

SafePointerPool& Pool() {
    return *SafePointerPool::instance();
}

/// Makes `pointer` look like `raw` and `record` without taking a share, and forgets both at the end of the scope.
class Forged {
public:
    Forged(Pointer& target, Object* raw, SafePointerRecord* record) : pointer(target) {
        RawOf(pointer) = raw;
        RecordOf(pointer) = record;
    }

    ~Forged() {
        RawOf(pointer) = nullptr;
        RecordOf(pointer) = nullptr;
    }

    Forged(const Forged&) = delete;
    Forged& operator=(const Forged&) = delete;

private:
    Pointer& pointer;
};

struct Thrown {
    std::string printed; ///< on standard output
    std::string message; ///< of the WyRuntimeError, or "nothing was thrown"
};

template <class Action>
Thrown Misuse(const Action& action) {
    Thrown thrown{"", "nothing was thrown"};
    testing::internal::CaptureStdout();
    try {
        action();
    } catch (const WyRuntimeError& error) {
        thrown.message = error.what();
    }
    thrown.printed = testing::internal::GetCapturedStdout();
    return thrown;
}

void Copy(const Pointer& from) {
    const Pointer copy(from);
    static_cast<void>(copy);
}

void Assign(const Pointer& from) {
    Pointer target;
    target = from;
}

/// Every test ends with no object alive and no record out.
void ExpectNothingLeft() {
    EXPECT_EQ(Object::alive, 0);
    EXPECT_EQ(RecordsOut(Pool()), 0U);
    const auto& records = FieldsOf(Pool()).records;
    EXPECT_TRUE(std::all_of(records.begin(), records.end(),
                            [](SafePointerRecord* r) { return r->count == 0 && r->address == nullptr; }));
    EXPECT_TRUE(std::none_of(records.begin(), records.end(), [](SafePointerRecord* r) { return IsHeld(r->lock); }));
    EXPECT_FALSE(IsHeld(FieldsOf(Pool()).lock));
}

/// The error was thrown and not printed, and left the lock of a record with one pointer held. Releases that lock.
void ExpectUnprintedWithTheLockHeld(const Thrown& thrown, const char* message, SafePointerRecord& record) {
    EXPECT_EQ(thrown.message, message);
    EXPECT_EQ(thrown.printed, "");
    EXPECT_TRUE(IsHeld(record.lock));
    EXPECT_EQ(record.count, 1U);
    EXPECT_EQ(record.lock.unlock(), 0);
}

class SafePointerTest : public testing::Test {
protected:
    SafePointerTest() { Object::deleted = 0; }

    ~SafePointerTest() override { ExpectNothingLeft(); }
};

/// A misuse that is printed and thrown with one text.
struct ReportedMisuse {
    const char* name;
    const char* message;
    void (*commit)();
};

[[maybe_unused]] void PrintTo(const ReportedMisuse& misuse, std::ostream* stream) {
    *stream << misuse.message;
}

class SafePointerReportTest : public testing::TestWithParam<ReportedMisuse> {
protected:
    ~SafePointerReportTest() override { ExpectNothingLeft(); }
};

/// Uses a live pointer whose record's lock lost its mark.
void WithAnUnmarkedLock(void (*use)(const Pointer&)) {
    Pointer live(new Object);
    MarkOf(RecordOf(live)->lock) = 0;
    try {
        use(live);
    } catch (const WyRuntimeError&) {
        MarkOf(RecordOf(live)->lock) = WyMutex::InitialisedMark;
        EXPECT_EQ(RecordOf(live)->count, 1U);
        throw;
    }
    MarkOf(RecordOf(live)->lock) = WyMutex::InitialisedMark;
}

/// Uses a pointer whose record still names its object, although nobody shares it any more.
void WithACountOfZero(void (*use)(const Pointer&)) {
    Pointer live(new Object);
    RecordOf(live)->count = 0;
    try {
        use(live);
    } catch (const WyRuntimeError&) {
        EXPECT_FALSE(IsHeld(RecordOf(live)->lock)) << "unlocked before it is reported";
        EXPECT_EQ(RecordOf(live)->count, 0U);
        RecordOf(live)->count = 1;
        throw;
    }
    RecordOf(live)->count = 1;
}

void WithoutARecord(void (*use)(const Pointer&)) {
    Object object;
    Pointer pointer;
    const Forged forged(pointer, &object, nullptr);
    use(pointer);
}

/// Lets `pointer` go of its object as an assignment does that fails after it: by a source that does not match its
/// record. The last pointer to an object is spent then.
void LetGoByAFailedAssignment(Pointer& pointer) {
    Pointer live(new Object);
    Object another;
    Pointer source;
    const Forged forged(source, &another, RecordOf(live));
    EXPECT_THROW(pointer = source, WyRuntimeError);
    EXPECT_EQ(RecordOf(live)->lock.unlock(), 0);
}

void WithASpentPointer(void (*use)(const Pointer&)) {
    Pointer spent(new Object);
    LetGoByAFailedAssignment(spent);
    use(spent);
}

const ReportedMisuse ReportedMisuses[] = {
    {"ConstructionFromANullRawPointer", "Construct from NULL original pointer",
     [] { const Pointer pointer(static_cast<Object*>(nullptr)); }},
    {"CopyOfAnEmptyPointer", "Construct from NULL <T>pointer", [] { Copy(Pointer()); }},
    {"AssignmentFromAnEmptyPointer", "Assigned NULL <T>pointer", [] { Assign(Pointer()); }},
    {"AssignmentFromAnEmptyPointerToALiveOne", "Assigned NULL <T>pointer",
     [] {
         Pointer live(new Object(7));
         try {
             live = Pointer();
         } catch (const WyRuntimeError&) {
             EXPECT_EQ(live->value, 7) << "nothing was let go";
             throw;
         }
     }},
    {"MemberAccessThroughAnEmptyPointer", "Use NULL pointer ->", [] { static_cast<void>(Pointer()->value); }},
    {"CopyOfASpentPointer", "Construct from NULL <T>pointer", [] { WithASpentPointer(Copy); }},
    {"AssignmentFromASpentPointer", "Assigned NULL <T>pointer", [] { WithASpentPointer(Assign); }},
    {"MemberAccessThroughASpentPointer", "Use NULL pointer ->",
     [] { WithASpentPointer([](const Pointer& spent) { static_cast<void>(spent->value); }); }},
    {"CopyOfAPointerWithoutARecord", "Already destructed 1", [] { WithoutARecord(Copy); }},
    {"AssignmentFromAPointerWithoutARecord", "Already destructed 1", [] { WithoutARecord(Assign); }},
    {"CopyWhenTheRecordsLockFails", "Already destructed 2", [] { WithAnUnmarkedLock(Copy); }},
    {"AssignmentWhenTheRecordsLockFails", "Already destructed 2", [] { WithAnUnmarkedLock(Assign); }},
    {"CopyOfAPointerWhoseRecordsCountIsZero", "Already destructed 3", [] { WithACountOfZero(Copy); }},
    {"AssignmentFromAPointerWhoseRecordsCountIsZero", "Already destructed 3", [] { WithACountOfZero(Assign); }},
};

} // namespace

TEST_P(SafePointerReportTest, IsPrintedAndThrownWithOneText) {
    const std::string text = std::string("SafePointer Report:21SafePointerTestObject ") + GetParam().message;

    const Thrown thrown = Misuse(GetParam().commit);

    EXPECT_EQ(thrown.printed, text + "\n");
    EXPECT_EQ(thrown.message, text);
}

INSTANTIATE_TEST_SUITE_P(Misuse, SafePointerReportTest, testing::ValuesIn(ReportedMisuses),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(SafePointerTest, TheTypeNameInTheReportsIsThePlatformsLengthPrefixedOne) {
    EXPECT_STREQ(typeid(Object).name(), "21SafePointerTestObject");
    EXPECT_EQ(Misuse([] { static_cast<void>(Pointer()->value); }).message,
              std::string("SafePointer Report:") + typeid(Object).name() + " Use NULL pointer ->");
}

TEST_F(SafePointerTest, RawAndRecordFollowTheBaseInThisOrder) {
    const Pointer pointer;

    EXPECT_EQ(OffsetOf(pointer, Get(SafePointerTestRaw())), sizeof(BaseSafePointer));
    EXPECT_EQ(OffsetOf(pointer, Get(SafePointerTestRecord())), sizeof(BaseSafePointer) + sizeof(Object*));
}

TEST_F(SafePointerTest, ADefaultConstructedPointerTakesNoRecordAndItsEndDoesNothing) {
    const Thrown thrown = Misuse([] {
        Pointer pointer;
        EXPECT_EQ(RawOf(pointer), nullptr);
        EXPECT_EQ(RecordOf(pointer), nullptr);
        EXPECT_EQ(RecordsOut(Pool()), 0U);
    });

    EXPECT_EQ(thrown.message, "nothing was thrown");
    EXPECT_EQ(thrown.printed, "");
}

TEST_F(SafePointerTest, APointerFromARawOneHasARecordWithACountOfOne) {
    auto* object = new Object;

    Pointer pointer(object);

    EXPECT_EQ(RawOf(pointer), object);
    ASSERT_NE(RecordOf(pointer), nullptr);
    EXPECT_EQ(RecordOf(pointer)->address, object);
    EXPECT_EQ(RecordOf(pointer)->count, 1U);
    EXPECT_EQ(RecordsOut(Pool()), 1U);
    EXPECT_FALSE(IsHeld(RecordOf(pointer)->lock));
}

TEST_F(SafePointerTest, MemberAccessReachesTheObjectAlsoThroughAConstPointer) {
    auto* object = new Object(5);
    const Pointer pointer(object);

    pointer->value += 1;

    EXPECT_EQ(pointer.operator->(), object);
    EXPECT_EQ(object->value, 6);
}

TEST_F(SafePointerTest, TheEndOfTheLastPointerDeletesTheObjectAndGivesTheRecordBack) {
    SafePointerRecord* record = nullptr;
    {
        Pointer pointer(new Object);
        record = RecordOf(pointer);
    }

    EXPECT_EQ(Object::deleted, 1);
    EXPECT_EQ(record->count, 0U);
    EXPECT_EQ(record->address, nullptr);
    EXPECT_FALSE(IsHeld(record->lock));
}

TEST_F(SafePointerTest, APointerIsReleasedThroughItsBaseToo) {
    std::unique_ptr<BaseSafePointer> pointer = std::make_unique<Pointer>(new Object);

    pointer.reset();

    EXPECT_EQ(Object::deleted, 1);
}

TEST_F(SafePointerTest, ThreePointersShareOneRecordAndDestroyedInAnyOrderTheLastDeletesTheObjectOnce) {
    std::array<size_t, 3> order{0, 1, 2};
    do {
        Object::deleted = 0;
        std::array<std::unique_ptr<Pointer>, 3> pointers;
        pointers[0] = std::make_unique<Pointer>(new Object);
        pointers[1] = std::make_unique<Pointer>(*pointers[0]);
        pointers[2] = std::make_unique<Pointer>(*pointers[1]);
        const SafePointerRecord* record = RecordOf(*pointers[0]);
        EXPECT_EQ(RecordOf(*pointers[1]), record);
        EXPECT_EQ(RecordOf(*pointers[2]), record);
        EXPECT_EQ(RawOf(*pointers[2]), RawOf(*pointers[0]));
        EXPECT_EQ(RecordsOut(Pool()), 1U);

        for (size_t left = 3; left > 0; --left) {
            EXPECT_EQ(record->count, left);
            EXPECT_EQ(Object::deleted, 0);
            pointers[order[3 - left]].reset();
        }

        EXPECT_EQ(Object::deleted, 1) << order[0] << order[1] << order[2];
        EXPECT_EQ(record->count, 0U);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(SafePointerTest, AMoveIsACopy) {
    Pointer source(new Object);

    Pointer target(std::move(source));
    Pointer assigned;
    assigned = std::move(source);

    EXPECT_EQ(RawOf(source), RawOf(target)); // NOLINT(bugprone-use-after-move): that is what is tested
    EXPECT_EQ(RecordOf(target)->count, 3U);
}

TEST_F(SafePointerTest, SelfAssignmentChangesNothingEvenWhenThePointerIsEmpty) {
    Pointer live(new Object);
    Pointer empty;
    Pointer spent(new Object);
    LetGoByAFailedAssignment(spent);

    for (Pointer* pointer : {&live, &empty, &spent}) {
        const Object* raw = RawOf(*pointer);
        const SafePointerRecord* record = RecordOf(*pointer);
        const Thrown thrown = Misuse([&] {
            Pointer& same = *pointer;
            EXPECT_EQ(&(*pointer = same), pointer);
        });

        EXPECT_EQ(thrown.message, "nothing was thrown");
        EXPECT_EQ(thrown.printed, "");
        EXPECT_EQ(RawOf(*pointer), raw);
        EXPECT_EQ(RecordOf(*pointer), record);
    }
    EXPECT_EQ(RecordOf(live)->count, 1U);
}

TEST_F(SafePointerTest, AssignmentLetsTheOldObjectGoAndSharesTheNewOne) {
    Pointer target(new Object(1));
    Pointer source(new Object(2));
    const SafePointerRecord* old = RecordOf(target);

    EXPECT_EQ(&(target = source), &target);

    EXPECT_EQ(target->value, 2);
    EXPECT_EQ(RecordOf(target), RecordOf(source));
    EXPECT_EQ(RecordOf(source)->count, 2U);
    EXPECT_EQ(Object::deleted, 1);
    EXPECT_EQ(old->address, nullptr);
}

TEST_F(SafePointerTest, AnEmptyPointerAndASpentOneCanBeAssignedTo) {
    Pointer source(new Object(3));
    Pointer empty;
    Pointer spent(new Object);
    LetGoByAFailedAssignment(spent);

    empty = source;
    spent = source;

    EXPECT_EQ(empty->value, 3);
    EXPECT_EQ(spent->value, 3);
    EXPECT_EQ(RecordOf(source)->count, 3U);
}

TEST_F(SafePointerTest, AssignmentBetweenSharersLeavesTheCountDownByOneFirstThenUpByOne) {
    Pointer first(new Object);
    Pointer second(first);
    SafePointerRecord* record = RecordOf(first);
    std::vector<uint64_t> countsAtTheLocks;
    {
        const MutexObserver observer(
            [&](pthread_mutex_t* which) {
                if (which == &PthreadMutexOf(record->lock)) {
                    countsAtTheLocks.push_back(record->count);
                }
            },
            nullptr);

        first = second;
    }

    EXPECT_EQ(record->count, 2U);
    EXPECT_EQ(countsAtTheLocks, (std::vector<uint64_t>{2, 1}));
    EXPECT_EQ(RawOf(first), RawOf(second));
}

TEST_F(SafePointerTest, WhenSharingFailsTheLastOfTheOldObjectIsSpentAndItsEndSilent) {
    Pointer pointer(new Object);
    const SafePointerRecord* record = RecordOf(pointer);
    Object::deleted = 0;

    LetGoByAFailedAssignment(pointer); // deletes an object of its own and one on its stack, too

    EXPECT_EQ(Object::deleted, 3);
    EXPECT_EQ(RawOf(pointer), nullptr);
    EXPECT_EQ(RecordOf(pointer), record) << "only raw is cleared";
    EXPECT_EQ(record->count, 0U);
}

TEST_F(SafePointerTest, WhenSharingFailsASharerOfTheOldObjectHasLetGoAllTheSame) {
    Pointer first(new Object);
    Pointer second(first);

    LetGoByAFailedAssignment(second);

    EXPECT_EQ(RawOf(second), RawOf(first)) << "as the release left it";
    EXPECT_EQ(RecordOf(first)->count, 1U);
    RawOf(second) = nullptr; // or its end would let go a second time
}

TEST_F(SafePointerTest, TwoPointersMadeFromOneAddressTakeTwoRecordsAndEachDeletesTheObject) {
    SafePointerTestPhoenix::deleted = 0;
    alignas(SafePointerTestPhoenix) std::byte storage[sizeof(SafePointerTestPhoenix)];
    auto* object = ::new (static_cast<void*>(storage)) SafePointerTestPhoenix;
    {
        SafePointer<SafePointerTestPhoenix> first(object);
        SafePointer<SafePointerTestPhoenix> second(object);
        const SafePointerRecord* recordOfFirst = first.*Get(SafePointerTestPhoenixRecord());
        const SafePointerRecord* recordOfSecond = second.*Get(SafePointerTestPhoenixRecord());
        EXPECT_NE(recordOfFirst, recordOfSecond);
        EXPECT_EQ(recordOfFirst->count, 1U);
        EXPECT_EQ(recordOfSecond->count, 1U);
        EXPECT_EQ(RecordsOut(Pool()), 2U);
    }

    EXPECT_EQ(SafePointerTestPhoenix::deleted, 2);
}

TEST_F(SafePointerTest, ACopyThatDoesNotMatchItsRecordThrowsUnprintedWithTheRecordsLockHeld) {
    Pointer live(new Object);
    Object another;
    Pointer source;
    const Forged forged(source, &another, RecordOf(live));

    const Thrown thrown = Misuse([&] { Copy(source); });

    ExpectUnprintedWithTheLockHeld(thrown, "not valid pointer in inc_reference ", *RecordOf(live));
}

TEST_F(SafePointerTest, AnAssignmentFromAPointerThatDoesNotMatchItsRecordThrowsUnprintedWithTheRecordsLockHeld) {
    Pointer live(new Object);
    Object another;
    Pointer source;
    const Forged forged(source, &another, RecordOf(live));

    const Thrown thrown = Misuse([&] { Assign(source); });

    ExpectUnprintedWithTheLockHeld(thrown, "not valid pointer in inc_reference ", *RecordOf(live));
}

TEST_F(SafePointerTest, TheEndOfAPointerThatDoesNotMatchItsRecordThrowsUnprintedWithTheRecordsLockHeld) {
    Pointer live(new Object);
    Object another;

    const Thrown thrown = Misuse([&] {
        Pointer stale;
        RawOf(stale) = &another;
        RecordOf(stale) = RecordOf(live);
    });

    ExpectUnprintedWithTheLockHeld(thrown, "not valid pointer in dec_reference", *RecordOf(live));
}

TEST_F(SafePointerTest, AnAssignmentToAPointerThatDoesNotMatchItsRecordThrowsUnprintedWithTheRecordsLockHeld) {
    Pointer live(new Object);
    Pointer source(new Object);
    Object another;
    Pointer stale;
    const Forged forged(stale, &another, RecordOf(live));

    const Thrown thrown = Misuse([&] { stale = source; });

    ExpectUnprintedWithTheLockHeld(thrown, "not valid pointer in dec_reference", *RecordOf(live));
    EXPECT_EQ(RecordOf(source)->count, 1U) << "it was not shared";
}

TEST_F(SafePointerTest, APointerToADeletedObjectIsRefusedAfterItsRecordWentToAnother) {
    auto first = std::make_unique<Pointer>(new Object);
    auto* other = new Object; // before the first is gone, so that it cannot take its address
    Object* stale = RawOf(*first);
    SafePointerRecord* record = RecordOf(*first);
    first.reset();
    Pointer second(other);
    ASSERT_EQ(RecordOf(second), record);
    Pointer source;
    const Forged forged(source, stale, record);

    const Thrown thrown = Misuse([&] { Copy(source); });

    EXPECT_EQ(thrown.message, "not valid pointer in inc_reference ");
    EXPECT_EQ(record->count, 1U);
    EXPECT_EQ(record->lock.unlock(), 0);
}

TEST_F(SafePointerTest, APointerToADeletedObjectIsRefusedWhileItsRecordIsFree) {
    auto first = std::make_unique<Pointer>(new Object);
    Object* stale = RawOf(*first);
    SafePointerRecord* record = RecordOf(*first);
    first.reset();
    Pointer source;
    const Forged forged(source, stale, record);

    const Thrown thrown = Misuse([&] { Copy(source); });

    EXPECT_EQ(thrown.message, "not valid pointer in inc_reference ");
    EXPECT_EQ(record->lock.unlock(), 0);
}

TEST_F(SafePointerTest, TheLastReleaseOfARecordWhoseSlotIsFreeThrowsDoubleFreeUnprintedWithTheRecordsLockHeld) {
    SafePointerRecord* record = nullptr;
    uint32_t low = 0;

    const Thrown thrown = Misuse([&] {
        auto* object = new Object;
        const Pointer doomed(object);
        record = RecordOf(const_cast<Pointer&>(doomed));
        FieldsOf(Pool()).usedBits[0] = 0;
        low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object));
    });

    char expected[64];
    static_cast<void>(std::snprintf(expected, sizeof expected, "double free poniter(0x%08x)", low));
    EXPECT_EQ(thrown.message, expected);
    EXPECT_EQ(thrown.printed, "");
    EXPECT_EQ(Object::deleted, 1) << "the object was let go before the slot was looked at";
    EXPECT_TRUE(IsHeld(record->lock)) << "the error comes before the record is unlocked";
    record->address = nullptr;
    EXPECT_EQ(record->lock.unlock(), 0);
}

TEST_F(SafePointerTest, WithAllRecordsTakenConstructionThrowsUnprintedAndTheObjectStaysTheCallers) {
    int anything = 0;
    std::vector<SafePointerRecord*> taken;
    for (size_t i = 0; i < 20096; ++i) {
        taken.push_back(Pool().acquireRecord(&anything, ""));
    }
    auto object = std::make_unique<Object>();

    const Thrown thrown = Misuse([&] { const Pointer pointer(object.get()); });

    EXPECT_EQ(thrown.message, "too much safe poniter");
    EXPECT_EQ(thrown.printed, "");
    EXPECT_EQ(Object::alive, 1);
    for (SafePointerRecord* record : taken) {
        record->count = 0;
        Pool().releaseRecord(record, "");
    }
    const Pointer pointer(object.release());
    EXPECT_EQ(RecordsOut(Pool()), 1U);
}

TEST_F(SafePointerTest, WithoutMemoryForMoreRecordsConstructionThrowsAndTheObjectStaysTheCallers) {
    ASSERT_EQ(FieldsOf(Pool()).records.size(), 128U) << "each test has a process of its own";
    std::vector<Pointer> pointers;
    for (int i = 0; i < 128; ++i) {
        pointers.emplace_back(new Object(i));
    }
    auto object = std::make_unique<Object>(128);
    {
        const FailingAllocation failing(0);
        EXPECT_THROW(const Pointer pointer(object.get()), std::bad_alloc);
    }

    EXPECT_EQ(Object::alive, 129);
    const Pointer pointer(object.release());
    EXPECT_EQ(pointer->value, 128);
}

TEST_F(SafePointerTest, AReleaseHappensAlsoWhenTheRecordsLockFails) {
    SafePointerRecord* record = nullptr;
    {
        Pointer pointer(new Object);
        record = RecordOf(pointer);
        MarkOf(record->lock) = 0;
    }

    EXPECT_EQ(Object::deleted, 1);
    EXPECT_EQ(record->count, 0U);
    EXPECT_EQ(RecordsOut(Pool()), 0U);
    MarkOf(record->lock) = WyMutex::InitialisedMark;
}

TEST_F(SafePointerTest, TheLastReleaseTakesTheRecordsLockFirstAndHoldsItWhileThePoolTakesItsOwn) {
    std::vector<pthread_mutex_t*> locked;
    pthread_mutex_t* recordLock = nullptr;
    pthread_mutex_t* poolLock = &PthreadMutexOf(FieldsOf(Pool()).lock);
    bool recordHeld = false;
    {
        auto pointer = std::make_unique<Pointer>(new Object);
        SafePointerRecord* record = RecordOf(*pointer);
        recordLock = &PthreadMutexOf(record->lock);
        const MutexObserver observer(
            [&](pthread_mutex_t* which) {
                locked.push_back(which);
                if (which == poolLock) {
                    recordHeld = IsHeld(record->lock);
                }
            },
            nullptr);

        pointer.reset();
    }

    EXPECT_EQ(locked, (std::vector<pthread_mutex_t*>{recordLock, poolLock}));
    EXPECT_TRUE(recordHeld);
}

TEST_F(SafePointerTest, ACopyAndAReleaseThatIsNotTheLastTakeTheRecordsLockOnceEachAndAllocateNothing) {
    Pointer source(new Object);
    std::vector<pthread_mutex_t*> locked;
    locked.reserve(10);
    bool allocated = false;
    {
        const MutexObserver observer([&](pthread_mutex_t* which) { locked.push_back(which); }, nullptr);
        const FailingAllocation failing(0);
        { const Pointer copy(source); }
        allocated = FailingAllocation::happened();
    }

    EXPECT_EQ(locked, std::vector<pthread_mutex_t*>(2, &PthreadMutexOf(RecordOf(source)->lock)));
    EXPECT_FALSE(allocated);
}

TEST_F(SafePointerTest, AVectorThatGrowsCopiesItsPointers) {
    Pointer source(new Object);
    SafePointerRecord* record = RecordOf(source);
    std::vector<Pointer> pointers;
    pointers.reserve(2);
    pointers.push_back(source);
    pointers.push_back(source);
    ASSERT_EQ(pointers.capacity(), 2U);
    std::vector<uint64_t> countsAtTheLocks;
    {
        const MutexObserver observer(
            [&](pthread_mutex_t* which) {
                if (which == &PthreadMutexOf(record->lock)) {
                    countsAtTheLocks.push_back(record->count);
                }
            },
            nullptr);

        pointers.push_back(source);
    }

    // One share for the new element, one for each copy of an old one, then the old ones let go.
    EXPECT_EQ(countsAtTheLocks, (std::vector<uint64_t>{3, 4, 5, 6, 5}));
    EXPECT_EQ(record->count, 4U);
    for (Pointer& pointer : pointers) {
        EXPECT_EQ(RawOf(pointer), RawOf(source));
    }
    EXPECT_EQ(Object::deleted, 0);
}

TEST_F(SafePointerTest, AnObjectMayHoldPointersItself) {
    {
        const Pointer root(new Object(0));
        Pointer last = root;
        for (int i = 1; i < 10; ++i) {
            const Pointer child(new Object(i));
            last->child = child;
            last = child;
        }
        EXPECT_EQ(Object::alive, 10);
    }

    EXPECT_EQ(Object::deleted, 10);
}

TEST_F(SafePointerTest, AnUncaughtMisuseEndsTheProcessByAbortAndItsReportReachesThePipe) {
    const ChildResult result = RunInChild([] { static_cast<void>(Pointer()->value); });

    EXPECT_TRUE(result.killedBy(SIGABRT)) << result.status;
    EXPECT_EQ(result.output, "SafePointer Report:21SafePointerTestObject Use NULL pointer ->\n");
}

TEST_F(SafePointerTest, AnUncaughtErrorOfAnUnprintedKindEndsTheProcessByAbortWithoutALine) {
    const ChildResult result = RunInChild([] {
        static Pointer* const stale = new Pointer(new Object); // its end would wait for the lock that stays held
        RawOf(*stale) += 1;
        Copy(*stale);
    });

    EXPECT_TRUE(result.killedBy(SIGABRT)) << result.status;
    EXPECT_EQ(result.output, "");
}

TEST_F(SafePointerTest, APointerInAStaticObjectMayLetGoDuringExit) {
    const ChildResult result = RunInChild([] {
        struct Report {
            ~Report() { std::printf("%d alive, %zu out\n", Object::alive, RecordsOut(Pool())); }
        };
        static const Report report; // ends after the pointer, both after anything that the pool might have registered
        static Pointer pointer;
        static_cast<void>(report);
        pointer = Pointer(new Object);
    });

    EXPECT_TRUE(result.exitedWith(0)) << result.status;
    EXPECT_EQ(result.output, "0 alive, 0 out\n");
}
