#pragma once

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

/// Holds a `WyMutex` for the length of a scope, also when an exception leaves it.
///
/// It does not look at the results: a mutex that lost its mark protects nothing any more, and there is nobody to tell.
/// Not copied.
class WY_SCOPED_CAPABILITY WyMutexGuard {
public:
    explicit WyMutexGuard(WyMutex& guarded) noexcept WY_ACQUIRE(guarded) : mutex(guarded) {
        static_cast<void>(mutex.lock());
    }

    ~WyMutexGuard() WY_RELEASE() { static_cast<void>(mutex.unlock()); }

    WyMutexGuard(const WyMutexGuard&) = delete;
    WyMutexGuard& operator=(const WyMutexGuard&) = delete;

private:
    WyMutex& mutex;
};
