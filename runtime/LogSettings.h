#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The process-wide switches of the console log: enabled, a maximum level of 0 and no module filter at first. With
/// these the system's own log calls (levels 1 to 3) are silent, and `setMaxLevel(3)` lets them all through; nothing in
/// the launcher changes them.
///
/// Owns:    nothing: a module's name is kept as the pointer given and must outlive its entry.
/// Fails:   never, except that `addModule` refuses.
/// Threads: `instance()` may be called first from several threads. The settings are read without a lock, so they are to
///          be changed before the threads that log are started.
class LogSettings {
public:
    /// How many modules the filter holds.
    static constexpr size_t MaxModules = 50;
    using ModuleList = std::array<const char*, MaxModules>;

    /// @return the one settings object of the process, made on first use.
    static LogSettings& instance();

    LogSettings(const LogSettings&) = delete;
    LogSettings& operator=(const LogSettings&) = delete;

    bool isEnabled() const noexcept { return enabled; }

    /// False suppresses all output.
    void setEnabled(bool enable) noexcept { enabled = enable; }

    int32_t getMaxLevel() const noexcept { return maxLevel; }

    /// A call is printed only when its level is at most this.
    void setMaxLevel(int32_t level) noexcept { maxLevel = level; }

    /// @return the module filter; its first `getModuleCount()` entries are in use.
    const ModuleList& getModules() const noexcept { return modules; }

    /// @return how many entries of the filter are in use; 0 means that every module may print.
    int32_t getModuleCount() const noexcept { return moduleCount; }

    /// Lets one more module print, compared by the text of its name.
    /// @return false, with nothing changed, for a null name and when all 50 entries are in use.
    bool addModule(const char* name) noexcept;
    /// Empties the filter: every module may print.
    void clearModules() noexcept;

private:
    LogSettings() noexcept;

    bool enabled;
    int32_t maxLevel;
    ModuleList modules; ///< entry i is not null exactly while i < moduleCount
    int32_t moduleCount;
};
