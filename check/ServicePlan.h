#pragma once

#include "check/DeviceRoot.h"
#include "protocol/ProtocolTypeInfo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What stands in the service directory, as far as it concerns the choice of a start program.
struct ServiceDirectory {
    enum class State : uint8_t {
        Missing, ///< the launcher takes it for empty
        Unknown, ///< this user may not list it, the launcher may
        Listed,
    };

    /// Names of each kind that the launcher passes over; of more the rest is left out, and `isCut` set.
    static constexpr size_t MaxPassedOver = 1000;
    /// Entries of the directory that are looked at for such names in ordinary use; with more, `isCut` is set as well.
    static constexpr size_t MaxEntries = 100000;

    std::string path; ///< on the machine that runs the check
    State state = State::Missing;
    bool isCut = false;
    bool hasTheDevicesOrder = false; ///< the order in which it was listed here is the one that the device will see
    /// What the launcher chooses from: its own listing, without the names that no protocol could take.
    std::vector<std::string> names;
    std::vector<std::string> otherCase;   ///< with the keyword in another letter case
    std::vector<std::string> directories; ///< with the keyword, and passed over as directories
    std::vector<std::string> hidden;      ///< with the keyword, and passed over for the dot in front

    /// @return how many bytes all the names have.
    size_t size() const noexcept;
};

/// @return a word for a state, as it stands in tables: "listed".
const char* StateName(ServiceDirectory::State state) noexcept;

/// @param maxEntries of the directory that are looked at for names that the launcher passes over.
ServiceDirectory ListServices(const DeviceRoot& root, size_t maxEntries = ServiceDirectory::MaxEntries);

/// A name that a protocol does not get, and why.
struct PassedOver {
    enum class Reason : uint8_t {
        Later,     ///< it comes after the one that is taken
        MaybeNext, ///< it does here, but the order on the device is not known
        IsDirectory,
        IsHidden,
        OtherCase,
    };
    std::string name;
    Reason reason;

    /// @return whether it could be taken, if others did not come before it.
    bool matches() const noexcept { return reason <= Reason::MaybeNext; }

    /// @return whether it may be the one that the device takes.
    bool mayBeTaken() const noexcept { return reason == Reason::MaybeNext; }
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
    bool isCut = false;                 ///< there are more

    static constexpr size_t MaxPassedOver = 32;

    /// @return why the step is as it is, in words: "", "disabled", "no start program matches" ...
    std::string reason() const;

    /// @return what must hold on the device for the file to be taken, to stand behind a text: ", if ..."; empty unless open.
    std::string condition() const;
};

/// Entries of a configuration times bytes of the names in the service directory, as many as a plan is made for: a second
/// or so for all that is made of a plan, whatever the names are.
inline constexpr size_t MaxPlanWork = size_t{1} << 25U;

/// @return whether a plan would be too much work.
bool IsTooMuchToPlan(size_t records, const ServiceDirectory& services) noexcept;

/// What the launcher does, protocol by protocol, in its order. The choice and the commands are the launcher's own.
/// @param records and services that are not too much to plan.
/// @param mode `ServiceCommand::StartMode` or `StopMode`.
std::vector<PlanStep> MakePlan(const std::vector<ProtocolTypeInfo>& records, const ServiceDirectory& services,
                               int32_t mode);

/// @return the plan with a step for each start program that a protocol may turn out to get: for an open choice also the
///         steps that its other names would make, behind its own and with the same `order`.
std::vector<PlanStep> WithOpenChoices(const std::vector<PlanStep>& plan, int32_t mode);

/// How the launcher acts otherwise with the second of two configurations in force than with the first.
struct PlanDifference {
    enum class Kind : uint8_t {
        OnlyInFirst,  ///< the first runs the command, or runs it once more
        OnlyInSecond, ///< the other way round
        OtherOrder,   ///< what both run comes in another order, from this command of the second on
    };

    Kind kind = Kind::OtherOrder;
    std::string protocol;
    std::string command;
    bool isOpen = false; ///< the command is that of one of the names that may be taken
};

/// @return a word for a kind, as it stands in tables: "working" and "factory" for what only that copy does, "order".
const char* DifferenceName(PlanDifference::Kind kind) noexcept;

/// Compares what two plans of one mode run, as sequences.
std::vector<PlanDifference> ComparePlans(const std::vector<PlanStep>& first, const std::vector<PlanStep>& second,
                                         int32_t mode);
