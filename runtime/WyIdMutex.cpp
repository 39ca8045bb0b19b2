#include "runtime/WyIdMutex.h"

#include "runtime/WyMutexIDAlloc.h"

WyIdMutex::WyIdMutex() : mutex(std::make_unique<WyMutex>()), id(0) {
    // The mutex initialised itself; the second call answers -1 and changes nothing.
    static_cast<void>(mutex->init());
    id = WyMutexIDAlloc::instance()->allocId();
}

WyIdMutex::~WyIdMutex() {
    WyMutexIDAlloc::instance()->freeId(id);
    if (mutex) {
        mutex->destroy();
    }
}
