#include "runtime/WyMutex.h"

namespace {

constexpr int32_t AlreadyInitialised = -1;

} // namespace

// The pthread mutex is made by init, which the mark tells that there is none yet.
WyMutex::WyMutex() noexcept : mark(0) {
    static_cast<void>(init());
}

int32_t WyMutex::init() noexcept {
    if (isInitialised()) {
        return AlreadyInitialised;
    }
    static_cast<void>(pthread_mutex_init(&mutex, nullptr));
    mark.store(InitialisedMark, std::memory_order_relaxed);
    return 0;
}

void WyMutex::destroy() noexcept {
    if (isInitialised()) {
        static_cast<void>(pthread_mutex_destroy(&mutex));
    }
}
