#pragma once

#include "check/CheckReport.h"

#include <string>

/// How a report is printed.
struct ReportStyle {
    bool quiet = false;  ///< only errors and warnings
    bool colour = false; ///< for a terminal
};

/// @return the report for a person: which files were looked at, which is in force and why the other is not, the plan that
///         was asked for, the findings as `path:line:column: severity: RULE: text`, and a count.
std::string ReportAsText(const CheckReport& report, const ReportStyle& style);
