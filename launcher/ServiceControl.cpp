#include "launcher/ServiceControl.h"

#include "launcher/ListDirectory.h"
#include "launcher/ServiceCommand.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The lines and the commands' own output share one console, often a pipe: each side is written out before the other
// gets its turn. The result is not looked at: a full disk behind the console must not keep the services from starting.
void FlushOutput() {
    static_cast<void>(std::fflush(stdout));
}

void Refuse(const std::string& protocolName, const std::string& file) {
    static_cast<void>(std::fprintf(stderr,
                                   "Wyvern: protocol \"%s\": the command for the file \"%s\" is longer than %zu "
                                   "characters and is not run\n",
                                   protocolName.c_str(), file.c_str(), ServiceCommand::BufferSize - 1));
}

void RunService(const std::string& protocolName, int mode) {
    std::vector<std::string> names;
    // A directory that cannot be opened yields no names, and what follows from that is the rule for no match.
    static_cast<void>(ListDirectory(ServiceCommand::ServiceDir, names, "*"));

    const ServiceCommand command(names, protocolName, mode);
    if (command.state() == ServiceCommand::State::TooLong) {
        Refuse(protocolName, command.file());
        return;
    }
    if (command.state() == ServiceCommand::State::Nothing) {
        return;
    }
    FlushOutput();
    // The shell and the unchecked status are the contract: the command is what an operator would type, and a service
    // that fails must not stop the ones behind it.
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe)
    [[maybe_unused]] const int status = std::system(command.text());
    const char* action = mode == ServiceCommand::StartMode ? "Run" : "Stop";
    static_cast<void>(std::printf("%s LoadServcie(%s) \n", action, command.text()));
    FlushOutput();
}

} // namespace

void RunProtocolServices(const std::vector<ProtocolTypeInfo>& records, int mode) {
    for (const ProtocolTypeInfo& record : records) {
        if (!record.isProtocolEnable()) {
            static_cast<void>(std::printf("Protocol(%s) disable\n", record.getProtocolName().c_str()));
            FlushOutput();
            continue;
        }
        RunService(record.getProtocolName(), mode);
    }
}
