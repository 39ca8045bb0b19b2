#include "runtime/SingletonRegistry.h"

#include "runtime/WyMutexGuard.h"

SingletonRegistry::SingletonRegistry() noexcept = default;

SingletonRegistry& SingletonRegistry::instance() {
    static SingletonRegistry registry;
    return registry;
}

void SingletonRegistry::add(ISinglton* singleton) {
    const WyMutexGuard guard(lock);
    entries.push_back(singleton);
}

SingletonRegistry::~SingletonRegistry() {
    {
        const WyMutexGuard guard(lock);
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
            delete *entry;
        }
        entries.clear();
    }
    lock.destroy();
}
