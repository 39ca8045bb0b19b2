#include "check/LibrarySearch.h"

#include "check/FileDescriptor.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <initializer_list>
#include <memory>
#include <utility>

namespace {

constexpr size_t MaxPath = 4096;   // the kernel's limit, PATH_MAX
constexpr size_t PathPerStep = 64; // bytes of a path that are remembered for the price of one step
constexpr const char* MuslLinker = "ld-musl-";

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

std::string FileNameOf(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

// "$NAME" and "${NAME}" replaced, wherever they stand. A path that grows beyond the kernel's limit is no path.
std::string Expanded(std::string text, const std::string& name, const std::string& value) {
    for (const std::string& word : {"${" + name + "}", "$" + name}) {
        for (size_t at = text.find(word); at != std::string::npos && text.size() < MaxPath;
             at = text.find(word, at + value.size())) {
            text.replace(at, word.size(), value);
        }
    }
    return text;
}

// The part of musl's dynamic linker's name that also stands in the name of its list; empty for another linker.
std::string MuslArchitecture(const std::string& interpreter) {
    const std::string name = FileNameOf(interpreter);
    const std::string front = MuslLinker;
    return name.rfind(front, 0) == 0 ? name.substr(front.size(), name.find('.') - front.size()) : std::string();
}

bool IsForOneSystem(const ElfFile& one, const ElfFile& other) {
    return one.bits == other.bits && one.machine == other.machine && one.isLittleEndian == other.isLittleEndian;
}

// musl is all of these in one file, and takes itself for each (its dynlink.c, load_library).
bool IsMuslItself(const std::string& library) {
    const std::vector<std::string> parts = {"c", "pthread", "rt", "m", "dl", "util", "xnet"};
    return library.rfind(MuslLinker, 0) == 0 || std::any_of(parts.begin(), parts.end(), [&library](const auto& part) {
               return library.rfind("lib" + part + ".", 0) == 0;
           });
}

} // namespace

LibrarySearch::LibrarySearch(const DeviceRoot& deviceRoot) : root(deviceRoot), libNames({"lib", "lib64", "lib32"}) {
    readList("/etc/ld.so.conf");
    for (const char* base : {"/lib", "/usr/lib"}) {
        for (const char* suffix : {"", "64", "32"}) {
            addListed(std::string(base) + suffix, directories);
        }
        for (const DeviceName& each : namesIn(base)) {
            if (each.name.find("-linux-") != std::string::npos) {
                addListed(std::string(base) + "/" + each.name, directories);
                libNames.push_back("lib/" + each.name);
            }
        }
    }
}

void LibrarySearch::spend(uint64_t steps) noexcept {
    stepsLeft -= std::min(steps, stepsLeft);
}

const LibrarySearch::Looked& LibrarySearch::lookAt(const std::string& path) {
    static const Looked nothing;
    spend(1 + path.size() / PathPerStep);
    const auto at = looked.find(path);
    if (at != looked.end()) {
        return at->second;
    }
    if (isExhausted()) {
        return nothing;
    }
    const DeviceEntry entry = root.look(path);
    spend(entry.steps);
    return looked[path] = {entry.kind, entry.path};
}

// Of a directory of the system, which rarely has very many.
std::vector<DeviceName> LibrarySearch::namesIn(const std::string& directory) {
    std::vector<DeviceName> names;
    static_cast<void>(root.list(directory, MaxNames + 1, names));
    if (names.size() > MaxNames) {
        listsLeftOut = directory + " holds more than " + std::to_string(MaxNames) + " names";
        names.pop_back();
    }
    return names;
}

// A directory that is there, and those for better processors in it.
// @return what was left out, in words; empty for nothing.
std::string LibrarySearch::addDirectory(const std::string& directory, std::vector<std::string>& places) {
    const Looked& found = lookAt(directory);
    if (found.kind != DeviceEntry::Kind::Directory ||
        std::find(places.begin(), places.end(), found.path) != places.end()) {
        return {};
    }
    if (places.size() >= MaxDirectories) {
        return "more than " + std::to_string(MaxDirectories) + " directories are named";
    }
    places.push_back(found.path);
    const std::string hwcaps = found.path + "/glibc-hwcaps";
    std::vector<DeviceName> names;
    if (lookAt(hwcaps).kind == DeviceEntry::Kind::Directory) {
        static_cast<void>(root.list(hwcaps, MaxHwcaps + 1, names));
    }
    const bool isCut = names.size() > MaxHwcaps;
    names.resize(std::min(names.size(), MaxHwcaps));
    for (const DeviceName& each : names) {
        places.push_back(hwcaps + "/" + each.name);
    }
    return isCut ? hwcaps + " holds more than " + std::to_string(MaxHwcaps) + " names" : std::string();
}

void LibrarySearch::addListed(const std::string& directory, std::vector<std::string>& places) {
    const std::string left = addDirectory(directory, places);
    if (!left.empty()) {
        listsLeftOut = "in the lists of the dynamic linker, " + left;
    }
}

// One directory a word, "include PATTERN" for more lists.
void LibrarySearch::readList(const std::string& path) {
    const DeviceEntry entry = root.look(path);
    if (entry.kind != DeviceEntry::Kind::File || lists.count(entry.path) != 0) {
        return;
    }
    std::string text;
    if (lists.size() >= MaxLists || entry.size > MaxListSize || !root.read(path, MaxListSize, text)) {
        listsLeftOut = path + " is one list too many, has more than " + std::to_string(MaxListSize) +
                       " bytes or cannot be read here";
        return;
    }
    lists.insert(entry.path);
    for (std::string line : SplitAt(text, "\n\r")) {
        line.resize(std::min(line.find('#'), line.size()));
        const std::vector<std::string> words = SplitAt(line, " \t:,");
        const bool isInclude = !words.empty() && words.front() == "include";
        for (size_t i = isInclude ? 1 : 0; i < words.size(); ++i) {
            if (isInclude) {
                include(words[i]);
            } else {
                addListed(words[i], directories);
            }
        }
    }
}

// As glob(3) does it, but for patterns in the name of the directory, and for more "*" than a person writes: matching them
// may take very long.
void LibrarySearch::include(const std::string& pattern) {
    const std::string directory = pattern[0] == '/' ? DirectoryOf(pattern) : "/etc/" + DirectoryOf(pattern);
    const std::string name = FileNameOf(pattern);
    if (++patterns > MaxLists || directory.find_first_of("*?[") != std::string::npos ||
        std::count(name.begin(), name.end(), '*') > 2) {
        listsLeftOut = "\"include " + pattern + "\" is one too many, or no such pattern as is looked at";
        return;
    }
    for (const DeviceName& each : namesIn(directory)) {
        if (fnmatch(name.c_str(), each.name.c_str(), FNM_PERIOD) == 0) {
            readList(directory + "/" + each.name);
        }
    }
}

const std::vector<std::string>& LibrarySearch::muslDirectories(const std::string& architecture) {
    const auto added = ofMusl.emplace(architecture, std::vector<std::string>());
    if (added.second) {
        std::string text = "/lib:/usr/local/lib:/usr/lib";
        const std::string path = "/etc/ld-musl-" + architecture + ".path";
        if (root.look(path).size > MaxListSize) {
            listsLeftOut = path + " has more than " + std::to_string(MaxListSize) + " bytes";
        }
        static_cast<void>(root.read(path, MaxListSize, text));
        for (const std::string& directory : SplitAt(text, ":\n")) {
            addListed(directory, added.first->second);
        }
    }
    return added.first->second;
}

const ElfFile* LibrarySearch::read(const std::string& path) {
    const Looked& entry = lookAt(path);
    const auto at = known.find(entry.path);
    if (at != known.end()) {
        return &at->second;
    }
    if (entry.kind != DeviceEntry::Kind::File) {
        return nullptr;
    }
    const FileDescriptor file = root.open(entry.path);
    if (file.get() < 0) {
        return nullptr;
    }
    return &(known[entry.path] = ReadElfFile(root.look(entry.path).size, [this, &file](uint64_t offset, size_t size) {
                 std::string bytes(size, '\0');
                 const ssize_t count = pread(file.get(), bytes.data(), size, static_cast<off_t>(offset));
                 bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
                 bytesLeft -= std::min<uint64_t>(bytes.size(), bytesLeft);
                 return bytes;
             }));
}

/// A program or library in the memory of the device.
struct LibrarySearch::Loaded {
    std::string path; ///< as it was found, which is what $ORIGIN is made of
    ElfFile file;
    size_t loader = 0;               ///< whoever needed it first; the program's is the program
    std::vector<std::string> places; ///< of its run path, those that are there
};

/// What the dynamic linker does before a program runs: all it needs, then all that they need, each name once.
class LibrarySearch::Load {
public:
    Load(LibrarySearch& librarySearch, const std::string& path, const ElfFile& file)
        : search(librarySearch),
          architecture(MuslArchitecture(file.interpreter)),
          common(architecture.empty() ? search.directories : search.muslDirectories(architecture)) {
        add(path, file, 0);
    }

