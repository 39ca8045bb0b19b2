#pragma once

/// Base of all safe pointers: a virtual destructor and the way in which misuse is reported. It has no data.
class BaseSafePointer {
public:
    /// May throw, because the release of a safe pointer checks its record and reports what it finds by exception.
    virtual ~BaseSafePointer() noexcept(false) = default;

protected:
    BaseSafePointer() = default;
    BaseSafePointer(const BaseSafePointer& other) = default;
    BaseSafePointer& operator=(const BaseSafePointer& other) = default;

    /// Prints "SafePointer Report:" + `typeName` + " " + `message` as one line on standard output, flushes it, since
    /// the process usually ends by abort, which does not, and throws `WyRuntimeError` with the same text.
    [[noreturn]] static void reportMisuse(const char* typeName, const char* message);
};
