#pragma once

#include "runtime/Singlton.h"
#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <cstdint>
#include <memory>

/// Hands out process-unique 32-bit numbers, always the lowest free one, from a growing bitmap.
///
/// Owns:    the bitmap. Invariant: bit (id mod 32) of word (id / 32) is set exactly while id is taken.
/// Fails:   `allocId` with std::bad_alloc, and nothing has changed then.
/// Threads: any; every operation holds the allocator's own lock and no other.
class WyMutexIDAlloc : public Singlton<WyMutexIDAlloc> {
public:
    /// An allocator without any number taken. The process's own is reached through `instance()`.
    WyMutexIDAlloc() noexcept;
    ~WyMutexIDAlloc() override;

    /// @return the lowest number that is not taken, starting with 0. The bitmap grows by room for 320 numbers.
    uint32_t allocId() WY_EXCLUDES(lock);
    /// Gives a number back. Deliberately unchecked: `id` must come from `allocId` of this object. Giving back a free
    /// number changes nothing; one beyond the bitmap is undefined.
    void freeId(uint32_t id) noexcept WY_EXCLUDES(lock);

private:
    WyMutex lock;
    uint32_t wordCount WY_GUARDED_BY(lock);                ///< number of words in `words`
    std::unique_ptr<uint32_t[]> words WY_GUARDED_BY(lock); ///< the bitmap, null while wordCount is 0
};
