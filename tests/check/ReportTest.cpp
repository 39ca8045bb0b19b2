#include "check/ReportJson.h"
#include "check/ReportTable.h"
#include "check/ReportText.h"

#include "tests/check/DeviceImage.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

namespace {

/// A report with something of everything that an output can print.
class ReportTest : public testing::Test {
protected:
    ReportTest() {
        const std::string name = "Modbus_loadservice";
        image.write("/factory_setting/2" + name, "#!/bin/sh\n");
        image.write("/factory_setting/." + name, "");
        image.configureEntries(EntryText("Modbus", "1") + EntryText("OPCUA", "2") + EntryText("X", "3", "false"));
        image.write(DeviceImage::Factory, ConfigurationText(EntryText("OPCUA", "2") + EntryText("Y", "1")));
        image.setMode("/factory_setting/OPCUA_loadservice", 0644);
        report = image.check("start");
        // Which of the two names comes first is the file system's to say.
        PlanStep& step = report.plan[0];
        step.file = "2" + name;
        step.command = "/factory_setting/" + step.file;
        step.passedOver[0].name = name;
    }

    std::string withoutRoot(std::string text) const {
        for (size_t at = text.find(image.root()); at != std::string::npos; at = text.find(image.root())) {
            text.erase(at, image.root().size());
        }
        return text;
    }

    static std::string LinesWith(const std::string& text, const std::string& word) {
        std::string lines;
        for (size_t start = 0; start < text.size();) {
            const size_t end = text.find('\n', start) + 1;
            const std::string line = text.substr(start, end - start);
            lines += line.find(word) == std::string::npos ? "" : line;
            start = end;
        }
        return lines;
    }

    DeviceImage image;
    CheckReport report;
};

} // namespace

TEST_F(ReportTest, TheTextHasTheFilesTheDifferencesThePlanAndTheFindings) {
    const std::string text = withoutRoot(ReportAsText(report, {}));

    EXPECT_EQ(text.find("working copy: /mnt/mtd/code/config_file/protocolconfig.xml: in force, 3 entries\n"
                        "factory copy: /mnt/mtd/code/factory_setting/protocolconfig.xml: not in force, the other copy "
                        "is; 2 entries\n"
                        "start programs: /factory_setting/: 3\n"),
              0U);
    EXPECT_NE(text.find("after a fallback to the factory copy, start also runs: /factory_setting/ (Y)\n"),
              std::string::npos);
    EXPECT_NE(text.find("after a fallback to the factory copy, stop also runs: killall -15 _Server (Y)\n"),
              std::string::npos);
    EXPECT_EQ(LinesWith(text, "after a fallback to the factory copy, stop may no longer run: killall -15 "),
              LinesWith(text, "Modbus_Server (Modbus)"));
    EXPECT_NE(text.find("plan of start:\n"
                        "  1 Modbus: run /factory_setting/2Modbus_loadservice (open: several match, and the order of "
                        "the directory on the device decides)\n"
                        "      or Modbus_loadservice: may come first in the directory on the device\n"
                        "      not .Modbus_loadservice: begins with a dot\n"
                        "  2 OPCUA: run /factory_setting/OPCUA_loadservice\n"
                        "  3 X: skip (disabled)\n"),
              std::string::npos);
    EXPECT_NE(text.find("/factory_setting/OPCUA_loadservice:1:1: error: not-executable: "), std::string::npos);
    EXPECT_EQ(text.find('\x1B'), std::string::npos);
}

TEST_F(ReportTest, TheTextTellsWhyAndWhereAConfigurationCannotBeUsed) {
    image.write(DeviceImage::Working, "<?xml version=\"1.0\"?>\n<Config name=\"\"/>");
    image.remove(DeviceImage::Factory);

    const std::string text = withoutRoot(ReportAsText(image.check(), {}));

    EXPECT_NE(text.find("protocolconfig.xml: cannot be used: 2:1: its root element is \"Config\", not \"Configure\"\n"),
              std::string::npos);
    EXPECT_NE(text.find("protocolconfig.xml: cannot be used: there is no such file\n"), std::string::npos);

    image.write(DeviceImage::Working, "\n<a>");
    EXPECT_NE(ReportAsText(image.check("start"), {}).find("cannot be used: 2:4: the text ends too early: "),
              std::string::npos);
}

TEST_F(ReportTest, TheTextTellsACopyThatIsNotKnownFromOneThatCannotBeUsed) {
    std::filesystem::resize_file(image.onHost(DeviceImage::Working), ConfigurationReport::MaxSize + 1);

    const std::string text = withoutRoot(ReportAsText(image.check(), {}));

    EXPECT_NE(text.find("config_file/protocolconfig.xml: not known: it has more than 16777216 bytes"),
              std::string::npos);
    EXPECT_NE(text.find("factory_setting/protocolconfig.xml: usable, but not known to be in force; 2 entries\n"),
              std::string::npos);
}

