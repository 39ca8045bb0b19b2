#include "runtime/SafePointerNameManager.h"

#include "runtime/SafePointerPool.h"
#include "tests/runtime/MutexObserver.h"
#include "tests/runtime/RuntimeProbe.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

static_assert(std::has_virtual_destructor_v<SafePointerNameManager>);
static_assert(!std::is_copy_constructible_v<SafePointerNameManager>);
static_assert(!std::is_copy_assignable_v<SafePointerNameManager>);

TEST(SafePointerNameManagerTest, TheLockComesBeforeTheNamesAndNoBaseBeforeEither) {
    SafePointerNameManager manager;

    EXPECT_EQ(PlaceOf(manager, FieldsOf(manager).lock), sizeof(void*));
    EXPECT_EQ(PlaceOf(manager, FieldsOf(manager).names), sizeof(void*) + sizeof(WyMutex));
}

TEST(SafePointerNameManagerTest, ItStartsWithALockAndWithoutNames) {
    SafePointerNameManager manager;

    EXPECT_EQ(MarkOf(FieldsOf(manager).lock), 0x55aa55aaU);
    EXPECT_FALSE(IsHeld(FieldsOf(manager).lock));
    EXPECT_TRUE(FieldsOf(manager).names.empty());
}

TEST(SafePointerNameManagerTest, TheNamesThatPassThroughThePoolAreNotKept) {
    SafePointerPool pool;
    int object = 0;

    pool.releaseRecord(pool.acquireRecord(&object, "16XmlConfigureNode"), "16XmlConfigureNode");

    EXPECT_TRUE(FieldsOf(FieldsOf(pool).names).names.empty());
}

TEST(SafePointerNameManagerTest, DestructionFreesTheNamesAndThenDestroysTheLock) {
    auto manager = std::make_unique<SafePointerNameManager>();
    FieldsOf(*manager).names["a name too long for a string to keep it inside itself"] = nullptr;
    const auto& names = FieldsOf(*manager).names;
    const std::vector<pthread_mutex_t*> lock{&PthreadMutexOf(FieldsOf(*manager).lock)};
    std::vector<pthread_mutex_t*> destroyed;
    size_t namesLeft = SIZE_MAX;
    {
        const MutexObserver observer(nullptr, [&](pthread_mutex_t* which) {
            destroyed.push_back(which);
            namesLeft = names.size();
        });

        manager.reset();
    }

    EXPECT_EQ(destroyed, lock);
    EXPECT_EQ(namesLeft, 0U) << "the lock guards the names to their end";
}
