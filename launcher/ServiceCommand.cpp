#include "launcher/ServiceCommand.h"

#include "launcher/LauncherPaths.h"

#include <algorithm>
#include <cstdio>

bool ServiceCommand::serves(const std::string& name, const std::string& protocolName) {
    return name.find(LoadServiceKeyword) != std::string::npos && name.find(protocolName) != std::string::npos;
}

ServiceCommand::ServiceCommand(const std::vector<std::string>& names, const std::string& protocolName, int32_t mode)
    : buffer{}, result(State::Nothing) {
    const auto match = std::find_if(names.begin(), names.end(),
                                    [&protocolName](const std::string& name) { return serves(name, protocolName); });
    if (match != names.end()) {
        matchedFile = *match;
        // find() answers npos when there is no "_", which substr() takes as the whole name.
        servicePrefix = match->substr(0, match->find('_'));
    }
    result = compose(mode);
}

ServiceCommand::State ServiceCommand::compose(int32_t mode) noexcept {
    int length = 0;
    if (mode == StopMode) {
        length = std::snprintf(buffer.data(), buffer.size(), "killall -15 %s%s", servicePrefix.c_str(), ServerSuffix);
    } else if (mode == StartMode) {
        length = std::snprintf(buffer.data(), buffer.size(), "%s%s", ServiceDir, matchedFile.c_str());
    } else {
        return State::Nothing;
    }
    // A negative length (snprintf failed) becomes a huge one here, and is refused with the long ones.
    if (static_cast<size_t>(length) >= buffer.size()) {
        buffer.fill('\0');
        return State::TooLong;
    }
    return State::Ready;
}
