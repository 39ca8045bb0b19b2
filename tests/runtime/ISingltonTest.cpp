#include "runtime/ISinglton.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

static_assert(std::has_virtual_destructor_v<ISinglton>);
static_assert(!std::is_copy_constructible_v<ISinglton> && !std::is_copy_assignable_v<ISinglton>);
static_assert(sizeof(ISinglton) == sizeof(void*), "nothing but the table of virtual operations");

namespace {

class Noticing : public ISinglton {
public:
    explicit Noticing(bool& flag) : destroyed(flag) {}

    ~Noticing() override { destroyed = true; }

private:
    bool& destroyed;
};

} // namespace

TEST(ISingltonTest, DeletingThroughTheBaseDestroysTheWholeObject) {
    bool destroyed = false;
    std::unique_ptr<ISinglton> singleton = std::make_unique<Noticing>(destroyed);

    singleton.reset();

    EXPECT_TRUE(destroyed);
}