TEST_F(ReportTest, WhereTheOrderIsKnownTheOthersAreNotOpen) {
    report.plan[0].isOpen = false;
    report.plan[0].passedOver[0].reason = PassedOver::Reason::Later;

    EXPECT_NE(ReportAsText(report, {}).find("\n      not Modbus_loadservice: comes after it in the directory\n"),
              std::string::npos);
}

TEST_F(ReportTest, TheTextTellsWhatAFallbackMayChangeAndAnotherOrder) {
    using Kind = PlanDifference::Kind;
    report.startDifferences = {{Kind::OnlyInFirst, "A", "a", true},
                               {Kind::OnlyInFirst, "B", "b", false},
                               {Kind::OnlyInSecond, "C", "c", true},
                               {Kind::OtherOrder, "D", "d", false}};

    EXPECT_EQ(LinesWith(ReportAsText(report, {}), "after a fallback to the factory copy, start"),
              "after a fallback to the factory copy, start may no longer run: a (A)\n"
              "after a fallback to the factory copy, start no longer runs: b (B)\n"
              "after a fallback to the factory copy, start may also run: c (C)\n"
              "after a fallback to the factory copy, start runs in another order, from: d (D)\n");
    EXPECT_EQ(LinesWith(ReportAsTable(report, {}), "\torder\t"), "fallback\tstart\torder\tD\td\tno\n");
}

TEST_F(ReportTest, NoDifferenceAfterAFallbackIsToldFromNoComparison) {
    const std::string same = "\nafter a fallback to the factory copy, start and stop run the same\n";
    const CheckReport equal = DeviceImage().check();
    image.write(DeviceImage::Factory, "");
    const CheckReport alone = image.check();

    EXPECT_NE(ReportAsText(equal, {}).find(same), std::string::npos);
    EXPECT_EQ(LinesWith(ReportAsTable(equal, {}), "compared\t"), "compared\tyes\n");
    EXPECT_EQ(nlohmann::json::parse(ReportAsJson(equal, {}))["fallbackCompared"], true);
    EXPECT_EQ(ReportAsText(alone, {}).find("after a fallback"), std::string::npos);
    EXPECT_EQ(LinesWith(ReportAsTable(alone, {}), "compared\t"), "compared\tno\n");
    EXPECT_EQ(nlohmann::json::parse(ReportAsJson(alone, {}))["fallbackCompared"], false);
    EXPECT_EQ(ReportAsText(report, {}).find(same), std::string::npos); // both differ

    report.startDifferences.clear();
    EXPECT_EQ(ReportAsText(report, {}).find(same), std::string::npos);
    report.startDifferences.swap(report.stopDifferences);
    EXPECT_EQ(ReportAsText(report, {}).find(same), std::string::npos);
}

TEST_F(ReportTest, TheTextIsColouredBySeverityWhereThatIsAskedFor) {
    image.remove("/bin");
    image.remove("/usr/bin");
    image.remove("/lib");

    const std::string text = ReportAsText(image.check(), {false, true});

    EXPECT_NE(text.find("\x1B[1;31merror\x1B[0m: not-executable"), std::string::npos);
    EXPECT_NE(text.find("\x1B[1;33mwarning\x1B[0m: program-ambiguous"), std::string::npos);
    EXPECT_NE(text.find("\x1B[1;36mnote\x1B[0m: partial-tree"), std::string::npos);
}

TEST_F(ReportTest, QuietLeavesOutFilesNotesAndCounts) {
    image.remove("/bin");
    image.remove("/usr/bin");
    image.remove("/factory_setting");
    const CheckReport partial = image.check();

    for (const std::string& text : {ReportAsText(partial, {true, false}), ReportAsTable(partial, {true, false})}) {
        EXPECT_EQ(text.find("partial-tree"), std::string::npos);
        EXPECT_EQ(text.find("summary"), std::string::npos);
        EXPECT_EQ(text.find("working copy"), std::string::npos);
        EXPECT_NE(text.find("services-missing"), std::string::npos);
    }
    const nlohmann::json object = nlohmann::json::parse(ReportAsJson(partial, {true, false}));
    EXPECT_FALSE(object.contains("configurations"));
    EXPECT_EQ(object["notes"], 1);
    EXPECT_NE(ReportAsText(partial, {}).find("/factory_setting/: missing\n"), std::string::npos);
    EXPECT_NE(ReportAsTable(partial, {}).find("\tmissing\t0\n"), std::string::npos);
}

