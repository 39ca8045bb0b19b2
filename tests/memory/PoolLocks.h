#pragma once

#include "runtime/SafePointerPool.h"
#include "runtime/SafePointerRecord.h"
#include "tests/runtime/RuntimeProbe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

/// @return how many locks of the pool are held: its own and those of its records.
inline size_t HeldLocks(SafePointerPool& pool) {
    const PoolFields fields = FieldsOf(pool);
    const auto ofRecords = std::count_if(fields.records.begin(), fields.records.end(),
                                         [](SafePointerRecord* record) { return IsHeld(record->lock); });
    return static_cast<size_t>(ofRecords) + (IsHeld(fields.lock) ? 1 : 0);
}

/// Expects that so many records are taken, and that nobody holds the lock of one or of the pool.
inline void ExpectRecords(size_t taken) {
    SafePointerPool& pool = *SafePointerPool::instance();
    EXPECT_EQ(RecordsOut(pool), taken);
    EXPECT_EQ(HeldLocks(pool), 0U);
}
