#include "check/ReportJson.h"

#include "check/ConfigurationReport.h"
#include "check/Finding.h"
#include "check/FindingList.h"
#include "check/ServicePlan.h"
#include "xmlconfig/XmlPlaces.h"

#include <nlohmann/json.hpp>

#include <vector>

namespace {

using Json = nlohmann::ordered_json;

Json ConfigurationObject(const ConfigurationReport& report) {
    return {{"role", report.role},
            {"path", report.path},
            {"state", StateName(report.state)},
            {"inForce", report.inForce},
            {"line", report.place.line},
            {"column", report.place.column},
            {"reason", report.reason},
            {"entries", report.records.size()}};
}

Json StepObject(const PlanStep& step) {
    Json passedOver = Json::array();
    for (const PassedOver& other : step.passedOver) {
        passedOver.push_back({{"choice", other.mayBeTaken() ? "or" : "not"},
                              {"name", other.name},
                              {"reason", ReasonText(other.reason)}});
    }
    return {{"order", step.order},
            {"protocol", step.protocol},
            {"action", step.action == PlanStep::Action::Run ? "run" : "skip"},
            {"reason", step.reason()},
            {"file", step.file},
            {"command", step.command},
            {"open", step.isOpen},
            {"passedOver", passedOver}};
}

void AddDifferences(const std::vector<PlanDifference>& differences, const char* mode, Json& out) {
    for (const PlanDifference& difference : differences) {
        out.push_back({{"mode", mode},
                       {"difference", DifferenceName(difference.kind)},
                       {"protocol", difference.protocol},
                       {"command", difference.command},
                       {"open", difference.isOpen}});
    }
}

Json FindingObject(const Finding& finding) {
    return {{"path", finding.path},           {"line", finding.place.line},
            {"column", finding.place.column}, {"severity", SeverityName(finding.severity)},
            {"rule", finding.rule},           {"text", finding.text}};
}

} // namespace

std::string ReportAsJson(const CheckReport& report, const ReportStyle& style) {
    Json object = Json::object();
    if (!style.quiet) {
        object["configurations"] = Json::array();
        for (const ConfigurationReport& configuration : report.configurations) {
            object["configurations"].push_back(ConfigurationObject(configuration));
        }
        if (!report.root.empty()) {
            object["services"] = {{"path", report.services.path},
                                  {"state", StateName(report.services.state)},
                                  {"startPrograms", report.services.names.size()}};
            object["fallbackCompared"] = report.isFallbackCompared;
        }
        object["fallback"] = Json::array();
        AddDifferences(report.startDifferences, "start", object["fallback"]);
        AddDifferences(report.stopDifferences, "stop", object["fallback"]);
    }
    if (!report.planMode.empty()) {
        object["plan"] = {{"mode", report.planMode}, {"steps", Json::array()}};
        for (const PlanStep& step : report.plan) {
            object["plan"]["steps"].push_back(StepObject(step));
        }
    }
    object["findings"] = Json::array();
    for (const Finding& finding : report.findings.all()) {
        if (!style.quiet || finding.severity != Severity::Note) {
            object["findings"].push_back(FindingObject(finding));
        }
    }
    object["errors"] = report.findings.count(Severity::Error);
    object["warnings"] = report.findings.count(Severity::Warning);
    object["notes"] = report.findings.count(Severity::Note);
    object["exitStatus"] = report.exitStatus();
    // Other characters than ASCII's as \uNNNN: some of them move a terminal's cursor.
    return object.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}
