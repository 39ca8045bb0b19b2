#include "check/ReportTable.h"

#include "check/ConfigurationReport.h"
#include "check/EscapedText.h"
#include "check/Finding.h"
#include "check/FindingList.h"
#include "check/ServicePlan.h"
#include "xmlconfig/XmlPlaces.h"

#include <vector>

namespace {

std::string Row(const std::vector<std::string>& columns) {
    std::string row;
    for (const std::string& column : columns) {
        row += (row.empty() ? "" : "\t") + EscapedText(column);
    }
    return row + "\n";
}

const char* YesOrNo(bool is) {
    return is ? "yes" : "no";
}

std::string ConfigurationRow(const ConfigurationReport& report) {
    return Row({"file", report.role, report.path, StateName(report.state), YesOrNo(report.inForce),
                std::to_string(report.place.line), std::to_string(report.place.column), report.reason,
                std::to_string(report.records.size())});
}

std::string PlanRows(const CheckReport& report) {
    std::string text;
    for (const PlanStep& step : report.plan) {
        text += Row({"plan", report.planMode, std::to_string(step.order), step.protocol,
                     step.action == PlanStep::Action::Run ? "run" : "skip", step.reason(), step.file, step.command,
                     YesOrNo(step.isOpen)});
        for (const PassedOver& other : step.passedOver) {
            text += Row({"candidate", std::to_string(step.order), step.protocol, other.mayBeTaken() ? "or" : "not",
                         other.name, ReasonText(other.reason)});
        }
    }
    return text;
}

std::string DifferenceRows(const std::vector<PlanDifference>& differences, const char* mode) {
    std::string text;
    for (const PlanDifference& difference : differences) {
        text += Row({"fallback", mode, DifferenceName(difference.kind), difference.protocol, difference.command,
                     YesOrNo(difference.isOpen)});
    }
    return text;
}

} // namespace

std::string ReportAsTable(const CheckReport& report, const ReportStyle& style) {
    std::string text;
    if (!style.quiet) {
        for (const ConfigurationReport& configuration : report.configurations) {
            text += ConfigurationRow(configuration);
        }
        if (!report.root.empty()) {
            text += Row({"services", report.services.path, StateName(report.services.state),
                         std::to_string(report.services.names.size())});
            text += Row({"compared", YesOrNo(report.isFallbackCompared)});
        }
        text += DifferenceRows(report.startDifferences, "start");
        text += DifferenceRows(report.stopDifferences, "stop");
    }
    text += PlanRows(report);
    for (const Finding& finding : report.findings.all()) {
        if (!style.quiet || finding.severity != Severity::Note) {
            text +=
                Row({"finding", finding.path, std::to_string(finding.place.line), std::to_string(finding.place.column),
                     SeverityName(finding.severity), finding.rule, finding.text});
        }
    }
    if (!style.quiet) {
        text += Row({"summary", std::to_string(report.findings.count(Severity::Error)),
                     std::to_string(report.findings.count(Severity::Warning)),
                     std::to_string(report.findings.count(Severity::Note)), std::to_string(report.exitStatus())});
    }
    return text;
}
