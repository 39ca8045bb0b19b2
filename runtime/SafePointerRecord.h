#pragma once

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

    WyMutex lock;         ///< guards `count` for the safe pointers; taken before the pool's lock
    uint64_t count;       ///< number of safe pointers that share the object; the pool sets it under its own lock
    const uint64_t index; ///< the record's slot in the pool
    void* address;        ///< the registered object; written under the pool's lock
};
