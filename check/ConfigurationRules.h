#pragma once

#include "check/ConfigurationReport.h"
#include "check/FindingList.h"

/// What is wrong, or only looks right, in one configuration file: its character set, its structure, the attributes of its
/// entries.
void CheckConfiguration(const ConfigurationReport& report, FindingList& findings);
