// What does a safe pointer cost over the locks, and the allocation, that it cannot do without?

#include "runtime/SafePointer.h"

#include "benchmarks/Company.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <pthread.h>
#include <string>

namespace {

// A pair of lock and unlock, `Pairs` times.
template <int Pairs>
void LockAndUnlock(pthread_mutex_t& mutex) {
    for (int i = 0; i < Pairs; ++i) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
}

void CopyAndRelease(benchmark::State& state) {
    const SafePointer<int> pointer(new int(1));
    for (auto _ : state) {
        const SafePointer<int> copy(pointer);
        benchmark::DoNotOptimize(&copy);
    }
}

// The limit: a copy locks the record once, and so does the release.
void TwoPairs(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        LockAndUnlock<2>(mutex);
    }
    pthread_mutex_destroy(&mutex);
}

void CopyAndReleaseShared(benchmark::State& state) {
    const std::shared_ptr<int> pointer(new int(1));
    for (auto _ : state) {
        const std::shared_ptr<int> copy(pointer); // NOLINT(performance-unnecessary-copy-initialization): it is measured
        benchmark::DoNotOptimize(&copy);
    }
}

template <class Pointer>
void WrapAndRelease(benchmark::State& state) {
    for (auto _ : state) {
        const Pointer pointer(new int(1));
        benchmark::DoNotOptimize(&pointer);
    }
}

// The limit: the pool is locked to take a record and to give it back, the record to let go.
void NewDeleteAndThreePairs(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        auto* object = new int(1);
        benchmark::DoNotOptimize(object);
        LockAndUnlock<3>(mutex);
        delete object;
    }
    pthread_mutex_destroy(&mutex);
}

[[maybe_unused]] const bool Registered = [] {
    const auto add = [](const std::string& question, const char* who, void (*run)(benchmark::State&)) {
        benchmark::RegisterBenchmark((question + "/" + Company + "/" + who).c_str(), run);
    };
    add("safe pointer copied and released", "wyvern", CopyAndRelease);
    add("safe pointer copied and released", "limit", TwoPairs);
    add("safe pointer copied and released", "std::shared_ptr", CopyAndReleaseShared);
    add("new object wrapped and released", "wyvern", WrapAndRelease<SafePointer<int>>);
    add("new object wrapped and released", "limit", NewDeleteAndThreePairs);
    add("new object wrapped and released", "std::shared_ptr", WrapAndRelease<std::shared_ptr<int>>);
    return true;
}();

} // namespace
