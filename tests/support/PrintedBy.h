#pragma once

#include "runtime/LogSettings.h"

#include <gtest/gtest.h>

#include <string>

/// @return what is printed on either stream while `action` runs, with every level of the log switched on.
template <class Action>
std::string PrintedBy(const Action& action) {
    LogSettings::instance().setMaxLevel(3);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    std::string printed = testing::internal::GetCapturedStdout();
    printed += testing::internal::GetCapturedStderr();
    LogSettings::instance().setMaxLevel(0);
    return printed;
}
