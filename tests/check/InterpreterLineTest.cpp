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
             Case{"#! \t", false, "", ""},
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
        EXPECT_FALSE(line.isPathCut);
        EXPECT_FALSE(line.isLong);
    }
}

TEST(InterpreterLineTest, AByteOrderMarkCountsOnlyBeforeTheInterpreterLine) {
    EXPECT_TRUE(ReadInterpreterLine("\xEF\xBB\xBF#!/bin/sh\n").hasByteOrderMark);
    EXPECT_FALSE(ReadInterpreterLine("\xEF\xBB\xBFx").hasByteOrderMark);
}

TEST(InterpreterLineTest, APathThatDoesNotEndInTheKernelsBufferIsCut) {
    const std::string path = "#!/" + std::string(252, 'x');

    EXPECT_FALSE(ReadInterpreterLine(path).isPathCut); // the buffer's last byte is a zero
    EXPECT_FALSE(ReadInterpreterLine(path + "\n").isPathCut);
    EXPECT_FALSE(ReadInterpreterLine(path + " -e").isPathCut);
    EXPECT_TRUE(ReadInterpreterLine(path + "x").isPathCut);
    EXPECT_TRUE(ReadInterpreterLine(path + "x\n").isPathCut);
    EXPECT_FALSE(ReadInterpreterLine("#!/bin/sh\n" + std::string(300, 'x')).isPathCut);
    EXPECT_FALSE(ReadInterpreterLine("#!" + std::string(300, ' ') + "/bin/sh").isPresent);
}

TEST(InterpreterLineTest, ALongArgumentIsCutAndBlanksAreNot) {
    const InterpreterLine line = ReadInterpreterLine("#!/bin/sh -" + std::string(300, 'e') + "\n");
    EXPECT_EQ(line.interpreter, "/bin/sh");
    EXPECT_EQ(line.argument.size(), 245U);
    EXPECT_TRUE(line.isLong);
    EXPECT_FALSE(line.isPathCut);

    EXPECT_FALSE(ReadInterpreterLine("#!/bin/sh" + std::string(300, ' ')).isLong);
    EXPECT_FALSE(ReadInterpreterLine("#!/bin/sh -" + std::string(116, 'e') + "\n").isLong);
    EXPECT_TRUE(ReadInterpreterLine("#!/bin/sh -" + std::string(117, 'e') + "\n").isLong);
}

TEST(InterpreterLineTest, TheProgramBehindEnvIsTheInterpreter) {
    const auto program = [](const std::string& line) {
        return ReadInterpreterLine("#!" + line).program().value_or("?");
    };
    const auto behindEnv = [&program](const std::string& line) { return program("/usr/bin/env" + line); };

    EXPECT_EQ(program("/bin/sh\r\n"), "/bin/sh");
    EXPECT_EQ(program("\r\n"), "");
    EXPECT_EQ(behindEnv(" python3\n"), "python3");
    EXPECT_EQ(behindEnv(" /bin/sh\r\n"), "/bin/sh");
    EXPECT_EQ(behindEnv("\n"), "");
    EXPECT_TRUE(ReadInterpreterLine("#!env sh\n").goesThroughEnv());
    EXPECT_FALSE(ReadInterpreterLine("#!/usr/bin/environment sh\n").goesThroughEnv());
}

// Tried with the env of coreutils 9.1.
TEST(InterpreterLineTest, EnvTakesAllThatFollowsAsOneArgumentUnlessItSplitsThat) {
    const auto behindEnv = [](const std::string& line) {
        return ReadInterpreterLine("#!/usr/bin/env " + line).program().value_or("?");
    };
    EXPECT_EQ(behindEnv("sh -e\n"), "sh -e");
    for (const char* runsNothing :
         {"-i", "-i sh", "-u FOO sh", "A=1 sh", "-", "--", "-S", "-S A=b", "-S -u sh", "-vi"}) {
        EXPECT_EQ(behindEnv(runsNothing), "") << runsNothing;
    }
    for (const char* runsPerl : {"-S perl", "-Sperl -w", "-S A=1  perl -w\r\n", "-vS perl", "-iS -u FOO perl",
                                 "--split-string=perl -w", "-S --chdir / -i perl -u x"}) {
        EXPECT_EQ(behindEnv(runsPerl), "perl") << runsPerl;
    }
    for (const char* unknown : {"-S \"perl\"", "-S ${PERL}", "-S 'a b'", "-S per\\_l", "-S perl # x"}) {
        EXPECT_EQ(behindEnv(unknown), "?") << unknown;
    }
}
