#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/systemcalls/SystemCalls.h"
#include "tests/systemcalls/WatchedRun.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

// What the flash leaves of a working copy, with a good factory copy beside it.

namespace {

constexpr const char* Utf8Declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
constexpr const char* Gb2312Declaration = "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n";

// The same two characters.
constexpr const char* ChineseUtf8 = "\xE7\xBD\x91\xE5\x85\xB3";
constexpr const char* ChineseGb2312 = "\xCD\xF8\xB9\xD8";

constexpr char RunEnd = '\f';

// A device in a directory: its start programs are listed in this order, none is run.
class DamagedConfigTest : public testing::Test {
protected:
    DamagedConfigTest() {
        write(DeviceSandbox::FactoryConfig, ProtocolConfigText({{"FAC"}, {"ABC"}, {"OUT", false}}));
        write("/factory_setting/any", "");
        calls.deviceRoot = root.path();
        calls.listing = {"XYZ_loadservice", "ABC_loadservice", std::string(ChineseUtf8) + "_loadservice",
                         "FAC_loadservice", "BAD\xFF_loadservice"};
    }

    std::string runWith(const std::string& workingCopy, const std::string& mode) {
        write(DeviceSandbox::WorkingConfig, workingCopy);
        return RunLauncher(calls, mode);
    }

    // What a start and a stop leave with a working copy of so many bytes, and the rest: the n-th result is for n bytes.
    // The output is captured once for all, since that takes longer than a run.
    std::vector<std::string> runWithEachCut(const std::string& whole, const std::string& rest) {
        std::string program = "Wyvern";
        std::string start = "1";
        std::string stop = "0";
        char* startArguments[] = {program.data(), start.data(), nullptr};
        char* stopArguments[] = {program.data(), stop.data(), nullptr};
        calls.watch([&] {
            for (size_t length = 0; length <= whole.size(); ++length) {
                write(DeviceSandbox::WorkingConfig, whole.substr(0, length) + rest);
                std::printf("exit %d\n", WyvernMain(2, startArguments));
                std::printf("exit %d%c", WyvernMain(2, stopArguments), RunEnd);
            }
        });
        std::vector<std::string> runs;
        std::istringstream printed(calls.takePrinted());
        for (std::string run; std::getline(printed, run, RunEnd);) {
            runs.push_back(run);
        }
        return runs;
    }

    static std::string handled(const std::string& prefix, const std::string& mode) {
        const std::string command =
            mode == "1" ? "/factory_setting/" + prefix + "_loadservice" : "killall -15 " + prefix + "_Server";
        return "$ " + command + "\n" + (mode == "1" ? "Run" : "Stop") + " LoadServcie(" + command + ") \n";
    }

    static std::string factoryHandled(const std::string& mode) {
        return WorkingFailed + handled("FAC", mode) + handled("ABC", mode) + "Protocol(OUT) disable\nexit 0";
    }

private:
    // A new file: some file systems write one that is emptied and filled again through to the disk, which takes longer
    // than a run, too.
    void write(const std::string& path, const std::string& content) const {
        std::filesystem::remove(root.path() + path);
        static_cast<void>(root.write(path.substr(1), content));
    }

    const TemporaryDirectory root;

protected:
    SystemCalls calls;
};

} // namespace

