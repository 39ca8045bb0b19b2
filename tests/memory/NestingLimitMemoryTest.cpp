#include "tests/memory/FaultSweep.h"
#include "tests/support/ParserDepth.h"
#include "tests/support/Repeated.h"
#include "tests/xmlconfig/ShallowNestingLimit.h"

#include <gtest/gtest.h>

#include <tinyxml.h>

#include <cstddef>
#include <string>

namespace {

std::string Nested(size_t depth) {
    return Repeated("<a>", depth) + Repeated("</a>", depth);
}

} // namespace

// Memory is asked for where the check asks the library: for a declaration, and for the parse of what stands before the
// place that seems too deep.
TEST(NestingLimitMemoryTest, ACheckThatCouldNotBeMadeForLackOfMemoryEndsByBadAllocAndIsRightTheNextTime) {
    const FaultRules rules = {{"operator new", Ending::Threw, Ending::Threw}};
    const std::string declaration = "<?xml version=\"1.0\" encoding=\"a long name, on the heap\"?>";
    const struct {
        const char* name;
        std::string text;
        bool tooDeep;
    } cases[] = {
        {"too deep", Nested(ShallowDepth + 1), true},
        {"too deep, behind a declaration", declaration + Nested(ShallowDepth + 1), true},
        {"just allowed, behind a declaration", declaration + Nested(ShallowDepth), false},
        {"deeper, behind an attribute that is there twice", "<a x='1' x='2'>" + Nested(ShallowDepth), false},
        {"deeper, behind a wrong end tag", "<a></b>" + Nested(ShallowDepth + 1), false},
    };

    for (const auto& c : cases) {
        const std::string text = WithSpareBytes(c.text);
        SweepFaults(c.name, [&](FaultyAttempt& attempt) {
            bool answer = !c.tooDeep;

            attempt.run(rules, [&] {
                answer = NestsDeeperThanShallow(text.c_str(), TIXML_ENCODING_UNKNOWN);
                return true;
            });

            EXPECT_EQ(answer == c.tooDeep, attempt.succeeded());
            EXPECT_EQ(NestsDeeperThanShallow(text.c_str(), TIXML_ENCODING_UNKNOWN), c.tooDeep);
        });
    }
}
