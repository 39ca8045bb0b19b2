#pragma once

#include "check/CheckReport.h"
#include "check/ServerSearch.h"

#include <cstddef>
#include <string>

/// What is to be checked.
struct CheckRequest {
    std::string root;          ///< directory of this machine that is the device's root; empty: no image
    std::string configuration; ///< a file of this machine that stands in for the working copy; empty: the image's own
    std::string planMode;      ///< "start", "stop" or empty
    bool strict = false;
    size_t maxEntries = ServerSearch::MaxEntries; ///< of the tree that are looked at in search of servers
};

/// Checks a device's tree, or a configuration file alone. Runs nothing and writes nothing.
///
/// @param request with a root that can be opened, or a configuration.
/// @return false when the root cannot be opened, or the configuration is not there or no regular file; `out` has only the
///         problem then.
/// Throws only std::bad_alloc. Threads: one.
bool CheckDevice(const CheckRequest& request, CheckReport& out);
