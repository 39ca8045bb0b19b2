#pragma once

#include "runtime/ISinglton.h"
#include "runtime/SingletonRegistry.h"
#include "runtime/WyMutex.h"
#include "runtime/WyMutexGuard.h"

#include <atomic>
#include <memory>

/// Gives T (which derives from `Singlton<T>`) one instance, made on first use and deleted by `SingletonRegistry` at
/// exit.
///
/// The spelling is the system's own. T needs a default constructor that `Singlton<T>` can reach.
/// Fails:   with whatever T's constructor throws, or std::bad_alloc; nothing was made then and the next call tries
///          again.
/// Threads: any. Once exit-time clean-up has begun the pointer dangles. Before `main`, in the constructor of a static
///          object, the creation mutex may not be there yet and nothing is locked.
template <class T>
class Singlton : public ISinglton {
public:
    /// @return the one T of the process, never null.
    static T* instance() {
        if (T* existing = instancePointer.load(std::memory_order_acquire)) {
            return existing;
        }
        const WyMutexGuard guard(creationMutex);
        T* existing = instancePointer.load(std::memory_order_relaxed);
        if (existing == nullptr) {
            existing = new T;
            std::unique_ptr<ISinglton> owner(existing);
            // The registry first: if it cannot grow, nobody has seen the object yet and it can still be deleted.
            SingletonRegistry::instance().add(existing);
            static_cast<void>(owner.release());
            instancePointer.store(existing, std::memory_order_release);
        }
        return existing;
    }

private:
    /// A mutex made during static initialisation and destroyed at exit, after the registry's clean-up.
    struct CreationMutex : WyMutex {
        ~CreationMutex() { destroy(); }
    };

    static std::atomic<T*> instancePointer;
    static CreationMutex creationMutex; ///< guards the creation of T; taken before the registry's lock
};

template <class T>
std::atomic<T*> Singlton<T>::instancePointer{nullptr};

template <class T>
typename Singlton<T>::CreationMutex Singlton<T>::creationMutex;
