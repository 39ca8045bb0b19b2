#include "check/FindingList.h"

#include "check/Rules.h"

#include <algorithm>
#include <utility>

const char* SeverityName(Severity severity) noexcept {
    switch (severity) {
    case Severity::Note:
        return "note";
    case Severity::Warning:
        return "warning";
    default:
        break;
    }
    return "error";
}

void FindingList::add(const std::string& path, XmlPlace place, const char* rule, const std::string& text) {
    const bool isFull = findings.size() >= Limit;
    const char* const id = isFull ? "findings-cut" : rule;
    const std::string& words = isFull ? "more is wrong than is listed here" : text;
    if (findings.size() > Limit || !known.emplace(path, place.line, place.column, id, words).second) {
        return;
    }
    findings.push_back({path, place, FindRule(id)->severity, FindRule(id)->id, words});
}

void FindingList::makeStrict() noexcept {
    for (Finding& finding : findings) {
        if (finding.severity == Severity::Warning) {
            finding.severity = Severity::Error;
        }
    }
}

size_t FindingList::count(Severity severity) const noexcept {
    return static_cast<size_t>(std::count_if(
        findings.begin(), findings.end(), [severity](const Finding& finding) { return finding.severity == severity; }));
}
