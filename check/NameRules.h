#pragma once

#include "check/FindingList.h"

#include <string>

/// What the shell makes of a start program's name, which reaches it unquoted.
/// @param hostPath of the file; `name` its name, not empty.
void CheckName(const std::string& hostPath, const std::string& name, FindingList& findings);
