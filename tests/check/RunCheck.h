#pragma once

#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

/// Runs the real wyvern-check with these arguments. Its standard error is thrown away.
inline ChildResult RunCheck(const std::vector<std::string>& arguments) {
    return RunInChild([&arguments] {
        std::vector<char*> vector = {const_cast<char*>("wyvern-check")};
        for (const std::string& argument : arguments) {
            vector.push_back(const_cast<char*>(argument.c_str()));
        }
        vector.push_back(nullptr);
        static_cast<void>(dup2(open("/dev/null", O_WRONLY), STDERR_FILENO));
        static_cast<void>(execv(WYVERN_CHECK_BINARY, vector.data()));
        _exit(127);
    });
}
