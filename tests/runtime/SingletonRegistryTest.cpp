#include "runtime/SingletonRegistry.h"

#include "runtime/Singlton.h"
#include "runtime/WyMutexIDAlloc.h"
#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"
#include "tests/runtime/SingltonInternals.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FailingAllocation.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

static_assert(!std::is_copy_constructible_v<SingletonRegistry> && !std::is_copy_assignable_v<SingletonRegistry>);
static_assert(!std::is_default_constructible_v<SingletonRegistry>, "there is one, reached through instance()");
static_assert(!std::is_destructible_v<SingletonRegistry>);

namespace {

class Plain : public ISinglton {};

/// Prints its name at its end, and whether the registry's lock is held then.
template <char Name>
class Farewell : public Singlton<Farewell<Name>> {
public:
    ~Farewell() override {
        std::printf("%c deleted%s\n", Name,
                    IsHeld(FieldsOf(SingletonRegistry::instance()).lock) ? ", registry locked" : "");
    }
};

using FarewellA = Farewell<'A'>;
using FarewellB = Farewell<'B'>;
using FarewellC = Farewell<'C'>;

} // namespace

SINGLTON_INTERNALS(FarewellA);
SINGLTON_INTERNALS(FarewellB);
SINGLTON_INTERNALS(FarewellC);
SINGLTON_INTERNALS(WyMutexIDAlloc);

namespace {

void PrintDestruction(const pthread_mutex_t* which) {
    const std::vector<std::pair<const WyMutex*, const char*>> known{
        {&CreationMutexOf(SingltonInternals<FarewellA>()), "creation mutex of a farewell"},
        {&CreationMutexOf(SingltonInternals<FarewellB>()), "creation mutex of a farewell"},
        {&CreationMutexOf(SingltonInternals<FarewellC>()), "creation mutex of a farewell"},
        {&CreationMutexOf(SingltonInternals<WyMutexIDAlloc>()), "creation mutex of the allocator"},
        {&FieldsOf(SingletonRegistry::instance()).lock, "lock of the registry"}};
    for (const auto& [mutex, name] : known) {
        if (static_cast<const void*>(mutex) == which) {
            std::printf("%s destroyed\n", name);
        }
    }
}

/// Has the destruction of the known mutexes printed for the rest of the process, its exit included.
void PrintDestructionsFromNowOn() {
    static_cast<void>(SingletonRegistry::instance()); // it is asked for its lock during the exit
    static MutexObserver* const observer = new MutexObserver(nullptr, PrintDestruction);
    static_cast<void>(observer);
}

} // namespace

TEST(SingletonRegistryTest, TheLockComesBeforeTheEntries) {
    SingletonRegistry& registry = SingletonRegistry::instance();

    EXPECT_EQ(PlaceOf(registry, FieldsOf(registry).lock), 0U);
    EXPECT_EQ(PlaceOf(registry, FieldsOf(registry).entries), sizeof(WyMutex));
}

TEST(SingletonRegistryTest, ThereIsOneAndItStartsEmpty) {
    SingletonRegistry& registry = SingletonRegistry::instance();

    EXPECT_EQ(&SingletonRegistry::instance(), &registry);
    EXPECT_TRUE(FieldsOf(registry).entries.empty());
    EXPECT_EQ(MarkOf(FieldsOf(registry).lock), 0x55aa55aaU);
}

TEST(SingletonRegistryTest, SingletonsAreKeptInTheOrderOfTheirCreation) {
    SingletonRegistry& registry = SingletonRegistry::instance();
    auto* first = new Plain; // the registry deletes both at exit
    auto* second = new Plain;

    registry.add(first);
    registry.add(nullptr);
    registry.add(second);

    EXPECT_EQ(FieldsOf(registry).entries, (std::vector<ISinglton*>{first, nullptr, second}));
    EXPECT_FALSE(IsHeld(FieldsOf(registry).lock));
}

