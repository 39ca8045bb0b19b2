#include "check/ServerSearch.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace {

const std::set<std::string>& LeftOut() {
    static const std::set<std::string> directories = {"/dev", "/proc", "/sys", "/run"};
    return directories;
}

// How likely it is the server: a file of data may have its name, and a link that leads nowhere.
int Likelihood(const DeviceEntry& entry) {
    if (entry.kind != DeviceEntry::Kind::File) {
        return 0;
    }
    return entry.isExecutable() ? 2 : 1;
}

/// The most likely of the paths of one name.
struct Candidates {
    int likelihood = 0;
    std::vector<std::string> paths;

    void add(const std::string& path, int itsLikelihood) {
        if (itsLikelihood > likelihood) {
            likelihood = itsLikelihood;
            paths.clear();
        }
        if (itsLikelihood == likelihood && paths.size() < ServerSearch::MaxPaths) {
            paths.push_back(path);
        }
    }
};

} // namespace

ServerSearch FindServers(const DeviceRoot& root, const std::set<std::string>& names, size_t maxEntries) {
    ServerSearch search;
    std::map<std::string, Candidates> candidates;
    std::deque<std::string> left = {""};
    size_t entries = 0;
    while (!left.empty() && entries <= maxEntries) {
        const std::string directory = std::move(left.front());
        left.pop_front();
        std::vector<DeviceName> listed;
        if (!root.list(directory, maxEntries - entries + 1, listed)) {
            search.leftOut = root.onHost(directory) + " cannot be listed here";
        }
        entries += listed.size();
        for (const DeviceName& each : listed) {
            const std::string path = directory + "/" + each.name;
            if (!each.isDirectory) {
                if (names.count(each.name) != 0) {
                    candidates[each.name].add(path, Likelihood(root.look(path)));
                }
            } else if (std::count(path.begin(), path.end(), '/') > static_cast<ptrdiff_t>(ServerSearch::MaxDepth)) {
                search.leftOut =
                    root.onHost(path) + " is deeper than " + std::to_string(ServerSearch::MaxDepth) + " directories";
            } else if (LeftOut().count(path) == 0) {
                left.push_back(path);
            }
        }
    }
    if (entries > maxEntries) {
        search.leftOut = "only the first " + std::to_string(maxEntries) + " files of the image are looked at";
    }
    for (auto& each : candidates) {
        search.found[each.first] = std::move(each.second.paths);
    }
    return search;
}
