#include "runtime/ConsoleLog.h"

#include "runtime/LogSettings.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t BufferSize = 2048;
// One less than the buffer: with the terminator that vsnprintf counts in, at most 2046 characters are kept.
constexpr size_t FormatSize = BufferSize - 1;

const char* ColourOf(int32_t level) noexcept {
    switch (level) {
    case LogError:
        return "\033[0;31;1m";
    case LogWarning:
        return "\033[0;33m";
    case LogInfo:
        return "\033[0;32m";
    default:
        return nullptr;
    }
}

bool MayPrint(const LogSettings& settings, const char* module) noexcept {
    const int32_t count = settings.getModuleCount();
    if (count == 0) {
        return true;
    }
    for (int32_t i = 0; i < count; ++i) {
        const char* allowed = settings.getModules()[static_cast<size_t>(i)];
        if (allowed == nullptr) {
            return false;
        }
        if (std::strcmp(allowed, module) == 0) {
            return true;
        }
    }
    return false;
}

// The results of printf are not looked at: a log that cannot be written has nobody to tell.
void Write(int32_t level, const char* text) {
    if (const char* colour = ColourOf(level)) {
        static_cast<void>(std::printf("%s", colour));
    }
    // Deliberate: the text is a format once more (see ConsoleLog::print). The compiler is right to warn about that
    // everywhere else, so only this one call is excepted.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    static_cast<void>(std::printf(text));
#pragma GCC diagnostic pop
}

} // namespace

// The rules of printf are the interface, and the compiler checks them by attribute. Callers use an object, though it has
// no data.
// NOLINTNEXTLINE(cert-dcl50-cpp,readability-convert-member-functions-to-static)
int32_t ConsoleLog::print(int32_t level, const char* module, const char* format, ...) const {
    const LogSettings& settings = LogSettings::instance();
    if (!settings.isEnabled() || settings.getMaxLevel() < level) {
        return 0;
    }

    std::va_list arguments;
    va_start(arguments, format);
    std::va_list measured;
    va_copy(measured, arguments);
    int32_t length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length > 0) {
        char text[BufferSize] = {};
        length = std::vsnprintf(text, FormatSize, format, arguments);
        if (MayPrint(settings, module)) {
            Write(level, text);
        }
    }
    va_end(arguments);
    return length;
}
