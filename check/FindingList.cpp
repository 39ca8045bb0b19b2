#include "check/FindingList.h"

#include "check/Rules.h"

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
    const auto key = std::make_tuple(path, place.line, place.column, std::string(rule), text);
    if (known.count(key) != 0) {
        return;
    }
    const Rule& found = *FindRule(rule);
    size_t& ofRule = countOfRule[found.id];
    if (ofRule < Limit) {
        ++ofRule;
        known.insert(key);
        keep({path, place, found.severity, found.id, text});
    } else if (cutRules.insert(found.id).second) {
        const Rule& cut = *FindRule("findings-cut");
        keep({path,
              {},
              cut.severity,
              cut.id,
              "only " + std::to_string(Limit) + " findings of the rule " + found.id +
                  " are listed, and there are more"});
    }
}

void FindingList::keep(Finding finding) {
    ++counts.at(static_cast<size_t>(finding.severity));
    findings.push_back(std::move(finding));
}

void FindingList::makeStrict() noexcept {
    for (Finding& finding : findings) {
        if (finding.severity == Severity::Warning) {
            finding.severity = Severity::Error;
        }
    }
    counts.at(static_cast<size_t>(Severity::Error)) += count(Severity::Warning);
    counts.at(static_cast<size_t>(Severity::Warning)) = 0;
}
