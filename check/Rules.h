#pragma once

#include "check/Finding.h"

#include <cstddef>
#include <string>

/// A kind of finding: its id, how bad it is, and what it means for the device.
struct Rule {
    const char* id;
    Severity severity;
    const char* explanation; ///< what is looked at, what happens on the device, what to do
};

/// @return the table of all rules, in the order of their groups, and how many there are.
const Rule* AllRules(size_t& count) noexcept;

/// @return the rule of this id, or null.
const Rule* FindRule(const std::string& id) noexcept;
