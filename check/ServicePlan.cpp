#include "check/ServicePlan.h"

#include "check/LetterCase.h"
#include "launcher/LauncherPaths.h"
#include "launcher/ListDirectory.h"
#include "launcher/ServiceCommand.h"

#include <initializer_list>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>

namespace {

/// Names of the service directory by which a protocol would be served if letter case did not matter.
class NamesInLowerCase {
public:
    explicit NamesInLowerCase(const ServiceDirectory& services) {
        for (const std::vector<std::string>* list : {&services.names, &services.otherCase}) {
            for (const std::string& name : *list) {
                std::string lower = ToLower(name);
                // A "/" is in no name: "A" is not meant by the "a" of the keyword.
                lower.replace(lower.find(LoadServiceKeyword), LoadServiceKeyword.size(), "/");
                names.emplace_back(name, lower);
            }
        }
    }

    // Only for a step without a file: no name serves the protocol as it is.
    void addTo(PlanStep& step) const {
        const std::string wanted = ToLower(step.protocol);
        for (const auto& [original, lower] : names) {
            if (step.passedOver.size() >= PlanStep::MaxPassedOver) {
                return;
            }
            if (lower.find(wanted) != std::string::npos) {
                step.passedOver.push_back({original, PassedOver::Reason::OtherCase});
            }
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> names; ///< as it is, and in lower case
};

void AddPassedOver(const std::vector<std::string>& names, PassedOver::Reason reason, const std::string& protocolName,
                   PlanStep& step) {
    for (const std::string& name : names) {
        if (step.passedOver.size() >= PlanStep::MaxPassedOver) {
            return;
        }
        if (name != step.file && ServiceCommand::serves(name, protocolName)) {
            step.passedOver.push_back({name, reason});
        }
    }
}

PlanStep MakeStep(const ProtocolTypeInfo& record, const ServiceDirectory& services, const NamesInLowerCase& lower,
                  int32_t mode) {
    PlanStep step;
    step.protocol = record.getProtocolName();
    if (!record.isProtocolEnable()) {
        step.action = PlanStep::Action::SkipDisabled;
        return step;
    }
    const ServiceCommand command(services.names, step.protocol, mode);
    step.action =
        command.state() == ServiceCommand::State::TooLong ? PlanStep::Action::SkipTooLong : PlanStep::Action::Run;
    step.file = command.file();
    step.prefix = command.prefix();
    step.command = command.text();
    AddPassedOver(services.names, PassedOver::Reason::Later, step.protocol, step);
    step.isOpen = !step.passedOver.empty() && !services.hasTheDevicesOrder;
    AddPassedOver(services.directories, PassedOver::Reason::IsDirectory, step.protocol, step);
    AddPassedOver(services.hidden, PassedOver::Reason::IsHidden, step.protocol, step);
    if (step.file.empty()) {
        lower.addTo(step);
    }
    return step;
}

std::set<std::string> CommandsOf(const std::vector<PlanStep>& plan) {
    std::set<std::string> commands;
    for (const PlanStep& step : plan) {
        commands.insert(step.command);
    }
    return commands;
}

void AddMissing(const std::vector<PlanStep>& plan, std::set<std::string> others, bool onlyInFirst,
                std::vector<PlanDifference>& out) {
    for (const PlanStep& step : plan) {
        if (!step.command.empty() && others.insert(step.command).second) {
            out.push_back({onlyInFirst, step.protocol, step.command});
        }
    }
}

} // namespace

ServiceDirectory ListServices(const DeviceRoot& root) {
    ServiceDirectory services;
    services.path = root.onHost(ServiceCommand::ServiceDir);
    const DeviceEntry entry = root.look(ServiceCommand::ServiceDir);
    std::vector<std::string> listed;
    if (entry.kind != DeviceEntry::Kind::Directory || !ListDirectory(root.onHost(entry.path), listed, "*")) {
        return services;
    }
    services.isThere = true;
    services.hasTheDevicesOrder = root.hasTheDevicesOrder(ServiceCommand::ServiceDir);
    for (std::string& name : listed) {
        const bool isNamed = ServiceCommand::serves(name, "");
        std::vector<std::string>& list = isNamed ? services.names : services.otherCase;
        if (!isNamed && ToLower(name).find(LoadServiceKeyword) == std::string::npos) {
            continue;
        }
        if (list.size() < ServiceDirectory::MaxNames) {
            list.push_back(std::move(name));
        } else {
            services.isCut = true;
        }
    }
    std::vector<DeviceName> all;
    static_cast<void>(root.list(ServiceCommand::ServiceDir, ServiceDirectory::MaxEntries, all));
    for (const DeviceName& each : all) {
        std::vector<std::string>& list = each.name.front() == '.' ? services.hidden : services.directories;
        if ((each.name.front() == '.' || each.isDirectory) && ServiceCommand::serves(each.name, "") &&
            list.size() < ServiceDirectory::MaxNames) {
            list.push_back(each.name);
        }
    }
    return services;
}

const char* ReasonText(PassedOver::Reason reason) noexcept {
    switch (reason) {
    case PassedOver::Reason::Later:
        return "stands behind it in the directory";
    case PassedOver::Reason::IsDirectory:
        return "is a directory";
    case PassedOver::Reason::IsHidden:
        return "begins with a dot";
    default:
        break;
    }
    return "differs in letter case";
}

std::string PlanStep::reason() const {
    const std::string open = isOpen ? "open: several match, and the order of the directory on the device decides" : "";
    switch (action) {
    case Action::SkipDisabled:
        return "disabled";
    case Action::SkipTooLong:
        // Another of the files may be the first on the device, and its command short enough.
        return "the command has more than " + std::to_string(ServiceCommand::BufferSize - 1) + " bytes" +
               (isOpen ? "; " + open : "");
    default:
        break;
    }
    return file.empty() ? "no start program matches" : open;
}

std::vector<PlanStep> MakePlan(const std::vector<ProtocolTypeInfo>& records, const ServiceDirectory& services,
                               int32_t mode) {
    const NamesInLowerCase lower(services);
    std::vector<PlanStep> plan;
    plan.reserve(records.size());
    for (const ProtocolTypeInfo& record : records) {
        plan.push_back(MakeStep(record, services, lower, mode));
        plan.back().order = plan.size();
    }
    return plan;
}

std::vector<PlanDifference> ComparePlans(const std::vector<PlanStep>& first, const std::vector<PlanStep>& second) {
    std::vector<PlanDifference> differences;
    AddMissing(first, CommandsOf(second), true, differences);
    AddMissing(second, CommandsOf(first), false, differences);
    return differences;
}
