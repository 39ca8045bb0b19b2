#include "check/ServicePlan.h"

#include "check/LetterCase.h"
#include "launcher/LauncherPaths.h"
#include "launcher/ListDirectory.h"
#include "launcher/ServiceCommand.h"

#include <algorithm>
#include <initializer_list>
#include <map>
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
            if (lower.find(wanted) == std::string::npos) {
                continue;
            }
            if (step.passedOver.size() >= PlanStep::MaxPassedOver) {
                step.isCut = true;
                return;
            }
            step.passedOver.push_back({original, PassedOver::Reason::OtherCase});
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> names; ///< as it is, and in lower case
};

void AddPassedOver(const std::vector<std::string>& names, PassedOver::Reason reason, const std::string& protocolName,
                   PlanStep& step) {
    for (const std::string& name : names) {
        if (name == step.file || !ServiceCommand::serves(name, protocolName)) {
            continue;
        }
        if (step.passedOver.size() >= PlanStep::MaxPassedOver) {
            step.isCut = true;
            return;
        }
        step.passedOver.push_back({name, reason});
    }
}

// What the launcher makes of its choice among these names.
void Compose(const std::vector<std::string>& names, int32_t mode, PlanStep& step) {
    const ServiceCommand command(names, step.protocol, mode);
    step.action =
        command.state() == ServiceCommand::State::TooLong ? PlanStep::Action::SkipTooLong : PlanStep::Action::Run;
    step.file = command.file();
    step.prefix = command.prefix();
    step.command = command.text();
}

PlanStep MakeStep(const ProtocolTypeInfo& record, const ServiceDirectory& services, const NamesInLowerCase& lower,
                  int32_t mode) {
    PlanStep step;
    step.protocol = record.getProtocolName();
    if (!record.isProtocolEnable()) {
        step.action = PlanStep::Action::SkipDisabled;
        return step;
    }
    Compose(services.names, mode, step);
    const auto later = services.hasTheDevicesOrder ? PassedOver::Reason::Later : PassedOver::Reason::MaybeNext;
    AddPassedOver(services.names, later, step.protocol, step);
    step.isOpen = !step.passedOver.empty() && !services.hasTheDevicesOrder;
    AddPassedOver(services.directories, PassedOver::Reason::IsDirectory, step.protocol, step);
    AddPassedOver(services.hidden, PassedOver::Reason::IsHidden, step.protocol, step);
    if (step.file.empty()) {
        lower.addTo(step);
    }
    return step;
}

/// What one protocol makes the launcher run: one command, or for an open choice any of several.
struct Deed {
    std::set<std::string> commands; ///< two deeds with the same ones are the same on the device, whichever it takes
    PlanDifference difference;
};

std::vector<Deed> DeedsOf(const std::vector<PlanStep>& plan, int32_t mode) {
    std::vector<Deed> deeds;
    size_t order = 0;
    for (const PlanStep& step : WithOpenChoices(plan, mode)) {
        if (step.order != order) {
            order = step.order;
            deeds.emplace_back();
        }
        Deed& deed = deeds.back();
        deed.commands.insert(step.command); // an empty one, too: the launcher may refuse the command
        deed.difference.isOpen = deed.commands.size() > 1;
        deed.difference.protocol = step.protocol;
        if (deed.difference.command.empty()) {
            deed.difference.command = step.command;
        }
    }
    const auto isNothing = [](const Deed& deed) { return deed.difference.command.empty(); };
    deeds.erase(std::remove_if(deeds.begin(), deeds.end(), isNothing), deeds.end());
    return deeds;
}

// Moves what `others` does not do, or not as often, to the differences.
void TakeMissing(std::vector<Deed>& deeds, const std::vector<Deed>& others, PlanDifference::Kind kind,
                 std::vector<PlanDifference>& out) {
    std::map<std::set<std::string>, size_t> left;
    for (const Deed& other : others) {
        ++left[other.commands];
    }
    std::vector<Deed> common;
    for (Deed& deed : deeds) {
        size_t& count = left[deed.commands];
        if (count != 0) {
            --count;
            common.push_back(std::move(deed));
        } else {
            deed.difference.kind = kind;
            out.push_back(std::move(deed.difference));
        }
    }
    deeds.swap(common);
}

} // namespace