TEST(SingletonRegistryTest, AddTakesTheRegistrysLockAndNoOther) {
    SingletonRegistry& registry = SingletonRegistry::instance();
    std::vector<pthread_mutex_t*> locked;
    {
        const MutexObserver observer([&](pthread_mutex_t* which) { locked.push_back(which); }, nullptr);

        registry.add(nullptr);
    }

    EXPECT_EQ(locked, std::vector<pthread_mutex_t*>{&PthreadMutexOf(FieldsOf(registry).lock)});
}

TEST(SingletonRegistryTest, AnAddOutOfMemoryTakesNothingOverAndLeavesTheLockFree) {
    SingletonRegistry& registry = SingletonRegistry::instance();
    auto singleton = std::make_unique<Plain>();
    {
        const FailingAllocation failing(0);
        EXPECT_THROW(registry.add(singleton.get()), std::bad_alloc);
    }

    EXPECT_TRUE(FieldsOf(registry).entries.empty());
    EXPECT_FALSE(IsHeld(FieldsOf(registry).lock));
    registry.add(singleton.get());
    EXPECT_EQ(FieldsOf(registry).entries, std::vector<ISinglton*>{singleton.release()});
}

TEST(SingletonRegistryTest, AtExitSingletonsAreDeletedNewestFirstUnderTheLockWhateverTheirType) {
    const ChildResult result = RunInChild([] {
        static_cast<void>(FarewellB::instance());
        static_cast<void>(FarewellA::instance());
        static_cast<void>(FarewellC::instance());
    });

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_EQ(result.output, "C deleted, registry locked\nA deleted, registry locked\nB deleted, registry locked\n");
}

TEST(SingletonRegistryTest, AtExitNullEntriesAreSkipped) {
    const ChildResult result = RunInChild([] {
        SingletonRegistry::instance().add(nullptr);
        static_cast<void>(FarewellA::instance());
        SingletonRegistry::instance().add(nullptr);
    });

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_EQ(result.output, "A deleted, registry locked\n");
}

TEST(SingletonRegistryTest, AtExitTheCleanUpComesBeforeTheCreationMutexesAreDestroyed) {
    const ChildResult result = RunInChild([] {
        PrintDestructionsFromNowOn();
        static_cast<void>(FarewellA::instance());
        static_cast<void>(WyMutexIDAlloc::instance()->allocId());
        static_cast<void>(FarewellB::instance());
    });

    EXPECT_TRUE(result.exitedWith(0));
    const std::string cleanUp = "B deleted, registry locked\n"
                                "A deleted, registry locked\n"
                                "lock of the registry destroyed\n";
    ASSERT_EQ(result.output.substr(0, cleanUp.size()), cleanUp);
    // In which order the creation mutexes follow is the linker's choice: count them.
    const std::string rest = result.output.substr(cleanUp.size());
    size_t farewells = 0;
    const std::string line = "creation mutex of a farewell destroyed\n";
    for (size_t at = rest.find(line); at != std::string::npos; at = rest.find(line, at + 1)) {
        ++farewells;
    }
    const std::string ofTheAllocator = "creation mutex of the allocator destroyed\n";
    EXPECT_EQ(farewells, 3U) << rest;
    EXPECT_NE(rest.find(ofTheAllocator), std::string::npos) << rest;
    EXPECT_EQ(rest.size(), farewells * line.size() + ofTheAllocator.size()) << rest;
}

// A process that used no singleton still made their creation mutexes at start.
TEST(SingletonRegistryTest, AtExitTheCreationMutexesOfUnusedSingletonsAreDestroyedToo) {
    const ChildResult result = RunInChild([] { PrintDestructionsFromNowOn(); });

    EXPECT_TRUE(result.exitedWith(0));
    EXPECT_NE(result.output.find("creation mutex of the allocator destroyed\n"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("deleted"), std::string::npos) << result.output;
}
