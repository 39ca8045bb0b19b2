#include "runtime/SafePointerPool.h"

#include "runtime/ThreadSafety.h"
#include "runtime/WyMutexGuard.h"
#include "runtime/WyRuntimeError.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr size_t BitsPerWord = 32;
constexpr uint32_t FullWord = 0xFFFFFFFF;
constexpr size_t GrowthRecords = 128;
constexpr size_t GrowthWords = GrowthRecords / BitsPerWord;
// Tested before a growth, so that the last growth leads from 19,968 to 20,096 records.
constexpr size_t GrowthLimit = 20000;
constexpr size_t NoSlot = SIZE_MAX;
// Full words that the search passes in one step. It is most of what a record costs in a pool of 20,000: with two words a
// load, and no jump between the loads, that fell from 330 to 40 ns; steps of twice the length gave nothing more.
constexpr size_t WordsPerStep = 16;

// Not checked for the record's lock, which guards the count: nobody who uses a free record rightly touches its count,
// and the pool, whose lock comes after a record's, must not take that one.
WY_NO_THREAD_SAFETY_ANALYSIS void HandOut(SafePointerRecord& record, void* address) noexcept {
    record.address = address;
    record.count = 1;
}

// Apart from its only caller, which without the text on its stack needs no guard of it.
[[noreturn, gnu::noinline]] void ThrowDoubleFree(const SafePointerRecord& record) {
    char text[128] = {};
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(record.address));
    static_cast<void>(std::snprintf(text, sizeof text, "double free poniter(0x%08x)", address));
    throw WyRuntimeError(text);
}

uint64_t TwoWords(const uint32_t* words) noexcept {
    uint64_t both = 0;
    std::memcpy(&both, words, sizeof both);
    return both;
}

bool AreFull(const uint32_t* words) noexcept {
    return (TwoWords(words) & TwoWords(words + 2) & TwoWords(words + 4) & TwoWords(words + 6) & TwoWords(words + 8) &
            TwoWords(words + 10) & TwoWords(words + 12) & TwoWords(words + 14)) == UINT64_MAX;
}

// @return the first of the words from `begin` to `end` that has room, or `end`.
size_t PassFullWords(const uint32_t* words, size_t begin, size_t end) noexcept {
    while (end - begin >= WordsPerStep && AreFull(&words[begin])) {
        begin += WordsPerStep;
    }
    while (begin != end && words[begin] == FullWord) {
        ++begin;
    }
    return begin;
}

} // namespace

SafePointerPool* SafePointerPool::create() {
    return new SafePointerPool;
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

// Words from the hint's to the last, then those before the hint's. The word of a record given back last has room nearly
// always, so that is asked in place. The lowest free bit of a word with room is its count of trailing ones.
inline size_t SafePointerPool::findFreeSlot() const noexcept {
    const uint32_t* const words = usedBits.data();
    const size_t wordCount = usedBits.size();
    const size_t start = static_cast<size_t>(hint) / BitsPerWord;
    size_t w = start;
    if (words[start] == FullWord) {
        w = PassFullWords(words, start, wordCount);
    }
    if (w == wordCount) {
        w = PassFullWords(words, 0, start);
        if (w == start) {
            return NoSlot;
        }
    }
    return w * BitsPerWord + static_cast<size_t>(__builtin_ctz(~words[w]));
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
        ThrowDoubleFree(*record);
    }
    word &= ~bit;
    record->address = nullptr;
    hint = slot;
}

// Room for everything is made before anything is changed, so that a failed allocation leaves the pool as it was.
void SafePointerPool::grow() {
    size_t slot = records.size();
    std::array<std::unique_ptr<SafePointerRecord>, GrowthRecords> fresh;
    for (size_t i = 0; i < GrowthRecords; ++i) {
        fresh[i] = std::make_unique<SafePointerRecord>(slot + i);
    }
    usedBits.reserve(usedBits.size() + GrowthWords);
    records.resize(slot + GrowthRecords);
    usedBits.resize(usedBits.size() + GrowthWords);
    for (auto& record : fresh) {
        records[slot++] = record.release();
    }
}
