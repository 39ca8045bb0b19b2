#include "fileio/FileAccess.h"
#include "launcher/ListDirectory.h"
#include "tests/memory/FaultSweep.h"
#include "tests/support/TemporaryDirectory.h"
#include "xmlconfig/ConfigFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr uint8_t Rewrite = FileUpdate | FileCreate | FileTruncate;

} // namespace

TEST(FilesMemoryTest, AFileThatCouldNotBeOpenedForLackOfMemoryIsNotEmptied) {
    // A path that cannot be widened is not opened.
    const FaultRules rules = {
        {"operator new", Ending::Threw, Ending::Threw},
        {"iconv_open", Ending::False, Ending::False},
        {"fopen", Ending::False, Ending::False},
    };
    const TemporaryDirectory directory;
    const std::string path = directory / "a name that is too long for the inside of a string";
    const std::wstring widePath(path.begin(), path.end());
    const struct {
        const char* name;
        bool (*open)(FileAccess& file, const std::string& path, const std::wstring& widePath);
    } cases[] = {
        {"Open",
         [](FileAccess& file, const std::string& p, const std::wstring&) { return file.Open(p.c_str(), Rewrite); }},
        {"OpenWide",
         [](FileAccess& file, const std::string&, const std::wstring& w) { return file.OpenWide(w.c_str(), Rewrite); }},
        {"OpenUtf8",
         [](FileAccess& file, const std::string& p, const std::wstring&) { return file.OpenUtf8(p.c_str(), Rewrite); }},
    };

    for (const auto& c : cases) {
        SweepFaults(c.name, [&](FaultyAttempt& attempt) {
            static_cast<void>(directory.write("a name that is too long for the inside of a string", "before"));
            FileAccess file;

            attempt.run(rules, [&] { return c.open(file, path, widePath); });

            EXPECT_EQ(file.GetSize(), attempt.succeeded() ? 0 : -1);
            EXPECT_EQ(ReadWholeFile(path), attempt.succeeded() ? "" : "before");
            EXPECT_TRUE(file.Close());
            EXPECT_TRUE(c.open(file, path, widePath));
            EXPECT_EQ(file.Write("after", 5), 5);
            EXPECT_TRUE(file.Close());
            EXPECT_EQ(ReadWholeFile(path), "after");
        });
    }
}

TEST(FilesMemoryTest, AStreamWithoutMemoryForItsBufferReadsAndWritesAllTheSame) {
    const FaultRules rules = {{"fopen", Ending::False, Ending::False}, {"other", Ending::True, Ending::True}};
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    const std::string text(10000, 'x');

    SweepFaults("a file written", [&](FaultyAttempt& attempt) {
        attempt.run(rules, [&] {
            FileAccess file;
            return file.Open(path.c_str(), Rewrite) && file.Write(text.data(), 10000) == 10000 && file.Close();
        });
        if (attempt.succeeded()) {
            EXPECT_EQ(ReadWholeFile(path), text);
        }
    });
    SweepFaults("a file read", [&](FaultyAttempt& attempt) {
        std::string content(text.size(), '\0');
        attempt.run(rules, [&] {
            FileAccess file;
            return file.Open(path.c_str(), FileRead) && file.Read(content.data(), 10000) == 10000 && file.Close();
        });
        if (attempt.succeeded()) {
            EXPECT_EQ(content, text);
        }
    });
}

TEST(FilesMemoryTest, AFileThatCouldNotBeReadToATextForLackOfMemoryLeavesTheTextAsItWas) {
    // The text is made ahead of the first read, and a stream reads without a buffer, too.
    const FaultRules rules = {{"operator new", Ending::Threw, Ending::Threw},
                              {"fopen", Ending::False, Ending::False},
                              {"other", Ending::True, Ending::True}};
    const TemporaryDirectory directory;
    for (const size_t length : {size_t{100}, size_t{10000}}) {
        const std::string content(length, 'x');
        const std::string path = directory.write("file", content);
        SweepFaults("ReadFileToString of " + std::to_string(length) + " bytes", [&](FaultyAttempt& attempt) {
            std::string text = "before";

            attempt.run(rules, [&] { return ReadFileToString(path, text); });

            EXPECT_EQ(text, attempt.succeeded() ? content : "before");
            EXPECT_TRUE(ReadFileToString(path, text));
            EXPECT_EQ(text, content);
        });
    }
}

TEST(FilesMemoryTest, ATextThatCouldNotBeWrittenForLackOfMemoryLeavesTheFileAsItWas) {
    // The file is opened, and emptied, when all else is done; its stream writes without a buffer, too.
    const FaultRules rules = {{"operator new", Ending::Threw, Ending::Threw},
                              {"iconv_open", Ending::False, Ending::False},
                              {"fopen", Ending::False, Ending::False},
                              {"other", Ending::True, Ending::True}};
    const TemporaryDirectory directory;
    for (const size_t length : {size_t{0}, size_t{100}, size_t{10000}}) {
        const std::string text(length, 'x');
        SweepFaults("WriteStringToFile of " + std::to_string(length) + " bytes", [&](FaultyAttempt& attempt) {
            const std::string path = directory.write("file", "before");

            attempt.run(rules, [&] { return WriteStringToFile(path, text); });

            EXPECT_EQ(ReadWholeFile(path), attempt.succeeded() ? text : "before");
            EXPECT_TRUE(WriteStringToFile(path, text));
            EXPECT_EQ(ReadWholeFile(path), text);
        });
    }
}

TEST(FilesMemoryTest, AListingThatCouldNotBeMadeForLackOfMemoryHasTheNamesFoundSoFar) {
    const FaultRules rules = {{"operator new", Ending::Threw, Ending::Threw},
                              {"opendir", Ending::False, Ending::False}};
    const TemporaryDirectory directory;
    for (const char* name : {"1_name_too_long_for_the_inside", "2_name_too_long_for_the_inside", "3"}) {
        static_cast<void>(directory.write(name, ""));
    }
    std::vector<std::string> all;
    ASSERT_TRUE(ListDirectory(directory.path(), all, "*"));
    ASSERT_EQ(all.size(), 3U);

    SweepFaults("ListDirectory", [&](FaultyAttempt& attempt) {
        std::vector<std::string> names;

        attempt.run(rules, [&] { return ListDirectory(directory.path(), names, "*"); });

        ASSERT_LE(names.size(), attempt.succeeded() ? 3U : attempt.threw() ? 2U : 0U);
        EXPECT_TRUE(std::equal(names.begin(), names.end(), all.begin()));
        names.clear();
        EXPECT_TRUE(ListDirectory(directory.path(), names, "*"));
        EXPECT_EQ(names, all);
    });
}
