#include "check/ServerSearch.h"

#include "check/ElfFile.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace {

constexpr size_t HeadSize = 4; // as many bytes as tell a program from settings

const std::set<std::string>& LeftOut() {
    static const std::set<std::string> directories = {"/dev", "/proc", "/sys", "/run"};
    return directories;
}

// What cannot be read may be a program as well as not.
bool LooksLikeAProgram(const DeviceRoot& root, const std::string& path) {
    std::string head;
    return !root.read(path, HeadSize, head) || IsElf(head) || head.compare(0, 2, "#!") == 0;
}

// How likely it is the server, 0 for not at all: settings may have its name, a directory, and a link that leads nowhere.
int Likelihood(const DeviceRoot& root, const std::string& path) {
    const DeviceEntry entry = root.look(path);
    if (entry.path.empty()) {
        return 1; // nothing that can be looked at
    }
    if (entry.kind != DeviceEntry::Kind::File) {
        return 0;
    }
    if (entry.isExecutable()) {
        return 3;
    }
    return LooksLikeAProgram(root, path) ? 2 : 0;
}

/// The most likely of the paths of one name.
struct Candidates {
    int likelihood = 1;
    ServerSearch::Found found;

    void add(const std::string& path, int itsLikelihood) {
        if (itsLikelihood == 0) {
            found.noProgram = path;
        }
        if (itsLikelihood > likelihood) {
            likelihood = itsLikelihood;
            found.paths.clear();
            found.isCut = false;
        }
        if (itsLikelihood == likelihood) {
            found.isCut = found.paths.size() == ServerSearch::MaxPaths;
            if (!found.isCut) {
                found.paths.push_back(path);
            }
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
                    candidates[each.name].add(path, Likelihood(root, path));
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
        search.found[each.first] = std::move(each.second.found);
    }
    return search;
}
