#pragma once

#include <cstddef>
#include <string>

/// The first line of a script, read as the kernel reads it (execve(2), "Interpreter scripts").
struct InterpreterLine {
    /// Bytes of a file that the kernel looks at.
    static constexpr size_t KernelBuffer = 256;

    bool isPresent = false; ///< the file begins with "#!" and the line names an interpreter
    bool hasByteOrderMark =
        false; ///< a UTF-8 byte-order mark stands before "#!", which the kernel takes for no script then
    bool hasCarriageReturn = false; ///< the line ends in CR LF, and the CR belongs to the last word
    bool isCut = false;             ///< the line is longer than what the kernel looks at
    std::string interpreter;        ///< the path, with the CR if that is its last byte
    std::string argument;           ///< the rest of the line, one argument, as the kernel passes it

    /// @return the interpreter's path, or for "/usr/bin/env NAME" and the like the NAME; without a CR.
    std::string program() const;

    /// @return whether the line goes through env(1), which replaces itself by the interpreter: the process bears the
    ///         interpreter's name then, and killall does not find it by the script's. Tried with psmisc and BusyBox.
    bool goesThroughEnv() const;
};

/// @param head the beginning of a file, or all of it. Throws only std::bad_alloc.
InterpreterLine ReadInterpreterLine(const std::string& head);
