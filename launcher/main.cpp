#include "launcher/LoadProtocolConfig.h"
#include "launcher/ServiceControl.h"
#include "protocol/ProtocolConfig.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 2) {
        static_cast<void>(std::puts("Useage: Wyvern [Type 1:start,0:stop]"));
        static_cast<void>(std::fflush(stdout));
        return -1; // exit status 255
    }
    // NOLINTNEXTLINE(cert-err34-c): what is not a number means 0, stop.
    const int mode = std::atoi(argv[1]);

    ProtocolConfig config;
    if (LoadProtocolConfig(config)) {
        RunProtocolServices(config.getProtocolList(), mode);
    }
    return 0;
}
