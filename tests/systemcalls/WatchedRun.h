#pragma once

#include "tests/systemcalls/SystemCalls.h"

#include <string>

/// The command's own main function (launcher/main.cpp).
int WyvernMain(int argc, char** argv);

/// Runs the command in this process, watched, on the device of `calls`.
/// @return what it printed, each command that it ran as a line "$ COMMAND" in between, and its exit status.
inline std::string RunLauncher(SystemCalls& calls, std::string mode) {
    std::string program = "Wyvern";
    char* arguments[] = {program.data(), mode.data(), nullptr};
    int status = -1;

    calls.watch([&] { status = WyvernMain(2, arguments); });

    return calls.takePrinted() + "exit " + std::to_string(status);
}
