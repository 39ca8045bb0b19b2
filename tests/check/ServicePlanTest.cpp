#include "check/ServicePlan.h"

#include "check/ChoiceRules.h"
#include "check/ReportTable.h"
#include "launcher/ServiceCommand.h"
#include "tests/check/DeviceImage.h"
#include "tests/check/TextForAnyone.h"
#include "tests/support/Repeated.h"

#include <gtest/gtest.h>

#include <string>

namespace {

ProtocolTypeInfo Record(const std::string& name, bool isEnabled = true) {
    ProtocolTypeInfo record;
    record.setProtocolName(name);
    record.setProtocolEnable(isEnabled);
    return record;
}

// What is open depends on the file system that the tests run on: here it is said.
ServiceDirectory Services(const std::vector<std::string>& names, bool hasTheDevicesOrder) {
    ServiceDirectory services;
    services.state = ServiceDirectory::State::Listed;
    services.names = names;
    services.hasTheDevicesOrder = hasTheDevicesOrder;
    return services;
}

std::vector<PlanStep> StartPlan(const std::string& protocol, const ServiceDirectory& services) {
    return MakePlan({Record(protocol)}, services, ServiceCommand::StartMode);
}

} // namespace

TEST(ServicePlanTest, EachRecordIsAStepInOrderWithItsCommandOrTheReasonToSkipIt) {
    const std::string longName = "C_loadservice" + std::string(40, 'x');
    const ServiceDirectory services = Services({"A_loadservice", "B_loadservice", longName}, true);

    const std::vector<PlanStep> plan =
        MakePlan({Record("A"), Record("B", false), Record("C"), Record("D")}, services, ServiceCommand::StartMode);

    ASSERT_EQ(plan.size(), 4U);
    EXPECT_EQ(plan[0].command, "/factory_setting/A_loadservice");
    EXPECT_EQ(plan[0].reason(), "");
    EXPECT_EQ(plan[1].action, PlanStep::Action::SkipDisabled);
    EXPECT_EQ(plan[1].command, "");
    EXPECT_EQ(plan[1].reason(), "disabled");
    EXPECT_EQ(plan[2].action, PlanStep::Action::SkipTooLong);
    EXPECT_EQ(plan[2].file, longName);
    EXPECT_EQ(plan[2].reason(), "the command has more than 63 bytes");
    EXPECT_EQ(plan[3].command, "/factory_setting/");
    EXPECT_EQ(plan[3].reason(), "no start program matches");
    EXPECT_EQ(plan[3].order, 4U);
}

TEST(ServicePlanTest, AStopRunsKillallWithThePrefix) {
    const std::vector<PlanStep> plan =
        MakePlan({Record("A")}, Services({"xA_B_loadservice"}, true), ServiceCommand::StopMode);

    EXPECT_EQ(plan[0].command, "killall -15 xA_Server");
}

TEST(ServicePlanTest, AChoiceAmongSeveralIsOpenUnlessTheOrderIsTheDevices) {
    for (const bool isTheDevices : {false, true}) {
        const PlanStep step = StartPlan("A", Services({"2A_loadservice", "A_loadservice"}, isTheDevices)).front();

        EXPECT_EQ(step.file, "2A_loadservice");
        EXPECT_EQ(step.isOpen, !isTheDevices);
        EXPECT_EQ(step.reason().empty(), isTheDevices);
        ASSERT_EQ(step.passedOver.size(), 1U);
        EXPECT_EQ(step.passedOver[0].name, "A_loadservice");
        EXPECT_EQ(step.passedOver[0].reason, isTheDevices ? PassedOver::Reason::Later : PassedOver::Reason::MaybeNext);
        EXPECT_EQ(step.condition().empty(), isTheDevices);
        EXPECT_TRUE(step.passedOver[0].matches());
        EXPECT_EQ(step.passedOver[0].mayBeTaken(), !isTheDevices);
    }
    EXPECT_FALSE(StartPlan("A", Services({"A_loadservice"}, false)).front().isOpen);
}

TEST(ServicePlanTest, AChoiceIsOpenAlsoWhereTheCommandOfTheFirstIsTooLong) {
    const std::string longName = "A_loadservice" + std::string(40, 'x');
    const std::string tooLong = "the command has more than 63 bytes";

    EXPECT_EQ(StartPlan("A", Services({longName, "A_loadservice"}, false)).front().reason(),
              tooLong + "; open: several match, and the order of the directory on the device decides");
    EXPECT_EQ(StartPlan("A", Services({longName, "A_loadservice"}, true)).front().reason(), tooLong);
}

