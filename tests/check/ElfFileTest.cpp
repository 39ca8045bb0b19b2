#include "check/ElfFile.h"

#include "tests/check/ElfImage.h"
#include "tests/support/ElfText.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using State = ElfFile::State;

namespace {

ElfImage Program() {
    ElfImage program;
    program.interpreter = "/lib/ld.so";
    program.needed = {"liba.so", "libb.so.1"};
    program.runPath = "/opt/lib:$ORIGIN";
    program.soname = "self.so";
    return program;
}

} // namespace

TEST(ElfFileTest, EveryClassAndByteOrderIsRead) {
    for (const bool is64 : {false, true}) {
        for (const bool isLittle : {false, true}) {
            for (const bool isOld : {false, true}) {
                ElfImage program = Program();
                program.is64 = is64;
                program.isLittle = isLittle;
                program.hasOldRunPath = isOld;
                program.machine = 0x1234;

                const ElfFile file = ReadElfText(program.bytes());

                ASSERT_EQ(file.state, State::Read);
                EXPECT_EQ(file.bits, is64 ? 64 : 32);
                EXPECT_EQ(file.isLittleEndian, isLittle);
                EXPECT_EQ(file.machine, 0x1234);
                EXPECT_TRUE(file.isProgramOrLibrary);
                EXPECT_EQ(file.interpreter, "/lib/ld.so");
                EXPECT_EQ(file.needed, (std::vector<std::string>{"liba.so", "libb.so.1"}));
                EXPECT_EQ(file.runPath, "/opt/lib:$ORIGIN");
                EXPECT_EQ(file.hasOldRunPath, isOld);
                EXPECT_EQ(file.soname, "self.so");
            }
        }
    }
}

TEST(ElfFileTest, ARealProgramIsRead) {
    const ElfFile file = ReadElfText(ReadWholeFile(WYVERN_CHECK_BINARY));

    EXPECT_EQ(file.state, State::Read);
    EXPECT_TRUE(file.isProgramOrLibrary);
}

TEST(ElfFileTest, WhatIsNoElfFileIsNone) {
    for (const std::string& content : {std::string(), std::string("\x7F"),
                                       std::string("\x7F"
                                                   "EL"),
                                       std::string("#!/bin/sh")}) {
        EXPECT_EQ(ReadElfText(content).state, State::NotElf);
    }
}

TEST(ElfFileTest, AFileThatIsCutAnywhereIsDamagedAndReadWithoutAStepOutOfIt) {
    const std::string whole = Program().bytes();
    for (size_t size = 4; size < whole.size(); ++size) {
        EXPECT_EQ(ReadElfText(whole.substr(0, size)).state, State::Damaged) << size;
    }
}

TEST(ElfFileTest, ObjectFilesAreNoPrograms) {
    ElfImage object;
    object.type = 1;

    EXPECT_FALSE(ReadElfText(object.bytes()).isProgramOrLibrary);
    object.type = 2;
    EXPECT_TRUE(ReadElfText(object.bytes()).isProgramOrLibrary);
}

// Reproducible: the generator is the standard's. The sanitizers see what the expectations cannot.
TEST(ElfFileTest, AFileOverwrittenAnywhereIsReadWithinItsBounds) {
    std::mt19937 random(1);
    for (const bool is64 : {false, true}) {
        ElfImage program = Program();
        program.is64 = is64;
        const std::string whole = program.bytes();
        for (size_t at = 4; at < whole.size(); ++at) {
            for (const unsigned value : {0U, 1U, 0x7FU, 0x80U, 0xFFU, static_cast<unsigned>(random() & 0xFFU)}) {
                std::string content = whole;
                content[at] = static_cast<char>(value);
                content[4 + random() % (whole.size() - 4)] = static_cast<char>(random() & 0xFFU);

                const ElfFile file = ReadElfText(content);

                EXPECT_LE(file.needed.size(), 256U);
                EXPECT_LE(file.interpreter.size(), content.size());
            }
        }
    }
}

