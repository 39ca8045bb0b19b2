#pragma once

#include "check/ConfigurationReport.h"
#include "check/FindingList.h"
#include "check/ServicePlan.h"

#include <string>
#include <vector>

/// All that one check has found out, for the outputs to print.
struct CheckReport {
    std::string problem; ///< why nothing could be checked, in words; empty when it was
    std::string root;    ///< on this machine; empty when only a configuration file was checked
    std::vector<ConfigurationReport> configurations; ///< in the order in which the launcher tries them
    ServiceDirectory services;

    /// The plan that was asked for, of the configuration in force. Empty unless asked for.
    std::string planMode; ///< "start", "stop" or empty
    std::vector<PlanStep> plan;

    /// What starts (or stops) differently after a fallback: the first plan is the working copy's, the second the factory
    /// copy's. Compared when both copies are usable and can be planned.
    bool isFallbackCompared = false;
    std::vector<PlanDifference> startDifferences;
    std::vector<PlanDifference> stopDifferences;

    FindingList findings;

    /// @return the configuration in force, or null.
    const ConfigurationReport* inForce() const noexcept;

    /// @return 0 without a finding beyond notes, 1 with warnings, 2 with errors.
    int exitStatus() const noexcept;
};