TEST(ServicePlanTest, NamesThatDoNotCountArePassedOverWithTheReason) {
    ServiceDirectory services = Services({"a_loadservice", "B_loadservice"}, false);
    services.otherCase = {"A_LoadService", "B_LoadService"};
    services.directories = {"A_loadservice.d"};
    services.hidden = {".A_loadservice"};

    const PlanStep step = StartPlan("A", services).front();

    std::string told;
    for (const PassedOver& other : step.passedOver) {
        told += other.name + " " + ReasonText(other.reason) + "\n";
    }
    EXPECT_EQ(told, "A_loadservice.d is a directory\n.A_loadservice begins with a dot\n"
                    "a_loadservice differs in letter case\nA_LoadService differs in letter case\n");
    EXPECT_FALSE(step.isOpen);
}

TEST(ServicePlanTest, LetterCaseIsNotToldOfWhereANameMatches) {
    EXPECT_TRUE(StartPlan("A", Services({"a_loadservice", "A_loadservice"}, false)).front().passedOver.empty());
}

TEST(ServicePlanTest, NoMoreThanALimitOfNamesIsListedForOneProtocol) {
    EXPECT_FALSE(StartPlan("A", Services(std::vector<std::string>(33, "A_loadservice"), true)).front().isCut);
    for (std::vector<std::string> ServiceDirectory::*list :
         {&ServiceDirectory::names, &ServiceDirectory::otherCase, &ServiceDirectory::hidden}) {
        ServiceDirectory services = Services({}, true);
        const std::string name = list == &ServiceDirectory::otherCase ? "A_LoadService" : "A_loadservice";
        for (int i = 0; i < 100; ++i) {
            (services.*list).push_back(name + std::to_string(i));
        }

        EXPECT_EQ(StartPlan("A", services).front().passedOver.size(), PlanStep::MaxPassedOver);
        EXPECT_TRUE(StartPlan("A", services).front().isCut);
    }
}

TEST(ServicePlanTest, AnOpenChoiceHasAStepForEachNameThatMayBeTaken) {
    const std::string longName = "A_loadservice" + std::string(40, 'x');
    ServiceDirectory services = Services({"A_loadservice", "xA_loadservice", longName, "B_loadservice"}, false);
    services.hidden = {".A_loadservice"};
    const std::vector<PlanStep> plan =
        MakePlan({Record("B"), Record("A"), Record("A", false)}, services, ServiceCommand::StopMode);

    std::string steps;
    for (const PlanStep& step : WithOpenChoices(plan, ServiceCommand::StopMode)) {
        steps += std::to_string(step.order) + " " + step.command + (step.isOpen ? " open\n" : "\n");
    }

    EXPECT_EQ(steps, "1 killall -15 B_Server\n"
                     "2 killall -15 A_Server open\n2 killall -15 xA_Server open\n2 killall -15 A_Server open\n"
                     "3 \n");
}

