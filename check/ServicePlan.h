#pragma once

#include "check/DeviceRoot.h"
#include "protocol/ProtocolTypeInfo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What stands in the service directory, as far as it concerns the choice of a start program.
struct ServiceDirectory {
    /// Names with the keyword that are looked at; in a directory with more, the rest is left out and `isCut` set.
    static constexpr size_t MaxNames = 1000;
    /// Entries of the directory that are looked at for names that the launcher passes over.
    static constexpr size_t MaxEntries = 100000;

    std::string path;     ///< on the machine that runs the check
    bool isThere = false; ///< it can be listed
    bool isCut = false;
    bool hasTheDevicesOrder = false; ///< the order in which it was listed here is the one that the device will see
    /// What the launcher chooses from: its own listing, without the names that no protocol could take.
    std::vector<std::string> names;
    std::vector<std::string> otherCase;   ///< with the keyword in another letter case
    std::vector<std::string> directories; ///< with the keyword, and passed over as directories
    std::vector<std::string> hidden;      ///< with the keyword, and passed over for the dot in front
};

ServiceDirectory ListServices(const DeviceRoot& root);

/// A name that a protocol does not get, and why.
struct PassedOver {
    enum class Reason : uint8_t { Later, IsDirectory, IsHidden, OtherCase };
    std::string name;
    Reason reason;
};

/// @return the reason in words.
const char* ReasonText(PassedOver::Reason reason) noexcept;

/// What the launcher does about one protocol.
struct PlanStep {
    enum class Action : uint8_t { Run, SkipDisabled, SkipTooLong };

    size_t order = 0; ///< from 1, as the entry stands in the configuration
    std::string protocol;
    Action action = Action::Run;
    std::string file;                   ///< of the start program; empty when none matches
    std::string prefix;                 ///< of the server's name
    std::string command;                ///< empty unless it is run
    bool isOpen = false;                ///< several match, and their order on the device is not known
    std::vector<PassedOver> passedOver; ///< at most `MaxPassedOver`

    static constexpr size_t MaxPassedOver = 32;

    /// @return why the step is as it is, in words: "", "disabled", "no start program matches" ...
    std::string reason() const;
};

/// What the launcher does, protocol by protocol, in its order. The choice and the commands are the launcher's own.
/// @param mode `ServiceCommand::StartMode` or `StopMode`.
std::vector<PlanStep> MakePlan(const std::vector<ProtocolTypeInfo>& records, const ServiceDirectory& services,
                               int32_t mode);

/// A command that the launcher runs with one copy of the configuration in force and not with the other.
struct PlanDifference {
    bool onlyInFirst = false;
    std::string protocol;
    std::string command;
};

std::vector<PlanDifference> ComparePlans(const std::vector<PlanStep>& first, const std::vector<PlanStep>& second);
