#include "tests/support/AllocationFault.h"
#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

// Whole runs of the launcher, from static initialisation to exit, in each of which another allocation is refused. What
// must follow is told from the call that was refused, by a model of the run that stands here and is kept simple.

namespace {

using Lines = std::vector<std::string>;

constexpr const char* Utf8Declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
constexpr const char* Gb2312Declaration = "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n";

// The end of a run by an exception that nothing catches. Where no memory is left either, the C++ runtime cannot make the
// name readable.
constexpr const char* BadAlloc =
    "terminate called after throwing an instance of 'std::bad_alloc'\n  what():  std::bad_alloc\n";
constexpr const char* BadAllocWithoutMemory =
    "terminate called after throwing an instance of 'St9bad_alloc'\n  what():  std::bad_alloc\n";
// The C++ runtime allocates a reserve for exceptions: before all else where it is a library, between the launcher's own
// first objects where it is linked in. Without that and without memory it has no room for std::bad_alloc itself.
constexpr const char* NoRoomForAnException = "terminate called without an active exception\n";

// The first one is enabled: nothing is printed between the reading of the configuration and its listing. The start
// program of LNG has a name that is too long for a command.
const std::vector<ConfigEntry> WorkingEntries{{"ABC"}, {"OFF", false}, {"LNG"}, {"XYZ"}};
const std::vector<ConfigEntry> FactoryEntries{{"FAC"}, {"OUT", false}};
const std::vector<ConfigEntry> NoEntries;
const std::string LongPrefix = "LNG" + std::string(50, 'x');

enum class Copy {
    Utf8,
    Gb2312,
    Missing,
    Cut, // before the end of the root element: it is read whole, parsed to there, and refused
};

struct RunCase {
    const char* name;
    const char* mode;
    const char* extent;
    Copy working;
    Copy factory = Copy::Utf8;
};

void PrintTo(const RunCase& runCase, std::ostream* out) {
    *out << runCase.name;
}

struct Outcome {
    std::string out;
    std::string err;
    Lines commands;
    std::string status;
    RefusedAllocation refused;
};

// What a run leaves behind that prints and runs this.
class Model {
public:
    explicit Model(const RunCase& modelled) : runCase(modelled) { run.status = "0"; }

    Model& print(const std::string& line) {
        run.out += line;
        return *this;
    }

    // The first `count` of the enabled entries are handled, and the disabled ones up to the next enabled one. For one
    // of the enabled ones, counted from 1, the directory cannot be listed.
    Model& handle(const std::vector<ConfigEntry>& entries, int count, int unlisted = 0) {
        int enabled = 0;
        for (const ConfigEntry& entry : entries) {
            if (!entry.enabled) {
                run.out += "Protocol(" + entry.name + ") disable\n";
                continue;
            }
            if (++enabled > count) {
                break;
            }
            handleEnabled(enabled == unlisted ? "" : entry.name);
        }
        return *this;
    }

    Outcome ends() const { return run; }

    Outcome aborts(const std::string& message) {
        run.status = "134";
        run.err += message + "Aborted\n"; // as the shell calls the end by SIGABRT
        return run;
    }

private:
    void handleEnabled(const std::string& name) {
        const bool starts = std::string(runCase.mode) == "1";
        if (name == "LNG") {
            run.err += "Wyvern: protocol \"LNG\": the command for the file \"" + LongPrefix +
                       "_loadservice_x\" is longer than 63 characters and is not run\n";
            return;
        }
        const std::string command = starts ? "/factory_setting/" + (name.empty() ? "" : name + "_loadservice_x")
                                           : "killall -15 " + name + "_Server";
        run.commands.push_back(command);
        run.out += (starts ? "Run LoadServcie(" : "Stop LoadServcie(") + command + ") \n";
        if (starts && name.empty()) {
            run.err += "/usr/bin/sh: 1: /factory_setting/: Permission denied\n";
        }
    }

