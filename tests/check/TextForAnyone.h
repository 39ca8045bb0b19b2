#pragma once

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>

/// @return what a function returns to a user who may not read everything, as root may.
template <class Function>
std::string TextForAnyone(const Function& function) {
    const ChildResult child = RunInChild([&function] {
        if (geteuid() == 0) {
            ASSERT_EQ(setuid(65534), 0);
        }
        static_cast<void>(std::printf("%s", std::string(function()).c_str()));
    });
    return child.output;
}
