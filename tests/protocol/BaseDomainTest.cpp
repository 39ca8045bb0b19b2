#include "protocol/BaseDomain.h"

#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>

PRIVATE_MEMBER(BaseDomainTag, BaseDomain, int32_t, domainType);

static_assert(std::is_polymorphic_v<BaseDomain>);
static_assert(std::has_virtual_destructor_v<BaseDomain>);
static_assert(sizeof(BaseDomain) <= 2 * sizeof(void*), "the tag is the only data");

namespace {

class TaggedDomain : public BaseDomain {
public:
    explicit TaggedDomain(int32_t tag, bool* destroyedFlag = nullptr) : destroyed(destroyedFlag) { domainType = tag; }

    TaggedDomain(const TaggedDomain& other) = default;
    TaggedDomain& operator=(const TaggedDomain& other) = default;

    ~TaggedDomain() override {
        if (destroyed != nullptr) {
            *destroyed = true;
        }
    }

private:
    bool* destroyed;
};

} // namespace

TEST(BaseDomainTest, ItsOwnTagIsZero) {
    const BaseDomain domain;

    EXPECT_EQ(domain.getDomainType(), 0);
}

TEST(BaseDomainTest, TheTagStandsBehindTheVirtualTable) {
    const BaseDomain domain;

    EXPECT_EQ(OffsetOf(domain, Get(BaseDomainTag())), sizeof(void*));
}

TEST(BaseDomainTest, CopyingDoesNotCopyTheTag) {
    const TaggedDomain seven(7);

    const BaseDomain copy(seven);
    const TaggedDomain tagged(seven);

    EXPECT_EQ(copy.getDomainType(), 0);
    EXPECT_EQ(tagged.getDomainType(), 0) << "a copy has the tag that a constructor sets";
    EXPECT_EQ(seven.getDomainType(), 7);
}

TEST(BaseDomainTest, AssignmentLeavesBothTags) {
    TaggedDomain seven(7);
    const TaggedDomain eight(8);
    BaseDomain plain;

    seven = eight;
    plain = eight;

    EXPECT_EQ(seven.getDomainType(), 7);
    EXPECT_EQ(plain.getDomainType(), 0);
    EXPECT_EQ(eight.getDomainType(), 8);
}

TEST(BaseDomainTest, AssigningARecordToItselfChangesNothing) {
    TaggedDomain seven(7);
    const TaggedDomain& same = seven;

    seven = same;

    EXPECT_EQ(seven.getDomainType(), 7);
}

TEST(BaseDomainTest, DeletingThroughTheBaseDestroysTheDerivedRecord) {
    bool destroyed = false;
    std::unique_ptr<BaseDomain> record = std::make_unique<TaggedDomain>(1, &destroyed);

    record.reset();

    EXPECT_TRUE(destroyed);
}
