#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What the launcher would run for one enabled protocol: the choice and the text of the command, without running it.
///
/// Owns:    its texts.
/// Fails:   by state; throws only std::bad_alloc.
/// Threads: one at a time per object. None during static initialisation: it uses the static keyword.
class ServiceCommand {
public:
    /// "/factory_setting/": listed for the start programs, and the front of every start command.
    static constexpr const char* ServiceDir = "/factory_setting/";
    /// Bytes of the command buffer: 63 characters and the terminator.
    static constexpr size_t BufferSize = 64;
    /// What follows a start program's prefix in the name of its server.
    static constexpr const char* ServerSuffix = "_Server";
    /// The run modes that compose a command. Every other mode composes nothing.
    static constexpr int32_t StopMode = 0;
    static constexpr int32_t StartMode = 1;

    enum class State : uint8_t {
        Nothing, ///< the mode is neither start nor stop
        Ready,   ///< `text()` is the whole command
        TooLong, ///< the command does not fit the buffer; a cut command is never offered
    };

    /// @return whether a file of this name can be the start program of a protocol: it contains "loadservice" and
    ///         `protocolName`, both case-sensitive and anywhere. An empty protocol name is contained in every name.
    static bool serves(const std::string& name, const std::string& protocolName);

    /// @return the name of the process that a start program's server runs as, and is stopped by.
    static std::string serverName(const std::string& prefix) { return prefix + ServerSuffix; }

    /// Chooses the start program of a protocol and composes the command of a mode.
    ///
    /// The first of `names` that `serves` the protocol is its start program. Deliberate: when none does, file and prefix
    /// stay empty and there is a command all the same, the service directory itself or "killall -15 _Server".
    /// Nothing is quoted: a blank or ";" in a file name means to the shell what it always means.
    ServiceCommand(const std::vector<std::string>& names, const std::string& protocolName, int32_t mode);

    State state() const noexcept { return result; }

    /// @return the composed command, empty unless the state is `Ready`.
    const char* text() const noexcept { return buffer.data(); }

    /// @return the file name of the start program; empty when none matched.
    const std::string& file() const noexcept { return matchedFile; }

    /// @return `file()` up to its first "_", the whole of it when it has none: the server's is `serverName` of it.
    const std::string& prefix() const noexcept { return servicePrefix; }

private:
    State compose(int32_t mode) noexcept;

    std::string matchedFile;
    std::string servicePrefix;
    std::array<char, BufferSize> buffer;
    State result;
};
