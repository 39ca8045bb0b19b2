#include "check/ServerSearch.h"

#include <algorithm>
#include <deque>
#include <vector>

namespace {

const std::set<std::string>& LeftOut() {
    static const std::set<std::string> directories = {"/dev", "/proc", "/sys"};
    return directories;
}

} // namespace

ServerSearch FindServers(const DeviceRoot& root, const std::set<std::string>& names, size_t maxEntries) {
    ServerSearch search;
    std::deque<std::string> left = {""};
    size_t entries = 0;
    while (!left.empty() && search.found.size() < names.size() && !search.isCut) {
        const std::string directory = left.front();
        left.pop_front();
        std::vector<DeviceName> listed;
        static_cast<void>(root.list(directory, maxEntries - entries + 1, listed));
        entries += listed.size();
        search.isCut = entries > maxEntries;
        for (const DeviceName& each : listed) {
            const std::string path = directory + "/" + each.name;
            if (each.isDirectory) {
                const auto depth = static_cast<size_t>(std::count(path.begin(), path.end(), '/'));
                if (depth < ServerSearch::MaxDepth && LeftOut().count(path) == 0) {
                    left.push_back(path);
                }
            } else if (names.count(each.name) != 0) {
                search.found.emplace(each.name, path);
            }
        }
    }
    return search;
}
