#pragma once

#include "check/DeviceRoot.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Where in the image the servers are: files whose name is that of a server, found by walking over the tree.
///
/// /dev, /proc, /sys and /run are left out, which the device fills itself, and links to directories are not followed. A
/// number of entries at most is looked at, and nothing that stands deeper than `MaxDepth`.
struct ServerSearch {
    static constexpr size_t MaxEntries = 200000; ///< for ordinary use
    static constexpr size_t MaxDepth = 32;
    static constexpr size_t MaxPaths = 32; ///< of one name

    /// Paths on the device by name, in the order of the walk: the executable files; without one, the other files; without
    /// one, what else has the name, such as a link that leads nowhere.
    std::map<std::string, std::vector<std::string>> found;
    std::string leftOut; ///< why not all was looked at; empty: all was
};

/// @param names of the servers that are looked for.
/// @param maxEntries after which the walk is given up.
ServerSearch FindServers(const DeviceRoot& root, const std::set<std::string>& names, size_t maxEntries);
