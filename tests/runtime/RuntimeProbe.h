#pragma once

#include "runtime/ISinglton.h"
#include "runtime/SafePointerNameManager.h"
#include "runtime/SafePointerPool.h"
#include "runtime/SafePointerRecord.h"
#include "runtime/SingletonRegistry.h"
#include "runtime/WyMutex.h"
#include "runtime/WyMutexIDAlloc.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The private fields of the runtime's types, for tests that check an invariant or forge a broken state.

pthread_mutex_t& PthreadMutexOf(WyMutex& mutex);
std::atomic<uint32_t>& MarkOf(WyMutex& mutex);

/// @return whether some thread holds the mutex; asks the pthread mutex itself, whatever the mark says.
bool IsHeld(WyMutex& mutex);

struct PoolFields {
    std::vector<SafePointerRecord*>& records;
    std::vector<uint32_t>& usedBits;
    SafePointerNameManager& names;
    WyMutex& lock;
    uint64_t& hint;
};

PoolFields FieldsOf(SafePointerPool& pool);

/// @return how many records are taken: bits set in the bitmap.
size_t RecordsOut(SafePointerPool& pool);

struct NameManagerFields {
    WyMutex& lock;
    std::map<std::string, const void*>& names;
};

NameManagerFields FieldsOf(SafePointerNameManager& manager);

struct IdAllocFields {
    WyMutex& lock;
    uint32_t& wordCount;
    std::unique_ptr<uint32_t[]>& words;
};

IdAllocFields FieldsOf(WyMutexIDAlloc& alloc);

/// @return how many numbers are taken: bits set in the bitmap.
size_t IdsOut(WyMutexIDAlloc& alloc);

struct RegistryFields {
    WyMutex& lock;
    std::vector<ISinglton*>& entries;
};

RegistryFields FieldsOf(SingletonRegistry& registry);

/// @return where a field of this type can stand at the earliest, behind `end` bytes of other fields.
template <class Field>
constexpr size_t FirstPlaceFor(size_t end) {
    return (end + alignof(Field) - 1) / alignof(Field) * alignof(Field);
}

/// @return the place of a field in its object, in bytes from the start.
template <class Object, class Field>
size_t PlaceOf(const Object& object, const Field& field) {
    return static_cast<size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object));
}
