#include "runtime/SafePointerNameManager.h"

SafePointerNameManager::SafePointerNameManager() noexcept = default;

SafePointerNameManager::~SafePointerNameManager() {
    names.clear();
    lock.destroy();
}
