#include "launcher/LoadProtocolConfig.h"
#include "launcher/ServiceControl.h"
#include "protocol/ProtocolConfig.h"

#include <array>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    // Room for the lines. The C library would make it at the first one, when the configuration is read and gone: it asks
    // the kernel what standard output is, and so large a request makes malloc put together the pieces that were left.
    // On a terminal, too, nothing goes out now before a flush: whoever prints a line flushes it.
    static std::array<char, BUFSIZ> lines;
    static_cast<void>(std::setvbuf(stdout, lines.data(), _IOFBF, lines.size()));

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