    Result run() {
        for (size_t i = 0; i < all.size(); ++i) {
            for (const std::string& name : all[i].file.needed) {
                need(name, i);
            }
        }
        if (search.isExhausted()) {
            result.missing.clear();
            result.leftOut = "its libraries are not looked for: so many programs and libraries were looked at before";
        } else if (!result.missing.empty() && !uncertain.empty()) {
            result.missing.clear();
            result.leftOut = "a library was not found, but it may be there: " + uncertain;
        }
        return std::move(result);
    }

private:
    void need(const std::string& name, size_t by) {
        if ((isMusl() && IsMuslItself(name)) || names.count(name) != 0 || search.isExhausted()) {
            return;
        }
        if (names.size() >= MaxLibraries) {
            result.leftOut = "only the first " + std::to_string(MaxLibraries) + " of its libraries are looked for";
            return;
        }
        names.insert(name);
        if (!find(name, by)) {
            result.missing.push_back({name, all[by].path});
        }
    }

    bool find(const std::string& name, size_t by) {
        if (name.find('/') != std::string::npos) {
            return take(name, by);
        }
        if (isIn(all[by].places, name, by)) {
            return true;
        }
        // GNU's asks for a file with a DT_RUNPATH nobody else, and of the others none that has one.
        const bool asks = isMusl() || all[by].file.hasOldRunPath || all[by].file.runPath.empty();
        for (size_t i = by; asks && i != 0;) {
            i = all[i].loader;
            if ((isMusl() || all[i].file.hasOldRunPath) && isIn(all[i].places, name, by)) {
                return true;
            }
        }
        return isIn(common, name, by);
    }

