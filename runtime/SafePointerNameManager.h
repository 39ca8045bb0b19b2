#pragma once

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutex.h"

#include <map>
#include <string>

/// The pool's registry of type names. It stays empty: the names that pass through the pool are deliberately not kept,
/// and what would be recorded beside a name was never settled. The object keeps its place in the pool all the same.
///
/// Owns:    its container. Threads: none of its own operations exist yet; `lock` will guard `names`.
class SafePointerNameManager {
public:
    SafePointerNameManager() noexcept;
    SafePointerNameManager(const SafePointerNameManager&) = delete;
    SafePointerNameManager& operator=(const SafePointerNameManager&) = delete;
    virtual ~SafePointerNameManager();

private:
    WyMutex lock;
    std::map<std::string, const void*> names WY_GUARDED_BY(lock); ///< keyed by type name
};
