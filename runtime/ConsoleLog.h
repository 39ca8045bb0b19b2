#pragma once

#include <cstdint>

/// Levels of the console log. Any other number is a level too, without a colour.
enum LogLevel : int32_t { LogError = 1, LogWarning = 2, LogInfo = 3 };

/// Prints formatted lines, coloured by level, on standard output, as far as `LogSettings` lets them through.
///
/// A value without data: callers make one on the spot and call `print`.
/// Fails:   by result only.
/// Threads: any. The settings are read without a lock, and another thread's output may come between the colour and the
///          text.
class ConsoleLog {
public:
    /// Formats and prints one message. No heap is used: the text is formatted on the stack, twice (once to measure).
    ///
    /// A level of 1, 2 or 3 writes its ANSI colour sequence first (bold red, yellow, green). No reset follows: the
    /// colour stays until something else sets one. Deliberate: the formatted text is itself given to printf(3) as a
    /// format, so a percent sign that survives the first formatting ("%%" in `format`, "%" in an argument) is
    /// interpreted again. Never pass text from outside whose percent signs could name an argument; a "%n" ends a
    /// hardened process.
    ///
    /// @param module the calling component's source-file name, compared with the module filter. Not null.
    /// @return 0 when the log is switched off or the level is above the maximum; the negative result of vsnprintf(3)
    ///         when the text cannot be formatted; otherwise the full length of the text, also when it is empty, when
    ///         the module filter held it back, or when only its first 2046 characters were printed.
    int32_t print(int32_t level, const char* module, const char* format, ...) const
        __attribute__((format(printf, 4, 5)));
};
