#include "runtime/LogSettings.h"

LogSettings::LogSettings() noexcept : enabled(true), maxLevel(0), modules{}, moduleCount(0) {}

LogSettings& LogSettings::instance() {
    static LogSettings settings;
    return settings;
}

bool LogSettings::addModule(const char* name) noexcept {
    const auto next = static_cast<size_t>(moduleCount);
    if (name == nullptr || next == modules.size()) {
        return false;
    }
    modules[next] = name;
    ++moduleCount;
    return true;
}

void LogSettings::clearModules() noexcept {
    modules.fill(nullptr);
    moduleCount = 0;
}
