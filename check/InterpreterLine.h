#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// The first line of a script, read as the kernel reads it (execve(2), "Interpreter scripts").
struct InterpreterLine {
    /// Bytes of a file that the kernel looks at, the last of them for the end of the line.
    static constexpr size_t KernelBuffer = 256;
    /// The same before Linux 5.1.
    static constexpr size_t OldKernelBuffer = 128;

    bool isPresent = false; ///< the file begins with "#!" and the line names an interpreter
    bool hasByteOrderMark =
        false; ///< a UTF-8 byte-order mark stands before "#!", which the kernel takes for no script then
    bool hasCarriageReturn = false; ///< the line ends in CR LF, and the CR belongs to the last word
    bool isPathCut = false;  ///< the path does not end within the buffer: the kernel takes the file for no script
    bool isLong = false;     ///< an older kernel, if not each, cuts it
    std::string interpreter; ///< the path, with the CR if that is its last byte
    std::string argument;    ///< the rest of the line, one argument, as the kernel passes it

    /// @return the interpreter's path, or what env(1) runs for "/usr/bin/env NAME" and the like: the NAME, a path, or empty
    ///         for nothing. Without a CR. None where that cannot be said, as of quotes and variables after -S.
    std::optional<std::string> program() const;

    /// @return whether the line goes through env(1), which replaces itself by the interpreter: the process bears the
    ///         interpreter's name then, and killall does not find it by the script's. Tried with psmisc and BusyBox.
    bool goesThroughEnv() const;
};

/// @param head the beginning of a file, or all of it. Throws only std::bad_alloc.
InterpreterLine ReadInterpreterLine(const std::string& head);