TEST(ServicePlanTest, TwoPlansDifferByWhatOnlyOneRunsByHowOftenAndByTheOrder) {
    const auto differences = [](const std::vector<ProtocolTypeInfo>& first, const std::vector<ProtocolTypeInfo>& second,
                                int32_t mode, const ServiceDirectory& services) {
        std::string text;
        for (const PlanDifference& each :
             ComparePlans(MakePlan(first, services, mode), MakePlan(second, services, mode), mode)) {
            text += std::string(DifferenceName(each.kind)) + " " + each.protocol + " " + each.command +
                    (each.isOpen ? " open\n" : "\n");
        }
        return text;
    };
    const ServiceDirectory services = Services({"A_loadservice", "B_loadservice", "C_loadservice"}, true);
    const auto started = [&](const std::vector<ProtocolTypeInfo>& first, const std::vector<ProtocolTypeInfo>& second) {
        return differences(first, second, ServiceCommand::StartMode, services);
    };

    EXPECT_EQ(started({Record("A"), Record("B"), Record("C", false)}, {Record("C"), Record("B")}),
              "working A /factory_setting/A_loadservice\nfactory C /factory_setting/C_loadservice\n");
    EXPECT_EQ(started({Record("A"), Record("B")}, {Record("C", false), Record("A"), Record("B")}), "");
    EXPECT_EQ(started({Record("A")}, {Record("A"), Record("A")}), "factory A /factory_setting/A_loadservice\n");
    EXPECT_EQ(started({Record("A"), Record("A")}, {Record("A")}), "working A /factory_setting/A_loadservice\n");
    EXPECT_EQ(started({Record("A"), Record("B"), Record("C")}, {Record("A"), Record("C"), Record("B")}),
              "order C /factory_setting/C_loadservice\n");

    // The same names may be taken, so the same one is. Their servers may have one name.
    const ServiceDirectory open = Services({"A_x_loadservice", "A_y_loadservice", "B_loadservice"}, false);
    EXPECT_EQ(differences({Record("A")}, {Record("A")}, ServiceCommand::StartMode, open), "");
    EXPECT_EQ(differences({Record("A")}, {Record("A_x")}, ServiceCommand::StartMode, open),
              "working A /factory_setting/A_x_loadservice open\nfactory A_x /factory_setting/A_x_loadservice\n");
    EXPECT_EQ(differences({Record("A")}, {Record("A_x")}, ServiceCommand::StopMode, open), "");
    // A command that the launcher refuses is none.
    const ServiceDirectory longNames = Services({"A_loadservice" + std::string(40, 'x'), "A_loadservice"}, false);
    EXPECT_EQ(differences({Record("A")}, {}, ServiceCommand::StartMode, longNames),
              "working A /factory_setting/A_loadservice open\n");
    EXPECT_EQ(differences({Record("x")}, {}, ServiceCommand::StartMode, longNames), "");
}

TEST(ServicePlanTest, TheServiceDirectoryIsListedWithTheNamesThatCanServeAndThoseThatAreLeftOut) {
    const DeviceImage image;
    image.write("/factory_setting/.X_loadservice", "");
    image.write("/factory_setting/Y_loadservice/file", "");
    image.write("/factory_setting/README", "");
    image.write("/factory_setting/Z_Loadservice", "");

    const ServiceDirectory services = ListServices(DeviceRoot(image.root()));

    EXPECT_EQ(services.state, ServiceDirectory::State::Listed);
    EXPECT_EQ(services.names.size(), 2U);
    EXPECT_EQ(services.otherCase, std::vector<std::string>{"Z_Loadservice"});
    EXPECT_EQ(services.hidden, std::vector<std::string>{".X_loadservice"});
    EXPECT_EQ(services.directories, std::vector<std::string>{"Y_loadservice"});
    EXPECT_FALSE(services.isCut);
}

// The launcher has no limit.
TEST(ServicePlanTest, AmongManyStartProgramsTheChoiceIsStillTheLaunchers) {
    const DeviceImage image;
    image.remove("/factory_setting");
    for (int i = 0; i < 1500; ++i) {
        image.write("/factory_setting/" + std::to_string(i) + "x_loadservice", "#!/bin/sh\n");
    }
    const std::vector<std::string> names = ListServices(DeviceRoot(image.root())).names;
    ASSERT_EQ(names.size(), 1500U);
    const std::string last = names.back().substr(0, names.back().find('_'));
    image.configureEntries(EntryText("x_", "1") + EntryText(last, "2"));

    const CheckReport report = image.check("start");

    EXPECT_NE(report.plan[1].file, "");
    EXPECT_FALSE(HasRule(report, "program-missing"));
    EXPECT_FALSE(report.services.isCut);
    EXPECT_NE(FindingsText(report).find("not-looked-at: protocol \"x_\": more than 32 other names"), std::string::npos);
}

TEST(ServicePlanTest, EntriesAndStartProgramsThatAreTooManyForEachOtherAreNotPlanned) {
    const DeviceImage image;
    std::string entries = EntryText("0", "1");
    for (int i = 0; i < 200; ++i) {
        image.write("/factory_setting/" + std::string(200, 'x') + std::to_string(i) + "_loadservice", "#!/bin/sh\n");
        entries += EntryText(std::to_string(i), std::to_string(i), "false");
    }
    const size_t size = ListServices(DeviceRoot(image.root())).size();
    image.write(DeviceImage::Factory, ConfigurationText(EntryText("Modbus", "1")));
    image.write(DeviceImage::Working, ConfigurationText(entries + Repeated("<ConfigItem/>\n", MaxPlanWork / size)));

    const CheckReport report = image.check("start");

    EXPECT_NE(report.inForce(), nullptr);
    EXPECT_TRUE(report.plan.empty());
    EXPECT_FALSE(report.isFallbackCompared);
    EXPECT_NE(FindingsText(report).find("not-looked-at: its "), std::string::npos);
    EXPECT_FALSE(HasRule(report, "program-missing"));
    EXPECT_FALSE(HasRule(report, "program-untaken"));
    EXPECT_EQ(ListServices(DeviceRoot("/nowhere")).size(), 0U);
    EXPECT_FALSE(IsTooMuchToPlan(0, report.services));
    EXPECT_FALSE(IsTooMuchToPlan(MaxPlanWork / size, report.services));
    EXPECT_TRUE(IsTooMuchToPlan(MaxPlanWork / size + 1, report.services));
}

