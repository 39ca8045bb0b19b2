#include "check/DeviceCheck.h"

#include "check/ChoiceRules.h"
#include "check/ConfigurationReport.h"
#include "check/ConfigurationRules.h"
#include "check/DeviceRoot.h"
#include "check/Finding.h"
#include "check/FindingList.h"
#include "check/NameRules.h"
#include "check/ProgramRules.h"
#include "check/ServicePlan.h"
#include "check/StopRules.h"
#include "launcher/ConfigurationCopies.h"
#include "launcher/ServiceCommand.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>
#include <vector>

namespace {

using State = ConfigurationReport::State;

std::string AbsolutePath(const std::string& path) {
    std::error_code ignored;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ignored);
    return ignored ? path : absolute.string();
}

// The root's own links are this machine's, and are resolved once.
std::string RealPath(const std::string& directory) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(directory, error);
    return error ? directory : real.string();
}

// Why the file that was given is none to be checked; empty for one that is.
std::string ProblemOf(const std::string& configuration) {
    switch (DeviceRoot("/").look(AbsolutePath(configuration)).kind) {
    case DeviceEntry::Kind::Missing:
        return ": there is no such file";
    case DeviceEntry::Kind::File:
    case DeviceEntry::Kind::Unreachable: // a finding says so
        return {};
    default:
        break;
    }
    return ": must be a regular file";
}

// All copies are read, the one in force and what would be read in its place.
void ReadConfigurations(const CheckRequest& request, const DeviceRoot& device, CheckReport& out) {
    const DeviceRoot machine("/");
    if (request.root.empty()) {
        out.configurations.push_back(ReadConfiguration(machine, AbsolutePath(request.configuration), "configuration"));
    } else {
        out.configurations.push_back(
            request.configuration.empty()
                ? ReadConfiguration(device, WorkingCopyPath(), "working copy")
                : ReadConfiguration(machine, AbsolutePath(request.configuration), "configuration"));
        out.configurations.push_back(ReadConfiguration(device, FactoryCopyPath(), "factory copy"));
    }
    // The launcher's own order and rule; a copy that ends the launcher also ends the search, and so does one of which it
    // is not known whether the launcher would use it.
    size_t next = 0;
    static_cast<void>(FirstUsableCopy([&out, &next](const std::string&) {
        if (next == out.configurations.size()) {
            return false;
        }
        ConfigurationReport& report = out.configurations[next++];
        report.inForce = report.isUsable();
        return report.inForce || report.isUnknown() || report.isLastTried();
    }));
    for (const ConfigurationReport& report : out.configurations) {
        CheckConfiguration(report, out.findings);
    }
    const ConfigurationReport& last = out.configurations[next - 1];
    if (request.root.empty() || last.inForce || last.isLastTried()) {
        return; // of a configuration alone, or of one that ends or stops the launcher, its own finding says all
    }
    if (last.isUnknown()) {
        out.findings.add(last.path, {}, "not-looked-at",
                         "so it is not known which configuration is in force, and nothing is planned");
    } else {
        out.findings.add(out.configurations.front().path, {}, "no-configuration",
                         "no configuration is in force: nothing would be started or stopped");
    }
}

/// The plans of a configuration.
struct Plans {
    const ConfigurationReport* configuration;
    std::vector<PlanStep> start;
    std::vector<PlanStep> stop;
};

// Of each copy that is usable and can be planned.
std::vector<Plans> MakePlans(CheckReport& out) {
    std::vector<Plans> all;
    for (const ConfigurationReport& report : out.configurations) {
        if (!report.isUsable() || out.services.state == ServiceDirectory::State::Unknown) {
            continue;
        }
        if (IsTooMuchToPlan(report.records.size(), out.services)) {
            out.findings.add(report.path, {}, "not-looked-at",
                             "its " + std::to_string(report.records.size()) + " entries and the " +
                                 std::to_string(out.services.names.size()) + " start programs in " + out.services.path +
                                 " are too many for each other, and nothing is planned");
            continue;
        }
        all.push_back({&report, MakePlan(report.records, out.services, ServiceCommand::StartMode),
                       MakePlan(report.records, out.services, ServiceCommand::StopMode)});
    }
    return all;
}

