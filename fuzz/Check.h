#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

/// How a fuzz target reports that what must hold does not: a message on descriptor 2 (the streams may be replaced), and
/// the end of the process.

/// @return a text with every byte outside printable ASCII as \xNN.
inline std::string Printable(const std::string& text) {
    static constexpr char Digits[] = "0123456789abcdef";
    std::string all;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            all += "\\n\n";
        } else if (c >= ' ' && c <= '~') {
            all += c;
        } else {
            all += {'\\', 'x', Digits[byte >> 4U], Digits[byte & 15U]};
        }
    }
    return all;
}

[[noreturn]] inline void Fail(const std::string& message) {
    const std::string line = "fuzz: " + message + "\n";
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        std::abort(); // nobody to tell
    }
    std::abort();
}

inline void Check(bool holds, const char* what) {
    if (!holds) {
        Fail(what);
    }
}

inline void CheckEqual(const std::string& actual, const std::string& expected, const char* what) {
    if (actual != expected) {
        Fail(std::string(what) + "\n--- expected\n" + Printable(expected) + "\n--- actual\n" + Printable(actual));
    }
}
