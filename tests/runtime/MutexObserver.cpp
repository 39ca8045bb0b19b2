#include "tests/runtime/MutexObserver.h"

#include <atomic>
#include <stdexcept>
#include <utility>

namespace {

std::atomic<MutexObserver*> current{nullptr};

} // namespace

MutexObserver::MutexObserver(Action onLock, Action onDestroy)
    : lockAction(std::move(onLock)), destroyAction(std::move(onDestroy)) {
    if (current.exchange(this) != nullptr) {
        throw std::logic_error("one observer at a time");
    }
}

MutexObserver::~MutexObserver() {
    current.store(nullptr);
}

void MutexObserver::beforeLock(pthread_mutex_t* mutex) const {
    if (lockAction) {
        lockAction(mutex);
    }
}

void MutexObserver::beforeDestroy(pthread_mutex_t* mutex) const {
    if (destroyAction) {
        destroyAction(mutex);
    }
}

// The names are the linker's: with --wrap=f, calls of f go to __wrap_f, and __real_f is f.
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (const MutexObserver* observer = current.load()) {
        observer->beforeLock(mutex);
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    if (const MutexObserver* observer = current.load()) {
        observer->beforeDestroy(mutex);
    }
    return __real_pthread_mutex_destroy(mutex);
}
}