void CheckFallback(const std::vector<Plans>& plans, CheckReport& out) {
    if (plans.size() < 2) {
        return;
    }
    out.isFallbackCompared = true;
    out.startDifferences = ComparePlans(plans[0].start, plans[1].start, ServiceCommand::StartMode);
    out.stopDifferences = ComparePlans(plans[0].stop, plans[1].stop, ServiceCommand::StopMode);
}

// The programs that may be run: where the order of the directory is open, each that could be the first.
std::set<std::string> ProgramsOf(const std::vector<PlanStep>& plan) {
    std::set<std::string> files;
    for (const PlanStep& step : WithOpenChoices(plan, ServiceCommand::StartMode)) {
        if (!step.file.empty()) {
            files.insert(step.file);
        }
    }
    return files;
}

size_t UsableCount(const CheckReport& report) {
    return static_cast<size_t>(std::count_if(report.configurations.begin(), report.configurations.end(),
                                             [](const ConfigurationReport& each) { return each.isUsable(); }));
}

void CheckImage(const DeviceRoot& device, const std::string& planMode, size_t maxEntries, CheckReport& out) {
    out.services = ListServices(device);
    const ServiceDirectory& services = out.services;
    ProgramRules programs(device, out.findings);
    if (programs.isPartialTree()) {
        out.findings.add(
            out.root, {}, "partial-tree",
            "neither /bin nor /usr/bin is there, so interpreters, libraries and killall are not looked for");
    }
    programs.checkGround();
    if (services.state == ServiceDirectory::State::Missing) {
        out.findings.add(services.path, {}, "services-missing", "the directory of the start programs is not there");
    } else if (services.state == ServiceDirectory::State::Unknown) {
        out.findings.add(services.path, {}, "not-looked-at",
                         "the directory of the start programs cannot be listed by this user, and nothing is planned");
    }
    const std::vector<Plans> plans = MakePlans(out);
    std::vector<const ConfigurationReport*> planned;
    for (const Plans& each : plans) {
        planned.push_back(each.configuration);
        CheckChoice(*each.configuration, each.start, each.stop, services, out.findings);
        for (const std::string& file : ProgramsOf(each.start)) {
            CheckName(device.onHost(ServiceCommand::ServiceDir + file), file, out.findings);
            programs.check(ServiceCommand::ServiceDir + file);
        }
        CheckStop(device, *each.configuration, WithOpenChoices(each.stop, ServiceCommand::StopMode), maxEntries,
                  programs, out.findings);
        if (each.configuration->inForce && !planMode.empty()) {
            out.plan = planMode == "start" ? each.start : each.stop;
        }
    }
    // What is not planned may take any of them.
    if (!planned.empty() && planned.size() == UsableCount(out)) {
        CheckUntaken(planned, services, out.findings);
    }
    CheckFallback(plans, out);
}

} // namespace

const ConfigurationReport* CheckReport::inForce() const noexcept {
    const auto found = std::find_if(configurations.begin(), configurations.end(),
                                    [](const ConfigurationReport& report) { return report.inForce; });
    return found == configurations.end() ? nullptr : &*found;
}

int CheckReport::exitStatus() const noexcept {
    if (findings.count(Severity::Error) != 0) {
        return 2;
    }
    return findings.count(Severity::Warning) != 0 ? 1 : 0;
}

bool CheckDevice(const CheckRequest& request, CheckReport& out) {
    out.root = request.root.empty() ? std::string() : RealPath(request.root);
    const DeviceRoot device(out.root);
    if (!out.root.empty() && !device.isOpen()) {
        out.problem = request.root + ": cannot be opened as a directory";
        return false;
    }
    const std::string problem = request.configuration.empty() ? std::string() : ProblemOf(request.configuration);
    if (!problem.empty()) {
        out.problem = request.configuration + problem;
        return false;
    }
    ReadConfigurations(request, device, out);
    if (!request.root.empty()) {
        CheckImage(device, request.planMode, request.maxEntries, out);
    }
    out.planMode = request.planMode;
    if (request.strict) {
        out.findings.makeStrict();
    }
    return true;
}
