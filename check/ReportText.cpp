#include "check/ReportText.h"

#include "check/ConfigurationReport.h"
#include "check/EscapedText.h"
#include "check/Finding.h"
#include "check/FindingList.h"
#include "check/ServicePlan.h"
#include "xmlconfig/XmlPlaces.h"

#include <cstddef>
#include <vector>

namespace {

constexpr const char* Red = "\x1B[1;31m";
constexpr const char* Yellow = "\x1B[1;33m";
constexpr const char* Cyan = "\x1B[1;36m";
constexpr const char* Plain = "\x1B[0m";

const char* ColourOf(Severity severity) {
    switch (severity) {
    case Severity::Note:
        return Cyan;
    case Severity::Warning:
        return Yellow;
    default:
        break;
    }
    return Red;
}

std::string Count(size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Why a copy that can be used is not in force.
const char* NotInForce(const CheckReport& report) {
    if (report.inForce() != nullptr) {
        return "not in force, the other copy is";
    }
    const ConfigurationReport& first = report.configurations.front();
    if (first.isUnknown()) {
        return "usable, but not known to be in force";
    }
    return first.state == ConfigurationReport::State::Waits ? "not reached: the launcher waits at the working copy"
                                                            : "not reached: the launcher ends at the working copy";
}

std::string Entries(size_t count) {
    return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

std::string ConfigurationLine(const ConfigurationReport& configuration, const CheckReport& whole) {
    std::string line = configuration.role + ": " + EscapedText(configuration.path) + ": ";
    if (configuration.inForce) {
        return line + "in force, " + Entries(configuration.records.size()) + "\n";
    }
    if (configuration.isUsable()) {
        return line + NotInForce(whole) + "; " + Entries(configuration.records.size()) + "\n";
    }
    line += configuration.isUnknown() ? "not known: " : "cannot be used: ";
    if (!configuration.text.topLevel.empty() || !configuration.text.reason.empty()) {
        line += std::to_string(configuration.place.line) + ":" + std::to_string(configuration.place.column) + ": ";
    }
    return line + EscapedText(configuration.reason) + "\n";
}

std::string PlanLines(const CheckReport& report) {
    std::string text = "plan of " + report.planMode + ":\n";
    for (const PlanStep& step : report.plan) {
        const std::string reason = step.reason();
        text += "  " + std::to_string(step.order) + " " + EscapedText(step.protocol) + ": ";
        text += step.action == PlanStep::Action::Run ? "run " + EscapedText(step.command) : "skip";
        text += reason.empty() ? "\n" : " (" + reason + ")\n";
        for (const PassedOver& other : step.passedOver) {
            text += std::string("      ") + (other.mayBeTaken() ? "or " : "not ") + EscapedText(other.name) + ": " +
                    ReasonText(other.reason) + "\n";
        }
    }
    return text;
}

const char* DifferenceText(const PlanDifference& difference) {
    switch (difference.kind) {
    case PlanDifference::Kind::OnlyInFirst:
        return difference.isOpen ? " may no longer run" : " no longer runs";
    case PlanDifference::Kind::OnlyInSecond:
        return difference.isOpen ? " may also run" : " also runs";
    default:
        break;
    }
    return " runs in another order, from";
}

std::string DifferenceLines(const std::vector<PlanDifference>& differences, const char* mode) {
    std::string text;
    for (const PlanDifference& difference : differences) {
        text += std::string("after a fallback to the factory copy, ") + mode + DifferenceText(difference) + ": " +
                EscapedText(difference.command) + " (" + EscapedText(difference.protocol) + ")\n";
    }
    return text;
}

std::string FindingLine(const Finding& finding, bool colour) {
    const std::string severity = SeverityName(finding.severity);
    return EscapedText(finding.path) + ":" + std::to_string(finding.place.line) + ":" +
           std::to_string(finding.place.column) + ": " +
           (colour ? ColourOf(finding.severity) + severity + Plain : severity) + ": " + finding.rule + ": " +
           EscapedText(finding.text) + "\n";
}

} // namespace

std::string ReportAsText(const CheckReport& report, const ReportStyle& style) {
    std::string text;
    if (!style.quiet) {
        for (const ConfigurationReport& configuration : report.configurations) {
            text += ConfigurationLine(configuration, report);
        }
        if (!report.root.empty()) {
            text +=
                "start programs: " + EscapedText(report.services.path) + ": " +
                (report.services.state == ServiceDirectory::State::Listed ? std::to_string(report.services.names.size())
                                                                          : StateName(report.services.state)) +
                "\n";
        }
        text += DifferenceLines(report.startDifferences, "start");
        text += DifferenceLines(report.stopDifferences, "stop");
        if (report.isFallbackCompared && report.startDifferences.empty() && report.stopDifferences.empty()) {
            text += "after a fallback to the factory copy, start and stop run the same\n";
        }
    }
    if (!report.planMode.empty()) {
        text += PlanLines(report);
    }
    for (const Finding& finding : report.findings.all()) {
        if (!style.quiet || finding.severity != Severity::Note) {
            text += FindingLine(finding, style.colour);
        }
    }
    if (!style.quiet) {
        text += Count(report.findings.count(Severity::Error), "error") + ", " +
                Count(report.findings.count(Severity::Warning), "warning") + ", " +
                Count(report.findings.count(Severity::Note), "note") + "\n";
    }
    return text;
}