// However large the file is: the headers of a program of 1 GiB are read in a moment.
TEST(ElfFileTest, OfAFileOnlyTheHeadersAreRead) {
    ElfImage program = Program();
    program.needed.assign(5000, "a");
    program.runPath = std::string(5000, 'r');
    const std::string content = program.bytes();
    uint64_t read = 0;

    const ElfFile file = ReadElfFile(uint64_t{1} << 30U, [&content, &read](uint64_t offset, size_t size) {
        read += size;
        return content.substr(offset, size);
    });

    EXPECT_EQ(file.needed.size(), 256U);
    EXPECT_NE(file.leftOut, "");
    EXPECT_LE(read, uint64_t{2} << 20U);
}

TEST(ElfFileTest, AFileThatShrinksWhileItIsReadIsDamaged) {
    const std::string content = Program().bytes();

    const ElfFile file = ReadElfFile(content.size(), [&content](uint64_t offset, size_t size) {
        return offset == 0 ? content.substr(0, size) : std::string();
    });

    EXPECT_EQ(file.state, State::Damaged);
}

// As for the kernel, which then does not run the program.
TEST(ElfFileTest, SegmentsOfAnotherSizeAreDamage) {
    std::string content = ElfImage().bytes();
    content[54] = 57; // e_phentsize
    EXPECT_EQ(ReadElfText(content).state, State::Damaged);
}

TEST(ElfFileTest, CountsBeyondWhatALinkerWritesAreLeftOutAndSaidToBe) {
    const auto leftOutOf = [](const std::string& content) {
        const ElfFile file = ReadElfText(content);
        EXPECT_EQ(file.state, State::Read);
        EXPECT_LE(file.needed.size(), 256U);
        return file.leftOut;
    };
    const auto needing = [](size_t count) {
        ElfImage program;
        program.needed.assign(count, "a");
        return program.bytes();
    };
    EXPECT_EQ(leftOutOf(needing(256)), "");
    EXPECT_EQ(leftOutOf(needing(257)), "more than 256 libraries");
    EXPECT_EQ(leftOutOf(needing(4093)), "more than 256 libraries") << "with two for the texts, and one for the end";
    EXPECT_EQ(leftOutOf(needing(4094)), "more than 4095 dynamic entries");

    ElfImage program;
    program.runPath = std::string(4095, 'r');
    EXPECT_EQ(leftOutOf(program.bytes()), "");
    program.runPath += 'r';
    EXPECT_EQ(leftOutOf(program.bytes()), "more than 4095 bytes in a name or run path");

    std::string segments = ElfImage().bytes() + std::string(size_t{56} * 2000, '\0');
    segments[56] = '\0'; // e_phnum
    segments[57] = '\4';
    EXPECT_EQ(leftOutOf(segments), "");
    segments[56] = '\1';
    EXPECT_EQ(leftOutOf(segments), "more than 1024 segments");
}

// As for the kernel, whose paths have no more than 4096 bytes.
TEST(ElfFileTest, AnInterpretersPathThatIsTooLongIsDamage) {
    ElfImage program;
    program.interpreter = std::string(4095, 'i');
    EXPECT_EQ(ReadElfText(program.bytes()).state, State::Read);
    program.interpreter += 'i';
    EXPECT_EQ(ReadElfText(program.bytes()).state, State::Damaged);
}

TEST(ElfFileTest, CountsBeyondTheFileAreDamage) {
    std::string manySegments = ElfImage().bytes();
    manySegments[56] = manySegments[57] = '\xFF'; // e_phnum
    EXPECT_EQ(ReadElfText(manySegments).state, State::Damaged);

    manySegments = ElfImage().bytes() + std::string(size_t{56} * 2000, '\0');
    manySegments[56] = manySegments[57] = '\xFF';
    EXPECT_EQ(ReadElfText(manySegments).state, State::Read);
}

TEST(ElfFileTest, MachinesHaveNamesOrNumbers) {
    EXPECT_EQ(ElfMachineName(3), "x86");
    EXPECT_EQ(ElfMachineName(62), "x86-64");
    EXPECT_EQ(ElfMachineName(40), "ARM");
    EXPECT_EQ(ElfMachineName(183), "AArch64");
    EXPECT_EQ(ElfMachineName(8), "MIPS");
    EXPECT_EQ(ElfMachineName(20), "PowerPC");
    EXPECT_EQ(ElfMachineName(21), "PowerPC64");
    EXPECT_EQ(ElfMachineName(243), "RISC-V");
    EXPECT_EQ(ElfMachineName(22), "S/390");
    EXPECT_EQ(ElfMachineName(4660), "machine 4660");
}
