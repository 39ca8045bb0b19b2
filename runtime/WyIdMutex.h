#pragma once

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <cstdint>
#include <memory>

/// A mutex with a number that no other live `WyIdMutex` of the process carries.
///
/// Owns:    its mutex, and its number until it is destroyed.
/// Fails:   the constructor with std::bad_alloc; nothing is kept then.
/// Threads: `lock` and `unlock` from any. None may be made or destroyed once exit-time clean-up has begun: the
///          allocator of the numbers is gone then.
class WY_CAPABILITY("mutex") WyIdMutex {
public:
    WyIdMutex();
    ~WyIdMutex();
    WyIdMutex(const WyIdMutex&) = delete;
    WyIdMutex& operator=(const WyIdMutex&) = delete;

    /// As `WyMutex::lock` and `WyMutex::unlock`.
    int32_t lock() noexcept WY_ACQUIRE() { return mutex->lock(); }

    int32_t unlock() noexcept WY_RELEASE() { return mutex->unlock(); }

    uint32_t getId() const noexcept { return id; }

private:
    std::unique_ptr<WyMutex> mutex;
    uint32_t id;
};
