#pragma once

#include <pthread.h>

#include <functional>

/// Sees every pthread_mutex_lock and pthread_mutex_destroy of the test executable that waits to be carried out.
///
/// The executable is linked with `--wrap` for both, so that a test can act at the one moment that matters (a thread is
/// past its check and about to wait) and can see what is destroyed, and when. One observer at a time.
class MutexObserver {
public:
    using Action = std::function<void(pthread_mutex_t* mutex)>;

    /// Each action runs on the thread that makes the call, before the call. Either may be empty.
    MutexObserver(Action onLock, Action onDestroy);
    ~MutexObserver();
    MutexObserver(const MutexObserver&) = delete;
    MutexObserver& operator=(const MutexObserver&) = delete;

    void beforeLock(pthread_mutex_t* mutex) const;
    void beforeDestroy(pthread_mutex_t* mutex) const;

private:
    Action lockAction;
    Action destroyAction;
};
