#include "check/ServicePlan.h"

#include "check/ChoiceRules.h"
#include "check/ReportTable.h"
#include "launcher/ServiceCommand.h"
#include "tests/check/DeviceImage.h"

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
    services.isThere = true;
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
        EXPECT_EQ(step.passedOver[0].reason, PassedOver::Reason::Later);
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
    for (std::vector<std::string> ServiceDirectory::*list :
         {&ServiceDirectory::names, &ServiceDirectory::otherCase, &ServiceDirectory::hidden}) {
        ServiceDirectory services = Services({}, true);
        const std::string name = list == &ServiceDirectory::otherCase ? "A_LoadService" : "A_loadservice";
        for (int i = 0; i < 100; ++i) {
            (services.*list).push_back(name + std::to_string(i));
        }

        EXPECT_EQ(StartPlan("A", services).front().passedOver.size(), PlanStep::MaxPassedOver);
    }
}

TEST(ServicePlanTest, TwoPlansDifferByTheCommandsThatOnlyOneOfThemRuns) {
    const ServiceDirectory services = Services({"A_loadservice", "B_loadservice", "C_loadservice"}, true);
    const auto plan = [&services](const std::vector<ProtocolTypeInfo>& records) {
        return MakePlan(records, services, ServiceCommand::StartMode);
    };

    const std::vector<PlanDifference> differences =
        ComparePlans(plan({Record("A"), Record("B"), Record("C", false)}), plan({Record("C"), Record("B")}));

    ASSERT_EQ(differences.size(), 2U);
    EXPECT_EQ(differences[0].command, "/factory_setting/A_loadservice");
    EXPECT_TRUE(differences[0].onlyInFirst);
    EXPECT_EQ(differences[1].protocol, "C");
    EXPECT_FALSE(differences[1].onlyInFirst);
    EXPECT_TRUE(ComparePlans(plan({Record("A")}), plan({Record("A"), Record("A")})).empty());
}

TEST(ServicePlanTest, TheServiceDirectoryIsListedWithTheNamesThatCanServeAndThoseThatAreLeftOut) {
    const DeviceImage image;
    image.write("/factory_setting/.X_loadservice", "");
    image.write("/factory_setting/Y_loadservice/file", "");
    image.write("/factory_setting/README", "");
    image.write("/factory_setting/Z_Loadservice", "");

    const ServiceDirectory services = ListServices(DeviceRoot(image.root()));

    EXPECT_TRUE(services.isThere);
    EXPECT_EQ(services.names.size(), 2U);
    EXPECT_EQ(services.otherCase, std::vector<std::string>{"Z_Loadservice"});
    EXPECT_EQ(services.hidden, std::vector<std::string>{".X_loadservice"});
    EXPECT_EQ(services.directories, std::vector<std::string>{"Y_loadservice"});
    EXPECT_FALSE(services.isCut);
}

TEST(ServicePlanTest, AServiceDirectoryWithTooManyNamesIsCutAndSaidSo) {
    const DeviceImage image;
    for (size_t i = 0; i < ServiceDirectory::MaxNames; ++i) {
        image.write("/factory_setting/" + std::to_string(i) + "_loadservice", "#!/bin/sh\n");
    }

    const CheckReport report = image.check();

    EXPECT_TRUE(report.services.isCut);
    EXPECT_TRUE(HasRule(report, "not-looked-at"));
}

TEST(ServicePlanTest, HiddenNamesBeyondALimitAreNotKept) {
    const DeviceImage image;
    image.write("/factory_setting/.hidden", "");
    for (size_t i = 0; i <= ServiceDirectory::MaxNames; ++i) {
        image.write("/factory_setting/." + std::to_string(i) + "_loadservice", "");
    }

    EXPECT_EQ(ListServices(DeviceRoot(image.root())).hidden.size(), ServiceDirectory::MaxNames);
}

TEST(ServicePlanTest, AFallbackThatChangesWhatRunsIsReported) {
    const DeviceImage image;
    image.write(DeviceImage::Factory, ConfigurationText(EntryText("OPCUA", "2")));

    const CheckReport report = image.check("stop");

    EXPECT_TRUE(report.hasFallback);
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
