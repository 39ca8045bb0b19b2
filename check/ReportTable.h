#pragma once

#include "check/CheckReport.h"
#include "check/ReportText.h"

#include <string>

/// @return the report as lines of columns with tabs between, for scripts. The first column tells the kind of line:
///
///     file       role, path, state, in force (yes, no), line, column, reason
///     services   path, state (listed, missing), start programs
///     plan       mode, order, protocol, action (run, skip), reason, file, command
///     candidate  order, protocol, name, reason it was passed over
///     fallback   mode, copy that alone runs it (working, factory), protocol, command
///     finding    path, line, column, severity, rule, text
///     summary    errors, warnings, notes, exit status
///
/// Texts are as `EscapedText` makes them: no tab and no line end is in one, and a backslash is doubled.
std::string ReportAsTable(const CheckReport& report, const ReportStyle& style);
