#pragma once

#include "check/DeviceCheck.h"

#include <string>

/// What wyvern-check was asked to do.
struct CommandLine {
    enum class Action {
        Check,
        Print,  ///< `text` on standard output, status 0: help, version, an explanation
        Refuse, ///< `text` on standard error, status 64
    };

    enum class Format { Text, Table, Json };

    Action action = Action::Check;
    std::string text;
    CheckRequest request;
    Format format = Format::Text;
    bool quiet = false;
};

/// Reads the command line; the argument vector is main's. Throws only std::bad_alloc.
CommandLine ReadCommandLine(int argc, const char* const* argv);
