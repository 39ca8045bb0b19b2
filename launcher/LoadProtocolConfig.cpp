#include "launcher/LoadProtocolConfig.h"

#include "launcher/ConfigurationCopies.h"

#include <cstdio>
#include <string>

namespace {

bool ParseOrReport(ProtocolConfig& config, const std::string& path) {
    if (config.parse(path)) {
        return true;
    }
    static_cast<void>(std::printf("Run ConfigFile(%s) failed\n", path.c_str()));
    // At once: the process may end by an exception later, and the line must not be lost on a pipe then.
    static_cast<void>(std::fflush(stdout));
    return false;
}

} // namespace

bool LoadProtocolConfig(ProtocolConfig& config) {
    return FirstUsableCopy([&config](const std::string& path) { return ParseOrReport(config, path); });
}
