#include "check/ConfigurationReport.h"

#include "check/ConfigurationRules.h"
#include "check/ReportText.h"
#include "tests/check/DeviceImage.h"
#include "tests/check/TextForAnyone.h"
#include "tests/support/Repeated.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

namespace {

using State = ConfigurationReport::State;

constexpr const char* Path = DeviceImage::Working;

ConfigurationReport Read(const DeviceImage& image) {
    return ReadConfiguration(DeviceRoot(image.root()), Path, "working copy");
}

ConfigurationReport ReadText(const std::string& text) {
    const DeviceImage image;
    image.write(Path, text);
    return Read(image);
}

std::string PlaceText(const ConfigurationReport& report) {
    return std::to_string(report.place.line) + ":" + std::to_string(report.place.column);
}

const std::string Entries = EntryText("A", "1") + EntryText("B", "2", "false");

} // namespace

TEST(ConfigurationReportTest, AUsableFileHasTheLaunchersRecordsAndTheElementOfEach) {
    const ConfigurationReport report = ReadText(ConfigurationText("<Other/>" + Entries + "<Last/>"));

    EXPECT_EQ(report.state, State::Usable);
    EXPECT_EQ(report.reason, "");
    ASSERT_EQ(report.records.size(), 3U);
    EXPECT_EQ(report.records[0].getProtocolName(), "A");
    EXPECT_FALSE(report.records[1].isProtocolEnable());
    EXPECT_EQ(report.entry(0).find("ProtocolName")->value, "A");
    EXPECT_EQ(report.entry(2).name, "Last");
    EXPECT_FALSE(report.inForce);
}

TEST(ConfigurationReportTest, WhatIsNoFileIsToldApart) {
    const DeviceImage image;
    image.remove(Path);
    EXPECT_EQ(Read(image).state, State::Absent);

    image.link(Path, "/nowhere");
    EXPECT_EQ(Read(image).reason, "it is a link that leads to nothing");

    image.link(Path, "protocolconfig.xml");
    EXPECT_EQ(Read(image).reason, "a link on the way to it leads to itself, or over too many others");

    image.remove(Path);
    std::filesystem::create_directory(image.onHost(Path));
    EXPECT_EQ(Read(image).reason, "it is a directory");

    image.remove(Path);
    ASSERT_EQ(mkfifo(image.onHost(Path).c_str(), 0644), 0);
    EXPECT_EQ(Read(image).state, State::Waits);

    image.write(Path, "");
    EXPECT_EQ(Read(image).state, State::Empty);
}

// A terminal may wait for its line; which devices wait, only those who open them find out.
TEST(ConfigurationReportTest, OfDevicesOnlyThoseThatOpenAtOnceAreKnownToBeRefused) {
    const auto read = [](const char* path) { return ReadConfiguration(DeviceRoot("/"), path, "configuration"); };

    EXPECT_EQ(read("/dev/null").state, State::NotAFile);
    EXPECT_EQ(read("/dev/null").reason, "it is not a regular file");
    EXPECT_EQ(read("/dev/tty").state, State::Unreadable);
    EXPECT_EQ(read("/dev/tty").reason, "it is a device, and whether the launcher waits when it opens it is not known");
}

TEST(ConfigurationReportTest, AFileThatThisUserMayNotReadIsUnreadable) {
    const DeviceImage image;
    image.setMode("", 0755);
    for (const char* closed : {"/mnt/mtd/code", Path}) {
        image.setMode(closed, 0);
        const std::string state = TextForAnyone([&image] { return StateName(Read(image).state); });
        image.setMode(closed, 0755);

        EXPECT_EQ(state, "unreadable") << closed;
    }
}

TEST(ConfigurationReportTest, AFileTooLargeToLookAtIsNotRead) {
    const DeviceImage image;
    image.write(Path, "x");
    std::filesystem::resize_file(image.onHost(Path), ConfigurationReport::MaxSize + 1);

    EXPECT_EQ(Read(image).state, State::TooLarge);
    EXPECT_TRUE(Read(image).content.empty());
}

