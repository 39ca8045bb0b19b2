#include "check/ChoiceRules.h"

#include "launcher/ServiceCommand.h"
#include "protocol/ProtocolTypeInfo.h"
#include "xmlconfig/XmlPlaces.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace {

// Names compared with one another: the work grows with the square.
constexpr size_t MaxCompared = 2000;

// What editors, package managers and copies leave beside a file, and how its name ends or what it holds then.
constexpr std::array<const char*, 15> LeftoverEnds = {"~",        ".bak",  ".orig", ".old",    ".save",
                                                      ".swp",     ".swo",  ".tmp",  ".rej",    "-opkg",
                                                      ".ipk-new", ".copy", ".new",  ".rpmnew", ".rpmsave"};
constexpr std::array<const char*, 2> LeftoverParts = {".dpkg-", ".ucf-"};

bool IsLeftover(const std::string& name) {
    return std::any_of(LeftoverEnds.begin(), LeftoverEnds.end(),
                       [&name](const std::string& end) {
                           const size_t at = name.rfind(end);
                           return at != std::string::npos && at + end.size() == name.size();
                       }) ||
           std::any_of(LeftoverParts.begin(), LeftoverParts.end(),
                       [&name](const char* part) { return name.find(part) != std::string::npos; });
}

std::string Listed(const PlanStep& step) {
    std::string text = "\"" + step.file + "\"";
    for (const PassedOver& other : step.passedOver) {
        if (other.reason == PassedOver::Reason::Later) {
            text += ", \"" + other.name + "\"";
        }
    }
    return text;
}

bool HasOther(const PlanStep& step, PassedOver::Reason reason) {
    return std::any_of(step.passedOver.begin(), step.passedOver.end(),
                       [reason](const PassedOver& other) { return other.reason == reason; });
}

XmlPlace NamePlace(const ConfigurationReport& report, size_t record) {
    const XmlPlacedElement& entry = report.entry(record);
    const XmlPlacedAttribute* name = entry.find("ProtocolName");
    return name == nullptr ? entry.place : name->place;
}

void CheckStep(const ConfigurationReport& report, size_t record, const PlanStep& step, FindingList& findings) {
    const XmlPlace place = NamePlace(report, record);
    const std::string who = "protocol \"" + step.protocol + "\"";
    if (step.file.empty()) {
        std::string text = who + ": no start program matches, and \"/factory_setting/\" itself would be run";
        for (const PassedOver& other : step.passedOver) {
            text += "; \"" + other.name + "\" " + ReasonText(other.reason);
        }
        findings.add(report.path, place, "program-missing", text);
    }
    if (HasOther(step, PassedOver::Reason::Later)) {
        findings.add(report.path, place, "program-ambiguous",
                     who + ": the first of these in the order of the directory is run: " + Listed(step));
    }
    for (const PassedOver& other : step.passedOver) {
        if (other.reason == PassedOver::Reason::OtherCase) {
            findings.add(report.path, place, "program-case",
                         who + ": \"" + other.name + "\" differs only in letter case and does not count");
        }
    }
    if (step.action == PlanStep::Action::SkipTooLong) {
        findings.add(report.path, place, "command-too-long",
                     who + ": the command for \"" + step.file + "\" has more than " +
                         std::to_string(ServiceCommand::BufferSize - 1) + " bytes and is refused");
    }
}

void CheckShared(const ConfigurationReport& report, const std::vector<PlanStep>& plan, FindingList& findings) {
    std::map<std::string, size_t> takenBy;
    for (size_t i = 0; i < plan.size(); ++i) {
        if (plan[i].file.empty()) {
            continue;
        }
        const auto first = takenBy.emplace(plan[i].file, i);
        if (!first.second) {
            findings.add(report.path, NamePlace(report, i), "program-shared",
                         "protocol \"" + plan[i].protocol + "\" takes \"" + plan[i].file + "\", as protocol \"" +
                             plan[first.first->second].protocol + "\" does");
        }
    }
}

std::string ContainedText(const std::string& name, const std::string& other) {
    return "protocol name \"" + name + "\" is contained in \"" + other +
           "\": the start program of the one matches the other, too";
}

void CheckContained(const ConfigurationReport& report, FindingList& findings) {
    const size_t count = std::min(report.records.size(), MaxCompared);
    if (count < report.records.size()) {
        findings.add(report.path, {}, "not-looked-at",
                     "only the first " + std::to_string(count) + " protocol names were compared with one another");
    }
    for (size_t i = 0; i < count; ++i) {
        const std::string& name = report.records[i].getProtocolName();
        for (size_t j = 0; j < count && !name.empty(); ++j) {
            const std::string& other = report.records[j].getProtocolName();
            if (name.size() < other.size() && other.find(name) != std::string::npos) {
                findings.add(report.path, NamePlace(report, i), "name-contained", ContainedText(name, other));
                break;
            }
        }
    }
}

} // namespace

void CheckChoice(const ConfigurationReport& report, const std::vector<PlanStep>& plan, const ServiceDirectory& services,
                 FindingList& findings) {
    if (services.isCut) {
        findings.add(services.path, {}, "not-looked-at",
                     "only the first " + std::to_string(ServiceDirectory::MaxNames) + " start programs were looked at");
    }
    for (size_t i = 0; i < plan.size(); ++i) {
        if (plan[i].action != PlanStep::Action::SkipDisabled) {
            CheckStep(report, i, plan[i], findings);
        }
    }
    CheckShared(report, plan, findings);
    CheckContained(report, findings);
}

void CheckUntaken(const std::vector<const ConfigurationReport*>& reports, const ServiceDirectory& services,
                  FindingList& findings) {
    std::set<std::string> taken;
    for (const ConfigurationReport* report : reports) {
        for (const ProtocolTypeInfo& record : report->records) {
            const std::string& protocol = record.getProtocolName();
            if (services.hasTheDevicesOrder) {
                taken.insert(ServiceCommand(services.names, protocol, ServiceCommand::StartMode).file());
                continue;
            }
            // Each that could be the first on the device may be the one.
            std::copy_if(services.names.begin(), services.names.end(), std::inserter(taken, taken.end()),
                         [&protocol](const std::string& name) { return ServiceCommand::serves(name, protocol); });
        }
    }
    for (const std::string& name : services.names) {
        if (IsLeftover(name)) {
            findings.add(services.path + name, {}, "program-leftover",
                         "this looks like a leftover, and counts as a start program");
        } else if (taken.count(name) == 0) {
            findings.add(services.path + name, {}, "program-untaken",
                         "no protocol of the configuration takes this start program");
        }
    }
}
