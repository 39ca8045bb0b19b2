#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What a program or library of the device says of itself in its ELF headers (elf(5)).
struct ElfFile {
    enum class State : uint8_t {
        NotElf,
        Damaged, ///< begins as one, but its headers lead out of the file or contradict themselves
        Read,
    };

    State state = State::NotElf;
    uint8_t bits = 0; ///< 32 or 64
    bool isLittleEndian = true;
    uint16_t machine = 0;            ///< e_machine
    bool isProgramOrLibrary = false; ///< ET_EXEC or ET_DYN
    std::string interpreter;         ///< PT_INTERP; empty for a static program and most libraries
    std::vector<std::string> needed; ///< DT_NEEDED
    std::string soname;              ///< DT_SONAME; empty for a program and some libraries
    std::string runPath;             ///< DT_RUNPATH, or DT_RPATH without one; directories with colons between
    bool hasOldRunPath = false;      ///< it is DT_RPATH, which serves the libraries of the file, too
    std::string leftOut;             ///< what the file has more of than is read; empty: all was read
};

/// Yields as many bytes as asked for from an offset on, fewer where the file ends or cannot be read.
using ReadAt = std::function<std::string(uint64_t offset, size_t size)>;

/// Reads the headers of a file: the segments, the dynamic section and the texts that it names, and nothing else, however
/// large the file is. Nothing in them is believed: every offset and count is checked against the file's size, and no more
/// is read than a linker would ever write (at most 2 MiB); `leftOut` says so.
/// Throws only std::bad_alloc. Threads may call it at once.
ElfFile ReadElfFile(uint64_t size, const ReadAt& readAt);

/// @return whether the beginning of a file is an ELF file's.
bool IsElf(const std::string& head);

/// @return a name for a machine's number, "ARM", "x86-64"; "machine 1234" for one without.
std::string ElfMachineName(uint16_t machine);

/// @return whether a program is one of 32 bits for the processors that `reference` is for in 64: a kernel for those may
///         run it all the same, if it was built to.
bool IsSmallerKin(const ElfFile& file, const ElfFile& reference);
