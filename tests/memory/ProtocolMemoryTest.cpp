#include "protocol/ProtocolTypeInfo.h"
#include "tests/memory/FaultSweep.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <tuple>

namespace {

// A record's texts are the only thing that it allocates.
const FaultRules Rules = {{"operator new", Ending::Threw, Ending::Threw}};

const std::string Name = "a name that is too long for the inside of a string";
const std::string Id = "an identifier that is too long for the inside of a string";

using Fields = std::tuple<std::string, std::string, int32_t, bool, int32_t>;

Fields FieldsOf(const ProtocolTypeInfo& info) {
    return {info.getProtocolName(), info.getProtocolId(), info.getProtocolType(), info.isProtocolEnable(),
            info.getDomainType()};
}

const Fields LongFields = {Name, Id, -17, true, ProtocolTypeInfo::DomainType};
const Fields ShortFields = {"name", "id", 3, false, ProtocolTypeInfo::DomainType};

ProtocolTypeInfo InfoOf(const Fields& fields) {
    ProtocolTypeInfo info;
    info.setProtocolName(std::get<0>(fields));
    info.setProtocolId(std::get<1>(fields));
    info.setProtocolType(std::get<2>(fields));
    info.setProtocolEnable(std::get<3>(fields));
    return info;
}

} // namespace

TEST(ProtocolMemoryTest, ARecordThatCouldNotBeCopiedForLackOfMemoryLeavesNothingAndTheOtherAsItWas) {
    const ProtocolTypeInfo other = InfoOf(LongFields);

    SweepFaults("copy", [&](FaultyAttempt& attempt) {
        std::unique_ptr<const ProtocolTypeInfo> copy;

        attempt.run(Rules, [&] {
            copy = std::make_unique<const ProtocolTypeInfo>(other);
            return true;
        });

        if (attempt.succeeded()) {
            EXPECT_EQ(FieldsOf(*copy), LongFields);
        }
        EXPECT_EQ(FieldsOf(other), LongFields);
        EXPECT_EQ(FieldsOf(ProtocolTypeInfo(other)), LongFields);
    });
}

TEST(ProtocolMemoryTest, ARecordThatCouldNotBeAssignedForLackOfMemoryHasTheFieldsBeforeTheOneThatFailed) {
    const ProtocolTypeInfo other = InfoOf(LongFields);
    const Fields onlyTheName = {Name, "id", 3, false, ProtocolTypeInfo::DomainType};
    std::set<Fields> left;

    SweepFaults("assignment", [&](FaultyAttempt& attempt) {
        ProtocolTypeInfo info = InfoOf(ShortFields);

        attempt.run(Rules, [&] {
            info = other;
            return true;
        });

        if (!attempt.succeeded()) {
            left.insert(FieldsOf(info));
            info = other;
        }
        EXPECT_EQ(FieldsOf(info), LongFields);
        EXPECT_EQ(FieldsOf(other), LongFields);
    });

    EXPECT_EQ(left, (std::set<Fields>{ShortFields, onlyTheName}));
}

TEST(ProtocolMemoryTest, ATextThatCouldNotBeSetForLackOfMemoryStaysAsItWas) {
    const struct {
        const char* name;
        void (ProtocolTypeInfo::*set)(const std::string& text);
        const std::string& (ProtocolTypeInfo::*get)() const noexcept;
        const std::string& text;
    } cases[] = {
        {"setProtocolName", &ProtocolTypeInfo::setProtocolName, &ProtocolTypeInfo::getProtocolName, Name},
        {"setProtocolId", &ProtocolTypeInfo::setProtocolId, &ProtocolTypeInfo::getProtocolId, Id},
    };

    for (const auto& c : cases) {
        SweepFaults(c.name, [&](FaultyAttempt& attempt) {
            ProtocolTypeInfo info = InfoOf(ShortFields);

            attempt.run(Rules, [&] {
                (info.*c.set)(c.text);
                return true;
            });

            if (!attempt.succeeded()) {
                EXPECT_EQ(FieldsOf(info), ShortFields);
                (info.*c.set)(c.text);
            }
            EXPECT_EQ((info.*c.get)(), c.text);
        });
    }
}
