#include "check/DeviceRoot.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <memory>
#include <utility>

namespace {

constexpr int DirectoryFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int FileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

struct DirectoryCloser {
    // As in ListDirectory.cpp: the unique_ptr calls this once.
    // cppcheck-suppress doubleFree
    void operator()(DIR* directory) const noexcept { static_cast<void>(closedir(directory)); }
};

std::deque<std::string> Split(const std::string& path) {
    std::deque<std::string> names;
    size_t start = 0;
    while (start < path.size()) {
        const size_t end = std::min(path.find('/', start), path.size());
        const std::string name = path.substr(start, end - start);
        if (!name.empty()) {
            names.push_back(name);
        }
        start = end + 1;
    }
    if (!path.empty() && path.back() == '/') {
        names.emplace_back("."); // what stands before it must be a directory
    }
    return names;
}

std::string Joined(const std::vector<std::string>& names) {
    std::string path;
    for (const std::string& name : names) {
        path += "/" + name;
    }
    return path.empty() ? "/" : path;
}

// An empty text for a link that cannot be read.
std::string LinkTarget(int directory, const std::string& name) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlinkat(directory, name.c_str(), target.data(), target.size());
    return {target.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

DeviceEntry::Kind KindOfError(int error, bool isLink) {
    if (error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG) {
        return isLink ? DeviceEntry::Kind::DanglingLink : DeviceEntry::Kind::Missing;
    }
    return DeviceEntry::Kind::Unreachable;
}

// The memory devices, such as /dev/null, which open at once; an overlay's mark for a removed file, which does not open.
bool NeverWaits(dev_t device) {
    return major(device) <= 1;
}

void Describe(const struct stat& status, DeviceEntry& entry) {
    entry.kind = S_ISREG(status.st_mode)                                  ? DeviceEntry::Kind::File
                 : S_ISDIR(status.st_mode)                                ? DeviceEntry::Kind::Directory
                 : S_ISFIFO(status.st_mode)                               ? DeviceEntry::Kind::Fifo
                 : S_ISCHR(status.st_mode) && !NeverWaits(status.st_rdev) ? DeviceEntry::Kind::Terminal
                                                                          : DeviceEntry::Kind::Other;
    entry.mode = status.st_mode & 07777U;
    entry.size = static_cast<uint64_t>(status.st_size);
    entry.device = status.st_dev;
    entry.inode = status.st_ino;
}

} // namespace

/// Where a path led: the entry, and for one that is no directory, what it is opened by.
struct DeviceRoot::Place {
    DeviceEntry entry;
    FileDescriptor directory; ///< the one that holds the file, or the directory itself
    std::string name;         ///< of the file in it; empty for a directory
};

DeviceRoot::DeviceRoot(const std::string& hostDirectory)
    : hostRoot(hostDirectory.substr(0, hostDirectory.find_last_not_of('/') + 1)),
      root(::open(hostDirectory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

std::string DeviceRoot::onHost(const std::string& path) const {
    return hostRoot + path;
}

FileDescriptor DeviceRoot::openDirectory(const std::vector<std::string>& names) const {
    FileDescriptor directory(openat(root.get(), ".", DirectoryFlags));
    for (const std::string& name : names) {
        directory = FileDescriptor(openat(directory.get(), name.c_str(), DirectoryFlags));
    }
    return directory;
}

/// One walk along a path: what is left of it, and the directory that was reached.
class DeviceRoot::Walk {
public:
    Walk(const DeviceRoot& deviceRoot, const std::string& path)
        : root(deviceRoot), left(Split(path)), directory(root.openDirectory(done)) {}

    Place toItsEnd() {
        run();
        place.entry.steps = steps;
        return std::move(place);
    }

private:
    void run() {
        while (!left.empty()) {
            const std::string name = left.front();
            const bool isOfThePath = left.size() == pathLeft;
            isLast = isOfThePath && pathLeft == 1;
            pathLeft -= isOfThePath ? 1 : 0;
            left.pop_front();
            const bool goesOn = name == ".." ? stepUp() : stepTo(name);
            if (!goesOn) {
                return;
            }
        }
        struct stat status {};
        if (fstat(directory.get(), &status) != 0) {
            place.entry.kind = DeviceEntry::Kind::Unreachable;
            return;
        }
        arrive(status);
    }

    // Each returns false when the walk is over: at a file, or at what it cannot pass.
    bool stop(DeviceEntry::Kind kind) {
        place.entry.kind = kind;
        return false;
    }

    bool stop(int error) { return stop(KindOfError(error, place.entry.isLink)); }

    // At the root, ".." is the root.
    bool stepUp() {
        if (!done.empty()) {
            done.pop_back();
        }
        steps += done.size() + 1;
        directory = root.openDirectory(done);
        if (steps > MaxSteps) {
            return stop(DeviceEntry::Kind::LinkLoop);
        }
        return true;
    }

    bool stepTo(const std::string& name) {
        if (++steps > MaxSteps) {
            return stop(DeviceEntry::Kind::LinkLoop);
        }
        if (name == ".") {
            return true;
        }
        struct stat status {};
        if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return stop(errno);
        }
        if (S_ISLNK(status.st_mode)) {
            return follow(LinkTarget(directory.get(), name));
        }
        done.push_back(name);
        if (!S_ISDIR(status.st_mode)) {
            if (!left.empty()) {
                return stop(ENOTDIR);
            }
            arrive(status);
            place.name = name;
            return false;
        }
        directory = FileDescriptor(openat(directory.get(), name.c_str(), DirectoryFlags));
        if (directory.get() < 0) {
            return stop(errno);
        }
        return true;
    }

    bool follow(const std::string& target) {
        place.entry.isLink = place.entry.isLink || isLast;
        if (++links > MaxLinks) {
            return stop(DeviceEntry::Kind::LinkLoop);
        }
        if (target.compare(0, 1, "/") == 0) {
            done.clear();
            directory = root.openDirectory(done);
        }
        const std::deque<std::string> names = Split(target);
        left.insert(left.begin(), names.begin(), names.end());
        return true;
    }

    void arrive(const struct stat& status) {
        Describe(status, place.entry);
        place.entry.path = Joined(done);
        place.directory = std::move(directory);
    }

    const DeviceRoot& root;
    std::deque<std::string> left;  ///< names, those of a link's target in front of the path's own
    size_t pathLeft = left.size(); ///< how many of them are the path's own
    bool isLast = false;           ///< this step is to the last name of the path
    std::vector<std::string> done; ///< names from the root to `directory`, or to the file
    FileDescriptor directory;
    int links = 0;
    size_t steps = 0;
    Place place;
};

DeviceRoot::Place DeviceRoot::resolve(const std::string& path) const {
    return Walk(*this, path).toItsEnd();
}

DeviceEntry DeviceRoot::look(const std::string& path) const {
    return resolve(path).entry;
}

FileDescriptor DeviceRoot::open(const std::string& path) const {
    const Place place = resolve(path);
    if (place.entry.kind != DeviceEntry::Kind::File) {
        return FileDescriptor();
    }
    return FileDescriptor(openat(place.directory.get(), place.name.c_str(), FileFlags));
}

bool DeviceRoot::read(const std::string& path, size_t limit, std::string& out) const {
    const FileDescriptor file = open(path);
    struct stat status {};
    static_cast<void>(fstat(file.get(), &status));
    std::string content(std::min<uint64_t>(limit, static_cast<uint64_t>(status.st_size)), '\0');
    size_t done = 0;
    ssize_t count = 0;
    do {
        count = ::read(file.get(), content.data() + done, content.size() - done);
        done += static_cast<size_t>(std::max<ssize_t>(count, 0));
    } while (count > 0); // the last time at the end of the text, or of the file
    if (count < 0) {     // also for a file that did not open
        return false;
    }
    content.resize(done); // the file may have become shorter
    out = std::move(content);
    return true;
}

bool DeviceRoot::list(const std::string& path, size_t limit, std::vector<DeviceName>& out) const {
    const Place place = resolve(path);
    if (place.entry.kind != DeviceEntry::Kind::Directory) {
        return false;
    }
    FileDescriptor opened(openat(place.directory.get(), ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
    const std::unique_ptr<DIR, DirectoryCloser> stream(fdopendir(opened.get())); // EBADF, and null, for -1
    if (stream == nullptr) {
        return false;
    }
    static_cast<void>(opened.release()); // the stream closes it
    // POSIX lets readdir share its buffer only among calls on one stream, and this stream is ours alone.
    // cppcheck-suppress readdirCalled
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    for (const dirent* entry = readdir(stream.get()); entry != nullptr && limit > 0; entry = readdir(stream.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            // Some file systems do not say what an entry is, and leave it to stat.
            struct stat status {};
            status.st_mode = static_cast<mode_t>(DTTOIF(entry->d_type));
            static_cast<void>(fstatat(dirfd(stream.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW));
            out.push_back({entry->d_name, S_ISDIR(status.st_mode)});
            --limit;
        }
    }
    return true;
}

bool DeviceRoot::hasTheDevicesOrder(const std::string& directory) const {
    // Kinds that hold a whole tree in the order in which a tool packed it, or that live on a flash chip only.
    constexpr std::array<uint64_t, 7> DeviceKinds = {SQUASHFS_MAGIC, CRAMFS_MAGIC,      CRAMFS_MAGIC_WEND,
                                                     0x7275,                                         // romfs
                                                     0xE0F5E1E2,     JFFS2_SUPER_MAGIC, 0x24051905}; // erofs, ubifs
    if (hostRoot.empty()) {
        return true;
    }
    const Place place = resolve(directory);
    struct statfs status {};
    if (fstatfs(place.directory.get(), &status) != 0) {
        return false;
    }
    return std::find(DeviceKinds.begin(), DeviceKinds.end(), static_cast<uint64_t>(status.f_type)) != DeviceKinds.end();
}
