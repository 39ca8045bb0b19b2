#pragma once

#include "check/DeviceRoot.h"
#include "check/ElfFile.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Finds the libraries of the device's programs, as the dynamic linkers of GNU and musl would on the device.
///
/// Looked through: the run path of whoever needs the library ($ORIGIN resolved), the directories of /etc/ld.so.conf, its
/// ld.so.conf.d and /etc/ld-musl-*.path, /lib, /usr/lib, the same with 64 and 32 behind, and the directories of Debian's
/// kind in them (lib/arm-linux-gnueabihf). LD_LIBRARY_PATH of the device is not known here.
///
/// Owns:    what it has read, each file once. Bounded: sizes, directories, libraries of a program, and all reading and
///          looking together; beyond that it gives up (`hasGivenUp`).
/// Fails:   throws only std::bad_alloc.
/// Threads: one at a time per object.
class LibrarySearch {
public:
    /// A program or library larger than this is not looked into.
    static constexpr size_t MaxFileSize = size_t{64} << 20U;
    /// Bytes of all programs and libraries that are read.
    static constexpr uint64_t MaxBytes = uint64_t{1} << 30U;
    /// Paths at which a library is looked for, all programs together.
    static constexpr size_t MaxLooks = 20000;
    /// Libraries that one program may need, those of its libraries counted.
    static constexpr size_t MaxLibraries = 512;

    explicit LibrarySearch(const DeviceRoot& deviceRoot);

    /// Reads a program's ELF headers. @return null for what cannot be read or is too large; valid as long as this object.
    const ElfFile* read(const std::string& path);

    /// @return whether something was left out because there was too much of it.
    bool hasGivenUp() const noexcept { return givenUp; }

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
    std::string realPath(const std::string& path);
    bool matches(const std::string& path, const ElfFile& wanted, Library& out);
    Library find(const std::string& name, const std::string& neededBy, const ElfFile& by);

    const DeviceRoot& root;
    std::vector<std::string> directories;
    std::map<std::string, std::string> realPaths; ///< by the path that was looked at; empty: no file is there
    std::map<std::string, ElfFile> known;         ///< by the path without links
    uint64_t bytesLeft = MaxBytes;
    bool givenUp = false;
};
