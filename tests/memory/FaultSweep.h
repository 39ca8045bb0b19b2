#pragma once

#include "tests/support/AllocationFault.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iosfwd>
#include <new>
#include <string>
#include <vector>

/// How an operation ended of which an allocation was refused.
enum class Ending {
    Threw, ///< by std::bad_alloc
    False, ///< by its failure result
    True,  ///< as if nothing had happened
};

void PrintTo(Ending ending, std::ostream* out);

/// What has to follow when this call is refused its memory: when it alone is, and when every later call is, too.
struct FaultRule {
    const char* call; ///< as `RefusedAllocation::call`
    Ending one;
    Ending rest;
};

using FaultRules = std::vector<FaultRule>;

/// One attempt of an operation, with the n-th allocation refused.
class FaultyAttempt {
public:
    FaultyAttempt(size_t number, AllocationFault::Extent faultExtent) : n(number), extent(faultExtent) {}

    /// Runs the operation, which answers whether it succeeded. Only in here an allocation is refused. Expects the ending
    /// that the rules give for the call that was refused, and success when none was.
    template <class Operation>
    void run(const FaultRules& rules, const Operation& operation) {
        const AllocationFault fault(n, extent);
        try {
            ended = operation() ? Ending::True : Ending::False;
        } catch (const std::bad_alloc&) {
            ended = Ending::Threw;
        }
        AllocationFault::stop();
        refused = AllocationFault::happened();
        EXPECT_EQ(ended, expectedEnding(rules));
    }

    /// @return whether an allocation was refused.
    bool happened() const { return refused; }

    /// @return whether the operation succeeded, though perhaps without what an allocation was for.
    bool succeeded() const { return ended == Ending::True; }

    bool threw() const { return ended == Ending::Threw; }

private:
    Ending expectedEnding(const FaultRules& rules) const;

    size_t n;
    AllocationFault::Extent extent;
    Ending ended = Ending::True;
    bool refused = false;
};

/// The course of a sweep: the attempts of one extent after the other, until nothing was left to refuse.
class FaultSweep {
public:
    explicit FaultSweep(const std::string& operation);

    /// @return false at the end of the sweep, or after a failure.
    bool next();

    FaultyAttempt attempt() const { return {n, extent}; }

    std::string name() const;

    /// Takes what came of an attempt.
    void note(bool happened);

private:
    std::string what;
    AllocationFault::Extent extent = AllocationFault::Extent::One;
    size_t n = 0;
    bool finished = false;
    int descriptor;
};

/// Makes attempt after attempt, each with a later allocation refused, until nothing was left to refuse; once with that
/// allocation alone refused, and once with all that follow it, too. Expects that none leaves memory (where a leak
/// sanitizer watches) or a file descriptor behind.
/// @param attempt takes a FaultyAttempt&, prepares, runs the operation, and expects what must hold then.
template <class Attempt>
void SweepFaults(const std::string& operation, const Attempt& attempt) {
    FaultSweep sweep(operation);
    while (sweep.next()) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, sweep.name());
        FaultyAttempt faulty = sweep.attempt();
        attempt(faulty);
        sweep.note(faulty.happened());
    }
}

/// The same for what a process does only once: each attempt has a process of its own, and its exit-time functions run.
template <class Attempt>
void SweepFaultsInChildren(const std::string& operation, const Attempt& attempt) {
    FaultSweep sweep(operation);
    while (sweep.next()) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, sweep.name());
        const ChildResult child = RunInChild([&] {
            FaultyAttempt faulty = sweep.attempt();
            attempt(faulty);
            if (testing::Test::HasFailure()) {
                std::exit(EXIT_FAILURE);
            }
            static_cast<void>(std::fputs(faulty.happened() ? "refused\n" : "whole\n", stdout));
        });
        EXPECT_TRUE(child.exitedWith(EXIT_SUCCESS)) << "status " << child.status << "\n" << child.output;
        sweep.note(child.output == "refused\n");
    }
}
