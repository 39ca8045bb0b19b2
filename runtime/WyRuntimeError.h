#pragma once

#include <exception>
#include <string>

/// The system's one exception type: misuse of a safe pointer, or an exhausted pool of records.
///
/// Nothing catches it, so it ends the process; for most misuses a report line was printed before (`SafePointer`).
/// Owns:    a copy of its text. Threads: one at a time per object.
class WyRuntimeError : public std::exception {
public:
    explicit WyRuntimeError(const std::string& text);
    /// A null `text` makes an empty message.
    explicit WyRuntimeError(const char* text);
    WyRuntimeError(const WyRuntimeError& other) = default;
    WyRuntimeError& operator=(const WyRuntimeError& other) = default;
    ~WyRuntimeError() override;

    /// @return the message, valid until the error is destroyed or assigned to.
    const char* what() const noexcept override;

private:
    std::string message;
};
