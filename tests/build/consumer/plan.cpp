#include "launcher/ServiceCommand.h"
#include "protocol/ProtocolConfig.h"

#include <cstdio>

// Reads a protocol configuration and prints what the launcher would run for it.
int main(int argc, char** argv) {
    ProtocolConfig config;
    if (argc != 2 || !config.parse(argv[1])) {
        return 1;
    }
    for (const ProtocolTypeInfo& protocol : config.getProtocolList()) {
        const ServiceCommand command({"Modbus_loadservice"}, protocol.getProtocolName(), ServiceCommand::StartMode);
        std::printf("%s: %s\n", protocol.getProtocolName().c_str(), command.text());
    }
    return 0;
}
