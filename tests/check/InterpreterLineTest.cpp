#include "check/InterpreterLine.h"

#include <gtest/gtest.h>

#include <string>

TEST(InterpreterLineTest, TheFirstLineIsReadAsTheKernelReadsIt) {
    struct Case {
        std::string head;
        bool isPresent;
        std::string interpreter;
        std::string argument;
    };
    for (const Case& each : {
             Case{"", false, "", ""},
             Case{"#", false, "", ""},
             Case{"#!", false, "", ""},
             Case{"#! \t\nx", false, "", ""},
             Case{" #!/bin/sh\n", false, "", ""},
             Case{"#!/bin/sh", true, "/bin/sh", ""},
             Case{"#!/bin/sh\nexit\n", true, "/bin/sh", ""},
             Case{"#! \t/bin/sh \t-e  -x \t\nexit", true, "/bin/sh", "-e  -x"},
             Case{std::string("#!/bin/sh\0 -e\n", 14), true, "/bin/sh", ""},
             Case{"#!/bin/sh \n", true, "/bin/sh", ""},
             Case{"#!/bin/sh\r\n", true, "/bin/sh\r", ""},
             Case{"#!/bin/sh -e\r\n", true, "/bin/sh", "-e\r"},
         }) {
        const InterpreterLine line = ReadInterpreterLine(each.head);

        EXPECT_EQ(line.isPresent, each.isPresent) << each.head;
        EXPECT_EQ(line.interpreter, each.interpreter) << each.head;
        EXPECT_EQ(line.argument, each.argument) << each.head;
        EXPECT_EQ(line.hasCarriageReturn, each.head.find('\r') != std::string::npos) << each.head;
        EXPECT_FALSE(line.hasByteOrderMark);
        EXPECT_FALSE(line.isCut);
    }
}

TEST(InterpreterLineTest, AByteOrderMarkCountsOnlyBeforeTheInterpreterLine) {
    EXPECT_TRUE(ReadInterpreterLine("\xEF\xBB\xBF#!/bin/sh\n").hasByteOrderMark);
    EXPECT_FALSE(ReadInterpreterLine("\xEF\xBB\xBFx").hasByteOrderMark);
}

TEST(InterpreterLineTest, ALineBeyondTheKernelsBufferIsCut) {
    const std::string long256 = "#!/" + std::string(253, 'x');

    EXPECT_FALSE(ReadInterpreterLine(long256).isCut);
    EXPECT_TRUE(ReadInterpreterLine(long256 + "x").isCut);
    EXPECT_FALSE(ReadInterpreterLine("#!/bin/sh\n" + std::string(300, 'x')).isCut);
}

TEST(InterpreterLineTest, TheProgramBehindEnvIsTheInterpreter) {
    EXPECT_EQ(ReadInterpreterLine("#!/bin/sh\r\n").program(), "/bin/sh");
    EXPECT_EQ(ReadInterpreterLine("#!/usr/bin/env python3\n").program(), "python3");
    EXPECT_EQ(ReadInterpreterLine("#!/usr/bin/env -S A=1  perl -w\r\n").program(), "perl");
    EXPECT_EQ(ReadInterpreterLine("#!/usr/bin/env\n").program(), "");
    EXPECT_EQ(ReadInterpreterLine("#!/usr/bin/env -i\n").program(), "");
    EXPECT_TRUE(ReadInterpreterLine("#!env sh\n").goesThroughEnv());
    EXPECT_FALSE(ReadInterpreterLine("#!/usr/bin/environment sh\n").goesThroughEnv());
}
