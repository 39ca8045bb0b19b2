// What does a record of a well-filled pool cost over the locks of taking it and giving it back?

#include "runtime/SafePointerPool.h"

#include "benchmarks/Company.h"

#include <benchmark/benchmark.h>

#include <pthread.h>
#include <string>
#include <vector>

namespace {

constexpr size_t Records = 20000;

void TakeAllThenGiveAllBack(benchmark::State& state) {
    SafePointerPool pool;
    int object = 0;
    std::vector<SafePointerRecord*> taken(Records);
    for (auto _ : state) {
        for (SafePointerRecord*& record : taken) {
            record = pool.acquireRecord(&object, "");
        }
        for (SafePointerRecord* record : taken) {
            pool.releaseRecord(record, "");
        }
    }
}

// The limit: the pool is locked to take a record, and to give it back.
void TwoPairsForEach(benchmark::State& state) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        for (size_t pair = 0; pair < 2 * Records; ++pair) {
            pthread_mutex_lock(&mutex);
            pthread_mutex_unlock(&mutex);
        }
    }
    pthread_mutex_destroy(&mutex);
}

[[maybe_unused]] const bool Registered = [] {
    const std::string name = std::string("20,000 records taken, then given back/") + Company;
    benchmark::RegisterBenchmark((name + "/wyvern").c_str(), TakeAllThenGiveAllBack);
    benchmark::RegisterBenchmark((name + "/limit").c_str(), TwoPairsForEach);
    return true;
}();

} // namespace
