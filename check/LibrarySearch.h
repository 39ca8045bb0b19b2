#pragma once

#include "check/DeviceRoot.h"
#include "check/ElfFile.h"

#include <map>
#include <string>
#include <vector>

/// Finds the libraries of the device's programs, as the dynamic linkers of GNU and musl would on the device.
///
/// Looked through: the run path of whoever needs the library ($ORIGIN resolved), the directories of /etc/ld.so.conf, its
/// ld.so.conf.d and /etc/ld-musl-*.path, /lib, /usr/lib, the same with 64 and 32 behind, and the directories of Debian's
/// kind in them (lib/arm-linux-gnueabihf). LD_LIBRARY_PATH of the device is not known here.
///
/// Owns:    what it has read. Bounded: libraries, directories and sizes.
/// Fails:   throws only std::bad_alloc.
/// Threads: one at a time per object.
class LibrarySearch {
public:
    /// A program or library larger than this is not looked into.
    static constexpr size_t MaxFileSize = size_t{64} << 20U;
    /// Libraries that one program may need, those of its libraries counted.
    static constexpr size_t MaxLibraries = 512;

    explicit LibrarySearch(const DeviceRoot& deviceRoot);

    /// A library that is needed and not there.
    struct Missing {
        std::string library;
        std::string neededBy; ///< path on the device
    };

    /// @param path of the program, without links; `file` what was read from it.
    /// @return the libraries that it, or one of its libraries, lacks.
    std::vector<Missing> missing(const std::string& path, const ElfFile& file);

private:
    struct Library {
        std::string path; ///< empty: there is none
        ElfFile file;
    };

    void addDirectory(const std::string& directory);
    void readList(const std::string& path, int depth);
    bool matches(const std::string& path, const ElfFile& wanted, Library& out);
    Library find(const std::string& name, const std::string& neededBy, const ElfFile& by);

    const DeviceRoot& root;
    std::vector<std::string> directories;
    std::map<std::string, ElfFile> known; ///< by path
};

/// Reads a program's ELF headers. @return state `NotElf` for what cannot be read or is too large.
ElfFile ReadElfOf(const DeviceRoot& root, const std::string& path);
