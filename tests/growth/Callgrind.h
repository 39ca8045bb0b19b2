#pragma once

#include <cstdint>
#include <map>
#include <string>

/// What callgrind counted in one run of a program.
class CallgrindProfile {
public:
    /// Reads a profile as `valgrind --tool=callgrind --compress-strings=no --compress-pos=no` writes it.
    explicit CallgrindProfile(const std::string& text);

    /// @return the instructions of the whole run.
    uint64_t total() const { return instructions; }

    /// @return the instructions of all calls of the functions whose names, with parameters, begin like this, those of
    ///         what they called included; 0 when there was no such call. A recursive one would be counted repeatedly.
    uint64_t inclusive(const std::string& beginning) const;

private:
    uint64_t instructions;
    std::map<std::string, uint64_t> calls; ///< name and parameters to the instructions of all calls
};
