// What does a safe pointer's copy cost over the two locks that it takes?

#include "runtime/SafePointer.h"

#include <benchmark/benchmark.h>

#include <pthread.h>

namespace {

void CopyAndRelease(benchmark::State& state) {
    const SafePointer<int> pointer(new int(1));
    for (auto _ : state) {
        SafePointer<int> copy(pointer);
        benchmark::DoNotOptimize(copy);
    }
}

BENCHMARK(CopyAndRelease);

// The limit: a copy locks the record once, and so does the release.
void TwoPairsOfLockAndUnlock(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}

BENCHMARK(TwoPairsOfLockAndUnlock);

} // namespace