    const RunCase& runCase;
    Outcome run;
};

constexpr int All = 1000;
// Those of the path strings that are too long to stand in their objects are allocated before main.
constexpr int LongPathStrings = 3;

int CountEnabled(const std::vector<ConfigEntry>& entries) {
    return static_cast<int>(
        std::count_if(entries.begin(), entries.end(), [](const ConfigEntry& entry) { return entry.enabled; }));
}

/// The runs of one case, the n-th with the n-th allocation refused; in the last one none was.
class RunModel {
public:
    RunModel(const RunCase& modelled, const std::vector<Outcome>& sweep) : runCase(modelled), runs(sweep) {}

    Outcome expected(size_t i) const { return rest() ? expectedOfRest(i) : expectedOfOne(i); }

private:
    bool rest() const { return std::string(runCase.extent) == "rest"; }

    static bool isRefused(Copy copy) { return copy == Copy::Missing || copy == Copy::Cut; }

    bool factoryIsRead() const { return isRefused(runCase.working); }

    const std::vector<ConfigEntry>& factoryEntries() const {
        return isRefused(runCase.factory) ? NoEntries : FactoryEntries;
    }

    const std::vector<ConfigEntry>& entries() const { return factoryIsRead() ? factoryEntries() : WorkingEntries; }

    Model startFromFactoryCopy() const {
        return Model(runCase).print(WorkingFailed).print(isRefused(runCase.factory) ? FactoryFailed : "");
    }

    Model start() const { return factoryIsRead() ? startFromFactoryCopy() : Model(runCase); }

    Outcome undisturbed() const { return start().handle(entries(), All).ends(); }

    int called(const char* call, size_t before) const {
        int count = 0;
        for (size_t i = 0; i < before; ++i) {
            count += runs[i].refused.call == call ? 1 : 0;
        }
        return count;
    }

    // The allocation that the opening of a file is.
    size_t opening(int ordinal) const {
        const auto isIt = [ordinal](const Outcome& run) {
            return run.refused.call == "fopen" && run.refused.ordinal == ordinal;
        };
        return static_cast<size_t>(std::find_if(runs.begin(), runs.end(), isIt) - runs.begin());
    }

    // The line that the working copy is refused by takes no memory of its own. What comes between it and the opening of
    // the factory copy takes as much as what comes between static initialisation and the opening of the working copy.
    bool workingIsRefused(size_t before) const {
        const int between = called("operator new", opening(1)) - LongPathStrings;
        return factoryIsRead() && before + static_cast<size_t>(between) >= opening(2);
    }

    // How far a run came: the configuration that was opened last, the listing that was begun last.
    Model upTo(size_t i) const {
        Model model(runCase);
        if (workingIsRefused(i)) {
            model.print(WorkingFailed);
        }
        const int listed = called("opendir", i);
        // The path of the directory is made before each listing: the protocol before it is done with then.
        const bool beforeListing = i + 1 < runs.size() && runs[i + 1].refused.call == "opendir";
        return listed == 0 ? model : model.handle(entries(), beforeListing ? listed : listed - 1);
    }

    Outcome expectedOfOne(size_t i) const {
        const RefusedAllocation& refused = runs[i].refused;
        if (refused.call == "operator new") {
            return upTo(i).aborts(BadAlloc);
        }
        if (refused.call == "opendir") {
            return start().handle(entries(), All, refused.ordinal).ends();
        }
        if (refused.call == "fopen" && refused.ordinal == 2) {
            return Model(runCase).print(WorkingFailed).print(FactoryFailed).ends();
        }
        if (refused.call == "fopen" || refused.call == "libiconv_open") {
            return startFromFactoryCopy().handle(factoryEntries(), All).ends();
        }
        return undisturbed(); // nothing, or what the C library does without
    }

