#include "check/StartScript.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

bool Starts(const std::string& script) {
    return StartsThroughInterpreter(script, "A_Server", {"/usr/sbin/A_Server", "/opt/A_Server"});
}

} // namespace

TEST(StartScriptTest, AnInterpreterBeforeAServerIsSeen) {
    for (const char* line : {"sh /usr/sbin/A_Server",
                             "/usr/bin/python3 -u A_Server &",
                             "exec busybox sh ./A_Server",
                             "true; bash -x -e A_Server",
                             "\tperl \"/opt/A_Server\"",
                             "/lib/ld-linux.so.2 /usr/sbin/A_Server",
                             ". /opt/A_Server",
                             "source /usr/sbin/A_Server",
                             "cd / && . /opt/A_Server",
                             "tclsh A_Server",
                             "java -jar A_Server",
                             "micropython A_Server",
                             "luajit A_Server",
                             "mksh A_Server",
                             "sh -o errexit A_Server",
                             "sh \\\n  A_Server",
                             "if sh A_Server; then :; fi",
                             "A=1 nice -n 5 sh A_Server",
                             "(cd /; sh A_Server)",
                             "true && sh A_Server",
                             "true | sh A_Server",
                             "sh </dev/null >/dev/null 2>&1 A_Server",
                             "sh > \"/a b\" A_Server",
                             "sh 'A_Server'",
                             "sh A\\_Server",
                             "echo \"a \\\" b\"; sh A_Server",
                             "echo '\\'; sh A_Server",
                             "x=`sh A_Server`",
                             "while sh A_Server",
                             "sh\tA_Server\r"}) {
        EXPECT_TRUE(Starts("#!/bin/sh\n" + std::string(line) + "\n")) << line;
        EXPECT_TRUE(Starts(line)) << line;
    }
}

TEST(StartScriptTest, AServerThatIsStartedByItsNameOrOnlySpokenOfIsNot) {
    for (const char* line : {"/usr/sbin/A_Server &",
                             "# sh A_Server",
                             "sh -c /usr/sbin/A_Server",
                             "nohup A_Server",
                             "sh B_Server; A_Server",
                             "sh /usr/sbin/A_Server2",
                             "",
                             "A_Server sh",
                             "sh",
                             ";;",
                             "echo \"not run by sh A_Server any more\"",
                             "cp /usr/bin/node /opt/A_Server",
                             "foo=1 # sh A_Server",
                             "echo 'x; sh A_Server'",
                             "A_Server >sh",
                             "sh >A_Server",
                             "sh >a&A_Server",
                             "sh -o",
                             "sh -o A_Server",
                             "sh &\nA_Server",
                             "sh > & A_Server",
                             "sh 2>&1 # A_Server",
                             "echo \"",
                             "\\",
                             "a#b sh A_Server",
                             "exec -a sh",
                             ". /etc/default/A_Server",
                             "[ -r /etc/default/A_Server ] && . /etc/default/A_Server\n/opt/A_Server &",
                             ". /etc/conf.d/A_Server\nexec /usr/sbin/A_Server",
                             "source A_Server",
                             ".",
                             ". /opt/A_Server; A_Server &",
                             "/opt/A_Server || sh /opt/A_Server",
                             "sh -n /opt/A_Server && exec /opt/A_Server",
                             "sh -x"}) {
        EXPECT_FALSE(Starts("#!/bin/sh\n" + std::string(line))) << line;
    }
}
