#include "runtime/SafePointerPool.h"

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutexGuard.h"
#include "runtime/WyRuntimeError.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace {

constexpr size_t BitsPerWord = 32;
constexpr uint32_t FullWord = 0xFFFFFFFF;
constexpr size_t GrowthRecords = 128;
constexpr size_t GrowthWords = GrowthRecords / BitsPerWord;
// Tested before a growth, so that the last growth leads from 19,968 to 20,096 records.
constexpr size_t GrowthLimit = 20000;
constexpr size_t NoSlot = SIZE_MAX;

// Not checked for the record's lock, which guards the count: nobody who uses a free record rightly touches its count,
// and the pool, whose lock comes after a record's, must not take that one.
WY_NO_THREAD_SAFETY_ANALYSIS void HandOut(SafePointerRecord& record, void* address) noexcept {
    record.address = address;
    record.count = 1;
}

} // namespace

SafePointerPool* SafePointerPool::instance() {
    static auto* const pool = new SafePointerPool;
    return pool;
}

SafePointerPool::SafePointerPool() : hint(0) {
    grow();
}

SafePointerPool::~SafePointerPool() {
    for (SafePointerRecord* record : records) {
        record->lock.destroy();
        delete record;
    }
    lock.destroy();
}

SafePointerRecord* SafePointerPool::acquireRecord(void* address, const char* /*typeName*/) {
    const WyMutexGuard guard(lock);
    size_t slot = findFreeSlot();
    if (slot == NoSlot) {
        if (records.size() > GrowthLimit) {
            throw WyRuntimeError("too much safe poniter");
        }
        slot = records.size();
        grow();
    }
    usedBits[slot / BitsPerWord] |= 1U << (slot % BitsPerWord);
    SafePointerRecord* record = records[slot];
    HandOut(*record, address);
    return record;
}

void SafePointerPool::releaseRecord(SafePointerRecord* record, const char* /*typeName*/) {
    const WyMutexGuard guard(lock);
    const auto slot = static_cast<size_t>(record->index);
    uint32_t& word = usedBits[slot / BitsPerWord];
    const uint32_t bit = 1U << (slot % BitsPerWord);
    if ((word & bit) == 0) {
        char text[128] = {};
        const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(record->address));
        static_cast<void>(std::snprintf(text, sizeof text, "double free poniter(0x%08x)", address));
        throw WyRuntimeError(text);
    }
    word &= ~bit;
    record->address = nullptr;
    hint = slot;
}

// Words from the hint's to the last, then those before the hint's. A full word costs one comparison, and the lowest
// free bit of any other is its count of trailing ones.
size_t SafePointerPool::findFreeSlot() const noexcept {
    const size_t wordCount = usedBits.size();
    const size_t start = static_cast<size_t>(hint) / BitsPerWord;
    for (size_t step = 0; step < wordCount; ++step) {
        const size_t w = start + step < wordCount ? start + step : start + step - wordCount;
        if (usedBits[w] != FullWord) {
            return w * BitsPerWord + static_cast<size_t>(__builtin_ctz(~usedBits[w]));
        }
    }
    return NoSlot;
}

// Room for everything is made before anything is changed, so that a failed allocation leaves the pool as it was.
void SafePointerPool::grow() {
    const size_t oldSize = records.size();
    std::vector<std::unique_ptr<SafePointerRecord>> fresh;
    fresh.reserve(GrowthRecords);
    for (size_t i = 0; i < GrowthRecords; ++i) {
        fresh.push_back(std::make_unique<SafePointerRecord>(oldSize + i));
    }
    records.reserve(oldSize + GrowthRecords);
    usedBits.resize(usedBits.size() + GrowthWords, 0);
    for (auto& record : fresh) {
        records.push_back(record.release());
    }
}
