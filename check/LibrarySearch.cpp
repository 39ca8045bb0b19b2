#include "check/LibrarySearch.h"

#include <algorithm>
#include <deque>
#include <initializer_list>
#include <set>
#include <utility>

namespace {

constexpr size_t MaxDirectories = 200;
constexpr size_t MaxNames = 10000;
constexpr size_t MaxListSize = 65536;
constexpr int MaxListDepth = 4; // of lists that include lists

std::vector<std::string> SplitAt(const std::string& text, const char* separators) {
    std::vector<std::string> parts;
    size_t start = text.find_first_not_of(separators);
    while (start != std::string::npos) {
        const size_t end = std::min(text.find_first_of(separators, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(separators, end);
    }
    return parts;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/'));
}

std::string WithOrigin(std::string directory, const std::string& origin) {
    for (const char* word : {"${ORIGIN}", "$ORIGIN"}) {
        const size_t at = directory.find(word);
        if (at != std::string::npos) {
            directory.replace(at, std::char_traits<char>::length(word), origin);
        }
    }
    return directory;
}

} // namespace

LibrarySearch::LibrarySearch(const DeviceRoot& deviceRoot) : root(deviceRoot) {
    readList("/etc/ld.so.conf", 0);
    std::vector<DeviceName> names;
    static_cast<void>(root.list("/etc", MaxNames, names));
    for (const DeviceName& each : names) {
        if (each.name.rfind("ld-musl-", 0) == 0) {
            readList("/etc/" + each.name, 0);
        }
    }
    for (const char* base : {"/lib", "/usr/lib"}) {
        for (const char* suffix : {"", "64", "32"}) {
            addDirectory(std::string(base) + suffix);
        }
        names.clear();
        static_cast<void>(root.list(base, MaxNames, names));
        for (const DeviceName& each : names) {
            if (each.name.find("-linux-") != std::string::npos) {
                addDirectory(std::string(base) + "/" + each.name);
            }
        }
    }
}

void LibrarySearch::addDirectory(const std::string& directory) {
    if (directories.size() < MaxDirectories) {
        directories.push_back(directory);
    }
}

// One directory a word, "include PATTERN" for more lists; of the patterns only the usual one, all of a directory.
void LibrarySearch::readList(const std::string& path, int depth) {
    std::string text;
    if (depth >= MaxListDepth || !root.read(path, MaxListSize, text)) {
        return;
    }
    for (std::string line : SplitAt(text, "\n\r")) {
        line.resize(std::min(line.find('#'), line.size()));
        const std::vector<std::string> words = SplitAt(line, " \t:,");
        if (words.empty()) {
            continue;
        }
        if (words.front() != "include") {
            for (const std::string& word : words) {
                addDirectory(word);
            }
            continue;
        }
        for (size_t i = 1; i < words.size(); ++i) {
            const std::string directory = words[i][0] == '/' ? DirectoryOf(words[i]) : "/etc/" + DirectoryOf(words[i]);
            std::vector<DeviceName> names;
            static_cast<void>(root.list(directory, MaxDirectories, names));
            for (const DeviceName& each : names) {
                readList(directory + "/" + each.name, depth + 1);
            }
        }
    }
}

std::string LibrarySearch::realPath(const std::string& path) {
    const auto at = realPaths.find(path);
    if (at != realPaths.end()) {
        return at->second;
    }
    if (realPaths.size() >= MaxLooks) {
        givenUp = true;
        return {};
    }
    const DeviceEntry entry = root.look(path);
    return realPaths[path] = entry.kind == DeviceEntry::Kind::File ? entry.path : std::string();
}

const ElfFile* LibrarySearch::read(const std::string& path) {
    const std::string real = realPath(path);
    const auto at = known.find(real);
    if (at != known.end()) {
        return &at->second;
    }
    const uint64_t size = real.empty() ? 0 : root.look(real).size;
    std::string content;
    if (size > MaxFileSize || size > bytesLeft) {
        givenUp = true;
        return nullptr;
    }
    if (real.empty() || !root.read(real, MaxFileSize, content)) {
        return nullptr;
    }
    bytesLeft -= size;
    return &(known[real] = ReadElfFile(content));
}

bool LibrarySearch::matches(const std::string& path, const ElfFile& wanted, Library& out) {
    const ElfFile* file = read(path);
    if (file == nullptr || file->state != ElfFile::State::Read || file->bits != wanted.bits ||
        file->machine != wanted.machine || file->isLittleEndian != wanted.isLittleEndian) {
        return false;
    }
    out = {realPath(path), *file};
    return true;
}

LibrarySearch::Library LibrarySearch::find(const std::string& name, const std::string& neededBy, const ElfFile& by) {
    Library found;
    if (name.find('/') != std::string::npos) {
        static_cast<void>(matches(name, by, found));
        return found;
    }
    std::vector<std::string> places;
    for (const std::string& directory : SplitAt(by.runPath, ":")) {
        places.push_back(WithOrigin(directory, DirectoryOf(neededBy)));
    }
    places.insert(places.end(), directories.begin(), directories.end());
    static_cast<void>(std::any_of(places.begin(), places.end(), [&](std::string place) {
        return matches(place.append("/").append(name), by, found);
    }));
    return found;
}

std::vector<LibrarySearch::Missing> LibrarySearch::missing(const std::string& path, const ElfFile& file) {
    std::vector<Missing> lacking;
    std::set<std::string> seen;
    std::deque<Library> left = {{path, file}};
    while (!left.empty()) {
        const Library by = std::move(left.front());
        left.pop_front();
        for (const std::string& name : by.file.needed) {
            givenUp = givenUp || seen.size() >= MaxLibraries;
            if (givenUp || !seen.insert(name).second) {
                continue;
            }
            Library found = find(name, by.path, by.file);
            // A program's own run path serves its libraries, too, as DT_RPATH does; where it does not, it is rarely missed.
            if (found.path.empty()) {
                found = find(name, path, file);
            }
            if (found.path.empty()) {
                lacking.push_back({name, by.path});
            } else {
                left.push_back(std::move(found));
            }
        }
    }
    if (givenUp) {
        lacking.clear(); // what was not looked for is not missing
    }
    return lacking;
}
