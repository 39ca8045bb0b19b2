#pragma once

#include "check/DeviceRoot.h"
#include "check/ElfFile.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Finds the libraries of the device's programs, as the dynamic linkers of GNU and musl would on the device (ld.so(8)).
///
/// Looked through, for GNU: the DT_RPATH of whoever needs the library and of those that brought it in, unless it has a
/// DT_RUNPATH itself; its own DT_RUNPATH, which serves nobody else; the directories of /etc/ld.so.conf and what that
/// includes; /lib and /usr/lib, the same with 64 and 32 behind, and the directories of Debian's kind in them
/// (lib/arm-linux-gnueabihf). For a program whose dynamic linker is musl's: the run paths of both kinds, of whoever needs the
/// library and of those that brought it in; /etc/ld-musl-ARCH.path, or /lib, /usr/local/lib and /usr/lib without that; and
/// the C library is the dynamic linker itself. $ORIGIN and $LIB are resolved, and glibc-hwcaps in each directory counts.
/// LD_LIBRARY_PATH of the device is not known here.
///
/// Owns:    what it has read, each file once, and what it has found out, each program once.
///          Bounded: the libraries of one program, and all looking and all reading together.
/// Fails:   throws only std::bad_alloc.
/// Threads: one at a time per object.
class LibrarySearch {
public:
    /// Bytes that are read of the headers of all programs and libraries, some 30 KB of each.
    static constexpr uint64_t MaxBytes = uint64_t{256} << 20U;
    /// Directories that the ways to all paths that are looked at may lead through.
    static constexpr uint64_t MaxSteps = 200000;
    /// Libraries that one program may need, those of its libraries counted.
    static constexpr size_t MaxLibraries = 512;
    /// Directories of one run path, and of all lists of /etc/ld.so.conf together.
    static constexpr size_t MaxDirectories = 200;
    /// Lists that /etc/ld.so.conf may include, and "include" patterns in them.
    static constexpr size_t MaxLists = 200;
    /// Names of a directory of the system's libraries or lists.
    static constexpr size_t MaxNames = 10000;
    /// Directories for better processors (glibc-hwcaps) in one directory.
    static constexpr size_t MaxHwcaps = 16;
    /// Bytes of one list.
    static constexpr size_t MaxListSize = 65536;

    explicit LibrarySearch(const DeviceRoot& deviceRoot);

    /// Reads a program's ELF headers.
    /// @return null for what cannot be read, or once a limit is reached; valid as long as this object.
    const ElfFile* read(const std::string& path);

    /// @return whether so much was looked at that no more is.
    bool isExhausted() const noexcept { return stepsLeft == 0 || bytesLeft == 0; }

    /// A library that is needed and not there.
    struct Missing {
        std::string library;
        std::string neededBy; ///< path on the device
    };

    /// What a program, or one of its libraries, lacks.
    struct Result {
        std::vector<Missing> missing; ///< without those of which it is not certain
        std::string leftOut;          ///< what was not looked at, and why; empty: all was
    };

    /// @param path of the program, without links; `file` what was read from it.
    const Result& look(const std::string& path, const ElfFile& file);

private:
    struct Loaded;
    class Load;

    struct Looked {
        DeviceEntry::Kind kind = DeviceEntry::Kind::Missing;
        std::string path; ///< without links
    };

    const Looked& lookAt(const std::string& path);
    void spend(uint64_t steps) noexcept;
    std::string addDirectory(const std::string& directory, std::vector<std::string>& places);
    std::vector<DeviceName> namesIn(const std::string& directory);
    void addListed(const std::string& directory, std::vector<std::string>& places);
    void readList(const std::string& path);
    void include(const std::string& pattern);
    const std::vector<std::string>& muslDirectories(const std::string& architecture);

    const DeviceRoot& root;
    std::vector<std::string> directories; ///< where every library is looked for, those that are there, each once
    std::vector<std::string> libNames;    ///< what $LIB may stand for
    std::map<std::string, std::vector<std::string>> ofMusl; ///< the same as `directories`, by architecture
    std::set<std::string> lists;                            ///< that were read, without links
    size_t patterns = 0;                                    ///< of "include", in all of them
    std::string listsLeftOut;              ///< why a directory of the lists may be missing; empty: none is
    std::map<std::string, Looked> looked;  ///< by the path that was looked at
    std::map<std::string, ElfFile> known;  ///< by the path without links
    std::map<std::string, Result> results; ///< likewise
    uint64_t stepsLeft = MaxSteps;
    uint64_t bytesLeft = MaxBytes;
};
