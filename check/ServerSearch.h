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

    /// What has one name; paths on the device.
    struct Found {
        /// In the order of the walk: the executable files; without one, ELF files and scripts that are not executable;
        /// without one, what may be anything, such as a link that leads nowhere.
        std::vector<std::string> paths;
        bool isCut = false;    ///< there are more than `MaxPaths` of them
        std::string noProgram; ///< a file that does not look like a program, of settings perhaps; empty for none
    };

    std::map<std::string, Found> found; ///< by name
    std::string leftOut;                ///< why not all was looked at; empty: all was
};

/// @param names of the servers that are looked for.
/// @param maxEntries after which the walk is given up.
ServerSearch FindServers(const DeviceRoot& root, const std::set<std::string>& names, size_t maxEntries);
