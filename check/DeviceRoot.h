#pragma once

#include "check/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What stands at a path of the device, its links followed.
struct DeviceEntry {
    enum class Kind : uint8_t {
        Missing,
        DanglingLink, ///< the entry is a symbolic link that leads to nothing
        LinkLoop,     ///< more links on the way than the kernel follows
        Unreachable,  ///< this user may not look, or reading failed
        File,
        Directory,
        Fifo,
        Terminal, ///< a character device whose opening may wait, as that of a serial line does
        Other,    ///< a socket, another device
    };

    Kind kind = Kind::Missing;
    bool isLink = false; ///< the entry itself is a symbolic link
    std::string path;    ///< where it stands, without links; only for what exists
    uint32_t mode = 0;   ///< the permission bits
    uint64_t size = 0;   ///< in bytes, of a file
    uint64_t device = 0; ///< with `inode`: the same for two paths of one file
    uint64_t inode = 0;
    size_t steps = 0; ///< directories that the way led through: what looking cost

    /// @return whether it is a regular file that somebody may execute: root then may, too.
    bool isExecutable() const noexcept { return kind == Kind::File && (mode & 0111U) != 0; }
};

/// A name in a directory of the device.
struct DeviceName {
    std::string name;
    bool isDirectory = false;
};

/// A directory of this machine as the root of a device: every path, and every target of a link, is one of the device's.
///
/// Never leaves the directory: each step of a path is opened by itself, without following links (openat(2), O_NOFOLLOW),
/// and links are read and resolved here, absolute ones from the directory again, ".." never above it. Nothing is written.
/// Only regular files are opened: a FIFO or a device would make whoever opens it wait.
/// The launcher's own code, which lists the start programs (ListDirectory) and parses a configuration (ProtocolConfig),
/// takes a path of this machine instead: it is given one without links, as `look` found it, and opens it anew. Whoever
/// changes the tree while it is checked can lead that one open out of the directory.
///
/// Owns:    a descriptor of the directory. Not copied.
/// Fails:   by result; throws only std::bad_alloc.
/// Threads: one at a time per object.
class DeviceRoot {
public:
    /// Links on the way to one file, as many as the kernel follows (path_resolution(7)).
    static constexpr int MaxLinks = 40;
    /// Directories that the way to one file may lead through, those of links and ".." counted each time.
    static constexpr size_t MaxSteps = 1000;

    explicit DeviceRoot(const std::string& hostDirectory);

    /// @return whether the directory could be opened.
    bool isOpen() const noexcept { return root.get() >= 0; }

    /// @return the path on this machine of a path of the device; its links are not looked at.
    std::string onHost(const std::string& path) const;

    DeviceEntry look(const std::string& path) const;

    /// Opens a regular file for reading.
    /// @return the file, or none for everything that is no regular file or cannot be opened.
    FileDescriptor open(const std::string& path) const;

    /// Reads a regular file from its start.
    /// @param limit no more bytes than these are read.
    /// @return false, with `out` as it was, for everything that is no regular file or cannot be read.
    bool read(const std::string& path, size_t limit, std::string& out) const;

    /// Lists a directory, hidden names too, but for "." and "..", in the order in which it yields them.
    /// @param limit no more names than these are listed.
    /// @return false, with `out` as it was, when it is none or cannot be read.
    bool list(const std::string& path, size_t limit, std::vector<DeviceName>& out) const;

    /// @return whether the order in which a directory yields its names is the one that the device will see: the root is
    ///         this machine's own, or its file system is of a kind that is made once, as a whole, for a device.
    bool hasTheDevicesOrder(const std::string& directory) const;

private:
    class Walk;
    struct Place;
    Place resolve(const std::string& path) const;
    FileDescriptor openDirectory(const std::vector<std::string>& names) const;

    std::string hostRoot; ///< without a slash at the end; empty for "/"
    FileDescriptor root;
};
