#pragma once

#include "check/ConfigurationReport.h"
#include "check/DeviceRoot.h"
#include "check/FindingList.h"
#include "check/ProgramRules.h"
#include "check/ServicePlan.h"

#include <cstddef>
#include <string>
#include <vector>

/// Will `killall -15 <prefix>_Server` find the server, and no other: the rules are what the killall of psmisc 23.6 and of
/// BusyBox 1.35 did in a test (tests/check/KillallTest.cpp).
///
/// @param plan the stop plan of the report's records, with all that open choices may come to.
/// @param maxEntries of the tree that are looked at in search of servers.
/// @param programs looks at the servers that are found.
void CheckStop(const DeviceRoot& root, const ConfigurationReport& report, const std::vector<PlanStep>& plan,
               size_t maxEntries, ProgramRules& programs, FindingList& findings);

/// @return whether a start script starts a server through an interpreter: "sh .../X_Server", "python3 X_Server". The
///         process bears the interpreter's name then.
bool StartsThroughInterpreter(const std::string& script, const std::string& server);