ServiceDirectory ListServices(const DeviceRoot& root, size_t maxEntries) {
    ServiceDirectory services;
    services.path = root.onHost(ServiceCommand::ServiceDir);
    const DeviceEntry entry = root.look(ServiceCommand::ServiceDir);
    std::vector<std::string> listed;
    if (entry.kind == DeviceEntry::Kind::Unreachable) {
        services.state = ServiceDirectory::State::Unknown;
    }
    if (entry.kind != DeviceEntry::Kind::Directory) {
        return services;
    }
    if (!ListDirectory(root.onHost(entry.path), listed, "*")) {
        services.state = ServiceDirectory::State::Unknown; // the launcher runs as root
        return services;
    }
    services.state = ServiceDirectory::State::Listed;
    services.hasTheDevicesOrder = root.hasTheDevicesOrder(ServiceCommand::ServiceDir);
    const auto keep = [&services](std::string& name, std::vector<std::string>& list) {
        if (list.size() < ServiceDirectory::MaxPassedOver) {
            list.push_back(std::move(name));
        } else {
            services.isCut = true;
        }
    };
    for (std::string& name : listed) {
        if (ServiceCommand::serves(name, "")) {
            services.names.push_back(std::move(name));
        } else if (ToLower(name).find(LoadServiceKeyword) != std::string::npos) {
            keep(name, services.otherCase);
        }
    }
    std::vector<DeviceName> all;
    static_cast<void>(root.list(ServiceCommand::ServiceDir, maxEntries + 1, all));
    services.isCut = services.isCut || all.size() > maxEntries;
    for (DeviceName& each : all) {
        const bool isHidden = each.name.front() == '.';
        if ((isHidden || each.isDirectory) && ServiceCommand::serves(each.name, "")) {
            keep(each.name, isHidden ? services.hidden : services.directories);
        }
    }
    return services;
}

size_t ServiceDirectory::size() const noexcept {
    size_t bytes = 0;
    for (const std::vector<std::string>* list : {&names, &otherCase, &directories, &hidden}) {
        for (const std::string& name : *list) {
            bytes += name.size();
        }
    }
    return bytes;
}

const char* StateName(ServiceDirectory::State state) noexcept {
    switch (state) {
    case ServiceDirectory::State::Missing:
        return "missing";
    case ServiceDirectory::State::Unknown:
        return "unreadable";
    default:
        break;
    }
    return "listed";
}

const char* ReasonText(PassedOver::Reason reason) noexcept {
    switch (reason) {
    case PassedOver::Reason::Later:
        return "comes after it in the directory";
    case PassedOver::Reason::MaybeNext:
        return "may come first in the directory on the device";
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

bool IsTooMuchToPlan(size_t records, const ServiceDirectory& services) noexcept {
    return records != 0 && services.size() > MaxPlanWork / records;
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

std::string PlanStep::condition() const {
    return isOpen ? ", if \"" + file + "\" comes first in the directory on the device" : "";
}

std::vector<PlanStep> WithOpenChoices(const std::vector<PlanStep>& plan, int32_t mode) {
    std::vector<PlanStep> all;
    for (const PlanStep& step : plan) {
        all.push_back(step);
        for (const PassedOver& other : step.passedOver) {
            if (other.mayBeTaken()) {
                PlanStep may;
                may.order = step.order;
                may.protocol = step.protocol;
                may.isOpen = true;
                Compose({other.name}, mode, may);
                all.push_back(std::move(may));
            }
        }
    }
    return all;
}

const char* DifferenceName(PlanDifference::Kind kind) noexcept {
    switch (kind) {
    case PlanDifference::Kind::OnlyInFirst:
        return "working";
    case PlanDifference::Kind::OnlyInSecond:
        return "factory";
    default:
        break;
    }
    return "order";
}

std::vector<PlanDifference> ComparePlans(const std::vector<PlanStep>& first, const std::vector<PlanStep>& second,
                                         int32_t mode) {
    std::vector<PlanDifference> differences;
    std::vector<Deed> before = DeedsOf(first, mode);
    std::vector<Deed> after = DeedsOf(second, mode);
    const std::vector<Deed> all = before;
    TakeMissing(before, after, PlanDifference::Kind::OnlyInFirst, differences);
    TakeMissing(after, all, PlanDifference::Kind::OnlyInSecond, differences);
    // As many are left of the one as of the other, and each of them in both.
    const auto other =
        std::mismatch(after.begin(), after.end(), before.begin(), [](const Deed& left, const Deed& right) {
            return left.commands == right.commands;
        }).first;
    if (other != after.end()) {
        differences.push_back(other->difference);
    }
    return differences;
}
