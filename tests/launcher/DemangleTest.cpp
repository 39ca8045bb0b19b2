#include <gtest/gtest.h>

#include <cxxabi.h>
#include <stdexcept>

// This program carries launcher/Demangle.cpp, as a launcher with the C++ runtime inside does.

namespace {

void Throw() {
    throw std::runtime_error("this is why");
}

// Nothing catches what comes this far.
void ThrowOutOfAProgram() noexcept {
    Throw();
}

} // namespace

TEST(DemangleTest, ATypesNameIsRefusedAsForWantOfMemory) {
    int status = 0;

    EXPECT_EQ(abi::__cxa_demangle("St9bad_alloc", nullptr, nullptr, &status), nullptr);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(abi::__cxa_demangle("St9bad_alloc", nullptr, nullptr, nullptr), nullptr);
}

TEST(DemangleTest, AnExceptionThatEndsTheProcessIsPrintedAsTheCompilerSpellsItWithItsMessage) {
    EXPECT_DEATH(ThrowOutOfAProgram(),
                 "terminate called after throwing an instance of 'St13runtime_error'\n  what\\(\\):  this is why");
}
