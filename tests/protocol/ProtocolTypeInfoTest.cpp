#include "protocol/ProtocolTypeInfo.h"

#include "tests/support/PrivateMember.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

PRIVATE_MEMBER(InfoTag, BaseDomain, int32_t, domainType);
PRIVATE_MEMBER(InfoName, ProtocolTypeInfo, std::string, protocolName);
PRIVATE_MEMBER(InfoId, ProtocolTypeInfo, std::string, protocolId);
PRIVATE_MEMBER(InfoType, ProtocolTypeInfo, int32_t, protocolType);
PRIVATE_MEMBER(InfoEnable, ProtocolTypeInfo, bool, protocolEnable);

static_assert(std::is_base_of_v<BaseDomain, ProtocolTypeInfo>);
static_assert(std::is_convertible_v<ProtocolTypeInfo*, BaseDomain*>, "the base is public");
static_assert(std::has_virtual_destructor_v<ProtocolTypeInfo>);

namespace {

// A record whose tag was changed behind its back.
class Retagged : public ProtocolTypeInfo {
public:
    explicit Retagged(int32_t tag) { domainType = tag; }
};

// A record that counts its end.
class Watched : public ProtocolTypeInfo {
public:
    explicit Watched(int& counter) : destroyed(counter) {}

    ~Watched() override { ++destroyed; }

    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

private:
    int& destroyed;
};

void Fill(ProtocolTypeInfo& info) {
    info.setProtocolName("a name that is too long for the string's own buffer");
    info.setProtocolId("an identifier that is too long for the string's own buffer");
    info.setProtocolType(-17);
    info.setProtocolEnable(true);
}

void ExpectFilled(const ProtocolTypeInfo& info) {
    EXPECT_EQ(info.getProtocolName(), "a name that is too long for the string's own buffer");
    EXPECT_EQ(info.getProtocolId(), "an identifier that is too long for the string's own buffer");
    EXPECT_EQ(info.getProtocolType(), -17);
    EXPECT_TRUE(info.isProtocolEnable());
}

void ExpectDefaults(const ProtocolTypeInfo& info) {
    EXPECT_EQ(info.getProtocolName(), "");
    EXPECT_EQ(info.getProtocolId(), "");
    EXPECT_EQ(info.getProtocolType(), 0);
    EXPECT_FALSE(info.isProtocolEnable());
}

} // namespace

TEST(ProtocolTypeInfoTest, ADefaultRecordIsEmptyOfTypeZeroAndNotEnabledAndItsTagIs235) {
    const ProtocolTypeInfo info;

    ExpectDefaults(info);
    EXPECT_EQ(info.getDomainType(), 235);
}

TEST(ProtocolTypeInfoTest, TheFieldsStandInTheirDeclaredOrder) {
    const ProtocolTypeInfo info;
    const std::array<size_t, 5> offsets = {OffsetOf<BaseDomain>(info, Get(InfoTag())), OffsetOf(info, Get(InfoName())),
                                           OffsetOf(info, Get(InfoId())), OffsetOf(info, Get(InfoType())),
                                           OffsetOf(info, Get(InfoEnable()))};

    for (size_t i = 1; i < offsets.size(); ++i) {
        EXPECT_LT(offsets[i - 1], offsets[i]) << i;
    }
}

TEST(ProtocolTypeInfoTest, EachSetterSetsItsFieldAlone) {
    ProtocolTypeInfo name;
    ProtocolTypeInfo id;
    ProtocolTypeInfo type;
    ProtocolTypeInfo enable;

    name.setProtocolName("n");
    id.setProtocolId("i");
    type.setProtocolType(INT32_MIN);
    enable.setProtocolEnable(true);

    EXPECT_EQ(name.getProtocolName(), "n");
    EXPECT_EQ(id.getProtocolId(), "i");
    EXPECT_EQ(type.getProtocolType(), INT32_MIN);
    EXPECT_TRUE(enable.isProtocolEnable());
    name.setProtocolName("");
    id.setProtocolId("");
    type.setProtocolType(0);
    enable.setProtocolEnable(false);
    for (const ProtocolTypeInfo* info : {&name, &id, &type, &enable}) {
        ExpectDefaults(*info);
    }
}

TEST(ProtocolTypeInfoTest, TheNameIsGivenAsAReferenceToTheStoredText) {
    const ProtocolTypeInfo info;

    EXPECT_EQ(&info.getProtocolName(), &(info.*Get(InfoName())));
}

TEST(ProtocolTypeInfoTest, ACopyHasTheFourFieldsAndItsOwnTag) {
    Retagged original(7);
    Fill(original);

    const ProtocolTypeInfo copy(original);
    original.setProtocolName("changed");

    ExpectFilled(copy);
    EXPECT_EQ(copy.getDomainType(), 235) << "the tag is set, not copied";
}

TEST(ProtocolTypeInfoTest, AssignmentCopiesTheFourFieldsAndLeavesTheTag) {
    ProtocolTypeInfo original;
    Fill(original);
    Retagged seven(7);
    ProtocolTypeInfo plain;
    const Retagged eight(8);

    static_cast<ProtocolTypeInfo&>(seven) = original;
    plain = eight;

    ExpectFilled(seven);
    EXPECT_EQ(seven.getDomainType(), 7);
    ExpectDefaults(plain);
    EXPECT_EQ(plain.getDomainType(), 235);
}

TEST(ProtocolTypeInfoTest, AssigningARecordToItselfChangesNothing) {
    ProtocolTypeInfo info;
    Fill(info);
    const ProtocolTypeInfo& same = info;

    ProtocolTypeInfo& result = (info = same);

    EXPECT_EQ(&result, &info);
    ExpectFilled(info);
    EXPECT_EQ(info.getDomainType(), 235);
}

TEST(ProtocolTypeInfoTest, AMovedRecordIsACopy) {
    ProtocolTypeInfo original;
    Fill(original);

    const ProtocolTypeInfo moved(std::move(original));

    ExpectFilled(moved);
    EXPECT_EQ(moved.getDomainType(), 235);
}

TEST(ProtocolTypeInfoTest, RecordsInAVectorThatGrowsKeepTheirFieldsAndTags) {
    std::vector<ProtocolTypeInfo> records;
    for (int i = 0; i < 100; ++i) {
        ProtocolTypeInfo info;
        info.setProtocolType(i);
        records.push_back(info);
    }

    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(records[static_cast<size_t>(i)].getProtocolType(), i);
        EXPECT_EQ(records[static_cast<size_t>(i)].getDomainType(), 235);
    }
}

TEST(ProtocolTypeInfoTest, ARecordIsDeletedThroughItsBase) {
    int destroyed = 0;
    auto filled = std::make_unique<Watched>(destroyed);
    Fill(*filled);
    std::unique_ptr<BaseDomain> record = std::move(filled);
    ASSERT_EQ(destroyed, 0);

    record.reset();

    EXPECT_EQ(destroyed, 1);
}
