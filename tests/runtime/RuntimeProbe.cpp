#include "tests/runtime/RuntimeProbe.h"

#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <bitset>
#include <cerrno>

PRIVATE_MEMBER(ProbeMutex, WyMutex, pthread_mutex_t, mutex);
PRIVATE_MEMBER(ProbeMark, WyMutex, std::atomic<uint32_t>, mark);
PRIVATE_MEMBER(ProbePoolRecords, SafePointerPool, std::vector<SafePointerRecord*>, records);
PRIVATE_MEMBER(ProbePoolUsedBits, SafePointerPool, std::vector<uint32_t>, usedBits);
PRIVATE_MEMBER(ProbePoolNames, SafePointerPool, SafePointerNameManager, names);
PRIVATE_MEMBER(ProbePoolLock, SafePointerPool, WyMutex, lock);
PRIVATE_MEMBER(ProbePoolHint, SafePointerPool, uint64_t, hint);
PRIVATE_MEMBER(ProbeNamesLock, SafePointerNameManager, WyMutex, lock);
using ProbeNameMap = std::map<std::string, const void*>;
PRIVATE_MEMBER(ProbeNamesNames, SafePointerNameManager, ProbeNameMap, names);
PRIVATE_MEMBER(ProbeIdsLock, WyMutexIDAlloc, WyMutex, lock);
PRIVATE_MEMBER(ProbeIdsWordCount, WyMutexIDAlloc, uint32_t, wordCount);
PRIVATE_MEMBER(ProbeIdsWords, WyMutexIDAlloc, std::unique_ptr<uint32_t[]>, words);
PRIVATE_MEMBER(ProbeRegistryLock, SingletonRegistry, WyMutex, lock);
PRIVATE_MEMBER(ProbeRegistryEntries, SingletonRegistry, std::vector<ISinglton*>, entries);

pthread_mutex_t& PthreadMutexOf(WyMutex& mutex) {
    return mutex.*Get(ProbeMutex());
}

std::atomic<uint32_t>& MarkOf(WyMutex& mutex) {
    return mutex.*Get(ProbeMark());
}

bool IsHeld(WyMutex& mutex) {
    const int result = pthread_mutex_trylock(&PthreadMutexOf(mutex));
    if (result == 0) {
        EXPECT_EQ(pthread_mutex_unlock(&PthreadMutexOf(mutex)), 0);
        return false;
    }
    EXPECT_EQ(result, EBUSY);
    return true;
}

PoolFields FieldsOf(SafePointerPool& pool) {
    return {pool.*Get(ProbePoolRecords()), pool.*Get(ProbePoolUsedBits()), pool.*Get(ProbePoolNames()),
            pool.*Get(ProbePoolLock()), pool.*Get(ProbePoolHint())};
}

size_t RecordsOut(SafePointerPool& pool) {
    size_t count = 0;
    for (const uint32_t word : FieldsOf(pool).usedBits) {
        count += std::bitset<32>(word).count();
    }
    return count;
}

NameManagerFields FieldsOf(SafePointerNameManager& manager) {
    return {manager.*Get(ProbeNamesLock()), manager.*Get(ProbeNamesNames())};
}

IdAllocFields FieldsOf(WyMutexIDAlloc& alloc) {
    return {alloc.*Get(ProbeIdsLock()), alloc.*Get(ProbeIdsWordCount()), alloc.*Get(ProbeIdsWords())};
}

size_t IdsOut(WyMutexIDAlloc& alloc) {
    const IdAllocFields fields = FieldsOf(alloc);
    size_t count = 0;
    for (uint32_t w = 0; w < fields.wordCount; ++w) {
        count += std::bitset<32>(fields.words[w]).count();
    }
    return count;
}

RegistryFields FieldsOf(SingletonRegistry& registry) {
    return {registry.*Get(ProbeRegistryLock()), registry.*Get(ProbeRegistryEntries())};
}