// A cut file loads from the end of its root on: then it is all there. What a cut leaves behind it is nothing, or a block
// of the flash that was allocated, or erased, and not written.
TEST_F(DamagedConfigTest, AWorkingCopyThatIsCutAnywhereMeansAllOfItOrTheFactoryCopyAndNeverAMixture) {
    const struct {
        const char* declaration;
        const char* chinese;
    } encodings[] = {{Utf8Declaration, ChineseUtf8}, {Gb2312Declaration, ChineseGb2312}};
    const auto wholeHandled = [](const std::string& mode) {
        return handled("ABC", mode) + "Protocol(OFF) disable\n" + handled(ChineseUtf8, mode) + handled("XYZ", mode) +
               "exit 0";
    };
    const std::string all = wholeHandled("1") + "\n" + wholeHandled("0");
    const std::string factory = factoryHandled("1") + "\n" + factoryHandled("0");
    for (const auto& encoding : encodings) {
        const std::string whole =
            ProtocolConfigText({{"ABC"}, {"OFF", false}, {encoding.chinese}, {"XYZ"}}, encoding.declaration);
        const size_t end = whole.rfind('>') + 1;
        for (const std::string& rest : {std::string(), std::string(64, '\0'), std::string(64, '\xFF')}) {
            const std::vector<std::string> runs = runWithEachCut(whole, rest);

            ASSERT_EQ(runs.size(), whole.size() + 1);
            for (size_t length = 0; length < runs.size(); ++length) {
                ASSERT_EQ(runs[length], length < end ? factory : all) << whole.substr(0, length);
            }
        }
    }
    EXPECT_EQ(calls.leftOpen(), 0);
}

TEST_F(DamagedConfigTest, ADamagedNameOfAnAttributeLeavesThatAttributeOutAndNoMore) {
    const std::string whole = ProtocolConfigText({{"ABC"}, {"FAC"}});
    const auto damaged = [&whole](const std::string& name, const std::string& damage) {
        std::string text = whole;
        return text.replace(text.find(name), name.size(), damage);
    };
    for (const char* mode : {"1", "0"}) {
        const std::string second = handled("FAC", mode) + "exit 0";

        // An empty name is part of every name: the first start program is taken.
        EXPECT_EQ(runWith(damaged("ProtocolName", "ProtokolName"), mode), handled("XYZ", mode) + second);
        EXPECT_EQ(runWith(damaged("ProtocolName", "protocolName"), mode), handled("XYZ", mode) + second);
        EXPECT_EQ(runWith(damaged("ProtocolName", "ProtocolNam"), mode), handled("XYZ", mode) + second);
        EXPECT_EQ(runWith(damaged("ProtocolEnable", "ProtocolEnab1e"), mode), "Protocol(ABC) disable\n" + second);
        EXPECT_EQ(runWith(damaged("ProtocolId", "ProtocolIe"), mode), handled("ABC", mode) + second);
        EXPECT_EQ(runWith(damaged("ProtocolType", "QrotocolType"), mode), handled("ABC", mode) + second);
    }
}

// The bytes of a UTF-8 text are not checked. The parser steps over as many as the first one of a character announces:
// the quotation mark that ends a name is lost in a character that is cut before it.
TEST_F(DamagedConfigTest, AByteThatIsNoUtf8StaysInTheNameUnlessItHidesTheQuotationMark) {
    for (const char* mode : {"1", "0"}) {
        const std::string none = mode == std::string("1")
                                     ? "$ /factory_setting/\nRun LoadServcie(/factory_setting/) \n"
                                     : "$ killall -15 _Server\nStop LoadServcie(killall -15 _Server) \n";

        EXPECT_EQ(runWith(ProtocolConfigText({{"BAD\xFF"}, {"FAC"}}), mode),
                  handled("BAD\xFF", mode) + handled("FAC", mode) + "exit 0");
        for (const char* name : {"ABC\xFF",
                                 "\x80"
                                 "ABC",
                                 "A\xC0"
                                 "BC"}) {
            EXPECT_EQ(runWith(ProtocolConfigText({{name}, {"FAC"}}), mode), none + handled("FAC", mode) + "exit 0");
            EXPECT_EQ(runWith(ProtocolConfigText({{name, false}, {"FAC"}}), mode),
                      "Protocol(" + std::string(name) + ") disable\n" + handled("FAC", mode) + "exit 0");
        }
        for (const char* name : {"ABC\xE7", "ABC\xE7\xBD", "ABC\xC3", "ABC\xF0\x9F\x98"}) {
            EXPECT_EQ(runWith(ProtocolConfigText({{name}, {"FAC"}}), mode), factoryHandled(mode));
        }
    }
}
