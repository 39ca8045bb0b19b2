// Calls the launcher's library as the command itself never does. Reads the fixed paths and runs commands: only for a
// sandbox.
//
//     LauncherProbe services <mode> [+<enabled protocol> | -<disabled protocol>]...
//         RunProtocolServices with these records, none included, and with a line in the output buffer.
//     LauncherProbe load [<configuration>]
//         LoadProtocolConfig into a ProtocolConfig that has read this file before; prints the result and the names.

#include "launcher/LoadProtocolConfig.h"
#include "launcher/ServiceControl.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

int Services(int count, char** arguments) {
    std::vector<ProtocolTypeInfo> records;
    for (int i = 1; i < count; ++i) {
        ProtocolTypeInfo record;
        record.setProtocolEnable(arguments[i][0] == '+');
        record.setProtocolName(arguments[i] + 1);
        records.push_back(record);
    }
    static_cast<void>(std::fputs("in the buffer\n", stdout));
    RunProtocolServices(records, std::atoi(arguments[0]));
    return 0;
}

int Load(int count, char** arguments) {
    ProtocolConfig config;
    if (count > 0 && !config.parse(arguments[0])) {
        return 1;
    }
    static_cast<void>(std::puts(LoadProtocolConfig(config) ? "true" : "false"));
    for (const ProtocolTypeInfo& record : config.getProtocolList()) {
        static_cast<void>(std::puts(record.getProtocolName().c_str()));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && std::strcmp(argv[1], "services") == 0) {
        return Services(argc - 2, argv + 2);
    }
    if (argc >= 2 && std::strcmp(argv[1], "load") == 0) {
        return Load(argc - 2, argv + 2);
    }
    return 2;
}