TEST(ConfigurationReportTest, ATextThatIsRefusedHasTheReasonAndThePlace) {
    struct Case {
        std::string text;
        State state;
        std::string place;
        std::string reason;
    };
    const std::string whole = ConfigurationText(Entries);
    const auto withRoot = [](const std::string& root) { return "<?xml version=\"1.0\"?>\n" + root; };
    for (const Case& each : {
             Case{whole.substr(0, whole.size() - 20), State::Cut, "6:1", "the text ends too early: "},
             Case{withRoot("<Configure name='a'><b></c></Configure>"), State::NotWellFormed, "2:24",
                  "Error reading end tag."},
             Case{Repeated("<a>", 5001), State::TooDeep, "1:1", "5000"},
             Case{withRoot("<!-- -->"), State::WrongRoot, "1:1", "no root element is found"},
             Case{withRoot("<!DOCTYPE Configure> <!-- [ -->"), State::WrongRoot, "1:1", "no root element is found"},
             Case{withRoot("<!DOCTYPE Configure [<!ENTITY a \"b\"> ]>\n") + whole, State::WrongRoot, "1:1",
                  "found: the parser stops in the DOCTYPE"},
             Case{"\xEF\xBB\xBF" + whole, State::NotWellFormed, "1:1", "begins with a byte-order mark"},
             Case{std::string("\xFF\xFE<\0a", 5), State::NotWellFormed, "1:1", "UTF-16"},
             Case{std::string("\xFE\xFF\0<", 4), State::NotWellFormed, "1:1", "UTF-16"},
             Case{withRoot("<Config name='a'/>"), State::WrongRoot, "2:1", "\"Config\", not \"Configure\""},
             Case{withRoot("<Configure/>"), State::NamelessRoot, "2:1", "no attribute \"name\""},
             Case{withRoot("<Configure name='a'/>"), State::NoSection, "2:1", "no section"},
             Case{withRoot("<Configure name='a'><Configure name='b'/><x/></Configure>"), State::SearchEnded, "2:42",
                  "\"x\""},
             Case{withRoot("<Configure name='a'><x name='ProtocolConfig'/></Configure>"), State::NoSection, "2:1", ""},
             Case{ConfigurationText("<x/>"), State::NoEntry, "3:1", "no \"ConfigItem\""},
             Case{ConfigurationText(Repeated("<ConfigItem/>\n", 20096)), State::TooManyEntries, "20099:1", "20096"},
             Case{"<?xml version=\"1.0\" encoding=\"gb2312\"?>\n<Configure name='\xFF'/>", State::Cut, "2:12", ""},
         }) {
        const ConfigurationReport report = ReadText(each.text);

        EXPECT_EQ(StateName(report.state), std::string(StateName(each.state))) << report.reason;
        EXPECT_EQ(PlaceText(report), each.place) << report.reason;
        EXPECT_NE(report.reason.find(each.reason), std::string::npos) << report.reason;
        EXPECT_TRUE(report.records.empty());
    }
}

// Both read the same bytes with the same parser: only a file that is changed meanwhile, or an error, comes to this.
TEST(ConfigurationReportTest, AnExplanationThatIsNotTheLaunchersReadingIsAnError) {
    const std::vector<ProtocolTypeInfo> three(3);
    const auto stateWith = [](ConfigurationReport report, const std::vector<ProtocolTypeInfo>* records) {
        TakeReading(records, report);
        return std::string(StateName(report.state));
    };
    const auto readTwo = [] { return ReadText(ConfigurationText(Entries)); };

    EXPECT_EQ(stateWith(readTwo(), &three), "contradictory");
    EXPECT_EQ(stateWith(readTwo(), nullptr), "contradictory");
    EXPECT_EQ(stateWith(ReadText("x"), &three), "contradictory");
    EXPECT_EQ(stateWith(ReadText("x"), nullptr), "cut");
    ConfigurationReport report = readTwo();
    TakeReading(&three, report);
    FindingList findings;
    CheckConfiguration(report, findings);
    EXPECT_EQ(findings.count(Severity::Error), 1U);
    EXPECT_TRUE(report.isUnknown()) << "so nothing is planned";
}

TEST(ConfigurationReportTest, EachStateHasAWordOfItsOwnButTheTwoThatWereNotLookedAt) {
    std::set<std::string> words;
    for (uint8_t state = 0; state <= static_cast<uint8_t>(State::TooManyEntries); ++state) {
        words.insert(StateName(static_cast<State>(state)));
    }
    EXPECT_EQ(words.size(), static_cast<size_t>(State::TooManyEntries));
}

