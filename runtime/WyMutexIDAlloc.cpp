#include "runtime/WyMutexIDAlloc.h"

#include "runtime/WyMutexGuard.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint32_t BitsPerWord = 32;
constexpr uint32_t FullWord = 0xFFFFFFFF;
constexpr uint32_t GrowthWords = 10;

} // namespace

WyMutexIDAlloc::WyMutexIDAlloc() noexcept : wordCount(0) {}

WyMutexIDAlloc::~WyMutexIDAlloc() {
    words.reset();
    lock.destroy();
}

uint32_t WyMutexIDAlloc::allocId() {
    const WyMutexGuard guard(lock);
    for (uint32_t w = 0; w < wordCount; ++w) {
        if (words[w] != FullWord) {
            const auto bit = static_cast<uint32_t>(__builtin_ctz(~words[w]));
            words[w] |= 1U << bit;
            return w * BitsPerWord + bit;
        }
    }

    const uint32_t oldCount = wordCount;
    std::unique_ptr<uint32_t[]> grown(new uint32_t[oldCount + GrowthWords]());
    std::copy_n(words.get(), oldCount, grown.get());
    words = std::move(grown);
    wordCount = oldCount + GrowthWords;
    words[oldCount] = 1;
    return oldCount * BitsPerWord;
}

void WyMutexIDAlloc::freeId(uint32_t id) noexcept {
    const WyMutexGuard guard(lock);
    words[id / BitsPerWord] &= ~(1U << (id % BitsPerWord));
}
