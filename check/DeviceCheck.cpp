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
#include <cstdint>
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
        return report.inForce || report.isUnknown() || report.state == State::TooManyEntries;
    }));
    for (const ConfigurationReport& report : out.configurations) {
        CheckConfiguration(report, out.findings);
    }
    if (out.configurations[next - 1].isUnknown()) {
        out.findings.add(out.configurations[next - 1].path, {}, "not-looked-at",
                         "so it is not known which configuration is in force, and nothing is planned");
    } else if (out.inForce() == nullptr) {
        out.findings.add(out.configurations.front().path, {}, "no-configuration",
                         "no configuration is in force: nothing would be started or stopped");
    }
}

void CheckFallback(const ServiceDirectory& services, CheckReport& out) {
    if (!out.configurations[0].isUsable() || !out.configurations[1].isUsable()) {
        return;
    }
    out.hasFallback = true;
    const auto compare = [&services, &out](int32_t mode) {
        return ComparePlans(MakePlan(out.configurations[0].records, services, mode),
                            MakePlan(out.configurations[1].records, services, mode));
    };
    out.startDifferences = compare(ServiceCommand::StartMode);
    out.stopDifferences = compare(ServiceCommand::StopMode);
}

// The programs that may be run: where the order of the directory is open, each that could be the first.
std::set<std::string> ProgramsOf(const std::vector<PlanStep>& plan) {
    std::set<std::string> files;
    for (const PlanStep& step : plan) {
        if (!step.file.empty()) {
            files.insert(step.file);
        }
        for (const PassedOver& other : step.passedOver) {
            if (step.isOpen && other.reason == PassedOver::Reason::Later) {
                files.insert(other.name);
            }
        }
    }
    return files;
}

void CheckImage(const DeviceRoot& device, size_t maxEntries, CheckReport& out) {
    out.services = ListServices(device);
    const ServiceDirectory& services = out.services;
    ProgramRules programs(device, out.findings);
    if (programs.isPartialTree()) {
        out.findings.add(
            out.root, {}, "partial-tree",
            "neither /bin nor /usr/bin is there, so interpreters, libraries and killall are not looked for");
    }
    if (!services.isThere) {
        out.findings.add(services.path, {}, "services-missing",
                         "the directory of the start programs is not there, or cannot be listed");
    }
    std::vector<const ConfigurationReport*> usable;
    for (const ConfigurationReport& report : out.configurations) {
        if (!report.isUsable()) {
            continue;
        }
        usable.push_back(&report);
        const std::vector<PlanStep> start = MakePlan(report.records, services, ServiceCommand::StartMode);
        CheckChoice(report, start, services, out.findings);
        for (const std::string& file : ProgramsOf(start)) {
            CheckName(device.onHost(ServiceCommand::ServiceDir + file), file, out.findings);
            programs.check(ServiceCommand::ServiceDir + file);
        }
        CheckStop(device, report, MakePlan(report.records, services, ServiceCommand::StopMode), maxEntries, programs,
                  out.findings);
    }
    if (!usable.empty()) {
        CheckUntaken(usable, services, out.findings);
    }
    if (programs.hasGivenUp()) {
        out.findings.add(out.root, {}, "not-looked-at",
                         "the programs and libraries are more, or larger, than are looked at");
    }
    CheckFallback(services, out);
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
        return false;
    }
    ReadConfigurations(request, device, out);
    if (!request.root.empty()) {
        CheckImage(device, request.maxEntries, out);
    }
    if (!request.planMode.empty() && out.inForce() != nullptr) {
        out.plan = MakePlan(out.inForce()->records, out.services,
                            request.planMode == "start" ? ServiceCommand::StartMode : ServiceCommand::StopMode);
    }
    out.planMode = request.planMode;
    if (request.strict) {
        out.findings.makeStrict();
    }
    return true;
}