TEST(ConfigurationReportTest, TheFactoryCopyIsInForceBehindAWorkingCopyThatCannotBeUsed) {
    const DeviceImage image;
    EXPECT_EQ(image.check().inForce()->role, "working copy");

    image.write(DeviceImage::Working, "x");
    EXPECT_EQ(image.check().inForce()->role, "factory copy");

    image.write(DeviceImage::Factory, "x");
    EXPECT_EQ(image.check().inForce(), nullptr);
}

TEST(ConfigurationReportTest, BehindAWorkingCopyThatEndsTheLauncherNothingIsInForce) {
    const DeviceImage image;
    image.write(DeviceImage::Working, ConfigurationText(Repeated("<ConfigItem/>\n", 20096)));

    const CheckReport report = image.check();

    EXPECT_EQ(report.inForce(), nullptr);
    EXPECT_TRUE(report.configurations[1].isUsable());
    EXPECT_EQ(report.exitStatus(), 2);
    EXPECT_FALSE(HasRule(report, "no-configuration")) << "the launcher does not print its lines";
    EXPECT_NE(ReportAsText(report, {}).find("not reached: the launcher ends at the working copy; 2 entries\n"),
              std::string::npos);
}

TEST(ConfigurationReportTest, AtAFifoTheLauncherWaitsSoThatNothingIsInForceAndNothingPlanned) {
    const DeviceImage image;
    const auto makeFifo = [&image](const char* path) {
        image.remove(path);
        ASSERT_EQ(mkfifo(image.onHost(path).c_str(), 0644), 0);
    };
    makeFifo(DeviceImage::Factory);
    EXPECT_EQ(image.check().inForce()->role, "working copy");
    image.remove(DeviceImage::Working);
    EXPECT_FALSE(HasRule(image.check(), "no-configuration")) << "the launcher does not print its lines";

    image.rename(DeviceImage::Factory, DeviceImage::Working);
    image.write(DeviceImage::Factory, ConfigurationText(Entries));
    const CheckReport report = image.check("start");

    EXPECT_EQ(report.inForce(), nullptr);
    EXPECT_TRUE(report.plan.empty());
    EXPECT_EQ(report.exitStatus(), 2);
    EXPECT_EQ(StateName(report.configurations[0].state), std::string("waits"));
    EXPECT_NE(ReportAsText(report, {}).find("not reached: the launcher waits at the working copy; 2 entries\n"),
              std::string::npos);
}

TEST(ConfigurationReportTest, BehindAWorkingCopyOfWhichNothingIsKnownNothingIsInForceAndNothingPlanned) {
    const DeviceImage image;
    image.write(DeviceImage::Working, "x");
    std::filesystem::resize_file(image.onHost(DeviceImage::Working), ConfigurationReport::MaxSize + 1);

    const CheckReport report = image.check("start");

    EXPECT_EQ(report.inForce(), nullptr);
    EXPECT_TRUE(report.plan.empty());
    EXPECT_NE(FindingsText(report).find("it is not known which configuration is in force"), std::string::npos);
    EXPECT_FALSE(HasRule(report, "no-configuration"));
    EXPECT_EQ(report.exitStatus(), 1);
}

TEST(ConfigurationReportTest, AFactoryCopyOfWhichNothingIsKnownMattersOnlyWhereItsTurnComes) {
    const DeviceImage image;
    image.write(DeviceImage::Factory, "x");
    std::filesystem::resize_file(image.onHost(DeviceImage::Factory), ConfigurationReport::MaxSize + 1);

    EXPECT_EQ(image.check("start").inForce()->role, "working copy");

    image.remove(DeviceImage::Working);
    EXPECT_EQ(image.check("start").inForce(), nullptr);
    EXPECT_FALSE(HasRule(image.check("start"), "no-configuration"));
}

TEST(ConfigurationReportTest, AWorkingCopyThatThisUserMayNotReadIsNotTakenForOneThatCannotBeUsed) {
    const DeviceImage image;
    image.setMode("", 0755);
    image.setMode(DeviceImage::Working, 0);

    const std::string inForce = TextForAnyone([&image] {
        const CheckReport report = image.check("start");
        return report.inForce() == nullptr && report.plan.empty() ? "none" : "one";
    });

    EXPECT_EQ(inForce, "none");
    const std::string text = TextForAnyone([&image] { return FindingsText(image.check()); });
    EXPECT_NE(text.find("warning: not-looked-at: it cannot be read here"), std::string::npos) << text;
    EXPECT_EQ(text.find("error"), std::string::npos) << "the launcher, which is root, may well use it";
}
