#pragma once

#include "runtime/SafePointerNameManager.h"
#include "runtime/SafePointerRecord.h"
#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The process-wide registry behind all safe pointers: a growing table of records and a bitmap of those in use.
///
/// Owns:    the records, which are reused and, while the pool lives, never returned to the heap. There are at most
///          20,096, so at most that many objects are held by safe pointers at once.
/// Fails:   with `WyRuntimeError`, or std::bad_alloc while it grows; the pool is unchanged and usable then.
/// Threads: any; every operation holds the pool's lock. Lock order: a record's lock, then the pool's. The pool takes no
///          record's lock itself.
class SafePointerPool {
public:
    /// @return the one pool, made on first use and deliberately never destroyed: safe pointers in static objects may
    ///         let go at any time during exit. Inline, since each new object asks twice.
    static SafePointerPool* instance() {
        static SafePointerPool* const pool = create();
        return pool;
    }

    /// An empty pool of 128 records. The process's own is reached through `instance()`.
    SafePointerPool();
    ~SafePointerPool();
    SafePointerPool(const SafePointerPool&) = delete;
    SafePointerPool& operator=(const SafePointerPool&) = delete;

    /// Takes a free record: its `address` becomes `address`, its `count` 1. The search starts in the bitmap word of the
    /// record given back last, goes to the end, then from the start; in each word the lowest free slot is taken.
    /// Deliberate: an address that is registered already is not looked for.
    /// @param typeName accepted and ignored.
    /// Throws `WyRuntimeError` "too much safe poniter" when all 20,096 records are taken.
    SafePointerRecord* acquireRecord(void* address, const char* typeName) WY_EXCLUDES(lock);

    /// Gives a record back: its `address` becomes null; its `count` is the caller's, who has brought it to 0.
    /// @param typeName accepted and ignored.
    /// Throws `WyRuntimeError` "double free poniter(0x%08x)", with the low 32 bits of the record's address, when the
    /// record is not taken.
    void releaseRecord(SafePointerRecord* record, const char* typeName) WY_EXCLUDES(lock);

private:
    // Out of line: `instance()` stands in a dozen places.
    [[gnu::noinline]] static SafePointerPool* create();
    size_t findFreeSlot() const noexcept WY_REQUIRES(lock);
    void grow() WY_REQUIRES(lock);

    std::vector<SafePointerRecord*> records WY_GUARDED_BY(lock); ///< entry i is the record whose index is i
    /// Bit i is set exactly while record i is taken; a word per 32 records.
    std::vector<uint32_t> usedBits WY_GUARDED_BY(lock);
    SafePointerNameManager names WY_GUARDED_BY(lock);
    WyMutex lock; ///< guards all of this, and a record's address and count while it is taken or given back
    uint64_t hint WY_GUARDED_BY(lock); ///< slot given back last
};
