#pragma once

#include "fuzz/LauncherSeam.h"

#include <optional>
#include <string>
#include <vector>

/// One entry of a configuration, as far as the launcher looks at it.
struct ModelRecord {
    std::string name;
    bool enabled;
};

/// The entries of a configuration, or nothing when it cannot be used.
using ModelConfig = std::optional<std::vector<ModelRecord>>;

/// What a run of the launcher has to do, by rules written down a second time, as simply as they can be.
Transcript ExpectedRun(const Device& device, const std::vector<std::string>& arguments, const ModelConfig& working,
                       const ModelConfig& factory);
