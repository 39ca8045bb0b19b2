#include "tests/memory/FaultSweep.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <ostream>

extern "C" {
int __lsan_do_recoverable_leak_check() __attribute__((weak));
}

namespace {

constexpr size_t TooMany = 5000;

// It is a higher one when something was left open.
int LowestFreeDescriptor() {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(descriptor, 0);
    static_cast<void>(close(descriptor));
    return descriptor;
}

void ExpectNoLeak() {
    if (__lsan_do_recoverable_leak_check != nullptr) {
        EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "the report is on standard error";
    }
}

} // namespace

void PrintTo(Ending ending, std::ostream* out) {
    *out << (ending == Ending::Threw ? "std::bad_alloc" : ending == Ending::False ? "failure" : "success");
}

Ending FaultyAttempt::expectedEnding(const FaultRules& rules) const {
    if (!refused) {
        return Ending::True;
    }
    const RefusedAllocation allocation = AllocationFault::refused();
    // A cross compiler's C library comes without the list of its conversions. It looks for one, in memory that it can do
    // without, and opens the conversions that it has inside.
    if (*WYVERN_EMULATOR != '\0' && allocation.call == "iconv_open" && !allocation.failed) {
        return Ending::True;
    }
    EXPECT_EQ(allocation.failed, allocation.call != "other") << allocation.call;
    for (const FaultRule& rule : rules) {
        if (allocation.call == rule.call) {
            return extent == AllocationFault::Extent::One ? rule.one : rule.rest;
        }
    }
    ADD_FAILURE() << "no rule for " << allocation.call;
    return Ending::True;
}

FaultSweep::FaultSweep(const std::string& operation) : what(operation), descriptor(LowestFreeDescriptor()) {}

bool FaultSweep::next() {
    ++n;
    return !finished && !testing::Test::HasFailure();
}

std::string FaultSweep::name() const {
    return what + ", allocation " + std::to_string(n) +
           (extent == AllocationFault::Extent::One ? " refused" : " and all later ones refused");
}

void FaultSweep::note(bool happened) {
    EXPECT_EQ(LowestFreeDescriptor(), descriptor) << "a descriptor was left open";
    ASSERT_LT(n, TooMany);
    if (happened || testing::Test::HasFailure()) {
        return;
    }
    EXPECT_GT(n, 1U) << "nothing was refused";
    std::printf("%s: %zu allocations refused, each %s\n", what.c_str(), n - 1,
                extent == AllocationFault::Extent::One ? "alone" : "with all later ones");
    n = 0;
    finished = extent == AllocationFault::Extent::Rest;
    extent = AllocationFault::Extent::Rest;
    ExpectNoLeak();
    descriptor = LowestFreeDescriptor(); // the leak sanitizer keeps a pipe to its symbolizer
}
