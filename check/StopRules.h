#pragma once

#include "check/ConfigurationReport.h"
#include "check/DeviceRoot.h"
#include "check/FindingList.h"
#include "check/ProgramRules.h"
#include "check/ServicePlan.h"

#include <cstddef>
#include <vector>

/// Will `killall -15 <prefix>_Server` find the server, and no other: the rules are what the killall of psmisc 23.6 and of
/// BusyBox 1.35 did in a test (tests/check/KillallTest.cpp).
///
/// @param plan the stop plan of the report's records, with all that open choices may come to.
/// @param maxEntries of the tree that are looked at in search of servers.
/// @param programs looks at the servers that are found.
void CheckStop(const DeviceRoot& root, const ConfigurationReport& report, const std::vector<PlanStep>& plan,
               size_t maxEntries, ProgramRules& programs, FindingList& findings);
