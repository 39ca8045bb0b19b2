#pragma once

#include "check/DeviceRoot.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>

/// Where in the image the servers are: files whose name is that of a server, found by walking over the tree.
///
/// /dev, /proc and /sys are left out, and links to directories are not followed. A number of entries at most is looked at, and
/// nothing that stands deeper than `MaxDepth`.
struct ServerSearch {
    static constexpr size_t MaxEntries = 200000; ///< for ordinary use
    static constexpr size_t MaxDepth = 32;

    std::map<std::string, std::string> found; ///< path on the device, by name; the first in the order of the walk
    bool isCut = false;                       ///< there was more to look at
};

/// @param names of the servers that are looked for.
/// @param maxEntries after which the walk is given up.
ServerSearch FindServers(const DeviceRoot& root, const std::set<std::string>& names, size_t maxEntries);
