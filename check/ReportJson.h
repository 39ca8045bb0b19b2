#pragma once

#include "check/CheckReport.h"
#include "check/ReportText.h"

#include <string>

/// @return the report as one JSON object, with a line end behind it. Bytes that are no UTF-8, which a file's name may have,
///         are U+FFFD in it.
std::string ReportAsJson(const CheckReport& report, const ReportStyle& style);
