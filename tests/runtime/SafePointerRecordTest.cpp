#include "runtime/SafePointerRecord.h"

#include "tests/runtime/RuntimeProbe.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

static_assert(!std::is_copy_constructible_v<SafePointerRecord> && !std::is_copy_assignable_v<SafePointerRecord>);
static_assert(!std::is_move_constructible_v<SafePointerRecord>, "plain pointers to a record stay valid");
static_assert(std::is_const_v<decltype(SafePointerRecord::index)>, "a record keeps its slot");
static_assert(std::is_same_v<decltype(SafePointerRecord::count), uint64_t>);
static_assert(std::is_same_v<decltype(SafePointerRecord::index), const uint64_t>);
static_assert(std::is_same_v<decltype(SafePointerRecord::address), void*>);

TEST(SafePointerRecordTest, LockCountIndexAndAddressStandInThisOrder) {
    SafePointerRecord record(0);
    constexpr size_t Count = FirstPlaceFor<uint64_t>(sizeof(WyMutex));

    EXPECT_EQ(PlaceOf(record, record.lock), 0U);
    EXPECT_EQ(PlaceOf(record, record.count), Count);
    EXPECT_EQ(PlaceOf(record, record.index), Count + sizeof(uint64_t));
    EXPECT_EQ(PlaceOf(record, record.address), Count + 2 * sizeof(uint64_t));
    record.lock.destroy();
}

TEST(SafePointerRecordTest, ANewRecordIsFreeAndKnowsItsSlot) {
    SafePointerRecord record(20095);

    EXPECT_EQ(record.count, 0U);
    EXPECT_EQ(record.index, 20095U);
    EXPECT_EQ(record.address, nullptr);
    EXPECT_EQ(MarkOf(record.lock), 0x55aa55aaU);
    EXPECT_FALSE(IsHeld(record.lock));
    record.lock.destroy();
}
