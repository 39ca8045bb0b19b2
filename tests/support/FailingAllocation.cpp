#include "tests/support/FailingAllocation.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int64_t> untilFailure{-1}; // -1: no failure is planned
std::atomic<bool> failed{false};
// Volatile: the compiler takes malloc for its own, which would not look at it.
thread_local volatile bool inside = false;

void* Allocate(size_t size) {
    if (untilFailure.load() >= 0 && untilFailure.fetch_sub(1) == 0) {
        failed.store(true);
        throw std::bad_alloc();
    }
    inside = true;
    void* memory = std::malloc(size == 0 ? 1 : size);
    inside = false;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

FailingAllocation::FailingAllocation(size_t after) {
    failed.store(false);
    untilFailure.store(static_cast<int64_t>(after));
}

FailingAllocation::~FailingAllocation() {
    untilFailure.store(-1);
}

bool FailingAllocation::happened() {
    return failed.load();
}

bool IsInsideOperatorNew() noexcept {
    return inside;
}

void* operator new(size_t size) {
    return Allocate(size);
}

void* operator new[](size_t size) {
    return Allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}