TEST(ServicePlanTest, NamesThatThePassOverIsAboutAreKeptUpToALimitAndThatIsSaid) {
    for (const bool isHidden : {true, false}) {
        const DeviceImage image;
        image.write("/factory_setting/.hidden", "");
        for (size_t i = 0; i <= ServiceDirectory::MaxPassedOver; ++i) {
            image.write("/factory_setting/" +
                            (isHidden ? "." + std::to_string(i) + "_loadservice" : std::to_string(i) + "_LoadService"),
                        "");
        }

        const CheckReport report = image.check();

        EXPECT_EQ((isHidden ? report.services.hidden : report.services.otherCase).size(),
                  ServiceDirectory::MaxPassedOver);
        EXPECT_TRUE(report.services.isCut);
        EXPECT_TRUE(HasRule(report, "not-looked-at"));
    }
    const DeviceImage image; // with two start programs
    EXPECT_FALSE(ListServices(DeviceRoot(image.root()), 2).isCut);
    EXPECT_TRUE(ListServices(DeviceRoot(image.root()), 1).isCut);
}

// For root of the device it can be listed.
TEST(ServicePlanTest, AServiceDirectoryThatThisUserMayNotListIsUnknownAndNothingIsPlanned) {
    const DeviceImage image;
    image.setMode("", 0755);
    image.write("/closed/a", "");
    for (const char* closed : {"/factory_setting", "/closed"}) {
        if (closed == std::string("/closed")) {
            image.rename("/factory_setting", "/closed/b");
            image.link("/factory_setting", "closed/b");
        }
        image.setMode(closed, 0);

        const std::string findings = TextForAnyone([&image] {
            const CheckReport report = image.check("start");
            return StateName(report.services.state) + std::string(report.plan.empty() ? ": " : "planned: ") +
                   FindingsText(report);
        });
        image.setMode(closed, 0755);

        EXPECT_EQ(findings.find("unreadable: /factory_setting/:1:1: warning: not-looked-at: "), 0U) << findings;
        EXPECT_EQ(findings.find("error"), std::string::npos) << findings;
    }
}

TEST(ServicePlanTest, AFallbackThatChangesWhatRunsIsReported) {
    const DeviceImage image;
    image.write(DeviceImage::Factory, ConfigurationText(EntryText("OPCUA", "2")));

    const CheckReport report = image.check("stop");

    EXPECT_TRUE(report.isFallbackCompared);
    ASSERT_EQ(report.startDifferences.size(), 1U);
    EXPECT_EQ(report.startDifferences[0].command, "/factory_setting/Modbus_loadservice");
    ASSERT_EQ(report.stopDifferences.size(), 1U);
    EXPECT_EQ(report.stopDifferences[0].command, "killall -15 Modbus_Server");
    EXPECT_EQ(FindingsText(report), "");
    ASSERT_EQ(report.plan.size(), 2U);
    EXPECT_EQ(report.plan[1].command, "killall -15 OPCUA_Server");
}

TEST(ServicePlanTest, WhatStandsBehindTheFirstMatchIsTakenByNobodyOnlyWhereTheOrderIsKnown) {
    ConfigurationReport configuration;
    configuration.records = {Record("Modbus")};
    const auto untaken = [&configuration](bool hasTheDevicesOrder) {
        FindingList findings;
        CheckUntaken({&configuration}, Services({"Modbus_loadservice", "Modbus2_loadservice"}, hasTheDevicesOrder),
                     findings);
        return findings.all();
    };

    ASSERT_EQ(untaken(true).size(), 1U);
    EXPECT_STREQ(untaken(true)[0].rule, "program-untaken");
    EXPECT_EQ(untaken(true)[0].path, "Modbus2_loadservice");
    EXPECT_TRUE(untaken(false).empty());
}
