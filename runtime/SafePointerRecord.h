#pragma once

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <cstdint>

/// What all safe pointers to one object share: the count, and the address that shows whether they still mean the
/// object.
///
/// Made by `SafePointerPool` only, never moved, and destroyed only with a pool of one's own: a plain pointer to one of
/// the process's pool stays valid while the process runs. A record is free (count 0, address null) or taken (address
/// set, count at least 1).
struct SafePointerRecord {
    explicit SafePointerRecord(uint64_t slot) noexcept : count(0), index(slot), address(nullptr) {}

    SafePointerRecord(const SafePointerRecord&) = delete;
    SafePointerRecord& operator=(const SafePointerRecord&) = delete;

    /// Guards `count` for the safe pointers; taken before the pool's lock.
    WyMutex lock;
    /// Number of safe pointers that share the object; the pool sets it, on a free record, under its own lock.
    uint64_t count WY_GUARDED_BY(lock);
    const uint64_t index; ///< the record's slot in the pool
    /// The registered object. Written under the pool's lock and read under this record's, which no attribute can say.
    void* address;
};
