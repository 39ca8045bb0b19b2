#pragma once

#include "runtime/ISinglton.h"
#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <vector>

/// Owns every singleton of the process and deletes them at exit, newest first.
///
/// It is made on first use, which also registers its clean-up for the exit of the process. The creation mutexes of the
/// singletons are made before `main`, so for a registry that is first used in `main` they are destroyed after the
/// clean-up.
/// Fails:   only `add`, with std::bad_alloc. Where the C library has no memory to register the clean-up, all the rest
///          holds, and nothing is deleted at exit.
/// Threads: any. Lock order: a singleton's creation mutex, then this registry's.
class SingletonRegistry {
public:
    static SingletonRegistry& instance();

    /// Takes over `singleton`, to be deleted at exit. Null is accepted and skipped then. Throws std::bad_alloc, and has
    /// not taken anything over then.
    void add(ISinglton* singleton) WY_EXCLUDES(lock);

    SingletonRegistry(const SingletonRegistry&) = delete;
    SingletonRegistry& operator=(const SingletonRegistry&) = delete;

private:
    SingletonRegistry() noexcept;
    ~SingletonRegistry();

    WyMutex lock;
    std::vector<ISinglton*> entries WY_GUARDED_BY(lock); ///< in order of creation
};
