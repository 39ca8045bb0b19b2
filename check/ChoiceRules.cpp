#include "check/ChoiceRules.h"

#include "check/LetterCase.h"
#include "launcher/ServiceCommand.h"
#include "protocol/ProtocolTypeInfo.h"
#include "protocol/ProtocolVocabulary.h"
#include "xmlconfig/XmlPlaces.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

namespace {

// Names compared with one another: the work grows with the square.
constexpr size_t MaxCompared = 1000;
// A longer name is in no start program's, which is the name of a file.
constexpr size_t MaxNameLength = NAME_MAX;

// What editors, package managers and copies leave beside a file, and how its name ends or what it holds then.
constexpr std::array<const char*, 20> LeftoverEnds = {
    "~",    ".bak", ".backup", ".orig",    ".old",     "_old",  ".save", ".disabled", ".swp",    ".swo",
    ".swn", ".tmp", ".rej",    ".ipk-new", ".apk-new", "-opkg", ".copy", ".new",      ".rpmnew", ".rpmsave"};
constexpr std::array<const char*, 2> LeftoverParts = {".dpkg-", ".ucf-"};

bool IsLeftover(const std::string& original) {
    const std::string name = ToLower(original);
    return (name.front() == '#' && name.back() == '#') ||
           std::any_of(LeftoverEnds.begin(), LeftoverEnds.end(),
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
        if (other.matches()) {
            text += ", \"" + other.name + "\"";
        }
    }
    return text;
}

XmlPlace NamePlace(const ConfigurationReport& report, size_t record) {
    const XmlPlacedElement& entry = report.entry(record);
    const XmlPlacedAttribute* name = entry.find(ProtocolNameAttribute);
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
    if (std::any_of(step.passedOver.begin(), step.passedOver.end(),
                    [](const PassedOver& other) { return other.matches(); })) {
        findings.add(report.path, place, "program-ambiguous",
                     who + ": the first of these in the order of the directory is run: " + Listed(step));
    }
    for (const PassedOver& other : step.passedOver) {
        if (other.reason == PassedOver::Reason::OtherCase) {
            findings.add(report.path, place, "program-case",
                         who + ": \"" + other.name + "\" differs only in letter case and does not count");
        }
    }
    if (step.isCut) {
        findings.add(report.path, place, "not-looked-at",
                     who + ": more than " + std::to_string(PlanStep::MaxPassedOver) +
                         " other names match or nearly match, and the rest was not looked at");
    }
}

void CheckLength(const ConfigurationReport& report, const std::vector<PlanStep>& steps, const char* what,
                 FindingList& findings) {
    for (const PlanStep& step : steps) {
        if (step.action == PlanStep::Action::SkipTooLong) {
            findings.add(report.path, NamePlace(report, step.order - 1), "command-too-long",
                         "protocol \"" + step.protocol + "\": the command to " + what + " \"" + step.file +
                             "\" has more than " + std::to_string(ServiceCommand::BufferSize - 1) +
                             " bytes and is refused" + step.condition());
        }
    }
}

void CheckShared(const ConfigurationReport& report, const std::vector<PlanStep>& steps, FindingList& findings) {
    std::map<std::string, const PlanStep*> takenBy;
    for (const PlanStep& step : steps) {
        if (step.file.empty()) {
            continue;
        }
        const auto first = takenBy.emplace(step.file, &step);
        if (!first.second) {
            findings.add(report.path, NamePlace(report, step.order - 1), "program-shared",
                         "protocol \"" + step.protocol + "\" takes \"" + step.file + "\", as protocol \"" +
                             first.first->second->protocol + "\" does" +
                             (step.isOpen ? step : *first.first->second).condition());
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
            if (name.size() < other.size() && other.size() <= MaxNameLength && other.find(name) != std::string::npos) {
                findings.add(report.path, NamePlace(report, i), "name-contained", ContainedText(name, other));
                break;
            }
        }
    }
}

} // namespace

void CheckChoice(const ConfigurationReport& report, const std::vector<PlanStep>& start,
                 const std::vector<PlanStep>& stop, const ServiceDirectory& services, FindingList& findings) {
    if (services.isCut) {
        findings.add(services.path, {}, "not-looked-at",
                     "of the names that the launcher passes over, only " +
                         std::to_string(ServiceDirectory::MaxPassedOver) + " of a kind, and those among the first " +
                         std::to_string(ServiceDirectory::MaxEntries) + " names, were looked at");
    }
    for (const PlanStep& step : start) {
        if (step.action != PlanStep::Action::SkipDisabled) {
            CheckStep(report, step.order - 1, step, findings);
        }
    }
    const std::vector<PlanStep> starts = WithOpenChoices(start, ServiceCommand::StartMode);
    CheckLength(report, starts, "start", findings);
    CheckLength(report, WithOpenChoices(stop, ServiceCommand::StopMode), "stop the server of", findings);
    CheckShared(report, starts, findings);
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
