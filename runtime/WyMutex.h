#pragma once

#include "runtime/ThreadSafety.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>

/// A pthread mutex with default attributes (not recursive) that knows whether it has been initialised.
///
/// Owns:    the pthread mutex, until `destroy`. There is no destructor of its own: deliberately, every owner's
///          destructor calls `destroy`, and what has no such owner is never destroyed.
/// Fails:   by result: 0, -1 or -2. Nothing is thrown or printed; the results of the pthread calls are not looked at.
/// Threads: `lock` and `unlock` from any; `init` and `destroy` from one, while nobody else uses the mutex. Locking
///          twice from one thread blocks for good.
///
/// Clang's analysis of what is locked takes every `lock` for one that holds the mutex afterwards and every `unlock` for
/// one that releases it. It can follow a result to one meaning only, and -2 from `lock` has two, with the mutex held and
/// without; nor do the runtime's own callers look at it, but for one.
class WY_CAPABILITY("mutex") WyMutex {
public:
    /// What `mark` holds while the mutex is initialised; anything else means that it is not.
    static constexpr uint32_t InitialisedMark = 0x55aa55aa;

    WyMutex() noexcept;
    WyMutex(const WyMutex&) = delete;
    WyMutex& operator=(const WyMutex&) = delete;

    /// @return 0 when the mutex was initialised now, -1 when it already was (nothing changes).
    int32_t init() noexcept;
    /// @return 0 with the mutex held; -2 without locking when the mutex is not initialised; -2 too, deliberately with
    ///         the mutex held, when the mark was lost while the call waited.
    int32_t lock() noexcept WY_ACQUIRE();
    /// @return 0 when the mutex was released, -2 when it is not initialised (nothing is released).
    int32_t unlock() noexcept WY_RELEASE();
    /// Destroys the pthread mutex of an initialised object. Deliberate: the mark stays, so that the object still counts
    /// as initialised afterwards.
    void destroy() noexcept;

private:
    static constexpr int32_t NotInitialised = -2;

    bool isInitialised() const noexcept { return mark.load(std::memory_order_relaxed) == InitialisedMark; }

    pthread_mutex_t mutex;
    // Read before the mutex is held, so it is an atomic; relaxed, since it orders nothing: the mutex does.
    std::atomic<uint32_t> mark;
};

// Here, not in the source file: a safe pointer's copy is little more than these two, and a call of each was a sixth of it.

inline int32_t WyMutex::lock() noexcept {
    if (!isInitialised()) {
        return NotInitialised;
    }
    static_cast<void>(pthread_mutex_lock(&mutex));
    return isInitialised() ? 0 : NotInitialised;
}

inline int32_t WyMutex::unlock() noexcept {
    if (!isInitialised()) {
        return NotInitialised;
    }
    static_cast<void>(pthread_mutex_unlock(&mutex));
    return 0;
}