    bool isIn(const std::vector<std::string>& places, const std::string& name, size_t by) {
        return std::any_of(places.begin(), places.end(),
                           [this, &name, by](std::string place) { return take(place.append("/").append(name), by); });
    }

    bool take(const std::string& path, size_t by) {
        const Looked& entry = search.lookAt(path);
        const ElfFile* file = search.read(path);
        if (entry.kind == DeviceEntry::Kind::Unreachable) {
            uncertain = path + " cannot be looked at here";
        } else if (entry.kind == DeviceEntry::Kind::File && file == nullptr) {
            result.leftOut = path + " cannot be read here, so it is not known what that needs";
            return true;
        }
        if (file == nullptr || file->state != ElfFile::State::Read || !IsForOneSystem(*file, all.front().file)) {
            return false;
        }
        names.insert(file->soname);
        add(path, *file, by);
        return true;
    }

    void add(const std::string& path, const ElfFile& file, size_t loader) {
        all.push_back({path, file, loader, {}});
        if (!file.leftOut.empty()) {
            uncertain = path + " has " + file.leftOut;
            result.leftOut = "not all of its libraries are known: " + uncertain;
        }
        for (const std::string& directory : SplitAt(file.runPath, ":")) {
            const std::string place = Expanded(directory, "ORIGIN", DirectoryOf(path));
            if (place.find("PLATFORM") != std::string::npos) {
                uncertain = "what $PLATFORM in the run path of " + path + " is, the device's processor decides";
            }
            const size_t variants = place.find('$') == std::string::npos ? 1 : search.libNames.size();
            for (size_t i = 0; i < variants; ++i) {
                const std::string left =
                    search.addDirectory(Expanded(place, "LIB", search.libNames[i]), all.back().places);
                if (!left.empty()) {
                    uncertain = std::string("in the run path of ").append(path).append(", ").append(left);
                }
            }
        }
    }

    bool isMusl() const { return !architecture.empty(); }

    LibrarySearch& search;
    const std::string architecture;
    const std::vector<std::string>& common;
    std::deque<Loaded> all; // not a vector: what is in it stays where it is
    std::set<std::string> names;
    std::string uncertain = search.listsLeftOut;
    Result result;
};

const LibrarySearch::Result& LibrarySearch::look(const std::string& path, const ElfFile& file) {
    const auto at = results.find(path);
    return at != results.end() ? at->second : results[path] = Load(*this, path, file).run();
}
