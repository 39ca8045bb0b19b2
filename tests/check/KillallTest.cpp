#include "tests/support/DeviceSandbox.h"

#include <gtest/gtest.h>

#include <string>

// The rules of stopping are what the real killall of psmisc and of BusyBox do, each in a process namespace of its own.

namespace {

/// How a server is made and started, and whether each killall ends it by its name.
struct ServerCase {
    const char* what;
    const char* name;   ///< of the server, by which it is to be stopped
    const char* script; ///< makes and starts it in the background
    bool psmiscEndsIt;
    bool busyboxEndsIt;
};

const ServerCase Cases[] = {
    {"a program", "A_Server", "PROGRAM A_Server; ./A_Server 20 &", true, true},
    {"a link to a program", "A_Server", "PROGRAM A_Server; mv A_Server other; ln -s other A_Server; ./A_Server 20 &",
     true, true},
    {"a name of 15 bytes", "A2345678_Server", "PROGRAM A2345678_Server; ./A2345678_Server 20 &", true, true},
    {"a name of 16 bytes", "A23456789_Server", "PROGRAM A23456789_Server; ./A23456789_Server 20 &", true, true},
    {"another program with the same first 15 bytes", "A2345678901234_Server",
     "PROGRAM A2345678901234_Sxxxxx; ./A2345678901234_Sxxxxx 20 &", false, false},
    {"another program with the same first 15 bytes that changed its command line", "A2345678901234_Server",
     "PROGRAM A2345678901234_Sxxxxx; bash -c 'exec -a title ./A2345678901234_Sxxxxx 20' &", true, false},
    {"a script with an interpreter line", "A_Server", "SCRIPT '#!/usr/bin/sh' A_Server; ./A_Server &", true, true},
    {"a long script with an interpreter line", "A23456789_Server",
     "SCRIPT '#!/usr/bin/sh' A23456789_Server; ./A23456789_Server &", true, true},
    {"a long script with an argument in its interpreter line", "A23456789_Server",
     "SCRIPT '#!/usr/bin/sh -e' A23456789_Server; ./A23456789_Server &", true, false},
    {"a script whose interpreter is a script", "A_Server",
     "SCRIPT '#!/usr/bin/sh' inner; SCRIPT '#!/tmp/inner' A_Server; ./A_Server &", true, true},
    {"a script through env", "A_Server", "SCRIPT '#!/usr/bin/env sh' A_Server; ./A_Server &", false, false},
    {"a script without an interpreter line", "A_Server", "SCRIPT '# none' A_Server; ./A_Server &", false, false},
    {"a script as the argument of an interpreter", "A_Server", "SCRIPT '#!/usr/bin/sh' A_Server; sh ./A_Server &",
     false, false},
    {"a script that the shell reads itself", "A_Server", "SCRIPT '#!/usr/bin/sh' A_Server; (. ./A_Server) &", false,
     false},
};

} // namespace

TEST(KillallTest, TheRealKillallsFindServersAsTheRulesSay) {
    for (const ServerCase& each : Cases) {
        for (const bool isBusybox : {false, true}) {
            const DeviceSandbox device;
            device.useRealKillall();
            const std::string killall = isBusybox ? "busybox killall" : "killall";
            // killall is run once the process is what it will be: a script says so itself, a program by its name.
            const DeviceRun run = device.runScript(
                "cd /tmp\n"
                "PROGRAM() { cp /usr/bin/sleep $1; echo $1 | cut -b -15 >name; }\n"
                "SCRIPT() { printf '%s\\n: >/tmp/up; while :; do sleep 0.1; done\\n' \"$1\" >$2; chmod +x $2; }\n"
                "is_up() { [ -e up ] || { grep -qsxFf name /proc/$pid/comm; }; }\n" +
                std::string(each.script) +
                "\npid=$!\n"
                "while ! is_up; do sleep 0.01; done\n" +
                killall + " -15 " + each.name + " 2>/dev/null && echo ended\nkill -9 $pid 2>/dev/null\ntrue\n");

            EXPECT_EQ(run.out, (isBusybox ? each.busyboxEndsIt : each.psmiscEndsIt) ? "ended\n" : "")
                << each.what << ", " << killall << ": " << run.err;
        }
    }
}