    Outcome expectedOfRest(size_t i) const {
        const RefusedAllocation& refused = runs[i].refused;
        const auto reserve = std::find_if(runs.begin(), runs.end(),
                                          [](const Outcome& run) { return run.refused.call != "operator new"; });
        if (i <= static_cast<size_t>(reserve - runs.begin())) {
            return Model(runCase).aborts(NoRoomForAnException);
        }
        if (refused.call == "opendir") {
            Model model = start().handle(entries(), refused.ordinal, refused.ordinal);
            // The path of the next listing is refused.
            return refused.ordinal < CountEnabled(entries()) ? model.aborts(BadAllocWithoutMemory) : model.ends();
        }
        if (refused.call == "fopen" && refused.ordinal == 2) {
            return Model(runCase).print(WorkingFailed).print(FactoryFailed).ends();
        }
        if (refused.call == "fopen") {
            return Model(runCase).print(WorkingFailed).aborts(BadAllocWithoutMemory); // for the path of the other copy
        }
        if (refused.call == "operator new" || refused.call == "libiconv_open") { // its output is allocated next
            return upTo(i).aborts(BadAllocWithoutMemory);
        }
        // The call that is refused next decides.
        return i + 1 < runs.size() ? expectedOfRest(i + 1) : undisturbed();
    }