TEST_F(ReportTest, TheTableHasAKindAndColumnsInEachLine) {
    const std::string table = withoutRoot(ReportAsTable(report, {}));

    EXPECT_EQ(LinesWith(table, "file\t"),
              "file\tworking copy\t/mnt/mtd/code/config_file/protocolconfig.xml\tusable\tyes\t1\t1\t\t3\n"
              "file\tfactory copy\t/mnt/mtd/code/factory_setting/protocolconfig.xml\tusable\tno\t1\t1\t\t2\n");
    EXPECT_EQ(LinesWith(table, "services\t"), "services\t/factory_setting/\tlisted\t3\n");
    EXPECT_EQ(LinesWith(table, "plan\t"),
              "plan\tstart\t1\tModbus\trun\topen: several match, and the order of the directory on the device "
              "decides\t2Modbus_loadservice\t/factory_setting/2Modbus_loadservice\tyes\n"
              "plan\tstart\t2\tOPCUA\trun\t\tOPCUA_loadservice\t/factory_setting/OPCUA_loadservice\tno\n"
              "plan\tstart\t3\tX\tskip\tdisabled\t\t\tno\n");
    EXPECT_EQ(LinesWith(table, "candidate\t"),
              "candidate\t1\tModbus\tor\tModbus_loadservice\tmay come first in the directory on the device\n"
              "candidate\t1\tModbus\tnot\t.Modbus_loadservice\tbegins with a dot\n");
    EXPECT_EQ(LinesWith(table, "\tfactory\t"), "fallback\tstart\tfactory\tY\t/factory_setting/\tno\n"
                                               "fallback\tstop\tfactory\tY\tkillall -15 _Server\tno\n");
    EXPECT_EQ(LinesWith(table, "not-executable"),
              "finding\t/factory_setting/OPCUA_loadservice\t1\t1\terror\tnot-executable\tit has no execute permission: "
              "the shell refuses to run it\n");
    EXPECT_NE(table.find("\nsummary\t"), std::string::npos);
}

TEST_F(ReportTest, TheJsonHasTheSame) {
    report.plan[1].protocol = "a\xFF\"\n";
    report.plan[2].protocol = "\xC2\x9B";

    const std::string text = ReportAsJson(report, {});
    const nlohmann::json object = nlohmann::json::parse(text);

    EXPECT_EQ(text.find("\xC2\x9B"), std::string::npos) << "which a terminal takes for the start of a command";
    EXPECT_EQ(object["plan"]["steps"][2]["protocol"], "\xC2\x9B");

    EXPECT_EQ(object["configurations"][0]["state"], "usable");
    EXPECT_EQ(object["configurations"][0]["inForce"], true);
    EXPECT_EQ(object["configurations"][1]["entries"], 2);
    EXPECT_EQ(object["services"]["startPrograms"], 3);
    EXPECT_EQ(object["services"]["state"], "listed");
    EXPECT_EQ(object["plan"]["mode"], "start");
    EXPECT_EQ(object["plan"]["steps"][0]["open"], true);
    EXPECT_EQ(object["plan"]["steps"][0]["passedOver"][0]["choice"], "or");
    EXPECT_EQ(object["plan"]["steps"][0]["passedOver"][1]["choice"], "not");
    EXPECT_EQ(object["plan"]["steps"][0]["passedOver"][1]["reason"], "begins with a dot");
    EXPECT_EQ(object["plan"]["steps"][1]["protocol"], "a\xEF\xBF\xBD\"\n");
    EXPECT_EQ(object["plan"]["steps"][2]["action"], "skip");
    EXPECT_EQ(object["fallback"][0]["mode"], "start");
    EXPECT_EQ(object["fallback"][0]["difference"], "working");
    EXPECT_EQ(object["fallback"][0]["open"], true);
    EXPECT_EQ(object["exitStatus"], 2);
    EXPECT_EQ(object["findings"].size(), report.findings.all().size());
}

TEST_F(ReportTest, AConfigurationAloneHasNoStartPrograms) {
    CheckRequest request;
    request.configuration = image.onHost(DeviceImage::Working);
    CheckReport alone;

    ASSERT_TRUE(CheckDevice(request, alone));

    EXPECT_EQ(ReportAsText(alone, {}).find("start programs"), std::string::npos);
    EXPECT_EQ(ReportAsTable(alone, {}).find("services"), std::string::npos);
    EXPECT_EQ(ReportAsTable(alone, {}).find("compared"), std::string::npos);
    EXPECT_FALSE(nlohmann::json::parse(ReportAsJson(alone, {})).contains("services"));
}
