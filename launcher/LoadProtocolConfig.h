#pragma once

#include "protocol/ProtocolConfig.h"

/// Reads the device's protocol configuration: the working copy, else the factory copy.
///
/// For each copy that cannot be used it prints "Run ConfigFile(%s) failed\n" with its path, and flushes. Neither file
/// is ever written.
/// @param config filled from the first copy that parses; as it was when neither does.
/// @return whether one did.
/// Throws what `ProtocolConfig::parse` throws. Threads: one. Not before `main`: it uses the static path strings.
bool LoadProtocolConfig(ProtocolConfig& config);