    const RunCase& runCase;
    const std::vector<Outcome>& runs;
};

// Runs the command again and again; the number of each run stands before what it writes.
std::string SweepScript(const RunCase& runCase) {
    return std::string("record=/sandbox/record\n"
                       "n=1\n"
                       "refused=some\n"
                       "while [ -n \"$refused\" ] && [ $n -le 2000 ]; do\n"
                       "    echo \"== $n\"\n"
                       "    echo \"== $n\" >&2\n"
                       "    echo \"== $n\" >>$record/commands\n"
                       "    : >$record/refused\n"
                       "    ALLOCATION_FAULT=\"") +
           runCase.extent + " $n\" ALLOCATION_FAULT_REPORT=$record/refused \"$WYVERN\" " + runCase.mode +
           "\n"
           "    echo $? >>$record/statuses\n"
           "    refused=\n"
           "    read -r refused <$record/refused\n"
           "    echo \"$refused\" >>$record/calls\n"
           "    n=$((n + 1))\n"
           "done\n";
}

Lines LinesOf(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The part of each run of what all of them wrote.
std::vector<Lines> SplitRuns(const Lines& lines) {
    std::vector<Lines> runs;
    for (const std::string& line : lines) {
        if (line == "== " + std::to_string(runs.size() + 1)) {
            runs.emplace_back();
        } else if (runs.empty()) {
            ADD_FAILURE() << "before the first run: " << line;
        } else {
            runs.back().push_back(line);
        }
    }
    return runs;
}

std::string Joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

RefusedAllocation ParseRefused(const std::string& line) {
    RefusedAllocation refused;
    std::istringstream stream(line);
    stream >> refused.call;
    if (refused.call == "operator") {
        stream >> refused.call;
        refused.call = "operator new";
    }
    stream >> refused.ordinal;
    refused.failed = line.find(" failed") != std::string::npos;
    return refused;
}

std::vector<Outcome> RunSweep(const DeviceSandbox& device, const RunCase& runCase) {
    const DeviceRun all = device.runScript(SweepScript(runCase));
    EXPECT_EQ(all.ended, "exit 0");
    const std::vector<Lines> outs = SplitRuns(LinesOf(all.out));
    const std::vector<Lines> errs = SplitRuns(LinesOf(all.err));
    const std::vector<Lines> commands = SplitRuns(all.commands);
    const Lines statuses = LinesOf(ReadWholeFile(device.onHost("/sandbox/record/statuses")));
    const Lines calls = LinesOf(ReadWholeFile(device.onHost("/sandbox/record/calls")));
    std::vector<Outcome> runs;
    if (errs.size() != outs.size() || commands.size() != outs.size() || statuses.size() != outs.size() ||
        calls.size() != outs.size()) {
        ADD_FAILURE() << "the runs did not leave equally many parts";
        return runs;
    }
    for (size_t i = 0; i < outs.size(); ++i) {
        runs.push_back({Joined(outs[i]), Joined(errs[i]), commands[i], statuses[i], ParseRefused(calls[i])});
    }
    return runs;
}

class WyvernMemoryTest : public testing::TestWithParam<RunCase> {
protected:
    WyvernMemoryTest() {
        for (const std::string& prefix : {std::string("ABC"), LongPrefix, std::string("XYZ"), std::string("FAC")}) {
            device.addStartProgram(prefix + "_loadservice_x");
        }
        write(DeviceSandbox::WorkingConfig, GetParam().working, WorkingEntries);
        write(DeviceSandbox::FactoryConfig, GetParam().factory, FactoryEntries);
    }

    void write(const char* path, Copy copy, const std::vector<ConfigEntry>& entries) const {
        const std::string text =
            ProtocolConfigText(entries, copy == Copy::Gb2312 ? Gb2312Declaration : Utf8Declaration);
        if (copy != Copy::Missing) {
            device.write(path, copy == Copy::Cut ? text.substr(0, text.rfind("</Configure>")) : text);
        }
    }

    const DeviceSandbox device;
};

const RunCase Cases[] = {
    {"StartOneRefused", "1", "one", Copy::Utf8},
    {"StopOneRefused", "0", "one", Copy::Utf8},
    {"StartRestRefused", "1", "rest", Copy::Utf8},
    {"StopRestRefused", "0", "rest", Copy::Utf8},
    {"StartFromGb2312OneRefused", "1", "one", Copy::Gb2312},
    {"StopFromGb2312OneRefused", "0", "one", Copy::Gb2312},
    {"StartFromGb2312RestRefused", "1", "rest", Copy::Gb2312},
    {"StopFromGb2312RestRefused", "0", "rest", Copy::Gb2312},
    {"StartFromFactoryCopyOneRefused", "1", "one", Copy::Missing},
    {"StopFromFactoryCopyOneRefused", "0", "one", Copy::Missing},
    {"StartFromFactoryCopyRestRefused", "1", "rest", Copy::Missing},
    {"StopFromFactoryCopyRestRefused", "0", "rest", Copy::Missing},
    {"StartWithWorkingCopyCutOneRefused", "1", "one", Copy::Cut},
    {"StopWithWorkingCopyCutOneRefused", "0", "one", Copy::Cut},
    {"StartWithWorkingCopyCutRestRefused", "1", "rest", Copy::Cut},
    {"StopWithWorkingCopyCutRestRefused", "0", "rest", Copy::Cut},
    {"StartWithBothCopiesCutOneRefused", "1", "one", Copy::Cut, Copy::Cut},
    {"StopWithBothCopiesCutOneRefused", "0", "one", Copy::Cut, Copy::Cut},
    {"StartWithBothCopiesCutRestRefused", "1", "rest", Copy::Cut, Copy::Cut},
    {"StopWithBothCopiesCutRestRefused", "0", "rest", Copy::Cut, Copy::Cut},
};

} // namespace

TEST_P(WyvernMemoryTest, ARunDoesWhatFollowsFromTheCallThatWasRefusedMemory) {
    const std::vector<Outcome> runs = RunSweep(device, GetParam());

    ASSERT_FALSE(runs.empty());
    EXPECT_EQ(runs.back().refused.call, "") << "the sweep did not come to its end";
    const RunModel model(GetParam(), runs);
    for (size_t i = 0; i < runs.size(); ++i) {
        const Outcome& run = runs[i];
        SCOPED_TRACE("allocation " + std::to_string(i + 1) + ", " + run.refused.call + " " +
                     std::to_string(run.refused.ordinal));
        const Outcome expected = model.expected(i);

        EXPECT_EQ(run.commands, expected.commands);
        EXPECT_EQ(run.out, expected.out);
        EXPECT_EQ(run.err, expected.err);
        EXPECT_EQ(run.status, expected.status);
        EXPECT_EQ(run.refused.failed, !run.refused.call.empty() && run.refused.call != "other");
    }
    EXPECT_GT(runs.size(), 50U) << "a run makes more allocations than that";
    RecordProperty("refused", static_cast<int>(runs.size() - 1));
    std::printf("%s: %zu allocations refused\n", GetParam().name, runs.size() - 1);
}

INSTANTIATE_TEST_SUITE_P(, WyvernMemoryTest, testing::ValuesIn(Cases),
                         [](const auto& instance) { return std::string(instance.param.name); });
