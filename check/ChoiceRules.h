#pragma once

#include "check/ConfigurationReport.h"
#include "check/FindingList.h"
#include "check/ServicePlan.h"

#include <vector>

/// Which start program each protocol of a configuration gets: none, several, another's, or one that was left behind.
/// @param start the start plan of the report's records, and `stop` the stop plan.
void CheckChoice(const ConfigurationReport& report, const std::vector<PlanStep>& start,
                 const std::vector<PlanStep>& stop, const ServiceDirectory& services, FindingList& findings);

/// Start programs that no protocol of any configuration takes, enabled or not; leftovers among all.
void CheckUntaken(const std::vector<const ConfigurationReport*>& reports, const ServiceDirectory& services,
                  FindingList& findings);
